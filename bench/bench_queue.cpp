// Queue push and pop through the library against the same statements run
// on a bare SQLite connection, both on a file database in a temporary
// folder with the same journal mode and synchronous setting.
//
// A bare push is BEGIN; INSERT; COMMIT.  A bare pop is BEGIN; SELECT ...
// LIMIT 1 (sqlite3_get_table); DELETE; COMMIT.  Pops run with 1,000, 10,000
// and 100,000 queued messages, selecting by source and destination and
// selecting nothing: the delivery query follows an index in delivery order
// to the first due message, so a pop costs about the same however long the
// queue (the ratio of the longest to the shortest is printed).  After each
// pop the queue is topped up again outside the timed part.
#define KSDB_NO_SHORT_CATEGORY_NAMES 1
#include "ksdb.h"

#include "bench/bench_support.h"

#include <apr_general.h>
#include <apr_pools.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <ctime>
#include <string>
#include <vector>

namespace {

// WAL without a sync per commit on both sides, so that the comparison
// measures the statements and the library around them rather than the disk.
const char kPragmas[] = "PRAGMA journal_mode=WAL; PRAGMA synchronous=OFF";

class BenchDb {
  public:
    BenchDb() {
        char tmpl[] = "/tmp/ksdb-bench-queue-XXXXXX";
        dir_ = mkdtemp(tmpl);
        path_ = dir_ + "/queue.db";
        sqlite3_open(path_.c_str(), &db_);
        sqlite3_exec(db_, kPragmas, nullptr, nullptr, nullptr);
    }
    ~BenchDb() {
        sqlite3_close(db_);
        for (const char *suffix : {"", "-wal", "-shm"}) unlink((path_ + suffix).c_str());
        rmdir(dir_.c_str());
    }
    sqlite3 *get() const { return db_; }

  private:
    std::string dir_, path_;
    sqlite3 *db_ = nullptr;
};

class Library {
  public:
    Library() {
        h_ = ksdb_initialize_old(nullptr, 0, nullptr, nullptr);
        apr_pool_create(&call_, h_->pool);
        h_->call_pool = call_;
    }
    ~Library() {
        std::free(h_->sys_info);
        ksdb_pool_destroy_old(h_);
        std::free(h_);
    }
    ksdb_handle *get() const { return h_; }
    void clear_results() { apr_pool_clear(call_); }

