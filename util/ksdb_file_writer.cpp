// The one writer: every file the library writes is put in place here, so
// that its name always holds a whole file, old or new, whatever happens to
// the process or the machine during the write.
#define KSDB_MODULE "ksdb_file_utils"
#include "util/ksdb_file_utils.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/random.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <set>
#include <vector>

namespace ksdb {
namespace {

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

// Writes all of `text` to fd, across partial writes.
bool write_all(int fd, std::string_view text) {
    const char *p = text.data();
    size_t n = text.size();
    while (n > 0) {
        ssize_t w = ::write(fd, p, n);
        if (w < 0) {
            if (errno == EINTR) continue;
            return false;
        }
        p += w;
        n -= static_cast<size_t>(w);
    }
    return true;
}

// True when the open file holds exactly `content` (its size already known
// to be `size`).  Each read asks for one byte more than is left to compare,
// so a file of the same length is read whole, and found not to have grown
// since it was measured, in one read when it fits the buffer.
bool same_content(int fd, off_t size, std::string_view content) {
    if (static_cast<unsigned long long>(size) != content.size()) return false;
    char buf[65536];
    size_t at = 0;
    while (true) {
        const size_t want = std::min(sizeof buf, content.size() - at + 1);
        ssize_t n = pread(fd, buf, want, static_cast<off_t>(at));
        if (n < 0 && errno == EINTR) continue;
        if (n < 0) return false;
        size_t m = static_cast<size_t>(n);
        if (m > content.size() - at || std::memcmp(buf, content.data() + at, m) != 0) return false;
        at += m;
        if (at == content.size() && m < want) return true;  // all compared, nothing beyond
        if (m == 0) return false;                           // shorter than measured
    }
}

// Makes `dir` and any missing parent, each with mode 0755.  Only missing
// components are made, so below a debug root nothing above the root is
// touched (the root itself exists).
bool make_dirs(const std::string &dir) {
    struct stat st;
    if (dir.empty()) return true;
    if (::stat(dir.c_str(), &st) == 0) return S_ISDIR(st.st_mode);
    size_t slash = dir.rfind('/');
    if (slash != std::string::npos && slash > 0 && !make_dirs(dir.substr(0, slash))) return false;
    if (::mkdir(dir.c_str(), 0755) == 0) return true;
    return errno == EEXIST && ::stat(dir.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
}

// ".<name>.ksdb-": the temporary files of a target start with this and end
// with six letters.  Hidden, so that daemons reading a folder of includes
// do not pick one up; the name is cut so the whole stays a valid file name.
std::string temp_prefix(std::string_view base) {
    return "." + std::string(base.substr(0, 200)) + ".ksdb-";
}

bool same_file(const struct stat &a, const struct stat &b) {
    return a.st_dev == b.st_dev && a.st_ino == b.st_ino;
}

// Creates "<prefix>XXXXXX" in the folder exclusively, mode 0600, without
// following a link planted under the name, and locks it for as long as it
// is open: a sweep in a later commit removes only files whose lock is free,
// that is whose writer died.  The open descriptor, or -1.
int create_locked_temp(int dirfd, const std::string &prefix, std::string *name) {
    for (int attempt = 0; attempt < 1000; ++attempt) {
        char letters[6];
        draw_temp_letters(letters);
        *name = prefix + std::string(letters, sizeof letters);
        int fd = openat(dirfd, name->c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC,
                        0600);
        if (fd < 0) {
            if (errno == EEXIST) continue;
            return -1;
        }
        struct stat mine, named;
        if (flock(fd, LOCK_EX | LOCK_NB) == 0 && fstat(fd, &mine) == 0 &&
            fstatat(dirfd, name->c_str(), &named, AT_SYMLINK_NOFOLLOW) == 0 &&
            same_file(mine, named))
            return fd;
        // A sweep took the new file for an orphan before it was locked (and
        // removes it): start again under a new name.
        ::close(fd);
    }
    errno = EEXIST;
    return -1;
}

// Removes the temporary files left in the folder by writers that died
// (those whose lock can be taken): the files whose names are one of the
// prefixes followed by six letters.
void sweep_orphans(int dirfd, const std::set<std::string> &prefixes) {
    int fd = openat(dirfd, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd < 0) return;
    Dir d(fdopendir(fd));
    if (!d) {
        ::close(fd);
        return;
    }
    std::vector<std::string> names;
    while (dirent *e = readdir(d.get())) {
        std::string_view name = e->d_name;
        if (name.size() <= 6) continue;
        if (prefixes.count(std::string(name.substr(0, name.size() - 6))))
            names.emplace_back(name);
    }
    for (const std::string &name : names) {
        Fd f(openat(dirfd, name.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
        struct stat held, named;
        if (!f.ok() || fstat(f.get(), &held) != 0 || !S_ISREG(held.st_mode)) continue;
        if (flock(f.get(), LOCK_EX | LOCK_NB) != 0) continue;  // its writer is at work
        if (fstatat(dirfd, name.c_str(), &named, AT_SYMLINK_NOFOLLOW) == 0 && same_file(held, named))
            unlinkat(dirfd, name.c_str(), 0);
    }
}

// The batch of the calling thread, if one is open.
thread_local FolderSyncBatch *t_batch = nullptr;

// Copies the open file into a new file of the folder and renames it to
// `dest`: the backup where a hard link cannot be made.
bool copy_to(int dirfd, int from, const std::string &prefix, const std::string &dest) {
    std::string name;
    Fd out(create_locked_temp(dirfd, prefix, &name));
    if (!out.ok()) return false;
    char buf[65536];
    off_t at = 0;
    bool ok = true;
    while (ok) {
        ssize_t n = pread(from, buf, sizeof buf, at);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) {
            ok = n == 0;
            break;
        }
        ok = write_all(out.get(), std::string_view(buf, static_cast<size_t>(n)));
        at += n;
    }
    ok = ok && fsync(out.get()) == 0 && renameat(dirfd, name.c_str(), dirfd, dest.c_str()) == 0;
    if (!ok) {
        int err = errno;
        unlinkat(dirfd, name.c_str(), 0);
        errno = err;
    }
    return ok;
}

// Keeps the current target as "<name>.bak": a hard link to it (the old
// file itself, no copy), or a copy where links are impossible.  Whatever
// stands at the .bak name is replaced, never followed.
bool keep_backup(int dirfd, const std::string &base, int oldfd, const std::string &prefix) {
    const std::string bak = base + ".bak";
    for (int attempt = 0; attempt < 3; ++attempt) {
        if (unlinkat(dirfd, bak.c_str(), 0) != 0 && errno != ENOENT) break;
        if (linkat(dirfd, base.c_str(), dirfd, bak.c_str(), 0) == 0) return true;
        if (errno != EEXIST) break;  // else another writer made one meanwhile: again
    }
    return copy_to(dirfd, oldfd, prefix, bak);
}

// Tells the calling thread's observer about a commit.
void observe(const std::string &target, const std::string &tmp, int phase, int status) {
    const ksdb_observer *obs = current_observer();
    if (obs && obs->file) obs->file(obs->arg, target.c_str(), tmp.c_str(), phase, status);
}

void observe_done(const std::string &target, int outcome, int status) {
    const ksdb_observer *obs = current_observer();
    if (obs && obs->file_done) obs->file_done(obs->arg, target.c_str(), outcome, status);
}

// True when `target` is a regular file (a link is not followed) holding
// exactly `content` with the owner and mode `spec` asks for (-1: any).
bool unchanged_in_place(const std::string &target, const ksdb_file_spec &spec,
                        std::string_view content) {
    struct stat named;
    if (::lstat(target.c_str(), &named) != 0 || !S_ISREG(named.st_mode) ||
        static_cast<unsigned long long>(named.st_size) != content.size())
        return false;
    Fd fd(::open(target.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
    struct stat held;
    if (!fd.ok() || fstat(fd.get(), &held) != 0 || !same_file(held, named) ||
        !S_ISREG(held.st_mode))
        return false;
    if ((spec.uid >= 0 && held.st_uid != static_cast<uid_t>(spec.uid)) ||
        (spec.gid >= 0 && held.st_gid != static_cast<gid_t>(spec.gid)) ||
        (spec.mode >= 0 && (held.st_mode & 07777) != (static_cast<mode_t>(spec.mode) & 07777)))
        return false;
    return same_content(fd.get(), held.st_size, content);
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
        if (!write_all(out.get(), std::string_view(buf.get(), static_cast<size_t>(n)))) return -17;
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

void draw_temp_letters(char letters[6]) { g_temp_letters.load()(letters); }

int write_file(ksdb_handle *h, const std::string &target, const ksdb_file_spec &spec,
               std::string_view content, int *outcome_out) {
    int outcome = KSDB_FILE_NEW;
    std::string tmp_path = target;  // what the observer is told holds the new content
    auto finish = [&](int status) {
        if (outcome_out) *outcome_out = outcome;
        observe(target, tmp_path, 1, status);
        observe_done(target, outcome, status);
        return status;
    };

    const size_t slash = target.rfind('/');
    const std::string dir = slash == std::string::npos ? "." : slash == 0 ? "/" : target.substr(0, slash);
    const std::string base = slash == std::string::npos ? target : target.substr(slash + 1);
    if (base.empty() || base == "." || base == "..") {
        KSDB_ERR(h, "Cannot open temporary file for %s (not a file name)\n", target.c_str());
        return finish(KSDB_E_FILE);
    }
    const std::string prefix = temp_prefix(base);

    // 0. In a batch, a target that already is what it should be (a regular
    // file, not a link, with the content, owner and mode) is recognised
    // through its path without opening its folder: most files of an export
    // after a small change.  Anything else takes the steps below.
    if (t_batch && unchanged_in_place(target, spec, content)) {
        outcome = KSDB_FILE_UNCHANGED;
        observe(target, tmp_path, 0, 0);
        t_batch->note(dir, prefix, false);
        KSDB_DEBUG(h, "Unchanged %s\n", target.c_str());
        return finish(0);
    }

    Fd dirfd(::open(dir.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!dirfd.ok() && errno == ENOENT) {
        if (!make_dirs(dir)) KSDB_ERR(h, "Cannot mkdir(%s)\n", dir.c_str());
        dirfd = Fd(::open(dir.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    }
    if (!dirfd.ok()) {
        KSDB_ERR(h, "Cannot open temporary file in %s (%s)\n", dir.c_str(), std::strerror(errno));
        return finish(KSDB_E_FILE);
    }

    // 1. Compare with what is there.  Only a regular file is opened, and
    // without following a link.
    struct stat old {};
    const bool exists = fstatat(dirfd.get(), base.c_str(), &old, AT_SYMLINK_NOFOLLOW) == 0;
    Fd oldfd;
    bool old_regular = false;
    if (exists && S_ISREG(old.st_mode)) {
        oldfd = Fd(openat(dirfd.get(), base.c_str(),
                          O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
        old_regular = oldfd.ok() && fstat(oldfd.get(), &old) == 0 && S_ISREG(old.st_mode);
    }
    const uid_t uid = spec.uid >= 0 ? static_cast<uid_t>(spec.uid) : old_regular ? old.st_uid : geteuid();
    const gid_t gid = spec.gid >= 0 ? static_cast<gid_t>(spec.gid) : old_regular ? old.st_gid : getegid();
    const mode_t mode = spec.mode >= 0 ? static_cast<mode_t>(spec.mode) & 07777
                        : old_regular  ? old.st_mode & 07777
                                       : 0644;
    outcome = exists ? KSDB_FILE_CHANGED : KSDB_FILE_NEW;

    if (old_regular && same_content(oldfd.get(), old.st_size, content)) {
        const bool owner_ok = old.st_uid == uid && old.st_gid == gid;
        const bool mode_ok = (old.st_mode & 07777) == mode;
        outcome = owner_ok && mode_ok ? KSDB_FILE_UNCHANGED : KSDB_FILE_FIXED;
        observe(target, tmp_path, 0, 0);
        if (!owner_ok && fchown(oldfd.get(), uid, gid) != 0) {
            KSDB_ERR(h, "chown(%s,%d,%d) failed (errno=%d).\n", target.c_str(), static_cast<int>(uid),
                     static_cast<int>(gid), errno);
            return finish(KSDB_E_FILE);
        }
        if (!mode_ok && fchmod(oldfd.get(), mode) != 0) {
            KSDB_ERR(h, "chmod(%s,%04o) failed (errno=%d).\n", target.c_str(), mode, errno);
            return finish(KSDB_E_FILE);
        }
        if (t_batch)
            t_batch->note(dir, prefix, false);
        else
            sweep_orphans(dirfd.get(), {prefix});
        if (outcome == KSDB_FILE_FIXED) KSDB_INFO(h, "Update %s (owner and mode)\n", target.c_str());
        else KSDB_DEBUG(h, "Unchanged %s\n", target.c_str());
        return finish(0);
    }
    if (exists && S_ISLNK(old.st_mode))
        KSDB_WARN(h, "%s is a symbolic link: it is replaced by the file, not followed\n",
                  target.c_str());

    // 2. The new file beside the target, complete and on disk before it
    // takes the name.
    std::string tmp_name;
    Fd tfd(create_locked_temp(dirfd.get(), prefix, &tmp_name));
    if (!tfd.ok()) {
        KSDB_ERR(h, "Cannot open temporary file %s/%sXXXXXX (%s)\n", dir.c_str(), prefix.c_str(),
                 std::strerror(errno));
        return finish(KSDB_E_FILE);
    }
    tmp_path = dir + "/" + tmp_name;
    auto drop = [&](int err) {
        unlinkat(dirfd.get(), tmp_name.c_str(), 0);
        errno = err;
        return finish(KSDB_E_FILE);
    };
    if (!write_all(tfd.get(), content)) {
        int err = errno;
        KSDB_ERR(h, "Cannot write %s (%s)\n", tmp_path.c_str(), std::strerror(err));
        return drop(err);
    }
    if (fchown(tfd.get(), uid, gid) != 0) {
        int err = errno;
        KSDB_ERR(h, "chown(%s,%d,%d) failed (errno=%d).\n", tmp_path.c_str(), static_cast<int>(uid),
                 static_cast<int>(gid), err);
        return drop(err);
    }
    if (fchmod(tfd.get(), mode) != 0) {
        int err = errno;
        KSDB_ERR(h, "chmod(%s,%04o) failed (errno=%d).\n", tmp_path.c_str(), mode, err);
        return drop(err);
    }
    if (fsync(tfd.get()) != 0) {
        int err = errno;
        KSDB_ERR(h, "Cannot write %s to disk (%s)\n", tmp_path.c_str(), std::strerror(err));
        return drop(err);
    }
    observe(target, tmp_path, 0, 0);

    // 3. The old file stays reachable as <name>.bak.
    if (old_regular && !keep_backup(dirfd.get(), base, oldfd.get(), prefix)) {
        int err = errno;
        KSDB_ERR(h, "Cannot keep %s.bak (%s)\n", target.c_str(), std::strerror(err));
        return drop(err);
    }

    // 4. One step from the old file to the new one.
    if (renameat(dirfd.get(), tmp_name.c_str(), dirfd.get(), base.c_str()) != 0) {
        int err = errno;
        KSDB_ERR(h, "Cannot move file to %s (%s)\n", target.c_str(), std::strerror(err));
        return drop(err);
    }
    if (t_batch) {
        tfd.close();
        t_batch->note(dir, prefix, true);
        KSDB_INFO(h, "Update %s\n", target.c_str());
        return finish(0);
    }
    if (fsync(dirfd.get()) != 0) {
        KSDB_ERR(h, "Cannot write the folder %s to disk (%s)\n", dir.c_str(), std::strerror(errno));
        return finish(KSDB_E_FILE);
    }
    tfd.close();
    sweep_orphans(dirfd.get(), {prefix});
    KSDB_INFO(h, "Update %s\n", target.c_str());
    return finish(0);
}

// ---- FolderSyncBatch ---------------------------------------------------------

FolderSyncBatch::FolderSyncBatch(ksdb_handle *h) : h_(h) {
    if (!t_batch) {
        t_batch = this;
        active_ = true;
    }
}

FolderSyncBatch::~FolderSyncBatch() { flush(); }

void FolderSyncBatch::note(const std::string &dir, const std::string &prefix, bool renamed) {
    auto [it, added] = index_.emplace(dir, folders_.size());
    if (added) folders_.push_back({dir, {}, false});
    Folder &f = folders_[it->second];
    f.prefixes.insert(prefix);
    f.renamed = f.renamed || renamed;
}

int FolderSyncBatch::flush() {
    if (!active_) return 0;
    int rc = 0;
    for (const Folder &f : folders_) {
        Fd dirfd(::open(f.dir.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
        if (f.renamed && (!dirfd.ok() || fsync(dirfd.get()) != 0)) {
            KSDB_ERR(h_, "Cannot write the folder %s to disk (%s)\n", f.dir.c_str(),
                     std::strerror(errno));
            rc = KSDB_E_FILE;
        }
        if (dirfd.ok()) sweep_orphans(dirfd.get(), f.prefixes);
    }
    folders_.clear();
    index_.clear();
    t_batch = nullptr;
    active_ = false;
    return rc;
}

// ---- ManagedFile -------------------------------------------------------------

ManagedFile::ManagedFile(ksdb_handle *h, const ksdb_file_spec &spec)
    : h_(h), path_(spec.path ? spec.path : ""), spec_(spec) {
    spec_.path = path_.c_str();
    fp_ = open_memstream(&buf_, &size_);
}

ManagedFile::ManagedFile(ksdb_handle *h, const char *live_path)
    : h_(h), path_(live_path ? live_path : "") {
    ksdb_file_spec_lookup(path_.c_str(), &spec_);
    spec_.path = path_.c_str();
    fp_ = open_memstream(&buf_, &size_);
}

ManagedFile::~ManagedFile() { abandon(); }

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
    if (state_ == State::kCommitted) return result_;
    if (state_ == State::kAbandoned || !fp_ || path_.empty() || path_[0] != '/') {
        KSDB_ERR(h_, "Cannot open temporary file for %s (%s)\n", path_.c_str(),
                 state_ == State::kAbandoned ? "abandoned"
                 : !fp_                      ? "no buffer"
                                             : "not an absolute path");
        abandon();
        return KSDB_E_FILE;
    }
    const bool bad = std::ferror(fp_) != 0;
    const bool closed = std::fclose(fp_) == 0;
    fp_ = nullptr;
    if (bad || !closed) {
        KSDB_ERR(h_, "Cannot write the content of %s (out of memory)\n", path_.c_str());
        abandon();
        return KSDB_E_FILE;
    }
    result_ = write_file(h_, effective_path(h_, path_), spec_, std::string_view(buf_, size_),
                         &outcome_);
    state_ = State::kCommitted;
    std::free(buf_);
    buf_ = nullptr;
    size_ = 0;
    return result_;
}

void ManagedFile::abandon() {
    if (fp_) std::fclose(fp_);
    fp_ = nullptr;
    std::free(buf_);
    buf_ = nullptr;
    size_ = 0;
    if (state_ == State::kOpen) state_ = State::kAbandoned;
}

int ManagedFileSet::commit() {
    FolderSyncBatch folders(h_);
    for (ManagedFile &f : files_) {
        if (int rc = f.commit()) {
            abandon();
            folders.flush();
            return rc;
        }
    }
    return folders.flush();
}

void ManagedFileSet::abandon() {
    for (ManagedFile &f : files_) f.abandon();
}

}  // namespace ksdb
