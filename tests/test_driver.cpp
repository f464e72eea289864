// The import/export driver: transaction frame, category plans, the exact
// order of every chain and the result rules of the composite categories.
#define KSDB_MODULE "test_driver"
#include "core/ksdb_driver.h"
#include "core/ksdb_internal.h"
#include "tests/support/test_support.h"

#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <regex>
#include <map>
#include <thread>
#include <utility>

using namespace ksdb_test;
using ksdb::driver::g_steps;
using ksdb::driver::kStepCount;
using ksdb::driver::Step;
using ksdb::driver::StepFn;

namespace {

// Test doubles for every step: each records its name and returns the
// status the test chose for it (0 by default).
std::vector<std::string> g_calls;
std::map<std::string, int> g_results;

template <int I>
int recorder(ksdb_handle *, sqlite3 *) {
    std::string name = g_steps[I].name;
    g_calls.push_back(name);
    auto it = g_results.find(name);
    return it == g_results.end() ? 0 : it->second;
}

template <int... I>
constexpr std::array<StepFn, sizeof...(I)> make_recorders(std::integer_sequence<int, I...>) {
    return {recorder<I>...};
}
const auto kRecorders = make_recorders(std::make_integer_sequence<int, kStepCount>{});

class DriverTest : public ::testing::Test {
  protected:
    void SetUp() override {
        for (int i = 0; i < kStepCount; ++i) {
            saved_[i] = g_steps[i].fn;
            g_steps[i].fn = kRecorders[i];
        }
        g_calls.clear();
        g_results.clear();
        db_.exec("CREATE TABLE share (id INTEGER PRIMARY KEY, name TEXT)");
        db_.exec("INSERT INTO share VALUES(1,'data')");
    }
    void TearDown() override {
        for (int i = 0; i < kStepCount; ++i) g_steps[i].fn = saved_[i];
    }
    void replace(Step s, StepFn fn) { g_steps[s].fn = fn; }
    bool lock_free() {
        bool free = false;
        std::thread([&] {
            if (pthread_mutex_trylock(h_->db_mutex) == 0) {
                free = true;
                pthread_mutex_unlock(h_->db_mutex);
            }
        }).join();
        return free;
    }

    StepFn saved_[kStepCount];
    CaptureFile log_, trace_;
    Handle h_{{log_.get(), 5, trace_.get()}};
    Db db_;
};

using Names = std::vector<std::string>;

const Names kAllServiceImport = {
    "ksdb_default_service_import", "ksdb_cifs_service_import", "ksdb_afp_service_import",
    "ksdb_nfs_service_import",     "ksdb_ftp_service_import",  "ksdb_http_service_import",
    "ksdb_empty_service_import",   "ksdb_daap_service_import", "ksdb_snmp_service_import",
    "ksdb_ssh_service_import",     "ksdb_replicate_service_import"};
const Names kAllShareImport = {
    "ksdb_zvol_share_import", "ksdb_cifs_share_import", "ksdb_afp_share_import",
    "ksdb_nfs_share_import",  "ksdb_daap_share_import", "ksdb_rsync_import",
    "ksdb_ftp_share_import",  "ksdb_http_share_import", "ksdb_snapshot_import"};
const Names kAllServiceExport = {
    "ksdb_default_service_export", "ksdb_dlna_export",          "ksdb_cifs_service_export",
    "ksdb_afp_service_export",     "ksdb_nfs_service_export",   "ksdb_ftp_service_export",
    "ksdb_http_service_export",    "ksdb_media_server_service_export", "ksdb_daap_service_export",
    "ksdb_snmp_service_export",    "ksdb_antivirus_service_export", "ksdb_ssh_service_export"};
const Names kAllShareExport = {
    "ksdb_zvol_share_export", "ksdb_cifs_share_export", "_ksdb_afp_share_usb_share_export",
    "ksdb_dlna_export",       "ksdb_nfs_share_export",  "ksdb_daap_export",
    "ksdb_rsync_export",      "ksdb_ftp_share_export",  "ksdb_http_share_export",
    "ksdb_snapshot_export"};

Names concat(std::initializer_list<Names> parts) {
    Names out;
    for (const auto &p : parts) out.insert(out.end(), p.begin(), p.end());
    return out;
}

}  // namespace

