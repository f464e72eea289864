// The persistent queue: delivery, selection, removal and the failure paths.
#include "tests/core_support.h"

#include <ctime>
#include <regex>
#include <set>

using namespace ksdb_test;

namespace {

class QueueTest : public ::testing::Test {
  protected:
    QueueTest() { mkdirs(root_ + "/var/log/kestravad"); }
    void SetUp() override { ASSERT_EQ(ksdb_queue_create(h(), db(), 0), 0); }

    ksdb_handle *h() const { return handle_.get(); }
    sqlite3 *db() const { return db_.get(); }
    static int now() { return static_cast<int>(std::time(nullptr)); }

    void push(const char *src, const char *dst, const char *val, int pri, int ts) {
        ASSERT_EQ(ksdb_queue_push(h(), db(), src, dst, val, pri, ts), 0) << val;
    }
    // One popped message as "val|ts|src|dst", or "<none> ts=N".
    std::string pop(const char *src = nullptr, const char *dst = nullptr, int expected_rc = 0) {
        char *val = nullptr, *s = nullptr, *d = nullptr;
        int ts = -1;
        EXPECT_EQ(ksdb_queue_pop(h(), db(), src, dst, &val, &ts, &s, &d), expected_rc);
        if (!val) return "<none> ts=" + std::to_string(ts) + (s || d ? " src/dst set" : "");
        return std::string(val) + "|" + std::to_string(ts) + "|" + s + "|" + d;
    }
    int stat(const char *src, const char *dst) {
        int len = -1;
        EXPECT_EQ(ksdb_queue_stat(h(), db(), src, dst, &len), 0);
        return len;
    }
    Rows vals() { return db_.column("SELECT val FROM queue ORDER BY id"); }
    // No path left db_mutex locked or the transaction open.
    bool clean() { return lock_free(h()->db_mutex) && sqlite3_get_autocommit(db()) != 0; }

    TempDir tmp_;
    std::string root_ = tmp_ / "root";
    CaptureFile log_, trace_;
    Handle handle_{Handle::Options{log_.get(), 5, trace_.get(), (mkdirs(root_), root_.c_str())}};
    Db db_{tmp_ / "queue.db"};
};

}  // namespace

TEST_F(QueueTest, CreateMakesBothTablesWordForWordAndEmptiesTheQueue) {
    EXPECT_EQ(db_.column("SELECT sql FROM sqlite_master WHERE type='table' ORDER BY name DESC"),
              lines(read_file(KSDB_TEST_DATA_DIR "/queue-schema.sql")));
    EXPECT_EQ(db_.rows("SELECT maxlen FROM config"), Rows{"65536"});
    EXPECT_TRUE(contains(log_.text(), "(error) DB (queue) schema version: new ==> 0\n"));

    push("a", "b", "one", 0, now() - 10);
    ASSERT_EQ(ksdb_queue_create(h(), db(), 1000), 0);
    EXPECT_EQ(db_.rows("SELECT COUNT(*) FROM queue UNION ALL SELECT maxlen FROM config"),
              (Rows{"0", "1000"}));
    ASSERT_EQ(ksdb_queue_create(h(), db(), -7), 0);
    EXPECT_EQ(db_.rows("SELECT maxlen FROM config"), Rows{"65536"});

    db_.exec("PRAGMA user_version=7");
    ASSERT_EQ(ksdb_queue_create(h(), db(), 0), 0);
    EXPECT_EQ(db_.scalar("PRAGMA user_version"), "0");
    EXPECT_TRUE(contains(log_.text(), "(error) DB (queue) schema version: 7 ==> 0\n"));
    EXPECT_FALSE(contains(log_.text(), "DB upgrate")) << "no upgrade steps to announce";
}

TEST_F(QueueTest, DeliveryWaitsForItsTimeThenGoesByPriorityTimeAndId) {
    push("app", "ui", "later", 9, now() + 3600);
    EXPECT_EQ(stat(nullptr, nullptr), 0);
    EXPECT_EQ(pop("app", "ui"), "<none> ts=0");
    const int t = now() - 1000;
    push("s", "d", "pri1-oldest", 1, t);
    push("s", "d", "pri5-newest", 5, t + 500);
    push("s", "d", "pri3-later", 3, t + 20);
    push("s", "d", "pri3-earlier", 3, t + 10);  // pushed after, delivered before
    push("s", "d", "pri3-earlier-second", 3, t + 10);
    push("s", "d", "negative", -2, t - 100);
    EXPECT_EQ(stat(nullptr, nullptr), 6);
    EXPECT_EQ(pop(), "pri5-newest|" + std::to_string(t + 500) + "|s|d");
    Rows order;
    for (int i = 0; i < 6; ++i) order.push_back(split(pop(), '|').at(0));
    EXPECT_EQ(order, (Rows{"pri3-earlier", "pri3-earlier-second", "pri3-later", "pri1-oldest", "negative",
                           "<none> ts=0"}));
    EXPECT_EQ(vals(), Rows{"later"});
}

