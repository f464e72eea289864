// The case runner: each case folder's export law and import law.
#include "tests/support/case_runner.h"

#include "tests/support/test_support.h"

#include <dirent.h>
#include <sys/stat.h>
#include <unistd.h>

#include <strings.h>

#include <algorithm>
#include <cctype>
#include <map>
#include <sstream>

namespace ksdb_test {
namespace {

bool is_dir(const std::string &path) {
    struct stat st;
    return stat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
}

std::vector<std::string> entries(const std::string &dir) {
    std::vector<std::string> out;
    if (DIR *d = opendir(dir.c_str())) {
        while (dirent *e = readdir(d)) {
            std::string n = e->d_name;
            if (n != "." && n != "..") out.push_back(n);
        }
        closedir(d);
    }
    std::sort(out.begin(), out.end());
    return out;
}

// Every regular file below `dir`, as paths relative to it ("etc/exports").
void walk(const std::string &dir, const std::string &rel, std::vector<std::string> *out) {
    for (const std::string &n : entries(dir + rel)) {
        const std::string r = rel.empty() ? n : rel + "/" + n;
        struct stat st;
        if (lstat((dir + "/" + r).c_str(), &st) != 0) continue;
        if (S_ISDIR(st.st_mode))
            walk(dir, "/" + r, out);
        else
            out->push_back(r[0] == '/' ? r.substr(1) : r);
    }
}

std::vector<std::string> files_below(const std::string &dir) {
    std::vector<std::string> out;
    if (is_dir(dir)) walk(dir, "", &out);
    return out;
}

void copy_tree(const std::string &from, const std::string &to) {
    if (!is_dir(from)) return;
    for (const std::string &rel : files_below(from)) {
        const size_t slash = rel.rfind('/');
        const std::string base = slash == std::string::npos ? rel : rel.substr(slash + 1);
        if (slash != std::string::npos) mkdirs(to + "/" + rel.substr(0, slash));
        if (base == ".keep") continue;
        write_file(to + "/" + rel, read_file(from + "/" + rel));
    }
}

// Every file below the root with its content and mode, the scratch folder
// excepted: the state a failed export must leave as it found it.
std::map<std::string, std::string> snapshot(const std::string &root) {
    std::map<std::string, std::string> out;
    for (const std::string &rel : files_below(root)) {
        if (rel.rfind("tmp/", 0) == 0) continue;
        struct stat st;
        lstat((root + "/" + rel).c_str(), &st);
        out[rel] = std::to_string(st.st_mode) + ":" + read_file(root + "/" + rel);
    }
    return out;
}

std::string trim(std::string s) {
    const char *blanks = " \t\r\n";
    s.erase(0, s.find_first_not_of(blanks));
    s.erase(s.find_last_not_of(blanks) + 1);
    return s;
}

int status_of(const std::string &v) { return std::atoi(v.c_str()); }

void run_sql_file(sqlite3 *db, const std::string &path) {
    if (!exists(path)) return;
    char *err = nullptr;
    const std::string sql = read_file(path);
    if (sqlite3_exec(db, sql.c_str(), nullptr, nullptr, &err) != SQLITE_OK) {
        ADD_FAILURE() << path << ": " << (err ? err : "?");
        sqlite3_free(err);
    }
}

std::vector<std::string> query_rows(sqlite3 *db, const std::string &sql, std::string *error) {
    std::vector<std::string> out;
    sqlite3_stmt *st = nullptr;
    if (sqlite3_prepare_v2(db, sql.c_str(), -1, &st, nullptr) != SQLITE_OK) {
        *error = sqlite3_errmsg(db);
        return out;
    }
    while (sqlite3_step(st) == SQLITE_ROW) {
        std::string row;
        for (int c = 0; c < sqlite3_column_count(st); ++c) {
            if (c) row += "|";
            const unsigned char *v = sqlite3_column_text(st, c);
            row += v ? reinterpret_cast<const char *>(v) : "<NULL>";
        }
        out.push_back(row);
    }
    sqlite3_finalize(st);
    return out;
}

std::string losses_note(const CaseSpec &spec) {
    std::string out;
    for (const std::string &l : spec.losses) out += "\n  known loss: " + l;
    return out;
}

// A test of one law: a fresh debug root with the fakes first on PATH, a
// fresh database at the current schema.
class CaseTest : public RootTest {
  public:
    CaseTest(CaseSpec spec, bool exporting) : spec_(std::move(spec)), exporting_(exporting) {}
    void TestBody() override {
        ASSERT_EQ(ksdb_create(h(), db()), 0) << log();
        if (exporting_)
            export_law();
        else
            import_law();
    }

