// libFuzzer target for the template writer.  The input is a template: its
// NUL bytes separate the pieces.  The pieces are written against a small
// in-memory database into a memory stream.  Queries may only read (an
// authorizer refuses everything else, so no input can change the database
// or attach a file) and have a bounded amount of work.
//
// Besides the sanitizers, one property is checked: a template without any
// "{SQL{" is written back exactly and succeeds.
#include "fuzz_support.h"

#include <sqlite3.h>

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

// A small database that queries may only read, with bounded work.
sqlite3 *database() {
    static sqlite3 *db = [] {
        sqlite3 *made = nullptr;
        FUZZ_CHECK(sqlite3_open(":memory:", &made) == SQLITE_OK);
        const char *setup =
            "CREATE TABLE service_ftp(force_ftps TEXT, port INT);"
            "INSERT INTO service_ftp VALUES('1', 21);"
            "CREATE TABLE share(id INTEGER PRIMARY KEY, name TEXT, comment TEXT);"
            "INSERT INTO share(name, comment) VALUES('public', 'everyone'),"
            "('media', NULL),('odd', '{SQL{SELECT 1}}'),('pct', '100%');";
        FUZZ_CHECK(sqlite3_exec(made, setup, nullptr, nullptr, nullptr) == SQLITE_OK);
        sqlite3_set_authorizer(made, authorize, nullptr);
        sqlite3_progress_handler(made, kProgressStep, progress, nullptr);
        sqlite3_limit(made, SQLITE_LIMIT_LENGTH, 1 << 16);
        return made;
    }();
    return db;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (size > kMaxInput) return 0;
    // The pieces, separated by NUL bytes.
    std::vector<std::string> texts(1);
    for (size_t i = 0; i < size; ++i) {
        if (data[i])
            texts.back() += static_cast<char>(data[i]);
        else
            texts.emplace_back();
    }
    std::vector<const char *> pieces;
    std::string whole;
    for (const std::string &t : texts) pieces.push_back(t.c_str()), whole += t;
    pieces.push_back(nullptr);

    ksdb_fuzz::InputPool pool;  // values go to a pool of this input only
    char *buf = nullptr;
    size_t len = 0;
    FILE *out = open_memstream(&buf, &len);
    FUZZ_CHECK(out != nullptr);
    g_progress = 0;
    const int rc = ksdb_template_write(pool.h(), database(), out, pieces.data());
    std::fclose(out);
    // 4: a value that would add a line is refused.
    FUZZ_CHECK(rc == 0 || rc == 3 || rc == 4 || rc == 5);
    if (whole.find("{SQL{") == std::string::npos) FUZZ_CHECK(rc == 0 && std::string(buf, len) == whole);
    std::free(buf);
    return 0;
}
