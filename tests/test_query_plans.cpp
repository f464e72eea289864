// The query plans of every statement an export or import runs, captured on
// every case folder's seeded state and on the demo appliance.  A statement one
// call site runs per row, and every inner loop of a join or correlated
// subquery, must reach its rows through an index: a scan, an index built per
// run or a search by a kind column alone grows with the square of the rows.
#include "tests/support/case_runner.h"
#include "tests/support/test_support.h"

#include <cctype>
#include <cstring>
#include <filesystem>
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

// Runs `call` and records every statement it ran on the connection with its
// step and call site (from the library's SQL trace, read as it is written).
std::vector<Statement> captured(ksdb_handle *h, sqlite3 *db, const std::function<void()> &call) {
    struct State {
        std::string step = "(call)", site;
        int run = 0;
        std::vector<Statement> statements;
    } state;
    cookie_io_functions_t io{};
    io.write = [](void *arg, const char *buf, size_t n) -> ssize_t {
        // "...](pid:tid) module:linesql=..." begins the record of a statement.
        static const std::regex record(R"(\(\d+:\d+\) ([\w.]+:\d+)sql=)");
        const std::string t(buf, n);
        for (std::sregex_iterator it(t.begin(), t.end(), record), end; it != end; ++it)
            static_cast<State *>(arg)->site = (*it)[1];
        return static_cast<ssize_t>(n);
    };
    FILE *stream = fopencookie(&state, "w", io);
    setvbuf(stream, nullptr, _IOFBF, 1 << 20);
    FILE *const trace = h->trace_stream;
    const uint32_t level = h->log_level;
    h->trace_stream = stream;
    h->log_level = 5;  // the trace is flushed record by record at this level
    auto traced = [](unsigned, void *arg, void *, void *text) {
        auto *s = static_cast<State *>(arg);
        const char *sql = static_cast<const char *>(text);
        // A trigger's statements are reported as a comment.
        if (sql && std::strncmp(sql, "--", 2) != 0) s->statements.push_back({sql, s->step, s->run, s->site});
        return 0;
    };
    sqlite3_trace_v2(db, SQLITE_TRACE_STMT, traced, &state);
    ksdb_observer obs{};
    obs.arg = &state;
    obs.step = [](void *arg, const char *name, int phase, int) {
        if (phase != 0) return;
        static_cast<State *>(arg)->step = name;
        ++static_cast<State *>(arg)->run;
    };
    ksdb_set_observer(&obs);
    call();
    ksdb_set_observer(nullptr);
    sqlite3_trace_v2(db, 0, nullptr, nullptr);
    h->trace_stream = trace;
    h->log_level = level;
    std::fclose(stream);
    return state.statements;
}

// The statement with every string and number literal replaced by "?".
std::string shape(const std::string &sql) {
    std::string out;
    auto word_char = [](char c) {
        return std::isalnum(static_cast<unsigned char>(c)) || c == '_' || c == '$';
    };
    for (size_t i = 0; i < sql.size();) {
        const char c = sql[i];
        size_t j = i + 1;
        if (c == '\'') {
            while (j < sql.size() && !(sql[j] == '\'' && (j + 1 >= sql.size() || sql[j + 1] != '\'')))
                j += sql[j] == '\'' ? 2 : 1;
            out += '?';
            ++j;
        } else if (c == '`' || c == '"') {
            j = std::min(sql.find(c, i + 1), sql.size() - 1) + 1;
            out.append(sql, i, j - i);
        } else if (std::isdigit(static_cast<unsigned char>(c)) && (out.empty() || !word_char(out.back()))) {
            while (j < sql.size() && (word_char(sql[j]) || sql[j] == '.')) ++j;
            out += '?';
        } else {
            out += c;
        }
        i = j;
    }
    return out;
}