// Guards: a selection by the wrong names or a cut clause; the four selections
// sorting the due messages instead of using an index.
TEST_F(QueueTest, SelectionBySourceDestinationBothOrNeitherAndNamesTooLongAreRefused) {
    const int t = now() - 60;
    const std::string ts = "|" + std::to_string(t) + "|";
    push("Alpha", "X", "alpha-x", 1, t);
    push("alpha", "y", "alpha-y", 2, t);
    push("beta", "x", "beta-x", 3, t);
    push("beta", "Y", "beta-y", 4, t);
    push("O'Brien", "x", "quoted", 0, t);
    EXPECT_EQ(stat("ALPHA", nullptr), 2);  // names compare without regard to case
    EXPECT_EQ(stat(nullptr, "x"), 3);
    EXPECT_EQ(stat("alpha", "x"), 1);
    EXPECT_EQ(stat("o'brien", nullptr), 1);
    EXPECT_EQ(pop("ALPHA", nullptr), "alpha-y" + ts + "alpha|y");
    EXPECT_EQ(pop(nullptr, "X"), "beta-x" + ts + "beta|x");
    EXPECT_EQ(pop("alpha", "x"), "alpha-x" + ts + "Alpha|X");
    EXPECT_EQ(pop("alpha", "x"), "<none> ts=0");
    EXPECT_EQ(pop("O'Brien", "X"), "quoted" + ts + "O'Brien|x");
    EXPECT_EQ(pop(), "beta-y" + ts + "beta|Y");

    // 219 characters put the end of the 256-byte clause just after the
    // source's closing quote: cut there, it would select by the source alone.
    const std::string long_src(219, 'A'), fitting(200, 'B');
    push(long_src.c_str(), "y", "for y", 0, t);
    EXPECT_EQ(pop(long_src.c_str(), "x", KSDB_E_DB), "<none> ts=0");
    int len = -1;
    EXPECT_EQ(ksdb_queue_stat(h(), db(), long_src.c_str(), "x", &len), KSDB_E_DB);
    EXPECT_EQ(vals(), Rows{"for y"});
    EXPECT_TRUE(contains(log_.text(), "Queue name too long"));
    EXPECT_TRUE(clean());
    push(fitting.c_str(), "x", "fits", 0, t);
    EXPECT_EQ(pop(fitting.c_str(), "x"), "fits" + ts + fitting + "|x");

    // Each of the four selections reaches the due messages in their order
    // through an index of its own, without sorting them.
    std::set<std::string> indexes;
    for (const std::string &sql : traced_statements(trace_.text())) {
        if (!contains(sql, "ORDER BY pri DESC")) continue;
        std::string plan;
        for (const std::string &row : db_.rows("EXPLAIN QUERY PLAN " + sql)) plan += row + "\n";
        std::smatch index;
        EXPECT_FALSE(contains(plan, "TEMP B-TREE")) << sql << "\n" << plan;
        EXPECT_TRUE(std::regex_search(plan, index, std::regex(R"(USING INDEX (\w+))"))) << sql;
        indexes.insert(index[1]);
    }
    EXPECT_EQ(indexes, (std::set<std::string>{"queue_delivery", "queue_delivery_dst", "queue_delivery_due",
                                              "queue_delivery_src"}));
}

