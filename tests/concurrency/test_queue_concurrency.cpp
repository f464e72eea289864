// Threads sharing one handle and connection, and processes, drain one queue: every
// message is delivered once, each consumer in delivery order, no log or trace lines
// interleave.  Consumers use WAL and extended result codes: a pop whose snapshot another
// process overtook gets SQLITE_BUSY_SNAPSHOT, returns 3 and is retried.
#define KSDB_MODULE "test_queue_concurrency"
#include "core/ksdb_internal.h"
#include "tests/support/test_support.h"

#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <ctime>
#include <numeric>
#include <regex>
#include <thread>

using namespace ksdb_test;

namespace {

constexpr int kMessages = 5000;
constexpr int kThreads = 4;
constexpr int kProcesses = 2;
constexpr int kMaxFailuresInARow = 20000;  // then a consumer gives up: a failure, not a hang

// The delivery order of message n: priority ((n * 7) % 5) first, then id
// (all messages share one time and ids follow n).
std::pair<int, int> order_key(int n) { return {-((n * 7) % 5), n}; }

sqlite3 *open_consumer(const std::string &path) {
    sqlite3 *db = nullptr;
    if (sqlite3_open(path.c_str(), &db) != SQLITE_OK) return nullptr;
    sqlite3_extended_result_codes(db, 1);
    sqlite3_exec(db, "PRAGMA journal_mode=WAL; PRAGMA synchronous=NORMAL", nullptr, nullptr, nullptr);
    return db;
}

struct Drained {
    std::vector<int> popped;  // message numbers in the order popped
    int calls = 0;            // pops run
    bool failed = false;      // a result other than 0 and 3, or too many 3s in a row
};

// Pops until the queue is empty; a pop that gives 3 is tried again.
void drain(ksdb_handle *h, sqlite3 *db, Drained &out) {
    for (int failures_in_a_row = 0; failures_in_a_row < kMaxFailuresInARow;) {
        char *val = nullptr;
        int ts = 0;
        int rc = ksdb_queue_pop(h, db, nullptr, nullptr, &val, &ts, nullptr, nullptr);
        ++out.calls;
        if (rc == 0 && !val) return;  // every message is due, so no message means empty
        if (rc != 0 && rc != KSDB_E_DB) break;
        if (rc == 0) out.popped.push_back(std::atoi(val + 1));
        failures_in_a_row = rc == 0 ? 0 : failures_in_a_row + 1;
    }
    out.failed = true;
}

// Body of a child process: waits for the start signal, drains the queue with
// its own connection and handle, writes what it popped to `report` one
// number per line and ends without running the parent's destructors.
[[noreturn]] void child(const std::string &path, const std::string &root, const std::string &report,
                        int start_fd) {
    char go;
    while (read(start_fd, &go, 1) < 0) {
    }
    close(start_fd);
    int status = 1;
    {
        Handle h({nullptr, 0, nullptr, root.c_str()});
        if (sqlite3 *db = open_consumer(path)) {
            Drained d;
            drain(h, db, d);
            sqlite3_close(db);
            if (FILE *f = std::fopen(report.c_str(), "w")) {
                for (int n : d.popped) std::fprintf(f, "%d\n", n);
                if (std::fclose(f) == 0 && !d.failed) status = 0;
            }
        }
    }
    _exit(status);
}

TEST(QueueConcurrency, ThreadsAndProcessesDeliverEachMessageOnce) {
    TempDir dir;
    const std::string path = dir / "queue.db";
    // Failed pops also write the domain-account log: keep it below a root.
    const std::string root = dir / "root";
    mkdirs(root);

    {  // Fill the queue; closed again before any fork.
        Handle h({nullptr, 0, nullptr, root.c_str()});
        sqlite3 *db = open_consumer(path);
        ASSERT_NE(db, nullptr);
        ASSERT_EQ(ksdb_queue_create(h, db, 0), 0);
        // Message n: id n + 1, text "m<n>", all due.
        ASSERT_EQ(ksdb_sql_exec_mprintf(h, db, nullptr, KSDB_TAG,
                                        "WITH RECURSIVE n(i) AS (SELECT 0 UNION ALL SELECT i+1 FROM n "
                                        "WHERE i<%d) INSERT INTO queue (id,ts,src,dst,val,pri) "
                                        "SELECT i+1,%d,'p','c','m'||i,(i*7)%%5 FROM n",
                                        kMessages - 1, static_cast<int>(std::time(nullptr)) - 60),
                  0);
        EXPECT_EQ(sqlite3_close(db), SQLITE_OK);
    }

    // Children first, while this process has no threads; they start
    // together with the threads below when the start pipe is closed.
    int start[2];
    ASSERT_EQ(pipe(start), 0);
    std::vector<pid_t> children;
    std::vector<std::string> reports;
    for (int p = 0; p < kProcesses; ++p) {
        reports.push_back(dir / ("child-" + std::to_string(p)));
        pid_t pid = fork();
        ASSERT_GE(pid, 0);
        if (pid == 0) {
            close(start[1]);
            child(path, root, reports.back(), start[0]);
        }
        children.push_back(pid);
    }
    close(start[0]);

    CaptureFile log, trace;
    Handle h({log.get(), 5, trace.get(), root.c_str()});
    sqlite3 *db = open_consumer(path);
    ASSERT_NE(db, nullptr);
    std::vector<Drained> drained(kThreads + kProcesses);
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t)
        threads.emplace_back([&, t] { drain(h, db, drained[t]); });
    close(start[1]);  // go
    for (auto &t : threads) t.join();

