// File-system attributes of share folders: compression, bit-rot protection
// (copy-on-write with data checksums) and the reference quota, set through
// the file-system tools and read back from the file flags and the
// quota-group figures.
#define KSDB_MODULE "ksdb_btrfs_utils"
#include "core/ksdb_internal.h"
#include "util/ksdb_fs.h"
#include "platform/platform.h"

#include <fcntl.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <cerrno>
#include <cinttypes>
#include <string>
#include <vector>

namespace ksdb {

namespace {

// Runs a file-system tool with its arguments (no shell); 0 or 8.
int run_tool(ksdb_handle *h, std::vector<std::string> args) {
    std::vector<const char *> argv;
    for (const auto &a : args) argv.push_back(a.c_str());
    argv.push_back(nullptr);
    char out[256];
    int rc = exec_cmd(argv.data(), out, sizeof out);
    if (rc != 0) {
        std::string line;
        for (const auto &a : args) line += (line.empty() ? "" : " ") + a;
        KSDB_ERR(h, "Command failed: %s\n", line.c_str());
        return KSDB_E_SPAWN;
    }
    return 0;
}

// The volume of a live path: its first component.
std::string volume_of(const char *path) {
    std::string_view p(path);
    while (!p.empty() && p.front() == '/') p.remove_prefix(1);
    return std::string(p.substr(0, p.find('/')));
}


// Turning bit-rot protection on for a share also makes sure its pool keeps
// data checksums, when the pool is a volume of the scan that the library
// manages.  Turning it off for one share never switches the pool's
// checksums off: other shares may rely on them.
void ensure_pool_datasum(ksdb_handle *h, const std::string &pool) {
    ksdb_volume_list list{};
    if (volume_scan(h->debug_root, &list) != 0) return;
    bool managed = false;
    for (int i = 0; i < list.count; ++i)
        if (pool == list.volumes[i].name && !(list.volumes[i].flags & KSDB_VOLUME_IGNORED))
            managed = true;
    free_volume(&list);
    if (!managed) return;
    std::string fstab = effective_path(h, "/etc/fstab");
    int rval = toggle_datasum(fstab.c_str(), pool.c_str(), 1);
    KSDB_DEBUG(h, "\ntoggle_datasum pool[%s] rval[%d]", pool.c_str(), rval);
}

}  // namespace

}  // namespace ksdb

extern "C" {

int ksdb_btrfs_set_attr(ksdb_handle *h, const char *path, const char *name, const char *value) {
    if (!path || !name || !value) return KSDB_E_INVAL;
    return ksdb::boundary(h, KSDB_TAG, "ksdb_btrfs_set_attr", [&] {
        std::string target = ksdb::effective_path(h, path);
        std::string attr = name;
        if (attr == "compression")
            return ksdb::run_tool(h,
                                  {"chattr", std::strcmp(value, "on") == 0 ? "+c" : "-c", target});
        if (attr == "bitrotprotection") {
            // Protection on means copy-on-write (and so data checksums) stays on.
            bool on = std::strcmp(value, "on") == 0;
            int rc = ksdb::run_tool(h, {"chattr", on ? "-C" : "+C", target});
            if (rc == 0 && on) ksdb::ensure_pool_datasum(h, ksdb::volume_of(path));
            return rc;
        }
        if (attr == "refquota") {
            std::string size = std::strcmp(value, "0") == 0 ? "none" : value;
            int rc = ksdb::run_tool(h, {"btrfs", "quota", "enable", target});
            if (rc == 0) rc = ksdb::run_tool(h, {"btrfs", "qgroup", "limit", size, target});
            return rc;
        }
        return 0;
    });
}

int ksdb_btrfs_get_attr(ksdb_handle *h, const char *path, const char *name, char **value) {
    if (!path || !name || !value) return KSDB_E_INVAL;
    *value = nullptr;
    return ksdb::boundary(h, KSDB_TAG, "ksdb_btrfs_get_attr", [&]() -> int {
        // The pseudo-volume of removable media carries none of these attributes.
        if (ksdb::volume_of(path) == "media") return KSDB_E_INVAL;
        std::string target = ksdb::effective_path(h, path);
        std::string attr = name;
        if (attr == "compression" || attr == "bitrotprotection") {
            long flags = 0;
            if (ksdb::fs::inode_flags(h, path, &flags) != 0) return KSDB_E_FILE;
            bool on =
                attr == "compression" ? (flags & FS_COMPR_FL) != 0 : (flags & FS_NOCOW_FL) == 0;
            *value = ksdb::pool_strdup(h, on ? "on" : "off");
            return 0;
        }
        if (attr == "used" || attr == "refquota" || attr == "usedbysnapshots") {
            ksdb_qgroup_info info{};
            if (btrfs_get_qgroup_info(target.c_str(), &info) != 0) return KSDB_E_COMMAND;
            uint64_t bytes = attr == "used"       ? info.referenced
                             : attr == "refquota" ? info.max_referenced
                                                  : info.snapshots_used;
            if (attr == "refquota" && bytes == 0)
                *value = ksdb::pool_strdup(h, "none");
            else
                *value = ksdb::pool_printf(h, "%" PRIu64, bytes);
            return 0;
        }
        return KSDB_E_INVAL;
    });
}

int ksdb_disable_share_quota(ksdb_handle *h, const char *path) {
    return ksdb_btrfs_set_attr(h, path, "refquota", "none");
}

}  // extern "C"
