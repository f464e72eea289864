// Consumers in several threads and several processes drain one queue: every
// message is delivered exactly once, and each consumer sees its messages in
// delivery order.
//
// Caller-side set-up that makes consumers in several processes practical:
// the library's transactions begin with a plain (deferred) BEGIN, so a pop
// first reads and only then writes.  In the default rollback-journal mode two
// connections that have both read then both want to write: each waits for
// the other's shared lock, and the busy retries (1001 attempts, about ten
// seconds) run out before one gives way.  Each consumer connection therefore
//   - uses WAL journal mode: readers never block the writer, and a COMMIT
//     never waits for readers;
//   - turns on sqlite3_extended_result_codes: a pop whose read snapshot was
//     overtaken by another process's delete gets SQLITE_BUSY_SNAPSHOT (517)
//     when it tries to delete.  Waiting cannot cure a stale snapshot; as an
//     extended code it is not retried, the pop rolls back and returns 3, and
//     the consumer simply pops again with a fresh snapshot.  A plain
//     SQLITE_BUSY (another connection is writing right now) is still retried
//     by the library after 10 ms;
//   - uses synchronous=NORMAL, the usual companion of WAL (no fsync per
//     commit), to keep the run short.
#define KSDB_MODULE "test_queue_concurrency"
#include "core/ksdb_internal.h"
#include "tests/support/test_support.h"

#include <gtest/gtest.h>

#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <map>
#include <string>
#include <thread>
#include <vector>

using namespace ksdb_test;

namespace {

constexpr int kMessages = 5000;
constexpr int kThreads = 4;
constexpr int kProcesses = 2;
// A consumer that fails this many pops in a row gives up: the test fails
// instead of hanging.
constexpr int kMaxFailuresInARow = 20000;

int priority_of(int n) { return (n * 7) % 5; }

// The delivery order of message n: priority first, then id (all messages
// share one time and ids follow n).
std::pair<int, int> order_key(int n) { return {-priority_of(n), n}; }

sqlite3 *open_consumer(const std::string &path) {
    sqlite3 *db = nullptr;
    if (sqlite3_open(path.c_str(), &db) != SQLITE_OK) return nullptr;
    sqlite3_extended_result_codes(db, 1);
    sqlite3_exec(db, "PRAGMA journal_mode=WAL; PRAGMA synchronous=NORMAL", nullptr, nullptr,
                 nullptr);
    return db;
}

struct Drained {
    std::vector<int> popped;  // message numbers in the order popped
    int retries = 0;          // pops that returned 3 and were tried again
    int unexpected = 0;       // results other than 0 and 3
};

// Pops until the queue is empty.
void drain(ksdb_handle *h, sqlite3 *db, Drained &out) {
    int failures_in_a_row = 0;
    for (;;) {
        char *val = nullptr;
        int ts = 0;
        int rc = ksdb_queue_pop(h, db, nullptr, nullptr, &val, &ts, nullptr, nullptr);
        if (rc == KSDB_E_DB) {
            ++out.retries;
            if (++failures_in_a_row >= kMaxFailuresInARow) {
                ++out.unexpected;
                return;
            }
            continue;
        }
        if (rc != 0) {
            ++out.unexpected;
            return;
        }
        failures_in_a_row = 0;
        if (!val) return;  // every message is due, so no message means empty
        out.popped.push_back(std::atoi(val + 1));
    }
}

// Body of a child process: waits for the start signal, drains the queue with
// its own connection and handle, writes what it popped to `report` one
// number per line ("retries N" last) and ends without running the parent's
// destructors.
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
                std::fprintf(f, "retries %d\n", d.retries);
                if (std::fclose(f) == 0 && d.unexpected == 0) status = 0;
            }
        }
    }
    _exit(status);
}

bool in_delivery_order(const std::vector<int> &popped) {
    for (size_t i = 1; i < popped.size(); ++i)
        if (!(order_key(popped[i - 1]) < order_key(popped[i]))) return false;
    return true;
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
        const int ts = static_cast<int>(std::time(nullptr)) - 60;
        ASSERT_EQ(ksdb_sql_begin(h, db, nullptr, KSDB_TAG), 0);
        for (int n = 0; n < kMessages; ++n)
            ASSERT_EQ(ksdb_sql_exec_mprintf(
                          h, db, nullptr, KSDB_TAG,
                          "INSERT INTO queue (id,ts,src,dst,val,pri) VALUES(%d,%d,'p','c','m%d',%d)",
                          n + 1, ts, n, priority_of(n)),
                      0);
        ASSERT_EQ(ksdb_sql_commit(h, db, nullptr, KSDB_TAG), 0);
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

    Handle h({nullptr, 0, nullptr, root.c_str()});
    sqlite3 *db = open_consumer(path);
    ASSERT_NE(db, nullptr);
    std::vector<Drained> drained(kThreads + kProcesses);
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t)
        threads.emplace_back([&, t] { drain(h, db, drained[t]); });
    close(start[1]);  // go
    for (auto &t : threads) t.join();

    for (int p = 0; p < kProcesses; ++p) {
        int status = -1;
        ASSERT_EQ(waitpid(children[p], &status, 0), children[p]);
        EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << "child " << p;
        Drained &d = drained[kThreads + p];
        for (const std::string &line : lines(read_file(reports[p]))) {
            if (line.rfind("retries ", 0) == 0)
                d.retries = std::atoi(line.c_str() + 8);
            else
                d.popped.push_back(std::atoi(line.c_str()));
        }
    }

    std::map<int, int> times;
    int retries = 0;
    for (size_t c = 0; c < drained.size(); ++c) {
        const Drained &d = drained[c];
        EXPECT_EQ(d.unexpected, 0) << "consumer " << c;
        EXPECT_TRUE(in_delivery_order(d.popped)) << "consumer " << c;
        for (int n : d.popped) ++times[n];
        retries += d.retries;
        std::printf("consumer %zu: %zu messages, %d retries\n", c, d.popped.size(), d.retries);
    }
    std::vector<int> lost, twice;
    for (int n = 0; n < kMessages; ++n) {
        auto it = times.find(n);
        if (it == times.end())
            lost.push_back(n);
        else if (it->second > 1)
            twice.push_back(n);
    }
    EXPECT_EQ(times.size(), static_cast<size_t>(kMessages));  // nothing unknown
    EXPECT_TRUE(lost.empty()) << lost.size() << " lost, first m" << lost.front();
    EXPECT_TRUE(twice.empty()) << twice.size() << " delivered twice, first m" << twice.front();

    int len = -1;
    EXPECT_EQ(ksdb_queue_stat(h, db, nullptr, nullptr, &len), 0);
    EXPECT_EQ(len, 0);
    EXPECT_EQ(sqlite3_close(db), SQLITE_OK);
}

}  // namespace
