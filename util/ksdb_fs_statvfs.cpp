// statvfs(2) below the debug root.
#define KSDB_MODULE "ksdb_fs_statvfs"
#include "util/ksdb_fs_statvfs.h"

namespace ksdb::fs {

bool statvfs(const ksdb_handle *h, std::string_view live, struct statvfs *out) {
    return ::statvfs(effective_path(h, live).c_str(), out) == 0;
}

}  // namespace ksdb::fs
