// The SQL access layer: retries, trace and messages, typed single values,
// transactions and the whole-table helpers.
#define KSDB_MODULE "test_sql"
#include "core/ksdb_internal.h"
#include "tests/support/test_support.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <regex>
#include <thread>

using namespace ksdb_test;

namespace {

class SqlTest : public ::testing::Test {
  protected:
    CaptureFile log_;
    CaptureFile trace_;
    Handle h_{{log_.get(), 5, trace_.get()}};
    Db db_;
};

// A second connection holding the write lock of a file database.
class WriteLock {
  public:
    explicit WriteLock(const std::string &path) : db_(path) { db_.exec("BEGIN IMMEDIATE"); }
    void release() {
        if (!released_) db_.exec("COMMIT");
        released_ = true;
    }
    ~WriteLock() { release(); }

  private:
    Db db_;
    bool released_ = false;
};

}  // namespace

TEST(SqlRetry, BusyStatementSucceedsOnceTheLockIsReleased) {
    TempDir dir;
    std::string path = dir / "db.sqlite";
    Db setup(path);
    setup.exec("CREATE TABLE t (x INT)");
    CaptureFile trace;
    Handle h({nullptr, 4, trace.get()});
    Db db(path);
    WriteLock lock(path);
    std::thread releaser([&] {
        std::this_thread::sleep_for(std::chrono::milliseconds(150));
        lock.release();
    });
    int rc = ksdb_sql_exec(h, db, nullptr, "test_sql", 1, "INSERT INTO t VALUES(1)");
    releaser.join();
    EXPECT_EQ(rc, SQLITE_OK);
    EXPECT_EQ(setup.scalar("SELECT COUNT(*) FROM t"), "1");
    std::smatch m;
    std::string text = trace.text();
    ASSERT_TRUE(std::regex_search(text, m, std::regex(R"( ==> (\d+):0 \(success\)\n)"))) << text;
    EXPECT_GT(std::stoi(m[1]), 0) << "the retries show in the trace";
}

TEST(SqlRetry, StatementThatStaysBusyGivesUpAfter1001Attempts) {
    TempDir dir;
    std::string path = dir / "db.sqlite";
    Db setup(path);
    setup.exec("CREATE TABLE t (x INT)");
    CaptureFile trace;
    Handle h({nullptr, 4, trace.get()});
    Db db(path);
    WriteLock lock(path);
    auto start = std::chrono::steady_clock::now();
    char **table = nullptr;
    int rc = ksdb_sql_get_table(h, db, nullptr, "test_sql", 2, &table, nullptr, nullptr,
                                "INSERT INTO t VALUES(1)");
    auto elapsed = std::chrono::steady_clock::now() - start;
    sqlite3_free_table(table);
    EXPECT_EQ(rc, SQLITE_BUSY);
    EXPECT_GE(elapsed, std::chrono::milliseconds(10000)) << "1000 sleeps of 10 ms";
    EXPECT_NE(trace.text().find(" ==> 1000:5 (database is locked) nrow=0 ncol=0\n"),
              std::string::npos)
        << trace.text();
}

TEST_F(SqlTest, TraceAndErrorMessagesOfAStatement) {
    char *msg = nullptr;
    EXPECT_EQ(ksdb_sql_exec(h_, db_, &msg, "ksdb_cifs", 77, "CREATE TABLE t (x INT)"), 0);
    EXPECT_STREQ(msg, "Internal DB error. (77:0:success)");
    EXPECT_EQ(ksdb_sql_exec(h_, db_, &msg, "ksdb_cifs", 78, "SELEC nonsense"), SQLITE_ERROR);
    EXPECT_STREQ(msg, "Internal DB error. (78:1:near \"SELEC\": syntax error)");

    std::string trace = trace_.text();
    EXPECT_NE(trace.find("ksdb_cifs:77sql=CREATE TABLE t (x INT)\n"), std::string::npos);
    EXPECT_NE(trace.find("ksdb_cifs:77 ==> 0:0 (success)\n"), std::string::npos);
    EXPECT_NE(trace.find("ksdb_cifs:78 ==> 0:1 (near \"SELEC\": syntax error)\n"),
              std::string::npos);
    EXPECT_NE(log_.text().find("ksdb_cifs:78 (error) SQL=SELEC nonsense ==> 1 (near \"SELEC\": "
                               "syntax error)\n"),
              std::string::npos);

    char **table = nullptr;
    int nrow = -1, ncol = -1;
    EXPECT_EQ(ksdb_sql_get_table(h_, db_, nullptr, "ksdb_nfs", 5, &table, &nrow, &ncol,
                                 "SELECT 1,2"),
              0);
    sqlite3_free_table(table);
    EXPECT_EQ(nrow, 1);
    EXPECT_EQ(ncol, 2);
    EXPECT_NE(trace_.text().find("ksdb_nfs:5 ==> 0:0 (success) nrow=1 ncol=2\n"),
              std::string::npos);
}

