// Helpers shared by the tests of the database core.
#pragma once

#include "tests/support/test_support.h"

#include <regex>
#include <string>
#include <thread>
#include <vector>

namespace ksdb_test {

// True when another thread can take the mutex at once: no path left it
// held behind the caller's back.
inline bool lock_free(pthread_mutex_t *m) {
    int rc = -1;
    std::thread([&] {
        rc = pthread_mutex_trylock(m);
        if (rc == 0) pthread_mutex_unlock(m);
    }).join();
    return rc == 0;
}

// The statements of an SQL trace, in order, from the given offset.
inline std::vector<std::string> traced_statements(const std::string &trace, size_t from = 0) {
    static const std::regex statement(R"(sql=([^\n]*)\n)");
    std::vector<std::string> out;
    for (std::sregex_iterator it(trace.begin() + static_cast<long>(from), trace.end(), statement), end;
         it != end; ++it)
        out.push_back((*it)[1].str());
    return out;
}

// The lines of a log or an SQL trace without their time stamp and process
// and thread ids: "ksdb_cifs:42 (error) message", "ksdb_cifs:5sql=...".
inline std::vector<std::string> unstamped(const std::string &text) {
    static const std::regex stamp(R"(^\[[^\]]*\](?: \d+:\d+ |\(\d+:\d+\) ))");
    std::vector<std::string> out;
    for (const std::string &line : lines(text)) out.push_back(std::regex_replace(line, stamp, ""));
    return out;
}

// The calling thread's last error as "layer code module:line message"
// (layer 1 SQLite, 2 the library).
inline std::string last_error() {
    const ksdb_error *e = ksdb_last_error();
    return std::to_string(e->layer) + " " + std::to_string(e->code) + " " + e->module + ":" +
           std::to_string(e->line) + " " + e->message;
}

}  // namespace ksdb_test
