// The handle, the log writers, the SQL trace, the exit log and the last-error record.
#define KSDB_MODULE "test_log"
#include "core/ksdb_internal.h"
#include "tests/core_support.h"

#include <unistd.h>

#include <regex>
#include <thread>

using namespace ksdb_test;

namespace {

const std::string kStamp = R"(\[\d\d/\d\d/\d\d \d\d:\d\d:\d\d\])";
std::string pid_text() { return std::to_string(getpid()); }

}  // namespace

// Guards: the line prefix, the level names or the level filter.
TEST(Log, StreamLinesCarryThePrefixAndPassTheLevelFilter) {
    CaptureFile log;
    Handle h({log.get(), 3});
    ksdb_log(h, "ksdb_cifs", 42, KSDB_LOG_ERROR, 0, "share %s failed\n", "data");
    ksdb_log(h, "ksdb_api", 7, KSDB_LOG_WARN, 1, "no newline in format");
    ksdb_log(h, "m", 1, KSDB_LOG_INFO, 0, "info line\n");
    ksdb_log(h, "m", 1, KSDB_LOG_FATAL, 0, "fatal line\n");
    // Levels 6 and 7 have no name.
    Handle h7({log.get(), 7});
    ksdb_log(h7, "m", 1, 7, 0, "seven\n");
    ksdb_log(h7, "m", 1, 6, 0, "six\n");
    EXPECT_EQ(unstamped(log.text()), (Rows{"ksdb_cifs:42 (error) share data failed",
                                           "ksdb_api:7 (warn) no newline in format", "m:1 (fatal) fatal line",
                                           "m:1 () seven", "m:1 () six"}));
    const std::regex prefix("^" + kStamp + " " + pid_text() + R"(:\d+ ksdb_cifs:42 \(error\) )");
    EXPECT_TRUE(std::regex_search(log.text(), prefix)) << log.text();

    // The trace needs info level and has its own prefix.
    CaptureFile trace3, trace4;
    Handle h3({nullptr, 3, trace3.get()}), h4({nullptr, 4, trace4.get()});
    ksdb_trace(h3, "ksdb_cifs", 5, "sql=%s\n", "SELECT 1");
    ksdb_trace(h4, "ksdb_cifs", 5, "sql=%s\n", "SELECT 1");
    EXPECT_EQ(trace3.text(), "");
    EXPECT_TRUE(std::regex_match(trace4.text(), std::regex("^" + kStamp + R"(\()" + pid_text() +
                                                           R"(:\d+\) ksdb_cifs:5sql=SELECT 1\n$)")))
        << trace4.text();
}

// Guards: partial or empty lines, priorities or categories sent to the journal;
// output at level 0; lines flushed at the wrong levels.
TEST(Log, JournalGetsOnlyCompleteNonEmptyLinesLevelZeroNothingAndWarnIsBuffered) {
    // The records sent to the journal, as "message|priority|file|line|category".
    static std::vector<std::string> journal;
    const ksdb::JournalSink previous = ksdb::set_journal_sink([](const char *message, int priority,
                                                                 const char *file, int line,
                                                                 const char *cat) {
        journal.push_back(std::string(message) + "|" + std::to_string(priority) + "|" + file + "|" +
                          std::to_string(line) + "|" + cat);
    });
    Handle h({nullptr, 5});  // without a log file lines go to the journal
    ksdb_log(h, "ksdb_cifs", 10, KSDB_LOG_WARN, 0, "first\nsecond");
    ksdb_log(h, "m", 1, KSDB_LOG_ERROR, 0, "\n\nword\n");
    ksdb_log(h, "m", 1, KSDB_LOG_ERROR, 1, "never sent");  // append_newline plays no part
    ksdb_log(h, "m", 2, KSDB_LOG_FATAL, 0, "a\n");
    ksdb_log(h, "m", 3, KSDB_LOG_INFO, 0, "b\n");
    ksdb_log(h, "m", 4, KSDB_LOG_DEBUG, 0, "c\n");
    ksdb_trace(h, "ksdb_queue", 3, " ==> %d:%d (%s)\n", 0, 0, "success");
    EXPECT_EQ(journal, (std::vector<std::string>{"first|4|ksdb_cifs|10|ksdb.log", "word|3|m|1|ksdb.log",
                                                 "a|0|m|2|ksdb.log", "b|6|m|3|ksdb.log", "c|7|m|4|ksdb.log",
                                                 " ==> 0:0 (success)|7|ksdb_queue|3|ksdb.jnl"}));

    journal.clear();
    CaptureFile log, trace;
    Handle h0({log.get(), 0, trace.get()}), hj({nullptr, 0, nullptr});
    for (ksdb_handle *x : {h0.get(), hj.get()}) {
        ksdb_log(x, "m", 1, KSDB_LOG_FATAL, 0, "x\n");
        ksdb_trace(x, "m", 1, "sql=%s\n", "SELECT 1");
    }
    EXPECT_EQ(log.text(), "");
    EXPECT_EQ(trace.text(), "");
    EXPECT_TRUE(journal.empty());
    ksdb::set_journal_sink(previous);
    CaptureFile info, dbg;
    Handle hi({info.get(), 4}), hd({dbg.get(), 5});
    ksdb_log(hi, "m", 1, KSDB_LOG_WARN, 0, "buffered\n");
    EXPECT_EQ(info.unflushed_on_disk(), "");
    ksdb_log(hi, "m", 1, KSDB_LOG_ERROR, 0, "urgent\n");
    EXPECT_TRUE(contains(info.unflushed_on_disk(), "buffered"));
    ksdb_log(hd, "m", 1, KSDB_LOG_INFO, 0, "info\n");
    EXPECT_TRUE(contains(dbg.unflushed_on_disk(), "info"));
}

