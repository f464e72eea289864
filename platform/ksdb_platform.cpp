// The platform layer: dispatch to the installed function set, and the
// built-in Linux implementation of each function.
#define KSDB_MODULE "ksdb_platform"
#include "platform/platform.h"

#include "core/ksdb_internal.h"
#include "util/ksdb_raii.h"

#include <blkid/blkid.h>
#include <dirent.h>
#include <fcntl.h>
#include <net/if.h>
#include <signal.h>
#include <spawn.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <mutex>
#include <sstream>
#include <string>
#include <vector>

extern char **environ;

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


// ---- commands --------------------------------------------------------------

// Runs argv[0] (looked up on PATH, no shell) with standard input from
// /dev/null and standard output into a pipe.  At most out_size - 1 bytes are
// kept; the rest is read and dropped so the program never blocks on a full
// pipe.  Returns 0 when the program exited 0, its exit status when it
// exited otherwise, 128 + the signal number when a signal ended it, and a
// negative errno when it could not be started (-ENOENT: no such program).
int builtin_exec_cmd(const char *const argv[], char *out, size_t out_size) {
    if (out && out_size) out[0] = '\0';
    if (!argv || !argv[0] || !argv[0][0]) return -EINVAL;

    int fds[2];
    if (pipe2(fds, O_CLOEXEC) != 0) return -errno;

    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_adddup2(&actions, fds[1], STDOUT_FILENO);

    // The program starts with no blocked signals and the default SIGPIPE
    // action, whatever the calling daemon set up for itself.
    posix_spawnattr_t attr;
    posix_spawnattr_init(&attr);
    sigset_t none, defaults;
    sigemptyset(&none);
    sigemptyset(&defaults);
    sigaddset(&defaults, SIGPIPE);
    posix_spawnattr_setsigmask(&attr, &none);
    posix_spawnattr_setsigdefault(&attr, &defaults);
    posix_spawnattr_setflags(&attr, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);

    pid_t pid = -1;
    int rc = posix_spawnp(&pid, argv[0], &actions, &attr, const_cast<char *const *>(argv),
                          environ);
    posix_spawnattr_destroy(&attr);
    posix_spawn_file_actions_destroy(&actions);
    close(fds[1]);
    if (rc != 0) {
        close(fds[0]);
        return -rc;
    }

    size_t used = 0;
    const size_t keep = (out && out_size > 0) ? out_size - 1 : 0;
    char drain[4096];
    while (true) {
        char *dst = used < keep ? out + used : drain;
        size_t room = used < keep ? keep - used : sizeof drain;
        ssize_t n = read(fds[0], dst, room);
        if (n < 0) {
            if (errno == EINTR) continue;
            break;
        }
        if (n == 0) break;
        if (dst != drain) used += static_cast<size_t>(n);
    }
    close(fds[0]);
    if (out && out_size) out[used] = '\0';

    int status = 0;
    while (waitpid(pid, &status, 0) < 0) {
        if (errno != EINTR) return -errno;
    }
    if (WIFEXITED(status)) return WEXITSTATUS(status);
    if (WIFSIGNALED(status)) return 128 + WTERMSIG(status);
    return -ECHILD;
}

// ---- paths -----------------------------------------------------------------

bool is_dir(const std::string &path) {
    struct stat st;
    return stat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
}

// Names in a directory, sorted, without "." and "..".
std::vector<std::string> list_dir(const std::string &path) {
    std::vector<std::string> names;
    if (ksdb::Dir d(opendir(path.c_str())); d) {
        while (struct dirent *e = readdir(d.get())) {
            if (!std::strcmp(e->d_name, ".") || !std::strcmp(e->d_name, "..")) continue;
            names.emplace_back(e->d_name);
        }
    }
    std::sort(names.begin(), names.end());
    return names;
}

// A platform path argument: dataset-style names ("vol/share") are taken
// from the file-system root; trailing slashes are dropped.
std::string absolute(const char *path) {
    std::string p = path[0] == '/' ? std::string(path) : "/" + std::string(path);
    while (p.size() > 1 && p.back() == '/') p.pop_back();
    return p;
}

