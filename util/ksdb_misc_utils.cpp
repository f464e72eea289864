// SQL templates and command execution, category names and the small
// account and host look-ups.
#define KSDB_MODULE "ksdb_misc_utils"
#include "util/ksdb_misc_utils.h"

#include <cerrno>
#include <cstdio>

namespace ksdb {

std::string shell_quote(std::string_view value) {
    std::string out;
    out.reserve(value.size() + 2);
    out += '\'';
    for (char c : value) {
        if (c == '\'')
            out += "'\\''";
        else
            out += c;
    }
    out += '\'';
    return out;
}

namespace {

const char *const kCategoryNames[KSDB_CATEGORY_COUNT] = {
    "NONE",           "ALL",          "VPD",
    "ALL_SERVICE",    "DEFAULT_SERVICE", "CIFS_SERVICE",
    "AFP_SERVICE",    "NFS_SERVICE",  "FTP_SERVICE",
    "HTTP_SERVICE",   "SNMP_SERVICE", "SSH_SERVICE",
    "REPLICATE_SERVICE", "VOLUME",    "DISK",
    "ACCOUNT",        "ADS_ACCOUNT",  "USB",
    "SHARE_STATS",    "ALL_SHARE",    "ZVOL_SHARE",
    "CIFS_SHARE",     "AFP_SHARE",    "NFS_SHARE",
    "FTP_SHARE",      "HTTP_SHARE",   "DLNA",
    "RSYNC",          "SNAPSHOT",     "BACKUP",
    "REPLISYNC",      "NETWORK",      "SERVICE",
    "AVAHI_SERVICE",  "VAULT_SETTINGS", "TIVO_SETTINGS",
    "UPS_SERVICE",    "ANTIVIRUS_SERVICE", "DICTIONARY",
    "UPS",            "LOCAL_UPS",    "HOTPLUG_USB",
    "VOLUME_SCHEDULE", "HF_STATS",    "AUTHORIZED_SSH_PUBLIC_KEY",
    "SHARE_FS_ATTRIBUTE", "REPLISYNC_KEY",
};

}  // namespace
}  // namespace ksdb

extern "C" {

char *ksdb_shell_quote(ksdb_handle *h, const char *value) {
    return ksdb::pool_strdup(h, ksdb::shell_quote(value ? value : "").c_str());
}

int ksdb_exec_vscanf(const char *command, const char *format, va_list ap) {
    FILE *f = popen(command, "r");
    if (!f) return -errno;
    int n = vfscanf(f, format, ap);
    pclose(f);
    return n;
}

int ksdb_exec_scanf(const char *command, const char *format, ...) {
    FILE *f = popen(command, "r");
    if (!f) return -1;
    va_list ap;
    va_start(ap, format);
    int n = vfscanf(f, format, ap);
    va_end(ap);
    pclose(f);
    return n;
}

int ksdb_safe_system(const char *command) {
    // Opened for writing and closed at once: the command reads an empty
    // standard input and writes to the caller's standard output.
    FILE *f = popen(command, "w");
    if (!f) return -1;
    return pclose(f);
}

const char *ksdb_cat2str(int category) {
    if (category < 0 || category >= KSDB_CATEGORY_COUNT) return "UNKNOWN";
    return ksdb::kCategoryNames[category];
}

}  // extern "C"