TEST_F(DriverTest, NoneCommitsAnEmptyTransactionAndBadCategoriesGiveFour) {
    EXPECT_EQ(ksdb_import(h_, db_, KSDB_CAT_NONE), 0);
    std::string trace = trace_.text();
    EXPECT_NE(trace.find("sql=BEGIN\n"), std::string::npos);
    EXPECT_NE(trace.find("sql=COMMIT\n"), std::string::npos);
    EXPECT_TRUE(g_calls.empty());

    EXPECT_EQ(ksdb_import(h_, db_, 47), KSDB_E_INVAL);
    EXPECT_EQ(ksdb_export(h_, db_, -1), KSDB_E_INVAL);
    EXPECT_EQ(ksdb_import_nolock(h_, db_, 47), KSDB_E_INVAL);
    EXPECT_NE(trace_.text().find("sql=ROLLBACK\n"), std::string::npos);
    EXPECT_TRUE(lock_free());
    std::string log = log_.text();
    EXPECT_NE(log.find("(debug) ksdb_import() ==> 0 ("), std::string::npos);
    EXPECT_NE(log.find("(error) ksdb_import() ==> 4 ("), std::string::npos);
    EXPECT_NE(log.find("(error) ksdb_import_nolock() ==> 4 ("), std::string::npos);
}

TEST_F(DriverTest, SingleCategoriesRunTheirOneStep) {
    const std::vector<std::pair<int, std::string>> imports = {
        {KSDB_CAT_VPD, "ksdb_vpd_import"},
        {KSDB_CAT_DEFAULT_SERVICE, "ksdb_default_service_import"},
        {KSDB_CAT_UPS_SERVICE, "ksdb_default_service_import"},
        {KSDB_CAT_SERVICE, "ksdb_service_import"},
        {KSDB_CAT_CIFS_SHARE, "ksdb_cifs_share_import"},
        {KSDB_CAT_ADS_ACCOUNT, "ksdb_ads_account_import"},
        {KSDB_CAT_REPLISYNC_KEY, "ksdb_replisync_key_import"},
    };
    for (const auto &[cat, name] : imports) {
        g_calls.clear();
        EXPECT_EQ(ksdb_import(h_, db_, cat), 0) << cat;
        EXPECT_EQ(g_calls, Names{name}) << cat;
    }
    const std::vector<std::pair<int, std::string>> exports = {
        {KSDB_CAT_CIFS_SERVICE, "ksdb_cifs_service_export"},
        {KSDB_CAT_ACCOUNT, "_ksdb_account_local_user_export"},
        {KSDB_CAT_AFP_SHARE, "_ksdb_afp_share_usb_share_export"},
        {KSDB_CAT_SERVICE, "ksdb_service_switch_export"},
        {KSDB_CAT_UPS_SERVICE, "ksdb_ups_service_export"},
        {KSDB_CAT_ANTIVIRUS_SERVICE, "ksdb_antivirus_service_export"},
        {KSDB_CAT_SNAPSHOT, "ksdb_snapshot_export"},
    };
    for (const auto &[cat, name] : exports) {
        g_calls.clear();
        EXPECT_EQ(ksdb_export(h_, db_, cat), 0) << cat;
        EXPECT_EQ(g_calls, Names{name}) << cat;
    }
    g_calls.clear();
    for (int cat : {KSDB_CAT_NONE, KSDB_CAT_AVAHI_SERVICE, KSDB_CAT_ANTIVIRUS_SERVICE})
        EXPECT_EQ(ksdb_import(h_, db_, cat), 0);
    for (int cat : {KSDB_CAT_NONE, KSDB_CAT_SHARE_STATS, KSDB_CAT_AVAHI_SERVICE, KSDB_CAT_HF_STATS})
        EXPECT_EQ(ksdb_export(h_, db_, cat), 0);
    EXPECT_TRUE(g_calls.empty());
}

