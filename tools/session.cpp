#include "tools/session.h"

#include <strings.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <map>
#include <utility>

#include "tools/files.h"

namespace fs = std::filesystem;

namespace ksdb_tool {

std::string queue_db_path(const Options &o) {
    if (!o.queue_db.empty()) return o.queue_db;
    return (fs::path(o.db).parent_path() / "queue.db").string();
}

int exit_status(int status) {
    if (status < 0) return 255;
    // An extended result code keeps its primary code in the low byte.
    return status > 255 ? (status & 0xff) : status;
}

int fail(int status, const std::string &message) {
    std::fprintf(stderr, "ksdb: %s (status %d: %s)\n", message.c_str(), status,
                 ksdb_strstatus(status));
    return exit_status(status);
}

int usage_error(const std::string &message) {
    std::fprintf(stderr, "ksdb: %s\n%s", message.c_str(), "Try 'ksdb --help'.\n");
    return KSDB_E_INVAL;
}

bool parse_int(const std::string &text, int *out) {
    char *end = nullptr;
    long n = std::strtol(text.c_str(), &end, 10);
    if (text.empty() || *end) return false;
    *out = static_cast<int>(n);
    return true;
}

namespace {

bool parse_category(const std::string &text, int *out) {
    int n = 0;
    if (parse_int(text, &n)) {
        if (n < 0 || n >= KSDB_CATEGORY_COUNT) return false;
        *out = n;
        return true;
    }
    for (int c = 0; c < KSDB_CATEGORY_COUNT; ++c)
        if (strcasecmp(text.c_str(), ksdb_cat2str(c)) == 0) {
            *out = c;
            return true;
        }
    return false;
}

}  // namespace

int parse_categories(const std::vector<std::string> &args, std::vector<int> *out) {
    if (args.empty()) return usage_error("which category? (see 'ksdb categories')");
    for (const auto &a : args) {
        int c = 0;
        if (!parse_category(a, &c))
            return fail(KSDB_E_INVAL, "unknown category '" + a + "' (see 'ksdb categories')");
        out->push_back(c);
    }
    return 0;
}

bool is_terminal() { return isatty(STDOUT_FILENO) == 1; }

double ms_since(std::chrono::steady_clock::time_point t0) {
    return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - t0).count();
}

// ---- the session -------------------------------------------------------------

int Session::open_handle(const Options &o, const std::string &root_override) {
    if (!o.log_path.empty()) {
        log_ = std::fopen(o.log_path.c_str(), "a");
        if (!log_)
            return fail(KSDB_E_FILE,
                        "cannot open log file " + o.log_path + ": " + std::strerror(errno));
    }
    if (!o.trace_path.empty()) {
        trace_ = std::fopen(o.trace_path.c_str(), "a");
        if (!trace_)
            return fail(KSDB_E_FILE,
                        "cannot open trace file " + o.trace_path + ": " + std::strerror(errno));
    }
    // Line by line, so the files can be followed while a command runs.
    if (log_) setvbuf(log_, nullptr, _IOLBF, 0);
    if (trace_) setvbuf(trace_, nullptr, _IOLBF, 0);
    std::string root = root_override.empty() ? o.root : root_override;
    h_ = ksdb_initialize_old(log_ ? log_ : stderr, o.log_level, trace_,
                             root.empty() ? nullptr : root.c_str());
    if (!h_)
        return fail(KSDB_E_INVAL, root.empty() ? "cannot create the library handle"
                                               : "invalid debug root " + root);
    return 0;
}

int Session::open(const Options &o, const std::string &root_override) {
    if (int rc = open_handle(o, root_override)) return rc;
    return open_db(o.db);
}

int Session::open_queue(const Options &o) {
    if (int rc = open_handle(o)) return rc;
    return open_db(queue_db_path(o));
}

int Session::open_db(const std::string &path) {
    fs::path dbpath(path);
    if (dbpath.has_parent_path() && !fs::is_directory(dbpath.parent_path()))
        return fail(KSDB_E_FILE, "cannot open database " + path + ": directory " +
                                     dbpath.parent_path().string() + " does not exist");
    if (sqlite3_open_v2(path.c_str(), &db_, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE,
                        nullptr) != SQLITE_OK) {
        std::string why = db_ ? sqlite3_errmsg(db_) : "out of memory";
        return fail(KSDB_E_FILE, "cannot open database " + path + ": " + why);
    }
    sqlite3_extended_result_codes(db_, 1);
    // Readers see the last commit while a writer works, and a writer does
    // not wait for readers: the mode stays with the file once set.
    int rc = ksdb_sql_exec(h_, db_, nullptr, KSDB_SITE("ksdb_tool"), "PRAGMA journal_mode=WAL");
    if (rc != 0) return fail(rc, "cannot put database " + path + " in WAL mode");
    return 0;
}