// Guards: a bad debug root accepted, paths not below it, the result pool.
TEST(Handle, DebugRootRulesAlignmentAndResultPool) {
    TempDir dir;
    write_file(dir / "plain", "x");
    CaptureFile log;
    EXPECT_EQ(Handle({log.get(), 2, nullptr, (dir / "plain").c_str()}).get(), nullptr);
    EXPECT_EQ(Handle({log.get(), 2, nullptr, (dir / "missing").c_str()}).get(), nullptr);
    std::string text = log.text();
    EXPECT_TRUE(contains(text, "ksdb_api:"));
    EXPECT_TRUE(contains(text, "(error) Not a directory debug_root=" + (dir / "plain")));
    EXPECT_TRUE(contains(text, "(error) Invalid debug_root=" + (dir / "missing")));

    Handle slash({nullptr, 0, nullptr, "/"}), rooted({nullptr, 0, nullptr, dir.path().c_str()}),
        live;
    ASSERT_NE(slash.get(), nullptr);
    EXPECT_FALSE(ksdb_is_debug_root(slash));
    EXPECT_FALSE(ksdb_is_debug_root(live));
    ASSERT_NE(rooted.get(), nullptr);
    EXPECT_TRUE(ksdb_is_debug_root(rooted));
    EXPECT_NE(rooted->debug_root, dir.path().c_str());  // a pool copy
    EXPECT_EQ(ksdb::effective_path(rooted, "/etc/exports"), dir.path() + "/etc/exports");
    EXPECT_EQ(ksdb::effective_path(live, "/etc/exports"), "/etc/exports");

    EXPECT_EQ(reinterpret_cast<uintptr_t>(live.get()) % 32, 0u);
    EXPECT_EQ(ksdb_result_pool(live), live.pool());
    apr_pool_t *sub = nullptr;
    apr_pool_create(&sub, live.pool());
    live->call_pool = sub;
    EXPECT_EQ(ksdb_result_pool(live), sub);
    live->call_pool = nullptr;
}

// Guards: the old initializer's mutexes, pool and clean-up.
TEST(Handle, InitializeOldMakesPoolRecursiveMutexesAndSystemRecord) {
    ksdb_handle *h = ksdb_initialize_old(nullptr, 0, nullptr, nullptr);
    ASSERT_TRUE(h && h->pool && h->sys_info);
    for (pthread_mutex_t *m : {h->db_mutex, h->log_mutex, h->trace_mutex}) {
        ASSERT_EQ(pthread_mutex_lock(m), 0);
        EXPECT_EQ(pthread_mutex_lock(m), 0) << "mutexes must be recursive";
        pthread_mutex_unlock(m);
        pthread_mutex_unlock(m);
    }
    EXPECT_TRUE(h->db_mutex != h->log_mutex && h->log_mutex != h->trace_mutex);
    ksdb_pool_destroy_old(h);
    EXPECT_EQ(h->pool, nullptr);
    ksdb_pool_destroy_old(h);  // a second call is harmless
    std::free(h->sys_info);
    std::free(h);
    // A bad debug root: under LeakSanitizer, anything left behind fails the run.
    EXPECT_EQ(ksdb_initialize_old(nullptr, 0, nullptr, "/nonexistent/ksdb-root"), nullptr);
}

