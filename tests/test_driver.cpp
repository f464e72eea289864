// The import/export driver: transaction frame, plans, the composite categories'
// results, sync, the in-transaction flag, exceptions, the fault reporter.
#define KSDB_MODULE "test_driver"
#include "core/ksdb_driver.h"
#include "core/ksdb_internal.h"
#include "tests/core_support.h"

#include <sys/mman.h>

#include <algorithm>
#include <array>
#include <map>
#include <regex>
#include <sstream>
#include <stdexcept>
#include <thread>
#include <utility>

using namespace ksdb_test;
using namespace ksdb::driver;
using Names = std::vector<std::string>;

namespace {

// Every step is replaced by a double that records its name and returns the
// status the test chose for it (0 by default); g_seen is what the observer saw.
Names g_calls, g_seen;
std::map<std::string, int> g_results;
int g_syncs = 0;

template <int I>
int recorder(ksdb_handle *, sqlite3 *) {
    g_calls.push_back(g_steps[I].name);
    auto it = g_results.find(g_steps[I].name);
    return it == g_results.end() ? 0 : it->second;
}
template <int... I>
constexpr std::array<StepFn, sizeof...(I)> recorders(std::integer_sequence<int, I...>) {
    return {recorder<I>...};
}
const auto kRecorders = recorders(std::make_integer_sequence<int, kStepCount>{});

class DriverTest : public ::testing::Test {
  protected:
    void SetUp() override {
        for (int i = 0; i < kStepCount; ++i) saved_[i] = std::exchange(g_steps[i].fn, kRecorders[i]);
        g_calls.clear();
        g_results.clear();
        g_syncs = 0;
        saved_sync_ = set_sync([] { ++g_syncs; });
        static ksdb_observer observer{};
        observer.step = [](void *, const char *name, int phase, int status) {
            g_seen.push_back(std::string(phase ? "end " : "begin ") + name + " " + std::to_string(status));
        };
        ksdb_set_observer(&observer);
        db_.exec("CREATE TABLE share (id INTEGER PRIMARY KEY, name TEXT)");
        db_.exec("INSERT INTO share VALUES(1,'data')");
    }
    void TearDown() override {
        for (int i = 0; i < kStepCount; ++i) g_steps[i].fn = saved_[i];
        set_sync(saved_sync_);
        ksdb_set_observer(nullptr);
    }
    static void replace(Step s, StepFn fn) { g_steps[s].fn = fn; }
    bool lock_free() { return ksdb_test::lock_free(h_->db_mutex); }
    Names traced_statements() { return ksdb_test::traced_statements(trace_.text()); }
    // The steps a run called; the observer must have seen each begin and end with its status.
    Names run(int (*fn)(ksdb_handle *, sqlite3 *, int), int category, int expected_rc = 0) {
        g_calls.clear();
        g_seen.clear();
        EXPECT_EQ(fn(h_, db_, category), expected_rc) << category;
        Names seen;
        for (const std::string &step : g_calls)
            for (const std::string phase : {"begin ", "end "})
                seen.push_back(phase + step + " " + std::to_string(phase == "end " ? g_results[step] : 0));
        EXPECT_EQ(g_seen, seen) << category;
        return g_calls;
    }

    StepFn saved_[kStepCount];
    SyncFn saved_sync_ = nullptr;
    CaptureFile log_, trace_;
    Handle h_{{log_.get(), 5, trace_.get()}};
    Db db_;
};

// The plans written out in tests/data/plans.txt, keyed "import ALL" etc.
std::map<std::string, Names> load_plans() {
    std::map<std::string, Names> plans;
    std::string key;
    for (const std::string &line : lines(read_file(KSDB_TEST_DATA_DIR "/plans.txt"))) {
        if (line.empty() || line[0] == '#' || line.rfind("fail ", 0) == 0) continue;
        std::istringstream words(line);
        if (line[0] != ' ') {
            std::getline(words, key, ':');
            plans[key];
        }
        for (std::string w; words >> w;) plans[key].push_back(w);
    }
    return plans;
}

// A plan with its "@NAME" references expanded.
Names expand(const std::map<std::string, Names> &plans, const std::string &key) {
    Names out;
    for (const std::string &w : plans.at(key)) {
        Names part = w[0] == '@' ? expand(plans, key.substr(0, key.find(' ') + 1) + w.substr(1))
                     : w == "-" ? Names{} : Names{w};
        out.insert(out.end(), part.begin(), part.end());
    }
    return out;
}

}  // namespace

