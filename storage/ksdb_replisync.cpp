// Replication jobs: the replication service's jobs in the table `replisync`
// and in its INI file /etc/replisync/replisync.conf, one section per job.
// In the file the job's switch is inverted ("disabled") and its 168-hour
// week schedule is packed into 21 bytes written as hexadecimal digits.
#define KSDB_MODULE "ksdb_replisync"
#include "core/ksdb_area.h"
#include "core/ksdb_areas.h"
#include "util/ksdb_job_files.h"
#include "util/ksdb_string_utils.h"

#include <cstdio>
#include <cstdlib>
#include <optional>
#include <string>
#include <string_view>

namespace ksdb::replisync {
namespace {

constexpr char kConf[] = "/etc/replisync/replisync.conf";
constexpr int kHours = 168;
constexpr int kBytes = kHours / 8;

// A job's name becomes the section line "[name]".
const ValueRule kSectionName{"an INI section name", "[]",
                             kValueNotEmpty | kValueNoLeadingBlank | kValueNoTrailingBlank};

// ---- the packed schedule -----------------------------------------------------------

// Bit i (of byte i / 8, from the lowest bit up) is hour i of the week.
std::string pack(std::string_view hours) {
    unsigned char bytes[kBytes] = {};
    for (size_t i = 0; i < hours.size() && i < kHours; ++i)
        if (hours[i] == '1') bytes[i / 8] |= static_cast<unsigned char>(1u << (i % 8));
    std::string out;
    for (unsigned char b : bytes) out += strprintf("%02X", b);
    return out;
}

// Two hexadecimal digits at a time, as far as they go; the hours they do
// not reach are "0".
std::string unpack(const std::string &hex) {
    unsigned char bytes[kBytes] = {};
    for (int i = 0; i < kBytes && hex.size() >= static_cast<size_t>(2 * i + 2); ++i)
        if (std::sscanf(hex.c_str() + 2 * i, "%2hhX", &bytes[i]) != 1) break;
    std::string out;
    for (int i = 0; i < kHours; ++i) out += (bytes[i / 8] >> (i % 8)) & 1 ? '1' : '0';
    return out;
}

// ---- import ----------------------------------------------------------------------

struct Job {
    std::string name;
    int enabled = 1;
    std::optional<std::string> source_host, source_path, dest_host, dest_path, schedule;
    int source_port = 0, dest_port = 0, interval = 0, bw_limit = 0, encrypt = 0, compress = 0;
};

// Sets what a key of the file stands for; false for a key the file may not
// hold.
bool set_key(Job &job, std::string_view key, const std::string &value) {
    const int n = std::atoi(value.c_str());
    struct Number {
        const char *key;
        int Job::*field;
    };
    static const Number kNumbers[] = {
        {"source port", &Job::source_port}, {"dest port", &Job::dest_port},
        {"interval", &Job::interval},       {"bw limit", &Job::bw_limit},
        {"encrypt", &Job::encrypt},         {"compress", &Job::compress},
    };
    for (const Number &k : kNumbers) {
        if (key == k.key) {
            job.*k.field = n;
            return true;
        }
    }
    struct Text {
        const char *key;
        std::optional<std::string> Job::*field;
    };
    static const Text kTexts[] = {
        {"source host", &Job::source_host}, {"source path", &Job::source_path},
        {"dest host", &Job::dest_host},     {"dest path", &Job::dest_path},
    };
    for (const Text &k : kTexts) {
        if (key == k.key) {
            job.*k.field = value;
            return true;
        }
    }
    if (key == "disabled") {
        job.enabled = n == 0 ? 1 : 0;
        return true;
    }
    if (key == "schedule") {
        job.schedule = unpack(value);
        return true;
    }
    return false;
}

int insert_job(ksdb_handle *h, sqlite3 *db, const Job &j) {
    auto t = [](const std::optional<std::string> &v) { return v ? v->c_str() : nullptr; };
    if (ksdb_sql_exec_mprintf(h, db, nullptr, KSDB_TAG,
                              "INSERT OR REPLACE INTO replisync(name,enabled,source_host,"
                              "source_port,source_path,dest_host,dest_port,dest_path,interval,"
                              "bw_limit,encrypt,compress,schedule) "
                              "VALUES(%Q,%d,%Q,%d,%Q,%Q,%d,%Q,%d,%d,%d,%d,%Q)",
                              j.name.c_str(), j.enabled, t(j.source_host), j.source_port,
                              t(j.source_path), t(j.dest_host), j.dest_port, t(j.dest_path),
                              j.interval, j.bw_limit, j.encrypt, j.compress,
                              t(j.schedule)) != SQLITE_OK) {
        KSDB_ERR(h, "Error in SQL Exec.\n");
        return KSDB_E_DB;
    }
    return 0;
}

// A value as the INI reader gives it: a ";" at its start or after a blank
// begins a comment.
std::string ini_value(std::string_view value) {
    for (size_t i = 0; i < value.size(); ++i) {
        if (value[i] == ';' && (i == 0 || value[i - 1] == ' ' || value[i - 1] == '\t')) {
            value = value.substr(0, i);
            break;
        }
    }
    return std::string(trim_blanks(value));
}

// The file is read line by line like an INI file: a section starts a new
// job when its name differs from the current job's; each key sets its
// column.  A line that breaks the format, or a key the file may not hold, is
// logged and passed over.
int import_jobs(ksdb_handle *h, sqlite3 *db) {
    if (ksdb_sql_exec(h, db, nullptr, KSDB_TAG, "DELETE FROM `replisync`") != SQLITE_OK) {
        KSDB_ERR(h, "Failed to DELETE replisync\n");
        return KSDB_E_DB;
    }
    if (!fs::readable(h, kConf)) return 0;
    ConfFile conf(h, kConf);
    if (!conf.ok()) return conf.status();
    std::optional<Job> job;
    int rc = 0, lineno = 0;
    conf.lines([&](char *raw) {
        ++lineno;
        const std::string_view line = trim_blanks(raw);
        if (is_blank_or_comment(raw, "#;")) return true;
        std::string_view key, value;
        if (line.front() == '[') {
            auto name = section_name(line);
            if (!name) {
                KSDB_ERR(h, "%s:%d: unclosed section\n", kConf, lineno);
            } else if (!job || job->name != *name) {
                if (job && (rc = insert_job(h, db, *job))) return false;
                job.emplace();
                job->name = *name;
            }
        } else if (!split_key_value(line, '=', &key, &value) &&
                   !split_key_value(line, ':', &key, &value)) {
            KSDB_ERR(h, "%s:%d: not a section, a key or a comment\n", kConf, lineno);
        } else if (!job || !set_key(*job, key, ini_value(value))) {
            KSDB_ERR(h, "%s:%d: unknown key '%.*s'\n", kConf, lineno, static_cast<int>(key.size()),
                     key.data());
        }
        return true;
    });
    if (rc) return rc;
    return job ? insert_job(h, db, *job) : 0;
}

// ---- export ----------------------------------------------------------------------

constexpr char kJobQuery[] =
    "SELECT id,name,enabled,source_host,source_port,source_path,dest_host,dest_port,dest_path,"
    "interval,bw_limit,encrypt,compress,schedule FROM replisync";
constexpr const char *kColumns[] = {"id",       "name",      "enabled",   "source_host",
                                    "source_port", "source_path", "dest_host", "dest_port",
                                    "dest_path", "interval",  "bw_limit",  "encrypt",
                                    "compress", "schedule"};
constexpr int kFirstSetting = 2;  // `enabled`
constexpr int kSchedule = 13;

// The key of a column: its first "_" becomes a blank.
std::string key_of(const char *column) {
    std::string key = std::string(column).substr(0, 64);
    const size_t u = key.find('_');
    if (u != std::string::npos) key[u] = ' ';
    return key;
}

int check_values(ksdb_handle *h, const SqlTable &jobs) {
    for (int r = 0; r < jobs.rows(); ++r) {
        const char *name = jobs.str(r, 1);
        if (!*name) continue;
        if (int rc = guard_value(h, name, kSectionName, {"replisync", "name", name})) return rc;
        for (int c = kFirstSetting + 1; c < kSchedule; ++c)
            if (int rc = guard_value(h, jobs.at(r, c), rules::kIniValue,
                                     {"replisync", kColumns[c], name}))
                return rc;
    }
    return 0;
}

std::string conf_text(const SqlTable &jobs) {
    std::string out;
    for (int r = 0; r < jobs.rows(); ++r) {
        if (!*jobs.str(r, 1)) continue;
        out += strprintf("[%s]\n", jobs.str(r, 1));
        for (int c = kFirstSetting; c < jobs.cols(); ++c) {
            const char *value = jobs.str(r, c);
            if (!*value) continue;
            const std::string key = key_of(kColumns[c]);
            if (c == kSchedule)
                out += strprintf("%s = %s\n", key.c_str(), pack(value).c_str());
            else if (key.find("port") != std::string::npos && std::atoi(value) == 0)
                continue;
            else if (key.find("enabled") != std::string::npos)
                out += strprintf("disabled = %d\n", std::atoi(value) != 0 ? 0 : 1);
            else
                out += strprintf("%s = %s\n", key.c_str(), value);
        }
    }
    return out;
}

int export_jobs(ksdb_handle *h, sqlite3 *db) {
    SqlTable jobs;
    if (jobs.query(h, db, KSDB_TAG, kJobQuery) != SQLITE_OK) {
        KSDB_ERR(h, "Failed DB Query for 'SELECT FROM replisync'\n");
        return KSDB_E_DB;
    }
    if (int rc = check_values(h, jobs)) return rc;
    return put_managed_file(h, kConf, conf_text(jobs));
}

}  // namespace
}  // namespace ksdb::replisync

KSDB_STEP(ksdb_replisync_import) { return ksdb::replisync::import_jobs(h, db); }

KSDB_STEP(ksdb_replisync_export) { return ksdb::replisync::export_jobs(h, db); }
