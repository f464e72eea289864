// Shares over CIFS: the Samba share sections of every volume share and USB
// share (the global Shares.conf files and each share's own samba.conf with
// its side files), the DFS link file, the user and group quotas, and the
// importers that read the per-share files back into the share tables.
#define KSDB_MODULE "ksdb_cifs"
#include "shares/ksdb_cifs.h"

#include "core/ksdb_areas.h"
#include "util/ksdb_file_utils.h"
#include "util/ksdb_misc_utils.h"
#include "util/ksdb_string_utils.h"

#include <strings.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace ksdb {

namespace {

constexpr char kSharesConf[] = "/etc/quillfold/samba/Shares.conf";
constexpr char kUsbSharesConf[] = "/run/usb/samba/Shares.conf";
constexpr char kDfsConf[] = "/etc/quillfold/samba/dfs.conf";
// The configuration folder of USB shares' own copies, in place of a volume.
constexpr char kUsbConfVolume[] = "etc/quillfold/usb";
constexpr char kGuestSuffix[] = ",\"guest\"";
constexpr long long kMiB = 1048576;

// ---- export ------------------------------------------------------------------

// Every CIFS share with its options; a share without a zfs_attr row is left
// out (inner join).  Columns by index below.
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
    "CIFS.cifs_enabledfs,IFNULL(SS.enabled,0),Z.bit_rot_protection FROM share S INNER JOIN "
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
};

constexpr char kAdminNameQuery[] =
    "SELECT CASE WHEN security='user' THEN 'Administrator' ELSE "
    "workgroup||'\\'||domain_admin_user END FROM service_cifs";
constexpr char kDomainPrefixQuery[] =
    "SELECT CASE WHEN security='user' THEN '' ELSE workgroup||'\\' END FROM service_cifs";

// The seven account lists of a share, each one string of double-quoted
// names joined by commas (groups with a leading "@"), ordered by name, or
// NULL.  The first %Q is the domain prefix, the second the share name.
struct ListQuery {
    const char *what;  // the list's name in the failure message
    const char *sql;
};
const ListQuery kListQueries[] = {
    {"read_user_list",
     "SELECT GROUP_CONCAT('\"'||%Q||T.uname||'\"',',') FROM (SELECT U.uname AS uname FROM share "
     "S INNER JOIN user_acl UA ON UA.share_id=S.id AND UA.proto='cifs' AND UA.read=1 AND "
     "UA.write=0 INNER JOIN `$user` U ON U.id=UA.user_id WHERE S.name=%Q ORDER BY U.uname) AS T"},
    {"read_group_list",
     "SELECT GROUP_CONCAT('\"@'||%Q||T.gname||'\"',',') FROM (SELECT G.gname AS gname FROM "
     "share S INNER JOIN group_acl GA ON GA.share_id=S.id AND GA.proto='cifs' AND GA.read=1 AND "
     "GA.write=0 INNER JOIN `$group` G ON G.id=GA.group_id WHERE S.name=%Q ORDER BY G.gname) AS "
     "T"},
    {"write_user_list",
     "SELECT GROUP_CONCAT('\"'||%Q||T.uname||'\"',',') FROM (SELECT U.uname AS uname FROM share "
     "AS S INNER JOIN user_acl UA ON UA.share_id=S.id AND UA.proto='cifs' AND UA.write=1 INNER "
     "JOIN `$user` U ON U.id=UA.user_id WHERE S.name=%Q ORDER BY U.uname) AS T"},
    {"write_group_list",
     "SELECT GROUP_CONCAT('\"@'||%Q||T.gname||'\"',',') FROM (SELECT G.gname AS gname FROM "
     "share S INNER JOIN group_acl GA ON GA.share_id=S.id AND GA.proto='cifs' AND GA.write=1 "
     "INNER JOIN `$group` G ON G.id=GA.group_id WHERE S.name=%Q ORDER BY G.gname) AS T"},
    {"valid_user_list",
     "SELECT GROUP_CONCAT('\"'||%Q||T.uname||'\"',',') FROM (SELECT U.uname AS uname FROM share "
     "S INNER JOIN user_acl UA ON UA.share_id=S.id AND UA.proto='cifs' INNER JOIN `$user` U ON "
     "U.id=UA.user_id WHERE S.name=%Q ORDER BY U.uname) AS T"},
    // Only cloud users (primary group 97) without access are listed as
    // invalid: other users without an entry of their own are kept out by
    // the valid-users list of a disabled share already.
    {"invalid_user_list",
     "SELECT GROUP_CONCAT('\"'||%Q||T.uname||'\"',',') FROM (SELECT U.uname AS uname FROM share "
     "S INNER JOIN user_acl UA ON UA.share_id=S.id AND UA.proto='cifs' AND UA.read=0 AND "
     "UA.write=0 INNER JOIN `$user` U ON U.id=UA.user_id AND U.group_id=97 WHERE S.name=%Q "
     "ORDER BY U.uname) AS T"},
    {"valid_group_list",
     "SELECT GROUP_CONCAT('\"@'||%Q||T.gname||'\"',',') FROM (SELECT G.gname AS gname FROM "
     "share S INNER JOIN group_acl GA ON GA.share_id=S.id AND GA.proto='cifs' INNER JOIN "
     "`$group` G ON G.id=GA.group_id WHERE S.name=%Q ORDER BY G.gname) AS T"},
};
enum {
    kReadUsers,
    kReadGroups,
    kWriteUsers,
    kWriteGroups,
    kValidUsers,
    kInvalidUsers,
    kValidGroups
};

