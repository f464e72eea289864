// The account look-ups: user ids and names, home folders and the helper
// that makes them, and the home folders found on the home volume.
#define KSDB_MODULE "ksdb_account"
#include "accounts/ksdb_account.h"

#include "platform/platform.h"
#include "util/ksdb_program.h"

#include <pwd.h>

#include <cerrno>
#include <optional>
#include <string>
#include <vector>

namespace ksdb::account {
namespace {

// True when the system's user database knows `name`: below a debug root
// the root's own /etc/passwd answers, never the machine's.
bool system_knows_user(ksdb_handle *h, const char *name) {
    if (!debug_root_set(h)) {
        std::vector<char> buf(4096);
        struct passwd pw, *found = nullptr;
        while (getpwnam_r(name, &pw, buf.data(), buf.size(), &found) == ERANGE)
            buf.resize(buf.size() * 2);
        return found != nullptr;
    }
    ConfFile passwd(h, kPasswd);
    bool known = false;
    passwd.lines([&](char *line) {
        known = !skipped_entry_line(line) && fields(line, ':', 2)[0] == name;
        return !known;
    });
    return known;
}

// ---- look-ups ----------------------------------------------------------------------

constexpr char kUserQueryFailed[] = "Failed DB Query for 'SELECT $user'\n";

int create_home(ksdb_handle *h, sqlite3 *db, int uid) {
    if (!h || !db) return KSDB_E_INVAL;
    if (uid < 100 && uid != 98) {
        KSDB_ERR(h, "Can't create home directory for system reserved users!\n");
        return KSDB_E_INVAL;
    }
    SqlTable t;
    if (t.query(h, db, KSDB_TAG, "SELECT home, uname FROM `$user` WHERE id = %d", uid) !=
        SQLITE_OK) {
        KSDB_ERR(h, "%s", kUserQueryFailed);
        return KSDB_E_DB;
    }
    if (t.rows() == 0) {
        KSDB_ERR(h, "Cannot find uid %d!\n", uid);
        return KSDB_E_INVAL;
    }
    const char *name = t.str(0, 1);
    if (!system_knows_user(h, name)) {
        KSDB_ERR(h, "Failed to get passwd entry for uid %d, uname %s\n", uid, name);
        return KSDB_E_INVAL;
    }
    int rc = run_program(h, "/sbin/mkhomedir_helper", {name}, nullptr);
    if (rc != 0) {
        KSDB_ERR(h, "Command failed: /sbin/mkhomedir_helper %s (%d)\n", name, rc);
        return rc < 0 ? KSDB_E_SPAWN : KSDB_E_COMMAND;
    }
    return 0;
}

int import_existing_homes(ksdb_handle *h, sqlite3 *db) {
    std::string domain;
    if (domain_name(h, db, &domain) != 0) {
        KSDB_ERR(h, "Unable to get domain info. Probably no network or bad network "
                    "configuration.\n");
        return KSDB_E_DB;
    }
    std::optional<std::string> volume;
    if (sql_scalar(h, db, nullptr, KSDB_TAG, &volume,
                   "SELECT COALESCE(V.lv_name,A.home_volume_id) FROM account_default A LEFT JOIN "
                   "_volume V ON V.id=A.home_volume_id LIMIT 1") != SQLITE_OK)
        return KSDB_E_DB;
    if (!volume || value_refusal(*volume, rules::kPathComponent)) return 0;
    const std::string dir = "/home/" + *volume;
    for (const std::string &name : fs::list_dir(h, dir)) {
        // A domain user's POSIX id is its row's id.
        std::optional<std::string> uid;
        sql_scalar(h, db, nullptr, KSDB_TAG, &uid,
                   "SELECT id FROM `$user` WHERE uname=%Q AND rid IS NOT NULL", name.c_str());
        if (uid && number(uid->c_str()) >= 1)
            KSDB_INFO(h, "The user of the home folder '%s/%s' is found\n", dir.c_str(), name.c_str());
        else
            KSDB_INFO(h, "Cannot find user of the home folder '%s/%s'\n", dir.c_str(), name.c_str());
    }
    return 0;
}

}  // namespace

int row_exists(ksdb_handle *h, sqlite3 *db, const char *failed, const SqlStr &sql) {
    SqlTable t;
    if (!sql || ksdb_sql_get_table(h, db, nullptr, KSDB_TAG, t.table_out(), t.nrow_out(),
                                   t.ncol_out(), sql.get()) != SQLITE_OK) {
        KSDB_ERR(h, "%s", failed);
        return -1;
    }
    return t.rows() > 0 ? 1 : 0;
}

}  // namespace ksdb::account

