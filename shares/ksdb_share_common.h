// What every file-sharing protocol does alike: the access words, the
// explicit access entries of user_acl, group_acl and host_acl (written on
// import, read on export), the list entries of the share files, the share
// configuration folder with its side files, the "/volume/share" path form,
// the USB copies, the cloud users' grant, the walk over the volumes' share
// folders, and the value rules of the names the share files carry.
//
// CIFS, NFS, AFP and rsync all build on these; none of them keeps a private
// copy.
#pragma once

#include "core/ksdb_area.h"

#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace ksdb {

// Gives each cloud user (a `$user` whose primary group is 97 or 98, other
// than "admin" and "ftp") an entry in user_acl for the share and protocol
// with the rights of the share's default access word.  Entries already
// there are kept as they are.  0, or -1 when the user list cannot be read
// or an entry cannot be written.
int _ksdb_cifs_grant_cloud_users(ksdb_handle *h, sqlite3 *db, int share_id, const char *proto,
                                 const char *access);

namespace shares {

// ---- access words -----------------------------------------------------------------

// "readonly", "writeable", "disabled" for 0, 1, 2 (anything else reads as
// "disabled").
const char *access_word(int index);
// The index of an access word, compared as the columns compare (case
// ignored); -1 for any other text.
int access_index(const char *word);
// True when `access` is `word`, case ignored; false for NULL.
bool access_is(const char *access, const char *word);

// The read and write flags an access word gives: "readonly" 1/0,
// "writeable" 1/1, anything else 0/0.
struct Rights {
    int read = 0;
    int write = 0;
};
Rights access_rights(const char *access);

// ---- value rules of the share files ---------------------------------------------

namespace rules {
// A share name: a section name and one folder name.  No "[", "]", "/",
// "%" (Samba would substitute it in the share's path), no "." or "..", not
// empty, no blank at either end, no backslash at the end.
extern const ValueRule kShareName;
// A share path after "path = ": one line, no backslash at its end, no "%".
extern const ValueRule kSharePath;
// A user or group name in a quoted, comma-separated access list: no quote,
// comma, backslash (it would name a domain account) or "%" (Samba would
// substitute it), not empty, no blank at either end (the importer trims
// entries).  A leading "@", "+" or "&" is refused separately
// (guard_account_name): it would turn a user into a group.
extern const ValueRule kAccountEntry;
// A host name or network in a quoted, comma-separated host list: no quote,
// comma or "%", not empty, no blank at either end, no backslash at the end.
extern const ValueRule kHostEntry;
// A single account name as a parameter's whole value ("force user"): one
// line, no "%", not empty, no backslash at the end.
extern const ValueRule kAccountValue;
// An application name: one folder name below /apps, no "%" either (Samba
// would substitute it in the include path).
extern const ValueRule kAppName;
}  // namespace rules

// guard_value with kShareName, and the section name "global" (any case)
// refused as well: it would turn the share's lines into global settings.
int guard_share_name(ksdb_handle *h, std::string_view name, const ValueSource &src);
// guard_value with kAccountEntry, and a leading "@", "+" or "&" refused.
int guard_account_name(ksdb_handle *h, std::string_view name, const ValueSource &src);

// The exact text of a column whose byte length a query also selected as
// "length(CAST(x AS BLOB))": the C string, with a NUL byte appended when
// the stored text holds one (the C string ends there), so that the guard
// refuses it.  nullopt for NULL.
std::optional<std::string> exact_text(const char *value, const char *byte_length);

// ---- access entries, export side ------------------------------------------------

enum class AclKind { kUsers, kGroups, kHosts };

// One explicit access entry as an exporter needs it.  `group_id` is the
// user's primary group (users only); `root` the host's root flag (hosts
// only).  The name is exact (see exact_text).
struct AclEntry {
    long long id = 0;  // the account's or host's id
    std::string name;
    int read = 0;
    int write = 0;
    int root = 0;
    long long group_id = 0;
};

// Every entry of one protocol in one of the access tables, handed out by
// share id and ordered by name as the name column collates.  Two queries
// read them (every name once, then every entry of the protocol), so
// building the lists of all shares costs one pass over each table, not one
// pass per share, and each share's few entries are sorted on their own.
class AclIndex {
  public:
    // 0, or the SQLite status of the failed query (nothing logged).
    int load(ksdb_handle *h, sqlite3 *db, AclKind kind, const char *proto);
    bool loaded() const { return loaded_; }
    // The entries of a share, ordered by name as the column collates.
    const std::vector<AclEntry> &of(long long share_id) const;

