// SQL templates and command execution, category names and the small
// account and host look-ups.
#define KSDB_MODULE "ksdb_misc_utils"
#include "util/ksdb_misc_utils.h"

#include "util/ksdb_conf_reader.h"
#include "util/ksdb_value_guard.h"

#include <cerrno>
#include <cstdio>
#include <algorithm>
#include <string>

#include <strings.h>

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

constexpr char kFieldOpen[] = "{SQL{";
constexpr size_t kFieldOpenLen = sizeof kFieldOpen - 1;
constexpr char kFieldClose[] = "}}";
// The query of a field is copied into a buffer of this size: 2047
// characters and the terminator.
constexpr size_t kQueryBufferSize = 2048;
// The vfat check builds its command line in a buffer of this size.
constexpr size_t kVfatCommandSize = 248;

// A field's query is an sqlite printf format used without arguments, so
// the only directive it may hold is "%%" (a literal percent sign; a "%" at
// the very end is also written as itself).  Anything else would make the
// formatter read arguments that are not there: such a query is refused
// (false) instead of being run.  On success `sql` holds the query as the
// formatter would have produced it.
bool unescape_query(std::string_view query, std::string &sql) {
    sql.clear();
    sql.reserve(query.size());
    for (size_t i = 0; i < query.size(); ++i) {
        if (query[i] != '%') {
            sql += query[i];
        } else if (i + 1 == query.size()) {
            sql += '%';
        } else if (query[i + 1] == '%') {
            sql += '%';
            ++i;
        } else {
            return false;
        }
    }
    return true;
}

bool ascii_alpha(unsigned char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); }
bool ascii_digit(unsigned char c) { return c >= '0' && c <= '9'; }
bool ascii_alnum(unsigned char c) { return ascii_alpha(c) || ascii_digit(c); }

bool equals_nocase(const char *a, const char *b) { return strcasecmp(a, b) == 0; }

}  // namespace
}  // namespace ksdb

