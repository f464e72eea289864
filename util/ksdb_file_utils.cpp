// The managed-file layer: the table of files the library writes with their
// owners and modes, loading and opening files below the debug root, the
// temporary-file / backup / replace cycle every exporter goes through, the
// per-share configuration folders and a few line-oriented helpers.
#define KSDB_MODULE "ksdb_file_utils"
#include "util/ksdb_file_utils.h"

#include "platform/platform.h"
#include "util/ksdb_misc_utils.h"
#include "util/ksdb_raii.h"

#include <apr_strings.h>
#include <fcntl.h>
#include <fnmatch.h>
#include <sys/random.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cctype>
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


// Writes all of [buf, buf + n) to fd, across partial writes.
bool write_all(int fd, const char *buf, size_t n) {
    while (n > 0) {
        ssize_t w = ::write(fd, buf, n);
        if (w < 0) {
            if (errno == EINTR) continue;
            return false;
        }
        buf += w;
        n -= static_cast<size_t>(w);
    }
    return true;
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

// Makes `dir` and any missing parent, each with mode 0755.  Only missing
// components are made, so below a debug root nothing above the root is
// touched (the root itself exists).
bool make_dirs(const std::string &dir) {
    struct stat st;
    if (dir.empty()) return true;
    if (stat(dir.c_str(), &st) == 0) return S_ISDIR(st.st_mode);
    size_t slash = dir.rfind('/');
    if (slash != std::string::npos && slash > 0 && !make_dirs(dir.substr(0, slash))) return false;
    if (mkdir(dir.c_str(), 0755) == 0) return true;
    return errno == EEXIST && stat(dir.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
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

// Reports a file replacement to the observer the calling thread installed.
void observe_file(const std::string &target, const char *tmp_path, int phase, int status) {
    const ksdb_observer *obs = current_observer();
    if (obs && obs->file) obs->file(obs->arg, target.c_str(), tmp_path, phase, status);
}

void random_letters(char letters[6]) {
    static const char kAlphabet[] =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789";
    unsigned char r[6];
    if (getrandom(r, sizeof r, 0) != static_cast<ssize_t>(sizeof r)) {
        for (auto &b : r) b = static_cast<unsigned char>(ksdb_rand());
    }
    for (int i = 0; i < 6; ++i) letters[i] = kAlphabet[r[i] % (sizeof kAlphabet - 1)];
}

std::atomic<TempLetters> g_temp_letters{random_letters};

// Creates "<dir>/<name>.XXXXXX" with fresh letters, exclusively and with
// mode 0600: O_EXCL never opens or follows a file or a symbolic link that
// someone placed under the name; such a name is given up for new letters.
int create_exclusive(const std::string &dir, const char *name, std::string &path) {
    for (int attempt = 0; attempt < 1000; ++attempt) {
        char letters[6];
        g_temp_letters.load()(letters);
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

// The part of ksdb_file_update after the temporary file was found.
int update_file(ksdb_handle *h, const ksdb_file_spec *fspec, const char *tmp_path,
                const std::string &target) {
    std::string backup = target + ".bak";

    // Keep the old file as <target>.bak until the new one is in place.
    bool have_backup = false;
    for (int attempt = 0; attempt < 5; ++attempt) {
        int rc = _copy_file(target.c_str(), backup.c_str());
        if (rc == 0) {
            have_backup = true;
            break;
        }
        if (rc == -1) {
            KSDB_DEBUG(h, "move(%s,%s) failed (source not exist)\n", target.c_str(), backup.c_str());
            size_t slash = target.rfind('/');
            if (slash != std::string::npos && slash > 0) {
                std::string dir = target.substr(0, slash);
                if (!make_dirs(dir)) KSDB_DEBUG(h, "Cannot mkdir(%s)\n", dir.c_str());
            }
            break;
        }
        if (errno == EAGAIN) {
            usleep(10000);
            continue;
        }
        // The target stays where it is; the new file is moved over it.  A
        // partial .bak left by the failed copy is not a backup and is
        // never moved back.
        KSDB_ERR(h, "Unexpected error %d\n", errno);
        break;
    }

    auto fail = [&](int rc) {
        KSDB_ERR(h, "Failed to update %s ('mv %s %s', 'mv %s %s')\n", target.c_str(), target.c_str(),
                 backup.c_str(), tmp_path, target.c_str());
        return rc;
    };
    // Puts the previous file back after a failed step.
    auto restore = [&] {
        if (have_backup) _copy_file(backup.c_str(), target.c_str());
    };

    int rc = _copy_file(tmp_path, target.c_str());
    if (rc != 0) {
        int err = errno;
        KSDB_ERR(h, "move(%s,%s) failed (rc=%d errno=%d). Reverting: %s-->%s\n", tmp_path,
                 target.c_str(), rc, err, backup.c_str(), target.c_str());
        restore();
        return fail(rc);
    }
    rc = chown(target.c_str(), static_cast<uid_t>(fspec->uid), static_cast<gid_t>(fspec->gid));
    if (rc != 0) {
        KSDB_ERR(h, "chown(%s,%d,%d) failed (errno=%d).\n", target.c_str(), fspec->uid, fspec->gid,
                 errno);
        restore();
        return fail(rc);
    }
    rc = chmod(target.c_str(), static_cast<mode_t>(fspec->mode));
    if (rc != 0) {
        KSDB_ERR(h, "chmod(%s,%04o) failed (errno=%d).\n", target.c_str(), fspec->mode, errno);
        restore();
        return fail(rc);
    }
    unlink(backup.c_str());
    KSDB_INFO(h, "Update %s\n", target.c_str());
    return 0;
}

}  // namespace

int _copy_file(const char *source, const char *destination) {
    struct stat st;
    if (stat(source, &st) != 0) return -1;
    if (rename(source, destination) == 0) return 0;
    if (errno == ENOENT) return -ENOENT;

    // Another file system (or a rename refused for another reason): copy.
    Fd in(open(source, O_RDONLY | O_CLOEXEC));
    if (in.get() < 0) return -11;
    // Not truncated: a longer destination keeps its tail beyond the copy.
    Fd out(open(destination, O_WRONLY | O_CREAT | O_CLOEXEC, 0644));
    if (out.get() < 0) return -12;
    constexpr size_t kChunk = 65536;
    std::unique_ptr<char[]> buf(new (std::nothrow) char[kChunk]);
    if (!buf) return -13;
    off_t left = st.st_size;
    while (left > 0) {
        size_t want = left < static_cast<off_t>(kChunk) ? static_cast<size_t>(left) : kChunk;
        ssize_t n = read(in.get(), buf.get(), want);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) {
            if (n == 0) errno = EIO;  // the source is shorter than it was
            return -17;
        }
        if (!write_all(out.get(), buf.get(), static_cast<size_t>(n))) return -17;
        left -= n;
    }
    if (::close(out.release()) != 0) return -17;

    struct timespec times[2] = {st.st_atim, st.st_mtim};
    if (utimensat(AT_FDCWD, destination, times, 0) != 0) return -14;
    if (chown(destination, st.st_uid, st.st_gid) != 0) return -15;
    if (chmod(destination, st.st_mode & 07777) != 0) return -16;
    if (unlink(source) != 0) return -ESRCH;
    return 0;
}

TempLetters set_temp_letters(TempLetters source) {
    return g_temp_letters.exchange(source ? source : random_letters);
}

std::string share_conf_dir(std::string_view volume, std::string_view share) {
    std::string out = "/";
    out.append(volume);
    out += "/._share/";
    out.append(share);
    return out;
}

std::string share_subvolume_command(const ksdb_handle *h) {
    // find prints each "<volume>/._share" folder and then the subvolumes of
    // that volume; awk turns the first into V=<volume> and each subvolume
    // line into "V=<volume>,S=<name>".
    static const char kAwk[] =
        " | awk 'NF==1{sub(\"/._share\",\"\",$1);sub(/^\\//,\"\",$1);V=$1;next} "
        "{print \"V=\" V \",S=\" $NF}'";
    std::string cmd;
    if (ksdb::debug_root_set(h)) {
        // Below the root, with the folders printed relative to it, so the
        // volume names come out as on the live system.  A debug root may be
        // a plain tree standing for the appliance: where the file-system
        // tool cannot list a volume's subvolumes, its folders stand for
        // them, printed as the tool prints subvolumes.
        cmd = "find " + ksdb::shell_quote(h->debug_root) +
              " -maxdepth 2 -mindepth 2 -name ._share -type d -printf '%P\\n'"
              " -exec sh -c 'btrfs subvolume list \"$1\" 2>/dev/null || find \"$1\" -mindepth 1"
              " -maxdepth 1 -type d -printf \"ID 0 gen 0 top level 5 path %f\\n\"' sh {}/.. \\;" +
              kAwk;
    } else {
        cmd = std::string("find / -maxdepth 2 -mindepth 2 -name ._share -type d -print"
                          " -exec btrfs subvolume list {}/.. 2>/dev/null \\;") + kAwk;
    }
    return cmd;
}

// The file loader behind ksdb_file_load and load_file: checks the file,
// reads at most max_len bytes (all when 0) into the n-byte buffer alloc(n)
// gives (the result pool, or a scratch string), terminates it and sets *len
// without trailing NUL bytes.
template <class Alloc>
char *load_into(ksdb_handle *h, const char *fname, size_t max_len, size_t *len, Alloc &&alloc) {
    *len = 0;
    std::string path = effective_path(h, fname);
    struct stat st;
    if (stat(path.c_str(), &st) != 0) {
        KSDB_INFO(h, "Cannot stat <%s>\n", path.c_str());
        return nullptr;
    }
    if (!S_ISREG(st.st_mode) && !S_ISLNK(st.st_mode)) {
        KSDB_ERR(h, "<%s> is not regular file. mode=%o\n", path.c_str(), st.st_mode);
        return nullptr;
    }
    FILE *f = std::fopen(path.c_str(), "rbe");
    if (!f) {
        KSDB_ERR(h, "Cannot open <%s> for read\n", fname);
        return nullptr;
    }
    std::unique_ptr<FILE, int (*)(FILE *)> closer(f, std::fclose);
    size_t n = static_cast<size_t>(st.st_size);
    if (max_len != 0 && max_len < n) n = max_len;
    char *buf = alloc(n + 1);
    if (!buf) {
        KSDB_ERR(h, "Cannot allocate %zd bytes from pool\n", n + 1);
        return nullptr;
    }
    if (std::fread(buf, 1, n, f) != n) {
        KSDB_ERR(h, "Failed on fread() for shadow file\n");
        return nullptr;
    }
    buf[n] = '\0';
    if (n > 0 && buf[n - 1] == '\0') {
        while (n > 0 && buf[n - 1] == '\0') --n;
    }
    *len = n;
    return buf;
}

std::optional<std::string> load_file(ksdb_handle *h, const char *path, size_t max_len) {
    KSDB_ASSERT(path);
    std::string text;
    size_t len = 0;
    if (!load_into(h, path, max_len, &len, [&text](size_t n) {
            text.resize(n);  // n - 1 bytes and the terminator's place
            return text.data();
        }))
        return std::nullopt;
    text.resize(len);
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

// ---- ManagedFile -------------------------------------------------------------

ManagedFile::ManagedFile(ksdb_handle *h, const ksdb_file_spec &spec)
    : h_(h), path_(spec.path ? spec.path : ""), spec_(spec) {
    spec_.path = path_.c_str();
    open();
}

ManagedFile::ManagedFile(ksdb_handle *h, const char *live_path)
    : h_(h), path_(live_path ? live_path : "") {
    ksdb_file_spec_lookup(path_.c_str(), &spec_);
    spec_.path = path_.c_str();
    open();
}

ManagedFile::~ManagedFile() { abandon(); }

void ManagedFile::open() {
    fp_ = open_tempfile(h_, &spec_, tmp_path_);
    owns_tmp_ = fp_ != nullptr;
}

void ManagedFile::printf(const char *format, ...) {
    if (!fp_) return;
    va_list ap;
    va_start(ap, format);
    std::vfprintf(fp_, format, ap);
    va_end(ap);
}

void ManagedFile::write(std::string_view text) {
    if (fp_ && !text.empty()) std::fwrite(text.data(), 1, text.size(), fp_);
}

int ManagedFile::commit() {
    if (!fp_) {
        abandon();
        return KSDB_E_FILE;
    }
    // The content reaches the disk before the file takes the target's
    // place, so a crash never leaves an empty file behind a valid name.
    bool bad = std::fflush(fp_) != 0 || std::ferror(fp_) || fsync(fileno(fp_)) != 0;
    bad = std::fclose(fp_) != 0 || bad;
    fp_ = nullptr;
    if (bad) {
        abandon();
        return KSDB_E_FILE;
    }
    int rc = ksdb_file_update(h_, &spec_, tmp_path_.c_str());
    // After a successful update the name may already belong to another
    // writer's new temporary file: it is no longer ours.  A failed move can
    // leave the temporary file where it was: remove it.
    if (rc == 0) owns_tmp_ = false;
    abandon();
    return rc;
}

void ManagedFile::abandon() {
    if (fp_) std::fclose(fp_);
    fp_ = nullptr;
    if (owns_tmp_) unlink(tmp_path_.c_str());
    owns_tmp_ = false;
}

}  // namespace ksdb

// ---- C interface -----------------------------------------------------------------

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
    return ksdb::load_into(h, fname, max_len, len, [h](size_t n) {
        return static_cast<char *>(apr_palloc(ksdb::result_pool(h), n));
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
    std::string path = ksdb::effective_path(h, fname);
    // Opened without blocking (a FIFO would wait for a writer) and checked
    // on the open descriptor, so a file swapped in after a check cannot
    // slip through.
    ksdb::Fd fd(open(path.c_str(), flags | O_NONBLOCK | O_NOCTTY | O_CLOEXEC, 0644));
    if (fd.get() < 0) return nullptr;
    struct stat st;
    if (fstat(fd.get(), &st) != 0) return nullptr;
    if (!S_ISREG(st.st_mode)) {
        errno = EINVAL;
        return nullptr;
    }
    int fl = fcntl(fd.get(), F_GETFL);
    if (fl >= 0) fcntl(fd.get(), F_SETFL, fl & ~O_NONBLOCK);
    FILE *f = fdopen(fd.get(), mode);
    if (f) fd.release();
    return f;
}

FILE *ksdb_file_open_tempfile(ksdb_handle *h, const ksdb_file_spec *fspec, char **tmp_path) {
    KSDB_ASSERT(tmp_path);
    std::string path;
    FILE *fp = ksdb::open_tempfile(h, fspec, path);
    *tmp_path = apr_pstrdup(ksdb::result_pool(h), path.c_str());
    if (!*tmp_path) {
        KSDB_ERR(h, "Cannot open file for write: %s\n", path.c_str());
        if (fp) {
            std::fclose(fp);
            unlink(path.c_str());
        }
        return nullptr;
    }
    return fp;
}

int ksdb_file_update(ksdb_handle *h, const ksdb_file_spec *fspec, const char *tmp_path) {
    KSDB_ASSERT(fspec);
    KSDB_ASSERT(fspec->path);
    KSDB_ASSERT(tmp_path);
    if (access(tmp_path, F_OK) != 0) {
        KSDB_INFO(h, "Skipping update of non-existent %s\n", tmp_path);
        return 0;
    }
    std::string target = ksdb::effective_path(h, fspec->path);
    ksdb::observe_file(target, tmp_path, 0, 0);
    int rc = ksdb::update_file(h, fspec, tmp_path, target);
    ksdb::observe_file(target, tmp_path, 1, rc);
    return rc;
}

int ksdb_file_stat(ksdb_handle *h, const char *fname, struct stat *st) {
    KSDB_ASSERT(fname);
    std::string path = ksdb::effective_path(h, fname);
    int rc = stat(path.c_str(), st);
    if (rc != 0) KSDB_INFO(h, "Cannot stat %s. (rc=%d)\n", path.c_str(), rc);
    return rc;
}

void ksdb_file_unlink(ksdb_handle *h, const char *fname) {
    KSDB_ASSERT(fname);
    unlink(ksdb::effective_path(h, fname).c_str());
}

int ksdb_file_get_one_line(const char *fname, char *buf, size_t sz_buf) {
    KSDB_ASSERT(fname);
    KSDB_ASSERT(buf);
    KSDB_ASSERT(sz_buf);
    buf[0] = '\0';
    if (FILE *f = std::fopen(fname, "re")) {
        int n = sz_buf > INT_MAX ? INT_MAX : static_cast<int>(sz_buf);
        // Lines beginning with white space are continuation or comment
        // lines; the first other line is the value.
        while (std::fgets(buf, n, f)) {
            if (!std::isspace(static_cast<unsigned char>(buf[0]))) break;
        }
        std::fclose(f);
    }
    if (buf[0] == '\0') return -1;
    size_t len = std::strlen(buf);
    while (len > 0 && (buf[len - 1] == '\n' || buf[len - 1] == '\r')) buf[--len] = '\0';
    return 0;
}

int ksdb_file_put_one_line(const char *fname, const char *text) {
    KSDB_ASSERT(fname);
    FILE *f = std::fopen(fname, "we");
    if (!f) return -1;
    bool bad = std::fprintf(f, "%s\n", text ? text : "") < 0;
    bad = std::fclose(f) != 0 || bad;
    return bad ? -1 : 0;
}

int ksdb_share_conf_spec(ksdb_handle *h, const char *volume, const char *share, const char *name,
                         ksdb_file_spec *fspec) {
    KSDB_ASSERT(fspec);
    std::string path;
    if (ksdb::share_conf_path(h, volume, share, name, &path) != 0) return -1;
    fspec->path = apr_pstrdup(h->pool, path.c_str());
    fspec->uid = 98;
    fspec->gid = 98;
    fspec->mode = 0644;
    return 0;
}

int ksdb_foreach_share_subvolume(ksdb_handle *h, sqlite3 *db, ksdb_share_subvolume_fn callback,
                                 void *arg, int stop_on_error) {
    std::string cmd = ksdb::share_subvolume_command(h);
    ksdb::Pipe pipe(cmd.c_str(), "re");
    if (!pipe) {
        KSDB_ERR(h, "Cannot popen 'find / -name ._share'\n");
        return KSDB_E_SPAWN;
    }
    char line[1024];
    while (std::fgets(line, sizeof line, pipe.get())) {
        char volume[64], subvolume[64];
        if (std::sscanf(line, "V=%63[^,],S=%63[^\n]%*c", volume, subvolume) != 2) {
            KSDB_ERR(h, "Fail parse line=%s\n", line);
            continue;
        }
        const char *name = subvolume;
        if (subvolume[0] == '.') {
            // Hidden subvolumes count only as the folder of a share whose
            // configuration folder exists.
            name = subvolume + 1;
            std::string dir = ksdb::effective_path(h, ksdb::share_conf_dir(volume, name));
            struct stat st;
            if (stat(dir.c_str(), &st) != 0 || !S_ISDIR(st.st_mode)) continue;
        }
        int rc = callback(h, db, volume, name, arg);
        if (rc != 0 && stop_on_error) return rc;
    }
    return 0;
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

char *ksdb_conf_value_str(const char *line, char *buf, size_t sz_buf) {
    KSDB_ASSERT(buf);
    KSDB_ASSERT(sz_buf);
    const char *value;
    size_t len;
    if (!ksdb::conf_value_span(line, &value, &len)) return buf;
    std::string v(value, len);
    strncpyt(buf, v.c_str(), sz_buf);
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
    std::string prefix = "/dev/" + std::string(dev) + " ";
    char *line = nullptr;
    size_t cap = 0;
    int found = 0;
    while (getline(&line, &cap, f) >= 0) {
        if (std::strncmp(line, prefix.c_str(), prefix.size()) == 0) {
            found = 1;
            break;
        }
    }
    std::free(line);
    std::fclose(f);
    return found;
}

}  // extern "C"
