// File-system helpers that apply the debug root.
#define KSDB_MODULE "ksdb_fs"
#include "util/ksdb_fs.h"

#include "util/ksdb_raii.h"

#include <dirent.h>
#include <fcntl.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

namespace ksdb::fs {

bool stat(const ksdb_handle *h, std::string_view live, struct stat *st) {
    return ::stat(effective_path(h, live).c_str(), st) == 0;
}

bool lstat(const ksdb_handle *h, std::string_view live, struct stat *st) {
    return ::lstat(effective_path(h, live).c_str(), st) == 0;
}

bool exists(const ksdb_handle *h, std::string_view live) {
    struct stat st;
    return fs::lstat(h, live, &st);
}

bool is_dir(const ksdb_handle *h, std::string_view live) {
    struct stat st;
    return fs::stat(h, live, &st) && S_ISDIR(st.st_mode);
}

bool is_regular(const ksdb_handle *h, std::string_view live) {
    struct stat st;
    return fs::stat(h, live, &st) && S_ISREG(st.st_mode);
}

bool readable(const ksdb_handle *h, std::string_view live) {
    return ::access(effective_path(h, live).c_str(), R_OK) == 0;
}

bool make_dir(const ksdb_handle *h, std::string_view live, mode_t mode) {
    const std::string path = effective_path(h, live);
    if (::mkdir(path.c_str(), mode) == 0) {
        ::chmod(path.c_str(), mode);
        return true;
    }
    struct stat st;
    return errno == EEXIST && ::stat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
}

bool make_dirs(const ksdb_handle *h, std::string_view live, mode_t mode) {
    if (live.empty() || live == "/") return true;
    if (is_dir(h, live)) return true;
    const size_t slash = live.rfind('/');
    if (slash != std::string_view::npos && slash > 0 &&
        !make_dirs(h, live.substr(0, slash), 0755))
        return false;
    return make_dir(h, live, mode);
}

bool chown(const ksdb_handle *h, std::string_view live, uid_t uid, gid_t gid) {
    return ::chown(effective_path(h, live).c_str(), uid, gid) == 0;
}

bool chmod(const ksdb_handle *h, std::string_view live, mode_t mode) {
    return ::chmod(effective_path(h, live).c_str(), mode) == 0;
}

bool remove(const ksdb_handle *h, std::string_view live) {
    return ::unlink(effective_path(h, live).c_str()) == 0 || errno == ENOENT;
}

int inode_flags(const ksdb_handle *h, std::string_view live, long *flags) {
    Fd fd(::open(effective_path(h, live).c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
    if (!fd.ok()) return -errno;
    return ::ioctl(fd.get(), FS_IOC_GETFLAGS, flags) == 0 ? 0 : -errno;
}

std::vector<std::string> list_dir(const ksdb_handle *h, std::string_view live) {
    std::vector<std::string> out;
    Dir d(::opendir(effective_path(h, live).c_str()));
    if (!d) return out;
    while (dirent *e = ::readdir(d.get())) {
        std::string name = e->d_name;
        if (name != "." && name != "..") out.push_back(std::move(name));
    }
    std::sort(out.begin(), out.end());
    return out;
}

}  // namespace ksdb::fs