constexpr char kAllowedHostsQuery[] =
    "SELECT GROUP_CONCAT('\"'||T.name||'\"',',') FROM (SELECT H.name AS name FROM share S INNER "
    "JOIN host_acl HA ON HA.share_id=S.id AND HA.proto='cifs' AND HA.read=1 INNER JOIN host H ON "
    "H.id=HA.host_id WHERE S.name=%Q ORDER BY H.name) AS T";
constexpr char kDeniedHostsQuery[] =
    "SELECT GROUP_CONCAT('\"'||T.name||'\"',',') FROM (SELECT H.name AS name FROM share S INNER "
    "JOIN host_acl HA ON HA.share_id=S.id AND HA.proto='cifs' AND HA.read=0 INNER JOIN host H ON "
    "H.id=HA.host_id WHERE S.name=%Q ORDER BY H.name) AS T";

// The access lists of one share as the share sections use them; an empty
// string stands for a list without entries.
struct AclLists {
    std::string read, write, valid, invalid, allowed_hosts, denied_hosts;
};

// "a" "," "b", or either alone when the other is empty.
std::string join_lists(const std::optional<std::string> &a, const std::optional<std::string> &b) {
    std::string out = a.value_or("");
    if (b && !b->empty()) {
        if (!out.empty()) out += ',';
        out += *b;
    }
    return out;
}

// "== 1" of the share query's text columns: the text reads as the integer 1.
bool is_one(const char *v) { return v && std::strtol(v, nullptr, 10) == 1; }

bool non_empty(const char *v) { return v && *v; }

// The timed access-list step of one share: the seven account lists and the
// allowed and denied hosts.  0, or -1 when a query fails.
int _ksdb_cifs_selectdb_acl_list(ksdb_handle *h, sqlite3 *db, const char *share,
                                 const char *access, AclLists *out) {
    return logged(h, KSDB_TAG, "_ksdb_cifs_selectdb_acl_list", [&]() -> int {
        std::optional<std::string> prefix;
        if (sql_scalar(h, db, nullptr, KSDB_TAG, &prefix, kDomainPrefixQuery) != 0) {
            KSDB_ERR(h, "Failed DB Query for cifs service\n");
            return -1;
        }
        const std::string domain = prefix.value_or("");
        std::optional<std::string> lists[std::size(kListQueries)];
        for (size_t i = 0; i < std::size(kListQueries); ++i) {
            if (sql_scalar(h, db, nullptr, KSDB_TAG, &lists[i], kListQueries[i].sql,
                           domain.c_str(), share) != 0) {
                KSDB_ERR(h, "Failed to get %s for share '%s'\n", kListQueries[i].what, share);
                return -1;
            }
        }
        out->read = join_lists(lists[kReadUsers], lists[kReadGroups]);
        out->write = join_lists(lists[kWriteUsers], lists[kWriteGroups]);
        out->valid = join_lists(lists[kValidUsers], lists[kValidGroups]);
        out->invalid = lists[kInvalidUsers].value_or("");
        std::optional<std::string> allowed, denied;
        if (sql_scalar(h, db, nullptr, KSDB_TAG, &allowed, kAllowedHostsQuery, share) != 0 ||
            sql_scalar(h, db, nullptr, KSDB_TAG, &denied, kDeniedHostsQuery, share) != 0) {
            KSDB_ERR(h, "Failed to get host_acl for share '%s'\n", share);
            return -1;
        }
        out->allowed_hosts = allowed.value_or("");
        out->denied_hosts = denied.value_or("");
        KSDB_DEBUG(h,
                   "Share[%s] cifs_access[%s] read_list[%s] write_list[%s] valid_list[%s] "
                   "invalid_list[%s]\n",
                   share, access, out->read.c_str(), out->write.c_str(), out->valid.c_str(),
                   out->invalid.c_str());
        return 0;
    });
}