int Session::connect() {
    int rc = ksdb_connect(h_, db_);
    if (rc == KSDB_E_INVAL)
        return fail(rc, "the database is not at schema version " +
                            std::to_string(KSDB_SCHEMA_VERSION) + "; run 'ksdb create'");
    if (rc != 0) return fail(rc, "cannot prepare the database connection");
    return 0;
}

long Session::schema_version() {
    int64_t v = -1;
    int is_null = 0;
    if (ksdb_sql_get_int64_mprintf(h_, db_, nullptr, KSDB_SITE("ksdb_tool"), &v, &is_null,
                                   "PRAGMA user_version") != 0)
        return -1;
    return static_cast<long>(v);
}

void Session::close() {
    if (db_) sqlite3_close(db_);
    db_ = nullptr;
    if (h_) {
        std::free(h_->sys_info);
        ksdb_pool_destroy_old(h_);
        std::free(h_);
        h_ = nullptr;
    }
    if (log_) std::fclose(log_);
    if (trace_) std::fclose(trace_);
    log_ = trace_ = nullptr;
}

// ---- the report of a run -------------------------------------------------------

namespace {

struct Progress {
    bool live = false;  // print steps as they run
    // Files put in place, in order: "new", "changed", "fixed" (same content,
    // owner or mode set) or "unchanged".
    std::vector<std::pair<std::string, const char *>> replaced;
};

void on_step(void *arg, const char *name, int phase, int status) {
    auto *p = static_cast<Progress *>(arg);
    if (!p->live) return;
    if (phase == 0) {
        std::printf("  %-44s ...", name);
        std::fflush(stdout);
    } else {
        std::printf("\r  %-44s %s\n", name,
                    status == 0 ? "ok " : ("failed " + std::to_string(status)).c_str());
    }
}

// The library says what each commit did to its target.
void on_file_done(void *arg, const char *target, int outcome, int status) {
    auto *p = static_cast<Progress *>(arg);
    if (status != 0) return;
    const char *kind = outcome == KSDB_FILE_NEW         ? "new"
                       : outcome == KSDB_FILE_UNCHANGED ? "unchanged"
                       : outcome == KSDB_FILE_FIXED     ? "fixed"
                                                        : "changed";
    p->replaced.emplace_back(target, kind);
}

class Observe {
  public:
    explicit Observe(Progress *p) {
        ksdb_observer o{};
        o.step = on_step;
        o.file_done = on_file_done;
        o.arg = p;
        ksdb_set_observer(&o);
    }
    ~Observe() { ksdb_set_observer(nullptr); }
    Observe(const Observe &) = delete;
    Observe &operator=(const Observe &) = delete;
};

}  // namespace

int run_categories(Session &s, const std::vector<int> &cats, bool do_export,
                   bool in_transaction) {
    const char *verb = do_export ? "export" : "import";
    for (int cat : cats) {
        Progress progress;
        progress.live = is_terminal();
        const char *name = ksdb_cat2str(cat);
        if (progress.live) std::printf("%s %s\n", verb, name);
        auto t0 = std::chrono::steady_clock::now();
        int rc;
        {
            Observe observe(&progress);
            if (in_transaction)
                rc = do_export ? ksdb_export_nolock(s.h(), s.db(), cat)
                               : ksdb_import_nolock(s.h(), s.db(), cat);
            else
                rc = do_export ? ksdb_export(s.h(), s.db(), cat) : ksdb_import(s.h(), s.db(), cat);
        }
        double ms = ms_since(t0);
        if (rc == 0)
            std::printf("%s %s: ok (%.0f ms)\n", verb, name, ms);
        else
            std::printf("%s %s: failed with status %d: %s (%.0f ms)\n", verb, name, rc,
                        ksdb_strstatus(rc), ms);
        if (do_export)
            for (const auto &[file, what] : progress.replaced)
                std::printf("  %-9s %s\n", what, file.c_str());
        if (rc != 0) return exit_status(rc);
    }
    return 0;
}

}  // namespace ksdb_tool
