// The handle, the log writers, the SQL trace and the exit log.
#define KSDB_MODULE "test_log"
#include "core/ksdb_internal.h"
#include "tests/support/test_support.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <regex>
#include <string>
#include <thread>
#include <vector>

using namespace ksdb_test;

namespace {

struct JournalRecord {
    std::string message;
    int priority;
    std::string file;
    int line;
    std::string category;
};
std::vector<JournalRecord> g_journal;

void record_journal(const char *message, int priority, const char *file, int line,
                    const char *category) {
    g_journal.push_back({message, priority, file, line, category});
}

class JournalCapture {
  public:
    JournalCapture() {
        g_journal.clear();
        previous_ = ksdb::set_journal_sink(record_journal);
    }
    ~JournalCapture() { ksdb::set_journal_sink(previous_); }

  private:
    ksdb::JournalSink previous_;
};

std::string pid_text() { return std::to_string(getpid()); }

}  // namespace

TEST(Log, StreamLineHasTheDocumentedPrefix) {
    CaptureFile log;
    Handle h({log.get(), 5});
    ksdb_log(h, "ksdb_cifs", 42, KSDB_LOG_ERROR, 0, "share %s failed\n", "data");
    ksdb_log(h, "ksdb_api", 7, KSDB_LOG_DEBUG, 1, "no newline in format");
    auto out = lines(log.text());
    ASSERT_EQ(out.size(), 2u);
    std::regex error_line(R"(^\[\d\d/\d\d/\d\d \d\d:\d\d:\d\d\] )" + pid_text() +
                          R"(:\d+ ksdb_cifs:42 \(error\) share data failed$)");
    EXPECT_TRUE(std::regex_match(out[0], error_line)) << out[0];
    std::regex debug_line(R"(^\[\d\d/\d\d/\d\d \d\d:\d\d:\d\d\] \d+:\d+ ksdb_api:7 \(debug\) no newline in format$)");
    EXPECT_TRUE(std::regex_match(out[1], debug_line)) << out[1];
}

TEST(Log, LevelsFilterAndLevelNames) {
    CaptureFile log;
    Handle h({log.get(), 3});
    ksdb_log(h, "m", 1, KSDB_LOG_INFO, 0, "info line\n");
    ksdb_log(h, "m", 1, KSDB_LOG_DEBUG, 0, "debug line\n");
    ksdb_log(h, "m", 1, KSDB_LOG_WARN, 0, "warn line\n");
    ksdb_log(h, "m", 1, KSDB_LOG_FATAL, 0, "fatal line\n");
    std::string text = log.text();
    EXPECT_EQ(text.find("info line"), std::string::npos);
    EXPECT_EQ(text.find("debug line"), std::string::npos);
    EXPECT_NE(text.find("(warn) warn line"), std::string::npos);
    EXPECT_NE(text.find("(fatal) fatal line"), std::string::npos);

    // Level 6 and above have no name.
    CaptureFile log7;
    Handle h7({log7.get(), 7});
    ksdb_log(h7, "m", 1, 7, 0, "seven\n");
    EXPECT_NE(log7.text().find("m:1 () seven"), std::string::npos);
}

TEST(Log, LevelZeroWritesNothingAnywhere) {
    JournalCapture journal;
    CaptureFile log, trace;
    Handle h({log.get(), 0, trace.get()});
    ksdb_log(h, "m", 1, KSDB_LOG_FATAL, 0, "x\n");
    ksdb_trace(h, "m", 1, "sql=%s\n", "SELECT 1");
    Handle hj({nullptr, 0, nullptr});
    ksdb_log(hj, "m", 1, KSDB_LOG_FATAL, 0, "x\n");
    ksdb_trace(hj, "m", 1, "sql=%s\n", "SELECT 1");
    EXPECT_EQ(log.text(), "");
    EXPECT_EQ(trace.text(), "");
    EXPECT_TRUE(g_journal.empty());
}