// Guards: a plan running or describing other steps than the written one, or not
// reporting them to the observer with their status (every run checks).
TEST_F(DriverTest, EveryCategoryRunsAndDescribesItsPlan) {
    const auto plans = load_plans();
    ASSERT_EQ(plans.size(), 2u * KSDB_CATEGORY_COUNT);
    for (int cat = 0; cat < KSDB_CATEGORY_COUNT; ++cat) {
        for (int dir : {0, 1}) {
            const std::string key = std::string(dir ? "export " : "import ") + ksdb_cat2str(cat);
            const Names expected = expand(plans, key);
            const bool refused = expected == Names{"not-exportable"};
            ksdb_step_info steps[96];
            const int n = ksdb_category_steps(cat, dir, steps, 96);
            Names described;
            for (int i = 0; i < n; ++i) described.push_back(steps[i].name);
            EXPECT_EQ(n, refused ? KSDB_STEPS_NOT_EXPORTABLE : static_cast<int>(expected.size())) << key;
            const Names ran = run(dir ? ksdb_export : ksdb_import, cat, refused ? KSDB_E_INVAL : 0);
            EXPECT_EQ(ran, refused ? Names{} : expected) << key;
            EXPECT_EQ(described, ran) << key;
        }
    }
    EXPECT_EQ(ksdb_category_steps(KSDB_CATEGORY_COUNT, 0, nullptr, 0), -1);
    EXPECT_EQ(ksdb_category_steps(KSDB_CAT_ALL, 2, nullptr, 0), -1);
    // One transaction per run, the composite ones included.
    const Names statements = traced_statements();
    EXPECT_EQ(std::count(statements.begin(), statements.end(), "BEGIN"), 2 * KSDB_CATEGORY_COUNT);
    EXPECT_TRUE(contains(log_.text(), "(info) _ksdb_all_export\n"));
}

// Guards: an invalid category committing or not logged at error level.
TEST_F(DriverTest, TheFrameRollsBackInvalidCategoriesAndLogsItsExit) {
    EXPECT_EQ(run(ksdb_import, 47, KSDB_E_INVAL), Names{});
    EXPECT_EQ(run(ksdb_export, -1, KSDB_E_INVAL), Names{});
    EXPECT_EQ(run(ksdb_import_nolock, 47, KSDB_E_INVAL), Names{});
    EXPECT_EQ(run(ksdb_export_nolock, KSDB_CAT_HOTPLUG_USB, KSDB_E_INVAL), Names{});
    EXPECT_EQ(traced_statements(), (Names{"BEGIN", "ROLLBACK", "BEGIN", "ROLLBACK"}));
    EXPECT_TRUE(lock_free());
    EXPECT_TRUE(contains(log_.text(), "(error) ksdb_import() ==> 4 ("));
    EXPECT_TRUE(contains(log_.text(), "(error) ksdb_export_nolock() ==> 4 ("));
}