// The same text to the target file and to the share's own file.
void print2(ManagedFile &a, ManagedFile &b, const char *format, ...) KSDB_PRINTF(3, 4);
void print2(ManagedFile &a, ManagedFile &b, const char *format, ...) {
    va_list ap;
    va_start(ap, format);
    std::string text = vstrprintf(format, ap);
    va_end(ap);
    a.write(text);
    b.write(text);
}

// "+admin" (the administrators group) and the administrator's name, each in
// double quotes: the administrators keep their rights on every share
// whatever its lists say.
std::string admin_list(ksdb_handle *h, sqlite3 *db) {
    std::optional<std::string> name;
    if (sql_scalar(h, db, nullptr, KSDB_TAG, &name, kAdminNameQuery) != 0) {
        KSDB_ERR(h, "Failed DB Query for cifs service\n");
        name.reset();
    }
    return "\"+admin\",\"" + name.value_or("Administrator") + "\"";
}

// A one-line side file of the share's configuration folder.
void put_side_file(ksdb_handle *h, const char *volume, const char *share, const char *name,
                   const std::string &text) {
    std::string live;
    if (share_conf_path(h, volume, share, name, &live) != 0) return;
    std::string path = effective_path(h, live);
    if (ksdb_file_put_one_line(path.c_str(), text.c_str()) != 0)
        KSDB_WARN(h, "Cannot write %s\n", path.c_str());
}

// Compares an access word as the database does (the column ignores case).
bool access_is(const char *access, const char *word) {
    return access && strcasecmp(access, word) == 0;
}

// The access lines of a share section by its default access.
void write_access_lines(ManagedFile &target, ManagedFile &own, const char *access,
                        const AclLists &acl, const std::string &admin, const char *guest) {
    const std::string &rd = acl.read;
    const std::string &wr = acl.write;
    if (access_is(access, "disabled")) {
        // Nobody but the listed accounts and the administrators.
        if (rd.empty() && !wr.empty()) {
            print2(target, own, "  write list = %s,%s\n", wr.c_str(), admin.c_str());
            print2(target, own, "  valid users = %s,%s%s\n", wr.c_str(), admin.c_str(), guest);
        } else if (rd.empty()) {
            print2(target, own, "  write list = %s\n", admin.c_str());
            print2(target, own, "  valid users = %s%s\n", admin.c_str(), guest);
        } else if (!wr.empty()) {
            print2(target, own, "  read list = %s\n", rd.c_str());
            print2(target, own, "  write list = %s,%s\n", wr.c_str(), admin.c_str());
            print2(target, own, "  valid users = %s,%s%s\n", acl.valid.c_str(), admin.c_str(),
                   guest);
        } else {
            print2(target, own, "  read list = %s\n", rd.c_str());
            print2(target, own, "  write list = %s\n", admin.c_str());
            print2(target, own, "  valid users = %s,%s%s\n", rd.c_str(), admin.c_str(), guest);
        }
    } else if (access_is(access, "readonly")) {
        if (!wr.empty())
            print2(target, own, "  write list = %s,%s\n", wr.c_str(), admin.c_str());
        else
            print2(target, own, "  write list = %s\n", admin.c_str());
    } else {
        if (!rd.empty()) print2(target, own, "  read list = %s\n", rd.c_str());
        print2(target, own, "  writeable = 1\n");
    }
}

// The include line of the first application on the share that brings a
// readable Samba include file (the target file only): at most one per
// share.
void write_application_include(ksdb_handle *h, sqlite3 *db, ManagedFile &target,
                               const char *dataset, const char *share) {
    SqlTable apps;
    if (apps.query(h, db, KSDB_TAG,
                   "SELECT A.app_name FROM `$application_on_share` A WHERE A.zfs_name=%Q",
                   dataset) != SQLITE_OK) {
        KSDB_WARN(h, "Failed DB Query for applications on share '%s'\n", share);
        return;
    }
    for (int r = 0; r < apps.rows(); ++r) {
        const char *app = apps.str(r, 0);
        const std::string candidates[] = {
            strprintf("/apps/%s/etc/samba.include", app),
            strprintf("/apps/%s/etc/samba.include.x86_64", app),
            strprintf("/apps/%s/etc/samba.%s.include.x86_64", share, app),
        };
        for (const std::string &live : candidates) {
            if (access(effective_path(h, live).c_str(), R_OK) == 0) {
                target.printf("  include = %s\n", live.c_str());
                return;
            }
        }
    }
}