void split_path(const std::string &p, std::string &parent, std::string &base) {
    size_t slash = p.rfind('/');
    parent = p.substr(0, slash);
    base = p.substr(slash + 1);
}

// ---- volumes ---------------------------------------------------------------

struct MountEntry {
    std::string source, target, fstype, options;
};

// /proc/mounts and fstab write blanks and the like as \ooo.
std::string unescape_mount_field(const std::string &field) {
    auto octal = [](char c, char max) { return c >= '0' && c <= max; };
    std::string out;
    for (size_t i = 0; i < field.size(); ++i) {
        if (field[i] == '\\' && i + 3 < field.size() && octal(field[i + 1], '3') &&
            octal(field[i + 2], '7') && octal(field[i + 3], '7')) {
            out += static_cast<char>((field[i + 1] - '0') * 64 + (field[i + 2] - '0') * 8 +
                                     (field[i + 3] - '0'));
            i += 3;
        } else {
            out += field[i];
        }
    }
    return out;
}

int read_mounts(std::vector<MountEntry> &mounts) {
    ksdb::File f(std::fopen("/proc/mounts", "re"));
    if (!f) return -errno;
    std::string text;
    char chunk[4096];
    size_t n;
    while ((n = std::fread(chunk, 1, sizeof chunk, f.get())) > 0) text.append(chunk, n);
    f.close();
    std::istringstream in(text);
    std::string line;
    while (std::getline(in, line)) {
        std::istringstream ss(line);
        MountEntry m;
        if (!(ss >> m.source >> m.target >> m.fstype >> m.options)) continue;
        m.source = unescape_mount_field(m.source);
        m.target = unescape_mount_field(m.target);
        mounts.push_back(std::move(m));
    }
    return 0;
}

bool has_option(const std::string &options, const char *option) {
    std::istringstream ss(options);
    std::string item;
    while (std::getline(ss, item, ','))
        if (item == option) return true;
    return false;
}

// "xxxxxxxx-xxxx-..." (any dashes) to eight 16-bit words in print order.
bool parse_uuid(const char *text, uint16_t words[8]) {
    uint16_t w[8] = {};
    int digits = 0;
    for (const char *p = text; *p; ++p) {
        if (*p == '-') continue;
        int v;
        if (*p >= '0' && *p <= '9')
            v = *p - '0';
        else if (*p >= 'a' && *p <= 'f')
            v = *p - 'a' + 10;
        else if (*p >= 'A' && *p <= 'F')
            v = *p - 'A' + 10;
        else
            return false;
        if (digits >= 32) return false;
        w[digits / 4] = static_cast<uint16_t>((w[digits / 4] << 4) | v);
        ++digits;
    }
    if (digits != 32) return false;
    std::memcpy(words, w, sizeof w);
    return true;
}

std::string device_base(const std::string &device) {
    char *real = realpath(device.c_str(), nullptr);
    std::string p = real ? real : device;
    std::free(real);
    size_t slash = p.rfind('/');
    return slash == std::string::npos ? p : p.substr(slash + 1);
}

// The file-system UUID of a device: read from its superblock with libblkid,
// or, when the device cannot be read (no privilege), found in
// /sys/fs/btrfs, where every mounted btrfs file system lists its devices.
std::string volume_uuid(const std::string &device) {
    std::string uuid;
    if (blkid_probe pr = blkid_new_probe_from_filename(device.c_str())) {
        blkid_probe_enable_superblocks(pr, 1);
        blkid_probe_set_superblocks_flags(pr, BLKID_SUBLKS_UUID | BLKID_SUBLKS_TYPE);
        const char *value = nullptr;
        if (blkid_do_safeprobe(pr) == 0 &&
            blkid_probe_lookup_value(pr, "UUID", &value, nullptr) == 0 && value)
            uuid = value;
        blkid_free_probe(pr);
    }
    if (!uuid.empty()) return uuid;
    const std::string base = device_base(device);
    for (const std::string &fs : list_dir("/sys/fs/btrfs")) {
        struct stat st;
        if (lstat(("/sys/fs/btrfs/" + fs + "/devices/" + base).c_str(), &st) == 0) return fs;
    }
    return std::string();
}

bool redundant_profile(const std::string &profile) {
    return profile.rfind("raid1", 0) == 0 || profile == "raid5" || profile == "raid6";
}

