// ksdb_sql_exec with logging off against a bare sqlite3_exec of the same
// statement on the same kind of connection.
#define KSDB_NO_SHORT_CATEGORY_NAMES 1
#include "ksdb.h"

#include "bench/bench_support.h"

#include <apr_general.h>

#include <cstdlib>

namespace {

const char kStatement[] = "UPDATE t SET x=x+1 WHERE id=1";

sqlite3 *open_db() {
    sqlite3 *db = nullptr;
    sqlite3_open(":memory:", &db);
    sqlite3_exec(db, "CREATE TABLE t (id INTEGER PRIMARY KEY, x INT); INSERT INTO t VALUES(1,0)",
                 nullptr, nullptr, nullptr);
    return db;
}

void BM_bare_sqlite3_exec(benchmark::State &state) {
    sqlite3 *db = open_db();
    for (auto _ : state) {
        char *err = nullptr;
        benchmark::DoNotOptimize(sqlite3_exec(db, kStatement, nullptr, nullptr, &err));
        sqlite3_free(err);
    }
    sqlite3_close(db);
}

void BM_ksdb_sql_exec(benchmark::State &state) {
    ksdb_handle *h = ksdb_initialize_old(nullptr, 0, nullptr, nullptr);
    sqlite3 *db = open_db();
    for (auto _ : state)
        benchmark::DoNotOptimize(ksdb_sql_exec(h, db, nullptr, "bench", __LINE__, kStatement));
    sqlite3_close(db);
    std::free(h->sys_info);
    ksdb_pool_destroy_old(h);
    std::free(h);
}

BENCHMARK(BM_bare_sqlite3_exec);
BENCHMARK(BM_ksdb_sql_exec);

}  // namespace

int main(int argc, char **argv) {
    return ksdb_bench::run_with_ratios(
        argc, argv, {{"BM_ksdb_sql_exec", "BM_bare_sqlite3_exec", 1.10}});
}
