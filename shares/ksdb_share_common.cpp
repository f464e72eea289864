// What the file-sharing protocols share: access words and entries, list
// entries, side files, share paths, USB copies, the cloud users' grant and
// the walk over the share folders.
#define KSDB_MODULE "ksdb_share_common"
#include "shares/ksdb_share_common.h"

#include "util/ksdb_string_utils.h"

#include <strings.h>

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <cstring>

namespace ksdb {
namespace shares {

// ---- access words -----------------------------------------------------------------

namespace {
constexpr const char *kAccessWords[] = {"readonly", "writeable", "disabled"};
}  // namespace

const char *access_word(int index) {
    return index >= 0 && index < 3 ? kAccessWords[index] : kAccessWords[2];
}

int access_index(const char *word) {
    for (int i = 0; i < 3; ++i)
        if (access_is(word, kAccessWords[i])) return i;
    return -1;
}

bool access_is(const char *access, const char *word) {
    return access && strcasecmp(access, word) == 0;
}

Rights access_rights(const char *access) {
    switch (access_index(access)) {
        case 0: return {1, 0};
        case 1: return {1, 1};
        default: return {0, 0};
    }
}

// ---- value rules ---------------------------------------------------------------------

namespace rules {
const ValueRule kShareName{"a share name", "[]/%",
                           kValueNotEmpty | kValuePathComponent | kValueNoTrailingBackslash |
                               kValueNoLeadingBlank | kValueNoTrailingBlank};
const ValueRule kSharePath{"a share path", "%", kValueNoTrailingBackslash};
const ValueRule kAccountEntry{"an account in a Samba list", "\",%\\",
                              kValueNotEmpty | kValueNoLeadingBlank | kValueNoTrailingBlank};
const ValueRule kHostEntry{"a host in a Samba list", "\",%",
                           kValueNotEmpty | kValueNoTrailingBackslash | kValueNoLeadingBlank |
                               kValueNoTrailingBlank};
const ValueRule kAccountValue{"a Samba account name", "%",
                              kValueNotEmpty | kValueNoTrailingBackslash};
const ValueRule kAppName{"an application folder name", "/%", kValuePathComponent};
}  // namespace rules

int guard_share_name(ksdb_handle *h, std::string_view name, const ValueSource &src) {
    if (int rc = guard_value(h, name, rules::kShareName, src)) return rc;
    if (name.size() == 6 && strncasecmp(name.data(), "global", 6) == 0)
        return refuse_value(h, "the reserved section name", rules::kShareName.place, src);
    return 0;
}

int guard_account_name(ksdb_handle *h, std::string_view name, const ValueSource &src) {
    if (int rc = guard_value(h, name, rules::kAccountEntry, src)) return rc;
    if (!name.empty() && std::strchr("@+&", name.front()))
        return refuse_value(h, "a leading group mark", rules::kAccountEntry.place, src);
    return 0;
}

std::optional<std::string> exact_text(const char *value, const char *byte_length) {
    if (!value) return std::nullopt;
    std::string text = value;
    if (byte_length && std::strtoll(byte_length, nullptr, 10) > static_cast<long long>(text.size()))
        text.push_back('\0');
    return text;
}

// ---- access entries, export side ------------------------------------------------------

namespace {
// The accounts or hosts an entry can name, each once: id, name, the name's
// byte length, and the user's primary group (0 for groups and hosts).
constexpr const char *kNameQueries[] = {
    "SELECT U.id,U.uname,length(CAST(U.uname AS BLOB)),U.group_id FROM `$user` U",
    "SELECT G.id,G.gname,length(CAST(G.gname AS BLOB)),0 FROM `$group` G",
    "SELECT H.id,H.name,length(CAST(H.name AS BLOB)),0 FROM host H",
};
// Every entry of a protocol: share id, the account's or host's id, read,
// write, and the host's root flag (0 for accounts).
constexpr const char *kAclQueries[] = {
    "SELECT A.share_id,A.user_id,A.read,A.write,0 FROM user_acl A WHERE A.proto=%Q",
    "SELECT A.share_id,A.group_id,A.read,A.write,0 FROM group_acl A WHERE A.proto=%Q",
    "SELECT A.share_id,A.host_id,A.read,A.write,A.root FROM host_acl A WHERE A.proto=%Q",
};
// Whether the name column compares without regard to case: `$user`.uname
// and host.name are COLLATE NOCASE, `$group`.gname is BINARY.
constexpr bool kNoCase[] = {true, false, true};

long long number(const char *v) { return v ? std::strtoll(v, nullptr, 10) : 0; }

// The order of two names as SQLite's collation puts them: bytes compared
// unsigned, with NOCASE folding the ASCII capitals only, and a name before
// the longer names it begins.
bool collates_before(const std::string &a, const std::string &b, bool nocase) {
    const size_t n = std::min(a.size(), b.size());
    for (size_t i = 0; i < n; ++i) {
        unsigned char x = static_cast<unsigned char>(a[i]), y = static_cast<unsigned char>(b[i]);
        if (nocase) {
            if (x >= 'A' && x <= 'Z') x = static_cast<unsigned char>(x - 'A' + 'a');
            if (y >= 'A' && y <= 'Z') y = static_cast<unsigned char>(y - 'A' + 'a');
        }
        if (x != y) return x < y;
    }
    return a.size() < b.size();
}
}  // namespace

int AclIndex::load(ksdb_handle *h, sqlite3 *db, AclKind kind, const char *proto) {
    by_share_.clear();
    loaded_ = false;
    const int k = static_cast<int>(kind);
    struct Named {
        std::string name;
        long long group_id;
    };
    std::unordered_map<long long, Named> names;
    {
        SqlTable t;
        if (int rc = t.query(h, db, KSDB_TAG, kNameQueries[k])) return rc;
        names.reserve(static_cast<size_t>(t.rows()));
        for (int r = 0; r < t.rows(); ++r) {
            std::optional<std::string> name = exact_text(t.at(r, 1), t.at(r, 2));
            if (!name) continue;  // a NULL name joins no list
            names.emplace(number(t.at(r, 0)), Named{std::move(*name), number(t.at(r, 3))});
        }
    }
    SqlTable t;
    if (int rc = t.query(h, db, KSDB_TAG, kAclQueries[k], proto)) return rc;
    for (int r = 0; r < t.rows(); ++r) {
        const long long id = number(t.at(r, 1));
        auto named = names.find(id);
        if (named == names.end()) continue;  // an entry of no account or host
        AclEntry e;
        e.id = id;
        e.name = named->second.name;
        e.read = static_cast<int>(number(t.at(r, 2)));
        e.write = static_cast<int>(number(t.at(r, 3)));
        e.root = static_cast<int>(number(t.at(r, 4)));
        e.group_id = named->second.group_id;
        by_share_[number(t.at(r, 0))].push_back(std::move(e));
    }
    // Each share's entries by name, as "ORDER BY name" over the name column
    // gives them: a sort of each share's few entries instead of one of every
    // entry of the protocol.
    for (auto &[share, entries] : by_share_)
        std::stable_sort(entries.begin(), entries.end(), [&](const AclEntry &a, const AclEntry &b) {
            return collates_before(a.name, b.name, kNoCase[k]);
        });
    loaded_ = true;
    return 0;
}

const std::vector<AclEntry> &AclIndex::of(long long share_id) const {
    static const std::vector<AclEntry> kNone;
    auto it = by_share_.find(share_id);
    return it == by_share_.end() ? kNone : it->second;
}

int join_quoted(ksdb_handle *h, AclKind kind, const std::vector<AclEntry> &entries,
                const std::string &lead, const std::function<bool(const AclEntry &)> &keep,
                std::string *out) {
    out->clear();
    for (const AclEntry &e : entries) {
        if (!keep(e)) continue;
        const std::string id = std::to_string(e.id);
        int rc = 0;
        switch (kind) {
            case AclKind::kUsers:
                rc = guard_account_name(h, e.name, {"$user", "uname", id});
                break;
            case AclKind::kGroups:
                rc = guard_account_name(h, e.name, {"$group", "gname", id});
                break;
            case AclKind::kHosts:
                rc = guard_value(h, e.name, rules::kHostEntry, {"host", "name", id});
                break;
        }
        if (rc) return rc;
        if (!out->empty()) *out += ',';
        *out += '"';
        *out += lead;
        *out += e.name;
        *out += '"';
    }
    return 0;
}

std::string join_lists(const std::string &a, const std::string &b) {
    if (a.empty()) return b;
    if (b.empty()) return a;
    return a + "," + b;
}

// ---- access entries, import side --------------------------------------------------------

int get_host_id(ksdb_handle *h, sqlite3 *db, const char *name, int *id, const char *word) {
    SqlTable t;
    if (t.query(h, db, KSDB_TAG, "SELECT H.id FROM host H WHERE name=%Q", name) != SQLITE_OK ||
        t.rows() > 1) {
        KSDB_ERR(h, "%s (SELECT host) fail.\n", word);
        return -1;
    }
    if (t.rows() == 1) {
        *id = std::atoi(t.str(0, 0));
        return 0;
    }
    if (ksdb_sql_exec_mprintf(h, db, nullptr, KSDB_TAG, "INSERT INTO host (name) VALUES(%Q)",
                              name) != SQLITE_OK) {
        KSDB_ERR(h, "%s (INSERT host) fail.\n", word);
        return -1;
    }
    *id = static_cast<int>(sqlite3_last_insert_rowid(db));
    return 0;
}

int put_host_acl(ksdb_handle *h, sqlite3 *db, int share_id, int host_id, const char *proto,
                 int read, int write) {
    return sql_insert_then_update(
        h, db, KSDB_TAG,
        sql_printf("INSERT OR IGNORE INTO host_acl (share_id,host_id,proto,read,write) "
                   "VALUES(%d,%d,%Q,%d,%d)",
                   share_id, host_id, proto, read, write),
        sql_printf("UPDATE host_acl SET read=%d,write=%d WHERE share_id=%d AND host_id=%d AND "
                   "proto=%Q",
                   read, write, share_id, host_id, proto));
}

int put_host_acl_root(ksdb_handle *h, sqlite3 *db, int share_id, int host_id, const char *proto,
                      int write, int root, const char *failed_insert, const char *failed_update) {
    if (int rc = exec_or_fail(h, db, failed_insert,
                              "INSERT OR IGNORE INTO host_acl (share_id,host_id,proto,read,write,"
                              "root) VALUES(%d,%d,%Q,1,0,0)",
                              share_id, host_id, proto))
        return rc;
    return exec_or_fail(h, db, failed_update,
                        "UPDATE host_acl SET write=%d,root=%d WHERE share_id=%d AND host_id=%d "
                        "AND proto=%Q",
                        write, root, share_id, host_id, proto);
}

AccountRef parse_account(std::string_view entry, bool domain_marks) {
    AccountRef a;
    if (!entry.empty() && entry.front() == '@') {
        a.group = true;
        entry.remove_prefix(1);
    }
    if (domain_marks) {
        const size_t backslash = entry.find('\\');
        a.scope = backslash == std::string_view::npos ? AccountRef::Scope::kLocal
                                                      : AccountRef::Scope::kDomain;
        if (backslash != std::string_view::npos) entry.remove_prefix(backslash + 1);
    }
    a.name.assign(entry);
    return a;
}

namespace {
// The insert-or-ignore and update statements of an account's entry.
void account_acl_sql(int share_id, const char *proto, const AccountRef &account, int read,
                     int write, SqlStr *insert, SqlStr *change) {
    const char *table = account.group ? "group" : "user";
    const char key = account.group ? 'g' : 'u';
    const char *name = account.name.c_str();
    if (account.scope == AccountRef::Scope::kAny) {
        *insert = sql_printf("INSERT OR IGNORE INTO %s_acl (share_id,%s_id,proto,read,write) "
                             "VALUES(%d,(SELECT id FROM `$%s` WHERE %cname=%Q),%Q,%d,%d)",
                             table, table, share_id, table, key, name, proto, read, write);
        *change = sql_printf("UPDATE %s_acl SET read=%d,write=%d WHERE share_id=%d AND %s_id="
                             "(SELECT id FROM `$%s` WHERE %cname=%Q) AND proto=%Q",
                             table, read, write, share_id, table, table, key, name, proto);
    } else {
        const char *rid = account.scope == AccountRef::Scope::kDomain ? "NOT " : "";
        *insert = sql_printf("INSERT OR IGNORE INTO %s_acl (share_id,%s_id,proto,read,write) "
                             "VALUES(%d,(SELECT id FROM '$%s' WHERE %cname=%Q AND rid IS "
                             "%sNULL),%Q,%d,%d)",
                             table, table, share_id, table, key, name, rid, proto, read, write);
        *change = sql_printf("UPDATE %s_acl SET read=%d,write=%d WHERE share_id=%d AND %s_id="
                             "(SELECT id FROM '$%s' WHERE %cname=%Q AND rid IS %sNULL) AND "
                             "proto=%Q",
                             table, read, write, share_id, table, table, key, name, rid, proto);
    }
}
}  // namespace

int put_account_acl(ksdb_handle *h, sqlite3 *db, int share_id, const char *proto,
                    const AccountRef &account, int read, int write, bool update) {
    SqlStr insert, change;
    account_acl_sql(share_id, proto, account, read, write, &insert, &change);
    if (!update)
        return ksdb_sql_exec_mprintf(h, db, nullptr, KSDB_TAG, "%s", insert.get());
    return sql_insert_then_update(h, db, KSDB_TAG, insert, change);
}

// ---- list entries --------------------------------------------------------------------------

namespace {
bool is_separator(char c, char sep) { return sep == ' ' ? c == ' ' || c == '\t' : c == sep; }
}  // namespace

std::vector<std::string> split_list(std::string_view list, char sep) {
    std::vector<std::string> out;
    size_t start = 0;
    while (start <= list.size()) {
        size_t end = start;
        while (end < list.size() && !is_separator(list[end], sep)) ++end;
        std::string_view e = trim_blanks(list.substr(start, end - start));
        if (!e.empty() && e.front() == '"') e.remove_prefix(1);
        if (!e.empty() && e.back() == '"') e.remove_suffix(1);
        if (!e.empty()) out.emplace_back(e);
        start = end + 1;
    }
    return out;
}

int split_list_strict(ksdb_handle *h, std::string_view list, char sep,
                      std::vector<std::string> *out) {
    constexpr size_t kNameLimit = 128;
    out->clear();
    size_t p = 0;
    while (p < list.size()) {
        while (p < list.size() && (is_separator(list[p], sep) || list[p] == ' ' || list[p] == '\t'))
            ++p;
        if (p >= list.size()) break;
        std::string_view name;
        if (list[p] == '"') {
            const size_t close = list.find('"', p + 1);
            if (close == std::string_view::npos || close - p - 1 >= kNameLimit) {
                KSDB_ERR(h, "Name is too long or unterminated '\"'.\n");
                return KSDB_E_FILE;
            }
            name = list.substr(p + 1, close - p - 1);
            p = close + 1;
            while (p < list.size() && !is_separator(list[p], sep)) ++p;  // up to the next entry
        } else {
            size_t end = p;
            while (end < list.size() && !is_separator(list[end], sep)) ++end;
            name = trim_blanks(list.substr(p, end - p));
            if (name.size() >= kNameLimit) {
                KSDB_ERR(h, "Name is too long.\n");
                return KSDB_E_FILE;
            }
            p = end;
        }
        if (!name.empty()) out->emplace_back(name);
    }
    return 0;
}

// ---- paths ------------------------------------------------------------------------------

bool path_stays_inside(std::string_view path) {
    if (path.empty() || path.front() != '/') return false;
    size_t start = 1;
    while (start <= path.size()) {
        size_t end = path.find('/', start);
        if (end == std::string_view::npos) end = path.size();
        if (path.substr(start, end - start) == "..") return false;
        start = end + 1;
    }
    return true;
}

bool split_volume_share(std::string_view path, std::string *volume, std::string *share) {
    if (path.size() < 2 || path.front() != '/') return false;
    const size_t slash = path.find('/', 1);
    if (slash == std::string_view::npos || slash == 1 || slash + 1 >= path.size()) return false;
    volume->assign(path.substr(1, slash - 1));
    share->assign(path.substr(slash + 1));
    return true;
}

// ---- the share configuration folder ---------------------------------------------------------

ksdb_file_spec share_file_spec(const std::string &live_path) {
    return ksdb_file_spec{live_path.c_str(), 98, 98, 0644};
}

int write_side_file(ksdb_handle *h, const char *volume, const char *share, const char *name,
                    std::string_view line) {
    std::string live;
    if (share_conf_path(h, volume, share, name, &live) != 0) return KSDB_E_FILE;
    return write_side_file(h, live.substr(0, live.rfind('/')), name, line);
}

int write_side_file(ksdb_handle *h, const std::string &conf_dir, const char *name,
                    std::string_view line) {
    const std::string live = conf_dir + "/" + name + ".conf";
    ManagedFile out(h, share_file_spec(live));
    if (!out.ok()) return KSDB_E_FILE;
    out.write(line);
    out.write("\n");
    return out.commit() != 0 ? KSDB_E_FILE : 0;
}

std::optional<std::string> read_side_file(ksdb_handle *h, const std::string &conf_dir,
                                          const char *file, size_t size) {
    constexpr size_t kSideFileLimit = 64 * 1024;
    ConfFile conf(h, conf_dir + "/" + file, kSideFileLimit);
    if (!conf.ok()) return std::nullopt;
    std::optional<std::string> value;
    conf.lines([&](char *line) {
        value = line;
        // A line that begins with white space (an empty one too) continues
        // or comments; the first other line is the value.
        return line[0] == '\0' || std::isspace(static_cast<unsigned char>(line[0]));
    });
    if (!value) return std::nullopt;
    if (size > 0 && value->size() > size - 1) value->resize(size - 1);
    while (!value->empty() && (value->back() == '\r' || value->back() == '\n')) value->pop_back();
    return value;
}

// ---- USB copies ------------------------------------------------------------------------------

namespace {
// Calls fn(line) for every line of `text`, each with its newline.
template <class Fn>
void each_line(std::string_view text, Fn &&fn) {
    size_t start = 0;
    while (start < text.size()) {
        size_t nl = text.find('\n', start);
        size_t end = nl == std::string_view::npos ? text.size() : nl + 1;
        fn(text.substr(start, end - start));
        start = end;
    }
}
}  // namespace

std::string sections_naming(std::string_view text, std::string_view share) {
    std::string out;
    bool copying = false;
    each_line(text, [&](std::string_view line) {
        if (!line.empty() && line.front() == '[')
            copying = line.find(share) != std::string_view::npos;
        if (copying) out.append(line);
    });
    return out;
}

std::string lines_naming(std::string_view text, std::string_view share) {
    std::string out;
    each_line(text, [&](std::string_view line) {
        if (line.find(share) != std::string_view::npos) out.append(line);
    });
    return out;
}

// ---- the volumes' share folders -------------------------------------------------------------

int for_each_share_folder(ksdb_handle *h, sqlite3 *db,
                          const std::function<int(const char *volume, const char *share)> &fn,
                          bool stop_on_error) {
    using Fn = std::function<int(const char *, const char *)>;
    auto trampoline = [](ksdb_handle *, sqlite3 *, const char *volume, const char *share,
                         void *arg) { return (*static_cast<const Fn *>(arg))(volume, share); };
    return ksdb_foreach_share_subvolume(h, db, trampoline, const_cast<Fn *>(&fn),
                                        stop_on_error ? 1 : 0);
}

// ==== added for the AFP and rsync shares ===================================================

int join_quoted(ksdb_handle *h, AclKind kind, const std::vector<AclEntry> &entries,
                const std::string &lead, const std::function<bool(const AclEntry &)> &keep,
                const ValueRule &also, std::string *out) {
    static const char *const kSources[][2] = {{"$user", "uname"}, {"$group", "gname"},
                                              {"host", "name"}};
    const char *const *src = kSources[static_cast<int>(kind)];
    for (const AclEntry &e : entries)
        if (keep(e))
            if (int rc = guard_value(h, e.name, also, {src[0], src[1], std::to_string(e.id)}))
                return rc;
    return join_quoted(h, kind, entries, lead, keep, out);
}

int put_account_acl_logged(ksdb_handle *h, sqlite3 *db, int share_id, const char *proto,
                           const AccountRef &account, int read, int write, bool update,
                           const char *failed_insert, const char *failed_update) {
    SqlStr insert, change;
    account_acl_sql(share_id, proto, account, read, write, &insert, &change);
    if (ksdb_sql_exec_mprintf(h, db, nullptr, KSDB_TAG, "%s", insert.get()) != SQLITE_OK) {
        KSDB_ERR(h, "%s", failed_insert);
        return KSDB_E_DB;
    }
    if (update &&
        ksdb_sql_exec_mprintf(h, db, nullptr, KSDB_TAG, "%s", change.get()) != SQLITE_OK) {
        KSDB_ERR(h, "%s", failed_update);
        return KSDB_E_DB;
    }
    return 0;
}

std::optional<std::string> usb_media_share(std::string_view line) {
    const size_t at = line.find("path = /");
    if (at == std::string_view::npos) return std::nullopt;
    std::string_view rest = line.substr(at + 8);
    const size_t end = rest.find_first_of(" /");
    if (end == std::string_view::npos || rest[end] != '/' || rest.substr(0, end) != "media")
        return std::nullopt;
    std::string share(rest.substr(end + 1));
    while (!share.empty() && (share.back() == '\r' || share.back() == '\n')) share.pop_back();
    if (share.empty() || value_refusal(share, ksdb::rules::kPathComponent)) return std::nullopt;
    return share;
}

}  // namespace shares

int _ksdb_cifs_grant_cloud_users(ksdb_handle *h, sqlite3 *db, int share_id, const char *proto,
                                 const char *access) {
    SqlTable users;
    if (users.query(h, db, KSDB_TAG,
                    "SELECT uname FROM `$user` WHERE group_id IN (97,98) AND uname NOT IN "
                    "('admin','ftp')") != SQLITE_OK) {
        KSDB_ERR(h, "Failed DB Query for cloud user list\n");
        return -1;
    }
    const shares::Rights rights = shares::access_rights(access);
    for (int r = 0; r < users.rows(); ++r) {
        if (ksdb_sql_exec_mprintf(h, db, nullptr, KSDB_TAG,
                                  "INSERT OR IGNORE INTO user_acl (share_id,user_id,proto,read,"
                                  "write) VALUES(%d,(SELECT id FROM `$user` WHERE uname=%Q),%Q,"
                                  "%d,%d)",
                                  share_id, users.str(r, 0), proto, rights.read,
                                  rights.write) != SQLITE_OK) {
            KSDB_ERR(h, "Failed DB insert 'INSERT user_acl'\n");
            return -1;
        }
    }
    return 0;
}

}  // namespace ksdb
