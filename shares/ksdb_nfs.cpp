// Shares over NFS: the kernel NFS server's export table /etc/exports, each
// share's own copy of its line (nfs.conf in its configuration folder, kept
// with a mark while the share is out of service), the copies of the USB
// shares, and the importers that read the per-share copies back into
// nfs_share_option and the shares' NFS host entries.
//
// The export works in two passes.  The first reads the settings, the shares
// and every NFS host entry, and checks each value a line will carry: a value
// that would add a client, an option or an export, or end a quoted path
// early, is refused (status 4) before any folder is made or any file
// written.  The second builds the lines and writes the files.
#define KSDB_MODULE "ksdb_nfs"
#include "core/ksdb_area.h"

#include "core/ksdb_areas.h"
#include "shares/ksdb_share_common.h"
#include "util/ksdb_fs_statvfs.h"
#include "util/ksdb_string_utils.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace ksdb::nfs {
namespace {

using shares::AclEntry;
using shares::kUsbConfVolume;

constexpr char kExports[] = "/etc/exports";
// The options of every default client line; user and group 99 are the
// anonymous identities.
constexpr char kCommonOptions[] =
    "insecure,insecure_locks,root_squash,anongid=99,anonuid=99,no_subtree_check,crossmnt";
// A share out of service keeps its line in its own file behind this mark.
constexpr char kUnavailableMark[] = "#dashboard:available=0 ";
constexpr size_t kUnavailableMarkLen = sizeof kUnavailableMark - 1;
// The file-system ids of the snapshot folders' exports count from here.
constexpr int kFirstSnapshotFsid = 100;
// The importer reads host names shorter than this.
constexpr size_t kHostNameLimit = 128;

// ---- value rules -----------------------------------------------------------------

// A folder name inside a quoted exports path ("/volume/share"): one path
// component, without the quote that would end the path early or a
// backslash (exportfs reads "\ooo" in a path as an escaped byte).  Blanks,
// "#" and parentheses stand inside the quotes as plain characters.
const ValueRule kPathPart{"a folder name in an exports path", "/\"\\",
                          kValueNotEmpty | kValuePathComponent};
// A whole quoted path (the snapshot folder): the same bytes refused; it must
// also be absolute and free of ".." (checked apart).
const ValueRule kPath{"an exports path", "\"\\", kValueNotEmpty};
// A client before its options: one word.  White space would start another
// client, "(" or ")" options, "#" a comment, and a quote a quoted name that
// the importer reads differently.
const ValueRule kClient{"an exports client", " \t\v\f()#\"", kValueNotEmpty};

int guard_client(ksdb_handle *h, const std::string &name, const ValueSource &src) {
    if (int rc = guard_value(h, name, kClient, src)) return rc;
    // A leading "-" would make the word the default options of the clients
    // after it.
    if (name.front() == '-') return refuse_value(h, "a leading dash", kClient.place, src);
    if (name.size() >= kHostNameLimit)
        return refuse_value(h, "a name too long to be read back", kClient.place, src);
    return 0;
}

// ---- export ------------------------------------------------------------------------

// Every NFS share with its words; after the columns the lines need come the
// volume id and the byte lengths of the texts that are written (a text
// holding a NUL byte reads shorter than it is).
constexpr char kShareQuery[] =
    "SELECT S.id,CASE WHEN NFS.nfs_access='readonly' THEN 'ro' WHEN "
    "NFS.nfs_access='writeable' THEN 'rw' ELSE 'disabled' END,S.name,CASE WHEN NFS.nfs_sync "
    "THEN 'sync' ELSE 'async' END,NFS.available,(SELECT V.lv_name FROM _volume V WHERE "
    "V.id=S.volume_id),'/'||S.volume_id||'/'||S.name,S.visible_snapdir,S.volume_id,"
    "length(CAST(S.name AS BLOB)),length(CAST(S.volume_id AS BLOB)),length(CAST((SELECT "
    "V.lv_name FROM _volume V WHERE V.id=S.volume_id) AS BLOB)),"
    "length(CAST(S.visible_snapdir AS BLOB)) FROM nfs_share_option NFS INNER JOIN share S ON "
    "S.id=NFS.share_id ORDER BY S.volume_id,S.name ASC";

enum ShareColumn {
    kId = 0,
    kAccess = 1,
    kName = 2,
    kSync = 3,
    kAvailable = 4,
    kVolume = 5,
    kPathColumn = 6,
    kSnapdir = 7,
    kVolumeId = 8,
    kNameBytes = 9,
    kVolumeIdBytes = 10,
    kVolumeBytes = 11,
    kSnapdirBytes = 12,
};

// One share as its lines need it, every text checked.
struct Share {
    long long id = 0;
    std::string access;  // "ro", "rw" or "disabled"
    std::string sync;    // "sync" or "async"
    std::string name, volume, path, snapdir;
    bool available = true;
};

// What the first pass gathers.
struct ExportData {
    bool home = false;   // the users' home folders are exported
    bool nfsv4 = false;  // the NFSv4 pseudo file system is exported
    std::vector<Share> shares;
    shares::AclIndex hosts;  // every NFS host entry, by share
};

int read_setting(ksdb_handle *h, sqlite3 *db, const char *query, bool *on) {
    std::optional<std::string> value;
    if (sql_scalar(h, db, nullptr, KSDB_TAG, &value, "%s", query) != 0) {
        KSDB_ERR(h, "Failed DB Query for service_nfs\n");
        return KSDB_E_DB;
    }
    *on = value && std::strtol(value->c_str(), nullptr, 10) != 0;
    return 0;
}

// Checks and keeps one row: 0 or 4.
int take_share(ksdb_handle *h, const SqlTable &rows, int r, const shares::AclIndex &hosts,
               Share *s) {
    auto exact = [&](int c, int bytes) {
        return shares::exact_text(rows.at(r, c), rows.at(r, bytes)).value_or("");
    };
    s->id = std::strtoll(rows.str(r, kId), nullptr, 10);
    s->access = rows.str(r, kAccess);
    s->sync = rows.str(r, kSync);
    s->available = std::strtol(rows.str(r, kAvailable), nullptr, 10) != 0;
    s->name = exact(kName, kNameBytes);
    s->volume = exact(kVolume, kVolumeBytes);
    s->snapdir = exact(kSnapdir, kSnapdirBytes);
    const std::string volume_id = exact(kVolumeId, kVolumeIdBytes);
    if (int rc = guard_value(h, s->name, kPathPart, {"share", "name", std::to_string(s->id)}))
        return rc;
    if (int rc = guard_value(h, volume_id, kPathPart, {"share", "volume_id", s->name})) return rc;
    if (int rc = guard_value(h, s->volume, kPathPart, {"_volume", "lv_name", volume_id}))
        return rc;
    if (!s->snapdir.empty()) {
        const ValueSource src{"share", "visible_snapdir", s->name};
        if (int rc = guard_value(h, s->snapdir, kPath, src)) return rc;
        if (!shares::path_stays_inside(s->snapdir))
            return refuse_value(h, "not an absolute path", kPath.place, src);
    }
    // With both parts checked, the path as selected is "/volume_id/name".
    s->path = rows.str(r, kPathColumn);
    for (const AclEntry &e : hosts.of(s->id))
        if (e.read == 1)
            if (int rc = guard_client(h, e.name, {"host", "name", std::to_string(e.id)}))
                return rc;
    return 0;
}

// The first pass: the settings, the shares in volume and name order (rows
// without a volume left out) and their host entries, every value checked.
// 0, 3 or 4.
int collect(ksdb_handle *h, sqlite3 *db, ExportData *d) {
    SqlTable rows;
    if (rows.query(h, db, KSDB_TAG, kShareQuery) != SQLITE_OK ||
        d->hosts.load(h, db, shares::AclKind::kHosts, "nfs") != 0) {
        KSDB_ERR(h, "Failed DB Query for 'SELECT nfs_share_option'\n");
        return KSDB_E_DB;
    }
    d->shares.reserve(static_cast<size_t>(rows.rows()));
    for (int r = 0; r < rows.rows(); ++r) {
        if (!rows.at(r, kVolume)) continue;
        Share s;
        if (int rc = take_share(h, rows, r, d->hosts, &s)) return rc;
        d->shares.push_back(std::move(s));
    }
    return 0;
}

// The allowed hosts of a share, each with its own options, in name order and
// separated by blanks; empty when there are none.
std::string host_clients(const std::vector<AclEntry> &entries, const std::string &sync) {
    std::string out;
    for (const AclEntry &e : entries) {
        if (e.read != 1) continue;
        if (!out.empty()) out += ' ';
        out += e.name;
        out += "(insecure,insecure_locks,no_subtree_check";
        out += e.write ? ",rw" : ",ro";
        out += e.root ? ",no_root_squash" : ",root_squash,anongid=99,anonuid=99";
        out += ",crossmnt," + sync + ")";
    }
    return out;
}

// The file-system id of a volume, 1 when it cannot be read.
unsigned long volume_fsid(ksdb_handle *h, const std::string &volume) {
    struct statvfs st;
    return fs::statvfs(h, "/" + volume, &st) ? st.f_fsid : 1;
}

// The header lines: the NFSv4 pseudo root, the home folders.
std::string header_lines(const ExportData &d) {
    std::string out;
    if (d.nfsv4) out += strprintf("\"/run/nfs4\" *(ro,sync,%s,fsid=0)\n", kCommonOptions);
    if (d.home) {
        out += "\"/home\" *(insecure,insecure_locks,root_squash,anongid=99,anonuid=99,"
               "no_subtree_check,rw,sync)\n";
        if (d.nfsv4) out += strprintf("\"/run/nfs4/home\" *(rw,sync,%s,fsid=1)\n", kCommonOptions);
    }
    return out;
}

// The second pass: each share's own file and its lines of /etc/exports,
// then /etc/exports, then the USB shares' copies.  A share whose
// configuration folder cannot be prepared is left out of every file.
int _ksdb_nfs_share_share_export(ksdb_handle *h, sqlite3 *db) {
    ExportData d;
    if (int rc = read_setting(h, db, "SELECT user_home_directory FROM service_nfs", &d.home))
        return rc;
    if (int rc = read_setting(h, db, "SELECT nfsv4 FROM service_nfs", &d.nfsv4)) return rc;
    ManagedFile exports_out(h, kExports);
    if (!exports_out.ok()) {
        KSDB_ERR(h, "Cannot open temporary file of nfs share conf for write (%s)\n",
                 std::strerror(errno));
        return KSDB_E_FILE;
    }
    if (int rc = collect(h, db, &d)) return rc;

    std::string exports = header_lines(d);
    int snapshot_fsid = kFirstSnapshotFsid;
    std::optional<std::string> previous_volume;
    for (const Share &s : d.shares) {
        std::string own_path;
        if (share_conf_path(h, s.volume.c_str(), s.name.c_str(), "nfs", &own_path) != 0) continue;
        ManagedFile own(h, shares::share_file_spec(own_path));
        if (!own.ok()) {
            KSDB_ERR(h, "Cannot open temporary file of nfs share conf for write (%s)\n",
                     std::strerror(errno));
            return KSDB_E_FILE;
        }
        // The rows come by volume: each volume's pseudo root comes before its
        // first share.
        if (d.nfsv4 && previous_volume != s.volume) {
            exports += strprintf("\"/run/nfs4/%s\" *(ro,sync,%s,fsid=%lu)\n", s.volume.c_str(),
                                 kCommonOptions, volume_fsid(h, s.volume));
            previous_volume = s.volume;
        }
        // The default client, and the snapshot folder's with an fsid of its
        // own; a disabled share is exported to the loopback address only.
        std::string clients, snapshot_clients;
        if (s.access != "disabled") {
            clients = strprintf(" *(%s,%s,%s)", kCommonOptions, s.access.c_str(), s.sync.c_str());
            if (!s.snapdir.empty())
                snapshot_clients = strprintf(" *(%s,%s,%s,fsid=%d)", kCommonOptions,
                                             s.access.c_str(), s.sync.c_str(), snapshot_fsid++);
        } else {
            clients = strprintf(" 127.0.0.1(ro,%s,%s)", kCommonOptions, s.sync.c_str());
            snapshot_clients = clients;
        }
        const std::string hosts = host_clients(d.hosts.of(s.id), s.sync);
        if (!hosts.empty()) {
            clients += " " + hosts;
            if (!s.snapdir.empty()) snapshot_clients += " " + hosts;
        }
        const std::string line = "\"" + s.path + "\"" + clients + "\n";
        if (s.available) {
            own.write(line);
            if (d.nfsv4) {
                exports += "\"/run/nfs4" + s.path + "\"" + clients + "\n";
                if (!s.snapdir.empty())
                    exports += "\"/run/nfs4" + s.snapdir + "\"" + snapshot_clients + "\n";
            }
            exports += line;
            if (!s.snapdir.empty()) exports += "\"" + s.snapdir + "\"" + snapshot_clients + "\n";
        } else {
            own.write(kUnavailableMark);
            own.write(line);
        }
        if (own.commit() != 0) return KSDB_E_FILE;
    }
    exports_out.write(exports);
    if (exports_out.commit() != 0) return KSDB_E_FILE;

    // Each USB share's own copy holds every line of /etc/exports that
    // contains the share's name anywhere.
    for (const Share &s : d.shares) {
        if (s.volume != "media") continue;
        std::string live;
        if (share_conf_path(h, kUsbConfVolume, s.name.c_str(), "nfs", &live) != 0) continue;
        ManagedFile own(h, shares::share_file_spec(live));
        if (!own.ok()) {
            KSDB_ERR(h, "Cannot open temporary file of nfs share conf for write (%s)\n",
                     std::strerror(errno));
            return KSDB_E_FILE;
        }
        own.write(shares::lines_naming(exports, s.name));
        if (own.commit() != 0) return KSDB_E_FILE;
    }
    return 0;
}

// ---- import ------------------------------------------------------------------------

// Gives the share an NFS entry for every name in `text`: names are separated
// by white space, a name in double quotes may hold blanks, and a leading
// "@" (a netgroup) is dropped.  The entry is made allowed and then given
// "write=..,root=..".  0 (also when a host cannot be looked up or added:
// the names after it are dropped), 5 for a name of 128 characters or more or
// a quote left open, or 3.
int _ksdb_nfs_add_host_acl(ksdb_handle *h, sqlite3 *db, int share_id, std::string_view text,
                           int write, int root) {
    std::vector<std::string> names;
    if (int rc = shares::split_list_strict(h, text, ' ', &names)) return rc;
    for (std::string &name : names) {
        if (!name.empty() && name.front() == '@') name.erase(0, 1);
        if (name.empty()) continue;
        int host_id = 0;
        if (shares::get_host_id(h, db, name.c_str(), &host_id, "Query") != 0) return 0;
        if (int rc = shares::put_host_acl_root(h, db, share_id, host_id, "nfs", write, root,
                                               "Failed DB insert 'INSERT host_acl'\n",
                                               "Failed DB insert 'UPDATE host_acl'\n"))
            return rc;
    }
    return 0;
}

// The exported path at the start of a line: the text between double quotes
// when the line starts with one (to the end of the line when the quote is
// not closed), else the text up to the first blank.  `rest` is left after it.
std::string_view take_path(std::string_view line, std::string_view *rest) {
    size_t end;
    std::string_view path;
    if (!line.empty() && line.front() == '"') {
        const size_t close = line.find('"', 1);
        path = line.substr(1, close == std::string_view::npos ? std::string_view::npos : close - 1);
        end = close == std::string_view::npos ? line.size() : close + 1;
    } else {
        end = std::min(line.find_first_of(" \t"), line.size());
        path = line.substr(0, end);
    }
    *rest = line.substr(end);
    return path;
}

// Reads one line of a share's nfs.conf: the share's default access, its
// sync setting and its host entries (replacing the ones it had).  0 (also
// for a line that is skipped), 3 or 5.
int read_line(ksdb_handle *h, sqlite3 *db, std::string_view line) {
    while (!line.empty() && (line.front() == ' ' || line.front() == '\t')) line.remove_prefix(1);
    int available = 1;
    if (line.substr(0, kUnavailableMarkLen) == kUnavailableMark) {
        line.remove_prefix(kUnavailableMarkLen);
        available = 0;
    } else if (line.empty() || line.front() == '#') {
        return 0;
    }
    std::string_view rest;
    const std::string_view path = take_path(line, &rest);
    const size_t slash = path.rfind('/');
    const std::string name(slash == std::string_view::npos ? path : path.substr(slash + 1));
    SqlTable t;
    if (t.query(h, db, KSDB_TAG, "SELECT S.id FROM share S WHERE name=%Q", name.c_str()) !=
        SQLITE_OK) {
        KSDB_ERR(h, "Failed DB update 'SELECT share'\n");
        return KSDB_E_DB;
    }
    if (t.rows() == 0) {
        KSDB_WARN(h, "Non exist share='%s' is specified in NFS config. Skip the line.\n",
                  name.c_str());
        return 0;
    }
    const int share_id = std::atoi(t.str(0, 0));
    if (int rc = exec_or_fail(h, db, "Failed DB insert 'DELETE host_acl'\n",
                              "DELETE FROM host_acl WHERE share_id=%d AND proto='nfs'", share_id))
        return rc;

    int access = 2;  // "disabled" unless a "*" client says otherwise
    int sync = 1;
    // Each client: a host, "(", its options, ")".
    size_t p = 0;
    while (p < rest.size()) {
        const size_t open = rest.find('(', p);
        if (open == std::string_view::npos) break;
        const size_t close = rest.find(')', open + 1);
        const std::string_view host = trim_blanks(rest.substr(p, open - p));
        const std::string_view options =
            rest.substr(open + 1, close == std::string_view::npos ? std::string_view::npos
                                                                  : close - open - 1);
        p = close == std::string_view::npos ? rest.size() : close + 1;
        int write = 0, root = 0, index = 2;
        for (const std::string &o : shares::split_list(options, ',')) {
            if (o == "rw") {
                write = 1;
                index = 1;
            } else if (o == "ro") {
                write = 0;
                index = 0;
            } else if (o == "no_root_squash") {
                root = 1;
            } else if (o == "root_squash") {
                root = 0;
            } else if (o == "async") {
                sync = 0;
            }
        }
        if (host == "*") {
            access = index;
        } else if (host == "127.0.0.1") {
            access = 2;
        } else if (int rc = _ksdb_nfs_add_host_acl(h, db, share_id, host, write, root)) {
            return rc;
        }
    }
    return exec_or_fail(h, db, "Failed DB insert 'REPLACE nfs_share_option'\n",
                        "INSERT OR REPLACE INTO nfs_share_option (available,share_id,nfs_access,"
                        "nfs_sync) VALUES(%d,%d,%Q,%d)",
                        available, share_id, shares::access_word(access), sync);
}

// Reads a share's nfs.conf into the tables; a share without one keeps its
// rows.  0, 3 or 5.
int _ksdb_nfs_read_share_conf(ksdb_handle *h, sqlite3 *db, const char *volume,
                              const char *share) {
    const std::string live = strprintf("/%s/._share/%s/nfs.conf", volume, share);
    if (!shares::path_stays_inside(live)) return 0;
    ConfFile conf(h, live);
    if (!conf.ok()) {
        KSDB_INFO(h, "Cannot load %s. Ignore nfs share.\n", live.c_str());
        return 0;
    }
    int rc = 0;
    conf.lines([&](char *line) {
        rc = read_line(h, db, line);
        return rc == 0;
    });
    return rc;
}

int import_volume_shares(ksdb_handle *h, sqlite3 *db) {
    return shares::for_each_share_folder(
        h, db,
        [&](const char *volume, const char *share) {
            return _ksdb_nfs_read_share_conf(h, db, volume, share);
        },
        true);
}

// The volume and share of a line of /etc/exports that starts with
// "\"/volume/share\"": the volume runs to a blank or "/", the share to the
// closing quote (or a blank, "*", "(", "%", "[", "^" or "]"); each at most 63
// characters.
bool exported_share(std::string_view line, std::string *volume, std::string *share) {
    constexpr size_t kMax = 63;
    if (line.substr(0, 2) != "\"/") return false;
    line.remove_prefix(2);
    const size_t v = std::min(line.find_first_of(" /"), line.size());
    if (v == 0 || v > kMax || v >= line.size() || line[v] != '/') return false;
    volume->assign(line.substr(0, v));
    line.remove_prefix(v + 1);
    const size_t s = std::min(line.find_first_of("]\" *(%[^"), std::min(line.size(), kMax));
    if (s == 0) return false;
    share->assign(line.substr(0, s));
    return true;
}

// Reads the own files of the USB shares that /etc/exports names.  A missing
// /etc/exports is no error: there are no exports.
int import_usb(ksdb_handle *h, sqlite3 *db) {
    ConfFile conf(h, kExports);
    if (!conf.ok()) return 0;
    int rc = 0;
    conf.lines([&](char *line) {
        std::string volume, share;
        if (exported_share(line, &volume, &share) && volume == "media")
            rc = _ksdb_nfs_read_share_conf(h, db, "media", share.c_str());
        return rc == 0;
    });
    return rc;
}

}  // namespace
}  // namespace ksdb::nfs

KSDB_STEP(ksdb_nfs_share_export) { return ksdb::nfs::_ksdb_nfs_share_share_export(h, db); }
KSDB_STEP(ksdb_nfs_share_import) { return ksdb::nfs::import_volume_shares(h, db); }
KSDB_STEP(ksdb_nfs_usb_share_import) { return ksdb::nfs::import_usb(h, db); }