TEST(SqlLogging, PlainStatementsLogFailuresOnlyAtDebugTableQueriesFromErrorLevel) {
    CaptureFile log;
    Handle h({log.get(), 4});
    Db db;
    ksdb_sql_exec(h, db, nullptr, "m", 1, "BROKEN");
    EXPECT_EQ(log.text(), "");
    char **table = nullptr;
    Handle h2({log.get(), 2});
    ksdb_sql_get_table(h2, db, nullptr, "m", 2, &table, nullptr, nullptr, "BROKEN2");
    sqlite3_free_table(table);
    EXPECT_NE(log.text().find("m:2 (error) SQL=BROKEN2 ==> 1 "), std::string::npos);
}

TEST(SqlAssert, NullResultPointerStopsTheProcess) {
    Handle h;
    Db db;
    EXPECT_DEATH(ksdb_sql_get_table(h, db, nullptr, "m", 1, nullptr, nullptr, nullptr, "SELECT 1"),
                 "result");
    EXPECT_DEATH(ksdb_sql_get_int32_mprintf(h, db, nullptr, "m", 1, nullptr, nullptr, "SELECT 1"),
                 "result");
}

// ---- single values ---------------------------------------------------------

struct Typed {
    int rc32, rc64, rcu32, rcu64, rcs;
    int32_t v32 = 111;
    int64_t v64 = 111;
    uint32_t vu32 = 111;
    uint64_t vu64 = 111;
    int n32 = 7, n64 = 7, nu32 = 7, nu64 = 7;
    char *s;
};

static Typed query_all(ksdb_handle *h, sqlite3 *db, const char *sql) {
    Typed t;
    static char sentinel[] = "untouched";
    t.s = sentinel;
    t.rc32 = ksdb_sql_get_int32_mprintf(h, db, nullptr, "m", 1, &t.v32, &t.n32, "%s", sql);
    t.rc64 = ksdb_sql_get_int64_mprintf(h, db, nullptr, "m", 1, &t.v64, &t.n64, "%s", sql);
    t.rcu32 = ksdb_sql_get_uint32_mprintf(h, db, nullptr, "m", 1, &t.vu32, &t.nu32, "%s", sql);
    t.rcu64 = ksdb_sql_get_uint64_mprintf(h, db, nullptr, "m", 1, &t.vu64, &t.nu64, "%s", sql);
    t.rcs = ksdb_sql_get_scaler_mprintf(h, db, nullptr, "m", 1, &t.s, "%s", sql);
    return t;
}

TEST_F(SqlTest, TypedGettersConvertDifferentlyOnPurpose) {
    Typed hex = query_all(h_, db_, "SELECT '0x1F'");
    EXPECT_EQ(hex.v32, 0);  // base 10
    EXPECT_EQ(hex.v64, 31);
    EXPECT_EQ(hex.vu32, 31u);
    EXPECT_EQ(hex.vu64, 31u);
    EXPECT_STREQ(hex.s, "0x1F");
    EXPECT_EQ(hex.n32, 0);
    EXPECT_EQ(hex.nu64, 0);

    Typed oct = query_all(h_, db_, "SELECT '010'");
    EXPECT_EQ(oct.v32, 10);
    EXPECT_EQ(oct.v64, 8);
    EXPECT_EQ(oct.vu32, 8u);
    EXPECT_EQ(oct.vu64, 8u);

    Typed neg = query_all(h_, db_, "SELECT -5");
    EXPECT_EQ(neg.v32, -5);
    EXPECT_EQ(neg.v64, -5);
}

