// The schema: new and upgraded databases end as tests/data/schema.sql; failures
// roll back; reruns, the page size, ksdb_delete.
#include "tests/core_support.h"

#include <algorithm>
#include <cstring>
#include <regex>

using namespace ksdb_test;

namespace {

// The statements of one section ("main" or "temp") of the dump.
Rows dump(const std::string &section) {
    Rows out;
    std::string current;
    for (const std::string &line : lines(read_file(KSDB_TEST_DATA_DIR "/schema.sql"))) {
        if (line.rfind("-- [", 0) == 0) current = line.substr(4, line.size() - 5);
        else if (current == section && line.rfind("--", 0) != 0 && !line.empty())
            out.push_back(line.substr(0, line.size() - 1));  // without the ';'
    }
    return out;
}

Rows schema_of(Db &db, const char *master) {
    return db.column(std::string("SELECT sql FROM ") + master + " WHERE sql IS NOT NULL ORDER BY rowid");
}

Rows sorted(Rows rows) {
    std::sort(rows.begin(), rows.end());
    return rows;
}

// A handle below a temporary debug root (so failure logs stay there),
// logging at debug level and tracing SQL, over a file database.
class SchemaTest : public ::testing::Test {
  protected:
    SchemaTest() : handle_(Handle::Options{log_.get(), 5, trace_.get(), (mkdirs(root_), root_.c_str())}) {}
    ksdb_handle *h() const { return handle_.get(); }
    std::string log() { return log_.text(); }
    // An older database, written out in tests/data/schema-v<N>.sql.
    void load(const std::string &name) { db_.exec(read_file(KSDB_TEST_DATA_DIR "/" + name)); }
    // The upgrade steps the log announces, in order: "22 23".
    std::string steps() {
        static const std::regex step(R"(\(info\) DB upgrade to version (\d+)\n)");
        std::string out;
        const std::string text = log();
        for (std::sregex_iterator it(text.begin(), text.end(), step), end; it != end; ++it)
            out += (out.empty() ? "" : " ") + (*it)[1].str();
        return out;
    }
    // Every table with its rows, and the version: to see that nothing changed.
    Rows snapshot() {
        Rows out = schema_of(db_, "sqlite_master");
        for (const std::string &t : db_.column("SELECT name FROM sqlite_master WHERE type='table'"))
            for (const std::string &r : sorted(db_.rows("SELECT * FROM `" + t + "`")))
                out.push_back(t + ": " + r);
        out.push_back(db_.scalar("PRAGMA user_version"));
        return out;
    }
    TempDir tmp_;
    std::string root_ = tmp_ / "root";
    CaptureFile log_, trace_;
    Handle handle_;
    Db db_{tmp_ / "config.db"};
};

}  // namespace

