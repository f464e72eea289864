// Shared test fixtures: a temporary directory, an APR-backed handle, a
// database connection, and readers for the files tests compare.
#pragma once

#define KSDB_NO_SHORT_CATEGORY_NAMES 1
#include "ksdb.h"

#include <pthread.h>
#include <sqlite3.h>

#include <cstdio>
#include <string>
#include <vector>

namespace ksdb_test {

// A fresh directory below $TMPDIR (or /tmp), removed with its content.
class TempDir {
  public:
    TempDir();
    ~TempDir();
    TempDir(const TempDir &) = delete;
    TempDir &operator=(const TempDir &) = delete;
    const std::string &path() const { return path_; }
    std::string operator/(const std::string &rel) const { return path_ + "/" + rel; }

  private:
    std::string path_;
};

// A handle over its own APR pool and recursive mutexes.
class Handle {
  public:
    struct Options {
        FILE *log = nullptr;
        uint32_t level = 0;
        FILE *trace = nullptr;
        const char *root = nullptr;
    };
    Handle() : Handle(Options{}) {}
    explicit Handle(const Options &opts);
    ~Handle();
    Handle(const Handle &) = delete;
    Handle &operator=(const Handle &) = delete;
    ksdb_handle *get() const { return h_; }
    ksdb_handle *operator->() const { return h_; }
    operator ksdb_handle *() const { return h_; }
    apr_pool_t *pool() const { return pool_; }

  private:
    apr_pool_t *pool_ = nullptr;
    pthread_mutex_t mutexes_[3];
    ksdb_sys_info info_{};
    ksdb_handle *h_ = nullptr;
};

// An SQLite connection closed on scope exit.
class Db {
  public:
    explicit Db(const std::string &path = ":memory:");
    ~Db();
    Db(const Db &) = delete;
    Db &operator=(const Db &) = delete;
    sqlite3 *get() const { return db_; }
    operator sqlite3 *() const { return db_; }
    void exec(const std::string &sql);  // fails the test on error
    // First column of every row, NULL as "<NULL>".
    std::vector<std::string> column(const std::string &sql);
    // Every row as "a|b|c", NULL as "<NULL>".
    std::vector<std::string> rows(const std::string &sql);
    std::string scalar(const std::string &sql);

  private:
    sqlite3 *db_ = nullptr;
};

std::string read_file(const std::string &path);
void write_file(const std::string &path, const std::string &content);
bool exists(const std::string &path);
void mkdirs(const std::string &path);

// A FILE* whose whole content can be read back at any time.
class CaptureFile {
  public:
    CaptureFile();
    ~CaptureFile();
    FILE *get() const { return f_; }
    std::string text();  // flushes and reads everything written so far
    std::string unflushed_on_disk();  // what the file holds on disk without flushing

  private:
    FILE *f_;
    std::string path_;
};

std::vector<std::string> lines(const std::string &text);

}  // namespace ksdb_test