using namespace ksdb::account;

extern "C" {

int ksdb_account_get_homedir(const char *name, char *buffer, size_t size) {
    if (!buffer || !size) return KSDB_E_INVAL;
    buffer[0] = '\0';
    if (!name) return KSDB_E_INVAL;
    return ksdb::boundary(nullptr, KSDB_TAG, "ksdb_account_get_homedir", [&]() -> int {
        std::vector<char> scratch(1024);
        struct passwd pw, *found = nullptr;
        int rc;
        while ((rc = getpwnam_r(name, &pw, scratch.data(), scratch.size(), &found)) == ERANGE)
            scratch.resize(scratch.size() * 2);
        if (rc == ENOMEM) return 2;  // out of memory
        if (found) {
            strncpyt(buffer, pw.pw_dir, size);
            return 0;
        }
        std::string out;
        rc = ksdb::run_program(nullptr, "getent", {"passwd", name}, &out, 4096);
        if (rc != 0) return rc;
        std::string home(fields(out, ':', 7).size() > 5 ? fields(out, ':', 7)[5] : "");
        if (home.size() > 1023) home.resize(1023);
        strncpyt(buffer, home.c_str(), size);
        return 0;
    });
}

int ksdb_find_user_id(ksdb_handle *h, sqlite3 *db, int uid) {
    return ksdb::boundary(h, KSDB_TAG, "ksdb_find_user_id", [&] {
        return row_exists(h, db, kUserQueryFailed,
                          ksdb::sql_printf("SELECT id FROM `$user` WHERE id = %d", uid));
    });
}

int ksdb_get_user_name(ksdb_handle *h, sqlite3 *db, int uid, char **name) {
    if (!name) return KSDB_E_INVAL;
    *name = nullptr;
    return ksdb::boundary(h, KSDB_TAG, "ksdb_get_user_name", [&]() -> int {
        ksdb::SqlTable t;
        if (t.query(h, db, KSDB_TAG, "SELECT uname FROM `$user` WHERE id = %d", uid) != SQLITE_OK) {
            KSDB_ERR(h, "%s", kUserQueryFailed);
            return KSDB_E_DB;
        }
        if (t.rows() == 0) {
            KSDB_ERR(h, "Cannot find uid %d!\n", uid);
            return KSDB_E_INVAL;
        }
        *name = ksdb::pool_strdup(h, t.str(0, 0));
        return 0;
    });
}

int ksdb_user_home_exist(ksdb_handle *h, sqlite3 *db, int uid) {
    return ksdb::boundary(h, KSDB_TAG, "ksdb_user_home_exist", [&] {
        std::optional<std::string> home;
        if (ksdb::sql_scalar(h, db, nullptr, KSDB_TAG, &home,
                             "SELECT home FROM `$user` WHERE id = %d", uid) != SQLITE_OK) {
            KSDB_ERR(h, "%s", kUserQueryFailed);
            return -1;
        }
        if (home && !home->empty() && ksdb::fs::is_dir(h, *home)) return 1;
        KSDB_ERR(h, "Home directory %s does not exist!\n", home ? home->c_str() : "");
        return 0;
    });
}

int ksdb_create_user_home(ksdb_handle *h, sqlite3 *db, int uid) {
    return ksdb::logged(h, KSDB_TAG, "ksdb_create_user_home", [&] { return create_home(h, db, uid); });
}

int ksdb_import_users_with_existing_homes(ksdb_handle *h, sqlite3 *db) {
    return ksdb::logged(h, KSDB_TAG, "ksdb_import_users_with_existing_homes",
                        [&] { return import_existing_homes(h, db); });
}

}  // extern "C"