TEST(Log, WarnIsBufferedErrorIsFlushed) {
    CaptureFile log;
    Handle h({log.get(), 4});
    ksdb_log(h, "m", 1, KSDB_LOG_WARN, 0, "buffered\n");
    EXPECT_EQ(log.unflushed_on_disk(), "");
    ksdb_log(h, "m", 1, KSDB_LOG_ERROR, 0, "urgent\n");
    std::string disk = log.unflushed_on_disk();
    EXPECT_NE(disk.find("buffered"), std::string::npos);
    EXPECT_NE(disk.find("urgent"), std::string::npos);

    // At debug level every line is flushed.
    CaptureFile dbg;
    Handle hd({dbg.get(), 5});
    ksdb_log(hd, "m", 1, KSDB_LOG_INFO, 0, "info\n");
    EXPECT_NE(dbg.unflushed_on_disk().find("info"), std::string::npos);
}

TEST(Log, JournalGetsOnlyCompleteNonEmptyLines) {
    JournalCapture journal;
    Handle h({nullptr, 5});
    ksdb_log(h, "ksdb_cifs", 10, KSDB_LOG_WARN, 0, "first\nsecond");
    ASSERT_EQ(g_journal.size(), 1u);
    EXPECT_EQ(g_journal[0].message, "first");
    EXPECT_EQ(g_journal[0].priority, 4);
    EXPECT_EQ(g_journal[0].file, "ksdb_cifs");
    EXPECT_EQ(g_journal[0].line, 10);
    EXPECT_EQ(g_journal[0].category, "ksdb.log");

    g_journal.clear();
    ksdb_log(h, "m", 1, KSDB_LOG_ERROR, 0, "\n\nword\n");
    ASSERT_EQ(g_journal.size(), 1u);
    EXPECT_EQ(g_journal[0].message, "word");
    EXPECT_EQ(g_journal[0].priority, 3);

    // append_newline plays no part in journal mode.
    g_journal.clear();
    ksdb_log(h, "m", 1, KSDB_LOG_ERROR, 1, "never sent");
    EXPECT_TRUE(g_journal.empty());

    g_journal.clear();
    ksdb_log(h, "m", 1, KSDB_LOG_FATAL, 0, "a\n");
    ksdb_log(h, "m", 1, KSDB_LOG_INFO, 0, "b\n");
    ksdb_log(h, "m", 1, KSDB_LOG_DEBUG, 0, "c\n");
    ASSERT_EQ(g_journal.size(), 3u);
    EXPECT_EQ(g_journal[0].priority, 0);
    EXPECT_EQ(g_journal[1].priority, 6);
    EXPECT_EQ(g_journal[2].priority, 7);
}

TEST(Trace, WrittenOnlyFromInfoLevelWithItsOwnPrefix) {
    CaptureFile trace3, trace4;
    Handle h3({nullptr, 3, trace3.get()});
    ksdb_trace(h3, "ksdb_cifs", 5, "sql=%s\n", "SELECT 1");
    EXPECT_EQ(trace3.text(), "");

    Handle h4({nullptr, 4, trace4.get()});
    ksdb_trace(h4, "ksdb_cifs", 5, "sql=%s\n", "SELECT 1");
    std::regex line(R"(^\[\d\d/\d\d/\d\d \d\d:\d\d:\d\d\]\()" + pid_text() +
                    R"(:\d+\) ksdb_cifs:5sql=SELECT 1$)");
    auto out = lines(trace4.text());
    ASSERT_EQ(out.size(), 1u);
    EXPECT_TRUE(std::regex_match(out[0], line)) << out[0];
}

TEST(Trace, JournalRecordsUseTheTraceCategory) {
    JournalCapture journal;
    Handle h({nullptr, 5, nullptr});
    ksdb_trace(h, "ksdb_queue", 3, " ==> %d:%d (%s)\n", 0, 0, "success");
    ASSERT_EQ(g_journal.size(), 1u);
    EXPECT_EQ(g_journal[0].message, " ==> 0:0 (success)");
    EXPECT_EQ(g_journal[0].priority, 7);
    EXPECT_EQ(g_journal[0].category, "ksdb.jnl");
}