// Guards: a plan going on or stopping against its rule (a failed step's rows are
// rolled back: see the exception test).
TEST_F(DriverTest, AFailingStepStopsItsPlanByTheRulesOfTheData) {
    const auto plans = load_plans();
    static const std::regex rule(
        R"re(fail (\w+) (\w+): (\w+)=(\d+) -> (\d+)(?: "([^"]*)")?(?: then (.*))?)re");
    int rules = 0;
    for (const std::string &line : lines(read_file(KSDB_TEST_DATA_DIR "/plans.txt"))) {
        std::smatch m;
        if (!std::regex_match(line, m, rule)) continue;
        ++rules;
        const std::string dir = m[1], failing = m[3];
        g_results = {{failing, std::stoi(m[4])}};
        Names expected = expand(plans, dir + " " + m[2].str());
        expected.erase(std::find(expected.begin(), expected.end(), failing) + 1, expected.end());
        std::istringstream then(m[7]);
        for (std::string w; then >> w;) expected.push_back(w);
        int cat = 0;
        while (m[2] != ksdb_cat2str(cat)) ++cat;
        EXPECT_EQ(run(dir == "export" ? ksdb_export : ksdb_import, cat, std::stoi(m[5])), expected) << line;
        const std::string logged = "(error) " + m[6].str() + "\n";
        EXPECT_TRUE(!m[6].matched || log_.text().find(logged) != std::string::npos) << line;
    }
    EXPECT_EQ(rules, 11);
    EXPECT_TRUE(lock_free());
}

// Guards: a sync missing or doubled; the per-share export logging its exit.
TEST_F(DriverTest, SyncAfterExportChainsAllRunsAndThePerShareExport) {
    auto syncs = [&](int (*fn)(ksdb_handle *, sqlite3 *, int), int cat, int rc) {
        g_syncs = 0;
        run(fn, cat, rc);
        return g_syncs;
    };
    EXPECT_EQ(syncs(ksdb_export, KSDB_CAT_ALL_SHARE, 0), 1);
    EXPECT_EQ(syncs(ksdb_export_nolock, KSDB_CAT_ALL_SERVICE, 0), 1);
    EXPECT_EQ(syncs(ksdb_export, KSDB_CAT_ALL, 0), 3);
    EXPECT_EQ(syncs(ksdb_import, KSDB_CAT_ALL, 0), 1);
    EXPECT_EQ(syncs(ksdb_import, KSDB_CAT_ALL_SHARE, 0), 0);
    EXPECT_EQ(syncs(ksdb_export, KSDB_CAT_CIFS_SHARE, 0), 0);
    g_results = {{"ksdb_cifs_share_export", 5}};
    EXPECT_EQ(syncs(ksdb_export, KSDB_CAT_ALL_SHARE, 1), 1) << "also after a failure";
    g_results = {{"ksdb_vpd_import", 5}};
    EXPECT_EQ(syncs(ksdb_import, KSDB_CAT_ALL, 5), 1);
    // The per-share export: only share attributes, synced, no exit log.
    g_syncs = 0;
    EXPECT_EQ(ksdb_export_per_share(h_, db_, KSDB_CAT_CIFS_SHARE, "data"), KSDB_E_INVAL);
    ASSERT_EQ(ksdb_create(h_, db_), 0);  // the attribute export's tables, without a row for the share
    EXPECT_EQ(ksdb_export_per_share(h_, db_, KSDB_CAT_SHARE_FS_ATTRIBUTE, "data"), 0);
    EXPECT_EQ(g_syncs, 2);
    EXPECT_FALSE(contains(log_.text(), "ksdb_export_per_share"));
    EXPECT_TRUE(lock_free());
}

namespace {
Db *g_other_db = nullptr;
bool g_flag = false;
}  // namespace

// Guards: an exception crossing the frame, the lock or transaction left; a failed
// step's rows kept, alone or in a chain; the thread's in-transaction flag lost
// after a nested run, kept after the run or set by a run without a transaction.
TEST_F(DriverTest, AnExceptionFromAStepIsStatusFiveWithTheLockReleasedAndItsRowsGone) {
    Db other;
    g_other_db = &other;
    replace(kCifsShareImport, [](ksdb_handle *h, sqlite3 *db) -> int {
        ksdb_sql_exec(h, db, nullptr, "test", 1, "INSERT INTO share VALUES(2,'added')");
        ksdb_import(h, *g_other_db, KSDB_CAT_VPD);  // a whole run of its own on another connection
        g_flag = in_driver_transaction();
        throw std::runtime_error("boom");
    });
    ksdb_clear_error();
    EXPECT_EQ(ksdb_import(h_, db_, KSDB_CAT_CIFS_SHARE), KSDB_E_FILE);
    EXPECT_TRUE(g_flag);
    EXPECT_FALSE(in_driver_transaction());
    EXPECT_TRUE(sqlite3_get_autocommit(db_));  // the row and the lock: checked after the chain
    EXPECT_TRUE(contains(log_.text(), "(error) ksdb_cifs_share_import(): boom\n"));
    EXPECT_EQ(last_error().substr(0, 4), "2 5 ");
    // In a chain it is a failing step like any other.
    EXPECT_EQ(ksdb_import(h_, db_, KSDB_CAT_ALL_SHARE), 1);
    EXPECT_EQ(db_.rows("SELECT * FROM share"), Names{"1|data"});
    EXPECT_TRUE(lock_free());
    EXPECT_EQ(ksdb_import_nolock(h_, db_, KSDB_CAT_CIFS_SHARE), KSDB_E_FILE);
    EXPECT_FALSE(g_flag) << "no transaction of the driver's own";
}

// Guards: a failed commit not rolled back, or releasing the caller's lock.
TEST_F(DriverTest, AFailedCommitRollsBackAndGivesThree) {
    db_.exec("PRAGMA foreign_keys=ON");
    db_.exec("CREATE TABLE child (share_id INT REFERENCES share(id) DEFERRABLE INITIALLY DEFERRED)");
    replace(kCifsShareImport, [](ksdb_handle *h, sqlite3 *db) {
        return ksdb_sql_exec(h, db, nullptr, "test", 1, "INSERT INTO child VALUES(99)");
    });
    // The calling thread holds the database lock from further out: the
    // failed commit and its rollback leave that hold in place.
    pthread_mutex_lock(h_->db_mutex);
    EXPECT_EQ(ksdb_import(h_, db_, KSDB_CAT_CIFS_SHARE), KSDB_E_DB);
    EXPECT_FALSE(lock_free());
    pthread_mutex_unlock(h_->db_mutex);
    EXPECT_EQ(db_.scalar("SELECT COUNT(*) FROM child"), "0");
    EXPECT_TRUE(sqlite3_get_autocommit(db_));
    EXPECT_TRUE(lock_free());
}

// Guards: the driver ending a transaction it did not begin.
TEST_F(DriverTest, AFailedBeginLeavesTheCallersTransactionAloneAndNolockFormsRunInIt) {
    db_.exec("BEGIN");
    db_.exec("INSERT INTO share VALUES(7,'callers')");
    EXPECT_EQ(run(ksdb_import, KSDB_CAT_CIFS_SHARE, KSDB_E_DB), Names{});
    EXPECT_EQ(ksdb_export_per_share(h_, db_, KSDB_CAT_SHARE_FS_ATTRIBUTE, "data"), KSDB_E_DB);
    EXPECT_FALSE(sqlite3_get_autocommit(db_));
    EXPECT_TRUE(lock_free());
    db_.exec("COMMIT");
    EXPECT_EQ(db_.scalar("SELECT name FROM share WHERE id=7"), "callers");
    ASSERT_EQ(ksdb_sql_begin(h_, db_, nullptr, "test", 1), 0);
    size_t before = lines(trace_.text()).size();
    run(ksdb_import_nolock, KSDB_CAT_ALL_SERVICE);
    EXPECT_EQ(lines(trace_.text()).size(), before) << "no statement of the driver's own";
    g_results = {{"ksdb_cifs_share_export", 5}};
    run(ksdb_export_nolock, KSDB_CAT_CIFS_SHARE, 5);
    EXPECT_FALSE(sqlite3_get_autocommit(db_)) << "the caller's transaction stays open";
    ASSERT_EQ(ksdb_sql_commit(h_, db_, nullptr, "test", 2), 0);
}

namespace {
// A page that may not be touched: a real fault, which neither sanitizer
// reports first.
char *g_page = nullptr;
}  // namespace

// Guards: a fault not logged with its address, or the wrong exit status.
TEST_F(DriverTest, InstalledFaultReporterLogsTheFaultAndExitsWith14) {
    g_page = static_cast<char *>(mmap(nullptr, 4096, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
    char address[17];
    std::snprintf(address, sizeof address, "%016lx", reinterpret_cast<unsigned long>(g_page));
    replace(kCifsShareImport, [](ksdb_handle *, sqlite3 *) {
        *reinterpret_cast<volatile char *>(g_page) = 1;
        return 0;
    });
    // The child logs to its standard error, which the death test reads.
    EXPECT_EXIT(
        {
            Handle h({stderr, 2});
            if (ksdb_install_fault_reporter(h) == 0) ksdb_import(h, db_, KSDB_CAT_CIFS_SHARE);
            std::exit(0);
        },
        ::testing::ExitedWithCode(KSDB_FAULT_EXIT_STATUS),
        std::string("ksdb_signal:[0-9]+ \\(error\\) Got SIGSEGV PC=[0-9a-f]{16} MA=") + address +
            "\n.*\\(error\\) 0: [^\n]+\n.*\\(error\\) Exiting now \\.\\.\\.\n");
    munmap(g_page, 4096);
}