// Guards: the exit line's level; failures missing from the domain log; its line ends.
TEST(ExitLog, SuccessOnlyAtDebugFailureAtErrorAndInTheDomainLog) {
    TempDir root;
    mkdirs(root / "var/log/kestravad");
    // At debug level both lines are written (the create and queue tests read them).
    CaptureFile info_log;
    Handle info({info_log.get(), 4, nullptr, root.path().c_str()});
    EXPECT_EQ(ksdb::logged(info, "ksdb_cifs", 12, "ksdb_cifs_share_export", [] { return 0; }), 0);
    EXPECT_EQ(ksdb::logged(info, "ksdb_cifs", 13, "ksdb_cifs_share_import", [] { return 3; }), 3);
    EXPECT_FALSE(contains(info_log.text(), "ksdb_cifs_share_export"));
    const std::regex failed(R"(ksdb_cifs:13 \(error\) ksdb_cifs_share_import\(\) ==> 3 \(\d+ms\)\n)");
    EXPECT_TRUE(std::regex_search(info_log.text(), failed));

    // The domain log gets every failure, whatever the level (0 included).
    Handle quiet({nullptr, 0, nullptr, root.path().c_str()});
    ksdb::logged(quiet, "ksdb_api", 1, "ksdb_import", [] { return 4; });
    auto ads = lines(read_file(root / "var/log/kestravad/ads.log"));
    ASSERT_EQ(ads.size(), 2u);
    EXPECT_TRUE(std::regex_match(
        ads[0], std::regex(R"(^\[\d\d-\d\d-\d\d \d\d:\d\d:\d\d\] )" + pid_text() +
                           R"( ksdb_cifs:13 error: ksdb_cifs_share_import\(\) ==> 3 \(\d+ms\)$)")))
        << ads[0];
    EXPECT_TRUE(contains(ads[1], "ksdb_api:1 error: ksdb_import() ==> 4"));

    // A newline is added only when the format has none.
    ksdb::ads_log_for(quiet, "m", 1, KSDB_LOG_WARN, "no newline %d", 1);
    ksdb::ads_log_for(quiet, "m", 2, KSDB_LOG_WARN, "has newline %d\n", 2);
    ksdb::ads_log_for(quiet, "m", 3, KSDB_LOG_WARN, "inner\nnone at end");
    const std::string text = read_file(root / "var/log/kestravad/ads.log");
    EXPECT_TRUE(contains(text, "m:1 warn: no newline 1\n[")) << text;
    EXPECT_TRUE(contains(text, "m:2 warn: has newline 2\n[")) << text;
    EXPECT_EQ(text.substr(text.size() - 12), "\nnone at end") << text;
}

// Guards: the last error overwritten, shared between threads or not cleared; the
// library's own 5 taken for SQLite's.
TEST(LastError, AFailureWithoutAFinerRecordIsTheLibrarysOwn) {
    Handle h;
    Db db;
    ksdb_clear_error();
    // A statement that failed during the operation says more: it stays.
    ksdb::logged(h, "ksdb_nfs", 30, "ksdb_nfs_share_export", [&] {
        return ksdb_sql_exec(h, db, nullptr, "ksdb_nfs", 31, "SELECT * FROM nosuch") ? 3 : 0;
    });
    EXPECT_EQ(last_error(), "1 1 ksdb_nfs:31 no such table: nosuch");
    // Success leaves the record; an outer failure does not overwrite an inner one.
    ksdb::logged(h, "m", 1, "ok", [] { return 0; });
    // A status 5 of the library's own is not taken for SQLite's 5 (busy).
    ksdb::logged(h, "m", 2, "outer", [&] { return ksdb::logged(h, "m", 3, "inner", [] { return 5; }); });
    EXPECT_EQ(last_error(), "2 5 m:3 inner() ==> 5");
    std::thread([] { EXPECT_EQ(last_error(), "0 0 :0 ") << "the record is the thread's own"; }).join();
    ksdb_clear_error();
    EXPECT_EQ(last_error(), "0 0 :0 ");
}

// Guards: the random state per thread; elapsed time across a second.
TEST(RandAndTime, UnseededThreadsShareTheZeroStateAndElapsedTimeBorrows) {
    long a = 0, b = 0;
    std::thread([&] { a = ksdb_rand(); }).join();
    std::thread([&] { b = ksdb_rand(); }).join();
    EXPECT_EQ(a, b);
    struct timeval start = {10, 900000}, end = {12, 100000};
    EXPECT_EQ(ksdb_elapsed_us(&end, &start), 1200000);
    EXPECT_EQ(ksdb_elapsed_us(&start, &end), -1200000);
    int64_t ms = ksdb_now_ms(), us = ksdb_now_us();
    EXPECT_LE(ms * 1000, us);
    EXPECT_LT(us - ms * 1000, 5000000);
}