TEST_F(SchemaTest, ANewDatabaseIsTheDumpAndARerunKeepsOnlyTheStoredRows) {
    ASSERT_EQ(ksdb_create(h(), db_), 0);
    EXPECT_EQ(schema_of(db_, "sqlite_master"), dump("main"));
    EXPECT_EQ(schema_of(db_, "sqlite_temp_master"), dump("temp"));
    EXPECT_EQ(db_.scalar("PRAGMA user_version"), "23");

    // Stored tables ("$") are created only when missing; every other table
    // is dropped first, by name with one blank after it.
    const std::string trace = trace_.text();
    for (const std::string &t : db_.column("SELECT name FROM sqlite_master WHERE type='table' UNION ALL "
                                           "SELECT name FROM sqlite_temp_master WHERE type='table'")) {
        const bool dropped = trace.find("sql=DROP TABLE IF EXISTS `" + t + "` \n") != std::string::npos;
        const bool if_missing = trace.find("sql=CREATE TABLE IF NOT EXISTS `" + t + "`") != std::string::npos;
        EXPECT_EQ(dropped, t[0] != '$') << t;
        EXPECT_EQ(if_missing, t[0] == '$') << t;
    }
    const std::string text = log();
    EXPECT_TRUE(std::regex_search(
        text, std::regex(R"(ksdb_api:\d+ \(error\) DB \(main\) schema version: new ==> 23\n)")))
        << text;
    EXPECT_FALSE(contains(text, "page size"));

    // A rerun keeps the stored rows and empties mirror and scratch tables.
    db_.exec("INSERT INTO `$user` (id,uname,is_privileged) VALUES(100,'alice',0)");
    db_.exec("INSERT INTO `$registry` VALUES(1,'one')");
    db_.exec("INSERT INTO share (zfs_name,name,path,user_id,group_id) VALUES('v/s','s','/v/s',0,0)");
    db_.exec("INSERT INTO _volume (id,lv_name,blk_size) VALUES('v','v',1024)");
    ASSERT_EQ(ksdb_create(h(), db_), 0);
    EXPECT_EQ(db_.rows("SELECT (SELECT uname FROM `$user`),(SELECT value FROM `$registry`),"
                       "(SELECT COUNT(*) FROM share),(SELECT COUNT(*) FROM _volume)"),
              Rows{"alice|one|0|0"});

    // A newer stored version runs no upgrade and keeps its number.
    db_.exec("PRAGMA user_version=30");
    ASSERT_EQ(ksdb_create(h(), db_), 0);
    EXPECT_EQ(db_.scalar("PRAGMA user_version"), "30");
    EXPECT_TRUE(contains(log(), "(error) DB (main) schema version: 30 ==> 23\n"));
    EXPECT_EQ(steps(), "") << "no upgrade on any of the three runs";
}

TEST_F(SchemaTest, PageSizeIsFixedAfterTheCommitAndItsFailureChangesNothing) {
    db_.exec("PRAGMA page_size=1024");
    db_.exec("CREATE TABLE keep (x INT)");
    // Refuse every page_size change on this connection first.
    auto deny_page_size = [](void *, int action, const char *a, const char *b, const char *,
                             const char *) {
        return action == SQLITE_PRAGMA && a && !std::strcmp(a, "page_size") && b ? SQLITE_DENY : SQLITE_OK;
    };
    sqlite3_set_authorizer(db_, deny_page_size, nullptr);
    EXPECT_EQ(ksdb_create(h(), db_), 0);
    sqlite3_set_authorizer(db_, nullptr, nullptr);
    EXPECT_EQ(db_.scalar("PRAGMA page_size"), "1024");
    EXPECT_TRUE(contains(log(), "(error) Setting page_size failed!\n"));
    EXPECT_FALSE(contains(log(), "VACUUM"));

    ASSERT_EQ(ksdb_create(h(), db_), 0);
    EXPECT_EQ(db_.scalar("PRAGMA page_size"), "4096");
    EXPECT_TRUE(contains(log(), "(error) DB (main) page size: 1024 ==> 4096\n"));
    EXPECT_EQ(log().find("failed!"), log().rfind("failed!")) << "one failure only";
}

TEST_F(SchemaTest, UpgradeFrom21EndsAsTheDumpWithTheAccountsIntact) {
    load("schema-v21.sql");
    const Rows users = db_.rows("SELECT * FROM `$user` ORDER BY id");
    const Rows groups = db_.rows("SELECT * FROM `$group` ORDER BY id");
    ASSERT_EQ(ksdb_create(h(), db_), 0);
    EXPECT_EQ(sorted(schema_of(db_, "sqlite_master")), sorted(dump("main")));
    EXPECT_EQ(schema_of(db_, "sqlite_temp_master"), dump("temp"));
    EXPECT_EQ(db_.scalar("PRAGMA user_version"), "23");
    EXPECT_EQ(db_.rows("SELECT * FROM `$user` ORDER BY id"), users);
    EXPECT_EQ(db_.rows("SELECT * FROM `$group` ORDER BY id"), groups);
    EXPECT_EQ(db_.rows("SELECT * FROM `$group_has_user` ORDER BY 1"), (Rows{"100|100", "70001|70000"}));
    EXPECT_EQ(steps(), "22 23");
    const Rows sql = traced_statements(trace_.text());
    EXPECT_EQ(std::count(sql.begin(), sql.end(), "ALTER TABLE `$user` RENAME TO `user_old` "), 2);
    EXPECT_EQ(std::count(sql.begin(), sql.end(), "ALTER TABLE `$group` RENAME TO `group_old` "), 1);
}

