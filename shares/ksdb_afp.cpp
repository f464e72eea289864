// Shares over AFP: the netatalk share sections (the global Shares.conf of
// the volume shares and of the USB shares, and each share's own afp.conf),
// the one-line volume files of the older server for the shares of the
// volume "USB", the importers that read the per-share files (or, on a
// system that never had them, the older server's volume file) back into
// afp_share_option and the access tables, and the Time Machine folder check.
//
// The export works in two passes.  The first reads every row of both forms
// and builds every text in memory, checking each value it writes; a value
// that would change the structure of a file is refused (status 4) before
// anything is made or written.  The second prepares the configuration
// folders and writes the files.
#define KSDB_MODULE "ksdb_afp"
#include "core/ksdb_area.h"

#include "core/ksdb_areas.h"
#include "shares/ksdb_share_common.h"
#include "util/ksdb_string_utils.h"

#include <fcntl.h>
#include <strings.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstdarg>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace ksdb::afp {
namespace {

using shares::AclEntry;
using shares::kUsbConfVolume;
using shares::AclKind;

constexpr char kSharesConf[] = "/etc/quillfold/netatalk/Shares.conf";
constexpr char kUsbSharesConf[] = "/run/usb/netatalk/Shares.conf";
constexpr char kServerConf[] = "/etc/netatalk/afp.conf";
constexpr char kLegacyConf[] = "/etc/netatalk/AppleVolumes.default";
constexpr char kOneLineFolder[] = "/etc/quillfold/usb/access/custom";
constexpr size_t kLegacyReadLimit = 262144;

// A value after "key = " in a share section: netatalk and the section
// reader both take ";" and "#" as the start of a comment.
const ValueRule kAfpValue{"a netatalk share value", ";#", kValueNoTrailingBackslash};
// An account in a netatalk list: what a Samba list refuses, and the
// comment marks.
const ValueRule kAfpListEntry{"an account in a netatalk list", ";#", 0};
// A double-quoted field of a one-line volume entry.
const ValueRule kAfpQuoted{"a quoted netatalk volume field", "\"", kValueNoTrailingBackslash};

// ---- access lists ------------------------------------------------------------

// The AFP access entries of every share, read once.
struct AclContext {
    bool ready = false;
    shares::AclIndex users, groups;
};

// The lists of one share as netatalk takes them: users, then groups, then
// the administrators group for the read/write and valid lists.
struct Lists {
    std::string rw, ro, valid, invalid;
};

int load_acl(ksdb_handle *h, sqlite3 *db, AclContext &ctx) {
    if (ctx.ready) return 0;
    if (ctx.users.load(h, db, AclKind::kUsers, "afp") != 0) {
        KSDB_ERR(h, "Failed DB update 'SELECT user_acl'\n");
        return KSDB_E_DB;
    }
    if (ctx.groups.load(h, db, AclKind::kGroups, "afp") != 0) {
        KSDB_ERR(h, "Failed DB update 'SELECT group_acl'\n");
        return KSDB_E_DB;
    }
    ctx.ready = true;
    return 0;
}

// The read/write (selector 1), read-only (0) and valid (-1) lists, and the
// invalid list: cloud users (primary group 97) without access.  0, 3, or 4
// for a name refused.
int _ksdb_afp_acl_list(ksdb_handle *h, sqlite3 *db, AclContext &ctx, long long share_id,
                       Lists *out) {
    if (int rc = load_acl(h, db, ctx)) return rc;
    const std::vector<AclEntry> &users = ctx.users.of(share_id);
    const std::vector<AclEntry> &groups = ctx.groups.of(share_id);
    auto list = [&](const std::function<bool(const AclEntry &)> &keep, bool admin,
                    std::string *to) {
        std::string u, g;
        if (int rc = shares::join_quoted(h, AclKind::kUsers, users, "", keep, kAfpListEntry, &u))
            return rc;
        if (int rc = shares::join_quoted(h, AclKind::kGroups, groups, "@", keep, kAfpListEntry, &g))
            return rc;
        *to = shares::join_lists(u, g);
        if (admin) *to = shares::join_lists(*to, "@admin");
        return 0;
    };
    auto read_write = [](const AclEntry &e) { return e.read == 1 && e.write == 1; };
    auto read_only = [](const AclEntry &e) { return e.read == 1 && e.write == 0; };
    if (int rc = list(read_write, true, &out->rw)) return rc;
    if (int rc = list(read_only, false, &out->ro)) return rc;
    if (int rc = list([](const AclEntry &e) { return e.read == 1; }, true, &out->valid)) return rc;
    return shares::join_quoted(
        h, AclKind::kUsers, users, "",
        [](const AclEntry &e) { return e.read == 0 && e.write == 0 && e.group_id == 97; },
        kAfpListEntry, &out->invalid);
}

long number(const char *v) { return v ? std::strtol(v, nullptr, 10) : 0; }

enum class Target { kSkip, kOwnOnly, kGlobal };

// Where a share goes: nowhere when it is disabled and nobody at all is let
// in (which lists built here never give: the read/write list always holds
// the administrators), only its own file when it is not available, else
// also the global file.
Target choose_target(ksdb_handle *h, const char *name, const char *available, const char *access,
                     const Lists &l) {
    if (!available) return Target::kOwnOnly;
    const bool on = number(available) != 0;
    if (shares::access_is(access, "disabled") && l.rw.empty() && l.ro.empty() && on &&
        l.valid.empty()) {
        KSDB_INFO(h, "Share %s is disabled without exception. Ignore exporting to AFP.\n", name);
        return Target::kSkip;
    }
    return on ? Target::kGlobal : Target::kOwnOnly;
}

// ---- the sectioned export ------------------------------------------------------

// Every AFP share with its options, in name order; after the columns the
// sections need come the byte lengths of the texts written.
constexpr char kShareQuery[] =
    "SELECT S.id,S.name,S.path,S.type,AFP.afp_access,AFP.afp_guest_access,AFP.afp_fperm,"
    "AFP.afp_dperm,AFP.other_options,AFP.available,(SELECT U.uname FROM `$user` U WHERE "
    "U.id=AFP.force_user),(SELECT V.lv_name FROM _volume V WHERE V.id=S.volume_id),"
    "length(CAST(S.name AS BLOB)),length(CAST(S.path AS BLOB)) FROM afp_share_option AFP "
    "INNER JOIN share S ON S.id=AFP.share_id ORDER BY S.name ASC";

enum ShareColumn {
    kId = 0, kName = 1, kPath = 2, kType = 3, kAccess = 4, kGuest = 5, kFperm = 6, kDperm = 7,
    kAvailable = 9, kVolume = 11, kNameBytes = 12, kPathBytes = 13,
};

// One share as the sectioned export writes it.
struct Section {
    std::string name, volume;
    bool usb = false;       // the USB Shares.conf is its global target
    Target target = Target::kGlobal;
    std::string own;        // its afp.conf: with the "available" line
    std::string global;     // its section in the global file
};

// The invalid-users line: with guests refused, the guest accounts lead it.
void invalid_users_line(std::string &out, bool guests, const std::string &invalid) {
    if (guests) {
        if (!invalid.empty()) out += "  invalid users = " + invalid + "\n";
    } else if (!invalid.empty()) {
        out += "  invalid users = \"guest\",\"nobody\"," + invalid + ",\"@guest\",\"@nogroup\"\n";
    } else {
        out += "  invalid users = \"guest\",\"nobody\",\"@guest\",\"@nogroup\"\n";
    }
}

// Builds the section of one row, checking every value it writes: 0, 3, or 4.
int build_section(ksdb_handle *h, sqlite3 *db, AclContext &ctx, const SqlTable &rows, int r,
                  Section *s) {
    auto col = [&](int c) { return rows.at(r, c); };
    for (int c : {kId, kName, kPath, kAccess, kGuest}) {
        if (!col(c)) {
            KSDB_ERR(h, "Unexpected NULL in table.\n");
            return KSDB_E_DB;
        }
    }
    s->name = shares::exact_text(col(kName), col(kNameBytes)).value_or("");
    s->volume = rows.str(r, kVolume);
    const std::string path = shares::exact_text(col(kPath), col(kPathBytes)).value_or("");
    const ValueSource from{"share", "name", s->name};
    if (int rc = shares::guard_share_name(h, s->name, from)) return rc;
    if (int rc = guard_value(h, path, kAfpValue, {"share", "path", s->name})) return rc;
    s->usb = path.compare(0, 7, "/media/") == 0;

    Lists l;
    if (int rc = _ksdb_afp_acl_list(h, db, ctx, number(col(kId)), &l)) return rc;
    const char *access = col(kAccess);
    s->target = choose_target(h, s->name.c_str(), col(kAvailable), access, l);
    if (s->target == Target::kSkip) return 0;

    std::string body = "  path = " + path + "\n";
    if (path.find("media") != std::string::npos &&
        ksdb_check_vfat(h, fs::real_path(h, path).c_str()) == 1)
        body += "  unix priv = no\n  ea = none\n";
    if (shares::access_is(access, "disabled")) {
        // Nobody but the listed accounts, never guests.
        if (!l.ro.empty()) body += "  rolist = " + l.ro + "\n";
        if (!l.rw.empty()) body += "  rwlist = " + l.rw + "\n";
        if (!l.valid.empty()) body += "  valid users = " + l.valid + "\n";
        invalid_users_line(body, false, l.invalid);
    } else {
        if (shares::access_is(access, "readonly")) {
            body += l.rw.empty() ? "  read only = yes\n" : "  rwlist = " + l.rw + "\n";
        } else if (!l.ro.empty()) {
            body += "  rolist = " + l.ro + "\n";
        }
        invalid_users_line(body, number(col(kGuest)) != 0, l.invalid);
    }
    if (number(col(kFperm)) != 0) body += strprintf("  file perm = %03lo\n", number(col(kFperm)));
    if (number(col(kDperm)) != 0)
        body += strprintf("  directory perm = %03lo\n", number(col(kDperm)));
    body += "  admin group = admin\n";
    if (col(kType) && strcasecmp(col(kType), "readonly") == 0) body += "  cnid scheme = last\n";

    const std::string header = "[" + s->name + "]\n";
    s->global = header + body;
    s->own = header + strprintf("  available = %ld\n", number(col(kAvailable))) + body;
    return 0;
}

// ---- the one-line form --------------------------------------------------------

constexpr char kUsbVolumeQuery[] =
    "SELECT S.id,S.name,S.path,AFP.afp_access,AFP.afp_guest_access,AFP.afp_fperm,AFP.afp_dperm,"
    "AFP.other_options,AFP.available,(SELECT uname FROM `$user` U WHERE U.id=AFP.force_user),"
    "length(CAST(S.name AS BLOB)),length(CAST(AFP.other_options AS BLOB)),length(CAST((SELECT "
    "uname FROM `$user` U WHERE U.id=AFP.force_user) AS BLOB)),AFP.force_user FROM "
    "afp_share_option AFP INNER JOIN share S ON S.id=AFP.share_id INNER JOIN _volume V ON "
    "V.id=S.volume_id WHERE V.lv_name=='USB' ORDER BY S.name ASC";

struct OneLine {
    std::string path;  // live path of the share's one-line file
    std::string line;
};

// The one-line entry of a share of the volume "USB": 0, 3, or 4; a share
// that is skipped leaves `out` empty.
int build_one_line(ksdb_handle *h, sqlite3 *db, AclContext &ctx, const SqlTable &rows, int r,
                   OneLine *out) {
    auto col = [&](int c) { return rows.at(r, c); };
    for (int c : {0, 1, 2, 3, 4}) {
        if (!col(c)) {
            KSDB_ERR(h, "Unexpected NULL in table.\n");
            return KSDB_E_DB;
        }
    }
    const std::string name = shares::exact_text(col(1), col(10)).value_or("");
    if (int rc = shares::guard_share_name(h, name, {"share", "name", name})) return rc;
    if (int rc = guard_value(h, name, kAfpQuoted, {"share", "name", name})) return rc;
    const std::optional<std::string> other = shares::exact_text(col(7), col(11));
    if (other && !other->empty())
        if (int rc = guard_value(h, *other, rules::kLine,
                                 {"afp_share_option", "other_options", name}))
            return rc;
    const std::optional<std::string> force = shares::exact_text(col(9), col(12));
    if (force && !force->empty())
        if (int rc = guard_value(h, *force, kAfpQuoted, {"$user", "uname", rows.str(r, 13)}))
            return rc;

    Lists l;
    if (int rc = _ksdb_afp_acl_list(h, db, ctx, number(col(0)), &l)) return rc;
    const char *access = col(3);
    const char *available = col(8);
    if (choose_target(h, name.c_str(), available, access, l) == Target::kSkip) return 0;

    std::string &line = out->line;
    if (number(available) == 0) line += "#dashboard:available=0 ";
    line += "\"/" + name + "\" \"" + name + "\" cnidscheme:dbd";
    if (other && !other->empty()) line += " " + *other;
    const bool guests = number(col(4)) != 0;
    const char *deny = " deny:\"guest\"";
    if (shares::access_is(access, "disabled")) {
        if (!l.ro.empty()) line += " rolist:" + l.ro;
        if (!l.rw.empty()) line += " rwlist:" + l.rw;
        if (!l.valid.empty()) line += " allow:" + l.valid;
        line += deny;
    } else {
        if (shares::access_is(access, "readonly"))
            line += l.rw.empty() ? std::string(" options:ro") : " rwlist:" + l.rw;
        else if (!l.ro.empty())
            line += " rolist:" + l.ro;
        if (!guests) line += deny;
    }
    const char *fperm = col(5), *dperm = col(6);
    if (fperm && dperm && std::strcmp(fperm, dperm) == 0) {
        if (number(fperm) != 0) line += strprintf(" perm:%03lo", number(fperm));
    } else {
        if (number(fperm) != 0) line += strprintf(" fperm:%03lo", number(fperm));
        if (number(dperm) != 0) line += strprintf(" dperm:%03lo", number(dperm));
    }
    if (force && !force->empty()) line += " forceuid:\"" + *force + "\"";
    line += "\n";
    out->path = std::string(kOneLineFolder) + "/" + name + "/netatalk";
    return 0;
}

// The first pass over both forms: every text, every value checked.
int build_all(ksdb_handle *h, sqlite3 *db, std::vector<Section> *sections,
              std::vector<OneLine> *one_lines) {
    AclContext ctx;
    SqlTable rows;
    if (rows.query(h, db, KSDB_TAG, kShareQuery) != SQLITE_OK) {
        KSDB_ERR(h, "Failed DB Query for 'SELECT afp_share_option'\n");
        return KSDB_E_DB;
    }
    for (int r = 0; r < rows.rows(); ++r) {
        Section s;
        if (int rc = build_section(h, db, ctx, rows, r, &s)) return rc;
        // A share on no known volume has no configuration folder.
        if (rows.at(r, kVolume)) sections->push_back(std::move(s));
    }
    SqlTable usb;
    if (usb.query(h, db, KSDB_TAG, kUsbVolumeQuery) != SQLITE_OK) {
        KSDB_ERR(h, "Failed DB Query for 'SELECT afp_share_option'\n");
        return KSDB_E_DB;
    }
    for (int r = 0; r < usb.rows(); ++r) {
        OneLine o;
        if (int rc = build_one_line(h, db, ctx, usb, r, &o)) return rc;
        if (!o.line.empty()) one_lines->push_back(std::move(o));
    }
    return 0;
}

// Sets the times of the server's main file to now, so that the server sees
// its shares changed; a missing file is left missing.
void touch_server_conf(ksdb_handle *h) {
    const std::string real = fs::real_path(h, kServerConf);
    if (::utimensat(AT_FDCWD, real.c_str(), nullptr, AT_SYMLINK_NOFOLLOW) != 0 && errno != ENOENT)
        KSDB_WARN(h, "Cannot touch %s (%s)\n", kServerConf, std::strerror(errno));
}

// Each USB share's own file copied to the USB configuration folder.
void copy_usb_files(ksdb_handle *h, const std::vector<Section> &sections) {
    for (const Section &s : sections) {
        if (s.volume != "media") continue;
        const char *name = s.name.c_str();
        ConfFile from(h, strprintf("/media/._share/%s/afp.conf", name));
        if (!from.ok()) {
            KSDB_ERR(h, "Could not open /media AFP config file for %s\n", name);
            continue;
        }
        std::string live;
        if (share_conf_path(h, kUsbConfVolume, name, "afp", &live) != 0) {
            KSDB_ERR(h, "Could not open /etc/qiullfold/usb AFP config file for %s\n", name);
            continue;
        }
        ManagedFile to(h, shares::share_file_spec(live));
        to.write(from.text());
        if (to.commit() != 0)
            KSDB_ERR(h, "Could not open /etc/qiullfold/usb AFP config file for %s\n", name);
    }
}

// The second pass: each share's own file, then the two global files, then
// the USB copies and the one-line files.
int write_all(ksdb_handle *h, const std::vector<Section> &sections,
              const std::vector<OneLine> &one_lines) {
    ManagedFile main_out(h, kSharesConf);
    ManagedFile usb_out(h, kUsbSharesConf);
    if (!main_out.ok() || !usb_out.ok()) {
        KSDB_ERR(h, "Cannot open temporary file of afp share conf for write (%s)\n",
                 std::strerror(errno));
        return KSDB_E_FILE;
    }
    for (const Section &s : sections) {
        if (s.target == Target::kSkip) continue;
        std::string live;
        if (share_conf_path(h, s.volume.c_str(), s.name.c_str(), "afp", &live) != 0) continue;
        ManagedFile own(h, shares::share_file_spec(live));
        own.write(s.own);
        if (own.commit() != 0) return KSDB_E_FILE;  // neither global file is replaced
        if (s.target == Target::kGlobal) (s.usb ? usb_out : main_out).write(s.global);
    }
    // A USB file that cannot be replaced leaves the USB shares as they were;
    // only the volume shares' file decides the result.
    usb_out.commit();
    if (main_out.commit() != 0) return KSDB_E_FILE;
    touch_server_conf(h);
    copy_usb_files(h, sections);
    for (const OneLine &o : one_lines) {
        ManagedFile out(h, ksdb_file_spec{o.path.c_str(), 98, 98, 0644});
        out.write(o.line);
        if (out.commit() != 0) return KSDB_E_FILE;
    }
    return 0;
}

int export_all(ksdb_handle *h, sqlite3 *db) {
    std::vector<Section> sections;
    std::vector<OneLine> one_lines;
    if (int rc = build_all(h, db, &sections, &one_lines)) return rc;
    return write_all(h, sections, one_lines);
}

// ---- import ------------------------------------------------------------------

// What the importers take from a share's section (or a one-line entry);
// a list that was not given is nullopt.
struct afp_share_info {
    std::string section;
    bool two_sections = false;
    int available = 1;
    bool read_only = false;
    std::optional<std::string> rolist, rwlist, valid_users, invalid_users, file_perm,
        directory_perm, force_user, other_options;
    bool deny_guest = false;
};

struct IniContext {
    ksdb_handle *h;
    afp_share_info *info;
    bool in_section = false;
};

int section_key(void *user, const char *section, const char *name, const char *value) {
    IniContext &c = *static_cast<IniContext *>(user);
    afp_share_info &i = *c.info;
    if (!c.in_section) {
        i.section = section;
        c.in_section = true;
    } else if (i.section != section) {
        KSDB_ERR(c.h, "Cannot contain two [Share] in a single Shares.conf\n");
        i.two_sections = true;
        return 0;
    }
    auto is = [&](const char *key) { return strcasecmp(name, key) == 0; };
    if (is("available")) i.available = static_cast<int>(std::strtol(value, nullptr, 10));
    else if (is("read only")) i.read_only = std::strcmp(value, "yes") == 0;
    else if (is("rolist")) i.rolist = value;
    else if (is("rwlist")) i.rwlist = value;
    else if (is("valid users")) i.valid_users = value;
    else if (is("invalid users")) i.invalid_users = value;
    else if (is("file perm")) i.file_perm = value;
    else if (is("directory perm")) i.directory_perm = value;
    else if (!is("path") && !is("admin group") && !is("cnid scheme"))
        KSDB_WARN(c.h, "Unknown param %s = %s\n", name, value);
    return 1;
}

bool given(const std::optional<std::string> &v) { return v && !v->empty(); }

// The names of one list (nothing when the list was not given): 0, or 5 for
// a name too long or left open.
int names_of(ksdb_handle *h, const std::optional<std::string> &list,
             std::vector<std::string> *out) {
    out->clear();
    return list ? shares::split_list_strict(h, *list, ',', out) : 0;
}

// Gives each name of a list an entry: groups ("@name") and users, read 1
// and the write flag given.  0 or 3.
int _ksdb_afp_add_acl_names(ksdb_handle *h, sqlite3 *db, int share_id,
                            const std::vector<std::string> &names, int write) {
    for (const std::string &n : names) {
        const shares::AccountRef a = shares::parse_account(n, false);
        if (int rc = shares::put_account_acl_logged(
                h, db, share_id, "afp", a, 1, write, true,
                a.group ? "Failed DB insert 'INSERT group_acl'\n"
                        : "Failed DB insert 'INSERT user_acl'\n",
                a.group ? "Failed SQL 'UPDATE group_acl'\n" : "Failed SQL 'UPDATE user_acl'\n"))
            return rc;
    }
    return 0;
}

int update_option(ksdb_handle *h, sqlite3 *db, const char *format, ...) {
    va_list ap;
    va_start(ap, format);
    SqlStr sql = sql_vprintf(format, ap);
    va_end(ap);
    if (!sql || ksdb_sql_exec_mprintf(h, db, nullptr, KSDB_TAG, "%s", sql.get()) != SQLITE_OK) {
        KSDB_ERR(h, "Failed DB update 'UPDATE afp_share_option'\n");
        return KSDB_E_DB;
    }
    return 0;
}

// Writes one share's AFP settings: its option row made afresh, its AFP
// entries replaced.  `allow` stands for the valid-users list.  0, 3, or 5
// for a list name too long or left open (nothing written then).
int insert_share(ksdb_handle *h, sqlite3 *db, const afp_share_info &i,
                 const std::optional<std::string> &allow) {
    std::vector<std::string> ro, rw, invalid;
    if (int rc = names_of(h, i.rolist, &ro)) return rc;
    if (int rc = names_of(h, i.rwlist, &rw)) return rc;
    if (int rc = names_of(h, i.invalid_users, &invalid)) return rc;

    SqlTable t;
    if (t.query(h, db, KSDB_TAG, "SELECT S.id FROM share S WHERE name=%Q", i.section.c_str()) !=
        SQLITE_OK) {
        KSDB_ERR(h, "Failed DB update 'SELECT share'\n");
        KSDB_ERR(h, "DB Error\n");
        return KSDB_E_DB;
    }
    if (t.rows() == 0) {
        KSDB_WARN(h, "Non exist share='%s' is specified in AFP config. Skip the config.\n",
                  i.section.c_str());
        return 0;
    }
    const int id = std::atoi(t.str(0, 0));
    if (int rc = exec_or_fail(h, db, "Failed DB insert 'REPLACE afp_share_option'\n",
                              "INSERT OR REPLACE INTO afp_share_option (available,share_id,"
                              "afp_access,afp_guest_access) VALUES(%d,%d,'writeable',1)",
                              i.available, id))
        return rc;
    if (int rc = exec_or_fail(h, db, "Failed DB insert 'DELETE user_acl'\n",
                              "DELETE FROM user_acl WHERE share_id=%d AND proto='afp'", id))
        return rc;
    if (int rc = exec_or_fail(h, db, "Failed DB insert 'DELETE group_acl'\n",
                              "DELETE FROM group_acl WHERE share_id=%d AND proto='afp'", id))
        return rc;

    const bool has_rw = given(i.rwlist), has_ro = given(i.rolist), has_valid = given(allow);
    const char *access = "writeable";
    if (has_rw && has_ro)
        access = "disabled";
    else if (has_rw)
        access = has_valid ? "disabled" : "readonly";
    else if (has_ro)
        access = has_valid ? "disabled" : "writeable";
    else if (i.read_only)
        access = "readonly";
    if (std::strcmp(access, "writeable") != 0)
        if (int rc = update_option(h, db, "UPDATE afp_share_option SET afp_access=%Q WHERE "
                                   "share_id=%d", access, id))
            return rc;
    if (_ksdb_cifs_grant_cloud_users(h, db, id, "afp", access) != 0) return KSDB_E_DB;

    if (int rc = _ksdb_afp_add_acl_names(h, db, id, ro, 0)) return rc;
    if (int rc = _ksdb_afp_add_acl_names(h, db, id, rw, 1)) return rc;
    // Users refused by name get an entry without access; the guest accounts
    // are the guest setting, groups are not refused one by one.
    for (const std::string &n : invalid) {
        if (n[0] == '@' || n == "guest" || n == "nobody") continue;
        if (int rc = shares::put_account_acl_logged(h, db, id, "afp", {false, n}, 0, 0, false,
                                                    "Failed DB insert 'INSERT user_acl'\n", ""))
            return rc;
    }
    if ((i.invalid_users && i.invalid_users->find("guest") != std::string::npos) || i.deny_guest)
        if (int rc = update_option(h, db, "UPDATE afp_share_option SET afp_guest_access=0 WHERE "
                                   "share_id=%d", id))
            return rc;
    if (i.directory_perm)
        if (int rc = update_option(h, db, "UPDATE afp_share_option SET afp_dperm=%d WHERE "
                                   "share_id=%d",
                                   static_cast<int>(std::strtol(i.directory_perm->c_str(), nullptr,
                                                                8)),
                                   id))
            return rc;
    if (i.file_perm)
        if (int rc = update_option(h, db, "UPDATE afp_share_option SET afp_fperm=%d WHERE "
                                   "share_id=%d",
                                   static_cast<int>(std::strtol(i.file_perm->c_str(), nullptr, 8)),
                                   id))
            return rc;
    if (i.force_user)
        if (int rc = update_option(h, db, "UPDATE afp_share_option SET force_user=(SELECT id "
                                   "FROM `$user` WHERE uname=%Q) WHERE share_id=%d",
                                   i.force_user->c_str(), id))
            return rc;
    if (i.other_options)
        if (int rc = update_option(h, db, "UPDATE afp_share_option SET other_options="
                                   "IFNULL(other_options,'')||%Q WHERE share_id=%d",
                                   i.other_options->c_str(), id))
            return rc;
    return 0;
}

// Reads one share's afp.conf into the tables.  A share without the file is
// not an AFP share: 0.  5 for a file that cannot be parsed or a list name
// too long or left open; 3 for a failed statement.
int _ksdb_afp_read_share_conf(ksdb_handle *h, sqlite3 *db, const char *volume, const char *share) {
    if (std::strcmp(share, "home") == 0) return 0;
    const std::string live = strprintf("/%s/._share/%s/afp.conf", volume, share);
    if (!shares::path_stays_inside(live)) return 0;
    if (!fs::exists(h, live)) {
        KSDB_DEBUG(h, "This is not AFP share. name = '%s/%s'\n", volume, share);
        return 0;
    }
    afp_share_info info;
    IniContext ctx{h, &info};
    if (ini_parse_file(fs::real_path(h, live).c_str(), section_key, &ctx) != 0) {
        KSDB_ERR(h, "Parse error %s\n", live.c_str());
        return KSDB_E_FILE;
    }
    return insert_share(h, db, info, info.valid_users);
}

int import_usb(ksdb_handle *h, sqlite3 *db) {
    // An unreadable USB file is no error: there are no USB shares.
    ConfFile conf(h, kUsbSharesConf);
    if (!conf.ok()) return 0;
    int rc = 0;
    conf.lines([&](char *line) {
        if (std::optional<std::string> share = shares::usb_media_share(line))
            rc = _ksdb_afp_read_share_conf(h, db, "media", share->c_str());
        return rc == 0;
    });
    return rc;
}

// ---- the older server's volume file ----------------------------------------------

// The next field of a volume line: double-quoted (quotes removed) or up to
// a blank.  False at the end of the line.
bool next_field(std::string_view &rest, std::string *out) {
    while (!rest.empty() && (rest.front() == ' ' || rest.front() == '\t')) rest.remove_prefix(1);
    if (rest.empty()) return false;
    size_t end;
    if (rest.front() == '"') {
        end = rest.find('"', 1);
        out->assign(rest.substr(1, end == std::string_view::npos ? end : end - 1));
        end = end == std::string_view::npos ? rest.size() : end + 1;
    } else {
        end = rest.find_first_of(" \t");
        if (end == std::string_view::npos) end = rest.size();
        out->assign(rest.substr(0, end));
    }
    rest.remove_prefix(end);
    return true;
}

// The next option of a volume line: up to a blank outside double quotes,
// quotes kept.
bool next_option(std::string_view &rest, std::string *out) {
    while (!rest.empty() && (rest.front() == ' ' || rest.front() == '\t')) rest.remove_prefix(1);
    if (rest.empty()) return false;
    size_t end = 0;
    bool quoted = false;
    for (; end < rest.size(); ++end) {
        if (rest[end] == '"') quoted = !quoted;
        else if (!quoted && (rest[end] == ' ' || rest[end] == '\t')) break;
    }
    out->assign(rest.substr(0, end));
    rest.remove_prefix(end);
    return true;
}

std::string unquoted(const std::string &v) {
    if (v.size() >= 2 && v.front() == '"' && v.back() == '"') return v.substr(1, v.size() - 2);
    return v;
}

bool read_only_option(const std::string &v) {
    return v == "ro" || v.compare(0, 3, "ro,") == 0 || v.find(",ro,") != std::string::npos ||
           (v.size() >= 3 && v.compare(v.size() - 3, 3, ",ro") == 0);
}

// One line of the volume file into the tables: 0, 3 or 5.
int migrate_line(ksdb_handle *h, sqlite3 *db, std::string_view line) {
    afp_share_info i;
    constexpr std::string_view kUnavailable = "#dashboard:available=0 ";
    if (line.substr(0, kUnavailable.size()) == kUnavailable) {
        line.remove_prefix(kUnavailable.size());
        i.available = 0;
    } else if (line.empty() || line.front() == '#') {
        return 0;
    }
    std::string path;
    if (!next_field(line, &path) || !next_field(line, &i.section)) return 0;
    if (path == "~" || path == "~/") return 0;  // home folders
    std::optional<std::string> allow, options;
    std::string option;
    while (next_option(line, &option)) {
        const size_t colon = option.find(':');
        if (colon == std::string::npos) continue;
        const std::string key = option.substr(0, colon), value = option.substr(colon + 1);
        if (key == "rwlist") i.rwlist = value;
        else if (key == "rolist") i.rolist = value;
        else if (key == "allow") allow = value;
        else if (key == "options") options = value;
        else if (key == "deny")
            i.deny_guest = value == "guest" || value == "nobody" || value == "\"guest\"" ||
                           value == "\"nobody\"";
        else if (key == "dperm") i.directory_perm = value;
        else if (key == "fperm") i.file_perm = value;
        else if (key == "perm") i.directory_perm = i.file_perm = value;
        else if (key == "forceuid") i.force_user = unquoted(value);
        else if (key != "cnidscheme") i.other_options = value;  // the last one wins
    }
    i.read_only = options && read_only_option(*options);
    return insert_share(h, db, i, allow);
}

// Reads the older server's volume file, on a system that never had the
// sectioned share files.  A missing file is no error.
int migrate_legacy(ksdb_handle *h, sqlite3 *db) {
    std::string text;
    bool missing = false;
    if (read_conf_file(h, kLegacyConf, &text, &missing, kConfFileLimit, kLegacyReadLimit) != 0) {
        KSDB_WARN(h, "Cannot load %s\n", kLegacyConf);
        return 0;
    }
    int rc = 0;
    for_each_line(text.data(), [&](char *line) {
        std::string_view l = line;
        if (!l.empty() && l.back() == '\r') l.remove_suffix(1);
        rc = migrate_line(h, db, l);
        // A failed statement abandons its line only.
        if (rc == KSDB_E_DB) rc = 0;
        return rc == 0;
    });
    return rc;
}

int import_volume_shares(ksdb_handle *h, sqlite3 *db) {
    if (!fs::exists(h, kSharesConf)) return migrate_legacy(h, db);
    return shares::for_each_share_folder(
        h, db,
        [&](const char *volume, const char *share) {
            return _ksdb_afp_read_share_conf(h, db, volume, share);
        },
        true);
}

// ---- the Time Machine folder --------------------------------------------------

int timemachine_path_valid(ksdb_handle *h, sqlite3 *db) {
    std::optional<std::string> volume;
    if (sql_scalar(h, db, nullptr, KSDB_TAG, &volume,
                   "SELECT home_volume_id FROM `account_default` LIMIT 1") != SQLITE_OK) {
        KSDB_ERR(h, "Failed DB Query for SELECT 'account_default'\n");
        return 0;
    }
    if (!volume) {
        KSDB_ERR(h, "home_volume_id is empty!\n");
        return 0;
    }
    // The volume's folder lies at the top of the file system.
    const std::string dir = (volume->empty() || volume->front() != '/' ? "/" : "") + *volume +
                            "/.timemachine/";
    if (!shares::path_stays_inside(dir)) return 0;
    return fs::is_dir(h, dir) && fs::readable(h, dir) ? 1 : 0;
}

}  // namespace
}  // namespace ksdb::afp

KSDB_STEP(_ksdb_afp_share_usb_share_export) { return ksdb::afp::export_all(h, db); }
KSDB_STEP(ksdb_afp_share_export) { return ksdb::afp::export_all(h, db); }
KSDB_STEP(ksdb_afp_share_import) { return ksdb::afp::import_volume_shares(h, db); }
KSDB_STEP(ksdb_afp_usb_share_import) { return ksdb::afp::import_usb(h, db); }

extern "C" int ksdb_is_timemachine_path_valid(ksdb_handle *h, sqlite3 *db) {
    return ksdb::boundary_value(h, KSDB_TAG, __func__, 0,
                                [&] { return ksdb::afp::timemachine_path_valid(h, db); });
}
