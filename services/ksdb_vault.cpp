// The cloud vault client's account settings, kept in service_vault and in
// the client's own settings file, one "key value" line per setting.  The
// export always writes all five keys; the import takes an account only
// when the file names it whole, in the order the export writes it.
#define KSDB_MODULE "ksdb_vault"
#include "services/ksdb_service.h"

#include "core/ksdb_areas.h"

#include <optional>
#include <string>
#include <string_view>

namespace ksdb::vault {
namespace {

constexpr char kVaultConf[] = "/etc/kestravaVault.config";

// The client reads its lines with a 128-byte buffer: the first 127 bytes
// of a line are what it holds.
constexpr size_t kLineMax = 127;

// A setting is the rest of its line: a line break would start a setting
// of its own.
const ValueRule kVaultValue{"a vault client setting", "", 0};

std::optional<std::string> text(const SqlTable &t, int col) {
    const char *v = t.at(0, col);
    return v ? std::optional<std::string>(v) : std::nullopt;
}

int export_vault(ksdb_handle *h, sqlite3 *db) {
    ManagedFile out(h, kVaultConf);
    if (!out.ok()) {
        KSDB_ERR(h, "Cannot open temporary file of vault main conf for write (%s)\n", kVaultConf);
        return KSDB_E_FILE;
    }
    SqlTable t;
    if (t.query(h, db, KSDB_TAG, "%s", "SELECT V.name,V.password,V.defaultjob FROM service_vault V") !=
        SQLITE_OK) {
        KSDB_ERR(h, "Failed DB Query for vault service\n");
        return KSDB_E_DB;
    }
    if (t.rows() == 1) {
        const std::optional<std::string> name = text(t, 0), password = text(t, 1),
                                         job = text(t, 2);
        const char *row = "the vault account";
        for (const auto &[value, column] : {std::pair{&name, "name"}, std::pair{&password, "password"},
                                            std::pair{&job, "defaultjob"}})
            if (value->has_value())
                if (int rc = guard_value(h, **value, kVaultValue, {"service_vault", column, row}))
                    return rc;
        std::string hostname;
        if (int rc = service::read_hostname(h, &hostname)) return rc;
        // A missing name or password is written empty; a missing default
        // job set is "none".
        out.printf("username %s\nuserpassword %s\ndefaultjobs %s\nfolderpath /vault\nhostname %s\n",
                   name.value_or("").c_str(), password.value_or("").c_str(),
                   job.value_or("none").c_str(), hostname.c_str());
    } else {
        // No account, or no single one: every key with an empty value.
        out.write("username \nuserpassword \ndefaultjobs \nfolderpath /vault\nhostname \n");
    }
    if (out.commit() != 0) {
        KSDB_ERR(h, "Cannot move file to %s\n", kVaultConf);
        return KSDB_E_FILE;
    }
    return 0;
}

int import_vault(ksdb_handle *h, sqlite3 *db) {
    // A file that cannot be read changes nothing.
    ConfFile conf(h, kVaultConf);
    if (!conf.ok()) return 0;
    std::optional<std::string> name, password, job;
    conf.lines([&](char *raw) {
        // What does not fit the client's line buffer is dropped, never read
        // as a line of its own.
        const std::string_view line = std::string_view(raw).substr(0, kLineMax);
        const size_t blank = line.find(' ');
        if (blank == std::string_view::npos) return true;
        const std::string_view key = line.substr(0, blank);
        const std::string_view value = line.substr(blank + 1);
        if (value.empty()) return true;
        if (key == "username") {
            name = value;
        } else if (key == "userpassword") {
            password = value;
        } else if (key == "defaultjobs") {
            job = value;
            return false;  // nothing after the default job set is read
        }
        return true;
    });
    // Only a whole account counts: name and password, then the job set.
    if (!job || !name || !password) return 0;
    if (int rc = exec_or_fail(h, db, "Failed to DELETE service_vault\n", "DELETE FROM service_vault"))
        return rc;
    return exec_or_fail(h, db, "Failed to INSERT service_vault\n",
                        "INSERT INTO service_vault (enabled,name,password,defaultjob) "
                        "VALUES(1,%Q,%Q,%Q)",
                        name->c_str(), password->c_str(), job->c_str());
}

}  // namespace
}  // namespace ksdb::vault

KSDB_STEP(ksdb_vault_import) { return ksdb::vault::import_vault(h, db); }

KSDB_STEP(ksdb_vault_export) { return ksdb::vault::export_vault(h, db); }