// Health of a btrfs volume: DEGRADED (3) when mounted with "degraded";
// else from the data profiles the file system reports under
// /sys/fs/btrfs/<uuid>/allocation/data: REDUNDANT (1) when every profile in
// use keeps a second copy or parity (raid1, raid1c3, raid1c4, raid10, raid5,
// raid6), UNPROTECTED (2) otherwise (single, dup, raid0, mixed) and when the
// profile cannot be read.
int volume_status(const MountEntry &m, const std::string &uuid) {
    if (has_option(m.options, "degraded")) return 3;
    if (uuid.empty()) return 2;
    bool any = false;
    for (const std::string &entry : list_dir("/sys/fs/btrfs/" + uuid + "/allocation/data")) {
        if (!is_dir("/sys/fs/btrfs/" + uuid + "/allocation/data/" + entry)) continue;
        any = true;
        if (!redundant_profile(entry)) return 2;
    }
    return any ? 1 : 2;
}

void set_blocks(ksdb_volume_entry &v, const std::string &path) {
    struct statvfs sv;
    if (statvfs(path.c_str(), &sv) != 0) return;
    const uint64_t frsize = sv.f_frsize ? sv.f_frsize : sv.f_bsize;
    v.blk_total = static_cast<uint64_t>(sv.f_blocks) * frsize / 1024;
    v.blk_free = static_cast<uint64_t>(sv.f_bavail) * frsize / 1024;
}

void add_device(ksdb_volume_entry &v, const std::string &device) {
    if (v.ndevices >= KSDB_MAX_VOLUME_DEVICES || device.size() >= sizeof v.devices[0]) return;
    for (int i = 0; i < v.ndevices; ++i)
        if (device == v.devices[i]) return;
    builtin_strncpyt(v.devices[v.ndevices++], device.c_str(), sizeof v.devices[0]);
}

ksdb_volume_entry btrfs_volume(const std::string &name, const MountEntry &m) {
    ksdb_volume_entry v{};
    builtin_strncpyt(v.name, name.c_str(), sizeof v.name);
    set_blocks(v, m.target);
    const std::string uuid = volume_uuid(m.source);
    if (!uuid.empty()) parse_uuid(uuid.c_str(), v.uuid);
    v.status = volume_status(m, uuid);
    add_device(v, m.source);
    if (!uuid.empty()) {
        const std::string first = device_base(m.source);
        for (const std::string &dev : list_dir("/sys/fs/btrfs/" + uuid + "/devices"))
            if (dev != first) add_device(v, "/dev/" + dev);
    }
    return v;
}

uint64_t fnv1a(const std::string &text, uint64_t hash) {
    for (unsigned char c : text) {
        hash ^= c;
        hash *= 0x100000001b3ULL;
    }
    return hash;
}

// A UUID that depends only on the volume name, so a folder volume keeps
// its identity from one scan to the next: two FNV-1a hashes of the name,
// marked as a version 8 (implementation-defined) RFC 4122 variant UUID.
void name_uuid(const std::string &name, uint16_t words[8]) {
    const uint64_t h1 = fnv1a(name, 0xcbf29ce484222325ULL);
    const uint64_t h2 = fnv1a(name, h1 ^ 0x9e3779b97f4a7c15ULL);
    uint8_t b[16];
    for (int i = 0; i < 8; ++i) {
        b[i] = static_cast<uint8_t>(h1 >> (56 - 8 * i));
        b[8 + i] = static_cast<uint8_t>(h2 >> (56 - 8 * i));
    }
    b[6] = static_cast<uint8_t>((b[6] & 0x0f) | 0x80);
    b[8] = static_cast<uint8_t>((b[8] & 0x3f) | 0x80);
    for (int i = 0; i < 8; ++i) words[i] = static_cast<uint16_t>((b[2 * i] << 8) | b[2 * i + 1]);
}