TEST_F(SqlTest, TypedGettersOnTwoRows) {
    Typed two = query_all(h_, db_, "SELECT 1 UNION ALL SELECT 2");
    EXPECT_EQ(two.rc32, KSDB_E_VECTOR);
    EXPECT_EQ(two.v32, 0);
    EXPECT_EQ(two.n32, 1);
    EXPECT_EQ(two.rc64, KSDB_E_VECTOR);
    EXPECT_EQ(two.rcu64, KSDB_E_VECTOR);
    // The unsigned 32-bit call has no vector check.
    EXPECT_EQ(two.rcu32, 0);
    EXPECT_EQ(two.vu32, 0u);
    EXPECT_EQ(two.nu32, 1);
    // The text call leaves the caller's value as it was.
    EXPECT_EQ(two.rcs, KSDB_E_VECTOR);
    EXPECT_STREQ(two.s, "untouched");
    EXPECT_NE(log_.text().find("(error) ksdb_sql_get_int32_mprintf is called with SQL which has "
                               "vector output. (ncol=1, nrow=2).\n"),
              std::string::npos);
}

TEST_F(SqlTest, TypedGettersOnOneRowOfTwoColumns) {
    Typed wide = query_all(h_, db_, "SELECT 42, 43");
    EXPECT_EQ(wide.rc32, KSDB_E_VECTOR);
    EXPECT_EQ(wide.v32, 42);  // the first column is still converted
    EXPECT_EQ(wide.n32, 0);
    EXPECT_EQ(wide.rcu32, 0);
    EXPECT_EQ(wide.vu32, 42u);
    EXPECT_EQ(wide.rcs, KSDB_E_VECTOR);
    EXPECT_STREQ(wide.s, "42");
    EXPECT_NE(log_.text().find("ksdb_sql_get_scaler_mprintf is called with SQL which has vector "
                               "output. (ncol=2, nrow=1).\n"),
              std::string::npos);
}

TEST_F(SqlTest, TypedGettersOnNullNoRowAndFailure) {
    for (const char *sql : {"SELECT NULL", "SELECT 1 WHERE 0"}) {
        Typed t = query_all(h_, db_, sql);
        EXPECT_EQ(t.rc32, 0) << sql;
        EXPECT_EQ(t.v32, 0) << sql;
        EXPECT_EQ(t.n32, 1) << sql;
        EXPECT_EQ(t.v64, 0) << sql;
        EXPECT_EQ(t.nu64, 1) << sql;
        EXPECT_EQ(t.rcs, 0) << sql;
        EXPECT_EQ(t.s, nullptr) << sql;
    }
    Typed bad = query_all(h_, db_, "SELECT * FROM missing_table");
    EXPECT_EQ(bad.rc32, SQLITE_ERROR);
    EXPECT_EQ(bad.v32, 111);  // untouched
    EXPECT_EQ(bad.n32, 7);
    EXPECT_EQ(bad.vu64, 111u);
    EXPECT_EQ(bad.rcs, SQLITE_ERROR);
    EXPECT_EQ(bad.s, nullptr);
}

TEST_F(SqlTest, MprintfQuotesItsArguments) {
    ASSERT_EQ(ksdb_sql_exec(h_, db_, nullptr, "m", 1, "CREATE TABLE `t w` (v TEXT)"), 0);
    ASSERT_EQ(ksdb_sql_exec_mprintf(h_, db_, nullptr, "m", 1, "INSERT INTO `%w` VALUES(%Q)", "t w",
                                    "it's"),
              0);
    char *v = nullptr;
    ASSERT_EQ(ksdb_sql_get_scaler_mprintf(h_, db_, nullptr, "m", 1, &v,
                                          "SELECT v FROM `t w` WHERE v=%Q", "it's"),
              0);
    EXPECT_STREQ(v, "it's");
}