  private:
    ksdb_handle *h_ = nullptr;
    apr_pool_t *call_ = nullptr;
};

int past() { return static_cast<int>(std::time(nullptr)) - 60; }

void create_queue(sqlite3 *db) {
    Library lib;
    ksdb_queue_create(lib.get(), db, 0);
}

// Adds `count` due messages in one transaction through a prepared statement.
void fill(sqlite3 *db, int count) {
    sqlite3_exec(db, "BEGIN", nullptr, nullptr, nullptr);
    sqlite3_stmt *st = nullptr;
    sqlite3_prepare_v2(db, "INSERT INTO queue (ts,src,dst,val,pri) VALUES(?,'daemon','ui',?,0)",
                       -1, &st, nullptr);
    const int ts = past();
    for (int i = 0; i < count; ++i) {
        sqlite3_bind_int(st, 1, ts);
        sqlite3_bind_text(st, 2, "volume scrub finished", -1, SQLITE_STATIC);
        sqlite3_step(st);
        sqlite3_reset(st);
    }
    sqlite3_finalize(st);
    sqlite3_exec(db, "COMMIT", nullptr, nullptr, nullptr);
}

void exec(sqlite3 *db, const char *sql) {
    char *err = nullptr;
    benchmark::DoNotOptimize(sqlite3_exec(db, sql, nullptr, nullptr, &err));
    sqlite3_free(err);
}

// ---- push -------------------------------------------------------------------

void BM_bare_push(benchmark::State &state) {
    BenchDb db;
    create_queue(db.get());
    const int ts = past();
    for (auto _ : state) {
        exec(db.get(), "BEGIN");
        char *sql = sqlite3_mprintf("INSERT INTO queue (ts,src,dst,val,pri) VALUES(%d,%Q,%Q,%Q,%d)",
                                    ts, "daemon", "ui", "volume scrub finished", 0);
        exec(db.get(), sql);
        sqlite3_free(sql);
        exec(db.get(), "COMMIT");
    }
    state.SetItemsProcessed(state.iterations());
}

void BM_ksdb_queue_push(benchmark::State &state) {
    BenchDb db;
    Library lib;
    ksdb_queue_create(lib.get(), db.get(), 0);
    const int ts = past();
    for (auto _ : state)
        benchmark::DoNotOptimize(
            ksdb_queue_push(lib.get(), db.get(), "daemon", "ui", "volume scrub finished", 0, ts));
    state.SetItemsProcessed(state.iterations());
}

// ---- pop --------------------------------------------------------------------

// The selection of the pops: by source and destination (range(1) == 1) or
// none.
const char *pop_src(const benchmark::State &state) { return state.range(1) ? "daemon" : nullptr; }
const char *pop_dst(const benchmark::State &state) { return state.range(1) ? "ui" : nullptr; }

void BM_bare_pop(benchmark::State &state) {
    BenchDb db;
    create_queue(db.get());
    fill(db.get(), static_cast<int>(state.range(0)));
    for (auto _ : state) {
        exec(db.get(), "BEGIN");
        char where[256];
        if (state.range(1))
            sqlite3_snprintf(sizeof where, where, "WHERE ts<=STRFTIME('%%s') AND src=%Q AND dst=%Q",
                             "daemon", "ui");
        else
            sqlite3_snprintf(sizeof where, where, "WHERE ts<=STRFTIME('%%s')");
        char *sql = sqlite3_mprintf(
            "SELECT id,ts,val,src,dst FROM queue %s ORDER BY pri DESC,ts ASC,id ASC LIMIT 1", where);
        char **table = nullptr;
        int nrow = 0, ncol = 0;
        char *err = nullptr;
        sqlite3_get_table(db.get(), sql, &table, &nrow, &ncol, &err);
        sqlite3_free(err);
        sqlite3_free(sql);
        if (nrow == 1) {
            char *del = sqlite3_mprintf("DELETE FROM queue WHERE id=%d",
                                        static_cast<int>(std::strtol(table[ncol], nullptr, 10)));
            exec(db.get(), del);
            sqlite3_free(del);
        }
        sqlite3_free_table(table);
        exec(db.get(), "COMMIT");

        state.PauseTiming();
        fill(db.get(), 1);
        state.ResumeTiming();
    }
    state.SetItemsProcessed(state.iterations());
}

void BM_ksdb_queue_pop(benchmark::State &state) {
    BenchDb db;
    Library lib;
    ksdb_queue_create(lib.get(), db.get(), 0);
    fill(db.get(), static_cast<int>(state.range(0)));
    for (auto _ : state) {
        char *val = nullptr, *src = nullptr, *dst = nullptr;
        int ts = 0;
        benchmark::DoNotOptimize(ksdb_queue_pop(lib.get(), db.get(), pop_src(state), pop_dst(state),
                                                &val, &ts, &src, &dst));
        benchmark::DoNotOptimize(val);

        state.PauseTiming();
        lib.clear_results();
        fill(db.get(), 1);
        state.ResumeTiming();
    }
    state.SetItemsProcessed(state.iterations());
}

BENCHMARK(BM_bare_push);
BENCHMARK(BM_ksdb_queue_push);
BENCHMARK(BM_bare_pop)
    ->ArgsProduct({{1000, 10000, 100000}, {0, 1}})
    ->ArgNames({"queued", "by_name"})
    ->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_ksdb_queue_pop)
    ->ArgsProduct({{1000, 10000, 100000}, {0, 1}})
    ->ArgNames({"queued", "by_name"})
    ->Unit(benchmark::kMicrosecond);

}  // namespace

int main(int argc, char **argv) {
    return ksdb_bench::run_with_ratios(
        argc, argv,
        {{"BM_ksdb_queue_push", "BM_bare_push", 1.15},
         {"BM_ksdb_queue_pop/queued:1000/by_name:0", "BM_bare_pop/queued:1000/by_name:0", 1.15},
         {"BM_ksdb_queue_pop/queued:100000/by_name:0", "BM_bare_pop/queued:100000/by_name:0", 1.15},
         {"BM_ksdb_queue_pop/queued:100000/by_name:1", "BM_bare_pop/queued:100000/by_name:1", 1.15},
         // A flat queue: the longest against the shortest.
         {"BM_ksdb_queue_pop/queued:100000/by_name:0", "BM_ksdb_queue_pop/queued:1000/by_name:0", 1.5},
         {"BM_ksdb_queue_pop/queued:100000/by_name:1", "BM_ksdb_queue_pop/queued:1000/by_name:1", 1.5}}, 5);
}
