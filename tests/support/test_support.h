// Shared test fixtures: a temporary directory, an APR-backed handle, a
// database connection, and readers for the files tests compare.
#pragma once

#define KSDB_NO_SHORT_CATEGORY_NAMES 1
#include "ksdb.h"

#include <pthread.h>
#include <sqlite3.h>

#include <gtest/gtest.h>

#include <cstdio>
#include <map>
#include <memory>
#include <functional>
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
    std::vector<std::string> column(const std::string &sql) { return rows(sql, true); }
    // Every row as "a|b|c", NULL as "<NULL>".
    std::vector<std::string> rows(const std::string &sql, bool first_column = false);
    std::string scalar(const std::string &sql);

  private:
    sqlite3 *db_ = nullptr;
};

// The rows of a query as Db::rows gives them; a failure's message in *error.
std::vector<std::string> query_rows(sqlite3 *db, const std::string &sql, std::string *error,
                                    bool first_column = false);

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

// Rows of a query, lines of a text, names: what most comparisons are made of.
using Rows = std::vector<std::string>;

std::vector<std::string> lines(const std::string &text);
// The fields of a text between separators ("a,,b" -> "a", "", "b").
std::vector<std::string> split(const std::string &text, char sep);
inline bool contains(const std::string &text, const std::string &part) {
    return text.find(part) != std::string::npos;
}
// Every file below a folder with its content, by path relative to it.
std::map<std::string, std::string> file_tree(const std::string &dir);
// The entries of a folder, sorted, without "." and "..".
std::vector<std::string> list_dir(const std::string &dir);
// A text as an SQL literal ('it''s').
std::string sql_quoted(const std::string &s);

// The current directory for the scope of the object: a command a test
// provokes into running ("touch MARK") would leave its mark there.
class ScopedCwd {
  public:
    explicit ScopedCwd(const std::string &dir);
    ~ScopedCwd();
    ScopedCwd(const ScopedCwd &) = delete;
    ScopedCwd &operator=(const ScopedCwd &) = delete;

  private:
    std::string old_;
};

std::string replace_all(std::string text, const std::string &from, const std::string &to);

// Runs one of the daemons' configuration checkers kept in tests/validators
// (check-smb.sh, check-proftpd.sh) on a file: its exit status, with what it
// printed in *output.
int run_checker(const std::string &script, const std::string &file, std::string *output);
bool have_program(const char *name);

// Runs `work` in a forked child, again and again, and kills the child with
// SIGKILL `delay_us` microseconds after it has started: false when the
// child could not be started or waited for.
bool kill_while_running(const std::function<void()> &work, long delay_us);

// Sets an environment variable for the scope of the object.
class ScopedEnv {
  public:
    ScopedEnv(const char *name, const std::string &value);
    ~ScopedEnv();
    ScopedEnv(const ScopedEnv &) = delete;
    ScopedEnv &operator=(const ScopedEnv &) = delete;

  private:
    std::string name_;
    bool had_;
    std::string old_;
};

// A tmpfs of `bytes` mounted at `dir` (made when missing) for the scope of
// the object.  The mount lives in a mount namespace of the test process's
// own, so nothing outlives the process.  ok() is false (why() says why)
// where the process may not mount: the caller skips.
class ScopedTmpfs {
  public:
    ScopedTmpfs(const std::string &dir, size_t bytes);
    ~ScopedTmpfs();
    ScopedTmpfs(const ScopedTmpfs &) = delete;
    ScopedTmpfs &operator=(const ScopedTmpfs &) = delete;
    bool ok() const { return ok_; }
    const std::string &why() const { return why_; }

  private:
    std::string dir_;
    bool ok_ = false;
    std::string why_;
};

// One recorded call of a fake program: its name, then its arguments.
using FakeCall = std::vector<std::string>;

// A test under a temporary debug root with a fresh database, logging at
// debug level into a capture, and the recording fake programs first on PATH
// (they refuse, and record, any absolute path outside the root).
class RootTest : public ::testing::Test {
  protected:
    RootTest();
    ~RootTest() override;

    ksdb_handle *h() const { return handle_->get(); }
    sqlite3 *db() const { return db_->get(); }
    Db &sql() { return *db_; }
    const std::string &root() const { return root_; }
    // root + live path ("/etc/exports" -> "<root>/etc/exports").
    std::string at(const std::string &live) const { return root_ + live; }
    void put(const std::string &live, const std::string &content) { write_file(at(live), content); }
    std::string get(const std::string &live) const { return read_file(at(live)); }
    std::string log() { return log_.text(); }

    // Every call the fakes recorded since the test began (or the last clear).
    std::vector<FakeCall> fake_calls() const;
    void clear_fake_calls() const;
    // Calls whose program name is `program`.
    std::vector<FakeCall> fake_calls(const std::string &program) const;

    TempDir tmp_;
    std::string root_;
    CaptureFile log_;
    std::unique_ptr<Handle> handle_;
    std::unique_ptr<Db> db_;
    std::string fake_log_;
    std::unique_ptr<ScopedEnv> path_env_, log_env_, root_env_;
};

// The folder of the recording fake programs.
std::string fakes_dir();

}  // namespace ksdb_test