TEST_F(SchemaTest, UpgradeFrom16MovesThroughTheEmptyStep17) {
    load("schema-v16.sql");
    ASSERT_EQ(ksdb_create(h(), db_), 0);
    EXPECT_EQ(sorted(schema_of(db_, "sqlite_master")), sorted(dump("main")));
    EXPECT_EQ(db_.rows("SELECT id,uname,is_locked,shell_access FROM `$user` ORDER BY id"),
              (Rows{"0|root|0|0", "100|Alice|0|0", "70001|bob|0|0"}));
    EXPECT_EQ(db_.rows("SELECT * FROM `$home_folder` ORDER BY user_id"),
              (Rows{"0|0|<NULL>|0|<NULL>", "100|1|2048|1|<NULL>"}));
    EXPECT_EQ(steps(), "17 18 19 20 21 22 23");
    // Step 17 has no statement: its version write follows the last statement
    // of the creation list and is followed by the rebuild of `$group`.
    const Rows sql = traced_statements(trace_.text());
    auto it = std::find(sql.begin(), sql.end(), "PRAGMA user_version=17");
    ASSERT_TRUE(it != sql.end() && it != sql.begin() && it + 1 != sql.end());
    EXPECT_EQ(it[-1].substr(0, 29), "CREATE TABLE `replisync_key` ");
    EXPECT_EQ(it[1], "ALTER TABLE `$group` RENAME TO `group_old` ");
}

// A failing statement of an upgrade step (from version 13) or of the creation
// list (on a read-only connection) rolls everything back and releases the lock.
TEST_F(SchemaTest, AFailedStatementRollsBackEverything) {
    load("schema-v13.sql");
    const Rows before = snapshot();
    EXPECT_EQ(ksdb_create(h(), db_), 3);
    EXPECT_EQ(snapshot(), before);
    EXPECT_EQ(db_.scalar("SELECT COUNT(*) FROM sqlite_temp_master"), "0");
    EXPECT_TRUE(lock_free(h()->db_mutex));
    EXPECT_NE(sqlite3_get_autocommit(db_), 0);
    EXPECT_EQ(steps(), "14");
    EXPECT_TRUE(std::regex_search(log(), std::regex(R"(\(error\) ksdb_create\(\) ==> 3 \(\d+ms\)\n)")));

    sqlite3 *ro = nullptr;
    ASSERT_EQ(sqlite3_open_v2((tmp_ / "config.db").c_str(), &ro, SQLITE_OPEN_READONLY, nullptr), 0);
    EXPECT_EQ(ksdb_create(h(), ro), 3);
    EXPECT_NE(sqlite3_get_autocommit(ro), 0);
    EXPECT_TRUE(lock_free(h()->db_mutex));
    sqlite3_close(ro);
    EXPECT_EQ(snapshot(), before);
}

TEST_F(SchemaTest, AFailedVersionReadOrWriteLeavesTheTransactionWithTheCaller) {
    // Refuse reads (any user_version pragma) or only writes (with a value).
    for (bool writes_only : {false, true}) {
        sqlite3_set_authorizer(
            db_,
            [](void *arg, int action, const char *a, const char *b, const char *, const char *) {
                bool deny = action == SQLITE_PRAGMA && a && !std::strcmp(a, "user_version") &&
                            (b || !*static_cast<bool *>(arg));
                return deny ? SQLITE_DENY : SQLITE_OK;
            },
            &writes_only);
        EXPECT_EQ(ksdb_create(h(), db_), 3);
        sqlite3_set_authorizer(db_, nullptr, nullptr);
        EXPECT_EQ(sqlite3_get_autocommit(db_), 0) << writes_only;
        EXPECT_FALSE(lock_free(h()->db_mutex)) << writes_only;
        EXPECT_EQ(ksdb_sql_rollback(h(), db_, nullptr, "test_schema", 1), SQLITE_OK);
        EXPECT_TRUE(lock_free(h()->db_mutex));
        EXPECT_EQ(db_.scalar("SELECT COUNT(*) FROM sqlite_master"), "0");
    }
    EXPECT_EQ(log().find("schema version: new"), log().rfind("schema version: new"))
        << "the failed read logs no version";
}

