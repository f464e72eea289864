// The managed-file layer: the table of files the library writes with their
// owners and modes, loading and opening files below the debug root, the C
// calls of the temporary-file / replace cycle (both through the one writer,
// ksdb_file_writer.cpp), the per-share configuration folders and the share
// enumerator, and a few line-oriented helpers.
#define KSDB_MODULE "ksdb_file_utils"
#include "util/ksdb_file_utils.h"

#include "util/ksdb_fs.h"
#include "util/ksdb_misc_utils.h"
#include "util/ksdb_raii.h"

#include <apr_strings.h>
#include <fcntl.h>
#include <fnmatch.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cctype>
#include <cstdarg>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <memory>
#include <new>
#include <string>
#include <utility>
#include <vector>

namespace ksdb {
namespace {

// The managed file table.  Exporters look their target up here, so the
// owner and mode a daemon expects are set after every update.  The order is
// fixed: callers walk the table by index.
const ksdb_file_spec kManagedFiles[] = {
    {"/etc/default/nfs-kernel-server", 98, 98, 0600},
    {"/etc/idmapd.conf", 0, 0, 0600},
    {"/etc/samba/winbind.conf", 98, 98, 0600},
    {"/etc/netatalk/afpd.conf", 0, 0, 0644},
    {"/etc/netatalk/afp.conf", 0, 0, 0644},
    {"/etc/netatalk/timemachine.conf", 0, 0, 0644},
    {"/etc/proftpd/proftpd.conf", 98, 98, 0644},
    {"/etc/quillfold/proftpd/ftps.conf", 98, 98, 0644},
    {"/etc/quillfold/apache/http-redirect.conf", 98, 98, 0644},
    {"/etc/quillfold/apache/http-share-redirect.conf", 98, 98, 0644},
    {"/etc/apache2/sites-enabled/001-qf-https2", 98, 98, 0644},
    {"/etc/snmp/snmpd.conf", 98, 98, 0600},
    {"/etc/ssh/sshd_config", 0, 3, 0644},
    {"/opt/replication/etc/registration.conf", 0, 0, 0644},
    {"/etc/nut/upsmon.conf", 0, 3, 0644},
    {"/etc/nut/upsd.conf", 0, 3, 0644},
    {"/etc/quillfold/ups.conf", 0, 3, 0644},
    {"/etc/nut/ups.conf", 0, 3, 0644},
    {"/etc/forked-daapd.conf", 98, 98, 0644},
    {"/etc/clamav/clamd.conf", 0, 0, 0644},
    {"/etc/quillfold/account.conf", 98, 98, 0600},
    {"/etc/passwd", 0, 0, 0644},
    {"/etc/shadow", 0, 0, 0400},
    {"/etc/group", 0, 0, 0644},
    {"/etc/gshadow", 0, 0, 0640},
    {"/etc/quillfold/passwordrecovery.conf", 98, 98, 0644},
    {"/etc/quillfold/usb/storage.conf", 98, 98, 0600},
    {"/etc/quillfold/samba/Shares.conf", 98, 98, 0600},
    {"/etc/quillfold/samba/dfs.conf", 98, 98, 0644},
    {"/run/usb/samba/Shares.conf", 98, 98, 0600},
    {"/etc/netatalk/AppleVolumes.default", 98, 98, 0644},
    {"/etc/quillfold/netatalk/Shares.conf", 98, 98, 0644},
    {"/run/usb/netatalk/Shares.conf", 98, 98, 0644},
    {"/etc/exports", 98, 98, 0644},
    {"/etc/quillfold/proftpd/Shares.conf", 98, 98, 0600},
    {"/etc/quillfold/apache/Shares.conf", 98, 98, 0644},
    {"/etc/quillfold/apache/WebShare.conf", 98, 98, 0644},
    {"/etc/minidlna.conf", 98, 98, 0644},
    {"/etc/brisktivo.conf", 98, 98, 0644},
    {"/etc/quillfold/rsync/Shares.conf", 0, 0, 0600},
    {"/etc/cron.d/quillfold-backup", 0, 0, 0644},
    {"/etc/quillfold/backup_jobs.conf", 98, 98, 0640},
    {"/etc/quillfold/backup_wol_addr", 98, 98, 0644},
    {"/etc/quillfold/backup_button_jobs", 98, 98, 0644},
    {"/etc/replisync/replisync.conf", 98, 98, 0644},
};

// Further files the library writes that the fixed table above does not
// list.  They are kept apart so that the fixed table keeps its published
// order and length; ksdb_file_spec_lookup answers from both.
//   - smb.conf and /etc/default/services: read by daemons and scripts that
//     run as root, plain configuration: root, 0644.
//   - usermap.conf: the samba user-name map, no secrets: 98:98 0644.
//   - Shares.conf.admin: the administrative share sections, owned and
//     protected like the main samba Shares.conf: 98:98 0600.
//   - Avahi announcements: world-readable service descriptions: root, 0644.
//   - the cloud vault client's settings hold its password, the SSH key
//     configuration and the replication authorized_keys decide who may log
//     in (sshd refuses key files others can write), the rsync secrets hold
//     passwords: root, 0600.
//   - user_hf_settings.conf and the home folders' snapshot settings sit
//     beside account.conf and passwordrecovery.conf: 98:98 0644.
//   - the volume schedule's cron file: cron ignores files that are not
//     owned by root or are writable by others: root, 0644.
// Entries holding "*" are shell patterns matched against the whole path
// ("/" is not matched by "*").
const ksdb_file_spec kOtherFiles[] = {
    {"/etc/samba/smb.conf", 0, 0, 0644},
    {"/etc/default/services", 0, 0, 0644},
    {"/etc/quillfold/samba/usermap.conf", 98, 98, 0644},
    {"/etc/quillfold/samba/Shares.conf.admin", 98, 98, 0600},
    {"/etc/avahi/services/*.service", 0, 0, 0644},
    {"/etc/kestravaVault.config", 0, 0, 0600},
    {"/etc/quillfold/user_hf_settings.conf", 98, 98, 0644},
    {"/etc/quillfold/custom_snapshot_management.conf", 98, 98, 0644},
    {"/etc/quillfold/custom_snapshot_schedule.conf", 98, 98, 0644},
    {"/etc/quillfold/ssh_authorized_keys.conf", 0, 0, 0600},
    {"/etc/replisync/authorized_keys", 0, 0, 0600},
    {"/etc/quillfold/rsync/secrets/*", 0, 0, 0600},
    {"/etc/cron.d/quillfold-volumeschedule", 0, 0, 0644},
};

bool spec_matches(const ksdb_file_spec &entry, const char *path) {
    if (std::strchr(entry.path, '*')) return fnmatch(entry.path, path, FNM_PATHNAME) == 0;
    return std::strcmp(entry.path, path) == 0;
}

// open(2) flags for an fopen mode string.
int open_flags(const char *mode) {
    int flags = 0;
    switch (mode[0]) {
        case 'r': flags = O_RDONLY; break;
        case 'w': flags = O_WRONLY | O_CREAT | O_TRUNC; break;
        case 'a': flags = O_WRONLY | O_CREAT | O_APPEND; break;
        default: return -1;
    }
    for (const char *p = mode + 1; *p; ++p) {
        if (*p == '+') flags = (flags & ~(O_RDONLY | O_WRONLY)) | O_RDWR;
        else if (*p == 'x') flags |= O_EXCL;
    }
    return flags;
}


// True when `name` has no ".." path component, so that a volume, share or
// file name cannot lead a path out of the volume (or the debug root).
bool stays_below(const char *name) {
    const char *p = name;
    while (true) {
        const char *end = std::strchr(p, '/');
        size_t n = end ? static_cast<size_t>(end - p) : std::strlen(p);
        if (n == 2 && p[0] == '.' && p[1] == '.') return false;
        if (!end) return true;
        p = end + 1;
    }
}

// The text after the first "=" of a line, blanks skipped, up to (not
// including) the newline; false when the line has no "=".
bool conf_value_span(const char *line, const char **value, size_t *len) {
    if (!line) return false;
    const char *eq = std::strchr(line, '=');
    if (!eq) return false;
    const char *v = eq + 1;
    while (*v == ' ' || *v == '\t') ++v;
    const char *nl = std::strchr(v, '\n');
    *value = v;
    *len = nl ? static_cast<size_t>(nl - v) : std::strlen(v);
    return true;
}

// Creates "<dir>/<name>.XXXXXX" with fresh letters, exclusively and with
// mode 0600: O_EXCL never opens or follows a file or a symbolic link that
// someone placed under the name; such a name is given up for new letters.
int create_exclusive(const std::string &dir, const char *name, std::string &path) {
    for (int attempt = 0; attempt < 1000; ++attempt) {
        char letters[6];
        draw_temp_letters(letters);
        path = dir + "/" + name + "." + std::string(letters, sizeof letters);
        int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600);
        if (fd >= 0 || errno != EEXIST) return fd;
    }
    errno = EEXIST;
    return -1;
}

// Opens the temporary file for `fspec`.  `tmp_path` receives
// "<debug root>/tmp/<basename>.XXXXXX" with the X's filled in, on the live
// system a file in /tmp.
FILE *open_tempfile(ksdb_handle *h, const ksdb_file_spec *fspec, std::string &tmp_path) {
    KSDB_ASSERT(fspec);
    KSDB_ASSERT(fspec->path);
    const char *basename_str = std::strrchr(fspec->path, '/');
    KSDB_ASSERT(basename_str);
    ++basename_str;
    std::string dir = effective_path(h, "/tmp");
    int fd = create_exclusive(dir, basename_str, tmp_path);
    if (fd < 0 && errno == ENOENT && debug_root_set(h)) {
        // A fresh debug root may lack its /tmp.
        if (mkdir(dir.c_str(), 01777) == 0) chmod(dir.c_str(), 01777);
        fd = create_exclusive(dir, basename_str, tmp_path);
    }
    if (fd < 0) return nullptr;
    FILE *fp = fdopen(fd, "wb");
    if (!fp) {
        int saved = errno;
        ::close(fd);
        unlink(tmp_path.c_str());
        errno = saved;
    }
    return fp;
}


// The folders of the volume below the root (the debug root or "/") that
// hold a "._share" folder: the share volumes.  Neither may be a link.
std::vector<std::string> share_volumes(const ksdb_handle *h) {
    std::vector<std::string> out;
    const std::string root = effective_path(h, "");
    for (const std::string &name : fs::list_dir(h, "/")) {
        struct stat st;
        const std::string vol = root + "/" + name;
        if (::lstat(vol.c_str(), &st) != 0 || !S_ISDIR(st.st_mode)) continue;
        if (::lstat((vol + "/._share").c_str(), &st) != 0 || !S_ISDIR(st.st_mode)) continue;
        out.push_back(name);
    }
    return out;
}

// The subvolumes of one share volume as the file-system tool lists them.
// Below a debug root, where the tool cannot list them (a plain tree
// standing for the appliance), the volume's folders stand for them.  false
// when the tool cannot be started.
bool volume_subvolumes(const ksdb_handle *h, const std::string &volume,
                       std::vector<std::string> *names) {
    const std::string dir = fs::real_path(h, "/" + volume + "/._share/..");
    const std::string cmd = "btrfs subvolume list " + shell_quote(dir) + " 2>/dev/null";
    std::string output;
    int status;
    {
        Pipe pipe(cmd.c_str(), "re");
        if (!pipe) return false;
        char buf[4096];
        size_t n;
        while ((n = std::fread(buf, 1, sizeof buf, pipe.get())) > 0) output.append(buf, n);
        status = pipe.close();
    }
    if (status == 0) {
        *names = parse_subvolume_list(output);
    } else if (debug_root_set(h)) {
        names->clear();
        for (const std::string &name : fs::list_dir(h, "/" + volume)) {
            struct stat st;
            if (fs::lstat(h, "/" + volume + "/" + name, &st) && S_ISDIR(st.st_mode))
                names->push_back(name);
        }
    } else {
        names->clear();
    }
    return true;
}

int foreach_share_subvolume(ksdb_handle *h, sqlite3 *db, ksdb_share_subvolume_fn callback,
                            void *arg, int stop_on_error) {
    for (const std::string &volume : share_volumes(h)) {
        std::vector<std::string> names;
        if (!volume_subvolumes(h, volume, &names)) {
            KSDB_ERR(h, "Cannot popen 'find / -name ._share'\n");
            return KSDB_E_SPAWN;
        }
        for (const std::string &subvolume : names) {
            std::string name = subvolume;
            if (name[0] == '.') {
                // Hidden subvolumes count only as the folder of a share
                // whose configuration folder exists.
                name.erase(0, 1);
                if (!fs::is_dir(h, share_conf_dir(volume, name))) continue;
            }
            int rc = callback(h, db, volume.c_str(), name.c_str(), arg);
            if (rc != 0 && stop_on_error) return rc;
        }
    }
    return 0;
}

// The first line of a single-line file as ksdb_file_get_one_line reads it
// into buf: lines are taken as fgets takes them, at most size - 1 bytes at
// a time, until one that does not begin with white space.
int get_one_line(const char *fname, char *buf, size_t sz_buf) {
    buf[0] = '\0';
    std::string text;
    if (sz_buf < 2 || !read_regular_file(fname, &text)) return -1;
    size_t pos = 0;
    while (pos < text.size()) {
        size_t nl = text.find('\n', pos);
        size_t n = (nl == std::string::npos ? text.size() : nl + 1) - pos;
        if (n > sz_buf - 1) n = sz_buf - 1;
        std::memcpy(buf, text.data() + pos, n);
        buf[n] = '\0';
        pos += n;
        // Lines beginning with white space are continuation or comment
        // lines; the first other line is the value.
        if (!std::isspace(static_cast<unsigned char>(buf[0]))) break;
    }
    if (buf[0] == '\0') return -1;
    size_t len = std::strlen(buf);
    while (len > 0 && (buf[len - 1] == '\n' || buf[len - 1] == '\r')) buf[--len] = '\0';
    return 0;
}

// The file behind `fname` as ksdb_file_update puts it in place: read with
// the readers' rules, given to the writer, removed once it is in place.
int update_from(ksdb_handle *h, const ksdb_file_spec *fspec, const char *tmp_path) {
    std::string content;
    const ReadResult r = read_regular_file(tmp_path, &content);
    if (r.error == ReadError::kMissing) {
        KSDB_INFO(h, "Skipping update of non-existent %s\n", tmp_path);
        return 0;
    }
    if (!r) {
        KSDB_ERR(h, "Cannot read %s (%s)\n", tmp_path,
                 r.error == ReadError::kNotRegular ? "not a regular file"
                 : r.error == ReadError::kTooLarge ? "too large"
                                                    : std::strerror(r.err));
        return KSDB_E_FILE;
    }
    if (int rc = write_file(h, effective_path(h, fspec->path), *fspec, content)) return rc;
    ::unlink(tmp_path);
    return 0;
}

}  // namespace