TEST_F(QueueTest, ReadGivesTheIdRemovalsTakeTheirMessagesOnlyAndStringsComeFromTheResultPool) {
    char stale[] = "stale";
    char *val = stale, *src = stale, *dst = stale;
    int ts = 77, id = 77;
    EXPECT_EQ(ksdb_queue_read(h(), db(), "a", "b", &val, &ts, &src, &dst, &id), 0);
    EXPECT_EQ(Rows({val ? val : "-", src ? src : "-", dst ? dst : "-"}), (Rows{"-", "-", "-"}));
    EXPECT_EQ(ts + id, 0) << "nothing to read";

    int t = now() - 30;
    push("s", "d", "first", 1, t);
    push("s", "d", "second", 2, t);
    ASSERT_EQ(ksdb_queue_read(h(), db(), "S", nullptr, &val, &ts, &src, &dst, &id), 0);
    EXPECT_EQ(std::string(val) + "|" + std::to_string(ts) + "|" + src + "|" + dst,
              "second|" + std::to_string(t) + "|s|d");
    ASSERT_EQ(ksdb_queue_remove(h(), db(), id), 0);
    EXPECT_EQ(ksdb_queue_remove(h(), db(), id + 100), 0) << "an absent id is no failure";
    EXPECT_EQ(vals(), Rows{"first"});

    // Markers: APR hands out 8-byte aligned pieces of a pool one after another.
    apr_pool_t *call = nullptr;
    ASSERT_EQ(apr_pool_create(&call, nullptr), APR_SUCCESS);
    char *call_mark = static_cast<char *>(apr_palloc(call, 1));
    char *main_mark = static_cast<char *>(apr_palloc(h()->pool, 1));
    h()->call_pool = call;
    ASSERT_EQ(ksdb_queue_pop(h(), db(), nullptr, nullptr, &val, &ts, &src, &dst), 0);
    h()->call_pool = nullptr;
    EXPECT_EQ(std::vector<char *>({val, src, dst}), std::vector<char *>({call_mark + 8, val + 8, src + 8}));
    EXPECT_EQ(static_cast<char *>(apr_palloc(h()->pool, 1)), main_mark + 8);
    apr_pool_destroy(call);

    // remove_clean deletes the copies of a message pushed within its window.
    t = now() - 1000;
    push("s", "d", "v", 0, t);  // the message named by id
    id = std::stoi(db_.scalar("SELECT MAX(id) FROM queue"));
    push("S", "D", "V", 0, t + 5);      // same, in another case: deleted
    push("s", "d", "v", 0, t + 9);      // last second inside the window: deleted
    push("s", "d", "v", 0, t + 10);     // at ts + seconds: kept
    push("s", "d", "other", 0, t + 1);  // other text: kept
    push("s", "e", "v", 0, t + 1);      // other destination: kept
    push("r", "d", "v", 0, t + 1);      // other source: kept
    ASSERT_EQ(ksdb_queue_remove_clean(h(), db(), id, 0), 0);
    EXPECT_EQ(vals().size(), 7u) << "zero seconds delete nothing, not even the message";
    push("s", "d", "v", 7, t - 300);    // earlier: deleted
    ASSERT_EQ(ksdb_queue_remove_clean(h(), db(), id, 10), 0);
    EXPECT_EQ(db_.rows("SELECT src,dst,val,ts-" + std::to_string(t) + " FROM queue ORDER BY id"),
              (Rows{"s|d|v|10", "s|d|other|1", "s|e|v|1", "r|d|v|1"}));
    ASSERT_EQ(ksdb_queue_remove_clean(h(), db(), id, 100000), 0);
    EXPECT_EQ(vals().size(), 4u) << "an absent id deletes nothing";
    ASSERT_EQ(ksdb_queue_remove_all(h(), db()), 0);
    EXPECT_EQ(db_.rows("SELECT COUNT(*) FROM queue UNION ALL SELECT maxlen FROM config"),
              (Rows{"0", "65536"}));
}

TEST_F(QueueTest, EveryOperationEndsWithItsExitLogAndMissingTablesGiveThree) {
    push("s", "d", "v", 0, now());
    char *val = nullptr, *src = nullptr, *dst = nullptr;
    int ts = 0, id = 0, len = 0;
    ksdb_queue_read(h(), db(), nullptr, nullptr, &val, &ts, nullptr, nullptr, &id);
    ksdb_queue_stat(h(), db(), nullptr, nullptr, &len);
    ksdb_queue_remove_clean(h(), db(), id, 0);
    ksdb_queue_remove(h(), db(), id);
    ksdb_queue_pop(h(), db(), nullptr, nullptr, &val, &ts, nullptr, nullptr);
    ksdb_queue_remove_all(h(), db());
    db_.exec("DROP TABLE queue");
    ts = id = len = 5;
    const std::vector<std::pair<const char *, int>> failed = {
        {"push", ksdb_queue_push(h(), db(), "s", "d", "v", 0, now())},
        {"pop", ksdb_queue_pop(h(), db(), nullptr, nullptr, &val, &ts, &src, &dst)},
        {"read", ksdb_queue_read(h(), db(), "s", nullptr, &val, &ts, &src, &dst, &id)},
        {"stat", ksdb_queue_stat(h(), db(), nullptr, "d", &len)},
        {"remove", ksdb_queue_remove(h(), db(), 1)},
        {"remove_clean", ksdb_queue_remove_clean(h(), db(), 1, 10)},
        {"remove_all", ksdb_queue_remove_all(h(), db())},
    };
    const std::string log = log_.text();
    const std::string ads = read_file(root_ + "/var/log/kestravad/ads.log");
    for (const auto &[name, rc] : failed) {
        const std::string f = std::string("ksdb_queue_") + name + "() ==> ";
        EXPECT_EQ(rc, 3) << name;
        EXPECT_TRUE(contains(log, "(debug) " + f + "0 (")) << name;
        EXPECT_TRUE(contains(log, "(error) " + f + "3 (")) << name;
        EXPECT_TRUE(contains(ads, " error: " + f + "3 (")) << name;
    }
    EXPECT_TRUE(std::regex_search(
        log, std::regex(R"(ksdb_queue:\d+ \(debug\) ksdb_queue_create\(\) ==> 0 \(\d+ms\)\n)")));
    // A failed call hands back no message and no count.
    EXPECT_EQ(Rows({val ? val : "-", src ? src : "-", dst ? dst : "-"}), (Rows{"-", "-", "-"}));
    EXPECT_EQ(ts + id + len, 0);
    EXPECT_TRUE(clean());
}

