// SSH public keys: the key-file parser (OpenSSH lines and the foreign
// formats ssh-keygen converts), fingerprints, the key look-ups, and the
// store of the keys allowed to start replication
// (/etc/replisync/authorized_keys, each key bound to the replication
// command).
#define KSDB_MODULE "ksdb_ssh_public_key"
#include "accounts/ksdb_ssh_public_key.h"

#include "accounts/ksdb_account.h"
#include "core/ksdb_areas.h"
#include "util/ksdb_misc_utils.h"
#include "util/ksdb_program.h"

#include <cctype>
#include <cstring>

namespace ksdb::ssh {
namespace {

constexpr char kKeyTable[] = "ssh_public_key";
constexpr char kReplisyncTable[] = "replisync_key";
constexpr char kReplisyncKeys[] = "/etc/replisync/authorized_keys";

// A word of a key line (its type or its base64 key).
const ValueRule kKeyWord{"a word of a key line", " \t#\"'", kValueNotEmpty};

// The foreign key formats ssh-keygen converts, told by their first line.
struct Format {
    const char *name;
    const char *begin;
    const char *end;
};
constexpr Format kFormats[] = {
    {"RFC4716", "---- BEGIN SSH2 PUBLIC KEY ----", "---- END SSH2 PUBLIC KEY ----"},
    {"PEM", "-----BEGIN RSA PUBLIC KEY-----", "-----END RSA PUBLIC KEY-----"},
    {"PKCS8", "-----BEGIN PUBLIC KEY-----", "-----END PUBLIC KEY-----"},
};

bool blank(char c) { return std::isspace(static_cast<unsigned char>(c)) != 0; }

std::string_view trim(std::string_view s) {
    while (!s.empty() && blank(s.front())) s.remove_prefix(1);
    while (!s.empty() && blank(s.back())) s.remove_suffix(1);
    return s;
}

// The next blank-separated word of `rest`, which moves past it.
std::string_view next_word(std::string_view &rest) {
    rest = trim(rest);
    size_t n = 0;
    while (n < rest.size() && !blank(rest[n])) ++n;
    std::string_view w = rest.substr(0, n);
    rest.remove_prefix(n);
    return w;
}

// The format whose begin marker is the first line holding anything.
const Format *foreign_format(std::string_view text) {
    while (!text.empty()) {
        size_t nl = text.find('\n');
        std::string_view line = trim(text.substr(0, nl));
        if (!line.empty()) {
            for (const Format &f : kFormats)
                if (line == f.begin) return &f;
            return nullptr;
        }
        if (nl == std::string_view::npos) break;
        text.remove_prefix(nl + 1);
    }
    return nullptr;
}

// One line of an OpenSSH key file: [command="..." ]type key [comment].
// False for a line that holds no key of a known kind.
bool parse_line(std::string_view line, Key *k) {
    if (line.rfind("command=", 0) == 0) {
        size_t open = line.find('"');
        size_t close = open == std::string_view::npos ? open : line.find('"', open + 1);
        if (close == std::string_view::npos) return false;
        k->command = std::string(line.substr(open + 1, close - open - 1));
        line.remove_prefix(close + 1);
    }
    std::string_view rest = trim(line);
    std::string_view type = next_word(rest), key = next_word(rest);
    if (key.empty()) return false;
    if (type.rfind("ssh-", 0) != 0 && type.rfind("ecdsa-", 0) != 0) return false;
    k->type = type;
    k->key = key;
    rest = trim(rest);
    if (!rest.empty()) k->comment = std::string(rest);
    return true;
}

bool plain_table_name(const char *table) {
    if (!table || !*table) return false;
    for (const char *p = table; *p; ++p)
        if (!std::isalnum(static_cast<unsigned char>(*p)) && *p != '_') return false;
    return true;
}

// The find calls' failure line.
std::string select_failed(const char *table) {
    return strprintf("Failed DB Query for 'SELECT %s'\n", table);
}

int import_replisync_keys(ksdb_handle *h, sqlite3 *db) {
    std::vector<Key> keys;
    if (!fs::exists(h, kReplisyncKeys)) {
        KSDB_INFO(h, "Replisync key file not found: %s\n", kReplisyncKeys);
    } else if (parse_key_file(h, kReplisyncKeys, &keys) != 0) {
        KSDB_ERR(h, "Failed to parse key file %s!\n", kReplisyncKeys);
        return KSDB_E_FILE;
    }
    if (ksdb_sql_exec_mprintf(h, db, nullptr, KSDB_TAG, "DELETE FROM `%s`", kReplisyncTable) !=
        SQLITE_OK) {
        KSDB_ERR(h, "Failed DB Query for 'DELETE FROM %s'.\n", kReplisyncTable);
        return KSDB_E_DB;
    }
    int n = 0;
    for (const Key &k : keys) {
        if (n++ == kMaxKeys) {
            log_overflow(h);
            break;
        }
        if (ksdb_sql_exec_mprintf(h, db, nullptr, KSDB_TAG,
                                  "INSERT INTO `%s` (title, type, key, fingerprint) "
                                  "VALUES(%Q, %Q, %Q, %Q)",
                                  kReplisyncTable, k.comment ? k.comment->c_str() : "",
                                  k.type.c_str(), k.key.c_str(), k.fingerprint.c_str()) != SQLITE_OK) {
            KSDB_ERR(h, "Failed DB Query for 'INSERT %s'.\n", kReplisyncTable);
            return KSDB_E_DB;
        }
    }
    return 0;
}

int export_replisync_keys(ksdb_handle *h, sqlite3 *db) {
    SqlTable t;
    if (t.query(h, db, KSDB_TAG, "SELECT title, type, key FROM `%s`", kReplisyncTable) !=
        SQLITE_OK) {
        KSDB_ERR(h, "Failed DB Query for 'SELECT %s'\n", kReplisyncTable);
        return KSDB_E_DB;
    }
    std::string text;
    for (int r = 0; r < t.rows(); ++r) {
        if (int rc = guard_key_line(h, kReplisyncTable, t.str(r, 0), t.at(r, 1), t.at(r, 2),
                                    t.at(r, 0)))
            return rc;
        text += strprintf("%s %s %s %s\n", "command=\"/usr/sbin/replisync\"", t.str(r, 1),
                          t.str(r, 2), t.str(r, 0));
    }
    KSDB_DEBUG(h, "Export replisync authorized keys to file %s\n", kReplisyncKeys);
    ManagedFile out(h, kReplisyncKeys);
    if (!out.ok()) {
        KSDB_ERR(h, "Cannot open temporary file to write (%s)\n", kReplisyncKeys);
        return KSDB_E_FILE;
    }
    out.write(text);
    if (out.commit() != 0) {
        KSDB_ERR(h, "Cannot move file to %s\n", kReplisyncKeys);
        return KSDB_E_FILE;
    }
    return 0;
}

}  // namespace

int parse_key_file(ksdb_handle *h, const std::string &live, std::vector<Key> *keys) {
    ConfFile file(h, live);
    if (!file.ok()) {
        KSDB_ERR(h, "Cannot open file %s\n", live.c_str());
        return KSDB_E_FILE;
    }
    std::string text = std::move(file.text());
    if (const Format *f = foreign_format(text)) {
        // The converted key is read from ssh-keygen's output directly: no
        // converted copy is ever left beside the file.
        std::string out;
        int rc = run_program(h, "/usr/bin/ssh-keygen",
                             {"-i", "-m", f->name, "-f", fs::real_path(h, live)}, &out, 1024);
        KSDB_DEBUG(h, "ssh-keygen output: %s\n", out.c_str());
        if (rc != 0 || out.empty()) {
            KSDB_ERR(h, "Failed to convert %s (%s) to OpenSSH public key file format!\n",
                     live.c_str(), f->name);
            return KSDB_E_FILE;
        }
        text = std::move(out);
    }
    int status = 0;
    for_each_line(text.data(), [&](char *line) {
        KSDB_DEBUG(h, "Retrieved line of length %zu :\n", std::strlen(line));
        KSDB_DEBUG(h, "%s\n", line);
        Key k;
        if (!parse_line(line, &k)) return true;
        status = fingerprint(h, k.key, &k.fingerprint);
        if (status) return false;
        keys->push_back(std::move(k));
        return true;
    });
    return status;
}

int fingerprint(ksdb_handle *h, const std::string &key, std::string *out) {
    const std::string cmd = "echo " + shell_quote(key) +
                            " | base64 -d -i 2>/dev/null | openssl md5 -c | "
                            "awk '{ printf \"%s\", $2 }'";
    out->clear();
    Pipe pipe(cmd.c_str(), "re");
    if (!pipe) {
        KSDB_ERR(h, "Failed to add fingerprint command for key %s!\n", key.c_str());
        return KSDB_E_SPAWN;
    }
    char buf[256];
    size_t n;
    while ((n = std::fread(buf, 1, sizeof buf, pipe.get())) > 0) out->append(buf, n);
    int status = pipe.close();
    if (status != 0 || out->empty()) {
        KSDB_ERR(h, "%s. Failed to get fingerprint of key %s!\n",
                 status != 0 ? "The digest command failed" : "No digest", key.c_str());
        return KSDB_E_COMMAND;
    }
    return 0;
}

int guard_key_line(ksdb_handle *h, const char *table, std::string_view row, const char *type,
                   const char *key, const char *comment) {
    if (int rc = guard_value(h, type ? type : "", kKeyWord, {table, "type", row})) return rc;
    if (int rc = guard_value(h, key ? key : "", kKeyWord, {table, "key", row})) return rc;
    return guard_value(h, comment, rules::kLine, {table, "comment", row});
}

void log_overflow(ksdb_handle *h) {
    KSDB_ERR(h, "The number of SSH public key overflows. Maximum is %d. Skip importing the "
                "rest keys.\n",
             kMaxKeys);
}

}  // namespace ksdb::ssh