std::string share_conf_dir(std::string_view volume, std::string_view share) {
    std::string out = "/";
    out.append(volume);
    out += "/._share/";
    out.append(share);
    return out;
}

std::vector<std::string> parse_subvolume_list(std::string_view output) {
    std::vector<std::string> out;
    while (!output.empty()) {
        const size_t nl = output.find('\n');
        std::string_view line = output.substr(0, nl);
        output = nl == std::string_view::npos ? std::string_view() : output.substr(nl + 1);
        // "ID n gen n top level n path NAME": the fields before the name are
        // numbers, so the first " path " ends them.
        if (!line.starts_with("ID ")) continue;
        const size_t at = line.find(" path ");
        if (at == std::string_view::npos) continue;
        std::string_view name = line.substr(at + 6);
        if (!name.empty() && name.back() == '\r') name.remove_suffix(1);
        if (!name.empty()) out.emplace_back(name);
    }
    return out;
}

std::optional<std::string> load_file(ksdb_handle *h, const char *path, size_t max_len) {
    KSDB_ASSERT(path);
    std::string text;
    bool missing;
    if (read_conf_file(h, path, &text, &missing, kConfFileLimit, max_len) != 0) return std::nullopt;
    return text;
}

int share_conf_path(ksdb_handle *h, const char *volume, const char *share, const char *name,
                    std::string *path) {
    KSDB_ASSERT(volume);
    KSDB_ASSERT(share);
    KSDB_ASSERT(name);
    KSDB_ASSERT(path);
    if (!*volume || !stays_below(volume) || !stays_below(share) || !stays_below(name)) {
        KSDB_ERR(h, "Invalid share configuration path /%s/._share/%s/%s.conf\n", volume, share,
                 name);
        return -1;
    }
    std::string live_dir = "/" + std::string(volume) + "/._share";
    std::string dir = effective_path(h, live_dir);
    struct stat st;
    if (stat(dir.c_str(), &st) != 0 || !S_ISDIR(st.st_mode)) {
        unlink(dir.c_str());
        KSDB_DEBUG(h, "chmod(%s, 0755)\n", dir.c_str());
        std::string cmd = "btrfs subvolume create " + shell_quote(dir);
        if (ksdb_safe_system(cmd.c_str()) != 0) {
            KSDB_ERR(h, "Fail '%s'\n", cmd.c_str());
            return -1;
        }
        chmod(dir.c_str(), 0755);
    }
    std::string live_share_dir = share_conf_dir(volume, share);
    std::string share_dir = effective_path(h, live_share_dir);
    if (mkdir(share_dir.c_str(), 0755) != 0 && errno != EEXIST) {
        KSDB_ERR(h, "mkdir(%s) failed.\n", share_dir.c_str());
        return -1;
    }
    *path = live_share_dir + "/" + name + ".conf";
    return 0;
}

}  // namespace ksdb
// ---- C interface -----------------------------------------------------------------
//
// Every call runs inside the C boundary: no exception leaves the library.

