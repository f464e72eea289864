// The persistent queue: delivery time, order and selection of messages, the
// statements run, create/remove/remove-clean, and the failure paths (status
// 3, transaction ended, db_mutex free for other threads).
#include "tests/support/test_support.h"

#include <gtest/gtest.h>

#include <ctime>
#include <regex>
#include <string>
#include <thread>
#include <vector>

using namespace ksdb_test;

namespace {

class QueueTest : public ::testing::Test {
  protected:
    QueueTest()
        : root_(tmp_ / "root"),
          handle_(Handle::Options{log_.get(), 5, trace_.get(), make_root(root_)}),
          db_(tmp_ / "queue.db") {}

    void SetUp() override { ASSERT_EQ(ksdb_queue_create(h(), db_, 0), 0); }

    // The debug root, with the folder of the domain-account log, where the
    // exit log of a failure also goes.
    static const char *make_root(const std::string &root) {
        mkdirs(root + "/var/log/kestravad");
        return root.c_str();
    }

    ksdb_handle *h() const { return handle_.get(); }
    sqlite3 *db() const { return db_.get(); }

    static int now() { return static_cast<int>(std::time(nullptr)); }

    void push(const char *src, const char *dst, const char *val, int pri, int ts) {
        ASSERT_EQ(ksdb_queue_push(h(), db(), src, dst, val, pri, ts), 0) << val;
    }

    // One popped message as "val|ts|src|dst", or "<none>".
    struct Popped {
        int rc;
        std::string text;
    };
    Popped pop(const char *src, const char *dst) {
        char *val = nullptr, *s = nullptr, *d = nullptr;
        int ts = -1;
        int rc = ksdb_queue_pop(h(), db(), src, dst, &val, &ts, &s, &d);
        if (!val) return {rc, "<none> ts=" + std::to_string(ts) + (s || d ? " src/dst set" : "")};
        return {rc, std::string(val) + "|" + std::to_string(ts) + "|" + (s ? s : "<NULL>") + "|" +
                        (d ? d : "<NULL>")};
    }
    std::string pop_val(const char *src = nullptr, const char *dst = nullptr) {
        Popped p = pop(src, dst);
        EXPECT_EQ(p.rc, 0);
        auto bar = p.text.find('|');
        return bar == std::string::npos ? p.text : p.text.substr(0, bar);
    }
    int stat(const char *src, const char *dst) {
        int len = -1;
        EXPECT_EQ(ksdb_queue_stat(h(), db(), src, dst, &len), 0);
        return len;
    }
    std::vector<std::string> all_vals() { return db_.column("SELECT val FROM queue ORDER BY id"); }

    // Marks the end of the trace so far; statements() returns what follows.
    void mark() { trace_mark_ = trace_.text().size(); }
    // The statements the queue ran since the last mark, in order.
    std::vector<std::string> statements() {
        static const std::regex line(R"(^\[[^\]]*\]\(\d+:\d+\) ksdb_queue:\d+sql=(.*)$)");
        std::vector<std::string> out;
        for (const std::string &l : lines(trace_.text().substr(trace_mark_))) {
            std::smatch m;
            if (std::regex_match(l, m, line)) out.push_back(m[1]);
        }
        return out;
    }

    // True when another thread can take db_mutex at once, i.e. no path left
    // it locked behind the caller's back.
    bool db_mutex_free() {
        int rc = -1;
        std::thread other([&] {
            rc = pthread_mutex_trylock(h()->db_mutex);
            if (rc == 0) pthread_mutex_unlock(h()->db_mutex);
        });
        other.join();
        return rc == 0;
    }
    bool in_transaction() { return sqlite3_get_autocommit(db()) == 0; }