// The volumes: btrfs file systems mounted one level below the base ("/<name>"
// on the live system, "<root>/<name>" under a debug root).  Under a debug
// root every folder "<root>/<name>" that holds a "._share" folder is also a
// volume, so that a test or demonstration tree has volumes without mounts:
// its sizes come from the file system that holds the folder, its UUID from
// its name, its status is REDUNDANT and it has no device.
int builtin_volume_scan(const char *root, ksdb_volume_list *list) {
    if (!list) return -EINVAL;
    list->count = 0;
    list->volumes = nullptr;

    std::string base = (root && *root) ? root : "";
    while (!base.empty() && base.back() == '/') base.pop_back();
    const bool debug_root = !base.empty();

    std::vector<ksdb_volume_entry> found;
    auto known = [&found](const std::string &name) {
        for (const auto &v : found)
            if (name == v.name) return true;
        return false;
    };

    std::vector<MountEntry> mounts;
    int rc = read_mounts(mounts);
    if (rc != 0 && !debug_root) return rc;
    const std::string prefix = base + "/";
    for (const MountEntry &m : mounts) {
        if (m.fstype != "btrfs" || m.target.compare(0, prefix.size(), prefix) != 0) continue;
        const std::string name = m.target.substr(prefix.size());
        if (name.empty() || name.find('/') != std::string::npos ||
            name.size() >= sizeof found[0].name || known(name))
            continue;
        found.push_back(btrfs_volume(name, m));
    }

    if (debug_root) {
        for (const std::string &name : list_dir(base)) {
            if (name[0] == '.' || name.size() >= sizeof found[0].name || known(name)) continue;
            const std::string dir = prefix + name;
            if (!is_dir(dir) || !is_dir(dir + "/._share")) continue;
            ksdb_volume_entry v{};
            builtin_strncpyt(v.name, name.c_str(), sizeof v.name);
            set_blocks(v, dir);
            name_uuid(name, v.uuid);
            v.status = 1;
            found.push_back(v);
        }
    }

    std::sort(found.begin(), found.end(), [](const ksdb_volume_entry &a,
                                             const ksdb_volume_entry &b) {
        return std::strcmp(a.name, b.name) < 0;
    });
    if (found.size() > KSDB_MAX_VOLUMES) found.resize(KSDB_MAX_VOLUMES);
    if (found.empty()) return 0;
    auto *volumes = static_cast<ksdb_volume_entry *>(std::calloc(found.size(), sizeof found[0]));
    if (!volumes) return -ENOMEM;
    std::copy(found.begin(), found.end(), volumes);
    list->volumes = volumes;
    list->count = static_cast<int>(found.size());
    return 0;
}

void builtin_free_volume(ksdb_volume_list *list) {
    if (!list) return;
    std::free(list->volumes);
    list->volumes = nullptr;
    list->count = 0;
}

// ---- snapshots and quota groups -------------------------------------------

// The two places a share keeps its snapshots: "<share>/.snapshots/<name>/
// snapshot" (with the snapshot's info.xml beside it) and the share's meta
// folder "<volume>/._share/<share>/.snapshot/<name>".
std::vector<std::string> snapshot_dirs(const std::string &share) {
    std::vector<std::string> dirs;
    for (const std::string &name : list_dir(share + "/.snapshots")) {
        const std::string dir = share + "/.snapshots/" + name + "/snapshot";
        if (is_dir(dir)) dirs.push_back(dir);
    }
    std::string parent, base;
    split_path(share, parent, base);
    if (!base.empty()) {
        const std::string meta = parent + "/._share/" + base + "/.snapshot";
        for (const std::string &name : list_dir(meta))
            if (is_dir(meta + "/" + name)) dirs.push_back(meta + "/" + name);
    }
    return dirs;
}

int builtin_snapshot_get_path(const char *share_path, const char *snapshot_name, char **path) {
    if (path) *path = nullptr;
    if (!share_path || !*share_path || !snapshot_name || !path) return -EINVAL;
    const std::string name = snapshot_name;
    if (name.empty() || name == "." || name == ".." || name.find('/') != std::string::npos)
        return -EINVAL;
    const std::string share = absolute(share_path);
    std::string parent, base;
    split_path(share, parent, base);
    std::vector<std::string> candidates = {share + "/.snapshots/" + name + "/snapshot"};
    if (!base.empty()) candidates.push_back(parent + "/._share/" + base + "/.snapshot/" + name);
    for (const std::string &c : candidates) {
        if (!is_dir(c)) continue;
        *path = strdup(c.c_str());
        return *path ? 0 : -ENOMEM;
    }
    return -ENOENT;
}