// A mask string: "0664" or "0777" with its group and other digits taken
// from the first character of each non-empty column.
std::string mask_string(const char *base, const char *group, const char *other) {
    std::string m = base;
    if (non_empty(group)) m[2] = group[0];
    if (non_empty(other)) m[3] = other[0];
    return m;
}

// Copies the section of a USB share from the USB Shares.conf into the
// share's own file below the USB configuration folder.  A section header
// that contains the share name anywhere switches copying on, any other
// header switches it off.
int copy_usb_section(ksdb_handle *h, const char *share) {
    std::string live;
    if (share_conf_path(h, kUsbConfVolume, share, "samba", &live) != 0) return 0;
    ManagedFile own(h, ksdb_file_spec{live.c_str(), 98, 98, 0644});
    if (!own.ok()) {
        KSDB_ERR(h, "Cannot open temporary file of cifs share conf for write (%s)\n",
                 std::strerror(errno));
        return KSDB_E_FILE;
    }
    if (FILE *in = ksdb_file_open(h, kUsbSharesConf, "r")) {
        char line[1024];
        bool copying = false;
        while (std::fgets(line, sizeof line, in)) {
            if (line[0] == '[') copying = std::strstr(line, share) != nullptr;
            if (copying) own.write(line);
        }
        std::fclose(in);
    }
    return own.commit() != 0 ? KSDB_E_FILE : 0;
}

int _ksdb_cifs_share_share_export(ksdb_handle *h, sqlite3 *db) {
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
    SqlTable rows;
    if (rows.query(h, db, KSDB_TAG, kShareQuery) != SQLITE_OK) {
        KSDB_ERR(h, "Failed DB Query for cifs share\n");
        return KSDB_E_DB;
    }

    for (int r = 0; r < rows.rows(); ++r) {
        auto col = [&](int c) { return rows.at(r, c); };
        const char *name = rows.str(r, kName);
        const char *volume = col(kVolume);
        if (!volume) continue;
        std::string own_path;
        if (share_conf_path(h, volume, name, "samba", &own_path) != 0) continue;
        ManagedFile own(h, ksdb_file_spec{own_path.c_str(), 98, 98, 0644});
        if (!own.ok()) {
            KSDB_ERR(h, "Cannot open temporary file of cifs share conf for write (%s)\n",
                     std::strerror(errno));
            return KSDB_E_FILE;
        }
        const char *path = rows.str(r, kPath);
        ManagedFile &target = std::strncmp(path, "/media/", 7) == 0 ? usb_out : main_out;

        print2(target, own, "[%s]\n", name);
        print2(target, own, "  path = %s\n", path);
        print2(target, own, "  comment = %s\n", rows.str(r, kQuotedComment));
        if (is_one(col(kHideShare))) print2(target, own, "  browseable = 0\n");
        const char *guest = "";
        if (is_one(col(kGuestAccess))) {
            print2(target, own, "  guest ok = %s\n", col(kGuestAccess));
            guest = kGuestSuffix;
        }
        if (is_one(col(kEnableDfs))) print2(target, own, "  msdfs root = yes\n");
        if (is_one(col(kEnableMasks))) {
            std::string create =
                mask_string("0664", col(kGroupCreateMask), col(kEveryoneCreateMask));
            print2(target, own, "  force create mode = %s\n", create.c_str());
            print2(target, own, "  create mask = %s\n", create.c_str());
            std::string dir =
                mask_string("0777", col(kGroupDirectoryMask), col(kEveryoneDirectoryMask));
            if (is_one(col(kNonOwnerDelete))) dir[0] = '1';  // the sticky bit
            print2(target, own, "  force directory mode = %s\n", dir.c_str());
            print2(target, own, "  directory mask = %s\n", dir.c_str());
        }
        const std::string admin = admin_list(h, db);
        print2(target, own, "  admin users = %s\n", admin.c_str());

        const char *access = col(kAccess);
        AclLists acl;
        if (_ksdb_cifs_selectdb_acl_list(h, db, name, access ? access : "", &acl) != 0)
            return KSDB_E_DB;

        if (col(kAvailable) && std::strtol(col(kAvailable), nullptr, 10) == 0)
            print2(target, own, "  available = 0\n");
        write_access_lines(target, own, access, acl, admin, guest);
        if (!acl.invalid.empty())
            print2(target, own, "  invalid users = %s\n", acl.invalid.c_str());
        if (!acl.allowed_hosts.empty())
            print2(target, own, "  hosts allow = %s\n", acl.allowed_hosts.c_str());
        // Denied hosts stay commented out: Samba does not enforce them, and
        // the importer reads them back from this line.
        if (!acl.denied_hosts.empty())
            print2(target, own, "  #hosts allow = %s\n", acl.denied_hosts.c_str());

        const int age = col(kRecycleAgeLimit) ? std::atoi(col(kRecycleAgeLimit)) : 0;
        const int size = col(kRecycleMbLimit) ? std::atoi(col(kRecycleMbLimit)) : 0;
        put_side_file(h, volume, name, "recycle", strprintf("%d,%d", age, size));

        if (std::strtol(rows.str(r, kSnapshotEnabled), nullptr, 10) != 0)
            print2(target, own, "  follow symlinks = 1\n");
        if (non_empty(col(kForceUser))) print2(target, own, "  force user = %s\n", col(kForceUser));

        put_side_file(h, volume, name, "datasettype", col(kType) ? col(kType) : "share");
        put_side_file(h, volume, name, "snapdir", rows.str(r, kVisibleSnapdir));

        if (own.commit() != 0) return KSDB_E_FILE;

        write_application_include(h, db, target, rows.str(r, kDataset), name);
    }

    // A USB file that cannot be replaced leaves the USB shares as they were;
    // only the volume shares' file decides the result.
    usb_out.commit();
    if (main_out.commit() != 0) return KSDB_E_FILE;

    for (int r = 0; r < rows.rows(); ++r) {
        const char *volume = rows.at(r, kVolume);
        if (!volume || std::strcmp(volume, "media") != 0) continue;
        if (int rc = copy_usb_section(h, rows.str(r, kName))) return rc;
    }
    return 0;
}