TEST_F(DriverTest, SomeCategoriesCannotBeExported) {
    for (int cat : {KSDB_CAT_ADS_ACCOUNT, KSDB_CAT_DICTIONARY, KSDB_CAT_LOCAL_UPS,
                    KSDB_CAT_HOTPLUG_USB}) {
        EXPECT_EQ(ksdb_export(h_, db_, cat), KSDB_E_INVAL) << cat;
        EXPECT_EQ(ksdb_export_nolock(h_, db_, cat), KSDB_E_INVAL) << cat;
    }
    EXPECT_TRUE(g_calls.empty());
}

TEST_F(DriverTest, ChainsRunInTheirExactOrder) {
    EXPECT_EQ(ksdb_import(h_, db_, KSDB_CAT_ALL_SERVICE), 0);
    EXPECT_EQ(g_calls, kAllServiceImport);
    g_calls.clear();
    EXPECT_EQ(ksdb_import(h_, db_, KSDB_CAT_ALL_SHARE), 0);
    EXPECT_EQ(g_calls, kAllShareImport);
    g_calls.clear();
    EXPECT_EQ(ksdb_import(h_, db_, KSDB_CAT_HOTPLUG_USB), 0);
    EXPECT_EQ(g_calls, (Names{"ksdb_usb_hotplug_import", "_ksdb_usb_storage_export",
                              "ksdb_cifs_usb_share_import", "ksdb_afp_usb_share_import",
                              "ksdb_nfs_usb_share_import", "ksdb_ftp_usb_share_import",
                              "ksdb_http_usb_share_import", "ksdb_rsync_usb_import",
                              "ksdb_daap_share_import", "ksdb_dlna_import"}));
    g_calls.clear();
    EXPECT_EQ(ksdb_import(h_, db_, KSDB_CAT_VOLUME), 0);
    EXPECT_EQ(g_calls, (Names{"ksdb_volume_import", "ksdb_account_import"}));
    g_calls.clear();
    EXPECT_EQ(ksdb_export(h_, db_, KSDB_CAT_ALL_SERVICE), 0);
    EXPECT_EQ(g_calls, kAllServiceExport);
    g_calls.clear();
    EXPECT_EQ(ksdb_export(h_, db_, KSDB_CAT_ALL_SHARE), 0);
    EXPECT_EQ(g_calls, kAllShareExport);
}

TEST_F(DriverTest, AllImportOrderNestsTheServiceAndShareChains) {
    EXPECT_EQ(ksdb_import(h_, db_, KSDB_CAT_ALL), 0);
    Names expected = concat(
        {{"ksdb_vpd_import", "ksdb_volume_import", "ksdb_disk_import"},
         kAllServiceImport,
         {"ksdb_account_import", "ksdb_usb_import"},
         kAllShareImport,
         {"ksdb_backup_import", "ksdb_replisync_import", "ksdb_network_import",
          "ksdb_vault_import", "ksdb_tivo_import", "ksdb_dictionary_import", "ksdb_dlna_import",
          "ksdb_ups_import", "ksdb_volume_schedule_import",
          "ksdb_authorized_ssh_public_key_import", "ksdb_share_fs_attribute_import",
          "ksdb_share_stats_import", "ksdb_replisync_key_import"}});
    EXPECT_EQ(g_calls, expected);
    // One transaction for the whole run.
    std::string trace = trace_.text();
    EXPECT_EQ(trace.find("sql=BEGIN\n"), trace.rfind("sql=BEGIN\n"));
}

