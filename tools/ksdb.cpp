// ksdb: the command-line tool of the configuration database.
//
// Built on the public C interface only (ksdb.h): whatever it needs that the
// interface lacks belongs in the library, not here.
#include <ksdb.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "tools/demo_files.h"

namespace fs = std::filesystem;

namespace {

const char kUsage[] =
    "usage: ksdb [options] COMMAND [arguments]\n"
    "\n"
    "options:\n"
    "  --db FILE        the database (default $KSDB_DB, else /var/lib/ksdb/ksdb.db)\n"
    "  --root DIR       debug root: read and write every file below DIR\n"
    "  --log-level N    0 nothing, 1 fatal, 2 error, 3 warn (default), 4 info, 5 debug\n"
    "  --log FILE       the library log (default standard error)\n"
    "  --trace FILE     the SQL trace (written from log level 4)\n"
    "  --help           this text\n"
    "\n"
    "commands:\n"
    "  create                       create or upgrade the schema\n"
    "  import CATEGORY...           import each category from the system into the database\n"
    "  export CATEGORY...           export each category from the database into the system\n"
    "  diff CATEGORY...             show what an export would change, changing nothing\n"
    "  queue create [--maxlen N]    (re)create the message queue, discarding its messages\n"
    "  queue push [--src S] [--dst D] [--pri N] [--at TIME] MESSAGE\n"
    "  queue pop|read [--src S] [--dst D]\n"
    "  queue remove ID [--clean SECONDS]\n"
    "  queue clear                  remove every message\n"
    "  queue stat [--src S] [--dst D]\n"
    "  sql [--json] QUERY           run a query, print an aligned table (or JSON lines)\n"
    "  categories                   the categories and what each imports and exports\n"
    "  demo [DIR]                   run the demo appliance in DIR (default a new temporary folder)\n"
    "\n"
    "A CATEGORY is a name as `ksdb categories` lists it (any case) or its number.\n"
    "TIME is seconds since the epoch, +SECONDS from now, or \"YYYY-MM-DD HH:MM:SS\" local time.\n"
    "\n"
    "exit status: the library's status of the first failing step:\n"
    "  0 success\n"
    "  1 a table helper or a step of a chain failed (SQLite: SQL error)\n"
    "  2 an imported file breaks a rule of its format\n"
    "  3 a database step or transaction failed\n"
    "  4 invalid argument or unhandled category (also: bad command line)\n"
    "  5 a file, buffer or parse failure (also: the database cannot be opened)\n"
    "  8 a helper command could not be started\n"
    "  9 an external command or directory search failed\n"
    "  255 a single-value query gave several rows or columns (-1)\n"
    "  other values are SQLite result codes, passed through\n";

struct Options {
    std::string db;
    std::string root;
    std::string log_path;
    std::string trace_path;
    uint32_t log_level = KSDB_LOG_WARN;
    bool log_level_given = false;
};

int fail(int status, const std::string &message) {
    std::fprintf(stderr, "ksdb: %s (status %d: %s)\n", message.c_str(), status,
                 ksdb_strstatus(status));
    return status < 0 ? 255 : status;
}

int usage_error(const std::string &message) {
    std::fprintf(stderr, "ksdb: %s\n%s", message.c_str(), "Try 'ksdb --help'.\n");
    return KSDB_E_INVAL;
}

bool is_terminal() { return isatty(STDOUT_FILENO) == 1; }

// ---- the session: handle and connection --------------------------------------

class Session {
  public:
    Session() = default;
    ~Session() { close(); }
    Session(const Session &) = delete;
    Session &operator=(const Session &) = delete;

