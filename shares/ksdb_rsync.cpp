// Shares over rsync: the daemon's module file (one module per share, every
// line commented out when the share is not available), a secrets file per
// password-protected share, each USB share's own copy of its module, and
// the importers that read the module file and the secrets files back.
//
// The export reads every row and builds every text first, checking each
// value it writes; a value that would change the structure of a file is
// refused (status 4) before anything is written or removed.
#define KSDB_MODULE "ksdb_rsync"
#include "core/ksdb_area.h"

#include "core/ksdb_areas.h"
#include "shares/ksdb_share_common.h"
#include "util/ksdb_string_utils.h"

#include <strings.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace ksdb::rsync {
namespace {

using shares::AclEntry;
using shares::kUsbConfVolume;

constexpr char kModulesConf[] = "/etc/quillfold/rsync/Shares.conf";
constexpr char kSecretsFolder[] = "/etc/quillfold/rsync/secrets/";
constexpr size_t kSecretsReadLimit = 65536;

// A module name beyond what every share name obeys: the daemon reads a tab
// in a section name as a blank, so the module would go by another name.
const ValueRule kRsyncModule{"an rsync module name", "\t", 0};
// A module's path: the daemon strips blanks at the ends of a value and
// expands "%VAR%"; the module reader splits its lines at "=".
const ValueRule kRsyncPath{"an rsync module path", "=%",
                           kValueNoTrailingBackslash | kValueNoLeadingBlank |
                               kValueNoTrailingBlank};
// The comment: one line that does not continue on the next.
const ValueRule kRsyncComment{"an rsync comment", "", kValueNoTrailingBackslash};
// A host of the blank-separated host list (the daemon also splits at ",").
const ValueRule kRsyncHost{"a host in an rsync host list", " \t,=\"",
                           kValueNotEmpty | kValueNoTrailingBackslash};
// A user of the auth-users list and the first field of a secrets line.
const ValueRule kRsyncUser{"an rsync user", " \t,:=",
                           kValueNotEmpty | kValueNoLeadingHash | kValueNoTrailingBackslash};
// The second field of a secrets line.
const ValueRule kRsyncPassword{"an rsync password", ":", 0};

// ---- export ------------------------------------------------------------------

constexpr char kShareQuery[] =
    "SELECT S.id,S.name,S.path,S.comment,R.rsync_access,R.passwordprotection,R.available,"
    "length(CAST(S.name AS BLOB)),length(CAST(S.path AS BLOB)),length(CAST(S.comment AS "
    "BLOB)) FROM share S INNER JOIN rsync_share_option R ON R.share_id=S.id ORDER BY S.id ASC";

// One share as the export writes it.
struct Module {
    std::string name;
    std::string text;                    // the module, in the module file and the USB copy
    bool usb = false;                    // its path lies under /media/
    std::optional<std::string> secrets;  // the secrets file's content, when protected
    bool drop_secrets = false;           // protection off: the secrets file goes
};

// The host list of a share: every rsync host entry, blank-separated, in name
// order.
int host_list(ksdb_handle *h, const std::vector<AclEntry> &hosts, std::string *out) {
    out->clear();
    for (const AclEntry &e : hosts) {
        if (int rc = guard_value(h, e.name, kRsyncHost, {"host", "name", std::to_string(e.id)}))
            return rc;
        if (!out->empty()) *out += ' ';
        *out += e.name;
    }
    return 0;
}

// The auth-users line and the secrets file of a protected share: 0, 3, or 4.
int users_of(ksdb_handle *h, sqlite3 *db, const char *id, const std::string &name,
             std::string *users, std::string *secrets) {
    SqlTable t;
    if (t.query(h, db, KSDB_TAG,
                "SELECT U.user,U.password,length(CAST(U.user AS BLOB)),length(CAST(U.password "
                "AS BLOB)) FROM rsync_user_password_acl U WHERE U.share_id=%s",
                id) != SQLITE_OK) {
        KSDB_ERR(h, "Failed DB Query for rsync_user_password_acl\n");
        return KSDB_E_DB;
    }
    for (int r = 0; r < t.rows(); ++r) {
        const std::string user = shares::exact_text(t.at(r, 0), t.at(r, 2)).value_or("");
        // A user without a password gets an empty one.
        const std::string password = shares::exact_text(t.at(r, 1), t.at(r, 3)).value_or("");
        const std::string row = name + "/" + user;
        if (int rc = guard_value(h, user, kRsyncUser, {"rsync_user_password_acl", "user", row}))
            return rc;
        if (int rc = guard_value(h, password, kRsyncPassword,
                                 {"rsync_user_password_acl", "password", row}))
            return rc;
        *users += r + 1 < t.rows() ? user + "," : user;
        *secrets += user + ":" + password + "\n";
    }
    return 0;
}

// Builds the module of one row, checking every value it writes: 0, 3, -1
// when the host entries cannot be read, or 4.
int build_module(ksdb_handle *h, sqlite3 *db, shares::AclIndex &hosts, const SqlTable &rows,
                 int r, Module *m) {
    auto col = [&](int c) { return rows.at(r, c); };
    m->name = shares::exact_text(col(1), col(7)).value_or("");
    const std::string path = shares::exact_text(col(2), col(8)).value_or("");
    const std::string comment = shares::exact_text(col(3), col(9)).value_or("");
    const std::string &name = m->name;
    if (int rc = shares::guard_share_name(h, name, {"share", "name", name})) return rc;
    if (int rc = guard_value(h, name, kRsyncModule, {"share", "name", name})) return rc;
    if (int rc = guard_value(h, path, kRsyncPath, {"share", "path", name})) return rc;
    if (int rc = guard_value(h, comment, kRsyncComment, {"share", "comment", name})) return rc;
    m->usb = path.compare(0, 7, "/media/") == 0;

    // An unavailable share keeps its module, commented out line by line.
    const bool on = col(6) && std::strtol(col(6), nullptr, 10) != 0;
    const char *c = on ? "" : "#";
    std::string &out = m->text;
    out += strprintf("%s[%s]\n", c, name.c_str());
    out += strprintf("  %spath = %s\n", c, path.c_str());
    out += strprintf("  %scomment = %s\n", c, comment.c_str());
    out += strprintf("  %suse chroot = true\n  %suid = root\n  %sgid = root\n", c, c, c);
    // Without the line the daemon's default holds: read-only.
    if (shares::access_is(col(4), "writeable")) out += strprintf("  %sread only = false\n", c);

    if (!hosts.loaded() && hosts.load(h, db, shares::AclKind::kHosts, "rsync") != 0) {
        KSDB_ERR(h, "Failed to get host_acl for share '%s'\n", name.c_str());
        return -1;
    }
    std::string allowed;
    if (int rc = host_list(h, hosts.of(std::strtoll(col(0), nullptr, 10)), &allowed)) return rc;
    // Kept as it is: a list that mentions "null" anywhere is not written.
    if (!allowed.empty() && allowed.find("null") == std::string::npos)
        out += strprintf("  %shosts allow = %s\n", c, allowed.c_str());

    if (shares::access_is(col(5), "enabled")) {
        std::string users;
        m->secrets.emplace();
        if (int rc = users_of(h, db, col(0), name, &users, &*m->secrets)) return rc;
        out += strprintf("  %sauth users = %s\n", c, users.c_str());
        out += strprintf("  %ssecrets file = %s%s\n", c, kSecretsFolder, name.c_str());
    } else if (shares::access_is(col(5), "disabled")) {
        m->drop_secrets = true;
    }
    out += "\n";
    return 0;
}

int build_modules(ksdb_handle *h, sqlite3 *db, std::vector<Module> *out) {
    SqlTable rows;
    if (rows.query(h, db, KSDB_TAG, kShareQuery) != SQLITE_OK) {
        KSDB_ERR(h, "Failed DB Query for rsync share\n");
        return KSDB_E_DB;
    }
    shares::AclIndex hosts;
    for (int r = 0; r < rows.rows(); ++r) {
        Module m;
        if (int rc = build_module(h, db, hosts, rows, r, &m)) return rc;
        out->push_back(std::move(m));
    }
    return 0;
}

// The second pass: the secrets files (made 0600 from the start, so never
// readable by others), the USB copies, the secrets files of unprotected
// shares removed, and the module file last: it is not replaced after a
// failure.
int export_all(ksdb_handle *h, sqlite3 *db) {
    ManagedFile modules(h, kModulesConf);
    if (!modules.ok()) {
        KSDB_ERR(h, "Cannot open temporary file of rsync main conf for write (%s)\n",
                 std::strerror(errno));
        return KSDB_E_FILE;
    }
    std::vector<Module> list;
    if (int rc = build_modules(h, db, &list)) return rc;
    modules.write("charset = utf-8\n");
    for (const Module &m : list) {
        modules.write(m.text);
        const std::string secrets = kSecretsFolder + m.name;
        if (m.secrets) {
            ManagedFile out(h, secrets.c_str());
            out.write(*m.secrets);
            if (out.commit() != 0) {
                KSDB_ERR(h, "Cannot open temporary file of rsync share secrets conf for write "
                            "(%s)\n", secrets.c_str());
                return KSDB_E_FILE;
            }
        } else if (m.drop_secrets && fs::exists(h, secrets) && !fs::remove(h, secrets)) {
            KSDB_WARN(h, "Cannot remove %s (%s)\n", secrets.c_str(), std::strerror(errno));
        }
        if (!m.usb) continue;
        std::string live;
        if (share_conf_path(h, kUsbConfVolume, m.name.c_str(), "rsync", &live) != 0) {
            KSDB_ERR(h, "Cannot open temporary file of rsync share usb conf for write (%s)\n",
                     m.name.c_str());
            continue;
        }
        ManagedFile usb(h, shares::share_file_spec(live));
        usb.write(m.text);
        if (usb.commit() != 0) return KSDB_E_FILE;
    }
    if (modules.commit() != 0) {
        KSDB_ERR(h, "Cannot move file to %s\n", kModulesConf);
        return KSDB_E_FILE;
    }
    return 0;
}

// ---- import ------------------------------------------------------------------

// The module file's sections in file order, each named as written (a
// commented-out module keeps its "#"); a name given twice adds to the first.
struct Sections {
    std::vector<std::pair<std::string, KeyValues>> list;
    std::map<std::string, size_t> index;
    KeyValues &operator[](const std::string &name) {
        auto [it, added] = index.emplace(name, list.size());
        if (added) list.emplace_back(name, KeyValues());
        return list[it->second].second;
    }
};

// Reads the module file: 0, or 5 (the file cannot be read, or a key other
// than "charset" stands before the first module).
int _parse_rsync_share_conf(ksdb_handle *h, ConfFile &conf, Sections *out) {
    KeyValues *current = nullptr;
    int rc = 0;
    conf.lines([&](char *line) {
        if (line[0] == '[' || (line[0] == '#' && line[1] == '[')) {
            const char *start = std::strchr(line, '[');
            const char *end = std::strchr(start, ']');
            std::string name(line, start - line);  // the "#" of a commented module
            name.append(start + 1, end ? end : start + std::strlen(start));
            current = &(*out)[name];
            return true;
        }
        char *cursor = line;
        char *key = nullptr, *value = nullptr, *extra = nullptr;
        if (split(&cursor, "=", &key, &value, &extra, nullptr) != 2) return true;
        key = ksdb_trim(key, " \t\r\n", " \t\r\n", 1);
        value = ksdb_trim(value, " \t\r\n", " \t\r\n", 1);
        if (current) {
            current->set(key, value);
        } else if (std::strcmp(key, "charset") != 0) {
            KSDB_ERR(h, "%s: Parse error (no section: %s=%s)\n", "_parse_rsync_share_conf", key,
                     value);
            rc = KSDB_E_FILE;
            return false;
        }
        return true;
    });
    return rc;
}

std::string unquoted(const std::string &v) {
    if (v.size() >= 2 && v.front() == '"' && v.back() == '"') return v.substr(1, v.size() - 2);
    return v;
}

// The rsync-only users and passwords of a share from its secrets file.
int insert_secrets(ksdb_handle *h, sqlite3 *db, int id, const std::string &path) {
    std::string text;
    bool missing = false;
    if (!shares::path_stays_inside(path) ||
        read_conf_file(h, path, &text, &missing, kConfFileLimit, kSecretsReadLimit) != 0) {
        KSDB_DEBUG(h, "RSYNC secrets file (%s) not exist.\n", path.c_str());
        return 0;
    }
    int rc = 0;
    for_each_line(text.data(), [&](char *line) {
        if (line[0] == '\0' || line[0] == '#') return true;
        char *cursor = line;
        char *f[3] = {};
        const int n = split(&cursor, ":", &f[0], &f[1], &f[2], nullptr);
        if (n > 2) {
            KSDB_ERR(h, "Error parsing %s. (n=%d)\n", path.c_str(), n);
            return true;
        }
        const char *password = n == 2 ? f[1] : "";
        if (sql_insert_then_update(
                h, db, KSDB_TAG,
                sql_printf("INSERT OR IGNORE INTO rsync_user_password_acl (share_id,user,password) "
                           "VALUES(%d,%Q,%Q)",
                           id, f[0], password),
                sql_printf("UPDATE rsync_user_password_acl SET password=%Q WHERE share_id=%d AND "
                           "user=%Q",
                           password, id, f[0])) != SQLITE_OK) {
            rc = -1;
            return false;
        }
        return true;
    });
    return rc;
}

// One module into the tables: 0 (also for a module of another kind of share
// or of an unknown share), or -1.
int insert_module(ksdb_handle *h, sqlite3 *db, const std::string &section, const KeyValues &keys,
                  bool usb) {
    const bool commented = !section.empty() && section[0] == '#';
    const std::string name = commented ? section.substr(1) : section;
    std::optional<std::string> path, hosts, secrets;
    const char *access = "readonly";
    bool protect = false;
    // Keys are recognised by what they contain, so "#path" counts as "path".
    for (const auto &item : keys.items()) {
        const std::string &key = item.first;
        const std::string &value = item.second;
        auto has = [&key](const char *k) { return key.find(k) != std::string::npos; };
        if (has("path")) path = unquoted(value);
        else if (has("read only")) access = value == "false" ? "writeable" : "readonly";
        else if (has("hosts allow")) hosts = unquoted(value);
        else if (has("auth users")) protect = true;
        else if (has("secrets file")) secrets = unquoted(value);
    }
    if ((path && path->compare(0, 6, "/media") == 0) != usb) return 0;

    SqlTable t;
    if (t.query(h, db, KSDB_TAG, "SELECT id FROM share WHERE name=%Q", name.c_str()) !=
        SQLITE_OK) {
        KSDB_ERR(h, "Error in SELECT FROM share for inserting rsync share\n");
        return -1;
    }
    if (t.rows() == 0) {
        KSDB_INFO(h, "Found non existing share %s.\n", name.c_str());
        return 0;
    }
    const int id = std::atoi(t.str(0, 0));
    const int available = commented ? 0 : 1;
    const char *protection = protect ? "enabled" : "disabled";
    if (sql_insert_then_update(
            h, db, KSDB_TAG,
            sql_printf("INSERT OR IGNORE INTO rsync_share_option (share_id,available,"
                       "passwordprotection,rsync_access) VALUES(%d,%d,%Q,%Q)",
                       id, available, protection, access),
            sql_printf("UPDATE rsync_share_option SET available=%d,passwordprotection=%Q,"
                       "rsync_access=%Q WHERE share_id=%d",
                       available, protection, access, id)) != SQLITE_OK)
        return -1;
    if (protect && insert_secrets(h, db, id, secrets.value_or("")) != 0) return -1;
    if (!hosts) return 0;
    for (const std::string &host : shares::split_list(*hosts, ' ')) {
        int host_id = 0;
        if (shares::get_host_id(h, db, host.c_str(), &host_id) != 0) return -1;
        if (shares::put_host_acl(h, db, id, host_id, "rsync", 1, 1) != SQLITE_OK) return -1;
    }
    return 0;
}

// Reads the module file into the tables: the modules of volume shares, or
// (usb) those whose path lies under /media.  A missing file is no error.
int import_modules(ksdb_handle *h, sqlite3 *db, bool usb) {
    ConfFile conf(h, kModulesConf);
    if (conf.missing()) {
        KSDB_INFO(h, "RSYNC config (%s) not exist.\n", kModulesConf);
        return 0;
    }
    Sections sections;
    if (!conf.ok() || _parse_rsync_share_conf(h, conf, &sections) != 0) {
        KSDB_ERR(h, "Cannot parse rsync share conf file\n");
        return KSDB_E_DB;
    }
    for (const auto &[section, keys] : sections.list) {
        if (insert_module(h, db, section, keys, usb) != 0) {
            KSDB_ERR(h, "Cannot insert rsync share conf to database\n");
            return KSDB_E_DB;
        }
    }
    return 0;
}

}  // namespace
}  // namespace ksdb::rsync

KSDB_STEP(ksdb_rsync_export) { return ksdb::rsync::export_all(h, db); }
KSDB_STEP(ksdb_rsync_import) { return ksdb::rsync::import_modules(h, db, false); }
KSDB_STEP(ksdb_rsync_usb_import) { return ksdb::rsync::import_modules(h, db, true); }