TEST_F(DriverTest, AllExportOrderAndTheAntivirusAfterUps) {
    EXPECT_EQ(ksdb_export(h_, db_, KSDB_CAT_ALL), 0);
    Names expected = concat({{"ksdb_vpd_export"},
                             kAllServiceExport,
                             {"ksdb_volume_export", "_ksdb_account_local_user_export",
                              "_ksdb_usb_storage_export"},
                             kAllShareExport,
                             {"ksdb_rsync_export", "ksdb_backup_export", "ksdb_network_export",
                              "ksdb_vault_export", "ksdb_tivo_export", "ksdb_ups_export",
                              "ksdb_antivirus_service_export",
                              "ksdb_authorized_ssh_public_key_export"}});
    EXPECT_EQ(g_calls, expected);
    EXPECT_NE(log_.text().find("(info) _ksdb_all_export\n"), std::string::npos);

    g_calls.clear();
    g_results["ksdb_ups_export"] = 9;
    EXPECT_EQ(ksdb_export(h_, db_, KSDB_CAT_ALL), 0);
    ASSERT_GE(g_calls.size(), 2u);
    EXPECT_EQ(g_calls[g_calls.size() - 2], "ksdb_ups_export");
    EXPECT_EQ(g_calls.back(), "ksdb_authorized_ssh_public_key_export");
}

TEST_F(DriverTest, AllExportResultIsTheSshKeyExportersAlone) {
    g_results["ksdb_backup_export"] = 5;
    EXPECT_EQ(ksdb_export(h_, db_, KSDB_CAT_ALL), 0);
    for (const char *skipped :
         {"ksdb_network_export", "ksdb_vault_export", "ksdb_tivo_export", "ksdb_ups_export"})
        EXPECT_EQ(std::count(g_calls.begin(), g_calls.end(), skipped), 0) << skipped;
    // Only the service chain's own run of the antivirus exporter.
    EXPECT_EQ(std::count(g_calls.begin(), g_calls.end(), "ksdb_antivirus_service_export"), 1);
    EXPECT_EQ(g_calls.back(), "ksdb_authorized_ssh_public_key_export");
    EXPECT_NE(trace_.text().find("sql=COMMIT\n"), std::string::npos);

    g_calls.clear();
    g_results.clear();
    g_results["ksdb_authorized_ssh_public_key_export"] = 5;
    EXPECT_EQ(ksdb_export(h_, db_, KSDB_CAT_ALL), 5);
    EXPECT_NE(log_.text().find("(error) Failed to export authorized ssh public key!\n"),
              std::string::npos);
}

namespace {
int insert_share(ksdb_handle *h, sqlite3 *db) {
    g_calls.push_back("insert_share");
    return ksdb_sql_exec(h, db, nullptr, "test", 1, "INSERT INTO share VALUES(2,'added')");
}
}  // namespace

TEST_F(DriverTest, AFailingChainStepGivesOneAndLeavesEveryTableAsItWas) {
    replace(ksdb::driver::kCifsShareImport, insert_share);
    g_results["ksdb_afp_share_import"] = 3;
    EXPECT_EQ(ksdb_import(h_, db_, KSDB_CAT_ALL_SHARE), 1);
    EXPECT_EQ(g_calls, (Names{"ksdb_zvol_share_import", "insert_share", "ksdb_afp_share_import"}));
    EXPECT_EQ(db_.rows("SELECT * FROM share"), Names{"1|data"});
    EXPECT_TRUE(lock_free());

    g_calls.clear();
    g_results.clear();
    g_results["ksdb_cifs_service_export"] = 5;
    EXPECT_EQ(ksdb_export(h_, db_, KSDB_CAT_ALL_SERVICE), 1);
    EXPECT_EQ(g_calls.back(), "ksdb_cifs_service_export");

    g_calls.clear();
    g_results.clear();
    g_results["ksdb_account_import"] = 3;
    EXPECT_EQ(ksdb_import(h_, db_, KSDB_CAT_VOLUME), 1);
}