    // Every line is one whole record: every pop of the threads logs its end
    // once, every statement is traced with its outcome.
    const std::regex log_line(
        R"(\[\d\d/\d\d/\d\d \d\d:\d\d:\d\d\] \d+:\d+ [\w.]+:\d+ \((debug|error)\) [^[]*)");
    const std::regex trace_line(
        R"(\[\d\d/\d\d/\d\d \d\d:\d\d:\d\d\]\(\d+:\d+\) [\w.]+:\d+(sql=[^[]*| ==> \d+:\d+ \([^[]*))");
    int pops = 0, calls = 0, statements = 0;
    for (const std::string &l : lines(log.text())) {
        ASSERT_TRUE(std::regex_match(l, log_line)) << l;
        pops += contains(l, " ksdb_queue_pop() ==> ");
    }
    for (int t = 0; t < kThreads; ++t) calls += drained[t].calls;
    EXPECT_EQ(pops, calls);
    const std::vector<std::string> traced = lines(trace.text());
    for (const std::string &l : traced) {
        ASSERT_TRUE(std::regex_match(l, trace_line)) << l;
        statements += contains(l, "sql=");
    }
    EXPECT_EQ(statements * 2, static_cast<int>(traced.size()));

    for (int p = 0; p < kProcesses; ++p) {
        int status = -1;
        ASSERT_EQ(waitpid(children[p], &status, 0), children[p]);
        EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << "child " << p;
        for (const std::string &line : lines(read_file(reports[p])))
            drained[kThreads + p].popped.push_back(std::atoi(line.c_str()));
    }

    // Every message exactly once: all pops together are 0 .. kMessages - 1.
    std::vector<int> all;
    for (size_t c = 0; c < drained.size(); ++c) {
        const Drained &d = drained[c];
        EXPECT_FALSE(d.failed) << "consumer " << c;
        EXPECT_TRUE(std::is_sorted(d.popped.begin(), d.popped.end(),
                                   [](int a, int b) { return order_key(a) < order_key(b); }))
            << "consumer " << c;
        all.insert(all.end(), d.popped.begin(), d.popped.end());
    }
    std::sort(all.begin(), all.end());
    std::vector<int> expected(kMessages);
    std::iota(expected.begin(), expected.end(), 0);
    EXPECT_TRUE(all == expected) << all.size() << " pops of " << kMessages << " messages";

    EXPECT_EQ(sqlite3_close(db), SQLITE_OK);
}

}  // namespace
