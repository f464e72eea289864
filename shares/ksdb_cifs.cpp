// Shares over CIFS: the Samba share sections of every volume share and USB
// share (the global Shares.conf files and each share's own samba.conf with
// its side files), the DFS link file, the user and group quotas, and the
// importers that read the per-share files back into the share tables.
//
// The export works in two passes.  The first reads every row and builds
// every section in memory, checking each value it writes; a value that
// would change the structure of a file is refused (status 4) before
// anything is made or written.  The second prepares the configuration
// folders and writes the files.
#define KSDB_MODULE "ksdb_cifs"
#include "core/ksdb_area.h"

#include "core/ksdb_areas.h"
#include "shares/ksdb_share_common.h"
#include "util/ksdb_misc_utils.h"
#include "util/ksdb_string_utils.h"

#include <strings.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <map>
#include <unordered_map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace ksdb::cifs {
namespace {

using shares::AclEntry;
using shares::kUsbConfVolume;
using shares::AclKind;

constexpr char kSharesConf[] = "/etc/quillfold/samba/Shares.conf";
constexpr char kUsbSharesConf[] = "/run/usb/samba/Shares.conf";
constexpr char kDfsConf[] = "/etc/quillfold/samba/dfs.conf";
constexpr char kGuestSuffix[] = ",\"guest\"";
constexpr long long kMiB = 1048576;

// A DFS link field: the importer splits a line at every "!".
const ValueRule kDfsField{"a DFS link field", "!", 0};

// ---- export ------------------------------------------------------------------

// Every CIFS share with its options; a share without a zfs_attr row is left
// out (inner join).  After the columns every share file needs come the
// share's id, the force user's id and the byte lengths of the texts that
// are written (a text holding a NUL byte reads shorter than it is).
constexpr char kShareQuery[] =
    "SELECT S.name,'\"'||S.comment||'\"',S.path,S.user_id,S.group_id,S.user_access,"
    "S.group_access,S.everyone_access,S.non_owner_delete,CIFS.cifs_access,"
    "CIFS.cifs_guest_access,CIFS.cifs_hide_share,CIFS.cifs_group_create_mask,"
    "CIFS.cifs_everyone_create_mask,CIFS.cifs_enable_masks,CIFS.cifs_group_directory_mask,"
    "CIFS.cifs_everyone_directory_mask,CIFS.cifs_enable_forced_minimum,CIFS.cifs_recycle,"
    "CIFS.oplocks,(SELECT uname FROM `$user` U WHERE U.id=CIFS.force_user),CIFS.available,"
    "Z.mb_quota,Z.mb_reservation,Z.mb_refquota,Z.mb_refreservation,Z.compression,Z.dedup,"
    "S.type,(SELECT V.lv_name FROM _volume V WHERE V.id=S.volume_id)||'/'||S.name,"
    "(SELECT V.lv_name FROM _volume V WHERE V.id=S.volume_id),Z.logbias,S.visible_snapdir,"
    "CIFS.cifs_recycle_age_limit,CIFS.cifs_recycle_mb_limit,IFNULL(Z.sync,'standard'),"
    "CIFS.cifs_enabledfs,IFNULL(SS.enabled,0),Z.bit_rot_protection,"
    "S.id,CIFS.force_user,length(CAST(S.name AS BLOB)),length(CAST(S.comment AS BLOB)),"
    "length(CAST(S.path AS BLOB)),length(CAST((SELECT uname FROM `$user` U WHERE "
    "U.id=CIFS.force_user) AS BLOB)),length(CAST(S.type AS BLOB)),"
    "length(CAST(S.visible_snapdir AS BLOB)) FROM share S INNER JOIN "
    "cifs_share_option CIFS ON CIFS.share_id=S.id INNER JOIN zfs_attr Z ON Z.share_id=S.id "
    "LEFT JOIN snapshot_schedule SS ON SS.share_id=S.id ORDER BY S.name ASC";

enum ShareColumn {
    kName = 0,
    kQuotedComment = 1,
    kPath = 2,
    kNonOwnerDelete = 8,
    kAccess = 9,
    kGuestAccess = 10,
    kHideShare = 11,
    kGroupCreateMask = 12,
    kEveryoneCreateMask = 13,
    kEnableMasks = 14,
    kGroupDirectoryMask = 15,
    kEveryoneDirectoryMask = 16,
    kForceUser = 20,
    kAvailable = 21,
    kType = 28,
    kDataset = 29,
    kVolume = 30,
    kVisibleSnapdir = 32,
    kRecycleAgeLimit = 33,
    kRecycleMbLimit = 34,
    kEnableDfs = 36,
    kSnapshotEnabled = 37,
    kShareId = 39,
    kForceUserId = 40,
    kNameBytes = 41,
    kCommentBytes = 42,
    kPathBytes = 43,
    kForceUserBytes = 44,
    kTypeBytes = 45,
    kSnapdirBytes = 46,
};

constexpr char kAdminNameQuery[] =
    "SELECT CASE WHEN security='user' THEN 'Administrator' ELSE "
    "workgroup||'\\'||domain_admin_user END FROM service_cifs";
constexpr char kDomainPrefixQuery[] =
    "SELECT CASE WHEN security='user' THEN '' ELSE workgroup||'\\' END FROM service_cifs";

// The application names of each share by its dataset name, folded as the
// column compares it.
using Applications = std::unordered_map<std::string, std::vector<std::string>>;

// What every share's section takes from outside its row, read at the first
// share: the administrators list, the domain prefix of account names, the
// access entries of all shares, and the applications on every share.
struct ExportContext {
    sqlite3 *db = nullptr;
    std::optional<std::string> admin;
    bool acl_ready = false;
    std::string prefix;
    shares::AclIndex users, groups, hosts;
    std::optional<Applications> apps;
    bool apps_failed = false;
};


// The access lists of one share as the share sections use them; an empty
// string stands for a list without entries.
struct AclLists {
    std::string read, write, valid, invalid, allowed_hosts, denied_hosts;
};

// "== 1" of the share query's text columns: the text reads as the integer 1.
bool is_one(const char *v) { return v && std::strtol(v, nullptr, 10) == 1; }

bool non_empty(const char *v) { return v && *v; }

// Reads the domain prefix and every CIFS access entry once: -1 after the
// failure line of the list the failed read would have given first.
int load_acl(ksdb_handle *h, sqlite3 *db, ExportContext &ctx, const char *share) {
    std::optional<std::string> prefix;
    if (sql_scalar(h, db, nullptr, KSDB_TAG, &prefix, kDomainPrefixQuery) != 0) {
        KSDB_ERR(h, "Failed DB Query for cifs service\n");
        return -1;
    }
    ctx.prefix = prefix.value_or("");
    if (!ctx.prefix.empty()) {
        // The prefix is the workgroup and a backslash.
        const std::string workgroup = ctx.prefix.substr(0, ctx.prefix.size() - 1);
        if (int rc = guard_value(h, workgroup, rules::kSambaListEntry,
                                 {"service_cifs", "workgroup", "cifs"}))
            return rc;
    }
    if (ctx.users.load(h, db, AclKind::kUsers, "cifs") != 0) {
        KSDB_ERR(h, "Failed to get read_user_list for share '%s'\n", share);
        return -1;
    }
    if (ctx.groups.load(h, db, AclKind::kGroups, "cifs") != 0) {
        KSDB_ERR(h, "Failed to get read_group_list for share '%s'\n", share);
        return -1;
    }
    if (ctx.hosts.load(h, db, AclKind::kHosts, "cifs") != 0) {
        KSDB_ERR(h, "Failed to get host_acl for share '%s'\n", share);
        return -1;
    }
    ctx.acl_ready = true;
    return 0;
}

// The timed access-list step of one share: the seven account lists and the
// allowed and denied hosts, every name in them checked.  0, -1 when the
// entries cannot be read, or 4 for a name refused.
int _ksdb_cifs_selectdb_acl_list(ksdb_handle *h, sqlite3 *db, ExportContext &ctx,
                                 long long share_id, const char *share, const char *access,
                                 AclLists *out) {
    return logged(h, KSDB_TAG, "_ksdb_cifs_selectdb_acl_list", [&]() -> int {
        if (!ctx.acl_ready)
            if (int rc = load_acl(h, db, ctx, share)) return rc;
        const std::vector<AclEntry> &users = ctx.users.of(share_id);
        const std::vector<AclEntry> &groups = ctx.groups.of(share_id);
        const std::vector<AclEntry> &hosts = ctx.hosts.of(share_id);
        const std::string user_lead = ctx.prefix, group_lead = "@" + ctx.prefix;
        auto read_only = [](const AclEntry &e) { return e.read == 1 && e.write == 0; };
        auto writer = [](const AclEntry &e) { return e.write == 1; };
        auto any = [](const AclEntry &) { return true; };
        // Only cloud users (primary group 97) without access are listed as
        // invalid: other users without an entry of their own are kept out by
        // the valid-users list of a disabled share already.
        auto cloud_denied = [](const AclEntry &e) {
            return e.read == 0 && e.write == 0 && e.group_id == 97;
        };
        std::string l[7];
        const struct {
            AclKind kind;
            const std::vector<AclEntry> &entries;
            const std::string &lead;
            std::function<bool(const AclEntry &)> keep;
        } lists[] = {
            {AclKind::kUsers, users, user_lead, read_only},
            {AclKind::kGroups, groups, group_lead, read_only},
            {AclKind::kUsers, users, user_lead, writer},
            {AclKind::kGroups, groups, group_lead, writer},
            {AclKind::kUsers, users, user_lead, any},
            {AclKind::kUsers, users, user_lead, cloud_denied},
            {AclKind::kGroups, groups, group_lead, any},
        };
        for (size_t i = 0; i < std::size(lists); ++i)
            if (int rc = shares::join_quoted(h, lists[i].kind, lists[i].entries, lists[i].lead,
                                             lists[i].keep, &l[i]))
                return rc;
        out->read = shares::join_lists(l[0], l[1]);
        out->write = shares::join_lists(l[2], l[3]);
        out->valid = shares::join_lists(l[4], l[6]);
        out->invalid = l[5];
        const std::string none;
        if (int rc = shares::join_quoted(
                h, AclKind::kHosts, hosts, none, [](const AclEntry &e) { return e.read == 1; },
                &out->allowed_hosts))
            return rc;
        if (int rc = shares::join_quoted(
                h, AclKind::kHosts, hosts, none, [](const AclEntry &e) { return e.read == 0; },
                &out->denied_hosts))
            return rc;
        KSDB_DEBUG(h,
                   "Share[%s] cifs_access[%s] read_list[%s] write_list[%s] valid_list[%s] "
                   "invalid_list[%s]\n",
                   share, access, out->read.c_str(), out->write.c_str(), out->valid.c_str(),
                   out->invalid.c_str());
        return 0;
    });
}

// "+admin" (the administrators group) and the administrator's name, each in
// double quotes: the administrators keep their rights on every share
// whatever its lists say.
int admin_list(ksdb_handle *h, sqlite3 *db, ExportContext &ctx) {
    if (ctx.admin) return 0;
    std::optional<std::string> name;
    if (sql_scalar(h, db, nullptr, KSDB_TAG, &name, kAdminNameQuery) != 0) {
        KSDB_ERR(h, "Failed DB Query for cifs service\n");
        name.reset();
    }
    const std::string admin = name.value_or("Administrator");
    if (int rc = guard_value(h, admin, rules::kSambaListEntry,
                             {"service_cifs", "domain_admin_user", "cifs"}))
        return rc;
    ctx.admin = "\"+admin\",\"" + admin + "\"";
    return 0;
}

// The access lines of a share section by its default access.
void write_access_lines(std::string &out, const char *access, const AclLists &acl,
                        const std::string &admin, const char *guest) {
    const std::string &rd = acl.read;
    const std::string &wr = acl.write;
    const char *a = admin.c_str();
    if (shares::access_is(access, "disabled")) {
        // Nobody but the listed accounts and the administrators.
        if (rd.empty() && !wr.empty()) {
            out += strprintf("  write list = %s,%s\n", wr.c_str(), a);
            out += strprintf("  valid users = %s,%s%s\n", wr.c_str(), a, guest);
        } else if (rd.empty()) {
            out += strprintf("  write list = %s\n", a);
            out += strprintf("  valid users = %s%s\n", a, guest);
        } else if (!wr.empty()) {
            out += strprintf("  read list = %s\n", rd.c_str());
            out += strprintf("  write list = %s,%s\n", wr.c_str(), a);
            out += strprintf("  valid users = %s,%s%s\n", acl.valid.c_str(), a, guest);
        } else {
            out += strprintf("  read list = %s\n", rd.c_str());
            out += strprintf("  write list = %s\n", a);
            out += strprintf("  valid users = %s,%s%s\n", rd.c_str(), a, guest);
        }
    } else if (shares::access_is(access, "readonly")) {
        if (!wr.empty())
            out += strprintf("  write list = %s,%s\n", wr.c_str(), a);
        else
            out += strprintf("  write list = %s\n", a);
    } else {
        if (!rd.empty()) out += strprintf("  read list = %s\n", rd.c_str());
        out += "  writeable = 1\n";
    }
}

// The applications installed on shares, read at the first share that asks,
// in the order of the index on (zfs_name, app_name): one query for all
// shares, not one per share.  The dataset name is folded as the column's
// NOCASE compares (ASCII letters only).  nullopt when the table cannot be
// read.
std::string nocase_key(std::string_view text) {
    std::string key(text);
    for (char &c : key)
        if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
    return key;
}

std::optional<Applications> load_applications(ksdb_handle *h, sqlite3 *db) {
    SqlTable apps;
    if (apps.query(h, db, KSDB_TAG,
                   "SELECT A.zfs_name,A.app_name,length(CAST(A.app_name AS BLOB)) FROM "
                   "`$application_on_share` A ORDER BY A.zfs_name,A.app_name") != SQLITE_OK)
        return std::nullopt;
    Applications out;
    for (int r = 0; r < apps.rows(); ++r) {
        std::optional<std::string> app = shares::exact_text(apps.at(r, 1), apps.at(r, 2));
        if (!app || !apps.at(r, 0)) continue;
        out[nocase_key(apps.at(r, 0))].push_back(std::move(*app));
    }
    return out;
}

// The include line of the first application on the share that brings a
// readable Samba include file (the target file only): at most one per
// share.  Every application name is checked before any file is looked at.
int application_include(ksdb_handle *h, ExportContext &ctx, const char *dataset,
                        const char *share, std::string *out) {
    if (!ctx.apps) {
        std::optional<Applications> loaded = load_applications(h, ctx.db);
        ctx.apps_failed = !loaded;
        ctx.apps = loaded ? std::move(*loaded) : Applications();
    }
    if (ctx.apps_failed) {
        KSDB_WARN(h, "Failed DB Query for applications on share '%s'\n", share);
        return 0;
    }
    auto found = ctx.apps->find(nocase_key(dataset));
    if (found == ctx.apps->end()) return 0;
    const std::vector<std::string> &names = found->second;
    for (const std::string &app : names) {
        const std::string row = std::string(dataset) + ":" + app;
        if (int rc = guard_value(h, app, shares::rules::kAppName,
                                 {"$application_on_share", "app_name", row}))
            return rc;
    }
    for (const std::string &app : names) {
        const std::string candidates[] = {
            "/apps/" + app + "/etc/samba.include",
            "/apps/" + app + "/etc/samba.include.x86_64",
            "/apps/" + std::string(share) + "/etc/samba." + app + ".include.x86_64",
        };
        for (const std::string &live : candidates) {
            if (fs::readable(h, live)) {
                *out = "  include = " + live + "\n";
                return 0;
            }
        }
    }
    return 0;
}

// A mask string: "0664" or "0777" with its group and other digits taken
// from the first character of each non-empty column.
std::string mask_string(const char *base, const char *group, const char *other) {
    std::string m = base;
    if (non_empty(group)) m[2] = group[0];
    if (non_empty(other)) m[3] = other[0];
    return m;
}

// One share as the export writes it.
struct Section {
    std::string name, volume;
    bool usb = false;      // the USB Shares.conf is its target
    std::string text;      // the section, in the target and in the share's own file
    std::string include;   // the application include, in the target only
    std::string recycle, type, snapdir;  // the side files' lines
};

// Builds the section of one row, checking every value it writes: 0, 3 when
// the access lists cannot be read, or 4.
int build_section(ksdb_handle *h, sqlite3 *db, ExportContext &ctx, const SqlTable &rows, int r,
                  Section *s) {
    auto col = [&](int c) { return rows.at(r, c); };
    auto exact = [&](int c, int bytes) { return shares::exact_text(col(c), col(bytes)); };
    s->name = exact(kName, kNameBytes).value_or("");
    s->volume = col(kVolume);
    const std::string &name = s->name;
    auto from = [&](const char *table, const char *column) {
        return ValueSource{table, column, name};
    };
    if (int rc = shares::guard_share_name(h, name, from("share", "name"))) return rc;
    const std::string path = exact(kPath, kPathBytes).value_or("");
    if (int rc = guard_value(h, path, shares::rules::kSharePath, from("share", "path"))) return rc;
    // The comment column arrives in double quotes (NULL stays NULL); a
    // stored NUL byte cuts the quoted text short of its closing quote.
    const char *quoted = col(kQuotedComment);
    if (quoted) {
        const size_t len = std::strlen(quoted);
        const long long bytes = std::strtoll(rows.str(r, kCommentBytes), nullptr, 10);
        const bool cut = static_cast<long long>(len) < bytes + 2;
        std::string comment(quoted + 1, cut ? len - 1 : len - 2);
        if (cut) comment.push_back('\0');
        if (int rc = guard_value(h, comment, rules::kSambaValue, from("share", "comment")))
            return rc;
    }
    s->usb = path.compare(0, 7, "/media/") == 0;
    std::string &out = s->text;
    out += "[" + name + "]\n";
    out += "  path = " + path + "\n";
    out += "  comment = " + std::string(quoted ? quoted : "") + "\n";
    if (is_one(col(kHideShare))) out += "  browseable = 0\n";
    const char *guest = "";
    if (is_one(col(kGuestAccess))) {
        if (int rc = guard_value(h, col(kGuestAccess), rules::kSambaValue,
                                 from("cifs_share_option", "cifs_guest_access")))
            return rc;
        out += strprintf("  guest ok = %s\n", col(kGuestAccess));
        guest = kGuestSuffix;
    }
    if (is_one(col(kEnableDfs))) out += "  msdfs root = yes\n";
    if (is_one(col(kEnableMasks))) {
        static const struct {
            int column;
            const char *name;
        } kMasks[] = {{kGroupCreateMask, "cifs_group_create_mask"},
                      {kEveryoneCreateMask, "cifs_everyone_create_mask"},
                      {kGroupDirectoryMask, "cifs_group_directory_mask"},
                      {kEveryoneDirectoryMask, "cifs_everyone_directory_mask"}};
        for (const auto &m : kMasks)
            if (non_empty(col(m.column)))
                if (int rc = guard_value(h, std::string_view(col(m.column), 1),
                                         rules::kSambaValue, from("cifs_share_option", m.name)))
                    return rc;
        std::string create = mask_string("0664", col(kGroupCreateMask), col(kEveryoneCreateMask));
        out += "  force create mode = " + create + "\n";
        out += "  create mask = " + create + "\n";
        std::string dir =
            mask_string("0777", col(kGroupDirectoryMask), col(kEveryoneDirectoryMask));
        if (is_one(col(kNonOwnerDelete))) dir[0] = '1';  // the sticky bit
        out += "  force directory mode = " + dir + "\n";
        out += "  directory mask = " + dir + "\n";
    }
    if (int rc = admin_list(h, db, ctx)) return rc;
    const std::string &admin = *ctx.admin;
    out += "  admin users = " + admin + "\n";

    const char *access = col(kAccess);
    AclLists acl;
    const long long share_id = std::strtoll(rows.str(r, kShareId), nullptr, 10);
    if (int rc = _ksdb_cifs_selectdb_acl_list(h, db, ctx, share_id, name.c_str(),
                                              access ? access : "", &acl))
        return rc == KSDB_E_INVAL ? rc : static_cast<int>(KSDB_E_DB);

    if (col(kAvailable) && std::strtol(col(kAvailable), nullptr, 10) == 0)
        out += "  available = 0\n";
    write_access_lines(out, access, acl, admin, guest);
    if (!acl.invalid.empty()) out += "  invalid users = " + acl.invalid + "\n";
    if (!acl.allowed_hosts.empty()) out += "  hosts allow = " + acl.allowed_hosts + "\n";
    // Denied hosts stay commented out: Samba does not enforce them, and the
    // importer reads them back from this line.
    if (!acl.denied_hosts.empty()) out += "  #hosts allow = " + acl.denied_hosts + "\n";

    const int age = col(kRecycleAgeLimit) ? std::atoi(col(kRecycleAgeLimit)) : 0;
    const int size = col(kRecycleMbLimit) ? std::atoi(col(kRecycleMbLimit)) : 0;
    s->recycle = strprintf("%d,%d", age, size);

    if (std::strtol(rows.str(r, kSnapshotEnabled), nullptr, 10) != 0)
        out += "  follow symlinks = 1\n";
    std::optional<std::string> force_user = exact(kForceUser, kForceUserBytes);
    if (force_user && !force_user->empty()) {
        if (int rc = guard_value(h, *force_user, shares::rules::kAccountValue,
                                 {"$user", "uname", rows.str(r, kForceUserId)}))
            return rc;
        out += "  force user = " + *force_user + "\n";
    }

    s->type = exact(kType, kTypeBytes).value_or("share");
    s->snapdir = exact(kVisibleSnapdir, kSnapdirBytes).value_or("");
    if (int rc = guard_value(h, s->type, rules::kLine, from("share", "type"))) return rc;
    if (int rc = guard_value(h, s->snapdir, rules::kLine, from("share", "visible_snapdir")))
        return rc;
    return application_include(h, ctx, rows.str(r, kDataset), name.c_str(), &s->include);
}

// The first pass: every share's section, in name order.  Rows without a
// volume are left out.
int build_sections(ksdb_handle *h, sqlite3 *db, std::vector<Section> *out) {
    SqlTable rows;
    if (rows.query(h, db, KSDB_TAG, kShareQuery) != SQLITE_OK) {
        KSDB_ERR(h, "Failed DB Query for cifs share\n");
        return KSDB_E_DB;
    }
    ExportContext ctx;
    ctx.db = db;
    for (int r = 0; r < rows.rows(); ++r) {
        if (!rows.at(r, kVolume)) continue;
        Section s;
        if (int rc = build_section(h, db, ctx, rows, r, &s)) return rc;
        out->push_back(std::move(s));
    }
    return 0;
}

// The DFS links, one line each: share id, folder, target address, target
// share, volume and share, joined by "!!".  A NULL value is written as the
// C library prints a null string.
int build_dfs(ksdb_handle *h, sqlite3 *db, std::string *out) {
    SqlTable links;
    if (links.query(h, db, KSDB_TAG,
                    "SELECT D.share_id,D.folder,D.address,D.remote_share,D.volume,D.share,"
                    "length(CAST(D.share_id AS BLOB)),length(CAST(D.folder AS BLOB)),"
                    "length(CAST(D.address AS BLOB)),length(CAST(D.remote_share AS BLOB)),"
                    "length(CAST(D.volume AS BLOB)),length(CAST(D.share AS BLOB)) FROM "
                    "cifs_dfs_option D") != SQLITE_OK) {
        KSDB_ERR(h, "Failed DB Query for cifs_dfs_option\n");
        return KSDB_E_DB;
    }
    static const char *const kColumns[] = {"share_id", "folder", "address",
                                           "remote_share", "volume", "share"};
    for (int r = 0; r < links.rows(); ++r) {
        const std::string row = std::string(links.str(r, 0)) + "/" + links.str(r, 1);
        for (int c = 0; c < 6; ++c) {
            std::optional<std::string> v = shares::exact_text(links.at(r, c), links.at(r, c + 6));
            if (v) {
                if (int rc = guard_value(h, *v, kDfsField, {"cifs_dfs_option", kColumns[c], row}))
                    return rc;
            }
            *out += v ? *v : "(null)";
            *out += c < 5 ? "!!" : "\n";
        }
    }
    return 0;
}

// The second pass: each share's side files and own file, then the two
// global files, then the own copies of the USB shares.  A share whose
// configuration folder cannot be prepared is left out of every file.
int write_sections(ksdb_handle *h, const std::vector<Section> &sections, ManagedFile &main_out,
                   ManagedFile &usb_out) {
    std::string usb_text;
    for (const Section &s : sections) {
        const char *volume = s.volume.c_str(), *name = s.name.c_str();
        std::string own_path;
        if (share_conf_path(h, volume, name, "samba", &own_path) != 0) continue;
        const std::string conf_dir = own_path.substr(0, own_path.rfind('/'));
        ManagedFile own(h, shares::share_file_spec(own_path));
        if (!own.ok()) {
            KSDB_ERR(h, "Cannot open temporary file of cifs share conf for write (%s)\n",
                     std::strerror(errno));
            return KSDB_E_FILE;
        }
        own.write(s.text);
        const std::pair<const char *, const std::string *> side[] = {
            {"recycle", &s.recycle}, {"datasettype", &s.type}, {"snapdir", &s.snapdir}};
        for (const auto &[file, line] : side)
            if (shares::write_side_file(h, conf_dir, file, *line) != 0)
                KSDB_WARN(h, "Cannot write %s.conf of share '%s'\n", file, name);
        if (own.commit() != 0) return KSDB_E_FILE;
        ManagedFile &target = s.usb ? usb_out : main_out;
        target.write(s.text);
        target.write(s.include);
        if (s.usb) usb_text += s.text + s.include;
    }
    // A USB file that cannot be replaced leaves the USB shares as they were;
    // only the volume shares' file decides the result.
    usb_out.commit();
    if (main_out.commit() != 0) return KSDB_E_FILE;

    // Each USB share's own copy holds every section of the USB file whose
    // header contains the share's name anywhere.
    for (const Section &s : sections) {
        if (s.volume != "media") continue;
        std::string live;
        if (share_conf_path(h, kUsbConfVolume, s.name.c_str(), "samba", &live) != 0) continue;
        ManagedFile own(h, shares::share_file_spec(live));
        if (!own.ok()) {
            KSDB_ERR(h, "Cannot open temporary file of cifs share conf for write (%s)\n",
                     std::strerror(errno));
            return KSDB_E_FILE;
        }
        own.write(shares::sections_naming(usb_text, s.name));
        if (own.commit() != 0) return KSDB_E_FILE;
    }
    return 0;
}

// Hands each user and group quota to the file-system attribute setter.  The
// setter's result is not ours to judge: a quota it cannot set does not stop
// the export.
int export_quotas(ksdb_handle *h, sqlite3 *db) {
    static const struct {
        const char *sql;
        const char *failure;
    } kQuotas[] = {
        {"SELECT 'userquota@'||Q.user_id,S.zfs_name,Q.mb_hard*%lld FROM user_quota Q INNER JOIN "
         "share S ON S.id=Q.share_id",
         "Error in SELECT user_quota.\n"},
        {"SELECT 'groupquota@'||Q.group_id,S.zfs_name,Q.mb_hard*%lld FROM group_quota Q INNER "
         "JOIN share S ON S.id=Q.share_id",
         "Error in SELECT group_quota.\n"},
    };
    for (const auto &q : kQuotas) {
        SqlTable t;
        if (t.query(h, db, KSDB_TAG, q.sql, kMiB) != SQLITE_OK) {
            KSDB_ERR(h, "%s", q.failure);
            return KSDB_E_DB;
        }
        for (int r = 0; r < t.rows(); ++r) {
            // The dataset "volume/share" is the share folder "/volume/share";
            // a quota without a hard limit is "none".
            std::string dataset = "/" + std::string(t.str(r, 1));
            ksdb_btrfs_set_attr(h, dataset.c_str(), t.str(r, 0), t.at(r, 2) ? t.at(r, 2) : "none");
        }
    }
    return 0;
}

int write_all(ksdb_handle *h, sqlite3 *db);

int export_all(ksdb_handle *h, sqlite3 *db) {
    // Four files in each share's folder: each folder is flushed once, at
    // the end, not after each of its files.
    FolderSyncBatch folders(h);
    if (int rc = write_all(h, db)) {
        folders.flush();
        return rc;
    }
    if (folders.flush() != 0) return KSDB_E_FILE;
    return export_quotas(h, db);
}

int write_all(ksdb_handle *h, sqlite3 *db) {
    ManagedFile main_out(h, kSharesConf);
    if (!main_out.ok()) {
        KSDB_ERR(h, "Cannot open temporary file of cifs share conf for write (%s)\n",
                 std::strerror(errno));
        return KSDB_E_FILE;
    }
    ManagedFile usb_out(h, kUsbSharesConf);
    if (!usb_out.ok()) {
        // main_out closes and removes its temporary file on the way out.
        KSDB_ERR(h, "Cannot open temporary file of usb share conf for write (%s)\n",
                 std::strerror(errno));
        return KSDB_E_FILE;
    }
    std::vector<Section> sections;
    if (int rc = build_sections(h, db, &sections)) return rc;
    std::string dfs;
    if (int rc = build_dfs(h, db, &dfs)) return rc;

    if (int rc = write_sections(h, sections, main_out, usb_out)) return rc;
    ManagedFile dfs_out(h, kDfsConf);
    if (!dfs_out.ok()) {
        KSDB_ERR(h, "Cannot open temporary file of cifs dfs conf for write (%s)\n",
                 std::strerror(errno));
        return KSDB_E_FILE;
    }
    dfs_out.write(dfs);
    return dfs_out.commit() != 0 ? KSDB_E_FILE : 0;
}

// ---- import ------------------------------------------------------------------

// Parsed share sections by share name.
using ShareConfs = std::map<std::string, KeyValues>;

bool look_ahead_skips(const char *following) {
    return following && (*following == '#' || *following == '$' || *following == ';');
}

// Reads one per-share samba.conf into `confs` under the share name the
// enumerator gives.  A share whose file cannot be parsed is recorded as
// absent.
int _ksdb_cifs_read_share_conf(ksdb_handle *h, const char *volume, const char *share,
                               ShareConfs &confs) {
    const std::string live = strprintf("/%s/._share/%s/samba.conf", volume, share);
    if (!shares::path_stays_inside(live)) return 0;
    ConfFile conf(h, live);
    if (conf.missing()) {
        KSDB_INFO(h, "This is not CIFS share. name = '%s/%s'\n", volume, share);
        return 0;
    }
    if (!conf.ok()) {
        KSDB_ERR(h, "Cannot load %s\n", live.c_str());
        confs.erase(share);
        return KSDB_E_FILE;
    }
    std::optional<KeyValues> section;
    bool two_sections = false;
    conf.joined_lines([&](char *line, const char *following) {
        skip_space(&line);
        if (*line == '[') {
            if (section) {
                KSDB_ERR(h, "There seems two share in one config.\n");
                two_sections = true;
                return false;
            }
            section.emplace();  // the section name itself is not used
            return true;
        }
        if (!section) return true;
        // Deliberately kept: a line is dropped when the line after it starts
        // with "#", "$" or ";".  The exporter's lines start with two blanks,
        // so its own "  #hosts allow" lines never trigger this.
        if (look_ahead_skips(following)) return true;
        char *cursor = line;
        char *key = nullptr, *value = nullptr, *extra = nullptr;
        if (split(&cursor, "=", &key, &value, &extra, nullptr) != 2) return true;
        section->set(ksdb_trim(key, " \t\r\n", " \t\r\n", 1),
                     ksdb_trim(value, " \t\r\n", " \t\r\n", 1));
        return true;
    });
    if (two_sections || !section) {
        KSDB_ERR(h, "Cannot parse cifs share conf file. %s\n", live.c_str());
        confs.erase(share);
        return KSDB_E_FILE;
    }
    confs[share] = std::move(*section);
    return 0;
}

// One share as read from its section.  Strings are NULL (nullopt) when the
// key was not given.
struct cifs_share_info {
    std::string name;
    std::optional<std::string> comment, path;
    int oplocks = 0, readonly = 0, writeable = 0;
    std::optional<std::string> valid_users, invalid_users;
    int unavailable = 0;
    std::optional<std::string> read_list, write_list, admin_users;
    int create_mask = 0, directory_mask = 0, hidden = 0, guest_ok = 0;
    int force_security_mode = 0, force_directory_security_mode = 0;
    std::optional<std::string> force_user;
    int recycle = 0;
    std::optional<std::string> hosts_allow, hosts_deny, msdfs_root;
};

enum class Kind { String, Bool, InverseBool, Octal, Ignored };

struct KeyRule {
    const char *key;
    Kind kind;
    int cifs_share_info::*number;
    std::optional<std::string> cifs_share_info::*text;
};

using I = cifs_share_info;
const KeyRule cifs_share_keys[] = {
    {"path", Kind::String, nullptr, &I::path},
    {"comment", Kind::String, nullptr, &I::comment},
    {"oplocks", Kind::Bool, &I::oplocks, nullptr},
    {"force create mode", Kind::Ignored, nullptr, nullptr},
    {"create mask", Kind::Octal, &I::create_mask, nullptr},
    {"create mode", Kind::Octal, &I::create_mask, nullptr},
    {"force directory mode", Kind::Ignored, nullptr, nullptr},
    {"directory mask", Kind::Octal, &I::directory_mask, nullptr},
    {"directory mode", Kind::Octal, &I::directory_mask, nullptr},
    {"admin users", Kind::String, nullptr, &I::admin_users},
    {"read list", Kind::String, nullptr, &I::read_list},
    {"available", Kind::InverseBool, &I::unavailable, nullptr},
    {"write list", Kind::String, nullptr, &I::write_list},
    {"valid users", Kind::String, nullptr, &I::valid_users},
    {"invalid users", Kind::String, nullptr, &I::invalid_users},
    {"force user", Kind::String, nullptr, &I::force_user},
    {"msdfs root", Kind::String, nullptr, &I::msdfs_root},
    {"hosts allow", Kind::String, nullptr, &I::hosts_allow},
    {"#hosts allow", Kind::String, nullptr, &I::hosts_deny},
    {"allow hosts", Kind::String, nullptr, &I::hosts_allow},
    {"readonly", Kind::Bool, &I::readonly, nullptr},
    {"read only", Kind::Bool, &I::readonly, nullptr},
    {"writeable", Kind::Bool, &I::writeable, nullptr},
    {"writable", Kind::Bool, &I::writeable, nullptr},
    {"browseable", Kind::InverseBool, &I::hidden, nullptr},
    {"browsable", Kind::InverseBool, &I::hidden, nullptr},
    {"guest ok", Kind::Bool, &I::guest_ok, nullptr},
    {"public", Kind::Bool, &I::guest_ok, nullptr},
    {"force security mode", Kind::Octal, &I::force_security_mode, nullptr},
    {"force directory security mode", Kind::Octal, &I::force_directory_security_mode, nullptr},
    {"vfs objects", Kind::Ignored, nullptr, nullptr},
};

// Keys the table does not handle, by prefix: any "recycle:" parameter means
// the recycle bin is on (its value is not used).
struct PrefixRule {
    const char *prefix;
    int cifs_share_info::*flag;
};
const PrefixRule cifs_share_key_prefixes[] = {
    {"recycle:", &I::recycle},
};

bool yes(const std::string &v) { return strcasecmp(v.c_str(), "yes") == 0 || v == "1"; }

// The value without one pair of surrounding double quotes.
std::string unquoted(const std::string &v) {
    if (v.size() >= 2 && v.front() == '"' && v.back() == '"') return v.substr(1, v.size() - 2);
    return v;
}

void apply_key(cifs_share_info &rec, const std::string &key, const std::string &value) {
    for (const KeyRule &rule : cifs_share_keys) {
        if (strcasecmp(rule.key, key.c_str()) != 0) continue;
        switch (rule.kind) {
            case Kind::String: rec.*rule.text = unquoted(value); break;
            case Kind::Bool: rec.*rule.number = yes(value); break;
            case Kind::InverseBool: rec.*rule.number = !yes(value); break;
            case Kind::Octal:
                rec.*rule.number = static_cast<int>(std::strtol(value.c_str(), nullptr, 8));
                break;
            case Kind::Ignored: break;
        }
        return;
    }
    for (const PrefixRule &rule : cifs_share_key_prefixes) {
        if (strncasecmp(key.c_str(), rule.prefix, std::strlen(rule.prefix)) == 0) {
            rec.*rule.flag = 1;
            return;
        }
    }
}

int insert_hosts(ksdb_handle *h, sqlite3 *db, int share_id, const std::optional<std::string> &list,
                 int rights, const char *failure) {
    if (!list) return 0;
    for (const std::string &host : shares::split_list(*list)) {
        int host_id = 0;
        if (shares::get_host_id(h, db, host.c_str(), &host_id) != 0) return -1;
        if (shares::put_host_acl(h, db, share_id, host_id, "cifs", rights, rights) != SQLITE_OK) {
            KSDB_ERR(h, "%s", failure);
            return -1;
        }
    }
    return 0;
}

// The explicit account entries of the share: read list (level 1), write
// list (2) and invalid users (3), a later list winning for a name that is
// in several.  The administrators are not given entries: they have their
// rights on every share.
int insert_accounts(ksdb_handle *h, sqlite3 *db, int share_id, const cifs_share_info &rec) {
    std::map<std::string, int> levels;
    const std::pair<const std::optional<std::string> *, int> lists[] = {
        {&rec.read_list, 1}, {&rec.write_list, 2}, {&rec.invalid_users, 3}};
    for (const auto &[list, level] : lists)
        if (*list)
            for (const std::string &name : shares::split_list(**list))
                if (!ksdb_is_admin_user(h, name.c_str())) levels[name] = level;

    for (const auto &[entry, level] : levels) {
        const shares::AccountRef account = shares::parse_account(entry, true);
        if (shares::put_account_acl(h, db, share_id, "cifs", account, level == 1 || level == 2,
                                    level == 2) != SQLITE_OK) {
            KSDB_ERR(h, "Failed DB insert into %s_acl\n", account.group ? "group" : "user");
            return -1;
        }
    }
    return 0;
}

// Makes a missing share folder: 0777 whatever the umask, owned by root (the
// section carries no owner), so every user can write until an
// administrator narrows it.  False (logged) when it cannot be made.
bool make_share_folder(ksdb_handle *h, const std::string &path) {
    KSDB_WARN(h, "'%s' not exist, ignored. Create it.\n", path.c_str());
    if (!fs::make_dir(h, path, 0777)) {
        int err = errno;
        KSDB_WARN(h, "Error in mkdir(%s) %d (%s)\n", path.c_str(), err, std::strerror(err));
        return false;
    }
    if (!fs::chown(h, path, 0, 0)) {
        int err = errno;
        KSDB_WARN(h, "Error in chown(%s) %d (%s)\n", path.c_str(), err, std::strerror(err));
        return false;
    }
    return true;
}

// Writes one share into the share tables: 0 (also for a share that is
// skipped: a path that would lead out of the file system's root, or a
// missing folder that could not be made), or -1.
int _ksdb_cifs_insertdb_share_info(ksdb_handle *h, sqlite3 *db, const cifs_share_info &rec) {
    const std::string path = rec.path.value_or("");
    const char *name = rec.name.c_str();
    // A relative path, or one through "..", is never looked at: it could
    // lead out of the volume (or the debug root).
    if (!shares::path_stays_inside(path)) {
        KSDB_ERR(h, "share path (%s) should be /vol/share format\n", path.c_str());
        return 0;
    }
    // The folder first, then the form of its path: a share whose folder is
    // missing and cannot be made is skipped, whatever its path.
    struct stat st;
    if (!fs::stat(h, path, &st)) {
        if (!make_share_folder(h, path) || !fs::stat(h, path, &st)) return 0;
    }
    std::string volume, share_dir;
    if (!shares::split_volume_share(path, &volume, &share_dir)) {
        KSDB_ERR(h, "share path (%s) should be /vol/share format\n", path.c_str());
        return -1;
    }

    const std::string conf_dir = share_conf_dir(volume, share_dir);
    // The dataset-type file is read once: its line, up to 63 bytes, gives
    // the type (up to 31) and, below, the recycle limits.
    const std::optional<std::string> type_line =
        shares::read_side_file(h, conf_dir, "datasettype.conf", 64);
    std::string type = type_line ? type_line->substr(0, 31) : "share";
    while (!type.empty() && (type.back() == '\r' || type.back() == '\n')) type.pop_back();
    const std::string snapdir =
        shares::read_side_file(h, conf_dir, "snapdir.conf", 256).value_or("");
    // The recycle limits are read from the dataset-type file, not from
    // recycle.conf: kept so, which makes them 0 days and 25000 MB in
    // practice.
    const std::string recycle = type_line.value_or("0,25000");
    int age_limit = 0, size_limit = 25000;
    std::sscanf(recycle.c_str(), "%64d,%64d", &age_limit, &size_limit);

    SqlTable on_volume;
    if (on_volume.query(h, db, KSDB_TAG,
                        "SELECT 1 FROM _volume V WHERE %Q LIKE '/'||lv_name||'/%%'",
                        path.c_str()) != SQLITE_OK ||
        on_volume.rows() == 0) {
        KSDB_ERR(h, "Share %s at %s is not on valid volume\n", name, path.c_str());
        return -1;
    }

    if (sql_insert_then_update(
            h, db, KSDB_TAG,
            sql_printf("INSERT OR IGNORE INTO share (zfs_name,volume_id,name,path,user_id,"
                       "group_id) VALUES('','*',%Q,'',0,0)",
                       name),
            sql_printf("UPDATE share SET zfs_name=%Q,type=%Q,visible_snapdir=%Q,volume_id=(SELECT "
                       "V.id FROM _volume V WHERE %Q LIKE '/'||V.lv_name||'/%%'),usb_storage_id="
                       "(SELECT U.id FROM usb_storage U WHERE '/USB/'||U.name=%Q),comment=%Q,"
                       "path=%Q,user_id=%d,group_id=%d,user_access=%d,group_access=%d,"
                       "everyone_access=%d,non_owner_delete=%d WHERE name=%Q",
                       path.c_str() + 1, type.c_str(), snapdir.c_str(), path.c_str(),
                       path.c_str(), rec.comment ? rec.comment->c_str() : nullptr, path.c_str(),
                       static_cast<int>(st.st_uid), static_cast<int>(st.st_gid),
                       static_cast<int>((st.st_mode & 0700) >> 6),
                       static_cast<int>((st.st_mode & 070) >> 3), static_cast<int>(st.st_mode & 7),
                       static_cast<int>((st.st_mode & 01000) >> 9), name)) != SQLITE_OK) {
        KSDB_ERR(h, "Failed DB insert into share\n");
        return -1;
    }
    SqlTable id_row;
    if (id_row.query(h, db, KSDB_TAG, "SELECT id FROM share WHERE name=%Q", name) != SQLITE_OK ||
        id_row.rows() != 1) {
        KSDB_ERR(h, "Failed DB insert into share\n");
        return -1;
    }
    const int share_id = std::atoi(id_row.str(0, 0));

    const char *access = rec.readonly                                   ? "readonly"
                         : rec.writeable                                ? "writeable"
                         : rec.valid_users && !rec.valid_users->empty() ? "disabled"
                                                                        : "readonly";
    // The statement names cifs_recycle_age_limit twice and the size limit
    // column never: SQLite keeps the last assignment, so the age column
    // receives the size limit.  Kept exactly so.
    if (sql_insert_then_update(
            h, db, KSDB_TAG,
            sql_printf("INSERT OR IGNORE INTO cifs_share_option (share_id,cifs_access) "
                       "VALUES(%d,%Q)",
                       share_id, access),
            sql_printf("UPDATE cifs_share_option SET available=%d,cifs_access=%Q,"
                       "cifs_guest_access=%d,cifs_hide_share=%d,cifs_group_create_mask=%o,"
                       "cifs_everyone_create_mask=%o,cifs_enable_masks=%d,"
                       "cifs_group_directory_mask=%o,cifs_everyone_directory_mask=%o,"
                       "cifs_enable_forced_minimum=%d,cifs_recycle=%d,cifs_recycle_age_limit=%d,"
                       "cifs_recycle_age_limit=%d,oplocks=%d,force_user=(SELECT id FROM `$user` "
                       "WHERE uname=%Q),cifs_enabledfs=%d WHERE share_id=%d",
                       1 - rec.unavailable, access, rec.guest_ok, rec.hidden,
                       (rec.create_mask >> 3) & 7, rec.create_mask & 7, rec.create_mask != 0,
                       (rec.directory_mask >> 3) & 7, rec.directory_mask & 7,
                       rec.force_security_mode != 0, rec.recycle, age_limit, size_limit,
                       rec.oplocks, rec.force_user ? rec.force_user->c_str() : nullptr,
                       rec.msdfs_root && *rec.msdfs_root == "yes", share_id)) != SQLITE_OK) {
        KSDB_ERR(h, "Failed DB insert into cifs_share_option\n");
        return -1;
    }

    if (insert_hosts(h, db, share_id, rec.hosts_allow, 1,
                     "Failed DB insert into allow_host\n") != 0 ||
        insert_hosts(h, db, share_id, rec.hosts_deny, 0, "Failed DB insert into host_acl\n") != 0)
        return -1;
    if (insert_accounts(h, db, share_id, rec) != 0) return -1;
    return _ksdb_cifs_grant_cloud_users(h, db, share_id, "cifs", access);
}

// Turns each parsed section into a record and writes it: 0, or -1 at the
// first share that cannot be written.
int _ksdb_cifs_hash2db_share_info(ksdb_handle *h, sqlite3 *db, const ShareConfs &confs) {
    for (const auto &[share, pairs] : confs) {
        cifs_share_info rec;
        rec.name = share;
        for (const auto &[key, value] : pairs.items()) apply_key(rec, key, value);
        if (_ksdb_cifs_insertdb_share_info(h, db, rec) != 0) return -1;
    }
    return 0;
}

void insert_dfs_link(ksdb_handle *h, sqlite3 *db, int share_id, const char *volume,
                     const char *share, const char *folder, const char *address,
                     const char *remote_share) {
    if (ksdb_sql_exec_mprintf(h, db, nullptr, KSDB_TAG,
                              "INSERT INTO cifs_dfs_option (share_id,volume,share,folder,address,"
                              "remote_share) VALUES(%d,%Q,%Q,%Q,%Q,%Q)",
                              share_id, volume, share, folder, address,
                              remote_share) != SQLITE_OK)
        KSDB_ERR(h, "Failed to UPDATE cifs_dfs_option\n");
}

// True when "ls -l" of the link shows it pointing at the address and share.
// A link whose path would lead out of the share is not looked at.
bool link_matches(ksdb_handle *h, const char *volume, const char *share, const char *folder,
                  const char *address, const char *remote_share) {
    const std::string live = strprintf("/%s/%s/%s", volume, share, folder);
    if (!shares::path_stays_inside(live)) return false;
    const std::string cmd = "ls " + shell_quote(fs::real_path(h, live)) + " -l 2>/dev/null";
    Pipe ls(cmd.c_str(), "r");
    if (!ls) return false;
    char line[1024];
    bool found = false;
    while (std::fgets(line, sizeof line, ls.get())) {
        if (!found && std::strstr(line, folder) && std::strstr(line, "msdfs:") &&
            std::strstr(line, address) && std::strstr(line, remote_share))
            found = true;
    }
    return found;
}

// Reads the DFS links back.  A line has six fields (share id, folder,
// address, remote share, volume, share) or, in the older form, the first
// four: the share is then the first one holding a link of that name to that
// target.  The share id in the file is not used: shares are found by name.
int _ksdb_cifs_dfs_import(ksdb_handle *h, sqlite3 *db) {
    ConfFile conf(h, kDfsConf);
    if (!conf.ok()) {
        KSDB_ERR(h, "Cannot load %s\n", kDfsConf);
        return 0;
    }
    int rc = 0;
    conf.lines([&](char *line) {
        char *cursor = line;
        char *f[7] = {};
        int n = splitchr(&cursor, "!!", &f[0], &f[1], &f[2], &f[3], &f[4], &f[5], &f[6], nullptr);
        KSDB_DEBUG(h, "index sssssssssss = %d\n", n);
        if (n == 6) {
            SqlTable t;
            if (t.query(h, db, KSDB_TAG,
                        "SELECT S.id FROM share S WHERE S.volume_id=%Q AND S.name=%Q", f[4],
                        f[5]) != SQLITE_OK) {
                rc = KSDB_E_DB;
                return false;
            }
            if (t.rows() == 1)
                insert_dfs_link(h, db, std::atoi(t.str(0, 0)), f[4], f[5], f[1], f[2], f[3]);
        } else if (n == 4) {
            SqlTable t;
            if (t.query(h, db, KSDB_TAG, "SELECT S.id,S.volume_id,S.name FROM share S") !=
                SQLITE_OK) {
                rc = KSDB_E_DB;
                return false;
            }
            for (int r = 0; r < t.rows(); ++r) {
                if (link_matches(h, t.str(r, 1), t.str(r, 2), f[1], f[2], f[3])) {
                    insert_dfs_link(h, db, std::atoi(t.str(r, 0)), t.at(r, 1), t.at(r, 2), f[1],
                                    f[2], f[3]);
                    break;
                }
            }
        }
        return true;
    });
    return rc;
}

int import_usb(ksdb_handle *h, sqlite3 *db) {
    ShareConfs confs;
    // An unreadable USB file is no error: there are no USB shares.
    ConfFile conf(h, kUsbSharesConf);
    if (conf.ok()) {
        conf.lines([&](char *line) {
            if (std::optional<std::string> share = shares::usb_media_share(line))
                _ksdb_cifs_read_share_conf(h, "media", share->c_str(), confs);
            return true;
        });
    }
    if (_ksdb_cifs_hash2db_share_info(h, db, confs) != 0) {
        KSDB_ERR(h, "Cannot insert cifs share conf to database\n");
        return KSDB_E_DB;
    }
    return 0;
}

int import_volume_shares(ksdb_handle *h, sqlite3 *db) {
    ShareConfs confs;
    int rc = shares::for_each_share_folder(h, db, [&](const char *volume, const char *share) {
        return _ksdb_cifs_read_share_conf(h, volume, share, confs);
    });
    if (rc != 0) return rc;
    if (_ksdb_cifs_hash2db_share_info(h, db, confs) != 0) {
        KSDB_ERR(h, "Cannot insert cifs share conf to database\n");
        return KSDB_E_DB;
    }
    if (int dfs = _ksdb_cifs_dfs_import(h, db)) return dfs;
    return ksdb_service_update_setting_by_share(h, db, "cifs");
}

}  // namespace
}  // namespace ksdb::cifs

KSDB_STEP(ksdb_cifs_share_export) { return ksdb::cifs::export_all(h, db); }
KSDB_STEP(ksdb_cifs_share_import) { return ksdb::cifs::import_volume_shares(h, db); }
KSDB_STEP(ksdb_cifs_usb_share_import) { return ksdb::cifs::import_usb(h, db); }