  private:
    void check_log() {
        const std::string text = log();
        for (const std::string &l : spec_.log_lines)
            EXPECT_NE(text.find(l), std::string::npos) << "the log lacks: " << l;
    }

    void export_law() {
        copy_tree(spec_.dir + "/given", root());
        run_sql_file(db(), spec_.dir + "/db.sql");
        const auto before = snapshot(root());
        clear_fake_calls();
        const int rc = ksdb_export(h(), db(), spec_.category);
        ASSERT_EQ(rc, spec_.export_status) << log();
        check_log();
        if (spec_.export_status != 0) {
            EXPECT_EQ(snapshot(root()), before) << "a failed export changed files";
            return;
        }
        const std::string expect = spec_.dir + "/expect";
        for (const std::string &rel : files_below(expect)) {
            if (rel.size() >= 5 && rel.compare(rel.size() - 5, 5, ".keep") == 0) continue;
            const std::string got = root() + "/" + rel;
            if (!exists(got)) {
                ADD_FAILURE() << "the export did not write /" << rel;
                continue;
            }
            EXPECT_EQ(read_file(got), read_file(expect + "/" + rel)) << "/" << rel;
        }
        check_modes();
        check_calls();
        if (!exists(spec_.dir + "/absent")) return;
        for (const std::string &live : lines(read_file(spec_.dir + "/absent"))) {
            if (trim(live).empty() || live[0] == '#') continue;
            EXPECT_FALSE(exists(at(trim(live)))) << live << " should not be written";
        }
    }

    void check_modes() {
        const std::string path = spec_.dir + "/modes";
        if (!exists(path)) return;
        for (const std::string &line : lines(read_file(path))) {
            if (trim(line).empty() || line[0] == '#') continue;
            std::istringstream in(line);
            std::string mode, owner, live;
            in >> mode >> owner >> live;
            struct stat st {};
            if (stat(at(live).c_str(), &st) != 0) {
                ADD_FAILURE() << live << " is missing";
                continue;
            }
            char got[64];
            std::snprintf(got, sizeof got, "%04o %u:%u", st.st_mode & 07777, st.st_uid, st.st_gid);
            EXPECT_EQ(std::string(got), mode + " " + owner) << live;
        }
    }

    void check_calls() {
        const std::string path = spec_.dir + "/calls";
        if (!exists(path)) return;
        std::vector<FakeCall> want;
        for (const std::string &line : lines(read_file(path))) {
            if (line.empty() || line[0] == '#') continue;
            FakeCall call;
            size_t p = 0;
            while (true) {
                size_t q = line.find('\t', p);
                call.push_back(replace_all(line.substr(p, q - p), "{root}", root()));
                if (q == std::string::npos) break;
                p = q + 1;
            }
            want.push_back(call);
        }
        EXPECT_EQ(fake_calls(), want);
    }

    void import_law() {
        copy_tree(spec_.dir + "/given", root());
        copy_tree(spec_.dir + "/expect", root());
        run_sql_file(db(), spec_.dir + "/seed.sql");
        const int rc = ksdb_import(h(), db(), spec_.category);
        ASSERT_EQ(rc, spec_.import_status) << log() << losses_note(spec_);
        check_log();
        const std::string path = spec_.dir + "/rows";
        if (!exists(path)) return;
        std::string query;
        std::vector<std::string> want;
        auto flush = [&] {
            if (query.empty()) return;
            std::string error;
            auto got = query_rows(db(), query, &error);
            EXPECT_EQ(error, "") << query;
            EXPECT_EQ(got, want) << query << losses_note(spec_);
            want.clear();
        };
        for (const std::string &line : lines(read_file(path))) {
            if (line.rfind("> ", 0) == 0) {
                flush();
                query = line.substr(2);
            } else if (!line.empty() && line[0] != '#') {
                want.push_back(line);
            }
        }
        flush();
    }

