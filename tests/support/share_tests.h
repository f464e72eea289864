// What the share exporters' tests share: the hostile-value walk (each guarded
// column set in turn to "pre" X "post" for every hostile X, a trailing
// backslash as "pre\"; each export either refuses the value, status 4 with the
// row named in the log and no file below the root changed, or writes it so
// that the check given reads back exactly that value), and an export's statements.
#pragma once

#include "tests/support/test_support.h"

#include <functional>
#include <map>
#include <set>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

namespace ksdb_test {

struct HostileColumn {
    const char *table, *column, *where;
    const char *row;      // how the refusal line names the row ("'1000'", or a prefix)
    const char *refused;  // the labels of the values refused, blank-separated ("!x": x not walked)
    std::function<void(const std::string &)> check;  // an accepted value read back
};

// The labels of the hostile texts and the characters put between "pre" and
// "post" ("lead-" stands before the value in the NFS walk).
inline const std::vector<std::pair<std::string, std::string>> kHostile = {
    {"clean", ""},    {"nl", "\n"},     {"cr", "\r"},    {"nul", std::string(1, '\0')},
    {"sp", " "},      {"tab", "\t"},    {"[", "["},      {"]", "]"},
    {";", ";"},       {"#", "#"},       {"%", "%"},      {"dq", "\""},
    {"sq", "'"},      {",", ","},       {"=", "="},      {":", ":"},
    {"*", "*"},       {"(", "("},       {")", ")"},      {"bs", "\\"},
    {"$()", "$(id)"}, {"``", "`id`"},   {"/", "/"},      {"../", "../"},
    {"/../", "/../"}, {"lead-", "-"},   {"punct", "!&+.<>?@^_{|}~"}};

// `restore` runs after each value, once the column holds its old value again.
inline void walk_hostile_values(const std::string &root, Db &sql,
                                const std::function<int()> &export_fn,
                                const std::function<std::string()> &log,
                                const std::vector<HostileColumn> &columns,
                                const std::function<void()> &restore = [] {}) {
    for (const HostileColumn &c : columns) {
        std::set<std::string> refused;
        std::istringstream in(c.refused);
        for (std::string l; in >> l;) refused.insert(l);
        const std::string table = std::string("`") + c.table + "`";
        const std::string set = "UPDATE " + table + " SET " + c.column + "=";
        const std::string where = std::string(" WHERE ") + c.where;
        const std::string old =
            sql.scalar("SELECT " + std::string(c.column) + " FROM " + table + where);
        for (const auto &[label, x] : kHostile) {
            if (refused.count("!" + label)) continue;
            const std::string v = label == "bs" ? "pre\\" : "pre" + x + "post";
            const std::string literal = x.size() == 1 && x[0] < ' '
                                            ? "'pre'||char(" + std::to_string(x[0]) + ")||'post'"
                                            : sql_quoted(v);
            const std::string what = std::string(c.table) + "." + c.column + " = " + label;
            const auto before = file_tree(root);
            sql.exec(set + literal + where);
            const int rc = export_fn();
            if (refused.count(label)) {
                EXPECT_EQ(rc, KSDB_E_INVAL) << what;
                EXPECT_EQ(file_tree(root), before) << what;
                EXPECT_NE(log().find("Refused " + std::string(c.table) + "." + c.column + " of " +
                                     c.row),
                          std::string::npos)
                    << what;
            } else {
                EXPECT_EQ(rc, 0) << what << "\n" << log();
                if (rc == 0) c.check(v);
            }
            sql.exec(set + sql_quoted(old) + where);
            restore();
        }
    }
}

// The SELECT statements fn() runs, from the handle's SQL trace.
inline int selects_during(ksdb_handle *h, const std::function<void()> &fn) {
    CaptureFile trace;
    h->trace_stream = trace.get();
    fn();
    h->trace_stream = nullptr;
    int n = 0;
    for (const std::string &l : lines(trace.text()))
        if (l.find("sql=SELECT") != std::string::npos) ++n;
    return n;
}

}  // namespace ksdb_test