    // Opens the log files, the handle and the database.  Returns 0 or a
    // status, with the message printed.
    int open(const Options &o, const std::string &root_override = std::string()) {
        if (!o.log_path.empty()) {
            log_ = std::fopen(o.log_path.c_str(), "a");
            if (!log_) return fail(KSDB_E_FILE, "cannot open log file " + o.log_path + ": " +
                                                    std::strerror(errno));
        }
        if (!o.trace_path.empty()) {
            trace_ = std::fopen(o.trace_path.c_str(), "a");
            if (!trace_) return fail(KSDB_E_FILE, "cannot open trace file " + o.trace_path +
                                                      ": " + std::strerror(errno));
        }
        std::string root = root_override.empty() ? o.root : root_override;
        h_ = ksdb_initialize_old(log_ ? log_ : stderr, o.log_level, trace_,
                                 root.empty() ? nullptr : root.c_str());
        if (!h_)
            return fail(KSDB_E_INVAL, root.empty() ? "cannot create the library handle"
                                                   : "invalid debug root " + root);
        fs::path dbpath(o.db);
        if (dbpath.has_parent_path() && !fs::is_directory(dbpath.parent_path()))
            return fail(KSDB_E_FILE, "cannot open database " + o.db + ": directory " +
                                         dbpath.parent_path().string() + " does not exist");
        if (sqlite3_open_v2(o.db.c_str(), &db_, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE,
                            nullptr) != SQLITE_OK) {
            std::string why = db_ ? sqlite3_errmsg(db_) : "out of memory";
            return fail(KSDB_E_FILE, "cannot open database " + o.db + ": " + why);
        }
        return 0;
    }

    // Makes the connection ready for imports and exports: the schema must
    // be current (run `ksdb create` first).
    int connect() {
        int rc = ksdb_connect(h_, db_);
        if (rc == KSDB_E_INVAL)
            return fail(rc, "the database is not at schema version " +
                                std::to_string(KSDB_SCHEMA_VERSION) + "; run 'ksdb create'");
        if (rc != 0) return fail(rc, "cannot prepare the database connection");
        return 0;
    }

    long schema_version() {
        int64_t v = -1;
        int is_null = 0;
        if (ksdb_sql_get_int64_mprintf(h_, db_, nullptr, KSDB_SITE("ksdb_tool"), &v, &is_null,
                                       "PRAGMA user_version") != 0)
            return -1;
        return static_cast<long>(v);
    }