TEST_F(DriverTest, AllImportKeepsTheFailingStepsOwnResult) {
    g_results["ksdb_backup_import"] = 5;
    EXPECT_EQ(ksdb_import(h_, db_, KSDB_CAT_ALL), 5);
    EXPECT_EQ(g_calls.back(), "ksdb_backup_import");

    g_calls.clear();
    g_results.clear();
    g_results["ksdb_share_stats_import"] = 3;
    EXPECT_EQ(ksdb_import(h_, db_, KSDB_CAT_ALL), 3);
    EXPECT_EQ(g_calls.back(), "ksdb_share_stats_import");
    EXPECT_NE(log_.text().find("(error) Failed to import share stats!\n"), std::string::npos);

    g_calls.clear();
    g_results.clear();
    g_results["ksdb_ftp_service_import"] = 3;  // inside the nested service chain
    EXPECT_EQ(ksdb_import(h_, db_, KSDB_CAT_ALL), 1);
    EXPECT_EQ(g_calls.back(), "ksdb_ftp_service_import");
}

TEST_F(DriverTest, ASingleStepFailureIsReturnedAfterARollback) {
    replace(ksdb::driver::kCifsShareImport, [](ksdb_handle *h, sqlite3 *db) {
        ksdb_sql_exec(h, db, nullptr, "test", 1, "INSERT INTO share VALUES(3,'x')");
        return 2;
    });
    EXPECT_EQ(ksdb_import(h_, db_, KSDB_CAT_CIFS_SHARE), 2);
    EXPECT_EQ(db_.scalar("SELECT COUNT(*) FROM share"), "1");
}

TEST_F(DriverTest, AFailedCommitRollsBackAndGivesThree) {
    db_.exec("PRAGMA foreign_keys=ON");
    db_.exec("CREATE TABLE child (share_id INT REFERENCES share(id) DEFERRABLE INITIALLY DEFERRED)");
    replace(ksdb::driver::kCifsShareImport, [](ksdb_handle *h, sqlite3 *db) {
        return ksdb_sql_exec(h, db, nullptr, "test", 1, "INSERT INTO child VALUES(99)");
    });
    // The calling thread holds the database lock from further out: the
    // failed commit and its rollback must leave that hold in place.
    pthread_mutex_lock(h_->db_mutex);
    EXPECT_EQ(ksdb_import(h_, db_, KSDB_CAT_CIFS_SHARE), KSDB_E_DB);
    EXPECT_FALSE(lock_free());
    pthread_mutex_unlock(h_->db_mutex);
    EXPECT_EQ(db_.scalar("SELECT COUNT(*) FROM child"), "0");
    EXPECT_TRUE(sqlite3_get_autocommit(db_));
    EXPECT_TRUE(lock_free());
}

TEST_F(DriverTest, AFailedBeginGivesThreeAndLeavesTheCallersTransactionAlone) {
    db_.exec("BEGIN");
    db_.exec("INSERT INTO share VALUES(7,'callers')");
    EXPECT_EQ(ksdb_import(h_, db_, KSDB_CAT_CIFS_SHARE), KSDB_E_DB);
    EXPECT_TRUE(g_calls.empty());
    EXPECT_FALSE(sqlite3_get_autocommit(db_));
    EXPECT_TRUE(lock_free());
    db_.exec("COMMIT");
    EXPECT_EQ(db_.scalar("SELECT name FROM share WHERE id=7"), "callers");
}

TEST_F(DriverTest, NolockFormsRunInsideTheCallersTransaction) {
    ASSERT_EQ(ksdb_sql_begin(h_, db_, nullptr, "test", 1), 0);
    size_t before = lines(trace_.text()).size();
    EXPECT_EQ(ksdb_import_nolock(h_, db_, KSDB_CAT_ALL_SERVICE), 0);
    EXPECT_EQ(ksdb_export_nolock(h_, db_, KSDB_CAT_CIFS_SHARE), 0);
    EXPECT_EQ(lines(trace_.text()).size(), before) << "no statement of the driver's own";
    g_results["ksdb_cifs_share_export"] = 5;
    EXPECT_EQ(ksdb_export_nolock(h_, db_, KSDB_CAT_CIFS_SHARE), 5);
    EXPECT_FALSE(sqlite3_get_autocommit(db_)) << "the caller's transaction stays open";
    ASSERT_EQ(ksdb_sql_commit(h_, db_, nullptr, "test", 2), 0);
    std::string log = log_.text();
    EXPECT_NE(log.find("ksdb_import_nolock() ==> 0"), std::string::npos);
    EXPECT_NE(log.find("ksdb_export_nolock() ==> 5"), std::string::npos);
}

