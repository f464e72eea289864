// The platform functions as the library calls them.  Each dispatches to the
// installed ksdb_platform_ops (the built-in Linux set unless an integrator
// substituted the vendor's).  These names are internal to the library.
#pragma once

#include "ksdb_platform.h"

extern "C" {
int get_sys_info(ksdb_sys_info *info);
char *strncpyt(char *dst, const char *src, size_t size);
int exec_cmd(const char *const argv[], char *out, size_t out_size);
int volume_scan(const char *root, ksdb_volume_list *list);
void free_volume(ksdb_volume_list *list);
int snapshot_get_path(const char *share_path, const char *snapshot_name, char **path);
int btrfs_get_qgroup_info(const char *path, ksdb_qgroup_info *info);
int toggle_datasum(const char *fstab, const char *pool, int enable);
int getSysObjectID(char *buffer, size_t size);
int net_if_scan(const char *root, ksdb_net_if *ifs, int max, int *count);
}

namespace ksdb {
// Name of a hardware type from the platform's systype_str table; NULL when
// the table has no name for it.
const char *systype_name(uint32_t hw_type);
}  // namespace ksdb