TEST(Handle, DebugRootRules) {
    TempDir dir;
    write_file(dir / "plain", "x");

    CaptureFile log;
    Handle file_root({log.get(), 2, nullptr, (dir / "plain").c_str()});
    EXPECT_EQ(file_root.get(), nullptr);
    Handle missing_root({log.get(), 2, nullptr, (dir / "missing").c_str()});
    EXPECT_EQ(missing_root.get(), nullptr);
    std::string text = log.text();
    EXPECT_NE(text.find("ksdb_api:"), std::string::npos);
    EXPECT_NE(text.find("(error) Not a directory debug_root=" + (dir / "plain")),
              std::string::npos);
    EXPECT_NE(text.find("(error) Invalid debug_root=" + (dir / "missing")), std::string::npos);

    Handle slash({nullptr, 0, nullptr, "/"});
    ASSERT_NE(slash.get(), nullptr);
    EXPECT_FALSE(ksdb_is_debug_root(slash));

    Handle rooted({nullptr, 0, nullptr, dir.path().c_str()});
    ASSERT_NE(rooted.get(), nullptr);
    EXPECT_TRUE(ksdb_is_debug_root(rooted));
    EXPECT_STREQ(rooted->debug_root, dir.path().c_str());
    EXPECT_NE(rooted->debug_root, dir.path().c_str());  // a pool copy
    EXPECT_EQ(ksdb::effective_path(rooted, "/etc/exports"), dir.path() + "/etc/exports");

    Handle live;
    EXPECT_FALSE(ksdb_is_debug_root(live));
    EXPECT_EQ(ksdb::effective_path(live, "/etc/exports"), "/etc/exports");
}

TEST(Handle, FieldsAndResultPool) {
    CaptureFile log;
    Handle h({log.get(), 3});
    ASSERT_NE(h.get(), nullptr);
    EXPECT_EQ(reinterpret_cast<uintptr_t>(h.get()) % 32, 0u);
    EXPECT_EQ(h->log_level, 3u);
    EXPECT_EQ(h->call_pool, nullptr);
    EXPECT_EQ(ksdb_result_pool(h), h.pool());
    apr_pool_t *sub = nullptr;
    apr_pool_create(&sub, h.pool());
    h->call_pool = sub;
    EXPECT_EQ(ksdb_result_pool(h), sub);
    h->call_pool = nullptr;
}

TEST(Handle, InitializeOldMakesPoolRecursiveMutexesAndSystemRecord) {
    ksdb_handle *h = ksdb_initialize_old(nullptr, 0, nullptr, nullptr);
    ASSERT_NE(h, nullptr);
    ASSERT_NE(h->pool, nullptr);
    ASSERT_NE(h->sys_info, nullptr);
    EXPECT_EQ(h->flags, 0u);
    for (pthread_mutex_t *m : {h->db_mutex, h->log_mutex, h->trace_mutex}) {
        ASSERT_NE(m, nullptr);
        ASSERT_EQ(pthread_mutex_lock(m), 0);
        EXPECT_EQ(pthread_mutex_lock(m), 0) << "mutexes must be recursive";
        pthread_mutex_unlock(m);
        pthread_mutex_unlock(m);
    }
    EXPECT_NE(h->db_mutex, h->log_mutex);
    EXPECT_NE(h->log_mutex, h->trace_mutex);
    ksdb_sys_info *info = h->sys_info;
    ksdb_pool_destroy_old(h);
    EXPECT_EQ(h->pool, nullptr);
    ksdb_pool_destroy_old(h);  // a second call is harmless
    std::free(info);
    std::free(h);
}

TEST(Handle, InitializeOldWithABadDebugRootReleasesWhatItMade) {
    // Under LeakSanitizer a pool or system record left behind fails the run.
    TempDir dir;
    write_file(dir / "plain", "x");
    EXPECT_EQ(ksdb_initialize_old(nullptr, 0, nullptr, (dir / "plain").c_str()), nullptr);
    EXPECT_EQ(ksdb_initialize_old(nullptr, 0, nullptr, (dir / "missing").c_str()), nullptr);
}

