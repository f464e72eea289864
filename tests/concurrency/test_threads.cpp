// Threads on one handle and connection: transactions serialise, log lines never interleave.
#define KSDB_MODULE "test_threads"
#include "core/ksdb_internal.h"
#include "tests/support/test_support.h"

#include <gtest/gtest.h>

#include <regex>
#include <thread>
#include <vector>

using namespace ksdb_test;

TEST(Threads, EightThreadsShareOneHandleAndConnection) {
    constexpr int kThreads = 8;
    constexpr int kTransactions = 200;
    CaptureFile log, trace;
    Handle h({log.get(), 5, trace.get()});
    TempDir dir;
    Db db(dir / "threads.db");
    db.exec("CREATE TABLE rows (thread INT, n INT, PRIMARY KEY (thread, n))");

    std::vector<int> failures(kThreads, 0);
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([&, t] {
            for (int n = 0; n < kTransactions; ++n) {
                int rc = ksdb_sql_begin(h, db, nullptr, KSDB_TAG);
                if (rc == 0)
                    rc = ksdb_sql_exec_mprintf(h, db, nullptr, KSDB_TAG,
                                               "INSERT INTO rows VALUES(%d,%d)", t, n);
                KSDB_DEBUG(h.get(), "thread %d transaction %d rc=%d\n", t, n, rc);
                if (rc == 0)
                    rc = ksdb_sql_commit(h, db, nullptr, KSDB_TAG);
                else
                    ksdb_sql_rollback(h, db, nullptr, KSDB_TAG);
                if (rc != 0) ++failures[t];
            }
        });
    }
    for (auto &th : threads) th.join();

    for (int t = 0; t < kThreads; ++t) EXPECT_EQ(failures[t], 0) << "thread " << t;
    EXPECT_EQ(db.scalar("SELECT COUNT(*) FROM rows"), std::to_string(kThreads * kTransactions));

    std::regex log_line(
        R"(^\[\d\d/\d\d/\d\d \d\d:\d\d:\d\d\] \d+:\d+ )"
        R"(test_threads:\d+ \(debug\) thread \d transaction \d+ rc=0$)");
    auto out = lines(log.text());
    ASSERT_EQ(out.size(), static_cast<size_t>(kThreads * kTransactions));
    for (const auto &l : out) ASSERT_TRUE(std::regex_match(l, log_line)) << l;

    std::regex trace_line(
        R"(^\[\d\d/\d\d/\d\d \d\d:\d\d:\d\d\]\(\d+:\d+\) test_threads:\d+(sql=.*| ==> 0:0 \(success\))$)");
    auto traced = lines(trace.text());
    // begin, insert and commit each give a statement line and an outcome line.
    ASSERT_EQ(traced.size(), static_cast<size_t>(kThreads * kTransactions * 6));
    for (const auto &l : traced) ASSERT_TRUE(std::regex_match(l, trace_line)) << l;
}