// EXPLAIN QUERY PLAN of the statement as "id parent detail" rows; empty when
// it no longer prepares.
struct PlanRow {
    int id = 0, parent = 0;
    std::string detail;
};
std::vector<PlanRow> explain(sqlite3 *db, const std::string &sql) {
    std::vector<PlanRow> rows;
    std::string error;
    for (const std::string &row : query_rows(db, "EXPLAIN QUERY PLAN " + sql, &error)) {
        const std::vector<std::string> f = split(row, '|');  // id|parent|unused|detail
        const size_t head = f[0].size() + f[1].size() + f[2].size() + 3;
        rows.push_back({std::stoi(f[0]), std::stoi(f[1]), row.substr(head)});
    }
    return rows;
}

// Tables the appliance bounds (settings, volumes, ports): a loop may walk them whole.
bool bounded_table(const std::string &table) {
    static const std::set<std::string> kBounded = {
        "_volume",         "account_default", "passwordrecovery", "system_config", "vital_product_data",
        "network_if",      "backup_protocol", "$kestravad",       "usb_port",      "usb_storage",
        "_lang_supported"};
    return table.rfind("service_", 0) == 0 || kBounded.count(table) > 0;
}

// Table names by the names a statement gives them ("share S" -> S: share).
std::map<std::string, std::string> aliases(const std::string &sql) {
    static const std::regex from(
        R"((?:FROM|JOIN|INTO|UPDATE)\s+[`'"]?([\w$]+)[`'"]?(?:\s+(?:AS\s+)?(?!(?:where|inner|left|right)"
        R"(|full|cross|natural|join|on|order|group|limit|set|values|using|union|except|intersect|and|or)"
        R"(|select|default|as|having|window|returning|indexed|not)\b)([A-Za-z_]\w*))?)",
        std::regex::icase);
    std::map<std::string, std::string> out;
    for (std::sregex_iterator it(sql.begin(), sql.end(), from), end; it != end; ++it) {
        out[(*it)[1]] = (*it)[1];
        if ((*it)[2].matched) out[(*it)[2]] = (*it)[1];
    }
    return out;
}

// Why one loop of a plan grows with the rows, or "" when it does not.
std::string judge(const std::string &detail, const std::string &kind, const std::string &table) {
    if (kind == "SCAN") return "reads every row of " + table;
    if (detail.find("AUTOMATIC") != std::string::npos)
        return "builds an index of " + table + " on every run (the schema lacks one)";
    // The columns of a SEARCH: "(share_id=? AND proto=?)".  Columns that sort
    // rows into a handful of kinds find the rows of every share or account of
    // that kind when a search is by them alone.
    static const std::regex column(R"(([\w$]+)\s*[=<>])");
    static const std::regex kinds("proto|rid|serve_for|type", std::regex::icase);
    const size_t open = detail.rfind('(');
    if (open == std::string::npos || detail.back() != ')') return "";
    const std::string inside = detail.substr(open + 1, detail.size() - open - 2);
    int columns = 0, kind_columns = 0;
    for (std::sregex_iterator it(inside.begin(), inside.end(), column), end; it != end; ++it) {
        ++columns;
        kind_columns += std::regex_match((*it)[1].str(), kinds);
    }
    if (columns == 0 || kind_columns < columns) return "";
    return "finds the rows of " + table + " by kind alone, those of every share or account";
}

// Every per-row loop of the plan that grows with the rows: "plan line: why".
std::vector<std::string> plan_findings(const std::vector<PlanRow> &plan, const std::string &sql,
                                       bool per_row) {
    const auto names = aliases(sql);
    std::set<std::string> subqueries;  // FROM-subqueries: no table of their own
    for (const PlanRow &r : plan)
        for (const char *p : {"CO-ROUTINE ", "MATERIALIZE "})
            if (r.detail.rfind(p, 0) == 0) subqueries.insert(r.detail.substr(std::strlen(p)));
    std::vector<std::string> out;
    std::function<void(int, bool)> walk = [&](int parent, bool inner) {
        bool loop_seen = false;
        for (const PlanRow &r : plan) {
            if (r.parent != parent) continue;
            std::istringstream words(r.detail);
            std::string kind, name;
            words >> kind >> name;
            if (kind != "SCAN" && kind != "SEARCH") {
                walk(r.id, inner || kind == "CORRELATED");
                continue;
            }
            const auto alias = names.find(name);
            const std::string table = alias == names.end() ? name : alias->second;
            const bool own_table =
                !name.empty() && name[0] != '(' && name != "CONSTANT" && !subqueries.count(name);
            // A loop after another at the same level is nested in it.
            if ((inner || loop_seen) && own_table && !bounded_table(table)) {
                const std::string why = judge(r.detail, kind, table);
                if (!why.empty()) out.push_back(r.detail + ": " + why);
            }
            // Inside a loop over a bounded table a scan is still one pass.
            if (!bounded_table(table)) loop_seen = true;
            walk(r.id, inner || loop_seen);
        }
    };
    walk(0, per_row);
    return out;
}

// The findings of one call, one per statement shape and call site.  A shape
// runs per row when one site runs it in one run of a step with other values,
// or three times or more with the same (check then write is no loop).  Only
// statements that read or write rows are explained (BEGIN, PRAGMA, CREATE
// have no plan worth a look).
std::vector<std::string> check_call(sqlite3 *db, const std::vector<Statement> &statements) {
    static const std::regex explainable(R"(^\s*(select|insert|update|delete|replace|with))",
                                        std::regex::icase);
    auto key = [](const Statement &s) { return std::to_string(s.run) + " " + s.site + " " + shape(s.sql); };
    std::map<std::string, std::pair<int, std::set<std::string>>> runs;  // count, texts
    for (const Statement &s : statements) {
        auto &r = runs[key(s)];
        ++r.first;
        r.second.insert(s.sql);
    }
    std::set<std::string> done;
    std::vector<std::string> out;
    for (const Statement &s : statements) {
        const std::string k = key(s);
        if (!std::regex_search(s.sql, explainable) || !done.insert(k).second) continue;
        const auto &[count, texts] = runs[k];
        const bool per_row = texts.size() > 1 || count > 2;
        for (const std::string &f : plan_findings(explain(db, s.sql), s.sql, per_row))
            out.push_back(s.step + " at " + s.site +
                          (per_row ? " (runs " + std::to_string(count) + " times)" : "") + "\n    " + s.sql +
                          "\n    " + f);
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
    std::string checked(const std::function<int()> &call) {
        const std::vector<Statement> statements = captured(h(), db(), [&] { call(); });
        calls_ += statements.size();
        return joined(check_call(db(), statements));
    }

    // A fresh root and database at the current schema, then the state of a
    // case's law or, without a case, the demo appliance.
    void stage(const CaseSpec *spec, bool for_export) {
        namespace fs = std::filesystem;
        db_.reset();
        for (const auto &e : fs::directory_iterator(root())) fs::remove_all(e.path());
        mkdirs(root() + "/tmp");
        fs::remove(tmp_ / "test.db");
        db_ = std::make_unique<Db>(tmp_ / "test.db");
        ASSERT_EQ(ksdb_create(h(), db()), 0) << log();
        if (spec) return stage_case(*spec, for_export, root(), db());
        fs::copy(KSDB_CASES_DIR "/../../examples/demo-root", root(),
                 fs::copy_options::recursive | fs::copy_options::overwrite_existing);
        mkdirs(root() + "/run/usb/samba");
        ASSERT_EQ(ksdb_import(h(), db(), KSDB_CAT_ALL), 0) << log();
    }

    size_t calls_ = 0;
};

}  // namespace

// Guards: a per-row statement of a case folder's export or import that grows
// with the square of the rows.
TEST_F(QueryPlanTest, EveryCaseFoldersExportAndImportOnTheLawsStates) {
    for (const CaseSpec &spec : find_cases(KSDB_CASES_DIR)) {
        // Malformed cases are reported and run elsewhere.
        for (bool exporting : {true, false}) {
            if (spec.category < 0 || !(exporting ? spec.export_law : spec.import_law)) continue;
            const size_t before = calls_;
            stage(&spec, exporting);
            EXPECT_EQ(checked([&] { return run_case_call(spec, exporting, h(), db()); }), "")
                << (exporting ? "export of " : "import of ") << spec.name;
            EXPECT_GT(calls_, before) << "nothing was captured for " << spec.name;
        }
    }
}

// Guards: a per-row statement of any category that grows with the square of the rows.
TEST_F(QueryPlanTest, EveryCategoryOfTheDemoApplianceBothWays) {
    stage(nullptr, false);
    for (int c = 0; c < KSDB_CATEGORY_COUNT; ++c)
        for (bool exporting : {false, true})
            EXPECT_EQ(checked([&] {
                          return exporting ? ksdb_export(h(), db(), c) : ksdb_import(h(), db(), c);
                      }),
                      "")
                << (exporting ? "export " : "import ") << ksdb_cat2str(c);
    // The exports callers run outside the categories.
    EXPECT_EQ(checked([&] { return ksdb_account_export(h(), db()); }), "");
    EXPECT_EQ(checked([&] { return ksdb_export_per_share(h(), db(), KSDB_CAT_SHARE_FS_ATTRIBUTE, "docs"); }),
              "");
    EXPECT_GT(calls_, 500u) << "the calls ran hardly any statement";
}

// Guards: the check itself missing a per-row scan, search by kind or built index.
TEST(QueryPlanCheck, FindsScansSearchesByKindAndBuiltIndexesInPerRowLoops) {
    Db db;
    std::vector<Statement> block;
    std::vector<std::string> parts;
    int checks = 0;
    for (const std::string &line : lines(read_file(KSDB_TEST_DATA_DIR "/plan-check.txt"))) {
        const size_t colon = line.find(": ");
        const std::string key = line.substr(0, colon);
        const std::string value = colon == std::string::npos ? "" : line.substr(colon + 2);
        if (key == "setup") db.exec(value);
        if (key == "sql") block.push_back({value, "step", 1, "site"});
        if (key == "finding") parts.push_back(value);
        if (key != "check") continue;
        SCOPED_TRACE(block.back().sql);
        const std::vector<std::string> f = check_call(db, block);
        ++checks;
        ASSERT_EQ(f.size(), parts.empty() ? 0u : 1u) << joined(f);
        for (const std::string &part : parts) EXPECT_TRUE(contains(f[0], part)) << f[0];
        block.clear();
        parts.clear();
    }
    EXPECT_EQ(checks, 7);
    // The literals are what makes two runs one shape.
    EXPECT_EQ(shape("SELECT 'it''s',12,x1 FROM `t 2` WHERE a=-3.5"), "SELECT ?,?,x1 FROM `t 2` WHERE a=-?");
}

// Guards: a needed index missing unnoticed.
TEST_F(QueryPlanTest, ADroppedIndexIsFound) {
    std::map<std::string, CaseSpec> cases;
    for (const CaseSpec &c : find_cases(KSDB_CASES_DIR)) cases[c.name] = c;
    int dropped = 0;
    for (const std::string &line : lines(read_file(KSDB_TEST_DATA_DIR "/plan-dropped-indexes.txt"))) {
        const std::vector<std::string> f = split(line, ' ');  // index, table, case or "-"
        if (line.empty() || line[0] == '#') continue;
        SCOPED_TRACE(line);
        ASSERT_EQ(f.size(), 3u);
        const CaseSpec *on = f[2] == "-" ? nullptr : &cases[f[2]];
        ASSERT_TRUE(!on || !on->dir.empty());
        // The state and call are those of a case folder or the demo appliance,
        // which the tests above find clean.
        stage(on, false);
        sql().exec("DROP INDEX `" + f[0] + "`");
        const std::string found = checked([&] {
            return on ? ksdb_import(h(), db(), on->category) : ksdb_account_export(h(), db());
        });
        // The reason of a plan line names the table: "reads every row of $user".
        bool named = false;
        const std::string of = "of " + f[1];
        for (size_t p = found.find(of); p != std::string::npos; p = found.find(of, p + 1)) {
            const size_t end = p + of.size();
            named = named || end == found.size() || found[end] == ' ' || found[end] == '\n';
        }
        EXPECT_TRUE(named) << found;
        ++dropped;
    }
    EXPECT_EQ(dropped, 5);
}