extern "C" {

char *ksdb_shell_quote(ksdb_handle *h, const char *value) {
    return ksdb::boundary_value(h, KSDB_TAG, __func__, static_cast<char *>(nullptr), [&] {
        return ksdb::pool_strdup(h, ksdb::shell_quote(value ? value : "").c_str());
    });
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

// ---- templates ---------------------------------------------------------------

namespace ksdb {
namespace {

int template_write(ksdb_handle *h, sqlite3 *db, FILE *out, const char *const *pieces) {
    std::string sql;
    for (const char *const *piece = pieces; *piece; ++piece) {
        const char *cur = *piece;
        while (true) {
            const char *open = std::strstr(cur, kFieldOpen);
            const char *query = open ? open + kFieldOpenLen : nullptr;
            const char *close = query ? std::strstr(query, kFieldClose) : nullptr;
            if (!close) {
                // No field left (or an unclosed "{SQL{"): the rest as it is.
                std::fputs(cur, out);
                break;
            }
            const std::string_view text(query, static_cast<size_t>(close - query));
            if (text.size() >= kQueryBufferSize) {
                KSDB_ERR(h, "Buffer too small.\n");
                return KSDB_E_FILE;
            }
            // The value goes to scratch memory, not the caller's pool:
            // exporters write templates again and again.
            std::optional<std::string> value;
            int rc = unescape_query(text, sql)
                         ? sql_scalar(h, db, nullptr, KSDB_TAG, &value, "%s", sql.c_str())
                         : SQLITE_MISUSE;
            if (rc != 0) {
                KSDB_ERR(h, "Query Error for embed sql: %s\n", std::string(text).c_str());
                return KSDB_E_DB;
            }
            // A field stands inside a line: a value may not add one.
            if (value) {
                if (int refused = guard_value(h, *value, rules::kLine,
                                              {"template", "field", text}))
                    return refused;
            }
            std::fwrite(cur, 1, static_cast<size_t>(open - cur), out);
            if (value) std::fwrite(value->data(), 1, value->size(), out);
            // The value is written, never scanned: a "{SQL{" inside it stays text.
            cur = close + 2;
        }
    }
    return 0;
}

}  // namespace
}  // namespace ksdb

extern "C" int ksdb_template_write(ksdb_handle *h, sqlite3 *db, FILE *out,
                                   const char *const *pieces) {
    if (!pieces) return 0;
    return ksdb::boundary(h, KSDB_TAG, __func__,
                          [&] { return ksdb::template_write(h, db, out, pieces); });
}

// ---- accounts and host -------------------------------------------------------

extern "C" int ksdb_is_admin_user(ksdb_handle *h, const char *username) {
    (void)h;
    KSDB_ASSERT(username);
    if (username[0] == '@') return 0;
    return ksdb::equals_nocase(username, "admin") || ksdb::equals_nocase(username, "Administrator");
}

extern "C" char *ksdb_admin_users(ksdb_handle *h, sqlite3 *db) {
    return ksdb::boundary_value(h, KSDB_TAG, __func__, static_cast<char *>(nullptr), [&] {
        char *value = nullptr;
        if (ksdb_sql_get_scaler_mprintf(
                h, db, nullptr, KSDB_TAG, &value,
                "SELECT CASE WHEN security='user' THEN 'Administrator' ELSE "
                "workgroup||'\\'||domain_admin_user END FROM service_cifs") != 0) {
            KSDB_ERR(h, "Failed DB Query for cifs service\n");
        }
        // +admin always leads the list, so the local administrator keeps its
        // rights whatever the CIFS security mode says.
        return ksdb::pool_printf(h, "\"+admin\",\"%s\"", value ? value : "Administrator");
    });
}

// The first line of the host-name file, at most 127 characters, without its
// newline.  Read like every configuration file (a FIFO or a device planted
// there is refused at once, not waited on).
extern "C" char *ksdb_get_hostname(ksdb_handle *h) {
    return ksdb::boundary_value(h, KSDB_TAG, __func__, static_cast<char *>(nullptr), [&] {
        constexpr size_t kLineMax = 127;
        constexpr size_t kLimit = 64 * 1024;
        std::string text;
        if (!ksdb::read_regular_file(ksdb::effective_path(h, "/etc/hostname"), &text, kLimit) ||
            text.empty())
            return static_cast<char *>(nullptr);
        size_t n = std::min(text.size(), kLineMax);
        const size_t nl = text.find('\n');
        if (nl != std::string::npos && nl < n) n = nl;
        text.resize(n);
        return ksdb::pool_strdup(h, text.c_str());
    });
}

extern "C" uint32_t ksdb_guest_uid(ksdb_handle *h, sqlite3 *db) {
    uint32_t id = 0;
    if (ksdb_sql_get_uint32_mprintf(
            h, db, nullptr, KSDB_TAG, &id, nullptr,
            "SELECT IFNULL((SELECT U.id FROM `$user` U WHERE U.uname='guest'),"
            "(SELECT U.id FROM `$user` U WHERE U.uname='nobody'))") != 0)
        return 0;
    return id;
}

extern "C" uint32_t ksdb_guest_gid(ksdb_handle *h, sqlite3 *db) {
    uint32_t id = 0;
    if (ksdb_sql_get_uint32_mprintf(
            h, db, nullptr, KSDB_TAG, &id, nullptr,
            "SELECT IFNULL((SELECT G.id FROM `$group` G WHERE G.gname='guest'),"
            "(SELECT G.id FROM `$group` G WHERE G.gname='nogroup'))") != 0)
        return 0;
    return id;
}

// ---- devices and names -------------------------------------------------------

namespace ksdb {
namespace {

int check_vfat(ksdb_handle *h, const char *device) {
    if (!device || !*device || device[0] == '-') {
        // Nothing to look for, or a name grep would take for an option.
        KSDB_ERR(h, "ksdb_check_vfat: invalid device name [%s]\n", device ? device : "(null)");
        KSDB_DEBUG(h, "ksdb_check_vfat return: %d\n", 0);
        return 0;
    }
    const std::string command = "mount |grep " + ksdb::shell_quote(device) + " |grep vfat";
    if (command.size() >= ksdb::kVfatCommandSize) {
        // The command line has a fixed room; a cut-off quoted name would
        // run something else, so an over-long name is not looked up at all.
        KSDB_ERR(h, "ksdb_check_vfat: device name too long [%s]\n", device);
        KSDB_DEBUG(h, "ksdb_check_vfat return: %d\n", 0);
        return 0;
    }
    ksdb::Pipe pipe(command.c_str(), "re");
    if (!pipe) {
        KSDB_ERR(h, "Failed to exe: %s\n", command.c_str());
        return 0;
    }
    char line[256];
    int found = 0;
    if (std::fgets(line, sizeof line, pipe.get()) && std::strstr(line, "vfat")) found = 1;
    pipe.close();
    KSDB_DEBUG(h, "ksdb_check_vfat return: %d\n", found);
    return found;
}

}  // namespace
}  // namespace ksdb

extern "C" int ksdb_check_vfat(ksdb_handle *h, const char *device) {
    return ksdb::boundary_value(h, KSDB_TAG, __func__, 0,
                                [&] { return ksdb::check_vfat(h, device); });
}

extern "C" int ksdb_check_domain_name(const char *name) {
    if (!name || !*name) return -EAGAIN;
    const auto *s = reinterpret_cast<const unsigned char *>(name);
    if (!ksdb::ascii_alnum(s[0])) return 1;
    size_t len = 1;
    for (; s[len]; ++len) {
        const unsigned char c = s[len];
        if (!ksdb::ascii_alnum(c) && c != '_' && c != '-' && c != '.') return 2;
    }
    if (len > 255) return 3;
    // Every dot-separated label needs a letter: this rejects empty labels
    // (".." or a trailing dot) and all-digit names such as IPv4 addresses.
    bool letter = false;
    for (size_t i = 0; i <= len; ++i) {
        if (i == len || s[i] == '.') {
            if (!letter) return 4;
            letter = false;
        } else if (ksdb::ascii_alpha(s[i])) {
            letter = true;
        }
    }
    return 0;
}

extern "C" uint64_t ksdb_div_unit(uint64_t value, int si) { return si ? value / 1000 : value >> 10; }

extern "C" uint64_t ksdb_mul_unit(uint64_t value, int si) { return si ? value * 1000 : value << 10; }