    void close() {
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

    ksdb_handle *h() const { return h_; }
    sqlite3 *db() const { return db_; }

  private:
    FILE *log_ = nullptr;
    FILE *trace_ = nullptr;
    ksdb_handle *h_ = nullptr;
    sqlite3 *db_ = nullptr;
};

// ---- categories ------------------------------------------------------------

bool parse_category(const std::string &text, int *out) {
    char *end = nullptr;
    long n = std::strtol(text.c_str(), &end, 10);
    if (!text.empty() && *end == '\0') {
        if (n < 0 || n >= KSDB_CATEGORY_COUNT) return false;
        *out = static_cast<int>(n);
        return true;
    }
    for (int c = 0; c < KSDB_CATEGORY_COUNT; ++c)
        if (strcasecmp(text.c_str(), ksdb_cat2str(c)) == 0) {
            *out = c;
            return true;
        }
    return false;
}

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

// ---- progress of a run --------------------------------------------------------

struct Progress {
    bool live = false;  // print steps as they run
    // Files put in place, in order: "new", "changed" or "unchanged".
    std::vector<std::pair<std::string, const char *>> replaced;
    std::map<std::string, const char *> pending;
};

bool same_content(const fs::path &a, const fs::path &b);

void on_step(void *arg, const char *name, int phase, int status) {
    auto *p = static_cast<Progress *>(arg);
    if (!p->live) return;
    if (phase == 0) {
        std::printf("  %-44s ...", name);
        std::fflush(stdout);
    } else {
        std::printf("\r  %-44s %s\n", name, status == 0 ? "ok " : ("failed " + std::to_string(status)).c_str());
    }
}

// Before a file is put in place its new content is compared with the old,
// so the report can tell changed files from rewritten ones.
void on_file(void *arg, const char *target, const char *tmp_path, int phase, int status) {
    auto *p = static_cast<Progress *>(arg);
    std::error_code ec;
    if (phase == 0) {
        p->pending[target] = !fs::exists(target, ec)          ? "new"
                             : same_content(target, tmp_path) ? "unchanged"
                                                              : "changed";
        return;
    }
    if (status != 0) return;
    auto it = p->pending.find(target);
    p->replaced.emplace_back(target, it == p->pending.end() ? "changed" : it->second);
}

class Observe {
  public:
    explicit Observe(Progress *p) {
        ksdb_observer o{};
        o.step = on_step;
        o.file = on_file;
        o.arg = p;
        ksdb_set_observer(&o);
    }
    ~Observe() { ksdb_set_observer(nullptr); }
};

double ms_since(std::chrono::steady_clock::time_point t0) {
    return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - t0).count();
}

int run_categories(Session &s, const std::vector<int> &cats, bool do_export) {
    for (int cat : cats) {
        Progress progress;
        progress.live = is_terminal();
        const char *name = ksdb_cat2str(cat);
        if (progress.live) std::printf("%s %s\n", do_export ? "export" : "import", name);
        auto t0 = std::chrono::steady_clock::now();
        int rc;
        {
            Observe observe(&progress);
            rc = do_export ? ksdb_export(s.h(), s.db(), cat) : ksdb_import(s.h(), s.db(), cat);
        }
        double ms = ms_since(t0);
        if (rc == 0)
            std::printf("%s %s: ok (%.0f ms)\n", do_export ? "export" : "import", name, ms);
        else
            std::printf("%s %s: failed with status %d: %s (%.0f ms)\n",
                        do_export ? "export" : "import", name, rc, ksdb_strstatus(rc), ms);
        if (do_export)
            for (const auto &[file, what] : progress.replaced)
                std::printf("  %-9s %s\n", what, file.c_str());
        if (rc != 0) return rc < 0 ? 255 : rc;
    }
    return 0;
}

// ---- diff: an export into a scratch copy ----------------------------------------

// Copies a tree, keeping symbolic links as links; missing sources are skipped.
void copy_tree(const fs::path &from, const fs::path &to) {
    std::error_code ec;
    if (!fs::exists(fs::symlink_status(from, ec))) return;
    fs::create_directories(to.parent_path(), ec);
    fs::copy(from, to,
             fs::copy_options::recursive | fs::copy_options::copy_symlinks |
                 fs::copy_options::overwrite_existing,
             ec);
}

// The live-system folders an export can write: the configuration folders,
// the run-time share files and each volume's share-settings folder.
std::vector<std::string> live_roots(Session &s) {
    std::vector<std::string> roots = {"/etc", "/run/usb", "/opt/replication/etc"};
    char **table = nullptr;
    int nrow = 0, ncol = 0;
    if (ksdb_sql_get_table(s.h(), s.db(), nullptr, KSDB_SITE("ksdb_tool"), &table, &nrow, &ncol,
                           "SELECT lv_name FROM _volume WHERE lv_name<>'media'") == 0) {
        for (int r = 1; r <= nrow; ++r)
            if (table[r * ncol]) {
                roots.push_back(std::string("/") + table[r * ncol] + "/._share");
                roots.push_back(std::string("/") + table[r * ncol] + "/.volume_schedule.conf");
            }
    }
    sqlite3_free_table(table);
    return roots;
}

// Every regular file below `dir`, relative to it.
std::set<std::string> files_below(const fs::path &dir) {
    std::set<std::string> out;
    std::error_code ec;
    if (!fs::is_directory(dir, ec)) return out;
    for (auto it = fs::recursive_directory_iterator(dir, fs::directory_options::skip_permission_denied, ec);
         it != fs::recursive_directory_iterator(); it.increment(ec)) {
        if (ec) break;
        if (it->is_regular_file(ec)) out.insert(fs::relative(it->path(), dir, ec).string());
    }
    return out;
}

bool same_content(const fs::path &a, const fs::path &b) {
    std::error_code ec;
    if (fs::file_size(a, ec) != fs::file_size(b, ec)) return false;
    FILE *fa = std::fopen(a.c_str(), "rb");
    FILE *fb = std::fopen(b.c_str(), "rb");
    bool same = fa && fb;
    char ba[65536], bb[65536];
    while (same) {
        size_t na = std::fread(ba, 1, sizeof ba, fa), nb = std::fread(bb, 1, sizeof bb, fb);
        if (na != nb || std::memcmp(ba, bb, na) != 0) same = false;
        if (na == 0) break;
    }
    if (fa) std::fclose(fa);
    if (fb) std::fclose(fb);
    return same;
}

// Prints a unified diff of two files (either may be missing) with the
// system's diff; returns true when they differ.
bool print_diff(const std::string &label, const fs::path &old_file, const fs::path &new_file) {
    std::string old_arg = fs::exists(old_file) ? old_file.string() : "/dev/null";
    std::string new_arg = fs::exists(new_file) ? new_file.string() : "/dev/null";
    std::fflush(stdout);
    pid_t pid = fork();
    if (pid == 0) {
        std::string a = "a" + label, b = "b" + label;
        execlp("diff", "diff", "-u", "--label", a.c_str(), "--label", b.c_str(), old_arg.c_str(),
               new_arg.c_str(), static_cast<char *>(nullptr));
        _exit(127);
    }
    int status = 0;
    waitpid(pid, &status, 0);
    return WIFEXITED(status) && WEXITSTATUS(status) == 1;
}

int cmd_diff(const Options &o, const std::vector<std::string> &args) {
    std::vector<int> cats;
    if (int rc = parse_categories(args, &cats)) return rc;

    // The volume list and the database come from the real session; the
    // export itself runs with a handle whose debug root is the scratch copy.
    Session live;
    if (int rc = live.open(o)) return rc;
    if (int rc = live.connect()) return rc;

    char tmpl[] = "/tmp/ksdb-diff-XXXXXX";
    if (!mkdtemp(tmpl)) return fail(KSDB_E_FILE, std::string("cannot make a scratch folder: ") + std::strerror(errno));
    fs::path scratch(tmpl);
    fs::path source = o.root.empty() ? fs::path("/") : fs::path(o.root);
    std::vector<std::string> roots;
    if (o.root.empty()) {
        roots = live_roots(live);
        for (const auto &r : roots) copy_tree(r, scratch / r.substr(1));
    } else {
        copy_tree(source, scratch);
        roots = {"/"};
    }
    fs::create_directories(scratch / "tmp");

    Session dry;
    int rc = dry.open(o, scratch.string());
    if (rc == 0) {
        // The scratch handle shares the live connection, inside one
        // transaction that is rolled back: nothing in the database changes.
        ksdb_handle *h = dry.h();
        sqlite3 *db = live.db();
        rc = ksdb_sql_begin(h, db, nullptr, KSDB_SITE("ksdb_tool"));
        if (rc == 0)
            for (int cat : cats) {
                rc = ksdb_export_nolock(h, db, cat);
                if (rc != 0) {
                    fail(rc, std::string("export ") + ksdb_cat2str(cat) + " failed");
                    break;
                }
            }
        ksdb_sql_rollback(h, db, nullptr, KSDB_SITE("ksdb_tool"));
    }

    int changed = 0;
    if (rc == 0) {
        std::set<std::string> files;
        for (const auto &r : roots) {
            fs::path rel = r == "/" ? fs::path() : fs::path(r.substr(1));
            for (const auto &f : files_below(scratch / rel)) files.insert((rel / f).string());
            if (!o.root.empty() || fs::is_directory(r))
                for (const auto &f : files_below(source / rel)) files.insert((rel / f).string());
            else if (fs::exists(scratch / rel) || fs::exists(source / rel))
                files.insert(rel.string());
        }
        for (const auto &f : files) {
            // The writer keeps each replaced file as <name>.bak: a backup,
            // not something the export made.
            if (f.rfind("tmp/", 0) == 0 || f.rfind("var/log/", 0) == 0 || f.ends_with(".bak"))
                continue;
            fs::path before = source / f, after = scratch / f;
            if (fs::exists(before) && fs::exists(after) && same_content(before, after)) continue;
            if (print_diff("/" + f, before, after)) ++changed;
        }
        std::printf("%d file%s would change\n", changed, changed == 1 ? "" : "s");
    }
    std::error_code ec;
    fs::remove_all(scratch, ec);
    return rc < 0 ? 255 : rc;
}

// ---- queue --------------------------------------------------------------------

bool parse_time(const std::string &text, int *out) {
    char *end = nullptr;
    if (!text.empty() && text[0] == '+') {
        long n = std::strtol(text.c_str() + 1, &end, 10);
        if (*end) return false;
        *out = static_cast<int>(time(nullptr) + n);
        return true;
    }
    long n = std::strtol(text.c_str(), &end, 10);
    if (!text.empty() && *end == '\0') {
        *out = static_cast<int>(n);
        return true;
    }
    struct tm tm {};
    const char *rest = strptime(text.c_str(), "%Y-%m-%d %H:%M:%S", &tm);
    if (!rest || *rest) return false;
    tm.tm_isdst = -1;
    *out = static_cast<int>(mktime(&tm));
    return true;
}

bool parse_int(const std::string &text, int *out) {
    char *end = nullptr;
    long n = std::strtol(text.c_str(), &end, 10);
    if (text.empty() || *end) return false;
    *out = static_cast<int>(n);
    return true;
}

int cmd_queue(const Options &o, std::vector<std::string> args) {
    if (args.empty()) return usage_error("queue: which operation?");
    std::string op = args[0];
    args.erase(args.begin());
    std::string src, dst;
    bool have_src = false, have_dst = false;
    int pri = 0, at = 0, maxlen = 0, clean = -1;
    bool have_at = false;
    std::vector<std::string> rest;
    for (size_t i = 0; i < args.size(); ++i) {
        const std::string &a = args[i];
        auto value = [&](const char *what) -> const std::string * {
            if (i + 1 >= args.size()) return nullptr;
            (void)what;
            return &args[++i];
        };
        if (a == "--src" || a == "--dst" || a == "--pri" || a == "--at" || a == "--maxlen" ||
            a == "--clean") {
            const std::string *v = value(a.c_str());
            if (!v) return usage_error(a + " needs a value");
            if (a == "--src") src = *v, have_src = true;
            else if (a == "--dst") dst = *v, have_dst = true;
            else if (a == "--pri" && !parse_int(*v, &pri)) return usage_error("bad --pri " + *v);
            else if (a == "--at" && !(have_at = parse_time(*v, &at))) return usage_error("bad --at " + *v);
            else if (a == "--maxlen" && !parse_int(*v, &maxlen)) return usage_error("bad --maxlen " + *v);
            else if (a == "--clean" && !parse_int(*v, &clean)) return usage_error("bad --clean " + *v);
        } else {
            rest.push_back(a);
        }
    }
    Session s;
    if (int rc = s.open(o)) return rc;
    const char *srcp = have_src ? src.c_str() : nullptr;
    const char *dstp = have_dst ? dst.c_str() : nullptr;
    int rc;
    if (op == "create") {
        rc = ksdb_queue_create(s.h(), s.db(), maxlen);
    } else if (op == "push") {
        if (rest.size() != 1) return usage_error("queue push: one MESSAGE");
        rc = ksdb_queue_push(s.h(), s.db(), src.c_str(), dst.c_str(), rest[0].c_str(), pri,
                             have_at ? at : static_cast<int>(time(nullptr)));
    } else if (op == "pop" || op == "read") {
        char *val = nullptr, *so = nullptr, *dout = nullptr;
        int ts = 0, id = 0;
        rc = op == "pop" ? ksdb_queue_pop(s.h(), s.db(), srcp, dstp, &val, &ts, &so, &dout)
                         : ksdb_queue_read(s.h(), s.db(), srcp, dstp, &val, &ts, &so, &dout, &id);
        if (rc == 0) {
            if (!val) {
                std::printf("(no message)\n");
            } else {
                if (op == "read") std::printf("id:  %d\n", id);
                std::printf("src: %s\ndst: %s\nts:  %d\nval: %s\n", so ? so : "", dout ? dout : "",
                            ts, val);
            }
        }
    } else if (op == "remove") {
        int id = 0;
        if (rest.size() != 1 || !parse_int(rest[0], &id)) return usage_error("queue remove: ID");
        rc = clean >= 0 ? ksdb_queue_remove_clean(s.h(), s.db(), id, clean)
                        : ksdb_queue_remove(s.h(), s.db(), id);
    } else if (op == "clear") {
        rc = ksdb_queue_remove_all(s.h(), s.db());
    } else if (op == "stat") {
        int len = 0;
        rc = ksdb_queue_stat(s.h(), s.db(), srcp, dstp, &len);
        if (rc == 0) std::printf("%d\n", len);
    } else {
        return usage_error("queue: unknown operation '" + op + "'");
    }
    if (rc != 0) return fail(rc, "queue " + op + " failed");
    return 0;
}

// ---- sql ------------------------------------------------------------------------

std::string json_string(const char *s) {
    std::string out = "\"";
    for (const unsigned char *p = reinterpret_cast<const unsigned char *>(s); *p; ++p) {
        switch (*p) {
        case '"': out += "\\\""; break;
        case '\\': out += "\\\\"; break;
        case '\n': out += "\\n"; break;
        case '\r': out += "\\r"; break;
        case '\t': out += "\\t"; break;
        default:
            if (*p < 0x20) {
                char buf[8];
                std::snprintf(buf, sizeof buf, "\\u%04x", *p);
                out += buf;
            } else {
                out += static_cast<char>(*p);
            }
        }
    }
    return out + "\"";
}

// Display width of UTF-8 text (one column per code point).
size_t width(const char *s) {
    size_t w = 0;
    for (; *s; ++s)
        if ((static_cast<unsigned char>(*s) & 0xC0) != 0x80) ++w;
    return w;
}

int cmd_sql(const Options &o, std::vector<std::string> args) {
    bool json = false;
    if (!args.empty() && args[0] == "--json") {
        json = true;
        args.erase(args.begin());
    }
    if (args.size() != 1) return usage_error("sql: one QUERY");
    Session s;
    if (int rc = s.open(o)) return rc;
    // Scratch tables such as _volume exist per connection: make them when
    // the schema is current, so queries can read them.
    if (s.schema_version() == KSDB_SCHEMA_VERSION) ksdb_connect(s.h(), s.db());
    char **table = nullptr;
    int nrow = 0, ncol = 0;
    char *msg = nullptr;
    int rc = ksdb_sql_get_table(s.h(), s.db(), &msg, KSDB_SITE("ksdb_tool"), &table, &nrow, &ncol,
                                args[0].c_str());
    if (rc != 0) {
        std::fprintf(stderr, "ksdb: query failed: %s (status %d: %s)\n", sqlite3_errmsg(s.db()),
                     rc, sqlite3_errstr(rc));
        sqlite3_free_table(table);
        return rc;
    }
    auto cell = [&](int r, int c) -> const char * { return table[r * ncol + c]; };
    if (json) {
        for (int r = 1; r <= nrow; ++r) {
            std::string line = "{";
            for (int c = 0; c < ncol; ++c) {
                if (c) line += ",";
                line += json_string(cell(0, c)) + ":" + (cell(r, c) ? json_string(cell(r, c)) : "null");
            }
            std::printf("%s}\n", line.c_str());
        }
    } else if (ncol > 0) {
        std::vector<size_t> w(ncol, 0);
        for (int r = 0; r <= nrow; ++r)
            for (int c = 0; c < ncol; ++c) w[c] = std::max(w[c], width(cell(r, c) ? cell(r, c) : "NULL"));
        for (int r = 0; r <= nrow; ++r) {
            std::string line;
            for (int c = 0; c < ncol; ++c) {
                const char *v = cell(r, c) ? cell(r, c) : "NULL";
                line += v;
                if (c + 1 < ncol) line += std::string(w[c] - width(v) + 2, ' ');
            }
            std::printf("%s\n", line.c_str());
            if (r == 0) {
                std::string rule;
                for (int c = 0; c < ncol; ++c) rule += std::string(w[c], '-') + (c + 1 < ncol ? "  " : "");
                std::printf("%s\n", rule.c_str());
            }
        }
        std::printf("(%d row%s)\n", nrow, nrow == 1 ? "" : "s");
    }
    sqlite3_free_table(table);
    return 0;
}

// ---- categories -------------------------------------------------------------------

std::string step_text(const ksdb_step_info &step) {
    std::string out = step.what;
    if (step.state == KSDB_STEP_NOT_PROVIDED) out += " [not provided]";
    else if (step.state == KSDB_STEP_PENDING) out += " [not yet built]";
    return out;
}

// One direction of a category: its one step on the same line, or each
// step of a chain on a line of its own.
void describe(int cat, int direction) {
    const char *label = direction ? "export" : "import";
    ksdb_step_info steps[96];
    int n = ksdb_category_steps(cat, direction, steps, 96);
    if (n == KSDB_STEPS_NOT_EXPORTABLE) {
        std::printf("    %s: not exportable\n", label);
    } else if (n <= 0) {
        std::printf("    %s: nothing\n", label);
    } else if (n == 1) {
        std::printf("    %s: %s\n", label, step_text(steps[0]).c_str());
    } else {
        std::printf("    %s, in this order:\n", label);
        for (int i = 0; i < n && i < 96; ++i)
            std::printf("      %-40s %s\n", steps[i].name, step_text(steps[i]).c_str());
    }
}

int cmd_categories() {
    for (int c = 0; c < KSDB_CATEGORY_COUNT; ++c) {
        std::printf("%2d %s\n", c, ksdb_cat2str(c));
        describe(c, 0);
        describe(c, 1);
    }
    return 0;
}

// ---- create -------------------------------------------------------------------------

int cmd_create(const Options &o) {
    Session s;
    if (int rc = s.open(o)) return rc;
    long before = s.schema_version();
    int rc = ksdb_create(s.h(), s.db());
    if (rc != 0) return fail(rc, "cannot create the schema");
    long after = s.schema_version();
    if (before == 0)
        std::printf("schema version: new -> %ld\n", after);
    else
        std::printf("schema version: %ld -> %ld\n", before, after);
    return 0;
}

int cmd_import_export(const Options &o, const std::vector<std::string> &args, bool do_export) {
    std::vector<int> cats;
    if (int rc = parse_categories(args, &cats)) return rc;
    Session s;
    if (int rc = s.open(o)) return rc;
    if (int rc = s.connect()) return rc;
    return run_categories(s, cats, do_export);
}

}  // namespace

