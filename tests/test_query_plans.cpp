// The query plans of every statement an export or import runs, captured on
// every case folder's seeded state and on the demo appliance.  A statement one
// call site runs per row, and every inner loop of a join or correlated
// subquery, must reach its rows through an index: a scan, an index built per
// run or a search by a kind column alone grows with the square of the rows.
#include "tests/support/case_runner.h"
#include "tests/support/test_support.h"

#include <algorithm>
#include <cctype>
#include <cstring>
#include <filesystem>
#include <functional>
#include <map>
#include <regex>
#include <set>
#include <sstream>

using namespace ksdb_test;

namespace {


struct Statement {
    std::string sql;
    std::string step;  // the plan step that ran it
    int run = 0;       // which run of a step (a composite category may run one twice)
    std::string site;  // the library's call site ("ksdb_cifs:123") that ran it
};

// Records every statement run on the connection with its step and call site
// (from the library's SQL trace, read as it is written).
class Capture {
  public:
    Capture(ksdb_handle *h, sqlite3 *db) : h_(h), db_(db), level_(h->log_level), trace_(h->trace_stream) {
        cookie_io_functions_t io{};
        io.write = [](void *arg, const char *buf, size_t n) -> ssize_t {
            static_cast<Capture *>(arg)->traced_text(std::string_view(buf, n));
            return static_cast<ssize_t>(n);
        };
        stream_ = fopencookie(this, "w", io);
        setvbuf(stream_, nullptr, _IOFBF, 1 << 20);
        h_->trace_stream = stream_;
        h_->log_level = 5;  // the trace is flushed record by record at this level
        sqlite3_trace_v2(db_, SQLITE_TRACE_STMT, &Capture::traced, this);
        ksdb_observer obs{};
        obs.arg = this;
        obs.step = [](void *arg, const char *name, int phase, int) {
            auto *self = static_cast<Capture *>(arg);
            if (phase == 0) {
                self->step_ = name;
                ++self->run_;
            }
        };
        ksdb_set_observer(&obs);
    }
    ~Capture() {
        sqlite3_trace_v2(db_, 0, nullptr, nullptr);
        ksdb_set_observer(nullptr);
        h_->trace_stream = trace_;
        h_->log_level = level_;
        std::fclose(stream_);
    }
    Capture(const Capture &) = delete;
    Capture &operator=(const Capture &) = delete;
    const std::vector<Statement> &statements() const { return statements_; }

