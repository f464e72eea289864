// statvfs(2) of a live path with the debug root applied, beside the other
// file-system helpers of util/ksdb_fs.h: area code asks for a file system's
// figures (its id, its free space) without building an effective path.
#pragma once

#include "core/ksdb_internal.h"

#include <sys/statvfs.h>

#include <string_view>

namespace ksdb::fs {

// statvfs(2) of the path (following links): true on success.
bool statvfs(const ksdb_handle *h, std::string_view live, struct statvfs *out);

}  // namespace ksdb::fs
