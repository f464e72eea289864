// The SQL access layer: retries, trace and messages, the last-error record,
// typed single values, transactions and the whole-table helpers.
#define KSDB_MODULE "test_sql"
#include "core/ksdb_internal.h"
#include "tests/core_support.h"

#include <chrono>

using namespace ksdb_test;

namespace {

class SqlTest : public ::testing::Test {
  protected:
    CaptureFile log_, trace_;
    Handle h_{{log_.get(), 5, trace_.get()}};
    Db db_;
};

// Each getter on one query: "rc value is_null" per getter (i32 i64 u32 u64),
// then the text getter's "rc value" ("<kept>" when it left the value alone).
Rows typed(ksdb_handle *h, sqlite3 *db, const char *sql) {
    Rows out;
    auto number = [&](auto getter, auto value) {
        int is_null = 7;
        const int rc = getter(h, db, nullptr, "m", 1, &value, &is_null, "%s", sql);
        out.push_back(std::to_string(rc) + " " + std::to_string(value) + " " + std::to_string(is_null));
    };
    number(ksdb_sql_get_int32_mprintf, int32_t{111});
    number(ksdb_sql_get_int64_mprintf, int64_t{111});
    number(ksdb_sql_get_uint32_mprintf, uint32_t{111});
    number(ksdb_sql_get_uint64_mprintf, uint64_t{111});
    static char kept[] = "<kept>";
    char *s = kept;
    const int rc = ksdb_sql_get_scaler_mprintf(h, db, nullptr, "m", 1, &s, "%s", sql);
    out.push_back(std::to_string(rc) + " " + (s ? s : "<NULL>"));
    return out;
}

}  // namespace

// Guards: giving up early on a busy database; SQLite's 5 recorded as the library's.
TEST(SqlRetry, StaysBusyFor1001AttemptsAndTheLastErrorTellsSqlitesFiveFromTheLibrarys) {
    // A file database whose write lock a second connection holds.
    TempDir dir;
    Db db(dir / "db.sqlite"), holder(dir / "db.sqlite");
    db.exec("CREATE TABLE t (x INT)");
    holder.exec("BEGIN IMMEDIATE");
    CaptureFile trace;
    Handle h({nullptr, 4, trace.get()});
    ksdb_clear_error();
    auto start = std::chrono::steady_clock::now();
    char **table = nullptr;
    int rc = ksdb_sql_get_table(h, db, nullptr, "test_sql", 2, &table, nullptr, nullptr,
                                "INSERT INTO t VALUES(1)");
    auto elapsed = std::chrono::steady_clock::now() - start;
    sqlite3_free_table(table);
    EXPECT_EQ(rc, SQLITE_BUSY);
    EXPECT_GE(elapsed, std::chrono::milliseconds(10000)) << "1000 sleeps of 10 ms";
    EXPECT_TRUE(contains(trace.text(), " ==> 1000:5 (database is locked) nrow=0 ncol=0\n"));
    EXPECT_EQ(last_error(), "1 5 test_sql:2 database is locked");
}

