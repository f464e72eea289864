// The appliance's account settings files: the account defaults
// (/etc/quillfold/account.conf, "key!!value" lines, rewritten by the import
// when it is missing or names a volume that is gone), password recovery
// (/etc/quillfold/passwordrecovery.conf) and the per-user home-folder
// settings (/etc/quillfold/user_hf_settings.conf, "key = yes|no" lines).
#define KSDB_MODULE "ksdb_account"
#include "accounts/ksdb_account.h"

#include "platform/platform.h"

#include <optional>
#include <string>

namespace ksdb::account {
namespace {

constexpr char kAccountConf[] = "/etc/quillfold/account.conf";
constexpr char kRecoveryConf[] = "/etc/quillfold/passwordrecovery.conf";
constexpr char kHfSettings[] = "/etc/quillfold/user_hf_settings.conf";

// The time-machine space of a new defaults row: the volume's size in GiB,
// at most 500.
int time_machine_space(const ksdb_handle *h, const std::string &volume) {
    int space = 500;
    ksdb_volume_list list{};
    if (volume_scan(h->debug_root, &list) != 0) return space;
    for (int i = 0; i < list.count; ++i)
        if (volume == list.volumes[i].name && (list.volumes[i].blk_total >> 20) < 500)
            space = static_cast<int>(list.volumes[i].blk_total >> 20);
    free_volume(&list);
    return space;
}

int import_defaults(ksdb_handle *h, sqlite3 *db) {
    ConfFile conf(h, kAccountConf);
    bool rewrite = false;
    int status = 0;
    if (!conf.ok()) {
        KSDB_INFO(h, "Cannot load %s. Use default.\n", kAccountConf);
        std::optional<std::string> first;
        std::string volume = "run";
        if (sql_scalar(h, db, nullptr, KSDB_TAG, &first,
                       "SELECT V.lv_name FROM _volume V WHERE V.lv_name<>'media' LIMIT 1") !=
            SQLITE_OK) {
            KSDB_ERR(h, "Failed to SELECT FROM _volume.\n");
            status = KSDB_E_DB;
        } else if (first) {
            volume = *first;
        }
        KSDB_DEBUG(h, "Default home volume is reassigned to %s.\n", volume.c_str());
        const int space = time_machine_space(h, volume);
        if (int rc = update_else_insert(
                h, db,
                sql_printf("UPDATE `account_default` SET home_volume_id=%Q,diskquota_warn=%d,"
                           "group_id=%d,home_folder_capacity_limit=%lu,group_membership=%Q,"
                           "private_time_machine=%d,private_time_machine_space=%d,"
                           "snapshot_protection=%d,next_uid=%d",
                           volume.c_str(), 80, 100, 0UL, "users", 0, space, 0, 100),
                sql_printf("INSERT INTO `account_default` VALUES(%Q,%d,100,0,%lu,%Q,%d,%d,%d,%d)",
                           volume.c_str(), 80, 0UL, "users", 0, space, 0, 100),
                "Failed to UPDATE account_default with default values\n",
                "Failed to INSERT default values INTO account_default\n"))
            return rc;
        rewrite = true;
    } else {
        long long group_id = -1, quota_warn = 80, tm_space = 500, next_uid = 100;
        long long tm = 0, snapshot = 0;
        unsigned long capacity = 0;
        std::string home_volume = "0", membership = "0";
        auto numeric = [&](std::string_view key) -> long long * {
            if (key == "diskquota_warn") return &quota_warn;
            if (key == "private_time_machine") return &tm;
            if (key == "private_time_machine_space") return &tm_space;
            if (key == "snapshot_protection") return &snapshot;
            if (key == "next_uid") return &next_uid;
            return nullptr;
        };
        int rc = 0;
        conf.lines([&](char *line) {
            std::string_view key, value;
            if (!*line || *line == '#' || !setting(line, &key, &value)) return true;
            const std::string v(value);
            if (key == "group") {
                std::optional<std::string> id;
                if (sql_scalar(h, db, nullptr, KSDB_TAG, &id,
                               "SELECT id FROM `$group` WHERE gname=%Q", v.c_str()) != SQLITE_OK)
                    KSDB_ERR(h, "SQL Error for SELECT FROM `group`.\n");
                else if (!id)
                    KSDB_WARN(h, "Default group %s does not exist. (Check %s). Continue importing.\n",
                              v.c_str(), kAccountConf);
                else
                    group_id = number(id->c_str());
            } else if (key == "home_volume") {
                home_volume = v;
                std::optional<std::string> id;
                if (sql_scalar(h, db, nullptr, KSDB_TAG, &id,
                               "SELECT id FROM _volume WHERE lv_name=%Q AND lv_name<>'media'",
                               v.c_str()) != SQLITE_OK) {
                    KSDB_ERR(h, "SQL Error in SELECT FROM _volume.\n");
                } else if (id) {
                    home_volume = *id;
                } else {
                    SqlTable other;
                    if (other.query(h, db, KSDB_TAG,
                                    "SELECT id,lv_name FROM _volume WHERE lv_name<>'rpool' AND "
                                    "lv_name<>'USB' AND lv_name<>'media' LIMIT 1") != SQLITE_OK) {
                        rc = KSDB_E_DB;
                        return false;
                    }
                    if (other.rows() > 0) {
                        KSDB_WARN(h, "Default volume (%s) is not exist,  But found %d volume(s). "
                                     "Use %s (id=%s) as home volume.\n",
                                  v.c_str(), other.rows(), other.str(0, 1), other.str(0, 0));
                        home_volume = other.str(0, 0);
                        rewrite = true;
                    } else {
                        KSDB_WARN(h, "Default volume (%s) is not exist. And there is no volumes. "
                                     "Ignore and continue.\n",
                                  v.c_str());
                    }
                }
            } else if (key == "group_membership") {
                membership = v;
            } else if (key == "home_folder_capacity_limit") {
                capacity = std::strtoul(v.c_str(), nullptr, 10);
            } else if (long long *n = numeric(key)) {
                *n = number(v.c_str());
            } else {
                KSDB_WARN(h, "Unknown parameter (%s) in %s. Continue importing.\n",
                          std::string(key).c_str(), kAccountConf);
            }
            return true;
        });
        if (rc) return rc;
        const int q = static_cast<int>(quota_warn), g = static_cast<int>(group_id),
                  t = static_cast<int>(tm), ts = static_cast<int>(tm_space),
                  s = static_cast<int>(snapshot), n = static_cast<int>(next_uid);
        if (int rc2 = update_else_insert(
                h, db,
                sql_printf("UPDATE account_default SET home_volume_id=%Q,diskquota_warn=%d,"
                           "group_id=%d,home_folder_capacity_limit=%lu,group_membership=%Q,"
                           "private_time_machine=%d,private_time_machine_space=%d,"
                           "snapshot_protection=%d,next_uid=%d",
                           home_volume.c_str(), q, g, capacity, membership.c_str(), t, ts, s, n),
                sql_printf("INSERT INTO account_default (home_volume_id,diskquota_warn,group_id,"
                           "home_folder_capacity_limit,group_membership,private_time_machine,"
                           "private_time_machine_space,snapshot_protection,next_uid)"
                           "VALUES(%Q,%d,%d,%lu,%Q,%d,%d,%d,%d)",
                           home_volume.c_str(), q, g, capacity, membership.c_str(), t, ts, s, n),
                "Failed to UPDATE account_default.\n", "Failed to INSERT INTO account_default\n"))
            return rc2;
    }
    if (rewrite) {
        if (int rc = _ksdb_account_default_export(h, db)) return rc;
        KSDB_INFO(h, "%s is updated.\n", kAccountConf);
    }
    return status;
}

int import_recovery(ksdb_handle *h, sqlite3 *db) {
    std::string email, question, answer, method;
    int enabled = 0;
    ConfFile conf(h, kRecoveryConf);
    if (!conf.ok()) {
        KSDB_INFO(h, "Cannot load %s\n", kRecoveryConf);
    } else {
        conf.lines([&](char *line) {
            std::string_view key, value;
            if (!*line || *line == '#' || !setting(line, &key, &value)) return true;
            if (key == "email") email = value;
            else if (key == "question") question = value;
            else if (key == "answer") answer = value;
            else if (key == "enabled") enabled = std::atoi(std::string(value).c_str());
            else if (key == "method") method = value;
            else KSDB_WARN(h, "Unknown parameter (%s) in %s\n", std::string(key).c_str(), kRecoveryConf);
            return true;
        });
    }
    static const char kFailed[] = "Failed to insert into account_default table\n";
    if (int rc = exec_or_fail(h, db, kFailed, "DELETE FROM passwordrecovery")) return rc;
    return exec_or_fail(h, db, kFailed,
                        "INSERT INTO passwordrecovery (email,question,answer,enabled,method) "
                        "VALUES(%Q,%Q,%Q,%d,%Q)",
                        email.c_str(), question.c_str(), answer.c_str(), enabled, method.c_str());
}

// The single-row settings file of password recovery; nullopt-like empty
// result when the table holds no row (the file is then left as it is).
int build_recovery(ksdb_handle *h, sqlite3 *db, std::optional<std::string> *out) {
    SqlTable t;
    if (t.query(h, db, KSDB_TAG,
                "SELECT P.email,P.question,P.answer,P.enabled,P.method FROM passwordrecovery P "
                "LIMIT 1") != SQLITE_OK)
        return KSDB_E_DB;
    if (t.rows() == 0) return 0;
    static const char *const kKeys[] = {"email", "question", "answer", "enabled", "method"};
    std::string text;
    for (int c = 0; c < 5; ++c) {
        if (int rc = guard_value(h, t.at(0, c), rules::kLine,
                                 {"passwordrecovery", kKeys[c], "the recovery settings"}))
            return rc;
        text += strprintf("%s!!%s\n", kKeys[c], t.str(0, c));
    }
    *out = std::move(text);
    return 0;
}

int build_hf_settings(ksdb_handle *h, sqlite3 *db, std::string *out) {
    SqlTable t;
    char *emsg = nullptr;
    if (ksdb_sql_get_table(h, db, &emsg, KSDB_TAG, t.table_out(), t.nrow_out(), t.ncol_out(),
                           "SELECT U.home,H.quota,U.uname,H.snapshot_protection_enabled,"
                           "H.visible_snapdir,H.prev_versions FROM `$home_folder` H,`$user` U "
                           "WHERE H.user_id=U.id") != SQLITE_OK) {
        KSDB_ERR(h, "Failed DB Query for home folders settings (emsg='%s')\n", emsg ? emsg : "");
        return KSDB_E_DB;
    }
    auto yes = [](const char *v) { return number(v) != 0 ? "yes" : "no"; };
    *out = "# DO NOT EDIT.\n";
    for (int r = 0; r < t.rows(); ++r) {
        if (int rc = guard_value(h, t.at(r, 2), rules::kLine, {"$user", "uname", t.str(r, 2)}))
            return rc;
        *out += strprintf("username = %s\nsnapshot_protection = %s\nsnapshot_access = %s\n"
                          "prev_versions = %s\n",
                          t.str(r, 2), yes(t.at(r, 3)), yes(t.at(r, 4)), yes(t.at(r, 5)));
    }
    return 0;
}

int export_recovery(ksdb_handle *h, sqlite3 *db) {
    std::optional<std::string> text;
    if (int rc = build_recovery(h, db, &text)) return rc;
    if (!text) return 0;
    return write_files(h, {{kRecoveryConf, &*text}});
}

}  // namespace

int export_hf_settings(ksdb_handle *h, sqlite3 *db) {
    std::string text;
    if (int rc = build_hf_settings(h, db, &text)) return rc;
    ManagedFile out(h, kHfSettings);
    if (!out.ok()) {
        KSDB_ERR(h, "Cannot open temporary file of user HF settings conf for write (%s)\n",
                 kHfSettings);
        return KSDB_E_FILE;
    }
    out.write(text);
    if (out.commit() != 0) {
        KSDB_ERR(h, "Cannot move file to %s\n", kHfSettings);
        return KSDB_E_FILE;
    }
    return 0;
}

namespace {

int export_defaults(ksdb_handle *h, sqlite3 *db) {
    SqlTable t;
    if (t.query(h, db, KSDB_TAG,
                "SELECT V.lv_name,A.diskquota_warn,G.gname,A.home_folder_capacity_limit,"
                "A.group_membership,A.private_time_machine,A.private_time_machine_space,"
                "A.snapshot_protection,A.next_uid FROM account_default A INNER JOIN _volume V ON "
                "V.id=A.home_volume_id INNER JOIN `$group` G ON G.id=A.group_id LIMIT 1") !=
        SQLITE_OK) {
        KSDB_ERR(h, "SQL Error for SELECT FROM account_default\n");
        return KSDB_E_DB;
    }
    if (t.rows() == 0) {
        KSDB_INFO(h, "No home volume or default group to write to %s\n", kAccountConf);
        return 0;
    }
    if (int rc = guard_row(h, "account_default", "the account defaults",
                           {{"home_volume_id", t.at(0, 0), rules::kLine},
                            {"group_id", t.at(0, 2), rules::kLine},
                            {"group_membership", t.at(0, 4), rules::kLine}}))
        return rc;
    auto n = [&](int c) { return static_cast<int>(number(t.at(0, c))); };
    const std::string text = strprintf(
        "home_volume!!%s\ndiskquota_warn!!%d\ngroup!!%s\nhome_folder_capacity_limit!!%lu\n"
        "group_membership!!%s\nprivate_time_machine!!%d\nprivate_time_machine_space!!%d\n"
        "snapshot_protection!!%d\nnext_uid!!%d\n",
        t.str(0, 0), n(1), t.str(0, 2), std::strtoul(t.str(0, 3), nullptr, 10), t.str(0, 4), n(5),
        n(6), n(7), n(8));
    return write_files(h, {{kAccountConf, &text}});
}

}  // namespace

int import_settings(ksdb_handle *h, sqlite3 *db) {
    if (int rc = import_defaults(h, db)) return rc;
    return import_recovery(h, db);
}

int check_settings(ksdb_handle *h, sqlite3 *db) {
    std::optional<std::string> recovery;
    std::string hf;
    if (int rc = build_recovery(h, db, &recovery)) return rc;
    return build_hf_settings(h, db, &hf);
}

}  // namespace ksdb::account

using namespace ksdb::account;

extern "C" {

int _ksdb_account_passwordrecovery_export(ksdb_handle *h, sqlite3 *db) {
    return ksdb::logged(h, KSDB_TAG, "_ksdb_account_passwordrecovery_export",
                        [&] { return export_recovery(h, db); });
}

int _ksdb_account_default_export(ksdb_handle *h, sqlite3 *db) {
    return ksdb::logged(h, KSDB_TAG, "_ksdb_account_default_export",
                        [&] { return export_defaults(h, db); });
}

}  // extern "C"