TEST_F(SqlTest, InsertThenUpdateRunsTheUpdateOnlyAfterTheInsert) {
    using ksdb::sql_insert_then_update;
    using ksdb::sql_printf;
    using Rows = std::vector<std::string>;
    ASSERT_EQ(ksdb_sql_exec(h_, db_, nullptr, "m", 1,
                            "CREATE TABLE t (k INT PRIMARY KEY, v TEXT NOT NULL, w TEXT)"),
              0);
    db_.exec("INSERT INTO t VALUES(1,'old','kept')");
    // An existing row: the INSERT is ignored, the UPDATE sets only its columns.
    EXPECT_EQ(sql_insert_then_update(h_, db_, KSDB_TAG,
                                     sql_printf("INSERT OR IGNORE INTO t (k,v) VALUES(%d,'')", 1),
                                     sql_printf("UPDATE t SET v=%Q WHERE k=%d", "new", 1)),
              SQLITE_OK);
    EXPECT_EQ(db_.rows("SELECT * FROM t"), Rows{"1|new|kept"});
    // A failing INSERT returns its code and the UPDATE is not run.
    EXPECT_EQ(sql_insert_then_update(h_, db_, KSDB_TAG, sql_printf("INSERT INTO nosuch VALUES(1)"),
                                     sql_printf("UPDATE t SET v='no'")),
              SQLITE_ERROR);
    EXPECT_EQ(db_.rows("SELECT * FROM t"), Rows{"1|new|kept"});
    EXPECT_EQ(sql_insert_then_update(h_, db_, KSDB_TAG,
                                     sql_printf("INSERT OR IGNORE INTO t (k,v) VALUES(2,'x')"),
                                     sql_printf("UPDATE nosuch SET v='no'")),
              SQLITE_ERROR);
    EXPECT_EQ(db_.rows("SELECT k,v FROM t ORDER BY k"), (Rows{"1|new", "2|x"}));
}

// ---- transactions ------------------------------------------------------------

TEST_F(SqlTest, BeginHoldsTheDatabaseLockUntilCommitOrRollback) {
    auto other_thread_can_lock = [&] {
        bool locked = false;
        std::thread([&] {
            if (pthread_mutex_trylock(h_->db_mutex) == 0) {
                locked = true;
                pthread_mutex_unlock(h_->db_mutex);
            }
        }).join();
        return locked;
    };
    ASSERT_EQ(ksdb_sql_begin(h_, db_, nullptr, "m", 1), 0);
    EXPECT_FALSE(other_thread_can_lock());
    // A nested begin fails but still takes the (recursive) lock once more.
    EXPECT_NE(ksdb_sql_begin(h_, db_, nullptr, "m", 2), 0);
    EXPECT_EQ(ksdb_sql_exec_mutex(h_, db_, nullptr, "m", 3, "CREATE TABLE t (x)"), 0);
    EXPECT_EQ(ksdb_sql_rollback(h_, db_, nullptr, "m", 4), SQLITE_OK);  // pairs the failed begin
    EXPECT_FALSE(other_thread_can_lock());
    EXPECT_EQ(ksdb_sql_commit(h_, db_, nullptr, "m", 5), SQLITE_ERROR);  // already rolled back
    EXPECT_TRUE(other_thread_can_lock());
    EXPECT_EQ(db_.scalar("SELECT COUNT(*) FROM sqlite_master WHERE name='t'"), "0");
}

// ---- whole-table helpers -------------------------------------------------------

class TableHelpers : public SqlTest {
  protected:
    void SetUp() override {
        db_.exec("CREATE TABLE `a` ( `id` INTEGER NOT NULL, `v` TEXT, PRIMARY KEY (`id`))");
        db_.exec("CREATE TABLE `b` ( `id` INTEGER NOT NULL, `v` TEXT, PRIMARY KEY (`id`))");
        db_.exec("INSERT INTO a VALUES(1,'x'),(2,'y')");
        db_.exec("INSERT INTO b VALUES(1,'x'),(2,'y')");
    }
};

