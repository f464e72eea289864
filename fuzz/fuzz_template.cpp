// libFuzzer target for the template writer.  The input is a template: its
// NUL bytes separate the pieces.  The pieces are written against a small
// in-memory database into a memory stream.  Queries may only read (an
// authorizer refuses everything else, so no input can change the database
// or attach a file) and have a bounded amount of work.
//
// Besides the sanitizers, one property is checked: a template without any
// "{SQL{" is written back exactly and succeeds.
#include "ksdb.h"

#include <apr_pools.h>
#include <sqlite3.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

namespace {

constexpr size_t kMaxInput = 1 << 16;
constexpr int kProgressStep = 1000;       // VM instructions between checks
constexpr int kMaxProgressChecks = 2000;  // per input

int g_progress = 0;

int progress(void *) { return ++g_progress > kMaxProgressChecks; }

int authorize(void *, int action, const char *, const char *, const char *, const char *) {
    switch (action) {
    case SQLITE_SELECT:
    case SQLITE_READ:
    case SQLITE_FUNCTION:
    case SQLITE_RECURSIVE:
        return SQLITE_OK;
    default:
        return SQLITE_DENY;
    }
}

struct Fixture {
    ksdb_handle *h = nullptr;
    sqlite3 *db = nullptr;

    Fixture() {
        h = ksdb_initialize_old(nullptr, 0, nullptr, nullptr);
        if (!h || sqlite3_open(":memory:", &db) != SQLITE_OK) std::abort();
        const char *setup =
            "CREATE TABLE service_ftp(force_ftps TEXT, port INT);"
            "INSERT INTO service_ftp VALUES('1', 21);"
            "CREATE TABLE share(id INTEGER PRIMARY KEY, name TEXT, comment TEXT);"
            "INSERT INTO share(name, comment) VALUES('public', 'everyone'),"
            "('media', NULL),('odd', '{SQL{SELECT 1}}'),('pct', '100%');";
        if (sqlite3_exec(db, setup, nullptr, nullptr, nullptr) != SQLITE_OK) std::abort();
        sqlite3_set_authorizer(db, authorize, nullptr);
        sqlite3_progress_handler(db, kProgressStep, progress, nullptr);
        sqlite3_limit(db, SQLITE_LIMIT_LENGTH, 1 << 16);
    }
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    static Fixture fx;
    if (size > kMaxInput) return 0;

    std::vector<std::string> texts;
    std::string current;
    for (size_t i = 0; i < size; ++i) {
        if (data[i] == 0) {
            texts.push_back(current);
            current.clear();
        } else {
            current += static_cast<char>(data[i]);
        }
    }
    texts.push_back(current);
    std::vector<const char *> pieces;
    std::string whole;
    bool has_field = false;
    for (const std::string &t : texts) {
        pieces.push_back(t.c_str());
        whole += t;
        has_field = has_field || t.find("{SQL{") != std::string::npos;
    }
    pieces.push_back(nullptr);

    // Values go to a pool of this input only.
    apr_pool_t *call_pool = nullptr;
    if (apr_pool_create(&call_pool, fx.h->pool) != APR_SUCCESS) std::abort();
    fx.h->call_pool = call_pool;

    char *buf = nullptr;
    size_t len = 0;
    FILE *out = open_memstream(&buf, &len);
    if (!out) std::abort();
    g_progress = 0;
    int rc = ksdb_template_write(fx.h, fx.db, out, pieces.data());
    std::fclose(out);

    // 4: a value that would add a line is refused.
    if (rc != 0 && rc != 3 && rc != 4 && rc != 5) std::abort();
    if (!has_field && (rc != 0 || std::string(buf, len) != whole)) std::abort();

    std::free(buf);
    fx.h->call_pool = nullptr;
    apr_pool_destroy(call_pool);
    return 0;
}
