#include "tests/support/test_support.h"

#include "tests/support/case_runner.h"

#include <gtest/gtest.h>

#include <apr_general.h>
#include <sched.h>
#include <signal.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>

namespace ksdb_test {

namespace {

struct AprInit {
    AprInit() { apr_initialize(); }
};

}  // namespace

TempDir::TempDir() {
    const char *base = std::getenv("TMPDIR");
    std::string tmpl = std::string(base && *base ? base : "/tmp") + "/ksdb-test-XXXXXX";
    char *made = mkdtemp(tmpl.data());
    if (!made) std::abort();
    path_ = made;
}

TempDir::~TempDir() {
    std::error_code ec;
    std::filesystem::remove_all(path_, ec);
}

ScopedTmpfs::ScopedTmpfs(const std::string &dir, size_t bytes) : dir_(dir) {
    // Once per process: a mount namespace of its own, with nothing
    // propagated back to the machine's.
    static const std::string setup = [] {
        if (unshare(CLONE_NEWNS) != 0) return std::string("unshare: ") + std::strerror(errno);
        if (mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0)
            return std::string("private mounts: ") + std::strerror(errno);
        return std::string();
    }();
    if (!setup.empty()) {
        why_ = "cannot mount a tmpfs here (" + setup + ")";
        return;
    }
    mkdirs(dir);
    const std::string options = "size=" + std::to_string(bytes) + ",mode=0755";
    if (mount("tmpfs", dir.c_str(), "tmpfs", 0, options.c_str()) != 0) {
        why_ = "cannot mount a tmpfs here (" + std::string(std::strerror(errno)) + ")";
        return;
    }
    ok_ = true;
}

ScopedTmpfs::~ScopedTmpfs() {
    if (ok_) umount2(dir_.c_str(), MNT_DETACH);
}

Handle::Handle(const Options &opts) {
    static AprInit init;
    apr_pool_create(&pool_, nullptr);
    pthread_mutexattr_t attr;
    pthread_mutexattr_init(&attr);
    pthread_mutexattr_settype(&attr, PTHREAD_MUTEX_RECURSIVE);
    for (auto &m : mutexes_) pthread_mutex_init(&m, &attr);
    pthread_mutexattr_destroy(&attr);
    h_ = ksdb_initialize(pool_, opts.log, opts.level, opts.trace, &mutexes_[0], &mutexes_[1],
                         &mutexes_[2], opts.root, &info_, 0);
}

Handle::~Handle() {
    std::free(h_);
    for (auto &m : mutexes_) pthread_mutex_destroy(&m);
    apr_pool_destroy(pool_);
}

Db::Db(const std::string &path) {
    if (sqlite3_open(path.c_str(), &db_) != SQLITE_OK) ADD_FAILURE() << "cannot open " << path;
}

Db::~Db() { sqlite3_close(db_); }

void Db::exec(const std::string &sql) {
    char *err = nullptr;
    int rc = sqlite3_exec(db_, sql.c_str(), nullptr, nullptr, &err);
    EXPECT_EQ(rc, SQLITE_OK) << sql << ": " << (err ? err : "");
    sqlite3_free(err);
}

std::vector<std::string> query_rows(sqlite3 *db, const std::string &sql, std::string *error,
                                    bool first_column) {
    std::vector<std::string> out;
    sqlite3_stmt *st = nullptr;
    if (sqlite3_prepare_v2(db, sql.c_str(), -1, &st, nullptr) != SQLITE_OK) {
        *error = sqlite3_errmsg(db);
        return out;
    }
    while (sqlite3_step(st) == SQLITE_ROW) {
        std::string row;
        for (int c = 0; c < (first_column ? 1 : sqlite3_column_count(st)); ++c) {
            const unsigned char *v = sqlite3_column_text(st, c);
            row += (c ? "|" : "") + std::string(v ? reinterpret_cast<const char *>(v) : "<NULL>");
        }
        out.push_back(row);
    }
    sqlite3_finalize(st);
    return out;
}

std::vector<std::string> Db::rows(const std::string &sql, bool first_column) {
    std::string error;
    auto out = query_rows(db_, sql, &error, first_column);
    if (!error.empty()) ADD_FAILURE() << sql << ": " << error;
    return out;
}

std::string Db::scalar(const std::string &sql) {
    auto col = column(sql);
    return col.empty() ? std::string("<none>") : col[0];
}

std::string read_file(const std::string &path) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream ss;
    ss << in.rdbuf();
    return ss.str();
}

void write_file(const std::string &path, const std::string &content) {
    auto slash = path.rfind('/');
    if (slash != std::string::npos && slash > 0) mkdirs(path.substr(0, slash));
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out << content;
}

bool exists(const std::string &path) {
    struct stat st;
    return lstat(path.c_str(), &st) == 0;
}

void mkdirs(const std::string &path) {
    std::error_code ec;
    std::filesystem::create_directories(path, ec);
}

CaptureFile::CaptureFile() {
    char tmpl[] = "/tmp/ksdb-capture-XXXXXX";
    int fd = mkstemp(tmpl);
    path_ = tmpl;
    f_ = fdopen(fd, "w+");
    // Fully buffered, so a test can tell a flushed line from a buffered one.
    setvbuf(f_, nullptr, _IOFBF, 1 << 16);
}

CaptureFile::~CaptureFile() {
    std::fclose(f_);
    unlink(path_.c_str());
}

std::string CaptureFile::text() {
    std::fflush(f_);
    return read_file(path_);
}