    TempDir tmp_;
    std::string root_;
    CaptureFile log_, trace_;
    Handle handle_;
    Db db_;
    size_t trace_mark_ = 0;
};

// ---- create -----------------------------------------------------------------

TEST_F(QueueTest, CreateMakesBothTablesWordForWordWithVersionZero) {
    EXPECT_EQ(db_.scalar("SELECT sql FROM sqlite_master WHERE name='queue'"),
              "CREATE TABLE `queue` ( `id` INTEGER NOT NULL, `ts` BIGINT NOT NULL DEFAULT 0, "
              "`src` VARCHAR(63) NOT NULL DEFAULT '' COLLATE NOCASE, `dst` VARCHAR(63) NOT NULL "
              "DEFAULT '' COLLATE NOCASE, `val` VARCHAR(65534) NOT NULL DEFAULT '' COLLATE "
              "NOCASE, `pri` INT NOT NULL DEFAULT 0, PRIMARY KEY (`id`))");
    EXPECT_EQ(db_.scalar("SELECT sql FROM sqlite_master WHERE name='config'"),
              "CREATE TABLE `config` ( `maxlen` INT NOT NULL DEFAULT 65536, PRIMARY KEY "
              "(`maxlen`))");
    EXPECT_EQ(db_.rows("SELECT maxlen FROM config"), std::vector<std::string>{"65536"});
    EXPECT_EQ(db_.scalar("PRAGMA user_version"), "0");
    // The schema version line is written at error level although nothing failed.
    EXPECT_NE(log_.text().find("(error) DB (queue) schema version: new ==> 0\n"), std::string::npos)
        << log_.text();
    EXPECT_NE(log_.text().find("(debug) ksdb_queue_create() ==> 0 ("), std::string::npos);
}

TEST_F(QueueTest, CreateEmptiesTheQueueAndStoresMaxlen) {
    push("a", "b", "one", 0, now() - 10);
    push("a", "b", "two", 0, now() - 10);
    mark();
    ASSERT_EQ(ksdb_queue_create(h(), db(), 1000), 0);
    EXPECT_EQ(db_.scalar("SELECT COUNT(*) FROM queue"), "0");
    EXPECT_EQ(db_.rows("SELECT maxlen FROM config"), std::vector<std::string>{"1000"});
    EXPECT_EQ(statements(),
              (std::vector<std::string>{
                  "BEGIN", "PRAGMA user_version", "DROP TABLE IF EXISTS `queue` ",
                  db_.scalar("SELECT sql FROM sqlite_master WHERE name='queue'"),
                  "DROP TABLE IF EXISTS `config` ",
                  db_.scalar("SELECT sql FROM sqlite_master WHERE name='config'"),
                  "PRAGMA user_version=0", "REPLACE INTO config (maxlen) VALUES(1000)", "COMMIT"}));

    push("a", "b", "three", 0, now() - 10);
    ASSERT_EQ(ksdb_queue_create(h(), db(), 0), 0);
    EXPECT_EQ(db_.scalar("SELECT COUNT(*) FROM queue"), "0");
    EXPECT_EQ(db_.rows("SELECT maxlen FROM config"), std::vector<std::string>{"65536"});
    ASSERT_EQ(ksdb_queue_create(h(), db(), -7), 0);
    EXPECT_EQ(db_.rows("SELECT maxlen FROM config"), std::vector<std::string>{"65536"});
}

TEST_F(QueueTest, CreateOverAVersionedDatabaseEndsAtVersionZero) {
    db_.exec("PRAGMA user_version=7");
    ASSERT_EQ(ksdb_queue_create(h(), db(), 0), 0);
    EXPECT_EQ(db_.scalar("PRAGMA user_version"), "0");
    EXPECT_NE(log_.text().find("(error) DB (queue) schema version: 7 ==> 0\n"), std::string::npos);
    // There are no upgrade steps to announce.
    EXPECT_EQ(log_.text().find("DB upgrate"), std::string::npos);
}

// ---- delivery time, order and selection --------------------------------------

TEST_F(QueueTest, MessageOfTheFutureIsNeitherCountedNorDelivered) {
    push("app", "ui", "later", 9, now() + 3600);
    EXPECT_EQ(stat(nullptr, nullptr), 0);
    EXPECT_EQ(stat("app", "ui"), 0);
    EXPECT_EQ(pop("app", "ui").text, "<none> ts=0");
    EXPECT_EQ(pop(nullptr, nullptr).text, "<none> ts=0");
    EXPECT_EQ(all_vals(), std::vector<std::string>{"later"});  // still queued

    // A message whose time is now is due at once, behind nothing of the future.
    const int t = now();
    push("app", "ui", "due", 0, t);
    EXPECT_EQ(stat(nullptr, nullptr), 1);
    EXPECT_EQ(pop(nullptr, nullptr).text, "due|" + std::to_string(t) + "|app|ui");
    EXPECT_EQ(all_vals(), std::vector<std::string>{"later"});
}

TEST_F(QueueTest, DeliveryOrderIsPriorityThenTimeThenId) {
    const int t = now() - 1000;
    push("s", "d", "pri1-oldest", 1, t);
    push("s", "d", "pri5-newest", 5, t + 500);
    push("s", "d", "pri3-later", 3, t + 20);
    push("s", "d", "pri3-earlier", 3, t + 10);  // pushed after, delivered before
    push("s", "d", "pri3-earlier-second", 3, t + 10);
    push("s", "d", "negative", -2, t - 100);
    EXPECT_EQ(pop_val(), "pri5-newest");
    EXPECT_EQ(pop_val(), "pri3-earlier");
    EXPECT_EQ(pop_val(), "pri3-earlier-second");
    EXPECT_EQ(pop_val(), "pri3-later");
    EXPECT_EQ(pop_val(), "pri1-oldest");
    EXPECT_EQ(pop_val(), "negative");
    EXPECT_EQ(pop_val(), "<none> ts=0");
}

TEST_F(QueueTest, SelectionBySourceDestinationBothOrNeither) {
    const int t = now() - 60;
    push("Alpha", "X", "alpha-x", 1, t);
    push("alpha", "y", "alpha-y", 2, t);
    push("beta", "x", "beta-x", 3, t);
    push("beta", "Y", "beta-y", 4, t);
    push("O'Brien", "x", "quoted", 0, t);

    EXPECT_EQ(stat(nullptr, nullptr), 5);
    EXPECT_EQ(stat("alpha", nullptr), 2);
    EXPECT_EQ(stat("ALPHA", nullptr), 2);  // names compare without regard to case
    EXPECT_EQ(stat(nullptr, "x"), 3);
    EXPECT_EQ(stat("alpha", "x"), 1);
    EXPECT_EQ(stat("BETA", "y"), 1);
    EXPECT_EQ(stat("o'brien", nullptr), 1);
    EXPECT_EQ(stat("gamma", nullptr), 0);
    EXPECT_EQ(stat("alpha", "z"), 0);

    // Source only: the more urgent of alpha's two, with the stored spelling.
    EXPECT_EQ(pop("ALPHA", nullptr).text, "alpha-y|" + std::to_string(t) + "|alpha|y");
    // Destination only.
    EXPECT_EQ(pop(nullptr, "X").text, "beta-x|" + std::to_string(t) + "|beta|x");
    // Both.
    EXPECT_EQ(pop("alpha", "x").text, "alpha-x|" + std::to_string(t) + "|Alpha|X");
    EXPECT_EQ(pop("alpha", "x").text, "<none> ts=0");
    // A quote in a name is quoted, not pasted.
    EXPECT_EQ(pop("O'Brien", "X").text, "quoted|" + std::to_string(t) + "|O'Brien|x");
    // Neither: whatever is left.
    EXPECT_EQ(pop(nullptr, nullptr).text, "beta-y|" + std::to_string(t) + "|beta|Y");
    EXPECT_EQ(stat(nullptr, nullptr), 0);
}

TEST_F(QueueTest, NamesTooLongForTheSelectionAreRefusedNotCutShort) {
    const int t = now() - 60;
    // 219 characters put the end of the 256-byte clause just after the
    // source's closing quote: cut there, it would select by the source alone.
    const std::string long_src(219, 'A');
    push(long_src.c_str(), "y", "for y", 0, t);
    Popped p = pop(long_src.c_str(), "x");
    EXPECT_EQ(p.rc, KSDB_E_DB);
    EXPECT_EQ(p.text, "<none> ts=0");
    int len = -1;
    EXPECT_EQ(ksdb_queue_stat(h(), db(), long_src.c_str(), "x", &len), KSDB_E_DB);
    EXPECT_EQ(all_vals(), std::vector<std::string>{"for y"});
    EXPECT_NE(log_.text().find("Queue name too long"), std::string::npos);
    EXPECT_TRUE(db_mutex_free());

    // A name that fits is served as usual.
    const std::string fitting(200, 'B');
    push(fitting.c_str(), "x", "fits", 0, t);
    EXPECT_EQ(pop_val(fitting.c_str(), "x"), "fits");
}

TEST_F(QueueTest, StatementsOfPopReadAndStatCarryTheSelection) {
    const int t = now() - 5;
    push("a", "x", "m", 0, t);
    const std::string order = " ORDER BY pri DESC,ts ASC,id ASC LIMIT 1";
    const std::string due = "WHERE ts<=STRFTIME('%s')";

    mark();
    stat(nullptr, "x");
    stat("a", "x");
    char *val = nullptr;
    int ts = 0, id = 0;
    ASSERT_EQ(ksdb_queue_read(h(), db(), "a", nullptr, &val, &ts, nullptr, nullptr, &id), 0);
    ASSERT_EQ(ksdb_queue_pop(h(), db(), nullptr, nullptr, &val, &ts, nullptr, nullptr), 0);
    EXPECT_EQ(statements(),
              (std::vector<std::string>{
                  "BEGIN", "SELECT COUNT(*) FROM queue " + due + " AND dst='x'", "COMMIT",
                  "BEGIN", "SELECT COUNT(*) FROM queue " + due + " AND src='a' AND dst='x'",
                  "COMMIT", "BEGIN",
                  "SELECT id,ts,val,src,dst FROM queue " + due + " AND src='a'" + order,
                  "COMMIT", "BEGIN", "SELECT id,ts,val,src,dst FROM queue " + due + order,
                  "DELETE FROM queue WHERE id=" + std::to_string(id), "COMMIT"}));

    mark();
    ASSERT_EQ(ksdb_queue_push(h(), db(), "it's", "d", "v'al", -3, 42), 0);
    EXPECT_EQ(statements(),
              (std::vector<std::string>{
                  "BEGIN", "INSERT INTO queue (ts,src,dst,val,pri) VALUES(42,'it''s','d','v''al',-3)",
                  "COMMIT"}));
}

// ---- pop and read -------------------------------------------------------------

TEST_F(QueueTest, EmptyPopAndReadReturnNoMessage) {
    char dummy[] = "stale";
    char *val = dummy, *src = dummy, *dst = dummy;
    int ts = 77, id = 77;
    EXPECT_EQ(ksdb_queue_pop(h(), db(), nullptr, nullptr, &val, &ts, &src, &dst), 0);
    EXPECT_EQ(val, nullptr);
    EXPECT_EQ(ts, 0);
    EXPECT_EQ(src, nullptr);
    EXPECT_EQ(dst, nullptr);

    val = src = dst = dummy;
    ts = 77;
    EXPECT_EQ(ksdb_queue_read(h(), db(), "a", "b", &val, &ts, &src, &dst, &id), 0);
    EXPECT_EQ(val, nullptr);
    EXPECT_EQ(ts, 0);
    EXPECT_EQ(id, 0);
    EXPECT_EQ(src, nullptr);
    EXPECT_EQ(dst, nullptr);

    // The optional outputs may be left out.
    val = dummy;
    EXPECT_EQ(ksdb_queue_pop(h(), db(), "a", nullptr, &val, &ts, nullptr, nullptr), 0);
    EXPECT_EQ(val, nullptr);
}

TEST_F(QueueTest, ReadLeavesTheMessageAndGivesItsId) {
    const int t = now() - 30;
    push("s", "d", "first", 1, t);
    push("s", "d", "second", 2, t);
    const std::string second_id = db_.scalar("SELECT id FROM queue WHERE val='second'");

    char *val = nullptr, *src = nullptr, *dst = nullptr;
    int ts = 0, id = 0;
    ASSERT_EQ(ksdb_queue_read(h(), db(), "S", nullptr, &val, &ts, &src, &dst, &id), 0);
    ASSERT_NE(val, nullptr);
    EXPECT_STREQ(val, "second");
    EXPECT_EQ(ts, t);
    EXPECT_STREQ(src, "s");
    EXPECT_STREQ(dst, "d");
    EXPECT_EQ(std::to_string(id), second_id);
    EXPECT_EQ(stat(nullptr, nullptr), 2);

    // Reading again gives the same message; removing it by id uncovers the next.
    int id_again = 0;
    ASSERT_EQ(ksdb_queue_read(h(), db(), nullptr, nullptr, &val, &ts, nullptr, nullptr, &id_again), 0);
    EXPECT_EQ(id_again, id);
    ASSERT_EQ(ksdb_queue_remove(h(), db(), id), 0);
    EXPECT_EQ(all_vals(), std::vector<std::string>{"first"});
    ASSERT_EQ(ksdb_queue_read(h(), db(), nullptr, nullptr, &val, &ts, nullptr, nullptr, &id), 0);
    EXPECT_STREQ(val, "first");

    // Removing an id that is not there changes nothing and is no failure.
    EXPECT_EQ(ksdb_queue_remove(h(), db(), id + 100), 0);
    EXPECT_EQ(all_vals(), std::vector<std::string>{"first"});
}

TEST_F(QueueTest, ReturnedStringsComeFromTheCallPool) {
    push("s", "d", "message", 0, now() - 1);
    apr_pool_t *call = nullptr;
    ASSERT_EQ(apr_pool_create(&call, nullptr), APR_SUCCESS);
    // Markers: APR hands out 8-byte aligned pieces of a pool one after another.
    char *call_mark = static_cast<char *>(apr_palloc(call, 1));
    char *main_mark = static_cast<char *>(apr_palloc(h()->pool, 1));
    h()->call_pool = call;
    char *val = nullptr, *src = nullptr, *dst = nullptr;
    int ts = 0;
    ASSERT_EQ(ksdb_queue_pop(h(), db(), nullptr, nullptr, &val, &ts, &src, &dst), 0);
    h()->call_pool = nullptr;
    EXPECT_STREQ(val, "message");
    EXPECT_EQ(val, call_mark + 8);
    EXPECT_EQ(src, val + 8);
    EXPECT_EQ(dst, src + 8);
    // Nothing was taken from the handle's own pool.
    EXPECT_EQ(static_cast<char *>(apr_palloc(h()->pool, 1)), main_mark + 8);
    apr_pool_destroy(call);
}

// ---- remove ---------------------------------------------------------------------

TEST_F(QueueTest, RemoveAllEmptiesTheQueueButKeepsConfig) {
    push("a", "b", "one", 0, now());
    push("c", "d", "two", 0, now() + 3600);
    ASSERT_EQ(ksdb_queue_remove_all(h(), db()), 0);
    EXPECT_EQ(db_.scalar("SELECT COUNT(*) FROM queue"), "0");
    EXPECT_EQ(db_.rows("SELECT maxlen FROM config"), std::vector<std::string>{"65536"});
    EXPECT_EQ(ksdb_queue_remove_all(h(), db()), 0);  // again, on an empty queue
}

TEST_F(QueueTest, RemoveCleanWithZeroSecondsDeletesNothing) {
    const int t = now() - 1000;
    push("s", "d", "v", 0, t);
    push("s", "d", "v", 0, t);  // same time
    push("s", "d", "v", 0, t + 1);
    const int id = std::stoi(db_.scalar("SELECT MIN(id) FROM queue"));
    ASSERT_EQ(ksdb_queue_remove_clean(h(), db(), id, 0), 0);
    EXPECT_EQ(db_.scalar("SELECT COUNT(*) FROM queue"), "3");
}

TEST_F(QueueTest, RemoveCleanDeletesTheSameMessageWithinTheWindowOnly) {
    const int t = now() - 1000;
    push("s", "d", "v", 0, t);  // the message named by id
    const int id = std::stoi(db_.scalar("SELECT MAX(id) FROM queue"));
    push("s", "d", "v", 7, t - 300);   // earlier: deleted
    push("S", "D", "V", 0, t + 5);     // same, in another case: deleted
    push("s", "d", "v", 0, t + 9);     // last second inside the window: deleted
    push("s", "d", "v", 0, t + 10);    // at ts + seconds: kept
    push("s", "d", "other", 0, t + 1); // other text: kept
    push("s", "e", "v", 0, t + 1);     // other destination: kept
    push("r", "d", "v", 0, t + 1);     // other source: kept
    ASSERT_EQ(ksdb_queue_remove_clean(h(), db(), id, 10), 0);
    EXPECT_EQ(db_.rows("SELECT src,dst,val,ts-" + std::to_string(t) + " FROM queue ORDER BY id"),
              (std::vector<std::string>{"s|d|v|10", "s|d|other|1", "s|e|v|1", "r|d|v|1"}));

    // An id that is not there deletes nothing.
    ASSERT_EQ(ksdb_queue_remove_clean(h(), db(), id, 100000), 0);
    EXPECT_EQ(db_.scalar("SELECT COUNT(*) FROM queue"), "4");
}

// ---- logging and failures ----------------------------------------------------------

TEST_F(QueueTest, EveryOperationEndsWithItsOwnExitLog) {
    push("s", "d", "v", 0, now());
    char *val = nullptr;
    int ts = 0, id = 0, len = 0;
    ksdb_queue_read(h(), db(), nullptr, nullptr, &val, &ts, nullptr, nullptr, &id);
    ksdb_queue_stat(h(), db(), nullptr, nullptr, &len);
    ksdb_queue_remove_clean(h(), db(), id, 0);
    ksdb_queue_remove(h(), db(), id);
    ksdb_queue_pop(h(), db(), nullptr, nullptr, &val, &ts, nullptr, nullptr);
    ksdb_queue_remove_all(h(), db());
    const std::string log = log_.text();
    for (const char *name :
         {"ksdb_queue_create", "ksdb_queue_push", "ksdb_queue_read", "ksdb_queue_stat",
          "ksdb_queue_remove_clean", "ksdb_queue_remove", "ksdb_queue_pop",
          "ksdb_queue_remove_all"}) {
        std::regex exit_line(std::string(R"(\] \d+:\d+ ksdb_queue:\d+ \(debug\) )") + name +
                             R"(\(\) ==> 0 \(\d+ms\)\n)");
        EXPECT_TRUE(std::regex_search(log, exit_line)) << name << "\n" << log;
    }
}

TEST_F(QueueTest, MissingTablesFailWithThreeAndReleaseTheLock) {
    push("s", "d", "v", 0, now());
    db_.exec("DROP TABLE queue");
    char *val = nullptr, *src = nullptr, *dst = nullptr;
    int ts = 5, id = 5, len = 5;

    struct Case {
        const char *name;
        int rc;
    };
    std::vector<Case> cases = {
        {"ksdb_queue_push", ksdb_queue_push(h(), db(), "s", "d", "v", 0, now())},
        {"ksdb_queue_pop", ksdb_queue_pop(h(), db(), nullptr, nullptr, &val, &ts, &src, &dst)},
        {"ksdb_queue_read",
         ksdb_queue_read(h(), db(), "s", nullptr, &val, &ts, &src, &dst, &id)},
        {"ksdb_queue_stat", ksdb_queue_stat(h(), db(), nullptr, "d", &len)},
        {"ksdb_queue_remove", ksdb_queue_remove(h(), db(), 1)},
        {"ksdb_queue_remove_clean", ksdb_queue_remove_clean(h(), db(), 1, 10)},
        {"ksdb_queue_remove_all", ksdb_queue_remove_all(h(), db())},
    };
    const std::string log = log_.text();
    const std::string ads = read_file(root_ + "/var/log/kestravad/ads.log");
    for (const Case &c : cases) {
        EXPECT_EQ(c.rc, 3) << c.name;
        std::regex error_line(std::string(R"(ksdb_queue:\d+ \(error\) )") + c.name +
                              R"(\(\) ==> 3 \(\d+ms\)\n)");
        EXPECT_TRUE(std::regex_search(log, error_line)) << c.name;
        std::regex ads_line(std::string(R"(ksdb_queue:\d+ error: )") + c.name +
                            R"(\(\) ==> 3 \(\d+ms\)\n)");
        EXPECT_TRUE(std::regex_search(ads, ads_line)) << c.name << "\n" << ads;
    }
    // A failed call hands back no message and no count.
    EXPECT_EQ(val, nullptr);
    EXPECT_EQ(ts, 0);
    EXPECT_EQ(src, nullptr);
    EXPECT_EQ(dst, nullptr);
    EXPECT_EQ(id, 0);
    EXPECT_EQ(len, 0);
    EXPECT_FALSE(in_transaction());
    EXPECT_TRUE(db_mutex_free());

    // create brings the table back.
    ASSERT_EQ(ksdb_queue_create(h(), db(), 0), 0);
    push("s", "d", "v", 0, now());
    EXPECT_EQ(stat("s", "d"), 1);
}

TEST_F(QueueTest, RejectedPushStoresNothing) {
    // src is NOT NULL: a null one is refused by the database.
    EXPECT_EQ(ksdb_queue_push(h(), db(), nullptr, "d", "v", 0, now()), 3);
    EXPECT_EQ(db_.scalar("SELECT COUNT(*) FROM queue"), "0");
    EXPECT_FALSE(in_transaction());
    EXPECT_TRUE(db_mutex_free());
}

TEST_F(QueueTest, FailedBeginRollsBackPushButNotCreate) {
    // The caller already holds a transaction of its own on the connection.
    db_.exec("BEGIN");
    db_.exec("INSERT INTO config VALUES(1)");
    EXPECT_EQ(ksdb_queue_create(h(), db(), 0), 3);
    // create does not roll back after a failed BEGIN: the caller's
    // transaction and its row are still there, and db_mutex is free.
    EXPECT_TRUE(in_transaction());
    EXPECT_EQ(db_.scalar("SELECT COUNT(*) FROM config"), "2");
    EXPECT_TRUE(db_mutex_free());

    // push rolls back after a failed BEGIN, taking the caller's work with it.
    EXPECT_EQ(ksdb_queue_push(h(), db(), "s", "d", "v", 0, now()), 3);
    EXPECT_FALSE(in_transaction());
    EXPECT_EQ(db_.scalar("SELECT COUNT(*) FROM config"), "1");
    EXPECT_TRUE(db_mutex_free());
}

// Denies one kind of statement on one table, to make a chosen step fail.
struct Deny {
    int action;
    const char *table;
};
int deny(void *arg, int action, const char *a, const char *, const char *, const char *) {
    auto *d = static_cast<Deny *>(arg);
    return action == d->action && a && std::string(a) == d->table ? SQLITE_DENY : SQLITE_OK;
}

TEST_F(QueueTest, CreateThatFailsKeepsTheOldQueue) {
    push("s", "d", "kept", 0, now());

    Deny no_config_insert{SQLITE_INSERT, "config"};
    sqlite3_set_authorizer(db(), deny, &no_config_insert);
    EXPECT_EQ(ksdb_queue_create(h(), db(), 0), 3);
    sqlite3_set_authorizer(db(), nullptr, nullptr);
    EXPECT_NE(log_.text().find("(error) Query (REPLACE queue.config) fail.\n"), std::string::npos);
    EXPECT_NE(log_.text().find("(error) ksdb_queue_create() ==> 3 ("), std::string::npos);
    EXPECT_EQ(all_vals(), std::vector<std::string>{"kept"});
    EXPECT_FALSE(in_transaction());
    EXPECT_TRUE(db_mutex_free());

    Deny no_drop{SQLITE_DROP_TABLE, "config"};
    sqlite3_set_authorizer(db(), deny, &no_drop);
    db_.exec("PRAGMA user_version=3");
    EXPECT_EQ(ksdb_queue_create(h(), db(), 0), 3);
    sqlite3_set_authorizer(db(), nullptr, nullptr);
    EXPECT_EQ(all_vals(), std::vector<std::string>{"kept"});
    EXPECT_EQ(db_.scalar("PRAGMA user_version"), "3");
    EXPECT_FALSE(in_transaction());
    EXPECT_TRUE(db_mutex_free());
}

TEST_F(QueueTest, FailedCommitIsRolledBackAndHandsBackNothing) {
    push("s", "d", "v", 0, now() - 1);
    // A commit hook that vetoes every commit makes COMMIT fail.
    sqlite3_commit_hook(db(), [](void *) { return 1; }, nullptr);
    char *val = nullptr;
    int ts = 0;
    EXPECT_EQ(ksdb_queue_pop(h(), db(), nullptr, nullptr, &val, &ts, nullptr, nullptr), 3);
    sqlite3_commit_hook(db(), nullptr, nullptr);
    EXPECT_EQ(val, nullptr);
    EXPECT_FALSE(in_transaction());
    EXPECT_TRUE(db_mutex_free());
    EXPECT_EQ(all_vals(), std::vector<std::string>{"v"});  // not lost
}

TEST(QueueAssert, NullOutputsStopTheProcess) {
    Handle h;
    Db db;
    char *val = nullptr;
    int ts = 0, id = 0;
    EXPECT_DEATH(ksdb_queue_pop(h, db, nullptr, nullptr, nullptr, &ts, nullptr, nullptr),
                 "`val' failed");
    EXPECT_DEATH(ksdb_queue_pop(h, db, nullptr, nullptr, &val, nullptr, nullptr, nullptr),
                 "`ts' failed");
    EXPECT_DEATH(ksdb_queue_read(h, db, nullptr, nullptr, &val, &ts, nullptr, nullptr, nullptr),
                 "`id' failed");
    EXPECT_DEATH(ksdb_queue_read(h, db, nullptr, nullptr, nullptr, &ts, nullptr, nullptr, &id),
                 "`val' failed");
    EXPECT_DEATH(ksdb_queue_stat(h, db, nullptr, nullptr, nullptr), "`len' failed");
}

}  // namespace
