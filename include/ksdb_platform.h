/*
 * libksdb platform layer: the system interfaces the library needs from the
 * appliance's system library (system record, volume list, quota groups,
 * snapshot paths, data checksums, SNMP object identifier, command runner,
 * network interfaces).
 *
 * The library carries a built-in Linux implementation of every function.
 * An integrator whose hardware comes with a vendor library substitutes the
 * whole set, or part of it, once at start-up, before any handle is made:
 *
 *     ksdb_platform_ops ops = *ksdb_platform_builtin();
 *     ops.volume_scan = vendor_volume_scan;
 *     ops.free_volume = vendor_free_volume;
 *     ksdb_platform_set(&ops);
 *
 * Members left NULL fall back to the built-in function.  Tests use the same
 * call to plug in fakes.
 */
#ifndef KSDB_PLATFORM_H
#define KSDB_PLATFORM_H

#include "ksdb.h"

#ifdef __cplusplus
extern "C" {
#endif

/* One volume as the scan reports it. */
#define KSDB_VOLUME_IGNORED 0x20 /* flags bit: the library skips this volume */
#define KSDB_MAX_VOLUMES 256
#define KSDB_MAX_VOLUME_DEVICES 16

typedef struct ksdb_volume_entry {
    char name[64];          /* volume name; the volume is mounted at "/<name>" */
    uint8_t flags;          /* KSDB_VOLUME_IGNORED and vendor bits */
    int status;             /* 1 redundant, 2 unprotected, 3 degraded, 4 dead, 5 inactive */
    uint16_t uuid[8];       /* 16-byte UUID as eight 16-bit words, in print order */
    uint64_t blk_total;     /* size in 1024-byte blocks */
    uint64_t blk_free;      /* free space in 1024-byte blocks */
    int ndevices;
    char devices[KSDB_MAX_VOLUME_DEVICES][64]; /* member devices, first one named */
} ksdb_volume_entry;

typedef struct ksdb_volume_list {
    int count;                  /* at most KSDB_MAX_VOLUMES */
    ksdb_volume_entry *volumes; /* owned by the list; released by free_volume */
} ksdb_volume_list;

/* Quota-group figures of one subvolume. */
typedef struct ksdb_qgroup_info {
    uint64_t referenced;        /* bytes used by the subvolume ("used") */
    uint64_t exclusive;         /* bytes used by it alone */
    uint64_t max_referenced;    /* reference quota in bytes, 0 when none */
    uint64_t snapshots_used;    /* bytes held by its snapshots ("usedbysnapshots") */
    char compressratio[16];     /* e.g. "1.00x" */
    char logbias[16];           /* empty when the file system has no such notion */
    char origin[64];
    char sync[16];
} ksdb_qgroup_info;

/* ---- network interfaces ------------------------------------------------
 * Added for the interface import (the network_if table): the scan of the
 * machine's IPv4 interfaces, their flags and hardware addresses. */
#define KSDB_MAX_NET_IFS 25       /* what a 1024-byte interface list holds */
#define KSDB_NET_IF_ENOSOCKET 1   /* net_if_scan: no socket could be opened */
#define KSDB_NET_IF_ELIST 2       /* net_if_scan: the interface list could not be read */

/* One interface as the scan reports it. */
typedef struct ksdb_net_if {
    char name[16];             /* NUL-terminated, at most 15 characters */
    int flags_ok;              /* 1 when its flags could be read */
    unsigned int flags;        /* IFF_* flags (IFF_LOOPBACK ...) */
    int hwaddr_ok;             /* 1 when its hardware address could be read */
    unsigned char hwaddr[6];   /* the hardware (MAC) address */
} ksdb_net_if;
/* ---- end of network interfaces ----------------------------------------- */

typedef struct ksdb_platform_ops {
    /* Fill the 244-byte system record; 0 on success. */
    int (*get_sys_info)(ksdb_sys_info *info);
    /* Bounded copy that always terminates (size > 0); returns dst. */
    char *(*strncpyt)(char *dst, const char *src, size_t size);
    /* Run argv[0] with arguments (no shell), capture at most out_size - 1
     * bytes of its standard output into out (always terminated when
     * out_size > 0); 0 when the program ran and exited 0. */
    int (*exec_cmd)(const char *const argv[], char *out, size_t out_size);
    /* List the data volumes.  `root` is the handle's debug root or NULL.
     * 0 on success; the list is released with free_volume. */
    int (*volume_scan)(const char *root, ksdb_volume_list *list);
    void (*free_volume)(ksdb_volume_list *list);
    /* Path of a snapshot of a share; *path is malloc'd, freed by the caller. */
    int (*snapshot_get_path)(const char *share_path, const char *snapshot_name, char **path);
    /* Quota-group figures of the subvolume at `path`; 0, or a negative errno
     * (-ENOENT when the path has no quota group). */
    int (*btrfs_get_qgroup_info)(const char *path, ksdb_qgroup_info *info);
    /* Switch the data checksums of a pool on or off in the fstab at `fstab`. */
    int (*toggle_datasum)(const char *fstab, const char *pool, int enable);
    /* The SNMP system object identifier as dotted text; 0 on success. */
    int (*getSysObjectID)(char *buffer, size_t size);
    /* Hardware-type names indexed by ksdb_sys_info.hw_type; NULL entries
     * mean unknown. */
    const char *const *systype_str;
    size_t systype_count;
    /* ---- network interfaces (added with the interface import) ----------
     * The IPv4 interfaces, at most `max` of them, into ifs[0 .. *count - 1]
     * in the order the system lists them: 0, KSDB_NET_IF_ENOSOCKET or
     * KSDB_NET_IF_ELIST.  `root` is the handle's debug root or NULL; the
     * built-in scan never reads the machine's interfaces below a root: it
     * lists the folders of <root>/sys/class/net instead, each with its
     * "flags" (hexadecimal) and "address" ("xx:xx:xx:xx:xx:xx") files, as
     * Linux shows them (none when the tree has no such folder). */
    int (*net_if_scan)(const char *root, ksdb_net_if *ifs, int max, int *count);
} ksdb_platform_ops;

/* The built-in Linux implementation. */
KSDB_API const ksdb_platform_ops *ksdb_platform_builtin(void);
/* Install `ops` (copied; NULL members fall back to the built-in ones);
 * NULL restores the built-in set.  Not thread-safe: call it at start-up. */
KSDB_API void ksdb_platform_set(const ksdb_platform_ops *ops);
/* The set in use. */
KSDB_API const ksdb_platform_ops *ksdb_platform_current(void);

/* Configuration of the built-in set: the SNMP object identifier it reports
 * (default "1.3.6.1.4.1.8072.3.2.10", the generic Linux agent).  NULL
 * restores the default. */
KSDB_API void ksdb_platform_set_sys_object_id(const char *oid);

#ifdef __cplusplus
}
#endif

#endif /* KSDB_PLATFORM_H */
