// The session of one ksdb command: its options, the library handle and the
// database connection, error printing, and the report of a run of
// categories with the files each put in place.
//
// Built on the public C interface only (ksdb.h): whatever the command needs
// that the interface lacks belongs in the library, not here.
#pragma once

#include <ksdb.h>

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

namespace ksdb_tool {

struct Options {
    std::string db;        // the configuration database
    std::string queue_db;  // the queue's database; empty: queue.db beside `db`
    std::string root;      // debug root, or empty
    std::string log_path;
    std::string trace_path;
    uint32_t log_level = KSDB_LOG_WARN;
    bool log_level_given = false;
};

// The queue's database of these options.
std::string queue_db_path(const Options &o);

// The exit status of a library or SQLite status: -1 gives 255 and an
// extended SQLite result code its primary code.
int exit_status(int status);

// Prints "ksdb: MESSAGE (status N: MEANING)" and returns the exit status.
int fail(int status, const std::string &message);
// Prints the message and a pointer to --help; returns 4.
int usage_error(const std::string &message);

bool parse_int(const std::string &text, int *out);
// Each argument as a category name (any case) or number.
int parse_categories(const std::vector<std::string> &args, std::vector<int> *out);

bool is_terminal();
double ms_since(std::chrono::steady_clock::time_point t0);

// A library handle and, unless only the handle is wanted, one connection.
// Every connection runs in WAL mode with extended result codes, so readers
// and a writer of the same database do not wait for each other.
class Session {
  public:
    Session() = default;
    ~Session() { close(); }
    Session(const Session &) = delete;
    Session &operator=(const Session &) = delete;

    // The configuration database; `root_override` replaces the debug root.
    int open(const Options &o, const std::string &root_override = std::string());
    // The queue's database.
    int open_queue(const Options &o);
    // The handle alone (log files and debug root), without a database.
    int open_handle(const Options &o, const std::string &root_override = std::string());

    // Makes the connection ready for imports and exports: the schema must
    // be current (run `ksdb create` first).
    int connect();
    long schema_version();
    void close();

    ksdb_handle *h() const { return h_; }
    sqlite3 *db() const { return db_; }

  private:
    int open_db(const std::string &path);

    FILE *log_ = nullptr;
    FILE *trace_ = nullptr;
    ksdb_handle *h_ = nullptr;
    sqlite3 *db_ = nullptr;
};

// Imports or exports each category in turn and reports its status, time
// and, for exports, every file put in place as new, changed or unchanged.
// `in_transaction`: the caller holds a transaction on the connection, so
// the categories run inside it.  Returns 0 or the exit status of the first
// failure.
int run_categories(Session &s, const std::vector<int> &cats, bool do_export,
                   bool in_transaction = false);

}  // namespace ksdb_tool