  private:
    bool loaded_ = false;
    std::unordered_map<long long, std::vector<AclEntry>> by_share_;
};

// '"' + lead + name + '"' for each entry that `keep` selects, joined by
// ","; each name written is guarded first (account or host rule by kind,
// naming the account's or host's id).  0, or 4 at the first name refused.
int join_quoted(ksdb_handle *h, AclKind kind, const std::vector<AclEntry> &entries,
                const std::string &lead, const std::function<bool(const AclEntry &)> &keep,
                std::string *out);

// "a" "," "b", or either alone when the other is empty.
std::string join_lists(const std::string &a, const std::string &b);

// ---- access entries, import side -------------------------------------------------

// The id of a host name in `host`, inserted when missing.  0, or -1 after
// "<word> (SELECT host) fail." / "<word> (INSERT host) fail." (`word` is
// "Squery" for CIFS and rsync, "Query" for NFS).
int get_host_id(ksdb_handle *h, sqlite3 *db, const char *name, int *id,
                const char *word = "Squery");

// Writes a host entry with the insert-or-ignore-then-update pair:
// "INSERT OR IGNORE INTO host_acl (share_id,host_id,proto,read,write)
// VALUES(...)" then "UPDATE host_acl SET read=..,write=.. WHERE ...".
// SQLITE_OK or the failing statement's status (the caller logs).
int put_host_acl(ksdb_handle *h, sqlite3 *db, int share_id, int host_id, const char *proto,
                 int read, int write);
// The host entry of a protocol that also carries the root flag: the entry
// is made read 1, write 0, root 0 and then given "SET write=..,root=..".
// `failed_insert` / `failed_update` are logged for the statement that
// fails; 0 or 3.
int put_host_acl_root(ksdb_handle *h, sqlite3 *db, int share_id, int host_id, const char *proto,
                      int write, int root, const char *failed_insert, const char *failed_update);

// An account as an access list names it: a leading "@" marks a group; a
// backslash marks a domain account, of which only the part after it is the
// name.
struct AccountRef {
    bool group = false;
    std::string name;
    enum class Scope { kAny, kLocal, kDomain } scope = Scope::kAny;
};
// The account an entry names, with the domain mark honoured (kLocal or
// kDomain) or not (kAny: the whole text after "@" is the name).
AccountRef parse_account(std::string_view entry, bool domain_marks);

// Gives an account an entry for the share and protocol.  For a scoped
// account (kLocal / kDomain) the account is looked up by name and "rid IS
// NULL" / "rid IS NOT NULL"; for kAny by name alone.  With `update` the
// insert-or-ignore is followed by "UPDATE ... SET read=..,write=..".  An
// account that does not exist is skipped by the OR IGNORE.  SQLITE_OK or
// the failing statement's status (the caller logs).
int put_account_acl(ksdb_handle *h, sqlite3 *db, int share_id, const char *proto,
                    const AccountRef &account, int read, int write, bool update = true);

// ---- list entries ---------------------------------------------------------------------

// The entries of a list separated by `sep` (a blank stands for any run of
// blanks and tabs), each trimmed of blanks and freed of a double quote at
// either end; empty entries are dropped.  A list value read from a file
// has lost only its outermost quotes ("a","b" arrives as a","b), which is
// why a quote is removed at each end of an entry on its own.
std::vector<std::string> split_list(std::string_view list, char sep = ',');

// The same list read strictly: a double-quoted entry runs to its closing
// quote and may hold the separator; an entry of 128 characters or more, or
// a quote left open, logs "Name is too long." or "Name is too long or
// unterminated '\"'." and gives 5.  0 otherwise.
int split_list_strict(ksdb_handle *h, std::string_view list, char sep,
                      std::vector<std::string> *out);

// ---- paths --------------------------------------------------------------------------

// True for an absolute path none of whose components is "..": a path the
// importer may look at (with a debug root, anything else could lead out of
// it).
bool path_stays_inside(std::string_view path);
// "/<volume>/<share>": both parts non-empty.  The share part may hold
// further folders.
bool split_volume_share(std::string_view path, std::string *volume, std::string *share);

// ---- the share configuration folder -------------------------------------------------

// The owner and mode of every file in a share configuration folder.
ksdb_file_spec share_file_spec(const std::string &live_path);

// Writes a side file "<name>.conf" of the share's configuration folder
// (made when missing) holding one line, through ManagedFile.  0, or 5.
int write_side_file(ksdb_handle *h, const char *volume, const char *share, const char *name,
                    std::string_view line);
// The same in a configuration folder already prepared (the live path that
// share_conf_path gave, without the file name): no second look at the
// folders for each side file of a share.
int write_side_file(ksdb_handle *h, const std::string &conf_dir, const char *name,
                    std::string_view line);

// Reads a one-line side file "<conf_dir>/<file>" with the configuration
// reader: the first line that does not begin with white space (the last
// line when every line does), cut to size - 1 bytes, without its line end.
// nullopt when the file is missing, empty or not a regular file.
std::optional<std::string> read_side_file(ksdb_handle *h, const std::string &conf_dir,
                                          const char *file, size_t size);

// ---- USB copies -------------------------------------------------------------------------

// The sections of `text` whose header line ("[" at the start) contains
// `share` anywhere, each with its lines up to the next header.
std::string sections_naming(std::string_view text, std::string_view share);
// The lines of `text` that contain `share` anywhere.
std::string lines_naming(std::string_view text, std::string_view share);

// ---- the volumes' share folders ---------------------------------------------------------

// Calls fn(volume, share) for every share folder of every volume (the share
// enumerator).  With stop_on_error the first non-zero result of fn ends the
// walk and is returned.  0, or the enumerator's status.
int for_each_share_folder(ksdb_handle *h, sqlite3 *db,
                          const std::function<int(const char *volume, const char *share)> &fn,
                          bool stop_on_error = false);


// ==== added for the AFP and rsync shares ===================================================

// join_quoted where every name must also keep `also`: a list format whose
// readers end an entry or a line at more characters than Samba's do.
int join_quoted(ksdb_handle *h, AclKind kind, const std::vector<AclEntry> &entries,
                const std::string &lead, const std::function<bool(const AclEntry &)> &keep,
                const ValueRule &also, std::string *out);

// put_account_acl (insert-or-ignore, then the update when `update`) that
// logs `failed_insert` or `failed_update` for the statement that fails:
// 0 or 3.
int put_account_acl_logged(ksdb_handle *h, sqlite3 *db, int share_id, const char *proto,
                           const AccountRef &account, int read, int write, bool update,
                           const char *failed_insert, const char *failed_update);

// The share of a "path = /media/<share>" line of a USB share file (the
// volume "media", then the rest of the line as the share's name), or
// nullopt for any other line and for a rest that is not one folder name.
std::optional<std::string> usb_media_share(std::string_view line);

// The configuration folder of USB shares' own copies, in place of a
// volume (the per-share files of a USB share live below it).
inline constexpr char kUsbConfVolume[] = "etc/quillfold/usb";

}  // namespace shares
}  // namespace ksdb