std::string CaptureFile::unflushed_on_disk() { return read_file(path_); }

std::map<std::string, std::string> file_tree(const std::string &dir) {
    std::map<std::string, std::string> out;
    for (const std::string &rel : files_below(dir)) out[rel] = read_file(dir + "/" + rel);
    return out;
}

std::vector<std::string> list_dir(const std::string &dir) {
    std::vector<std::string> out;
    std::error_code ec;
    for (const auto &e : std::filesystem::directory_iterator(dir, ec)) out.push_back(e.path().filename());
    std::sort(out.begin(), out.end());
    return out;
}

std::string sql_quoted(const std::string &s) { return "'" + replace_all(s, "'", "''") + "'"; }

ScopedCwd::ScopedCwd(const std::string &dir) {
    char buf[4096];
    if (getcwd(buf, sizeof buf)) old_ = buf;
    EXPECT_EQ(chdir(dir.c_str()), 0);
}

ScopedCwd::~ScopedCwd() {
    if (!old_.empty()) {
        EXPECT_EQ(chdir(old_.c_str()), 0);
    }
}

std::vector<std::string> split(const std::string &text, char sep) {
    std::vector<std::string> out;
    for (size_t p = 0, q = 0; q != std::string::npos; p = q + 1) {
        q = text.find(sep, p);
        out.push_back(text.substr(p, q == std::string::npos ? q : q - p));
    }
    return out;
}

std::vector<std::string> lines(const std::string &text) {
    std::vector<std::string> out;
    std::stringstream ss(text);
    std::string line;
    while (std::getline(ss, line)) out.push_back(line);
    return out;
}

ScopedEnv::ScopedEnv(const char *name, const std::string &value) : name_(name) {
    const char *old = std::getenv(name);
    had_ = old != nullptr;
    if (old) old_ = old;
    setenv(name, value.c_str(), 1);
}

ScopedEnv::~ScopedEnv() {
    if (had_)
        setenv(name_.c_str(), old_.c_str(), 1);
    else
        unsetenv(name_.c_str());
}

std::string fakes_dir() { return KSDB_TEST_FAKES_DIR; }

std::string replace_all(std::string text, const std::string &from, const std::string &to) {
    for (size_t p = 0; (p = text.find(from, p)) != std::string::npos; p += to.size())
        text.replace(p, from.size(), to);
    return text;
}

int run_checker(const std::string &script, const std::string &file, std::string *output) {
    const std::string dir = fakes_dir() + "/../validators/";
    const std::string out = file + ".check-output";
    const std::string cmd = "sh '" + dir + script + "' '" + file + "' >'" + out + "' 2>&1";
    int st = std::system(cmd.c_str());
    *output = read_file(out);
    unlink(out.c_str());
    return WIFEXITED(st) ? WEXITSTATUS(st) : -1;
}

bool have_program(const char *name) {
    return std::system((std::string("command -v ") + name + " >/dev/null 2>&1").c_str()) == 0;
}

RootTest::RootTest() {
    root_ = tmp_ / "root";
    mkdirs(root_);
    mkdirs(root_ + "/tmp");
    fake_log_ = tmp_ / "fake-calls";
    const char *path = std::getenv("PATH");
    path_env_ = std::make_unique<ScopedEnv>("PATH", fakes_dir() + ":" + (path ? path : "/usr/bin:/bin"));
    log_env_ = std::make_unique<ScopedEnv>("KSDB_FAKE_LOG", fake_log_);
    root_env_ = std::make_unique<ScopedEnv>("KSDB_FAKE_ROOT", root_);
    Handle::Options opts;
    opts.log = log_.get();
    opts.level = 5;
    opts.root = root_.c_str();
    handle_ = std::make_unique<Handle>(opts);
    db_ = std::make_unique<Db>(tmp_ / "test.db");
}

RootTest::~RootTest() {
    db_.reset();
    handle_.reset();
    for (const FakeCall &call : fake_calls())
        if (!call.empty() && call[0] == "VIOLATION")
            ADD_FAILURE() << "a command was given a path outside the debug root: "
                          << (call.size() > 2 ? call[1] + " " + call[2] : "");
}

std::vector<FakeCall> RootTest::fake_calls() const {
    std::vector<FakeCall> calls;
    std::vector<std::string> records = split(read_file(fake_log_), '\036');
    records.pop_back();  // every record ends with the separator
    for (const std::string &record : records) calls.push_back(split(record, '\037'));
    return calls;
}

void RootTest::clear_fake_calls() const { unlink(fake_log_.c_str()); }

std::vector<FakeCall> RootTest::fake_calls(const std::string &program) const {
    std::vector<FakeCall> out;
    for (auto &c : fake_calls())
        if (!c.empty() && c[0] == program) out.push_back(c);
    return out;
}

bool kill_while_running(const std::function<void()> &work, long delay_us) {
    int ready[2];
    if (pipe(ready) != 0) return false;
    const pid_t pid = fork();
    if (pid < 0) return false;
    if (pid == 0) {
        close(ready[0]);
        (void)!::write(ready[1], "r", 1);
        for (;;) work();
    }
    close(ready[1]);
    char c;
    (void)!::read(ready[0], &c, 1);
    close(ready[0]);
    usleep(static_cast<useconds_t>(delay_us));
    kill(pid, SIGKILL);
    int status = 0;
    return waitpid(pid, &status, 0) == pid;
}

}  // namespace ksdb_test
