// Internal side of the command and template helpers.
#pragma once

#include "core/ksdb_internal.h"

#include <string>
#include <string_view>

namespace ksdb {

// `value` as one shell word: wrapped in single quotes, each single quote
// written as '\''.  Every command line that carries a value taken from a
// file or the database goes through this, so a name like "a;touch x" or
// "$(id)" reaches the program as one argument and runs nothing.
std::string shell_quote(std::string_view value);

// A popen()ed command closed on scope exit.
class Pipe {
  public:
    Pipe(const char *command, const char *mode) : f_(popen(command, mode)) {}
    ~Pipe() { close(); }
    Pipe(const Pipe &) = delete;
    Pipe &operator=(const Pipe &) = delete;
    FILE *get() const { return f_; }
    explicit operator bool() const { return f_ != nullptr; }
    // pclose's wait status; -1 when nothing was open.
    int close() {
        int st = f_ ? pclose(f_) : -1;
        f_ = nullptr;
        return st;
    }

  private:
    FILE *f_;
};

}  // namespace ksdb