// Guards: the trace or message format; the extended code lost; failures logged at
// the wrong level; a NULL result pointer accepted.
TEST_F(SqlTest, TraceMessagesLogLevelsAndTheExtendedCodeOfAFailure) {
    char *msg = nullptr;
    EXPECT_EQ(ksdb_sql_exec(h_, db_, &msg, "ksdb_cifs", 77, "CREATE TABLE t (x INT UNIQUE)"), 0);
    EXPECT_STREQ(msg, "Internal DB error. (77:0:success)");
    EXPECT_EQ(ksdb_sql_exec(h_, db_, &msg, "ksdb_cifs", 78, "SELEC nonsense"), SQLITE_ERROR);
    EXPECT_STREQ(msg, "Internal DB error. (78:1:near \"SELEC\": syntax error)");
    char **table = nullptr;
    int nrow = -1, ncol = -1;
    EXPECT_EQ(ksdb_sql_get_table(h_, db_, nullptr, "ksdb_nfs", 5, &table, &nrow, &ncol, "SELECT 1,2"), 0);
    sqlite3_free_table(table);
    EXPECT_EQ(nrow * 10 + ncol, 12);
    EXPECT_EQ(unstamped(trace_.text()),
              (Rows{"ksdb_cifs:77sql=CREATE TABLE t (x INT UNIQUE)", "ksdb_cifs:77 ==> 0:0 (success)",
                    "ksdb_cifs:78sql=SELEC nonsense", "ksdb_cifs:78 ==> 0:1 (near \"SELEC\": syntax error)",
                    "ksdb_nfs:5sql=SELECT 1,2", "ksdb_nfs:5 ==> 0:0 (success) nrow=1 ncol=2"}));
    db_.exec("INSERT INTO t VALUES(1)");
    EXPECT_EQ(ksdb_sql_exec(h_, db_, nullptr, "m", 3, "INSERT INTO t VALUES(1)"), SQLITE_CONSTRAINT);
    EXPECT_EQ(last_error(), "1 2067 m:3 UNIQUE constraint failed: t.x") << "the extended code";
    // A plain statement's failure is logged at debug level only, a query's from error level on.
    h_->log_level = 4;
    ksdb_sql_exec(h_, db_, nullptr, "m", 4, "BROKEN");
    h_->log_level = 2;
    ksdb_sql_get_table(h_, db_, nullptr, "m", 5, &table, nullptr, nullptr, "BROKEN2");
    sqlite3_free_table(table);
    EXPECT_EQ(unstamped(log_.text()),
              (Rows{"ksdb_cifs:78 (error) SQL=SELEC nonsense ==> 1 (near \"SELEC\": syntax error)",
                    "m:3 (error) SQL=INSERT INTO t VALUES(1) ==> 19 (UNIQUE constraint failed: t.x)",
                    "m:5 (error) SQL=BROKEN2 ==> 1 (near \"BROKEN2\": syntax error)"}));
    EXPECT_DEATH(ksdb_sql_get_table(h_, db_, nullptr, "m", 1, nullptr, nullptr, nullptr, "SELECT 1"),
                 "result");
    EXPECT_DEATH(ksdb_sql_get_int32_mprintf(h_, db_, nullptr, "m", 1, nullptr, nullptr, "SELECT 1"),
                 "result");
}

// Guards: each getter's base, vector check and failure value.
TEST_F(SqlTest, TypedGettersConvertCheckAndFailDifferentlyOnPurpose) {
    // Base 10 for the signed 32-bit call, base 0 for the others.
    EXPECT_EQ(typed(h_, db_, "SELECT '0x1F'"), (Rows{"0 0 0", "0 31 0", "0 31 0", "0 31 0", "0 0x1F"}));
    EXPECT_EQ(typed(h_, db_, "SELECT '010'"), (Rows{"0 10 0", "0 8 0", "0 8 0", "0 8 0", "0 010"}));
    // Two rows: -1, except the unsigned 32-bit call (no vector check); the
    // text call leaves the value alone.
    EXPECT_EQ(typed(h_, db_, "SELECT 1 UNION ALL SELECT 2"),
              (Rows{"-1 0 1", "-1 0 1", "0 0 1", "-1 0 1", "-1 <kept>"}));
    // One row of two columns: the first column is still converted.
    EXPECT_EQ(typed(h_, db_, "SELECT 42, 43"), (Rows{"-1 42 0", "-1 42 0", "0 42 0", "-1 42 0", "-1 42"}));
    for (const char *sql : {"SELECT NULL", "SELECT 1 WHERE 0"})
        EXPECT_EQ(typed(h_, db_, sql), (Rows{"0 0 1", "0 0 1", "0 0 1", "0 0 1", "0 <NULL>"})) << sql;
    // A failed query leaves the numbers alone and nulls the text.
    EXPECT_EQ(typed(h_, db_, "SELECT * FROM missing"),
              (Rows{"1 111 7", "1 111 7", "1 111 7", "1 111 7", "1 <NULL>"}));
    EXPECT_TRUE(contains(log_.text(), "(error) ksdb_sql_get_int32_mprintf is called with SQL which has "
                                      "vector output. (ncol=1, nrow=2).\n"));
    EXPECT_TRUE(contains(log_.text(), "ksdb_sql_get_scaler_mprintf is called with SQL which has vector "
                                      "output. (ncol=2, nrow=1).\n"));
}

