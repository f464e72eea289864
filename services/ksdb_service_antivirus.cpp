// The virus scanner's service file: clamd.conf, fixed settings with the
// on-access scan of every mounted volume and of the FTP folder.
#define KSDB_MODULE "ksdb_service_antivirus"
#include "services/ksdb_service.h"

#include "core/ksdb_areas.h"

#include <string>

namespace ksdb::service {
namespace {

constexpr char kClamdConf[] = "/etc/clamav/clamd.conf";
// The longest mount path written for a volume ("/" and its name).
constexpr size_t kMountPathMax = 255;

// The scanner takes the rest of the line as a path, blanks inside
// included, but drops blanks at its end, reads a backslash as an escape and
// a leading double quote as quoting; quotes and "#" are refused as well so
// that no value reads differently to another reader of the file.
const ValueRule kClamPath{"a clamd path", "#\"'\\",
                          kValueNotEmpty | kValueNoLeadingBlank | kValueNoTrailingBlank};
// A volume name is the one component of its mount path.
const ValueRule kClamVolume{"a clamd volume name", "/#\"'\\",
                            kValuePathComponent | kValueNoLeadingBlank | kValueNoTrailingBlank};

// The settings that do not depend on the appliance's volumes.  The
// keywords are padded to one column, except the on-access lines of the
// volumes below, which keep their own widths.
constexpr char kClamdHead[] =
    "LocalSocket                /var/run/clamav/clamd.ctl\n"
    "User                       root\n"
    "MaxDirectoryRecursion      16\n"
    "ReadTimeout                300\n"
    "MaxThreads                 8\n"
    "MaxConnectionQueueLength   30\n"
    "LogRotate                  false\n"
    "LogClean                   false\n"
    "LogVerbose                 false\n"
    "DatabaseDirectory          /var/lib/clamav\n"
    "OfficialDatabaseOnly       true\n"
    "Debug                      false\n"
    "ScanSWF                    true\n"
    "DetectBrokenExecutables    true\n"
    "ExitOnOOM                  true\n"
    "SendBufTimeout             200\n"
    "ExtendedDetectionInfo      true\n"
    "ForceToDisk                false\n"
    "MaxFileSize                50M\n"
    "MaxRecursion               16\n"
    "LogSyslog                  true\n"
    "VirusEvent                 /usr/bin/clamav_event -l\n";

constexpr char kClamdTail[] =
    "OnAccessMountPath          /var/ftp\n"
    "OnAccessExcludePath        /tmp\n"
    "ScanOnAccess               true\n";

// Every volume name and LUN share path clamd.conf is made from, before it
// is written.  A path's leading "/" is not one of its components: each
// component after it is checked as one.
int guard_antivirus(ksdb_handle *h, sqlite3 *db) {
    if (int rc = guard_rows(h, db, "_volume", "id", {{"lv_name"}}, kClamVolume, "uuid IS NOT NULL"))
        return rc;
    return guard_rows(h, db, "share", "name",
                      {{"path", "CASE WHEN substr(path,1,1)='/' THEN substr(path,2) ELSE path END"}},
                      kClamPath, "type='zvol'");
}

// clamd.conf.  The file is the same whether the scanner is switched on or
// not: service_anti_virus is not read.  Every mounted volume is scanned on
// access, except its share settings, its purge folder and its Time Machine
// backups; block-device (LUN) shares are never scanned.
int write_clamd_conf(ksdb_handle *h, sqlite3 *db) {
    return write_file(h, db, kClamdConf, [&](ManagedFile &out) {
        out.write(kClamdHead);
        SqlTable volumes;
        if (volumes.query(h, db, KSDB_TAG,
                          "SELECT V.lv_name FROM _volume V WHERE uuid IS NOT NULL") != SQLITE_OK) {
            KSDB_ERR(h, "Query Error for SELECT _volume\n");
            return static_cast<int>(KSDB_E_DB);
        }
        for (int r = 0; r < volumes.rows(); ++r) {
            if (!volumes.at(r, 0)) continue;
            const std::string p = (std::string("/") + volumes.at(r, 0)).substr(0, kMountPathMax);
            out.printf("OnAccessMountPath         %s\n"
                       "OnAccessExcludePath        %s/._share\n"
                       "OnAccessExcludePath        %s/.purge\n"
                       "OnAccessExcludePath        %s/.timemachine\n",
                       p.c_str(), p.c_str(), p.c_str(), p.c_str());
        }
        SqlTable luns;
        if (luns.query(h, db, KSDB_TAG, "SELECT S.path FROM share S WHERE type='zvol'") !=
            SQLITE_OK) {
            KSDB_ERR(h, "Query Error for SELECT share\n");
            return static_cast<int>(KSDB_E_DB);
        }
        for (int r = 0; r < luns.rows(); ++r)
            if (luns.at(r, 0)) out.printf("OnAccessExcludePath %s\n", luns.at(r, 0));
        out.write(kClamdTail);
        return 0;
    });
}

int export_antivirus(ksdb_handle *h, sqlite3 *db) {
    if (int rc = guard_antivirus(h, db)) return rc;
    return write_clamd_conf(h, db);
}

}  // namespace
}  // namespace ksdb::service

KSDB_STEP(ksdb_antivirus_service_export) { return ksdb::service::export_antivirus(h, db); }