KSDB_STEP(ksdb_replisync_key_import) { return ksdb::ssh::import_replisync_keys(h, db); }
KSDB_STEP(ksdb_replisync_key_export) { return ksdb::ssh::export_replisync_keys(h, db); }

using ksdb::account::row_exists;
using ksdb::ssh::select_failed;

extern "C" {

int ksdb_parse_ssh_public_key_file(ksdb_handle *h, const char *path, ksdb_ssh_public_key **keys,
                                   int *count) {
    if (!path || !keys || !count) return KSDB_E_INVAL;
    *keys = nullptr;
    *count = 0;
    return ksdb::boundary(h, KSDB_TAG, "ksdb_parse_ssh_public_key_file", [&] {
        std::vector<ksdb::ssh::Key> parsed;
        if (int rc = ksdb::ssh::parse_key_file(h, path, &parsed)) return rc;
        auto *out = static_cast<ksdb_ssh_public_key *>(
            apr_pcalloc(ksdb::result_pool(h), sizeof(ksdb_ssh_public_key) * (parsed.size() + 1)));
        auto dup = [&](const std::optional<std::string> &s) {
            return s ? ksdb::pool_strdup(h, s->c_str()) : nullptr;
        };
        for (size_t i = 0; i < parsed.size(); ++i) {
            out[i].command = dup(parsed[i].command);
            out[i].type = ksdb::pool_strdup(h, parsed[i].type.c_str());
            out[i].key = ksdb::pool_strdup(h, parsed[i].key.c_str());
            out[i].comment = dup(parsed[i].comment);
            out[i].fingerprint = ksdb::pool_strdup(h, parsed[i].fingerprint.c_str());
        }
        *keys = out;
        *count = static_cast<int>(parsed.size());
        return 0;
    });
}

int ksdb_find_ssh_public_key_key(ksdb_handle *h, sqlite3 *db, const char *table, const char *key) {
    if (!ksdb::ssh::plain_table_name(table)) return -1;
    return ksdb::boundary(h, KSDB_TAG, "ksdb_find_ssh_public_key_key", [&] {
        return row_exists(h, db, select_failed(table).c_str(),
                          ksdb::sql_printf("SELECT key FROM `%s` WHERE key = %Q", table, key));
    });
}

int ksdb_find_ssh_public_key_user_id_key(ksdb_handle *h, sqlite3 *db, int user_id,
                                         const char *key) {
    return ksdb::boundary(h, KSDB_TAG, "ksdb_find_ssh_public_key_user_id_key", [&] {
        return row_exists(h, db, select_failed(ksdb::ssh::kKeyTable).c_str(),
                          ksdb::sql_printf("SELECT key FROM `%s` WHERE user_id = %d AND key = %Q",
                                           ksdb::ssh::kKeyTable, user_id, key));
    });
}

int ksdb_find_ssh_public_key_comment(ksdb_handle *h, sqlite3 *db, const char *comment) {
    return ksdb::boundary(h, KSDB_TAG, "ksdb_find_ssh_public_key_comment", [&] {
        return row_exists(h, db, select_failed(ksdb::ssh::kKeyTable).c_str(),
                          ksdb::sql_printf("SELECT comment FROM `%s` WHERE comment = %Q",
                                           ksdb::ssh::kKeyTable, comment));
    });
}

int ksdb_find_ssh_public_key_id(ksdb_handle *h, sqlite3 *db, const char *table, int id) {
    if (!ksdb::ssh::plain_table_name(table)) return -1;
    return ksdb::boundary(h, KSDB_TAG, "ksdb_find_ssh_public_key_id", [&] {
        return row_exists(h, db, select_failed(table).c_str(),
                          ksdb::sql_printf("SELECT id FROM `%s` WHERE id = %d", table, id));
    });
}

int ksdb_find_ssh_public_key_title(ksdb_handle *h, sqlite3 *db, const char *title) {
    return ksdb::boundary(h, KSDB_TAG, "ksdb_find_ssh_public_key_title", [&] {
        return row_exists(h, db, select_failed(ksdb::ssh::kKeyTable).c_str(),
                          ksdb::sql_printf("SELECT id, title FROM `%s` WHERE title = %Q",
                                           ksdb::ssh::kKeyTable, title));
    });
}

int ksdb_delete_ssh_public_key_by_uid(ksdb_handle *h, sqlite3 *db, int uid) {
    return ksdb::boundary(h, KSDB_TAG, "ksdb_delete_ssh_public_key_by_uid", [&]() -> int {
        char *emsg = nullptr;
        if (ksdb_sql_exec_mprintf(h, db, &emsg, KSDB_TAG, "DELETE FROM `%s` WHERE user_id = %d",
                                  ksdb::ssh::kKeyTable, uid) != SQLITE_OK) {
            KSDB_ERR(h, "Failed DB Query for 'DELETE %s'. %s\n", ksdb::ssh::kKeyTable,
                     emsg ? emsg : "");
            return KSDB_E_DB;
        }
        return 0;
    });
}

int ksdb_get_number_of_ssh_public_key(ksdb_handle *h, sqlite3 *db, int *count) {
    if (!count) return KSDB_E_INVAL;
    *count = 0;
    return ksdb::boundary(h, KSDB_TAG, "ksdb_get_number_of_ssh_public_key", [&]() -> int {
        std::optional<std::string> n;
        if (ksdb::sql_scalar(h, db, nullptr, KSDB_TAG, &n, "SELECT COUNT(*) FROM `%s`",
                             ksdb::ssh::kKeyTable) != SQLITE_OK) {
            KSDB_ERR(h, "Error in query (SELECT `%s`)\n", ksdb::ssh::kKeyTable);
            return KSDB_E_DB;
        }
        *count = n ? std::atoi(n->c_str()) : 0;
        return 0;
    });
}

int ksdb_find_tied_root_ssh_public_key(ksdb_handle *h, sqlite3 *db, int id, int *root_id) {
    if (!root_id) return -1;
    *root_id = 0;
    return ksdb::boundary(h, KSDB_TAG, "ksdb_find_tied_root_ssh_public_key", [&] {
        ksdb::SqlTable t;
        if (t.query(h, db, KSDB_TAG,
                    "SELECT id FROM `%s` WHERE key = (SELECT key FROM `%s` WHERE id = %d AND "
                    "user_id = 98) AND user_id = 0",
                    ksdb::ssh::kKeyTable, ksdb::ssh::kKeyTable, id) != SQLITE_OK) {
            KSDB_ERR(h, "Failed DB Query for 'SELECT %s'\n", ksdb::ssh::kKeyTable);
            return -1;
        }
        if (t.rows() == 0) return 0;
        *root_id = std::atoi(t.str(0, 0));
        return 1;
    });
}

int ksdb_is_valid_ssh_public_key_serve_for(const char *value) {
    return value && (std::strcmp(value, "rsync") == 0 || std::strcmp(value, "all") == 0);
}

char *ksdb_ssh_public_key_to_string(ksdb_handle *h, const ksdb_ssh_public_key *key) {
    if (!key || !key->type || !key->key) return nullptr;
    return ksdb::boundary_value<char *>(h, KSDB_TAG, "ksdb_ssh_public_key_to_string", nullptr, [&] {
        std::string line;
        if (key->command) line = ksdb::strprintf("command=\"%s\" ", key->command);
        line += ksdb::strprintf("%s %s", key->type, key->key);
        if (key->comment) line += ksdb::strprintf(" %s", key->comment);
        return ksdb::pool_strdup(h, line.c_str());
    });
}

}  // extern "C"