// Guards: unquoted values; the update run after a failed insert.
TEST_F(SqlTest, MprintfQuotesAndInsertThenUpdateRunsTheUpdateOnlyAfterTheInsert) {
    db_.exec("CREATE TABLE `t\"w` (k INT PRIMARY KEY, v TEXT NOT NULL, w TEXT)");
    ASSERT_EQ(ksdb_sql_exec_mprintf(h_, db_, nullptr, "m", 1, "INSERT INTO \"%w\" VALUES(1,%Q,'kept')",
                                    "t\"w", "it's"),
              0);
    EXPECT_EQ(db_.scalar("SELECT v FROM `t\"w`"), "it's");

    using ksdb::sql_printf;
    auto both = [&](const char *insert, const char *update) {
        return ksdb::sql_insert_then_update(h_, db_, KSDB_TAG, sql_printf("%s", insert),
                                            sql_printf("%s", update));
    };
    EXPECT_EQ(both("INSERT OR IGNORE INTO `t\"w` (k,v) VALUES(1,'')", "UPDATE `t\"w` SET v='new' WHERE k=1"),
              0);
    EXPECT_EQ(both("INSERT INTO nosuch VALUES(1)", "UPDATE `t\"w` SET v='no'"), SQLITE_ERROR);
    EXPECT_EQ(both("INSERT OR IGNORE INTO `t\"w` (k,v) VALUES(2,'x')", "UPDATE nosuch SET v='no'"),
              SQLITE_ERROR);
    EXPECT_EQ(db_.rows("SELECT * FROM `t\"w` ORDER BY k"), (Rows{"1|new|kept", "2|x|<NULL>"}));
}