// ---- demo -----------------------------------------------------------------------------

void banner(const char *text) { std::printf("\n== %s\n", text); }

int write_demo_tree(const fs::path &root) {
    for (size_t i = 0; i < ksdb_demo::kFileCount; ++i) {
        const ksdb_demo::File &f = ksdb_demo::kFiles[i];
        fs::path p = root / f.path;
        std::error_code ec;
        fs::create_directories(p.parent_path(), ec);
        FILE *out = std::fopen(p.c_str(), "wb");
        if (!out) return fail(KSDB_E_FILE, "cannot write " + p.string() + ": " + std::strerror(errno));
        std::fwrite(f.data, 1, f.size, out);
        std::fclose(out);
        chmod(p.c_str(), f.mode);
    }
    for (const char *dir : {"tmp", "run/usb/samba", "var/log/kestravad"}) {
        std::error_code ec;
        fs::create_directories(root / dir, ec);
    }
    return 0;
}

// Runs one statement through the SQL layer in a transaction, as the
// management daemon changes settings.
int demo_statement(const Options &o, const std::string &sql) {
    Session s;
    if (int rc = s.open(o)) return rc;
    if (int rc = s.connect()) return rc;
    int rc = ksdb_sql_begin(s.h(), s.db(), nullptr, KSDB_SITE("ksdb_demo"));
    if (rc == 0) rc = ksdb_sql_exec(s.h(), s.db(), nullptr, KSDB_SITE("ksdb_demo"), sql.c_str());
    if (rc == 0) {
        rc = ksdb_sql_commit(s.h(), s.db(), nullptr, KSDB_SITE("ksdb_demo"));
    } else {
        ksdb_sql_rollback(s.h(), s.db(), nullptr, KSDB_SITE("ksdb_demo"));
    }
    if (rc != 0) return fail(KSDB_E_DB, "statement failed: " + sql);
    return 0;
}