TEST_F(TableHelpers, CompareTableReportsOneForEqualTables) {
    int count = -1;
    EXPECT_EQ(ksdb_sql_compare_table(h_, db_, nullptr, "a", "b", &count), 1);
    EXPECT_EQ(count, 0);

    db_.exec("INSERT INTO b VALUES(3,'z')");
    count = -1;
    EXPECT_EQ(ksdb_sql_compare_table(h_, db_, nullptr, "a", "b", &count), 0);
    EXPECT_EQ(count, 1);

    // A row only in the first table is never seen: the reverse count fails.
    db_.exec("DELETE FROM b WHERE id=3");
    db_.exec("INSERT INTO a VALUES(4,'w')");
    EXPECT_EQ(ksdb_sql_compare_table(h_, db_, nullptr, "a", "b", &count), 1);
    EXPECT_EQ(ksdb_sql_compare_table(h_, db_, nullptr, "missing", "b", &count), 1);
}

TEST_F(TableHelpers, CompareTableRowAndTableLists) {
    db_.exec("INSERT INTO b VALUES(3,'z')");
    int count = -1;
    EXPECT_EQ(ksdb_sql_compare_table_row(h_, db_, nullptr, "a", "b", "id<3", &count), 0);
    EXPECT_EQ(count, 0);
    EXPECT_EQ(ksdb_sql_compare_table_row(h_, db_, nullptr, "a", "b", "id>=1", &count), 0);
    EXPECT_EQ(count, 1);

    db_.exec("CREATE TABLE `_a` AS SELECT * FROM a");
    db_.exec("CREATE TABLE `_b` AS SELECT * FROM a");  // differs from b
    const char *const tables[] = {"a", "b", nullptr};
    const char *changed[3] = {"junk", "junk", "junk"};
    EXPECT_EQ(ksdb_sql_compare_tables(h_, db_, nullptr, "_", tables, changed), 0);
    EXPECT_STREQ(changed[0], "b");
    EXPECT_EQ(changed[1], nullptr);

    EXPECT_EQ(ksdb_sql_compare_tables2(h_, db_, nullptr, "_", tables, &count), 0);
    EXPECT_EQ(count, 1);
    const char *const same[] = {"a", nullptr};
    EXPECT_EQ(ksdb_sql_compare_tables2(h_, db_, nullptr, "_", same, &count), 0);
    EXPECT_EQ(count, 0);
    const char *const missing[] = {"a", "zz", nullptr};
    EXPECT_EQ(ksdb_sql_compare_tables2(h_, db_, nullptr, "_", missing, &count), 1);
}

TEST_F(TableHelpers, DuplicateKeepsConstraintsOfBackquotedDefinitions) {
    ASSERT_EQ(ksdb_sql_duplicate_table(h_, db_, nullptr, "a", "a_copy"), 0);
    EXPECT_EQ(db_.scalar("SELECT sql FROM sqlite_master WHERE name='a_copy'"),
              "CREATE TABLE `a_copy` ( `id` INTEGER NOT NULL, `v` TEXT, PRIMARY KEY (`id`))");
    EXPECT_EQ(db_.scalar("SELECT COUNT(*) FROM a_copy"), "2");
    EXPECT_NE(sqlite3_exec(db_, "INSERT INTO a_copy VALUES(1,'dup')", nullptr, nullptr, nullptr),
              SQLITE_OK);

    db_.exec("CREATE TABLE plain (id INTEGER PRIMARY KEY, v TEXT)");
    db_.exec("INSERT INTO plain VALUES(1,'p')");
    ASSERT_EQ(ksdb_sql_duplicate_table(h_, db_, nullptr, "plain", "plain_copy"), 0);
    EXPECT_EQ(db_.scalar("SELECT COUNT(*) FROM plain_copy"), "1");
    // CREATE TABLE AS SELECT keeps the rows, not the key.
    EXPECT_EQ(sqlite3_exec(db_, "INSERT INTO plain_copy VALUES(1,'dup')", nullptr, nullptr,
                           nullptr),
              SQLITE_OK);

    ASSERT_EQ(ksdb_sql_duplicate_table(h_, db_, nullptr, "a", "_scratch"), 0);
    EXPECT_EQ(db_.scalar("SELECT COUNT(*) FROM sqlite_temp_master WHERE name='_scratch'"), "1");
    EXPECT_EQ(db_.scalar("SELECT COUNT(*) FROM _scratch"), "2");

    const char *const list[] = {"a", "b", nullptr};
    ASSERT_EQ(ksdb_sql_duplicate_tables(h_, db_, nullptr, "old_", list), 0);
    EXPECT_EQ(db_.scalar("SELECT COUNT(*) FROM old_b"), "2");
    EXPECT_EQ(ksdb_sql_duplicate_table(h_, db_, nullptr, "missing", "x"), 1);
}