    CaseSpec spec_;
    bool exporting_;
};

}  // namespace

void run_export_law(const CaseSpec &spec) {
    CaseTest law(spec, true);
    law.TestBody();
}

void run_import_law(const CaseSpec &spec) {
    CaseTest law(spec, false);
    law.TestBody();
}

int category_from_text(const std::string &text) {
    const std::string t = trim(text);
    if (!t.empty() && std::all_of(t.begin(), t.end(), ::isdigit)) {
        int n = std::atoi(t.c_str());
        return n < KSDB_CATEGORY_COUNT ? n : -1;
    }
    for (int c = 0; c < KSDB_CATEGORY_COUNT; ++c)
        if (strcasecmp(ksdb_cat2str(c), t.c_str()) == 0) return c;
    return -1;
}

std::vector<CaseSpec> find_cases(const std::string &root) {
    std::vector<CaseSpec> out;
    for (const std::string &area : entries(root)) {
        if (!is_dir(root + "/" + area)) continue;
        for (const std::string &name : entries(root + "/" + area)) {
            CaseSpec spec;
            spec.dir = root + "/" + area + "/" + name;
            spec.name = area + "/" + name;
            if (!exists(spec.dir + "/case")) continue;
            for (const std::string &line : lines(read_file(spec.dir + "/case"))) {
                if (trim(line).empty() || line[0] == '#') continue;
                const size_t colon = line.find(':');
                if (colon == std::string::npos) continue;
                const std::string key = trim(line.substr(0, colon));
                const std::string value = trim(line.substr(colon + 1));
                if (key == "category") {
                    spec.category = category_from_text(value);
                } else if (key == "laws") {
                    spec.export_law = value.find("export") != std::string::npos;
                    spec.import_law = value.find("import") != std::string::npos;
                } else if (key == "export-status") {
                    spec.export_status = status_of(value);
                } else if (key == "import-status") {
                    spec.import_status = status_of(value);
                } else if (key == "losses") {
                    spec.losses.push_back(value);
                } else if (key == "log") {
                    spec.log_lines.push_back(value);
                }
            }
            out.push_back(spec);
        }
    }
    return out;
}

void register_case_tests(const std::string &root) {
    for (const CaseSpec &spec : find_cases(root)) {
        // Only letters, digits and "_" in the names: a "-" would start a
        // negative pattern in the filter ctest runs each test with.
        auto ident = [](std::string s) {
            for (char &c : s)
                if (!std::isalnum(static_cast<unsigned char>(c))) c = '_';
            return s;
        };
        const std::string suite = "Cases_" + ident(spec.name.substr(0, spec.name.find('/')));
        const std::string base = ident(spec.name.substr(spec.name.find('/') + 1));
        if (spec.category < 0) {
            ::testing::RegisterTest(suite.c_str(), (base + "_case").c_str(), nullptr, nullptr,
                                    __FILE__, __LINE__, [spec]() -> ::testing::Test * {
                                        struct Bad : ::testing::Test {
                                            std::string n;
                                            void TestBody() override {
                                                ADD_FAILURE() << n << ": no valid category";
                                            }
                                        };
                                        auto *t = new Bad;
                                        t->n = spec.name;
                                        return t;
                                    });
            continue;
        }
        if (spec.export_law)
            ::testing::RegisterTest(suite.c_str(), (base + "_export").c_str(), nullptr, nullptr,
                                    __FILE__, __LINE__, [spec]() -> ::testing::Test * {
                                        return new CaseTest(spec, true);
                                    });
        if (spec.import_law)
            ::testing::RegisterTest(suite.c_str(), (base + "_import").c_str(), nullptr, nullptr,
                                    __FILE__, __LINE__, [spec]() -> ::testing::Test * {
                                        return new CaseTest(spec, false);
                                    });
    }
}

}  // namespace ksdb_test
