// Local users and groups: /etc/passwd, /etc/shadow, /etc/group and
// /etc/gshadow read into `$user`, `$group` and `$group_has_user` and written
// back from them; the account import and export that also carry the
// settings files (ksdb_account_settings.cpp).  The look-ups are in
// ksdb_account_lookup.cpp.
//
// Local rows have `rid` NULL; domain rows are never touched here.  A
// negative `is_privileged` marks a row that the next export leaves out of
// the files and then deletes.  "nobody" and "nogroup" are stored as
// "guest" and written back under both names.
#define KSDB_MODULE "ksdb_account"
#include "accounts/ksdb_account.h"

#include "core/ksdb_areas.h"
#include "platform/platform.h"
#include "util/ksdb_program.h"

#include <cctype>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

namespace ksdb::account {
namespace {

constexpr char kShadow[] = "/etc/shadow";
constexpr char kGroup[] = "/etc/group";
constexpr char kGshadow[] = "/etc/gshadow";

// A user or group name: one field of the account files and one entry of a
// group's member list, so neither ":" nor ","; a leading "#" would make
// its line a comment.
const ValueRule kName{"an account name", ":,", kValueNotEmpty | kValueNoLeadingHash};
const ValueRule kHome{"a home folder path", ":", 0};

// Why a home folder may not have paths built below it, or nullptr.
const char *home_refusal(std::string_view home) {
    if (const char *why = value_refusal(home, kHome)) return why;
    if (home.empty() || home.front() != '/') return "a relative path";
    while (!home.empty()) {
        home.remove_prefix(1);
        std::string_view part = home.substr(0, home.find('/'));
        if (part == "." || part == "..") return "a relative path component";
        home.remove_prefix(part.size());
    }
    return nullptr;
}

// A user or group id as the files write it: decimal digits only.
bool parse_id(std::string_view text, long long *id) {
    if (text.empty() || text.size() > 18) return false;
    long long v = 0;
    for (char c : text) {
        if (c < '0' || c > '9') return false;
        v = v * 10 + (c - '0');
    }
    *id = v;
    return true;
}

// Ids up to 99 and above 32767 belong to the system.
int privileged(long long id) { return id <= 99 || id > 32767 ? 1 : 0; }

// ---- import ----------------------------------------------------------------------

// The home-folder usage of an ordinary user, kept in `_hf_zfs_stat`.
void gather_home_usage(ksdb_handle *h, sqlite3 *db, long long uid, std::string_view home) {
    std::optional<std::string> priv;
    if (sql_scalar(h, db, nullptr, KSDB_TAG, &priv,
                   "SELECT is_privileged FROM `$user` WHERE id=%lld", uid) != SQLITE_OK ||
        !priv || *priv != "0")
        return;
    const std::string dir(home);
    if (home_refusal(dir) || !fs::is_dir(h, dir)) return;
    ksdb_qgroup_info info{};
    if (btrfs_get_qgroup_info(fs::real_path(h, dir).c_str(), &info) != 0) return;
    if (ksdb_sql_exec_mprintf(h, db, nullptr, KSDB_TAG,
                              "INSERT OR REPLACE INTO `_hf_zfs_stat` (user_id,used,usedbysnapshots) "
                              "VALUES(%lld,%llu,%llu)",
                              uid, static_cast<unsigned long long>(info.referenced),
                              static_cast<unsigned long long>(info.snapshots_used)) != SQLITE_OK)
        KSDB_WARN(h, "Cannot record the home folder usage of uid %lld\n", uid);
}

// passwd -S reports the status word "L" for a locked password.
bool password_locked(ksdb_handle *h, const std::string &name) {
    std::string out;
    if (debug_root_set(h))
        run_program(h, "passwd", {"-S", name, "-R", h->debug_root}, &out, 127);
    else
        run_program(h, "passwd", {"-S", name}, &out, 127);
    auto words = fields(out, ' ', 3);
    return words.size() > 1 && words[1] == "L";
}

int import_users(ksdb_handle *h, sqlite3 *db, int keep) {
    struct Shadow {
        std::string hash;
        int last_changed;
    };
    std::unordered_map<std::string, Shadow> shadow;
    {
        ConfFile file(h, kShadow);
        if (!file.ok()) {
            KSDB_ERR(h, "Cannot load shadow file\n");
            return KSDB_E_FILE;
        }
        file.lines([&](char *line) {
            auto f = fields(line, ':', 4);
            if (f.size() > 2)
                shadow[std::string(f[0])] = {std::string(f[1]),
                                             std::atoi(std::string(f[2]).c_str())};
            return true;
        });
    }
    ads_log_for(h, KSDB_TAG, KSDB_LOG_INFO, "Local user import has started.");
    if (!keep) {
        ads_log_for(h, KSDB_TAG, KSDB_LOG_INFO,
                    "Removing all users from $user table excluding ADS users if exist.");
        if (int rc = exec_or_fail(h, db, "Failed (DELETE user)\n",
                                  "DELETE FROM `$user` WHERE rid IS NULL"))
            return rc;
    }
    ConfFile passwd(h, kPasswd);
    if (!passwd.ok()) {
        KSDB_ERR(h, "Cannot load passwd file\n");
        return KSDB_E_FILE;
    }
    int status = 0;
    passwd.lines([&](char *line) {
        if (skipped_entry_line(line)) return true;
        auto f = fields(line, ':', 7);
        if (f.size() <= 6) return true;
        long long uid, gid;
        if (!parse_id(f[2], &uid) || !parse_id(f[3], &gid)) {
            KSDB_WARN(h, "Invalid user or group id of %.*s in %s. Ignore.\n",
                      static_cast<int>(f[0].size()), f[0].data(), kPasswd);
            return true;
        }
        const std::string name(f[0]);
        auto sh = shadow.find(name);
        if (sh == shadow.end()) return true;
        // A GECOS field with commas keeps its first piece as the full name
        // and its second as the e-mail; without commas it is all e-mail.
        std::optional<std::string> fullname;
        std::string email(f[4]);
        if (email.find(',') != std::string::npos) {
            auto pieces = fields(f[4], ',', 3);
            fullname = std::string(pieces[0]);
            email = std::string(pieces[1]);
        }
        const std::string stored = name == "nobody" ? "guest" : name;
        const std::string shell(f[6]);
        const int locked = password_locked(h, stored) ? 1 : 0;
        const int shell_access = shell == "/bin/bash" && (uid >= 100 || uid == 98) ? 1 : 0;
        int rc = ksdb_sql_exec_mprintf(
            h, db, nullptr, KSDB_TAG,
            "INSERT OR IGNORE INTO `$user`(id,uname,passwd,email,fullname,home,group_id,shell,"
            "last_changed,is_privileged,is_locked,shell_access) "
            "VALUES(%lld,%Q,%Q,%Q,%Q,%Q,%lld,%Q,%d,%d,%d,%d)",
            uid, stored.c_str(), sh->second.hash.c_str(), email.c_str(),
            fullname ? fullname->c_str() : nullptr, std::string(f[5]).c_str(), gid,
            shell.c_str(), sh->second.last_changed, privileged(uid), locked, shell_access);
        if (rc == SQLITE_OK) {
            gather_home_usage(h, db, uid, f[5]);
        } else if (rc == SQLITE_CONSTRAINT) {
            KSDB_WARN(h, "Duplicate entry exist (uid=%lld uname=%s). Ignore.\n", uid,
                      stored.c_str());
        } else {
            KSDB_ERR(h, "Failed to insert into user table\n");
            status = KSDB_E_DB;
            return false;
        }
        return true;
    });
    return status;
}

int import_groups(ksdb_handle *h, sqlite3 *db, int keep) {
    if (!keep) {
        if (int rc = exec_or_fail(
                h, db, "Failed (DELETE group)\n",
                "DELETE FROM `$group` WHERE rid IS NULL;"
                "DELETE FROM `$group_has_user` WHERE NOT EXISTS (SELECT * FROM `$user` WHERE id=user_id);"
                "DELETE FROM `$group_has_user` WHERE NOT EXISTS (SELECT * FROM `$group` WHERE id=group_id);"))
            return rc;
    }
    ConfFile group(h, kGroup);
    if (!group.ok()) {
        KSDB_ERR(h, "Cannot load group file\n");
        return KSDB_E_FILE;
    }
    // Members are found by name as `$user` compares names (ASCII case
    // folded), the first row of a name winning: one pass over the table
    // instead of one search of it per member.
    std::unordered_map<std::string, long long> uid_of;
    {
        SqlTable users;
        if (users.query(h, db, KSDB_TAG, "SELECT id,uname FROM `$user` ORDER BY rowid") !=
            SQLITE_OK)
            return KSDB_E_DB;
        for (int r = 0; r < users.rows(); ++r) {
            std::string key = users.str(r, 1);
            for (char &c : key) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
            uid_of.emplace(std::move(key), number(users.at(r, 0)));
        }
    }
    int status = 0;
    group.lines([&](char *line) {
        if (skipped_entry_line(line)) return true;
        auto f = fields(line, ':', 4);
        if (f.size() <= 3) return true;
        long long gid;
        if (!parse_id(f[2], &gid)) {
            KSDB_WARN(h, "Invalid group id of %.*s in %s. Ignore.\n",
                      static_cast<int>(f[0].size()), f[0].data(), kGroup);
            return true;
        }
        const std::string name = f[0] == "nogroup" ? "guest" : std::string(f[0]);
        int rc = ksdb_sql_exec_mprintf(
            h, db, nullptr, KSDB_TAG,
            "INSERT OR IGNORE INTO `$group` (id,gname,is_privileged) VALUES(%lld,%Q,%d)", gid,
            name.c_str(), privileged(gid));
        if (rc == SQLITE_CONSTRAINT) {
            KSDB_WARN(h, "Duplicate entry exist (gid=%lld gname=%s). Ignore.\n", gid, name.c_str());
            return true;
        }
        if (rc != SQLITE_OK) {
            status = KSDB_E_DB;
            return false;
        }
        if (sqlite3_changes(db) < 1) return true;
        for (std::string_view member : fields(f[3], ',', SIZE_MAX)) {
            std::string key(member);
            for (char &c : key) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
            auto u = uid_of.find(key);
            if (u == uid_of.end()) continue;  // not a user of this system
            if (ksdb_sql_exec_mprintf(h, db, nullptr, KSDB_TAG,
                                      "INSERT OR IGNORE INTO `$group_has_user` (user_id,group_id) "
                                      "VALUES(%lld,%lld)",
                                      u->second, gid) != SQLITE_OK) {
                status = KSDB_E_DB;
                return false;
            }
        }
        return true;
    });
    return status;
}

int import_account(ksdb_handle *h, sqlite3 *db) {
    std::string domain;
    if (domain_name(h, db, &domain) != 0) {
        KSDB_ERR(h, "Unexpected error. Probably no network or bad network configuration. "
                    "Treat as user mode.\n");
        domain.clear();
    }
    if (int rc = _ksdb_account_local_user_import(h, db, 0)) return rc;
    if (int rc = _ksdb_account_local_group_import(h, db, 0)) return rc;
    if (ksdb_sql_exec(h, db, nullptr, KSDB_TAG,
                      "DELETE FROM `_ads_importer`;INSERT INTO `_ads_importer` (state,total_group,"
                      "curr_group,total_user,curr_user,start_at,done_at) "
                      "VALUES(0,0,0,0,0,0,0);") == SQLITE_OK &&
        domain.empty()) {
        // Standing alone: no domain account may keep a right or a row.
        ksdb_sql_exec(
            h, db, nullptr, KSDB_TAG,
            "DELETE FROM `user_acl` WHERE EXISTS(SELECT 1 FROM `$user` U WHERE user_id=U.id AND U.rid IS NOT NULL);"
            "DELETE FROM `group_acl` WHERE EXISTS(SELECT 1 FROM `$group` G WHERE group_id=G.id AND G.rid IS NOT NULL);"
            "DELETE FROM `$group_has_user` WHERE EXISTS(SELECT 1 FROM `$user` U WHERE user_id=U.id AND U.rid IS NOT NULL);"
            "DELETE FROM `$group_has_user` WHERE EXISTS(SELECT 1 FROM `$group` G WHERE group_id=G.id AND G.rid IS NOT NULL);"
            "DELETE FROM `$home_folder` WHERE EXISTS(SELECT 1 FROM `$user` U WHERE user_id=U.id AND U.rid IS NOT NULL);"
            "DELETE FROM `$user` WHERE rid IS NOT NULL;DELETE FROM `$group` WHERE rid IS NOT NULL;");
        // The stored domain identity goes with them.
        ksdb_sql_exec(h, db, nullptr, KSDB_TAG,
                      "UPDATE service_cifs SET domain_sid=NULL,domain_admin_uid=NULL,"
                      "domain_admin_gid=NULL");
    }
    return import_settings(h, db);
}

// ---- export ----------------------------------------------------------------------

struct Pair {
    std::string main, secret;  // passwd and shadow, or group and gshadow
};

int build_users(ksdb_handle *h, sqlite3 *db, Pair *out) {
    SqlTable t;
    if (t.query(h, db, KSDB_TAG,
                "SELECT U.id,U.uname,U.passwd,U.email,U.home,U.group_id,U.shell,U.last_changed,"
                "is_privileged FROM `$user` U WHERE U.rid IS NULL ORDER BY U.id") != SQLITE_OK)
        return KSDB_E_DB;
    for (int r = 0; r < t.rows(); ++r) {
        if (number(t.at(r, 8)) < 0) continue;
        const char *name = t.str(r, 1);
        const ValueRule &f = rules::kAccountField;
        if (int rc = guard_row(h, "$user", name,
                               {{"uname", name, kName}, {"id", t.at(r, 0), f},
                                {"passwd", t.at(r, 2), f}, {"email", t.at(r, 3), f},
                                {"home", t.at(r, 4), kHome}, {"group_id", t.at(r, 5), f},
                                {"shell", t.at(r, 6), f}, {"last_changed", t.at(r, 7), f}}))
            return rc;
        // No stored hash is a password nobody can type, never an empty one.
        const char *hash = t.at(r, 2) ? t.at(r, 2) : "!";
        for (const char *as : {name, std::strcmp(name, "guest") == 0 ? "nobody" : nullptr}) {
            if (!as) continue;
            out->main += strprintf("%s:x:%s:%s:%s:%s:%s\n", as, t.str(r, 0), t.str(r, 5),
                                   t.str(r, 3), t.str(r, 4), t.str(r, 6));
            out->secret += strprintf("%s:%s:%s:%d:%d:%d:::\n", as, hash, t.str(r, 7), 0, 99999, 7);
        }
    }
    return 0;
}

int build_groups(ksdb_handle *h, sqlite3 *db, Pair *out) {
    // Every member name first: the member lists below come joined.
    SqlTable members;
    if (members.query(h, db, KSDB_TAG,
                      "SELECT U.uname,G.gname FROM `$group_has_user` GU INNER JOIN `$group` G ON "
                      "G.id=GU.group_id INNER JOIN `$user` U ON U.id=GU.user_id WHERE G.rid IS NULL "
                      "AND G.is_privileged>=0") != SQLITE_OK)
        return KSDB_E_DB;
    for (int r = 0; r < members.rows(); ++r)
        if (int rc = guard_value(h, members.at(r, 0), kName, {"$user", "uname", members.str(r, 0)}))
            return rc;
    SqlTable t;
    if (t.query(h, db, KSDB_TAG,
                "SELECT G.id,gname,GROUP_CONCAT(U.uname,','),G.is_privileged FROM `$group` G "
                "LEFT JOIN `$group_has_user` GU ON GU.group_id=G.id LEFT JOIN `$user` U ON "
                "U.id=GU.user_id WHERE G.rid IS NULL GROUP BY G.id ORDER BY G.id") != SQLITE_OK)
        return KSDB_E_DB;
    for (int r = 0; r < t.rows(); ++r) {
        if (number(t.at(r, 3)) < 0) continue;
        const char *name = t.str(r, 1);
        if (int rc = guard_row(h, "$group", name,
                               {{"gname", name, kName}, {"id", t.at(r, 0), rules::kAccountField}}))
            return rc;
        for (const char *as : {name, std::strcmp(name, "guest") == 0 ? "nogroup" : nullptr}) {
            if (!as) continue;
            out->main += strprintf("%s:x:%s:%s\n", as, t.str(r, 0), t.str(r, 2));
            out->secret += strprintf("%s:!::%s\n", as, t.str(r, 2));
        }
    }
    return 0;
}

int export_users(ksdb_handle *h, sqlite3 *db) {
    Pair f;
    if (int rc = build_users(h, db, &f)) return rc;
    return write_files(h, {{kShadow, &f.secret}, {kPasswd, &f.main}}, [&] {
        return exec_or_fail(h, db, "Failed (DELETE user)\n",
                            "DELETE FROM `$user` WHERE is_privileged<0");
    });
}

int export_groups(ksdb_handle *h, sqlite3 *db) {
    Pair f;
    if (int rc = build_groups(h, db, &f)) return rc;
    return write_files(h, {{kGshadow, &f.secret}, {kGroup, &f.main}}, [&] {
        return exec_or_fail(h, db, "Failed (DELETE group)\n",
                            "DELETE FROM `$group` WHERE is_privileged<0");
    });
}

// The whole account export refuses a bad value of any of its files before
// it writes the first one.
int export_account(ksdb_handle *h, sqlite3 *db) {
    {
        Pair users, groups;
        int rc = build_users(h, db, &users);
        if (!rc) rc = build_groups(h, db, &groups);
        if (!rc) rc = check_settings(h, db);
        if (rc) return rc;
    }
    if (int rc = _ksdb_account_local_user_export(h, db)) return rc;
    if (int rc = _ksdb_account_local_group_export(h, db)) return rc;
    if (int rc = _ksdb_account_passwordrecovery_export(h, db)) return rc;
    return logged(h, KSDB_TAG, "_ksdb_account_hf_settings_export",
                  [&] { return export_hf_settings(h, db); });
}

}  // namespace

std::vector<std::string_view> fields(std::string_view line, char delim, size_t max) {
    std::vector<std::string_view> out;
    while (out.size() + 1 < max) {
        size_t at = line.find(delim);
        if (at == std::string_view::npos) break;
        out.push_back(line.substr(0, at));
        line.remove_prefix(at + 1);
    }
    out.push_back(line);
    return out;
}

int domain_name(ksdb_handle *h, sqlite3 *db, std::string *name) {
    SqlTable t;
    if (t.query(h, db, KSDB_TAG,
                "SELECT CASE WHEN security IN ('ads','domain') THEN COALESCE(realm,workgroup,'') "
                "ELSE '' END FROM service_cifs LIMIT 1") != SQLITE_OK)
        return KSDB_E_DB;
    name->assign(t.rows() > 0 ? t.str(0, 0) : "");
    return 0;
}

bool setting(std::string_view line, std::string_view *key, std::string_view *value) {
    if (!line.empty() && line.back() == '\r') line.remove_suffix(1);
    size_t at = line.find("!!");
    if (at == std::string_view::npos) return false;
    *key = line.substr(0, at);
    *value = line.substr(at + 2);
    return true;
}

int guard_row(ksdb_handle *h, const char *table, std::string_view row,
              std::initializer_list<Field> values) {
    for (const Field &f : values)
        if (int rc = guard_value(h, f.value, f.rule, {table, f.column, row})) return rc;
    return 0;
}

int write_files(ksdb_handle *h,
                std::initializer_list<std::pair<const char *, const std::string *>> files,
                const std::function<int()> &between) {
    std::vector<std::unique_ptr<ManagedFile>> out;
    for (const auto &[path, text] : files) {
        out.push_back(std::make_unique<ManagedFile>(h, path));
        if (!out.back()->ok()) {
            KSDB_ERR(h, "Cannot open temporary file %s\n", path);
            return KSDB_E_FILE;
        }
        out.back()->write(*text);
    }
    if (int rc = between()) return rc;
    auto file = out.begin();
    for (const auto &entry : files) {
        if ((*file++)->commit() != 0) {
            KSDB_ERR(h, "Cannot move file to %s\n", entry.first);
            return KSDB_E_FILE;
        }
    }
    return 0;
}

int guard_home(ksdb_handle *h, const char *home, std::string_view user) {
    const char *why = home_refusal(home ? home : "");
    if (!why) return 0;
    std::string row(user);
    for (char &c : row)
        if (static_cast<unsigned char>(c) < 0x20) c = '?';
    KSDB_ERR(h, "Refused $user.home of '%s': %s in %s\n", row.c_str(), why, kHome.place);
    set_last_error(kLayerLibrary, KSDB_E_INVAL, KSDB_TAG,
                   strprintf("refused $user.home of '%s': %s in %s", row.c_str(), why, kHome.place));
    return KSDB_E_INVAL;
}

}  // namespace ksdb::account

using namespace ksdb::account;

KSDB_STEP(ksdb_account_import) { return import_account(h, db); }
KSDB_STEP(_ksdb_account_local_user_export) { return export_users(h, db); }

extern "C" {

int ksdb_account_export(ksdb_handle *h, sqlite3 *db) {
    return ksdb::logged(h, KSDB_TAG, "ksdb_account_export", [&] { return export_account(h, db); });
}

int _ksdb_account_local_user_import(ksdb_handle *h, sqlite3 *db, int keep) {
    return ksdb::logged(h, KSDB_TAG, "_ksdb_account_local_user_import",
                        [&] { return import_users(h, db, keep); });
}

int _ksdb_account_local_group_import(ksdb_handle *h, sqlite3 *db, int keep) {
    return ksdb::logged(h, KSDB_TAG, "_ksdb_account_local_group_import",
                        [&] { return import_groups(h, db, keep); });
}

int _ksdb_account_local_group_export(ksdb_handle *h, sqlite3 *db) {
    return ksdb::logged(h, KSDB_TAG, "_ksdb_account_local_group_export",
                        [&] { return export_groups(h, db); });
}

}  // extern "C"