// The DFS links, one line each: share id, folder, target address, target
// share, volume and share, joined by "!!".
int export_dfs(ksdb_handle *h, sqlite3 *db) {
    ManagedFile out(h, kDfsConf);
    if (!out.ok()) {
        KSDB_ERR(h, "Cannot open temporary file of cifs dfs conf for write (%s)\n",
                 std::strerror(errno));
        return KSDB_E_FILE;
    }
    SqlTable links;
    if (links.query(h, db, KSDB_TAG,
                    "SELECT D.share_id,D.folder,D.address,D.remote_share,D.volume,D.share FROM "
                    "cifs_dfs_option D") != SQLITE_OK) {
        KSDB_ERR(h, "Failed DB Query for cifs_dfs_option\n");
        return KSDB_E_DB;
    }
    // A NULL value is written as the C library prints a null string.
    auto v = [&](int r, int c) { return links.at(r, c) ? links.at(r, c) : "(null)"; };
    for (int r = 0; r < links.rows(); ++r)
        out.printf("%s!!%s!!%s!!%s!!%s!!%s\n", v(r, 0), v(r, 1), v(r, 2), v(r, 3), v(r, 4),
                   v(r, 5));
    return out.commit() != 0 ? KSDB_E_FILE : 0;
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

// ---- import ------------------------------------------------------------------

// The key/value pairs of one share section, in file order; a key given
// twice keeps its last value.
using KeyValues = std::vector<std::pair<std::string, std::string>>;
// Parsed share sections by share name.
using ShareConfs = std::map<std::string, KeyValues>;

void set_key(KeyValues &kv, std::string key, std::string value) {
    for (auto &entry : kv) {
        if (entry.first == key) {
            entry.second = std::move(value);
            return;
        }
    }
    kv.emplace_back(std::move(key), std::move(value));
}

bool look_ahead_skips(const char *following) {
    return following && (*following == '#' || *following == '$' || *following == ';');
}

// Reads one per-share samba.conf into `arg` (a ShareConfs), under the share
// name the enumerator gives.  A share whose file cannot be parsed is
// recorded as absent.
int _ksdb_cifs_read_share_conf(ksdb_handle *h, sqlite3 *, const char *volume, const char *share,
                               void *arg) {
    auto &confs = *static_cast<ShareConfs *>(arg);
    const std::string live = strprintf("/%s/._share/%s/samba.conf", volume, share);
    if (access(effective_path(h, live).c_str(), R_OK) != 0) {
        KSDB_INFO(h, "This is not CIFS share. name = '%s/%s'\n", volume, share);
        return 0;
    }
    std::optional<std::string> loaded = load_file(h, live.c_str());
    if (!loaded) {
        KSDB_ERR(h, "Cannot load %s\n", live.c_str());
        confs.erase(share);
        return KSDB_E_FILE;
    }
    std::string &text = *loaded;
    std::optional<KeyValues> section;
    bool two_sections = false;
    for_each_joined_line(text.data(), [&](char *line, const char *following) {
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
        key = ksdb_trim(key, " \t\r\n", " \t\r\n", 1);
        value = ksdb_trim(value, " \t\r\n", " \t\r\n", 1);
        set_key(*section, key, value);
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

// The entries of a comma-separated list, each trimmed of blanks and of the
// double quotes around it.  A list value loses only its outermost quotes
// when it is read ("a","b" arrives as a","b), so a quote is removed at
// either end of an entry on its own.  Empty entries are dropped.
std::vector<std::string> list_entries(const std::optional<std::string> &list) {
    std::vector<std::string> out;
    if (!list) return out;
    size_t start = 0;
    while (start <= list->size()) {
        size_t comma = list->find(',', start);
        if (comma == std::string::npos) comma = list->size();
        std::string_view e = trim_blanks(std::string_view(*list).substr(start, comma - start));
        if (!e.empty() && e.front() == '"') e.remove_prefix(1);
        if (!e.empty() && e.back() == '"') e.remove_suffix(1);
        if (!e.empty()) out.emplace_back(e);
        start = comma + 1;
    }
    return out;
}

int _ksdb_cifs_get_host_id(ksdb_handle *h, sqlite3 *db, const char *name, int *id) {
    SqlTable t;
    if (t.query(h, db, KSDB_TAG, "SELECT H.id FROM host H WHERE name=%Q", name) != SQLITE_OK ||
        t.rows() > 1) {
        KSDB_ERR(h, "Squery (SELECT host) fail.\n");
        return -1;
    }
    if (t.rows() == 1) {
        *id = std::atoi(t.str(0, 0));
        return 0;
    }
    if (ksdb_sql_exec_mprintf(h, db, nullptr, KSDB_TAG, "INSERT INTO host (name) VALUES(%Q)",
                              name) != SQLITE_OK) {
        KSDB_ERR(h, "Squery (INSERT host) fail.\n");
        return -1;
    }
    *id = static_cast<int>(sqlite3_last_insert_rowid(db));
    return 0;
}

int insert_hosts(ksdb_handle *h, sqlite3 *db, int share_id, const std::optional<std::string> &list,
                 int rights, const char *failure) {
    for (const std::string &host : list_entries(list)) {
        int host_id = 0;
        if (_ksdb_cifs_get_host_id(h, db, host.c_str(), &host_id) != 0) return -1;
        if (sql_insert_then_update(
                h, db, KSDB_TAG,
                sql_printf("INSERT OR IGNORE INTO host_acl (share_id,host_id,proto,read,write) "
                           "VALUES(%d,%d,'cifs',%d,%d)",
                           share_id, host_id, rights, rights),
                sql_printf("UPDATE host_acl SET read=%d,write=%d WHERE share_id=%d AND "
                           "host_id=%d AND proto='cifs'",
                           rights, rights, share_id, host_id)) != SQLITE_OK) {
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
        for (const std::string &name : list_entries(*list))
            if (!ksdb_is_admin_user(h, name.c_str())) levels[name] = level;

    for (const auto &[entry, level] : levels) {
        std::string name = entry;
        const bool group = name[0] == '@';
        if (group) name.erase(0, 1);
        const char *table = group ? "group" : "user";
        const char key = group ? 'g' : 'u';
        // A domain account is written DOMAIN\name and has a rid.
        const size_t backslash = name.find('\\');
        const bool domain = backslash != std::string::npos;
        if (domain) name.erase(0, backslash + 1);
        const char *rid = domain ? "NOT " : "";
        const int read = level == 1 || level == 2;
        const int write = level == 2;
        if (sql_insert_then_update(
                h, db, KSDB_TAG,
                sql_printf("INSERT OR IGNORE INTO %s_acl (share_id,%s_id,proto,read,write) "
                           "VALUES(%d,(SELECT id FROM '$%s' WHERE %cname=%Q AND rid IS "
                           "%sNULL),'cifs',%d,%d)",
                           table, table, share_id, table, key, name.c_str(), rid, read, write),
                sql_printf("UPDATE %s_acl SET read=%d,write=%d WHERE share_id=%d AND "
                           "%s_id=(SELECT id FROM '$%s' WHERE %cname=%Q AND rid IS %sNULL) AND "
                           "proto='cifs'",
                           table, read, write, share_id, table, table, key, name.c_str(),
                           rid)) != SQLITE_OK) {
            KSDB_ERR(h, "Failed DB insert into %s_acl\n", table);
            return -1;
        }
    }
    return 0;
}

// Reads a one-line side file of the share's configuration folder; false
// when it cannot be read.
bool get_side_file(ksdb_handle *h, const std::string &conf_dir, const char *file, size_t size,
                   std::string *out) {
    std::string path = effective_path(h, conf_dir + "/" + file);
    std::vector<char> buf(size);
    if (ksdb_file_get_one_line(path.c_str(), buf.data(), buf.size()) != 0) return false;
    *out = buf.data();
    return true;
}

// "/<volume>/<share>" with both parts non-empty and neither "..": the only
// share paths the importer accepts (anything else could lead it out of the
// volume).
bool split_share_path(const std::string &path, std::string *volume, std::string *share) {
    if (path.size() < 2 || path[0] != '/') return false;
    const size_t slash = path.find('/', 1);
    if (slash == std::string::npos || slash == 1 || slash + 1 >= path.size()) return false;
    *volume = path.substr(1, slash - 1);
    *share = path.substr(slash + 1);
    size_t start = 1;
    while (start <= path.size()) {
        size_t end = path.find('/', start);
        if (end == std::string::npos) end = path.size();
        if (path.compare(start, end - start, "..") == 0) return false;
        start = end + 1;
    }
    return true;
}

// Writes one share into the share tables: 0 (also for a share whose missing
// folder could not be made, which is skipped), or -1.
int _ksdb_cifs_insertdb_share_info(ksdb_handle *h, sqlite3 *db, const cifs_share_info &rec) {
    const std::string path = rec.path.value_or("");
    const char *name = rec.name.c_str();
    std::string volume, share_dir;
    // The form is checked before anything is made, so a refused share
    // leaves no folder behind.
    if (!split_share_path(path, &volume, &share_dir)) {
        KSDB_ERR(h, "share path (%s) should be /vol/share format\n", path.c_str());
        return -1;
    }

    struct stat st;
    if (ksdb_file_stat(h, path.c_str(), &st) != 0) {
        KSDB_WARN(h, "'%s' not exist, ignored. Create it.\n", path.c_str());
        // The section carries no owner: the new folder belongs to root, and
        // its mode 0777 (set explicitly, whatever the umask) lets every user
        // write until an administrator narrows it.
        const std::string dir = effective_path(h, path);
        if (mkdir(dir.c_str(), 0777) != 0) {
            int err = errno;
            KSDB_WARN(h, "Error in mkdir(%s) %d (%s)\n", path.c_str(), err, std::strerror(err));
            return 0;
        }
        if (chown(dir.c_str(), 0, 0) != 0) {
            int err = errno;
            KSDB_WARN(h, "Error in chown(%s) %d (%s)\n", path.c_str(), err, std::strerror(err));
            return 0;
        }
        chmod(dir.c_str(), 0777);
        if (ksdb_file_stat(h, path.c_str(), &st) != 0) return 0;
    }

    const std::string conf_dir = share_conf_dir(volume, share_dir);
    std::string type, snapdir, recycle;
    if (!get_side_file(h, conf_dir, "datasettype.conf", 32, &type)) type = "share";
    if (!get_side_file(h, conf_dir, "snapdir.conf", 256, &snapdir)) snapdir.clear();
    // The recycle limits are read from the dataset-type file, not from
    // recycle.conf: kept so, which makes them 0 days and 25000 MB in
    // practice.
    if (!get_side_file(h, conf_dir, "datasettype.conf", 64, &recycle)) recycle = "0,25000";
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

    const char *access = rec.readonly                               ? "readonly"
                         : rec.writeable                            ? "writeable"
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
        for (const auto &[key, value] : pairs) apply_key(rec, key, value);
        if (_ksdb_cifs_insertdb_share_info(h, db, rec) != 0) return -1;
    }
    return 0;
}

int insert_dfs_link(ksdb_handle *h, sqlite3 *db, int share_id, const char *volume,
                    const char *share, const char *folder, const char *address,
                    const char *remote_share) {
    if (ksdb_sql_exec_mprintf(h, db, nullptr, KSDB_TAG,
                              "INSERT INTO cifs_dfs_option (share_id,volume,share,folder,address,"
                              "remote_share) VALUES(%d,%Q,%Q,%Q,%Q,%Q)",
                              share_id, volume, share, folder, address,
                              remote_share) != SQLITE_OK)
        KSDB_ERR(h, "Failed to UPDATE cifs_dfs_option\n");
    return 0;
}

// True when "ls -l" of the link shows it pointing at the address and share.
bool link_matches(ksdb_handle *h, const char *volume, const char *share, const char *folder,
                  const char *address, const char *remote_share) {
    const std::string link = effective_path(h, strprintf("/%s/%s/%s", volume, share, folder));
    const std::string cmd = "ls " + shell_quote(link) + " -l";
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
    std::optional<std::string> loaded = load_file(h, kDfsConf);
    if (!loaded) {
        KSDB_ERR(h, "Cannot load %s\n", kDfsConf);
        return 0;
    }
    std::string &text = *loaded;
    int rc = 0;
    for_each_line(text.data(), [&](char *line) {
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

}  // namespace

int _ksdb_cifs_grant_cloud_users(ksdb_handle *h, sqlite3 *db, int share_id, const char *proto,
                                 const char *access) {
    SqlTable users;
    if (users.query(h, db, KSDB_TAG,
                    "SELECT uname FROM `$user` WHERE group_id IN (97,98) AND uname NOT IN "
                    "('admin','ftp')") != SQLITE_OK) {
        KSDB_ERR(h, "Failed DB Query for cloud user list\n");
        return -1;
    }
    int read = 0, write = 0;
    if (access_is(access, "readonly")) {
        read = 1;
    } else if (access_is(access, "writeable")) {
        read = 1;
        write = 1;
    }
    for (int r = 0; r < users.rows(); ++r) {
        if (ksdb_sql_exec_mprintf(h, db, nullptr, KSDB_TAG,
                                  "INSERT OR IGNORE INTO user_acl (share_id,user_id,proto,read,"
                                  "write) VALUES(%d,(SELECT id FROM `$user` WHERE uname=%Q),%Q,"
                                  "%d,%d)",
                                  share_id, users.str(r, 0), proto, read, write) != SQLITE_OK) {
            KSDB_ERR(h, "Failed DB insert 'INSERT user_acl'\n");
            return -1;
        }
    }
    return 0;
}

}  // namespace ksdb

int ksdb_cifs_share_export(ksdb_handle *h, sqlite3 *db) {
    return ksdb::logged(h, KSDB_TAG, "ksdb_cifs_share_export", [&] {
        if (int rc = ksdb::_ksdb_cifs_share_share_export(h, db)) return rc;
        if (int rc = ksdb::export_dfs(h, db)) return rc;
        return ksdb::export_quotas(h, db);
    });
}

int ksdb_cifs_share_import(ksdb_handle *h, sqlite3 *db) {
    return ksdb::logged(h, KSDB_TAG, "ksdb_cifs_share_import", [&] {
        ksdb::ShareConfs confs;
        int rc = ksdb_foreach_share_subvolume(h, db, ksdb::_ksdb_cifs_read_share_conf, &confs, 0);
        if (rc != 0) return rc;
        if (ksdb::_ksdb_cifs_hash2db_share_info(h, db, confs) != 0) {
            KSDB_ERR(h, "Cannot insert cifs share conf to database\n");
            return static_cast<int>(KSDB_E_DB);
        }
        if (int dfs = ksdb::_ksdb_cifs_dfs_import(h, db)) return dfs;
        return ksdb_service_update_setting_by_share(h, db, "cifs");
    });
}

int ksdb_cifs_usb_share_import(ksdb_handle *h, sqlite3 *db) {
    return ksdb::logged(h, KSDB_TAG, "ksdb_cifs_usb_share_import", [&] {
        ksdb::ShareConfs confs;
        if (FILE *in = ksdb_file_open(h, ksdb::kUsbSharesConf, "r")) {
            char line[1024];
            while (std::fgets(line, sizeof line, in)) {
                const char *at = std::strstr(line, "path = ");
                if (!at) continue;
                char volume[64], rest[64];
                if (std::sscanf(at, "path = /%63[^ /]/%63[^\n]", volume, rest) == 2 &&
                    std::strcmp(volume, "media") == 0)
                    ksdb::_ksdb_cifs_read_share_conf(h, db, volume, rest, &confs);
            }
            std::fclose(in);
        }
        if (ksdb::_ksdb_cifs_hash2db_share_info(h, db, confs) != 0) {
            KSDB_ERR(h, "Cannot insert cifs share conf to database\n");
            return static_cast<int>(KSDB_E_DB);
        }
        return 0;
    });
}