struct QgroupFigures {
    uint64_t referenced = 0, exclusive = 0, max_referenced = 0;
};

bool parse_u64(const std::string &text, uint64_t &value) {
    if (text.empty() || text.find_first_not_of("0123456789") != std::string::npos) return false;
    errno = 0;
    value = std::strtoull(text.c_str(), nullptr, 10);
    return errno == 0;
}

// The figures of the level-0 quota group of the subvolume holding `path`,
// from "btrfs qgroup show -r --raw -f <path>": a header, a dashed line and
// rows "0/<id> <rfer> <excl> <max_rfer>" in bytes, max_rfer "none" when no
// limit is set (later columns, such as a path column, are ignored).
// 0; -ENOENT when the output holds no quota group; -EIO when the command
// failed (quotas disabled, not a btrfs path); -EPROTO for unreadable figures;
// the start-up error of the command (-ENOENT when there is no btrfs tool).
int qgroup_figures(const std::string &path, QgroupFigures &f) {
    const char *argv[] = {"btrfs", "qgroup", "show", "-r", "--raw", "-f", path.c_str(), nullptr};
    std::vector<char> out(16384);
    int rc = builtin_exec_cmd(argv, out.data(), out.size());
    if (rc < 0) return rc;
    if (rc != 0) return -EIO;
    std::istringstream ss(out.data());
    std::string line;
    while (std::getline(ss, line)) {
        std::istringstream ls(line);
        std::string id, rfer, excl, max_rfer;
        if (!(ls >> id >> rfer >> excl)) continue;
        if (id.rfind("0/", 0) != 0 || id.size() < 3 ||
            id.find_first_not_of("0123456789", 2) != std::string::npos)
            continue;
        ls >> max_rfer;
        if (!parse_u64(rfer, f.referenced) || !parse_u64(excl, f.exclusive)) return -EPROTO;
        if (max_rfer.empty() || max_rfer == "none")
            f.max_referenced = 0;
        else if (!parse_u64(max_rfer, f.max_referenced))
            return -EPROTO;
        return 0;
    }
    return -ENOENT;
}

// Quota-group figures of a share path.  Paths without a leading "/" are
// dataset names ("vol/share") and taken from the root.  referenced,
// exclusive and max_referenced (0: no limit) come from the subvolume's own
// quota group; snapshots_used adds up the exclusive bytes of the share's
// snapshots (both snapshot places; a snapshot without figures counts 0);
// compressratio is "1.00x" (btrfs reports no ratio through quota groups);
// logbias, origin and sync have no btrfs counterpart and stay empty.
int builtin_btrfs_get_qgroup_info(const char *path, ksdb_qgroup_info *info) {
    if (!path || !*path || !info) return -EINVAL;
    std::memset(info, 0, sizeof *info);
    builtin_strncpyt(info->compressratio, "1.00x", sizeof info->compressratio);
    const std::string p = absolute(path);
    struct stat st;
    if (stat(p.c_str(), &st) != 0) return -errno;
    QgroupFigures f;
    if (int rc = qgroup_figures(p, f)) return rc;
    info->referenced = f.referenced;
    info->exclusive = f.exclusive;
    info->max_referenced = f.max_referenced;
    for (const std::string &snap : snapshot_dirs(p)) {
        QgroupFigures sf;
        if (qgroup_figures(snap, sf) == 0) info->snapshots_used += sf.exclusive;
    }
    return 0;
}

// ---- data checksums ----------------------------------------------------------

// One fstab line with the byte ranges of its fields.
struct FstabFields {
    std::vector<std::pair<size_t, size_t>> spans;  // [begin, end)
};

FstabFields fstab_fields(const std::string &line) {
    FstabFields f;
    size_t i = 0;
    while (i < line.size()) {
        while (i < line.size() && (line[i] == ' ' || line[i] == '\t')) ++i;
        if (i >= line.size()) break;
        size_t start = i;
        while (i < line.size() && line[i] != ' ' && line[i] != '\t') ++i;
        f.spans.emplace_back(start, i);
    }
    return f;
}