TEST(ExitLog, SuccessAtDebugFailureAtErrorAndInTheDomainLog) {
    TempDir root;
    mkdirs(root / "var/log/kestravad");
    CaptureFile log;
    Handle h({log.get(), 5, nullptr, root.path().c_str()});
    int ok = ksdb::logged(h, "ksdb_cifs", 12, "ksdb_cifs_share_export", [] { return 0; });
    int bad = ksdb::logged(h, "ksdb_cifs", 13, "ksdb_cifs_share_import", [] { return 3; });
    EXPECT_EQ(ok, 0);
    EXPECT_EQ(bad, 3);
    std::string text = log.text();
    EXPECT_TRUE(std::regex_search(
        text, std::regex(R"(ksdb_cifs:12 \(debug\) ksdb_cifs_share_export\(\) ==> 0 \(\d+ms\)\n)")));
    EXPECT_TRUE(std::regex_search(
        text, std::regex(R"(ksdb_cifs:13 \(error\) ksdb_cifs_share_import\(\) ==> 3 \(\d+ms\)\n)")));

    std::string ads = read_file(root / "var/log/kestravad/ads.log");
    std::regex ads_line(R"(^\[\d\d-\d\d-\d\d \d\d:\d\d:\d\d\] )" + pid_text() +
                        R"( ksdb_cifs:13 error: ksdb_cifs_share_import\(\) ==> 3 \(\d+ms\)$)");
    auto ads_lines = lines(ads);
    ASSERT_EQ(ads_lines.size(), 1u) << ads;
    EXPECT_TRUE(std::regex_match(ads_lines[0], ads_line)) << ads_lines[0];
}

TEST(ExitLog, DomainLogIsWrittenEvenAtLevelZero) {
    TempDir root;
    mkdirs(root / "var/log/kestravad");
    Handle h({nullptr, 0, nullptr, root.path().c_str()});
    ksdb::logged(h, "ksdb_api", 1, "ksdb_import", [] { return 4; });
    EXPECT_NE(read_file(root / "var/log/kestravad/ads.log").find("ksdb_import() ==> 4"),
              std::string::npos);
}

TEST(ExitLog, DomainLogAddsANewlineOnlyWhenTheFormatHasNone) {
    TempDir root;
    mkdirs(root / "var/log/kestravad");
    Handle h({nullptr, 0, nullptr, root.path().c_str()});
    ksdb::ads_log_for(h, "m", 1, KSDB_LOG_WARN, "no newline %d", 1);
    ksdb::ads_log_for(h, "m", 2, KSDB_LOG_WARN, "has newline %d\n", 2);
    ksdb::ads_log_for(h, "m", 3, KSDB_LOG_WARN, "inner\nnone at end");
    std::string ads = read_file(root / "var/log/kestravad/ads.log");
    EXPECT_NE(ads.find("m:1 warn: no newline 1\n["), std::string::npos) << ads;
    EXPECT_NE(ads.find("m:2 warn: has newline 2\n["), std::string::npos) << ads;
    EXPECT_TRUE(ads.size() >= 11 && ads.substr(ads.size() - 11) == "none at end") << ads;
}

TEST(Rand, UnseededThreadsShareTheZeroStateSequence) {
    long a = 0, b = 0;
    std::thread([&] { a = ksdb_rand(); }).join();
    std::thread([&] { b = ksdb_rand(); }).join();
    EXPECT_EQ(a, b);
    EXPECT_GE(a, INT32_MIN);
    EXPECT_LE(a, INT32_MAX);
}

TEST(Time, ElapsedMicrosecondsBorrowsAcrossSeconds) {
    struct timeval start = {10, 900000}, end = {12, 100000};
    EXPECT_EQ(ksdb_elapsed_us(&end, &start), 1200000);
    EXPECT_EQ(ksdb_elapsed_us(&start, &end), -1200000);
    int64_t ms = ksdb_now_ms(), us = ksdb_now_us();
    EXPECT_LE(ms * 1000, us);
    EXPECT_LT(us - ms * 1000, 5000000);
}
