// File-system helpers for area code.  Each takes the handle and a live path
// ("/etc/exports", "/vol1/._share/docs") and applies the debug root itself,
// so area code never builds an effective path or calls access, stat, mkdir,
// open or unlink on its own: with a debug root set, nothing outside it is
// touched.  Writing a file's content always goes through ManagedFile.
#pragma once

#include "core/ksdb_internal.h"

#include <sys/stat.h>
#include <sys/types.h>

#include <string>
#include <string_view>
#include <vector>

namespace ksdb::fs {

// stat(2) of the path (following links): true on success.
bool stat(const ksdb_handle *h, std::string_view live, struct stat *st);
// lstat(2): the link itself.
bool lstat(const ksdb_handle *h, std::string_view live, struct stat *st);
bool exists(const ksdb_handle *h, std::string_view live);
bool is_dir(const ksdb_handle *h, std::string_view live);
bool is_regular(const ksdb_handle *h, std::string_view live);
// access(R_OK) of the effective path.
bool readable(const ksdb_handle *h, std::string_view live);

// mkdir(2) with `mode`: true when made or already a directory.  The mode is
// set explicitly afterwards (whatever the umask) only when the folder was
// made here.
bool make_dir(const ksdb_handle *h, std::string_view live, mode_t mode);
// The folder and each missing parent (mode 0755 for the parents); below a
// debug root nothing above the root is made.
bool make_dirs(const ksdb_handle *h, std::string_view live, mode_t mode = 0755);
bool chown(const ksdb_handle *h, std::string_view live, uid_t uid, gid_t gid);
bool chmod(const ksdb_handle *h, std::string_view live, mode_t mode);
// Removes a file (not a folder); true when it is gone (also when it was
// never there).
bool remove(const ksdb_handle *h, std::string_view live);

// The file's inode flags (FS_IOC_GETFLAGS: compression, no copy-on-write
// ...): 0, or -errno.  The file is opened without blocking.
int inode_flags(const ksdb_handle *h, std::string_view live, long *flags);

// The names in a folder, without "." and "..", sorted; empty when the
// folder cannot be read.
std::vector<std::string> list_dir(const ksdb_handle *h, std::string_view live);

// The debug root applied, for a path that is handed to a command (always
// through shell_quote) or shown in a message.
inline std::string real_path(const ksdb_handle *h, std::string_view live) {
    return effective_path(h, live);
}

}  // namespace ksdb::fs
