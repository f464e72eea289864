// The platform layer: dispatch to the installed function set, and the
// built-in Linux implementation of each function.
#define KSDB_MODULE "ksdb_platform"
#include "platform/platform.h"

#include "core/ksdb_internal.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <mutex>
#include <string>

namespace {

// ---- built-in Linux implementation ----------------------------------------

std::string read_dmi(const char *name) {
    std::ifstream in(std::string("/sys/class/dmi/id/") + name);
    std::string line;
    if (!in || !std::getline(in, line)) return std::string();
    while (!line.empty() && (line.back() == '\n' || line.back() == ' ' || line.back() == '\r'))
        line.pop_back();
    return line;
}

char *builtin_strncpyt(char *dst, const char *src, size_t size) {
    if (size == 0) return dst;
    size_t n = std::strlen(src);
    if (n >= size) n = size - 1;
    std::memcpy(dst, src, n);
    dst[n] = '\0';
    return dst;
}

int builtin_get_sys_info(ksdb_sys_info *info) {
    std::memset(info, 0, sizeof *info);
    builtin_strncpyt(info->vendor, read_dmi("sys_vendor").c_str(), sizeof info->vendor);
    builtin_strncpyt(info->model, read_dmi("product_name").c_str(), sizeof info->model);
    builtin_strncpyt(info->serial, read_dmi("product_serial").c_str(), sizeof info->serial);
    return 0;
}

const ksdb_platform_ops kBuiltin = {
    builtin_get_sys_info,
    builtin_strncpyt,
    nullptr,
    nullptr,
    nullptr,
    nullptr,
    nullptr,
    nullptr,
    nullptr,
    nullptr,
    0,
};

ksdb_platform_ops g_ops = kBuiltin;

}  // namespace

static_assert(sizeof(ksdb_sys_info) == KSDB_SYS_INFO_SIZE, "the system record is 244 bytes");

extern "C" {

const ksdb_platform_ops *ksdb_platform_builtin(void) { return &kBuiltin; }

const ksdb_platform_ops *ksdb_platform_current(void) { return &g_ops; }

void ksdb_platform_set(const ksdb_platform_ops *ops) {
    if (!ops) {
        g_ops = kBuiltin;
        return;
    }
    ksdb_platform_ops merged = *ops;
#define KSDB_FALLBACK(member) \
    if (!merged.member) merged.member = kBuiltin.member
    KSDB_FALLBACK(get_sys_info);
    KSDB_FALLBACK(strncpyt);
    KSDB_FALLBACK(exec_cmd);
    KSDB_FALLBACK(volume_scan);
    KSDB_FALLBACK(free_volume);
    KSDB_FALLBACK(snapshot_get_path);
    KSDB_FALLBACK(btrfs_get_qgroup_info);
    KSDB_FALLBACK(toggle_datasum);
    KSDB_FALLBACK(getSysObjectID);
#undef KSDB_FALLBACK
    if (!merged.systype_str) {
        merged.systype_str = kBuiltin.systype_str;
        merged.systype_count = kBuiltin.systype_count;
    }
    g_ops = merged;
}

int get_sys_info(ksdb_sys_info *info) { return g_ops.get_sys_info(info); }

char *strncpyt(char *dst, const char *src, size_t size) { return g_ops.strncpyt(dst, src, size); }

}  // extern "C"

namespace ksdb {

const char *systype_name(uint32_t hw_type) {
    if (!g_ops.systype_str || hw_type >= g_ops.systype_count) return nullptr;
    return g_ops.systype_str[hw_type];
}

}  // namespace ksdb