TEST_F(QueueTest, AFailedCreateCommitOrBeginKeepsTheQueueAPushRollsBackAfterItsBegin) {
    push("s", "d", "kept", 0, now() - 1);
    // Denies one kind of statement on the config table, to make a chosen step fail.
    int denied = SQLITE_INSERT;
    auto deny = [](void *arg, int action, const char *a, const char *, const char *, const char *) {
        const bool deny = action == *static_cast<int *>(arg) && a && std::string(a) == "config";
        return deny ? SQLITE_DENY : SQLITE_OK;
    };
    sqlite3_set_authorizer(db(), deny, &denied);
    EXPECT_EQ(ksdb_queue_create(h(), db(), 0), 3);
    EXPECT_TRUE(contains(log_.text(), "(error) Query (REPLACE queue.config) fail.\n"));
    db_.exec("PRAGMA user_version=3");
    denied = SQLITE_DROP_TABLE;
    EXPECT_EQ(ksdb_queue_create(h(), db(), 0), 3);
    sqlite3_set_authorizer(db(), nullptr, nullptr);
    EXPECT_EQ(db_.scalar("PRAGMA user_version"), "3");
    EXPECT_EQ(vals(), Rows{"kept"});
    EXPECT_TRUE(clean());

    // A commit hook that vetoes every commit makes COMMIT fail.
    sqlite3_commit_hook(db(), [](void *) { return 1; }, nullptr);
    EXPECT_EQ(pop(nullptr, nullptr, 3), "<none> ts=0");
    sqlite3_commit_hook(db(), nullptr, nullptr);
    EXPECT_TRUE(clean());
    EXPECT_EQ(vals(), Rows{"kept"});

    // A failed BEGIN: the caller already holds a transaction of its own.
    db_.exec("BEGIN");
    db_.exec("INSERT INTO config VALUES(1)");
    EXPECT_EQ(ksdb_queue_create(h(), db(), 0), 3);
    EXPECT_EQ(db_.scalar("SELECT COUNT(*) FROM config"), "2") << "the caller's work stays";
    EXPECT_FALSE(sqlite3_get_autocommit(db()));
    // push rolls back after a failed BEGIN, taking the caller's work with it.
    EXPECT_EQ(ksdb_queue_push(h(), db(), "s", "d", "v", 0, now()), 3);
    EXPECT_EQ(db_.scalar("SELECT COUNT(*) FROM config"), "1");
    EXPECT_TRUE(clean());
}

TEST(QueueAssert, NullOutputsStopTheProcess) {
    Handle h;
    Db db;
    char *val = nullptr;
    int ts = 0;
    EXPECT_DEATH(ksdb_queue_pop(h, db, nullptr, nullptr, nullptr, &ts, nullptr, nullptr), "`val' failed");
    EXPECT_DEATH(ksdb_queue_pop(h, db, nullptr, nullptr, &val, nullptr, nullptr, nullptr), "`ts' failed");
    EXPECT_DEATH(ksdb_queue_read(h, db, nullptr, nullptr, &val, &ts, nullptr, nullptr, nullptr),
                 "`id' failed");
    EXPECT_DEATH(ksdb_queue_stat(h, db, nullptr, nullptr, nullptr), "`len' failed");
}