// New option list: without any "nodatasum" (enable) or with one added
// (disable).  An emptied list becomes "defaults".
std::string toggle_option(const std::string &options, bool enable) {
    std::vector<std::string> items;
    std::istringstream ss(options);
    std::string item;
    bool present = false;
    while (std::getline(ss, item, ',')) {
        if (item == "nodatasum") {
            present = true;
            if (enable) continue;
        }
        if (!item.empty()) items.push_back(item);
    }
    if (!enable && !present) items.push_back("nodatasum");
    if (items.empty()) return "defaults";
    std::string out;
    for (size_t i = 0; i < items.size(); ++i) out += (i ? "," : "") + items[i];
    return out;
}

int write_replacing(const std::string &path, const std::string &content, const struct stat &st) {
    std::string tmpl = path + ".XXXXXX";
    int fd = mkostemp(tmpl.data(), O_CLOEXEC);
    if (fd < 0) return -errno;
    int rc = 0;
    size_t done = 0;
    while (done < content.size()) {
        ssize_t n = write(fd, content.data() + done, content.size() - done);
        if (n < 0) {
            if (errno == EINTR) continue;
            rc = -errno;
            break;
        }
        done += static_cast<size_t>(n);
    }
    if (rc == 0 && fchmod(fd, st.st_mode & 07777) != 0) rc = -errno;
    if (rc == 0 && geteuid() == 0 && fchown(fd, st.st_uid, st.st_gid) != 0) rc = -errno;
    if (rc == 0 && fsync(fd) != 0) rc = -errno;
    if (close(fd) != 0 && rc == 0) rc = -errno;
    if (rc == 0 && rename(tmpl.c_str(), path.c_str()) != 0) rc = -errno;
    if (rc != 0) unlink(tmpl.c_str());
    return rc;
}

// Data checksums of a btrfs pool are switched by its mount options in
// fstab: "enable" removes "nodatasum" from the line whose mount point is
// "/<pool>", "disable" adds it.  The other lines, and the layout of the
// changed one apart from its option field, stay byte for byte.  0 (also
// when the line already says so: the file is then left alone); -ENOENT when
// no line mounts the pool; -EINVAL for a bad pool name; else the errno of
// the failed read or write.  The new content goes to a temporary file in
// the same folder that is then renamed over the old one.
int builtin_toggle_datasum(const char *fstab, const char *pool, int enable) {
    if (!fstab || !*fstab || !pool || !*pool || std::strchr(pool, '/')) return -EINVAL;
    const std::string mount_point = std::string("/") + pool;

    // A symbolic link stays in place: the file it points to is replaced.
    char *real = realpath(fstab, nullptr);
    if (!real) return -errno;
    const std::string target = real;
    std::free(real);
    struct stat st;
    if (stat(target.c_str(), &st) != 0) return -errno;
    std::ifstream in(target, std::ios::binary);
    if (!in) return -EIO;
    std::ostringstream buf;
    buf << in.rdbuf();
    const std::string text = buf.str();

    std::string out;
    out.reserve(text.size() + 16);
    bool found = false;
    size_t pos = 0;
    while (pos < text.size()) {
        size_t nl = text.find('\n', pos);
        size_t end = nl == std::string::npos ? text.size() : nl;
        std::string line = text.substr(pos, end - pos);
        const std::string ending = nl == std::string::npos ? "" : "\n";
        pos = nl == std::string::npos ? text.size() : nl + 1;

        FstabFields f = fstab_fields(line);
        if (f.spans.size() >= 3 && line[f.spans[0].first] != '#' &&
            unescape_mount_field(line.substr(f.spans[1].first,
                                             f.spans[1].second - f.spans[1].first)) ==
                mount_point) {
            found = true;
            if (f.spans.size() >= 4) {
                auto [b, e] = f.spans[3];
                line.replace(b, e - b, toggle_option(line.substr(b, e - b), enable != 0));
            } else if (!enable) {
                line += "\tnodatasum";
            }
        }
        out += line + ending;
    }
    if (!found) return -ENOENT;
    if (out == text) return 0;
    return write_replacing(target, out, st);
}

// ---- network interfaces ----------------------------------------------------------