TEST_F(SchemaTest, DeleteEmptiesStoredAndMirrorTablesOrRollsBack) {
    ASSERT_EQ(ksdb_create(h(), db_), 0);
    db_.exec("INSERT INTO `$user` (id,uname,is_privileged) VALUES(0,'root',1),(100,'a',0)");
    db_.exec("INSERT INTO service_cifs (user_home_directory) VALUES(1)");
    db_.exec("INSERT INTO _volume (id,lv_name,blk_size) VALUES('v','v',1024)");
    db_.exec("CREATE TRIGGER keep_cifs BEFORE DELETE ON service_cifs BEGIN SELECT RAISE(ABORT,'kept'); END");
    EXPECT_EQ(ksdb_delete(h(), db_), 3);
    // `$user` comes before service_cifs and was emptied before the failure.
    EXPECT_EQ(db_.rows("SELECT (SELECT COUNT(*) FROM `$user`),(SELECT COUNT(*) FROM service_cifs)"),
              Rows{"2|1"});
    EXPECT_TRUE(lock_free(h()->db_mutex));
    EXPECT_NE(sqlite3_get_autocommit(db_), 0);
    EXPECT_TRUE(contains(log(), "(error) Error in SQL query (DELETE FROM service_cifs)\n"));
    EXPECT_TRUE(std::regex_search(log(), std::regex(R"(\(error\) ksdb_delete\(\) ==> 3 \(\d+ms\)\n)")));

    db_.exec("DROP TRIGGER keep_cifs");
    const Rows schema = schema_of(db_, "sqlite_master");
    ASSERT_EQ(ksdb_delete(h(), db_), 0);
    EXPECT_EQ(schema_of(db_, "sqlite_master"), schema);
    EXPECT_EQ(db_.scalar("PRAGMA user_version"), "23");
    for (const std::string &t : db_.column("SELECT name FROM sqlite_master WHERE type='table'"))
        EXPECT_EQ(db_.scalar("SELECT COUNT(*) FROM `" + t + "`"), "0") << t;
    EXPECT_EQ(db_.scalar("SELECT COUNT(*) FROM _volume"), "1") << "scratch tables are left alone";
}

TEST_F(SchemaTest, AnOlderLibrarysDatabaseGetsTheIndexesAndKeepsItsVersion) {
    // What an older library left: the current tables at version 23, rows in
    // them, and none of the indexes added for the statements.
    ASSERT_EQ(ksdb_create(h(), db_), 0);
    db_.exec("DROP INDEX user_acl_share_proto; DROP INDEX group_acl_share_proto; DROP INDEX `$user_uname`;"
             "DROP INDEX `$group_gname`; DROP INDEX `$user_group_id`; DROP INDEX `$group_has_user_group_id`");
    db_.exec("INSERT INTO `$user` (id,uname,is_privileged) VALUES(100,'alice',0)");
    db_.exec("INSERT INTO `$group_has_user` VALUES(100,100)");

    // A further connection neither needs them nor makes them.
    {
        Db other(tmp_ / "config.db");
        EXPECT_EQ(ksdb_connect(h(), other), 0) << log();
    }
    EXPECT_EQ(db_.scalar("SELECT COUNT(*) FROM sqlite_master WHERE name='$user_uname'"), "0");

    ASSERT_EQ(ksdb_create(h(), db_), 0);
    EXPECT_EQ(sorted(schema_of(db_, "sqlite_master")), sorted(dump("main")));
    EXPECT_EQ(db_.scalar("PRAGMA user_version"), "23");
    EXPECT_EQ(db_.rows("SELECT U.uname,G.group_id FROM `$user` U,`$group_has_user` G"),
              Rows{"alice|100"});
}