// Guards: the database lock released early or kept after the end.
TEST_F(SqlTest, BeginHoldsTheDatabaseLockUntilCommitOrRollback) {
    auto other_thread_can_lock = [&] { return lock_free(h_->db_mutex); };
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


class TableHelpers : public SqlTest {
  protected:
    void SetUp() override {
        for (const char *t : {"a", "b"}) {
            db_.exec(std::string("CREATE TABLE `") + t +
                     "` ( `id` INTEGER NOT NULL, `v` TEXT, PRIMARY KEY (`id`))");
            db_.exec(std::string("INSERT INTO ") + t + " VALUES(1,'x'),(2,'y')");
        }
    }
    int count_ = -1;
};

// Guards: the comparison helpers' results and counts.
TEST_F(TableHelpers, CompareTablesAndTheirQuirks) {
    auto rc_count = [&](int rc) { return std::to_string(rc) + "/" + std::to_string(count_); };
    // Equal tables give 1: the reverse count's statement is broken on purpose.
    EXPECT_EQ(rc_count(ksdb_sql_compare_table(h_, db_, nullptr, "a", "b", &count_)), "1/0");
    db_.exec("INSERT INTO b VALUES(3,'z')");
    EXPECT_EQ(rc_count(ksdb_sql_compare_table(h_, db_, nullptr, "a", "b", &count_)), "0/1");
    EXPECT_EQ(ksdb_sql_compare_table(h_, db_, nullptr, "missing", "b", &count_), 1);
    EXPECT_EQ(rc_count(ksdb_sql_compare_table_row(h_, db_, nullptr, "a", "b", "id<3", &count_)), "0/0");
    EXPECT_EQ(rc_count(ksdb_sql_compare_table_row(h_, db_, nullptr, "a", "b", "id>=1", &count_)), "0/1");

    db_.exec("CREATE TABLE `_a` AS SELECT * FROM a");
    db_.exec("CREATE TABLE `_b` AS SELECT * FROM a");  // differs from b
    const char *const tables[] = {"a", "b", nullptr}, *const same[] = {"a", nullptr},
                      *const missing[] = {"a", "zz", nullptr};
    const char *changed[3] = {"junk", "junk", "junk"};
    EXPECT_EQ(ksdb_sql_compare_tables(h_, db_, nullptr, "_", tables, changed), 0);
    EXPECT_STREQ(changed[0], "b");
    EXPECT_EQ(changed[1], nullptr);
    EXPECT_EQ(rc_count(ksdb_sql_compare_tables2(h_, db_, nullptr, "_", tables, &count_)), "0/1");
    EXPECT_EQ(rc_count(ksdb_sql_compare_tables2(h_, db_, nullptr, "_", same, &count_)), "0/0");
    EXPECT_EQ(ksdb_sql_compare_tables2(h_, db_, nullptr, "_", missing, &count_), 1);
}

// Guards: a copy without the key, scratch copies made permanent.
TEST_F(TableHelpers, DuplicateKeepsConstraintsOnlyOfBackquotedDefinitions) {
    ASSERT_EQ(ksdb_sql_duplicate_table(h_, db_, nullptr, "a", "a_copy"), 0);
    EXPECT_EQ(db_.scalar("SELECT sql FROM sqlite_master WHERE name='a_copy'"),
              "CREATE TABLE `a_copy` ( `id` INTEGER NOT NULL, `v` TEXT, PRIMARY KEY (`id`))");
    EXPECT_NE(sqlite3_exec(db_, "INSERT INTO a_copy VALUES(1,'dup')", nullptr, nullptr, nullptr), 0);

    db_.exec("CREATE TABLE plain (id INTEGER PRIMARY KEY, v TEXT)");
    db_.exec("INSERT INTO plain VALUES(1,'p')");
    ASSERT_EQ(ksdb_sql_duplicate_table(h_, db_, nullptr, "plain", "plain_copy"), 0);
    // CREATE TABLE AS SELECT keeps the rows, not the key.
    EXPECT_EQ(sqlite3_exec(db_, "INSERT INTO plain_copy VALUES(1,'dup')", nullptr, nullptr, nullptr), 0);
    EXPECT_EQ(db_.scalar("SELECT COUNT(*) FROM plain_copy"), "2");

    ASSERT_EQ(ksdb_sql_duplicate_table(h_, db_, nullptr, "a", "_scratch"), 0);
    EXPECT_EQ(db_.scalar("SELECT COUNT(*) FROM sqlite_temp_master WHERE name='_scratch'"), "1");
    const char *const list[] = {"a", "b", nullptr};
    ASSERT_EQ(ksdb_sql_duplicate_tables(h_, db_, nullptr, "old_", list), 0);
    EXPECT_EQ(db_.scalar("SELECT COUNT(*) FROM old_b"), "2");
    EXPECT_EQ(ksdb_sql_duplicate_table(h_, db_, nullptr, "missing", "x"), 1);
}

// Guards: deleting on past a failure; prefixes ignored; a rename that leaves the
// scratch table or the lock behind.
TEST_F(TableHelpers, DeleteAndDropStopAtTheFirstFailureRenameMovesBetweenScratchAndStored) {
    db_.exec("CREATE TABLE _a (x)");
    db_.exec("INSERT INTO _a VALUES(1)");
    const char *const list[] = {"a", "missing", "b", nullptr}, *const prefixed[] = {"a", nullptr},
                      *const empty[] = {nullptr};
    EXPECT_EQ(ksdb_sql_delete_tables(h_, db_, nullptr, "", list), 1);
    EXPECT_EQ(db_.scalar("SELECT (SELECT COUNT(*) FROM a)||(SELECT COUNT(*) FROM b)"), "02");
    EXPECT_EQ(ksdb_sql_delete_tables(h_, db_, nullptr, "_", prefixed), 0);
    EXPECT_EQ(db_.scalar("SELECT COUNT(*) FROM _a"), "0");
    EXPECT_EQ(ksdb_sql_drop_tables(h_, db_, nullptr, "", empty), 0);
    EXPECT_EQ(ksdb_sql_drop_tables(h_, db_, nullptr, "_", prefixed), 0);
    EXPECT_EQ(db_.scalar("SELECT COUNT(*) FROM sqlite_master WHERE name='_a'"), "0");
    EXPECT_TRUE(contains(trace_.text(), "sql=DROP TABLE IF EXISTS `_a`\n"));

    db_.exec("CREATE TEMPORARY TABLE `_work` ( `id` INT, `v` TEXT)");
    db_.exec("INSERT INTO _work VALUES(9,'t')");
    ASSERT_EQ(ksdb_sql_rename_table(h_, db_, nullptr, "_work", "work"), 0);
    EXPECT_EQ(db_.scalar("SELECT COUNT(*) FROM sqlite_temp_master WHERE name='_work'"), "0");
    EXPECT_EQ(db_.scalar("SELECT type||' '||(SELECT v FROM work) FROM sqlite_master WHERE name='work'"),
              "table t");
    // Between two stored names: the new name is dropped, then ALTER TABLE.
    ASSERT_EQ(ksdb_sql_rename_table(h_, db_, nullptr, "a", "b"), 0);
    EXPECT_EQ(db_.scalar("SELECT COUNT(*) FROM sqlite_master WHERE name='a'"), "0");
    EXPECT_TRUE(contains(trace_.text(), "sql=ALTER TABLE `a` RENAME TO `b`\n"));
    EXPECT_EQ(ksdb_sql_rename_table(h_, db_, nullptr, "missing", "c"), 1);
    EXPECT_TRUE(lock_free(h_->db_mutex)) << "every path released the lock";
}