// The interfaces of a tree below a debug root: every folder of
// <base>/sys/class/net, its flags from "flags" ("0x1003") and its hardware
// address from "address" ("00:11:22:aa:bb:cc"); a file that is missing or
// does not read as such leaves its part unread.
int tree_net_if_scan(const std::string &base, ksdb_net_if *ifs, int max, int *count) {
    const std::string dir = base + "/sys/class/net";
    for (const std::string &name : list_dir(dir)) {
        if (*count >= max) break;
        if (!is_dir(dir + "/" + name)) continue;
        ksdb_net_if &e = ifs[(*count)++];
        e = ksdb_net_if{};
        builtin_strncpyt(e.name, name.c_str(), sizeof e.name);
        std::ifstream flags(dir + "/" + name + "/flags");
        std::string text;
        if (flags >> text) {
            char *end = nullptr;
            errno = 0;
            const unsigned long v = std::strtoul(text.c_str(), &end, 16);
            e.flags_ok = errno == 0 && end != text.c_str() && *end == '\0';
            e.flags = static_cast<unsigned int>(v);
        }
        std::ifstream address(dir + "/" + name + "/address");
        unsigned char *m = e.hwaddr;
        char tail = 0;
        if (address >> text)
            e.hwaddr_ok = std::sscanf(text.c_str(), "%2hhx:%2hhx:%2hhx:%2hhx:%2hhx:%2hhx%c", &m[0],
                                      &m[1], &m[2], &m[3], &m[4], &m[5], &tail) == 6;
    }
    return 0;
}

// The machine's IPv4 interfaces: SIOCGIFCONF into a 1024-byte list (at
// most 25 interfaces), then SIOCGIFFLAGS and SIOCGIFHWADDR of each.
int builtin_net_if_scan(const char *root, ksdb_net_if *ifs, int max, int *count) {
    if (!count) return KSDB_NET_IF_ELIST;
    *count = 0;
    if (!ifs || max <= 0) return 0;
    if (root && *root) {
        std::string base = root;
        while (!base.empty() && base.back() == '/') base.pop_back();
        return tree_net_if_scan(base, ifs, max, count);
    }
    const int fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (fd < 0) return KSDB_NET_IF_ENOSOCKET;
    char buf[1024];
    struct ifconf ifc {};
    ifc.ifc_len = sizeof buf;
    ifc.ifc_buf = buf;
    if (ioctl(fd, SIOCGIFCONF, &ifc) != 0) {
        close(fd);
        return KSDB_NET_IF_ELIST;
    }
    const int listed = ifc.ifc_len / static_cast<int>(sizeof(struct ifreq));
    for (int i = 0; i < listed && *count < max; ++i) {
        ksdb_net_if &e = ifs[(*count)++];
        e = ksdb_net_if{};
        builtin_strncpyt(e.name, ifc.ifc_req[i].ifr_name, sizeof e.name);
        struct ifreq r {};
        builtin_strncpyt(r.ifr_name, e.name, sizeof r.ifr_name);
        if (ioctl(fd, SIOCGIFFLAGS, &r) == 0) {
            e.flags_ok = 1;
            e.flags = static_cast<unsigned short>(r.ifr_flags);
        }
        if (ioctl(fd, SIOCGIFHWADDR, &r) == 0) {
            e.hwaddr_ok = 1;
            std::memcpy(e.hwaddr, r.ifr_hwaddr.sa_data, sizeof e.hwaddr);
        }
    }
    close(fd);
    return 0;
}

// ---- SNMP object identifier and hardware names --------------------------------

constexpr char kDefaultSysObjectId[] = "1.3.6.1.4.1.8072.3.2.10";

std::mutex g_oid_mutex;
std::string g_sys_object_id = kDefaultSysObjectId;

int builtin_getSysObjectID(char *buffer, size_t size) {
    if (!buffer || size == 0) return -EINVAL;
    std::lock_guard<std::mutex> lock(g_oid_mutex);
    if (g_sys_object_id.size() + 1 > size) {
        buffer[0] = '\0';
        return -ENOSPC;
    }
    std::memcpy(buffer, g_sys_object_id.c_str(), g_sys_object_id.size() + 1);
    return 0;
}

