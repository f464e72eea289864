// The store of the SSH public keys users may log in with: the JSON
// configuration /etc/quillfold/ssh_authorized_keys.conf read into
// `ssh_public_key` and written back from it, and each user's
// authorized-keys file "<home>/.ssh/ssh_authorized_keys".  A key that
// serves "rsync" may only run the rsync validation wrapper.
#define KSDB_MODULE "ksdb_ssh_authorized_key_conf"
#include "accounts/ksdb_account.h"
#include "accounts/ksdb_ssh_public_key.h"

#include "core/ksdb_areas.h"
#include "util/ksdb_program.h"

#include <json-c/json.h>

#include <strings.h>

#include <cstring>
#include <map>
#include <vector>

namespace ksdb::ssh {
namespace {

constexpr char kKeyTable[] = "ssh_public_key";
constexpr char kKeyConf[] = "/etc/quillfold/ssh_authorized_keys.conf";
constexpr char kUserKeyFile[] = ".ssh/ssh_authorized_keys";
constexpr char kRsyncCommand[] = "/quillfold/bin/validate-rsync";
// The version written into the configuration; any version is read.
constexpr int kConfVersion = 1;

// One element of the configuration's key array.
struct Entry {
    std::string title;
    int user_id = 0;
    std::string serve_for, type, key;
    std::optional<std::string> comment;
};

// A string member; false when it is missing or not a string.
bool string_member(json_object *o, const char *name, std::string *out) {
    json_object *v;
    if (!json_object_object_get_ex(o, name, &v) || !json_object_is_type(v, json_type_string))
        return false;
    out->assign(json_object_get_string(v), static_cast<size_t>(json_object_get_string_len(v)));
    return true;
}

// Reads the configuration: 0, or 5 after naming what is wrong.
int read_conf(ksdb_handle *h, std::vector<Entry> *entries) {
    ConfFile file(h, kKeyConf);
    if (!file.ok()) return KSDB_E_FILE;
    Json root(json_tokener_parse(file.data()));
    if (!root || !json_object_is_type(root.get(), json_type_object)) {
        KSDB_ERR(h, "Failed to get json object from config %s!\n", kKeyConf);
        return KSDB_E_FILE;
    }
    json_object *version, *array;
    for (const char *name : {"version", "ssh_authorized_keys"}) {
        if (!json_object_object_get_ex(root.get(), name, &array)) {
            KSDB_ERR(h, "Failed to get key %s\n", name);
            return KSDB_E_FILE;
        }
    }
    json_object_object_get_ex(root.get(), "version", &version);
    if (!json_object_is_type(version, json_type_int)) {
        KSDB_ERR(h, "Invalid value of key %s\n", "version");
        return KSDB_E_FILE;
    }
    if (!json_object_is_type(array, json_type_array)) {
        KSDB_ERR(h, "key %s is not an array\n", "ssh_authorized_keys");
        return KSDB_E_FILE;
    }
    for (size_t i = 0, n = json_object_array_length(array); i < n; ++i) {
        json_object *o = json_object_array_get_idx(array, i);
        json_object *uid, *comment = nullptr;
        Entry e;
        bool ok = json_object_is_type(o, json_type_object) && string_member(o, "title", &e.title) &&
                  json_object_object_get_ex(o, "user_id", &uid) &&
                  json_object_is_type(uid, json_type_int) &&
                  string_member(o, "serve_for", &e.serve_for) &&
                  string_member(o, "type", &e.type) && string_member(o, "key", &e.key);
        if (ok && json_object_object_get_ex(o, "comment", &comment) && comment) {
            e.comment.emplace();
            ok = string_member(o, "comment", &*e.comment);
        }
        if (!ok) {
            KSDB_ERR(h, "Invalid ssh public key json object!\n");
            return KSDB_E_FILE;
        }
        e.user_id = json_object_get_int(uid);
        entries->push_back(std::move(e));
    }
    return 0;
}

// The configuration holding `rows` (type, key, comment, user_id, title,
// serve_for), or nullopt when the in-memory list cannot be built.
std::optional<std::string> conf_text(const SqlTable &rows) {
    Json root(json_object_new_object());
    json_object *array = json_object_new_array();
    if (!root || !array) {
        json_object_put(array);
        return std::nullopt;
    }
    json_object_object_add(root.get(), "version", json_object_new_int(kConfVersion));
    json_object_object_add(root.get(), "ssh_authorized_keys", array);
    for (int r = 0; r < rows.rows(); ++r) {
        json_object *o = json_object_new_object();
        if (!o || json_object_array_add(array, o) != 0) return std::nullopt;
        json_object_object_add(o, "title", json_object_new_string(rows.str(r, 4)));
        json_object_object_add(o, "user_id", json_object_new_int(std::atoi(rows.str(r, 3))));
        json_object_object_add(o, "serve_for", json_object_new_string(rows.str(r, 5)));
        json_object_object_add(o, "type", json_object_new_string(rows.str(r, 0)));
        json_object_object_add(o, "key", json_object_new_string(rows.str(r, 1)));
        json_object_object_add(o, "comment",
                               rows.at(r, 2) ? json_object_new_string(rows.at(r, 2)) : nullptr);
    }
    const char *text = json_object_to_json_string_ext(
        root.get(), JSON_C_TO_STRING_PRETTY | JSON_C_TO_STRING_NOSLASHESCAPE);
    if (!text) return std::nullopt;
    return std::string(text) + "\n";
}

int write_conf(ksdb_handle *h, const std::string &text) {
    return account::write_files(h, {{kKeyConf, &text}});
}

int import_keys(ksdb_handle *h, sqlite3 *db) {
    std::vector<Entry> entries;
    if (read_conf(h, &entries) != 0) {
        KSDB_ERR(h, "Failed to import rsync authorized key configuration! Try to create a default "
                    "rsync authorized key configuration.\n");
        // The store becomes empty: the good keys read before the fault go too.
        entries.clear();
        SqlTable none;
        std::optional<std::string> empty = conf_text(none);
        if (!empty || write_conf(h, *empty) != 0) {
            KSDB_ERR(h, "Failed to create a default rsync authorized key configuration!\n");
            return KSDB_E_FILE;
        }
    }
    // The file is the whole truth: keys it no longer holds go.
    if (int rc = exec_or_fail(h, db, "Failed to empty the key table\n", "DELETE FROM `%s`",
                              kKeyTable))
        return rc;
    int imported = 0;
    for (const Entry &e : entries) {
        std::optional<std::string> found;
        if (sql_scalar(h, db, nullptr, KSDB_TAG, &found, "SELECT id FROM `$user` WHERE id = %d",
                       e.user_id) != SQLITE_OK)
            return KSDB_E_DB;
        if (!found) {
            KSDB_ERR(h, "Cannot find user id %d in database in %s!\n", e.user_id, kKeyConf);
            continue;
        }
        if (imported == kMaxKeys) {
            log_overflow(h);
            break;
        }
        std::string fp;
        if (int rc = fingerprint(h, e.key, &fp)) {
            KSDB_ERR(h, "Failed to get key fingerprint (%s)!\n", e.key.c_str());
            return rc;
        }
        char *emsg = nullptr;
        if (ksdb_sql_exec_mprintf(h, db, &emsg, KSDB_TAG,
                                  "INSERT INTO `%s` (user_id, serve_for, type, key, comment, "
                                  "fingerprint, title) VALUES(%d, %Q, %Q, %Q, %Q, %Q, %Q)",
                                  kKeyTable, e.user_id, e.serve_for.c_str(), e.type.c_str(),
                                  e.key.c_str(), e.comment ? e.comment->c_str() : nullptr,
                                  fp.c_str(), e.title.c_str()) != SQLITE_OK) {
            KSDB_ERR(h, "Failed DB Query for 'INSERT %s'. %s.\n", kKeyTable, emsg ? emsg : "");
            return KSDB_E_DB;
        }
        ++imported;
    }
    return 0;
}

// Writes one user's authorized-keys file: the user's own .ssh folder
// (0700, never a link) first, then the file (0600), both the user's.
bool write_user_keys(ksdb_handle *h, const char *home, uid_t uid, gid_t gid,
                     const std::string &text) {
    const std::string dir = std::string(home) + "/.ssh";
    const std::string path = strprintf("%s/%s", home, kUserKeyFile);
    if (int err = fs::own_private_dir(h, dir, uid, gid, 0700)) {
        KSDB_ERR(h, "Cannot chown directory to %s (%s)\n", dir.c_str(), std::strerror(err));
        return false;
    }
    ManagedFile out(h, ksdb_file_spec{path.c_str(), static_cast<int32_t>(uid),
                                      static_cast<int32_t>(gid), 0600});
    if (!out.ok()) {
        KSDB_ERR(h, "Cannot open temporary file to write (%s)\n", path.c_str());
        return false;
    }
    out.write(text);
    if (out.commit() != 0) {
        KSDB_ERR(h, "Cannot move file to %s\n", path.c_str());
        return false;
    }
    return true;
}

int export_keys(ksdb_handle *h, sqlite3 *db) {
    SqlTable keys;
    if (keys.query(h, db, KSDB_TAG,
                   "SELECT type, key, comment, user_id, title, serve_for FROM `%s`",
                   kKeyTable) != SQLITE_OK) {
        KSDB_ERR(h, "%s: Failed DB Query for 'SELECT ssh_public_key'\n",
                 "ksdb_authorized_ssh_public_key_export");
        KSDB_ERR(h, "Failed to get rsync authorized config from db!\n");
        return KSDB_E_DB;
    }
    SqlTable users;
    if (users.query(h, db, KSDB_TAG,
                    "SELECT U.id, U.uname, U.group_id, U.home FROM `$user` U WHERE U.id = 0 OR "
                    "U.id > 99 OR U.id = 98") != SQLITE_OK)
        return KSDB_E_DB;
    // Every value is checked before the first file is written.
    std::map<long long, std::string> lines;  // by user id
    for (int r = 0; r < keys.rows(); ++r) {
        if (int rc = guard_key_line(h, kKeyTable, keys.str(r, 4), keys.at(r, 0), keys.at(r, 1),
                                    keys.at(r, 2)))
            return rc;
        std::string &text = lines[account::number(keys.at(r, 3))];
        if (strcasecmp(keys.str(r, 5), "rsync") == 0)
            text += strprintf("command=\"%s\" %s %s %s\n", kRsyncCommand, keys.str(r, 0),
                              keys.str(r, 1), keys.str(r, 2));
        else
            text += strprintf("%s %s %s\n", keys.str(r, 0), keys.str(r, 1), keys.str(r, 2));
    }
    for (int r = 0; r < users.rows(); ++r)
        if (*users.str(r, 3))
            if (int rc = account::guard_home(h, users.at(r, 3), users.str(r, 1))) return rc;
    std::optional<std::string> conf = conf_text(keys);
    if (!conf) {
        KSDB_ERR(h, "Failed to init ssh_authorized_key_spec!\n");
        return KSDB_E_FILE;
    }
    if (write_conf(h, *conf) != 0) {
        KSDB_ERR(h, "Failed to write configuration file!\n");
        KSDB_ERR(h, "Failed to export authorized ssh public key to configuration file!\n");
        return KSDB_E_FILE;
    }
    // One user's broken folder does not keep the others' keys from them.
    int status = 0;
    for (int r = 0; r < users.rows(); ++r) {
        const char *home = users.str(r, 3);
        if (!*home || !fs::is_dir(h, home)) {
            KSDB_INFO(h, "Home directory %s does not exist!\n", home);
            continue;
        }
        const long long uid = account::number(users.at(r, 0));
        KSDB_DEBUG(h, "Export rsync authorized keys for user %lld, %s. file %s/%s\n", uid,
                   users.str(r, 1), home, kUserKeyFile);
        auto it = lines.find(uid);
        if (!write_user_keys(h, home, static_cast<uid_t>(uid),
                             static_cast<gid_t>(account::number(users.at(r, 2))),
                             it == lines.end() ? std::string() : it->second))
            status = KSDB_E_FILE;
    }
    return status;
}

}  // namespace
}  // namespace ksdb::ssh

KSDB_STEP(ksdb_authorized_ssh_public_key_import) { return ksdb::ssh::import_keys(h, db); }
KSDB_STEP(ksdb_authorized_ssh_public_key_export) { return ksdb::ssh::export_keys(h, db); }