TEST_F(DriverTest, PerShareExportHandlesOnlyShareAttributes) {
    EXPECT_EQ(ksdb_export_per_share(h_, db_, KSDB_CAT_CIFS_SHARE, "data"), KSDB_E_INVAL);
    EXPECT_EQ(db_.rows("SELECT * FROM share"), Names{"1|data"});
    EXPECT_TRUE(g_calls.empty());
    EXPECT_TRUE(lock_free());
    // The tables the per-share export reads, without a row for the share.
    db_.exec("ALTER TABLE share ADD COLUMN type TEXT");
    db_.exec("ALTER TABLE share ADD COLUMN volume_id TEXT");
    db_.exec("CREATE TABLE zfs_attr (share_id INT, mb_refquota INT, compression INT, "
             "bit_rot_protection INT)");
    EXPECT_EQ(ksdb_export_per_share(h_, db_, KSDB_CAT_SHARE_FS_ATTRIBUTE, "data"), 0);
    // No exit log of its own.
    EXPECT_EQ(log_.text().find("ksdb_export_per_share"), std::string::npos);
}

TEST_F(DriverTest, ObserverSeesEveryStepBeginAndEnd) {
    static Names seen;
    seen.clear();
    ksdb_observer obs{};
    obs.step = [](void *, const char *name, int phase, int status) {
        seen.push_back(std::string(phase ? "end " : "begin ") + name + " " +
                       std::to_string(status));
    };
    ksdb_set_observer(&obs);
    g_results["ksdb_volume_import"] = 0;
    g_results["ksdb_account_import"] = 3;
    EXPECT_EQ(ksdb_import(h_, db_, KSDB_CAT_VOLUME), 1);
    ksdb_set_observer(nullptr);
    EXPECT_EQ(seen, (Names{"begin ksdb_volume_import 0", "end ksdb_volume_import 0",
                           "begin ksdb_account_import 0", "end ksdb_account_import 3"}));
}

TEST_F(DriverTest, InstalledFaultReporterLogsTheFaultAndExitsWith14) {
    TempDir dir;
    std::string log_path = dir / "fault.log";
    std::string address_path = dir / "address";
    pid_t pid = fork();
    ASSERT_GE(pid, 0);
    if (pid == 0) {
        FILE *log = std::fopen(log_path.c_str(), "w");
        Handle h({log, 2});
        // A page that may not be touched: a real segmentation fault, which
        // neither sanitizer reports first.
        static char *page = static_cast<char *>(
            mmap(nullptr, 4096, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
        FILE *address = std::fopen(address_path.c_str(), "w");
        std::fprintf(address, "%016lx", reinterpret_cast<unsigned long>(page));
        std::fclose(address);
        replace(ksdb::driver::kCifsShareImport, [](ksdb_handle *, sqlite3 *) {
            *reinterpret_cast<volatile char *>(page) = 1;
            return 0;
        });
        if (ksdb_install_fault_reporter(h) != 0) _exit(1);
        ksdb_import(h, db_, KSDB_CAT_CIFS_SHARE);
        _exit(0);
    }
    int status = 0;
    waitpid(pid, &status, 0);
    ASSERT_TRUE(WIFEXITED(status)) << status;
    EXPECT_EQ(WEXITSTATUS(status), KSDB_FAULT_EXIT_STATUS);
    std::string log = read_file(log_path);
    std::string address = read_file(address_path);
    ASSERT_EQ(address.size(), 16u);
    EXPECT_TRUE(std::regex_search(
        log, std::regex(R"(ksdb_signal:\d+ \(error\) Got SIGSEGV PC=[0-9a-f]{16} MA=)" + address +
                        "\n")))
        << log;
    EXPECT_TRUE(std::regex_search(log, std::regex(R"(\(error\) 0: .+\n)"))) << log;
    EXPECT_NE(log.find("(error) Exiting now ...\n"), std::string::npos) << log;
}