// Hardware-type names of the built-in set.  Its get_sys_info cannot tell
// one appliance model from another and always reports type 0, which has no
// name (unknown); a vendor set brings its own table indexed by the numbers
// its get_sys_info reports.
const char *const kBuiltinSystypes[] = {nullptr};

// The built-in functions reach callers through ksdb_platform_builtin() and
// the vendor fallback: no exception may leave them.  Memory exhaustion gives
// -ENOMEM, anything else -EIO.
template <class Body>
int no_throw(Body &&body) noexcept {
    try {
        return body();
    } catch (const std::bad_alloc &) {
        return -ENOMEM;
    } catch (...) {
        return -EIO;
    }
}

int safe_get_sys_info(ksdb_sys_info *info) {
    return no_throw([&] { return builtin_get_sys_info(info); });
}
int safe_volume_scan(const char *root, ksdb_volume_list *list) {
    return no_throw([&] { return builtin_volume_scan(root, list); });
}
int safe_snapshot_get_path(const char *share_path, const char *snapshot_name, char **path) {
    return no_throw([&] { return builtin_snapshot_get_path(share_path, snapshot_name, path); });
}
int safe_btrfs_get_qgroup_info(const char *path, ksdb_qgroup_info *info) {
    return no_throw([&] { return builtin_btrfs_get_qgroup_info(path, info); });
}
int safe_toggle_datasum(const char *fstab, const char *pool, int enable) {
    return no_throw([&] { return builtin_toggle_datasum(fstab, pool, enable); });
}
int safe_getSysObjectID(char *buffer, size_t size) {
    return no_throw([&] { return builtin_getSysObjectID(buffer, size); });
}

const ksdb_platform_ops kBuiltin = {
    safe_get_sys_info,
    builtin_strncpyt,
    builtin_exec_cmd,
    safe_volume_scan,
    builtin_free_volume,
    safe_snapshot_get_path,
    safe_btrfs_get_qgroup_info,
    safe_toggle_datasum,
    safe_getSysObjectID,
    kBuiltinSystypes,
    sizeof kBuiltinSystypes / sizeof kBuiltinSystypes[0],
    builtin_net_if_scan,
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
    KSDB_FALLBACK(net_if_scan);
#undef KSDB_FALLBACK
    if (!merged.systype_str) {
        merged.systype_str = kBuiltin.systype_str;
        merged.systype_count = kBuiltin.systype_count;
    }
    g_ops = merged;
}

int get_sys_info(ksdb_sys_info *info) { return g_ops.get_sys_info(info); }

char *strncpyt(char *dst, const char *src, size_t size) { return g_ops.strncpyt(dst, src, size); }

int exec_cmd(const char *const argv[], char *out, size_t out_size) {
    return g_ops.exec_cmd(argv, out, out_size);
}

int volume_scan(const char *root, ksdb_volume_list *list) { return g_ops.volume_scan(root, list); }

void free_volume(ksdb_volume_list *list) { g_ops.free_volume(list); }

int snapshot_get_path(const char *share_path, const char *snapshot_name, char **path) {
    return g_ops.snapshot_get_path(share_path, snapshot_name, path);
}

int btrfs_get_qgroup_info(const char *path, ksdb_qgroup_info *info) {
    return g_ops.btrfs_get_qgroup_info(path, info);
}

int toggle_datasum(const char *fstab, const char *pool, int enable) {
    return g_ops.toggle_datasum(fstab, pool, enable);
}

int getSysObjectID(char *buffer, size_t size) { return g_ops.getSysObjectID(buffer, size); }

int net_if_scan(const char *root, ksdb_net_if *ifs, int max, int *count) {
    return g_ops.net_if_scan(root, ifs, max, count);
}

void ksdb_platform_set_sys_object_id(const char *oid) {
    ksdb::quietly([&] {
        std::lock_guard<std::mutex> lock(g_oid_mutex);
        g_sys_object_id = oid ? oid : kDefaultSysObjectId;
    });
}

}  // extern "C"

namespace ksdb {

const char *systype_name(uint32_t hw_type) {
    if (!g_ops.systype_str || hw_type >= g_ops.systype_count) return nullptr;
    return g_ops.systype_str[hw_type];
}

}  // namespace ksdb