  private:
    // "...](pid:tid) module:linesql=..." begins the record of a statement.
    void traced_text(std::string_view text) {
        static const std::regex record(R"(\(\d+:\d+\) ([\w.]+:\d+)sql=)");
        std::string t(text);
        for (std::sregex_iterator it(t.begin(), t.end(), record), end; it != end; ++it) site_ = (*it)[1];
    }
    static int traced(unsigned, void *arg, void *, void *text) {
        auto *self = static_cast<Capture *>(arg);
        const char *sql = static_cast<const char *>(text);
        // A trigger's statements are reported as a comment.
        if (sql && std::strncmp(sql, "--", 2) != 0)
            self->statements_.push_back({sql, self->step_, self->run_, self->site_});
        return 0;
    }
    ksdb_handle *h_;
    sqlite3 *db_;
    uint32_t level_;
    FILE *trace_;
    FILE *stream_ = nullptr;
    std::string step_ = "(call)";
    int run_ = 0;
    std::string site_;
    std::vector<Statement> statements_;
};


// The statement with every string and number literal replaced by "?".
std::string shape(const std::string &sql) {
    std::string out;
    auto word_char = [](char c) {
        return std::isalnum(static_cast<unsigned char>(c)) || c == '_' || c == '$';
    };
    for (size_t i = 0; i < sql.size();) {
        const char c = sql[i];
        if (c == '\'') {
            size_t j = i + 1;
            while (j < sql.size() && !(sql[j] == '\'' && (j + 1 >= sql.size() || sql[j + 1] != '\'')))
                j += sql[j] == '\'' ? 2 : 1;
            out += '?';
            i = j + 1;
        } else if (c == '`' || c == '"') {
            size_t j = sql.find(c, i + 1);
            j = j == std::string::npos ? sql.size() : j + 1;
            out.append(sql, i, j - i);
            i = j;
        } else if (std::isdigit(static_cast<unsigned char>(c)) && (out.empty() || !word_char(out.back()))) {
            while (i < sql.size() && (word_char(sql[i]) || sql[i] == '.')) ++i;
            out += '?';
        } else {
            out += c;
            ++i;
        }
    }
    return out;
}


struct PlanRow {
    int id = 0, parent = 0;
    std::string detail;
};

// EXPLAIN QUERY PLAN of the statement; false when it no longer prepares.
bool explain(sqlite3 *db, const std::string &sql, std::vector<PlanRow> *rows) {
    sqlite3_stmt *st = nullptr;
    if (sqlite3_prepare_v2(db, ("EXPLAIN QUERY PLAN " + sql).c_str(), -1, &st, nullptr) != SQLITE_OK) {
        sqlite3_finalize(st);
        return false;
    }
    while (sqlite3_step(st) == SQLITE_ROW) {
        const unsigned char *d = sqlite3_column_text(st, 3);
        rows->push_back({sqlite3_column_int(st, 0), sqlite3_column_int(st, 1),
                         d ? reinterpret_cast<const char *>(d) : ""});
    }
    sqlite3_finalize(st);
    return true;
}

bool starts_with(const std::string &s, const char *prefix) { return s.rfind(prefix, 0) == 0; }

std::string lower(std::string s) {
    for (char &c : s) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return s;
}

// Tables the appliance bounds (settings, volumes, ports): a loop may walk them whole.
bool bounded_table(const std::string &table) {
    static const std::set<std::string> kBounded = {
        "_volume",         "account_default", "passwordrecovery", "system_config", "vital_product_data",
        "network_if",      "backup_protocol", "$kestravad",       "usb_port",      "usb_storage",
        "_lang_supported"};
    return starts_with(table, "service_") || kBounded.count(table) > 0;
}

// Columns that sort rows into a handful of kinds: a search by them alone
// finds the rows of every share or account of that kind.
bool kind_column(const std::string &column) {
    static const std::set<std::string> kKinds = {"proto", "rid", "serve_for", "type"};
    return kKinds.count(lower(column)) > 0;
}

// Table names by the names a statement gives them ("share S" -> S: share).
std::map<std::string, std::string> aliases(const std::string &sql) {
    static const std::regex from(
        R"((?:FROM|JOIN|INTO|UPDATE)\s+[`'"]?([\w$]+)[`'"]?(?:\s+(?:AS\s+)?([A-Za-z_]\w*))?)",
        std::regex::icase);
    static const std::set<std::string> kKeywords = {
        "where", "inner", "left", "right", "full", "cross", "natural", "join", "on", "order",
        "group", "limit", "set", "values", "using", "union", "except", "intersect", "and",
        "or", "select", "default", "as", "having", "window", "returning", "indexed", "not"};
    std::map<std::string, std::string> out;
    for (std::sregex_iterator it(sql.begin(), sql.end(), from), end; it != end; ++it) {
        const std::string table = (*it)[1], alias = (*it)[2];
        out[table] = table;
        if (!alias.empty() && !kKeywords.count(lower(alias))) out[alias] = table;
    }
    return out;
}

// The columns a SEARCH step is constrained by: "(share_id=? AND proto=?)".
std::vector<std::string> constrained_columns(const std::string &detail) {
    std::vector<std::string> out;
    const size_t open = detail.rfind('(');
    if (open == std::string::npos || detail.back() != ')') return out;
    std::string inside = detail.substr(open + 1, detail.size() - open - 2);
    static const std::regex column(R"(([\w$]+)\s*(?:=|>|<|>=|<=))");
    for (std::sregex_iterator it(inside.begin(), inside.end(), column), end; it != end; ++it)
        out.push_back((*it)[1]);
    return out;
}

// The table a plan line's loop reads ("SCAN S USING ..." -> share).
std::string loop_table(const std::string &detail, const std::map<std::string, std::string> &names) {
    std::istringstream words(detail);
    std::string kind, name;
    words >> kind >> name;
    auto it = names.find(name);
    return it == names.end() ? name : it->second;
}

// Why one loop of a plan grows with the rows, or "" when it does not.
std::string judge(const std::string &detail, const std::map<std::string, std::string> &names,
                  const std::set<std::string> &subqueries) {
    std::istringstream words(detail);
    std::string kind, name;
    words >> kind >> name;
    if (name.empty() || name[0] == '(' || name == "CONSTANT" || subqueries.count(name)) return "";
    const std::string table = loop_table(detail, names);
    if (bounded_table(table)) return "";
    if (kind == "SCAN") return "reads every row of " + table;
    if (detail.find("AUTOMATIC") != std::string::npos)
        return "builds an index of " + table + " on every run (the schema lacks one)";
    const std::vector<std::string> cols = constrained_columns(detail);
    if (!cols.empty() && std::all_of(cols.begin(), cols.end(), kind_column))
        return "finds the rows of " + table + " by kind alone, those of every share or account";
    return "";
}

// Every per-row loop of the plan that grows with the rows: "plan line: why".
std::vector<std::string> plan_findings(const std::vector<PlanRow> &plan, const std::string &sql,
                                       bool per_row) {
    const auto names = aliases(sql);
    std::set<std::string> subqueries;  // FROM-subqueries: no table of their own
    for (const PlanRow &r : plan) {
        for (const char *p : {"CO-ROUTINE ", "MATERIALIZE "})
            if (starts_with(r.detail, p)) subqueries.insert(r.detail.substr(std::strlen(p)));
    }
    std::vector<std::string> out;
    std::function<void(int, bool)> walk = [&](int parent, bool inner) {
        bool loop_seen = false;
        for (const PlanRow &r : plan) {
            if (r.parent != parent) continue;
            const bool loop = starts_with(r.detail, "SCAN ") || starts_with(r.detail, "SEARCH ");
            if (loop) {
                // A loop after another at the same level is nested in it.
                if (inner || loop_seen) {
                    const std::string why = judge(r.detail, names, subqueries);
                    if (!why.empty()) out.push_back(r.detail + ": " + why);
                }
                // Inside a loop over a bounded table a scan is still one pass.
                if (!bounded_table(loop_table(r.detail, names))) loop_seen = true;
                walk(r.id, inner || loop_seen);
            } else {
                walk(r.id, inner || starts_with(r.detail, "CORRELATED "));
            }
        }
    };
    walk(0, per_row);
    return out;
}

// Statements that read or write rows (BEGIN, PRAGMA, CREATE have no plan worth a look).
bool explainable(const std::string &sql) {
    const size_t start = sql.find_first_not_of(" \t\r\n");
    if (start == std::string::npos) return false;
    const std::string head = lower(sql.substr(start, 8));
    for (const char *verb : {"select", "insert", "update", "delete", "replace", "with"})
        if (starts_with(head, verb)) return true;
    return false;
}

// The findings of one call, one per statement shape and call site.  A shape
// runs per row when one site runs it in one run of a step with other values,
// or three times or more with the same (check then write is no loop).
std::vector<std::string> check_call(sqlite3 *db, const std::vector<Statement> &statements) {
    auto key = [](const Statement &s) {
        return std::to_string(s.run) + " " + s.site + " " + shape(s.sql);
    };
    struct Runs {
        int count = 0;
        std::set<std::string> texts;
    };
    std::map<std::string, Runs> runs;
    for (const Statement &s : statements) {
        Runs &r = runs[key(s)];
        ++r.count;
        r.texts.insert(s.sql);
    }
    std::set<std::string> done;
    std::vector<std::string> out;
    for (const Statement &s : statements) {
        const std::string k = key(s);
        if (!explainable(s.sql) || !done.insert(k).second) continue;
        std::vector<PlanRow> plan;
        if (!explain(db, s.sql, &plan)) continue;
        const Runs &r = runs[k];
        const bool per_row = r.texts.size() > 1 || r.count > 2;
        for (const std::string &f : plan_findings(plan, s.sql, per_row))
            out.push_back(s.step + " at " + s.site +
                          (per_row ? " (runs " + std::to_string(r.count) + " times)" : "") +
                          "\n    " + s.sql + "\n    " + f);
    }
    return out;
}

std::string joined(const std::vector<std::string> &v) {
    std::string out;
    for (const std::string &s : v) out += "\n  " + s;
    return out;
}


class QueryPlanTest : public RootTest {
  protected:
    // Runs one call with its statements captured; the findings.
    std::vector<std::string> checked(const std::function<int()> &call) {
        std::vector<Statement> statements;
        {
            Capture capture(h(), db());
            call();
            statements = capture.statements();
        }
        calls_ += statements.size();
        return check_call(db(), statements);
    }
    std::vector<std::string> checked(int category, bool exporting) {
        return checked([&] {
            return exporting ? ksdb_export(h(), db(), category) : ksdb_import(h(), db(), category);
        });
    }

    // A fresh root and database at the current schema.
    void reset() {
        namespace fs = std::filesystem;
        db_.reset();
        for (const auto &e : fs::directory_iterator(root())) fs::remove_all(e.path());
        mkdirs(root() + "/tmp");
        fs::remove(tmp_ / "test.db");
        db_ = std::make_unique<Db>(tmp_ / "test.db");
        ASSERT_EQ(ksdb_create(h(), db()), 0) << log();
    }

    void demo() {
        namespace fs = std::filesystem;
        fs::copy(KSDB_CASES_DIR "/../../examples/demo-root", root(),
                 fs::copy_options::recursive | fs::copy_options::overwrite_existing);
        mkdirs(root() + "/run/usb/samba");
        ASSERT_EQ(ksdb_create(h(), db()), 0) << log();
        ASSERT_EQ(ksdb_import(h(), db(), KSDB_CAT_ALL), 0) << log();
    }

    size_t calls_ = 0;
};

// One test per case folder: its export and its import on the laws' states.
class CasePlanTest : public QueryPlanTest {
  public:
    explicit CasePlanTest(CaseSpec spec) : spec_(std::move(spec)) {}
    void TestBody() override {
        if (spec_.export_law) {
            reset();
            stage_case(spec_, true, root(), db());
            EXPECT_EQ(joined(checked([&] { return run_case_call(spec_, true, h(), db()); })), "")
                << "export of " << spec_.name;
        }
        if (spec_.import_law) {
            reset();
            stage_case(spec_, false, root(), db());
            EXPECT_EQ(joined(checked([&] { return run_case_call(spec_, false, h(), db()); })), "")
                << "import of " << spec_.name;
        }
        EXPECT_GT(calls_, 0u) << "nothing was captured";
    }

  private:
    CaseSpec spec_;
};

const bool registered = [] {
    for (const CaseSpec &spec : find_cases(KSDB_CASES_DIR)) {
        // Malformed or law-less cases are reported and run elsewhere.
        if (spec.category < 0 || (!spec.export_law && !spec.import_law)) continue;
        std::string name = spec.name;
        for (char &c : name)
            if (!std::isalnum(static_cast<unsigned char>(c))) c = '_';
        ::testing::RegisterTest("QueryPlanCases", name.c_str(), nullptr, nullptr, __FILE__,
                                __LINE__, [spec]() -> ::testing::Test * { return new CasePlanTest(spec); });
    }
    return true;
}();

}  // namespace

// Guards: a per-row statement of any category that grows with the square of the rows.
TEST_F(QueryPlanTest, EveryCategoryOfTheDemoApplianceBothWays) {
    demo();
    std::vector<std::string> findings;
    for (int c = 0; c < KSDB_CATEGORY_COUNT; ++c) {
        for (bool exporting : {false, true}) {
            for (const std::string &f : checked(c, exporting))
                findings.push_back(std::string(exporting ? "export " : "import ") + ksdb_cat2str(c) +
                                   ": " + f);
        }
    }
    // The exports callers run outside the categories.
    const std::pair<const char *, std::function<int()>> kOthers[] = {
        {"ksdb_account_export", [&] { return ksdb_account_export(h(), db()); }},
        {"ksdb_export_per_share", [&] {
             return ksdb_export_per_share(h(), db(), KSDB_CAT_SHARE_FS_ATTRIBUTE, "docs");
         }},
    };
    for (const auto &[name, call] : kOthers)
        for (const std::string &f : checked(call)) findings.push_back(std::string(name) + ": " + f);
    EXPECT_EQ(joined(findings), "");
    EXPECT_GT(calls_, 500u) << "the calls ran hardly any statement";
}

// Guards: the check itself missing a per-row scan, search by kind or built index.
TEST(QueryPlanCheck, FindsScansSearchesByKindAndBuiltIndexesInPerRowLoops) {
    Db db;
    db.exec("CREATE TABLE share (id INTEGER PRIMARY KEY, name TEXT COLLATE NOCASE UNIQUE);"
            "CREATE TABLE user_acl (share_id INT, user_id INT, proto TEXT COLLATE NOCASE, "
            "read INT, PRIMARY KEY (proto, user_id, share_id));"
            "CREATE TABLE member (user_id INT, group_id INT, PRIMARY KEY (user_id, group_id));"
            "CREATE TABLE service_x (on_off INT)");
    auto findings = [&](std::vector<std::string> sql) {
        std::vector<Statement> s;
        for (auto &q : sql) s.push_back({q, "step", 1, "site"});
        return check_call(db, s);
    };
    const char *per_share = "SELECT user_id FROM user_acl A WHERE A.share_id=%d AND A.proto='afp'";
    char one[200], two[200];
    std::snprintf(one, sizeof one, per_share, 1);
    std::snprintf(two, sizeof two, per_share, 2);
    // Once, a search by protocol alone is one pass over the table: fine.
    EXPECT_TRUE(findings({one}).empty());
    // Once per share it is a pass per share.
    auto f = findings({one, two});
    ASSERT_EQ(f.size(), 1u);
    EXPECT_TRUE(contains(f[0], "runs 2 times")) << f[0];
    EXPECT_TRUE(contains(f[0], "by kind alone")) << f[0];
    // An index by share turns it into a search for the share's rows.
    db.exec("CREATE INDEX user_acl_share ON user_acl (share_id, proto, user_id)");
    EXPECT_TRUE(findings({one, two}).empty());

    // An inner loop's full scan or built index is found, the outer table's walk is not.
    f = findings({"SELECT S.name FROM share S LEFT JOIN member M ON M.group_id=S.id"});
    ASSERT_EQ(f.size(), 1u);
    EXPECT_TRUE(contains(f[0], "builds an index of member")) << f[0];
    f = findings({"SELECT S.name,(SELECT COUNT(*) FROM member M WHERE M.group_id=S.id) FROM share S"});
    ASSERT_EQ(f.size(), 1u) << joined(f);
    EXPECT_TRUE(contains(f[0], "reads every row of member")) << f[0];
    EXPECT_TRUE(findings({"SELECT name FROM share"}).empty());
    // A one-row settings table may be read whole on every row.
    EXPECT_TRUE(findings({"SELECT on_off FROM service_x", "SELECT on_off FROM service_x"}).empty());
    // The literals are what makes two runs one shape.
    EXPECT_EQ(shape("SELECT 'it''s',12,x1 FROM `t 2` WHERE a=-3.5"),
              "SELECT ?,?,x1 FROM `t 2` WHERE a=-?");
}

// Guards: a needed index missing unnoticed, or not restored by ksdb_create (same version).
TEST_F(QueryPlanTest, ADroppedIndexIsFoundAndCreateRestoresIt) {
    auto case_named = [](const std::string &name) {
        for (const CaseSpec &c : find_cases(KSDB_CASES_DIR))
            if (c.dir == KSDB_CASES_DIR "/" + name) return c;
        ADD_FAILURE() << "no case " << name;
        return CaseSpec{};
    };
    const CaseSpec cifs = case_named("cifs-share/volume-shares");
    const CaseSpec afp = case_named("afp-share/import-edges");
    ASSERT_FALSE(cifs.dir.empty() || afp.dir.empty());
    const struct {
        const char *index, *table;
        int category;
        bool exporting;
        const CaseSpec *on;  // nullptr: the demo appliance
    } kIndexes[] = {
        {"$group_has_user_group_id", "$group_has_user", -1, true, nullptr},
        {"$user_uname", "$user", KSDB_CAT_CIFS_SHARE, false, &cifs},
        {"$group_gname", "$group", KSDB_CAT_CIFS_SHARE, false, &cifs},
        {"$user_group_id", "$user", KSDB_CAT_CIFS_SHARE, false, &cifs},
        {"user_acl_share_proto", "user_acl", KSDB_CAT_AFP_SHARE, false, &afp},
    };
    for (const auto &k : kIndexes) {
        SCOPED_TRACE(k.index);
        auto stage = [&] {
            reset();
            if (!k.on)
                demo();
            else
                stage_case(*k.on, k.exporting, root(), db());
        };
        auto call = [&] {
            // -1: the account export, which no category runs whole.
            return k.category < 0 ? joined(checked([&] { return ksdb_account_export(h(), db()); }))
                                  : joined(checked(k.category, k.exporting));
        };
        stage();
        EXPECT_EQ(call(), "");
        stage();  // the same call again, on the same state but for the index
        sql().exec(std::string("DROP INDEX `") + k.index + "`");
        const std::string found = call();
        EXPECT_TRUE(contains(found, k.table)) << found;

        ASSERT_EQ(ksdb_create(h(), db()), 0);
        EXPECT_EQ(sql().scalar("PRAGMA user_version"), "23");
        EXPECT_EQ(sql().scalar(std::string("SELECT COUNT(*) FROM sqlite_master WHERE name='") +
                               k.index + "'"),
                  "1");
    }
}

// Guards: the queue's four selections sorting the due messages instead of using the index.
TEST_F(QueryPlanTest, QueueDeliveryFollowsItsIndexes) {
    ASSERT_EQ(ksdb_queue_create(h(), db(), 0), 0);
    for (int i = 0; i < 4; ++i)
        ASSERT_EQ(ksdb_queue_push(h(), db(), "daemon", "ui", "m", i % 2, 1), 0);
    std::vector<Statement> statements;
    {
        Capture capture(h(), db());
        const char *names[][2] = {{nullptr, nullptr}, {"daemon", nullptr}, {nullptr, "ui"}, {"daemon", "ui"}};
        for (auto &n : names) {
            char *val = nullptr;
            int ts = 0;
            ASSERT_EQ(ksdb_queue_pop(h(), db(), n[0], n[1], &val, &ts, nullptr, nullptr), 0);
            ASSERT_NE(val, nullptr);
        }
        statements = capture.statements();
    }
    int deliveries = 0;
    for (const Statement &s : statements) {
        std::vector<PlanRow> plan;
        if (s.sql.find("ORDER BY pri DESC") == std::string::npos || !explain(db(), s.sql, &plan))
            continue;
        std::string text;
        for (const PlanRow &r : plan) text += r.detail + "\n";
        ++deliveries;
        EXPECT_FALSE(contains(text, "TEMP B-TREE")) << s.sql << "\n" << text;
        EXPECT_TRUE(contains(text, "USING INDEX queue_delivery")) << s.sql << "\n" << text;
    }
    EXPECT_EQ(deliveries, 4);
}