int cmd_demo(const Options &given, const std::vector<std::string> &args) {
    fs::path dir;
    if (args.size() > 1) return usage_error("demo: at most one DIR");
    if (args.size() == 1) {
        dir = args[0];
        std::error_code ec;
        fs::create_directories(dir, ec);
        if (!fs::is_directory(dir)) return fail(KSDB_E_FILE, "cannot make " + dir.string());
    } else {
        char tmpl[] = "/tmp/ksdb-demo-XXXXXX";
        if (!mkdtemp(tmpl)) return fail(KSDB_E_FILE, std::string("cannot make a folder: ") + std::strerror(errno));
        dir = tmpl;
    }
    dir = fs::absolute(dir);
    Options o = given;
    o.root = (dir / "root").string();
    o.db = (dir / "ksdb.db").string();
    // The demo's own output tells the story; the library log shows only
    // fatal lines unless a level was asked for.
    if (!given.log_level_given) o.log_level = KSDB_LOG_FATAL;

    banner("copying the demo appliance");
    if (int rc = write_demo_tree(o.root)) return rc;
    std::printf("appliance tree: %s\n", o.root.c_str());

    banner("creating the database");
    if (int rc = cmd_create(o)) return rc;

    banner("importing the appliance (ALL)");
    if (int rc = cmd_import_export(o, {"ALL"}, false)) return rc;
    if (int rc = cmd_sql(o, {"SELECT S.name,S.path,C.cifs_access FROM share S "
                             "INNER JOIN cifs_share_option C ON C.share_id=S.id ORDER BY S.name"}))
        return rc;

    // The shares' file-system attributes come from an importer of an area
    // still being built; the CIFS export writes only shares that have them.
    banner("recording default file-system attributes of the shares");
    if (int rc = demo_statement(o, "INSERT OR IGNORE INTO zfs_attr (share_id) SELECT id FROM share"))
        return rc;

    banner("making share 'public' read-only, as the management daemon would");
    if (int rc = demo_statement(o, "UPDATE cifs_share_option SET cifs_access='readonly' "
                                   "WHERE share_id=(SELECT id FROM share WHERE name='public')"))
        return rc;

    banner("what exporting CIFS_SHARE would change");
    if (int rc = cmd_diff(o, {"CIFS_SHARE"})) return rc;

    banner("exporting CIFS_SHARE and CIFS_SERVICE");
    if (int rc = cmd_import_export(o, {"CIFS_SHARE", "CIFS_SERVICE"}, true)) return rc;

    banner("done");
    std::printf("database:            %s\n", o.db.c_str());
    std::printf("appliance tree:      %s\n", o.root.c_str());
    std::printf("samba share file:    %s/etc/quillfold/samba/Shares.conf\n", o.root.c_str());
    std::printf("samba configuration: %s/etc/samba/smb.conf\n", o.root.c_str());
    std::printf("try:  ksdb --db %s --root %s sql \"SELECT * FROM share\"\n", o.db.c_str(),
                o.root.c_str());
    return 0;
}