TEST_F(TableHelpers, RenameBetweenScratchAndStoredNames) {
    db_.exec("CREATE TEMPORARY TABLE `_work` ( `id` INT, `v` TEXT)");
    db_.exec("INSERT INTO _work VALUES(9,'t')");
    ASSERT_EQ(ksdb_sql_rename_table(h_, db_, nullptr, "_work", "work"), 0);
    EXPECT_EQ(db_.scalar("SELECT COUNT(*) FROM sqlite_temp_master WHERE name='_work'"), "0");
    EXPECT_EQ(db_.scalar("SELECT v FROM work"), "t");
    EXPECT_EQ(db_.scalar("SELECT type FROM sqlite_master WHERE name='work'"), "table");

    // Between two stored names: the new name is dropped, then ALTER TABLE.
    ASSERT_EQ(ksdb_sql_rename_table(h_, db_, nullptr, "a", "b"), 0);
    EXPECT_EQ(db_.scalar("SELECT COUNT(*) FROM sqlite_master WHERE name='a'"), "0");
    EXPECT_EQ(db_.scalar("SELECT COUNT(*) FROM b"), "2");
    EXPECT_NE(trace_.text().find("sql=ALTER TABLE `a` RENAME TO `b`\n"), std::string::npos);

    EXPECT_EQ(ksdb_sql_rename_table(h_, db_, nullptr, "missing", "c"), 1);
    // Every path released the lock.
    EXPECT_EQ(pthread_mutex_trylock(h_->db_mutex), 0);
    pthread_mutex_unlock(h_->db_mutex);
}

TEST_F(TableHelpers, DeleteAndDropStopAtTheFirstFailure) {
    db_.exec("CREATE TABLE _a (x)");
    db_.exec("INSERT INTO _a VALUES(1)");
    const char *const list[] = {"a", "missing", "b", nullptr};
    EXPECT_EQ(ksdb_sql_delete_tables(h_, db_, nullptr, "", list), 1);
    EXPECT_EQ(db_.scalar("SELECT COUNT(*) FROM a"), "0");
    EXPECT_EQ(db_.scalar("SELECT COUNT(*) FROM b"), "2");  // not reached
    const char *const prefixed[] = {"a", nullptr};
    EXPECT_EQ(ksdb_sql_delete_tables(h_, db_, nullptr, "_", prefixed), 0);
    EXPECT_EQ(db_.scalar("SELECT COUNT(*) FROM _a"), "0");
    const char *const empty[] = {nullptr};
    EXPECT_EQ(ksdb_sql_drop_tables(h_, db_, nullptr, "", empty), 0);
    EXPECT_EQ(ksdb_sql_drop_tables(h_, db_, nullptr, "_", prefixed), 0);
    EXPECT_EQ(db_.scalar("SELECT COUNT(*) FROM sqlite_master WHERE name='_a'"), "0");
    EXPECT_NE(trace_.text().find("sql=DROP TABLE IF EXISTS `_a`\n"), std::string::npos);
}