#define KSDB_C_CALL(fallback, ...) \
    ksdb::boundary_value(h, KSDB_TAG, __func__, fallback, [&] { __VA_ARGS__ })

extern "C" {

int ksdb_file_spec_lookup(const char *path, ksdb_file_spec *spec) {
    KSDB_ASSERT(spec);
    spec->path = path;
    if (path) {
        for (const auto &table : {std::pair{ksdb::kManagedFiles, std::size(ksdb::kManagedFiles)},
                                  std::pair{ksdb::kOtherFiles, std::size(ksdb::kOtherFiles)}}) {
            for (size_t i = 0; i < table.second; ++i) {
                if (ksdb::spec_matches(table.first[i], path)) {
                    spec->uid = table.first[i].uid;
                    spec->gid = table.first[i].gid;
                    spec->mode = table.first[i].mode;
                    return 1;
                }
            }
        }
    }
    spec->uid = 0;
    spec->gid = 0;
    spec->mode = 0644;
    return 0;
}

const ksdb_file_spec *ksdb_file_spec_table(size_t *count) {
    if (count) *count = std::size(ksdb::kManagedFiles);
    return ksdb::kManagedFiles;
}

char *ksdb_file_load(ksdb_handle *h, const char *fname, size_t max_len, size_t *len) {
    KSDB_ASSERT(fname);
    size_t ignored;
    if (!len) len = &ignored;
    *len = 0;
    return KSDB_C_CALL(static_cast<char *>(nullptr), {
        std::string text;
        bool missing;
        if (ksdb::read_conf_file(h, fname, &text, &missing, ksdb::kConfFileLimit, max_len) != 0)
            return static_cast<char *>(nullptr);
        char *buf = static_cast<char *>(apr_palloc(ksdb::result_pool(h), text.size() + 1));
        if (!buf) {
            KSDB_ERR(h, "Cannot allocate %zd bytes from pool\n", text.size() + 1);
            return static_cast<char *>(nullptr);
        }
        std::memcpy(buf, text.data(), text.size());
        buf[text.size()] = '\0';
        *len = text.size();
        return buf;
    });
}

FILE *ksdb_file_open(ksdb_handle *h, const char *fname, const char *mode) {
    KSDB_ASSERT(fname);
    if (!mode) return nullptr;
    int flags = ksdb::open_flags(mode);
    if (flags < 0) {
        errno = EINVAL;
        return nullptr;
    }
    return KSDB_C_CALL(static_cast<FILE *>(nullptr), {
        std::string path = ksdb::effective_path(h, fname);
        // Opened without blocking (a FIFO would wait for a writer), never
        // through a link for writing, and checked on the open descriptor,
        // so a file swapped in after a check cannot slip through.
        const int extra = (flags & (O_WRONLY | O_RDWR)) ? O_NOFOLLOW : 0;
        ksdb::Fd fd(open(path.c_str(), flags | extra | O_NONBLOCK | O_NOCTTY | O_CLOEXEC, 0644));
        if (fd.get() < 0) return static_cast<FILE *>(nullptr);
        struct stat st;
        if (fstat(fd.get(), &st) != 0) return static_cast<FILE *>(nullptr);
        if (!S_ISREG(st.st_mode)) {
            errno = EINVAL;
            return static_cast<FILE *>(nullptr);
        }
        if ((flags & O_ACCMODE) == O_RDONLY &&
            static_cast<unsigned long long>(st.st_size) > ksdb::kConfFileLimit) {
            errno = EFBIG;
            return static_cast<FILE *>(nullptr);
        }
        int fl = fcntl(fd.get(), F_GETFL);
        if (fl >= 0) fcntl(fd.get(), F_SETFL, fl & ~O_NONBLOCK);
        FILE *f = fdopen(fd.get(), mode);
        if (f) fd.release();
        return f;
    });
}

FILE *ksdb_file_open_tempfile(ksdb_handle *h, const ksdb_file_spec *fspec, char **tmp_path) {
    KSDB_ASSERT(tmp_path);
    KSDB_ASSERT(fspec);
    KSDB_ASSERT(fspec->path);
    *tmp_path = nullptr;
    return KSDB_C_CALL(static_cast<FILE *>(nullptr), {
        std::string path;
        FILE *fp = ksdb::open_tempfile(h, fspec, path);
        *tmp_path = apr_pstrdup(ksdb::result_pool(h), path.c_str());
        if (!*tmp_path) {
            KSDB_ERR(h, "Cannot open file for write: %s\n", path.c_str());
            if (fp) {
                std::fclose(fp);
                unlink(path.c_str());
            }
            return static_cast<FILE *>(nullptr);
        }
        return fp;
    });
}

int ksdb_file_update(ksdb_handle *h, const ksdb_file_spec *fspec, const char *tmp_path) {
    KSDB_ASSERT(fspec);
    KSDB_ASSERT(fspec->path);
    KSDB_ASSERT(tmp_path);
    return KSDB_C_CALL(static_cast<int>(KSDB_E_FILE), return ksdb::update_from(h, fspec, tmp_path););
}

int ksdb_file_stat(ksdb_handle *h, const char *fname, struct stat *st) {
    KSDB_ASSERT(fname);
    return KSDB_C_CALL(-1, {
        std::string path = ksdb::effective_path(h, fname);
        int rc = stat(path.c_str(), st);
        if (rc != 0) KSDB_INFO(h, "Cannot stat %s. (rc=%d)\n", path.c_str(), rc);
        return rc;
    });
}

void ksdb_file_unlink(ksdb_handle *h, const char *fname) {
    KSDB_ASSERT(fname);
    KSDB_C_CALL(0, return unlink(ksdb::effective_path(h, fname).c_str()););
}

int ksdb_file_get_one_line(const char *fname, char *buf, size_t sz_buf) {
    KSDB_ASSERT(fname);
    KSDB_ASSERT(buf);
    KSDB_ASSERT(sz_buf);
    const ksdb_handle *h = nullptr;
    buf[0] = '\0';
    return KSDB_C_CALL(-1, return ksdb::get_one_line(fname, buf, sz_buf););
}

int ksdb_file_put_one_line(const char *fname, const char *text) {
    KSDB_ASSERT(fname);
    ksdb_handle *h = nullptr;
    return KSDB_C_CALL(-1, {
        // Written like every other file; an existing file keeps its owner
        // and mode.  The folder must exist, as for fopen.
        const char *slash = std::strrchr(fname, '/');
        struct stat st;
        if (slash && slash != fname &&
            (::stat(std::string(fname, slash).c_str(), &st) != 0 || !S_ISDIR(st.st_mode)))
            return -1;
        const ksdb_file_spec keep{fname, -1, -1, -1};
        std::string line = std::string(text ? text : "") + "\n";
        return ksdb::write_file(h, fname, keep, line) == 0 ? 0 : -1;
    });
}

int ksdb_share_conf_spec(ksdb_handle *h, const char *volume, const char *share, const char *name,
                         ksdb_file_spec *fspec) {
    KSDB_ASSERT(fspec);
    return KSDB_C_CALL(-1, {
        std::string path;
        if (ksdb::share_conf_path(h, volume, share, name, &path) != 0) return -1;
        fspec->path = apr_pstrdup(h->pool, path.c_str());
        fspec->uid = 98;
        fspec->gid = 98;
        fspec->mode = 0644;
        return 0;
    });
}

int ksdb_foreach_share_subvolume(ksdb_handle *h, sqlite3 *db, ksdb_share_subvolume_fn callback,
                                 void *arg, int stop_on_error) {
    return KSDB_C_CALL(static_cast<int>(KSDB_E_FILE),
                       return ksdb::foreach_share_subvolume(h, db, callback, arg, stop_on_error););
}

void ksdb_fprintf2(FILE *stream1, FILE *stream2, const char *format, ...) {
    va_list ap;
    va_start(ap, format);
    if (stream1) {
        va_list copy;
        va_copy(copy, ap);
        std::vfprintf(stream1, format, copy);
        va_end(copy);
    }
    if (stream2) std::vfprintf(stream2, format, ap);
    va_end(ap);
}

char *ksdb_conf_value(char *line) {
    const char *value;
    size_t len;
    if (!ksdb::conf_value_span(line, &value, &len)) return nullptr;
    char *v = const_cast<char *>(value);
    v[len] = '\0';  // cut at the newline (a no-op when there is none)
    return v;
}

// A bounded copy that always terminates, of the value only (the text after
// it on later lines is not the value).
char *ksdb_conf_value_str(const char *line, char *buf, size_t sz_buf) {
    KSDB_ASSERT(buf);
    KSDB_ASSERT(sz_buf);
    const char *value;
    size_t len;
    if (!ksdb::conf_value_span(line, &value, &len)) return buf;
    if (len > sz_buf - 1) len = sz_buf - 1;
    std::memcpy(buf, value, len);
    buf[len] = '\0';
    return buf;
}

int ksdb_conf_value_int(const char *line) {
    const char *value;
    size_t len;
    if (!ksdb::conf_value_span(line, &value, &len)) return -1;
    return static_cast<int>(std::strtol(value, nullptr, 10));
}

unsigned long ksdb_conf_value_ulong(const char *line) {
    const char *value;
    size_t len;
    if (!ksdb::conf_value_span(line, &value, &len)) return ~0UL;
    unsigned long v = 0;
    std::sscanf(value, "%lu", &v);
    return v;
}

int ksdb_is_valid_name(const char *name) {
    if (!name) return 0;
    for (const char *p = name; *p; ++p) {
        char c = *p;
        bool ok = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
                  c == '_' || c == '-' || c == '.';
        if (!ok) return 0;
    }
    return 1;
}

int ksdb_is_dev_mounted(const char *dev) {
    if (!dev) return 0;
    FILE *f = std::fopen("/proc/mounts", "re");
    if (!f) return -1;
    const size_t n = std::strlen(dev);
    char *line = nullptr;
    size_t cap = 0;
    int found = 0;
    while (getline(&line, &cap, f) >= 0) {
        // "/dev/<dev> " at the start of the line.
        if (std::strncmp(line, "/dev/", 5) == 0 && std::strncmp(line + 5, dev, n) == 0 &&
            line[5 + n] == ' ') {
            found = 1;
            break;
        }
    }
    std::free(line);
    std::fclose(f);
    return found;
}

}  // extern "C"