int main(int argc, char **argv) {
    Options o;
    const char *env_db = std::getenv("KSDB_DB");
    o.db = env_db && *env_db ? env_db : "/var/lib/ksdb/ksdb.db";
    int i = 1;
    for (; i < argc; ++i) {
        std::string a = argv[i];
        if (a == "--help" || a == "-h") {
            std::fputs(kUsage, stdout);
            return 0;
        }
        if (a.rfind("--", 0) != 0) break;
        if (i + 1 >= argc) return usage_error(a + " needs a value");
        std::string v = argv[++i];
        if (a == "--db") o.db = v;
        else if (a == "--root") o.root = v;
        else if (a == "--log") o.log_path = v;
        else if (a == "--trace") o.trace_path = v;
        else if (a == "--log-level") {
            int n = 0;
            if (!parse_int(v, &n) || n < 0 || n > 7) return usage_error("bad --log-level " + v);
            o.log_level = static_cast<uint32_t>(n);
            o.log_level_given = true;
        } else {
            return usage_error("unknown option " + a);
        }
    }
    if (i >= argc) return usage_error("which command?");
    std::string command = argv[i++];
    std::vector<std::string> args(argv + i, argv + argc);
    if (command == "create") return cmd_create(o);
    if (command == "import") return cmd_import_export(o, args, false);
    if (command == "export") return cmd_import_export(o, args, true);
    if (command == "diff") return cmd_diff(o, args);
    if (command == "queue") return cmd_queue(o, args);
    if (command == "sql") return cmd_sql(o, args);
    if (command == "categories") return cmd_categories();
    if (command == "demo") return cmd_demo(o, args);
    return usage_error("unknown command '" + command + "'");
}
