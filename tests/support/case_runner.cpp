// The case runner: each case folder's export law and import law.
#include "tests/support/case_runner.h"

#include "tests/support/test_support.h"

#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <strings.h>

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <map>
#include <sstream>

namespace ksdb_test {

std::vector<std::string> files_below(const std::string &dir) {
    std::vector<std::string> out;
    std::error_code ec;
    for (const auto &e : std::filesystem::recursive_directory_iterator(dir, ec))
        if (!e.is_directory() || e.is_symlink()) out.push_back(e.path().lexically_relative(dir));
    std::sort(out.begin(), out.end());
    return out;
}

void copy_tree(const std::string &from, const std::string &to) {
    for (const std::string &rel : files_below(from)) {
        if (std::filesystem::path(rel).filename() == ".keep")
            mkdirs(to + "/" + std::filesystem::path(rel).parent_path().string());
        else
            write_file(to + "/" + rel, read_file(from + "/" + rel));
    }
}

namespace {

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

void run_sql_file(sqlite3 *db, const std::string &path) {
    if (!exists(path)) return;
    char *err = nullptr;
    const std::string sql = read_file(path);
    if (sqlite3_exec(db, sql.c_str(), nullptr, nullptr, &err) != SQLITE_OK) {
        ADD_FAILURE() << path << ": " << (err ? err : "?");
        sqlite3_free(err);
    }
}

std::string losses_note(const CaseSpec &spec) {
    std::string out;
    for (const std::string &l : spec.losses) out += "\n  known loss: " + l;
    return out;
}

// The lines of a case file that are neither blank nor comments (none when
// the file is missing).
std::vector<std::string> data_lines(const std::string &path) {
    std::vector<std::string> out;
    if (exists(path))
        for (const std::string &l : lines(read_file(path)))
            if (!trim(l).empty() && l[0] != '#') out.push_back(l);
    return out;
}

// The calls no category makes that a case may name instead.
int call_named(const std::string &name, ksdb_handle *h, sqlite3 *db) {
    if (name == "ksdb_account_export") return ksdb_account_export(h, db);
    if (name == "ksdb_avahi_service_export") return ksdb_avahi_service_export(h, db);
    if (name == "ksdb_avahi_service_import") return ksdb_avahi_service_import(h, db);
    ADD_FAILURE() << "unknown call " << name;
    return -1;
}

// An expected text with "{fsid:VOLUME}" replaced by the file-system id of
// the folder /VOLUME below the root.
std::string expected_text(const CaseSpec &spec, const std::string &root, const std::string &rel) {
    std::string text = read_file(spec.dir + "/expect/" + rel);
    for (size_t p; (p = text.find("{fsid:")) != std::string::npos;) {
        const size_t end = text.find('}', p);
        struct statvfs st {};
        statvfs((root + "/" + text.substr(p + 6, end - p - 6)).c_str(), &st);
        text.replace(p, end + 1 - p, std::to_string(st.f_fsid));
    }
    return text;
}

// A test of one law: a fresh debug root with the fakes first on PATH, a
// fresh database at the current schema.
class CaseTest : public RootTest {
  public:
    CaseTest(CaseSpec spec, bool exporting) : spec_(std::move(spec)), exporting_(exporting) {}
    void TestBody() override {
        ASSERT_GE(spec_.category, 0) << spec_.name << ": no valid category";
        ASSERT_EQ(ksdb_create(h(), db()), 0) << log();
        ScopedCwd cwd(root());  // a command injected with a relative name leaves its file here
        if (exporting_)
            export_law();
        else
            import_law();
    }

  private:
    void check_log() {
        const std::string text = log();
        for (const std::string &l : spec_.log_lines)
            EXPECT_TRUE(contains(text, l)) << "the log lacks: " << l;
    }

    void export_law() {
        stage_case(spec_, true, root(), db());
        const auto before = snapshot(root());
        clear_fake_calls();
        const int rc = run_case_call(spec_, true, h(), db());
        ASSERT_EQ(rc, spec_.export_status) << log();
        check_log();
        if (spec_.export_status != 0) {
            EXPECT_EQ(snapshot(root()), before) << "a failed export changed files";
            return;
        }
        for (const std::string &rel : files_below(spec_.dir + "/expect")) {
            if (rel.ends_with(".keep")) continue;
            if (!exists(root() + "/" + rel))
                ADD_FAILURE() << "the export did not write /" << rel;
            else
                EXPECT_EQ(read_file(root() + "/" + rel), expected_text(spec_, root(), rel)) << "/" << rel;
        }
        for (const std::string &line : data_lines(spec_.dir + "/modes")) {
            std::istringstream in(line);
            std::string mode, owner, live;
            in >> mode >> owner >> live;
            struct stat st {};
            char got[64] = "missing";
            if (stat(at(live).c_str(), &st) == 0)
                std::snprintf(got, sizeof got, "%04o %u:%u", st.st_mode & 07777, st.st_uid,
                              st.st_gid);
            EXPECT_EQ(std::string(got), mode + " " + owner) << live;
        }
        if (exists(spec_.dir + "/calls")) {
            std::vector<FakeCall> want;
            for (const std::string &line : data_lines(spec_.dir + "/calls")) {
                want.push_back(split(replace_all(line, "{root}", root()), '\t'));
            }
            EXPECT_EQ(fake_calls(), want);
        }
        for (const std::string &live : data_lines(spec_.dir + "/absent"))
            EXPECT_FALSE(exists(at(trim(live)))) << live << " should not be written";
    }

    // The import reads what the export leaves: given/ and expect/, without
    // the paths of `absent`.
    void import_law() {
        stage_case(spec_, false, root(), db());
        const int rc = run_case_call(spec_, false, h(), db());
        ASSERT_EQ(rc, spec_.import_status) << log() << losses_note(spec_);
        check_log();
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
        for (const std::string &line : data_lines(spec_.dir + "/rows")) {
            if (line.rfind("> ", 0) == 0) {
                flush();
                query = line.substr(2);
            } else {
                want.push_back(line);
            }
        }
        flush();
    }

    CaseSpec spec_;
    bool exporting_;
};

}  // namespace

void stage_case(const CaseSpec &spec, bool for_export, const std::string &root, sqlite3 *db) {
    copy_tree(spec.dir + "/given", root);
    if (for_export) {
        run_sql_file(db, spec.dir + "/db.sql");
        return;
    }
    for (const std::string &rel : files_below(spec.dir + "/expect"))
        if (!rel.ends_with(".keep")) write_file(root + "/" + rel, expected_text(spec, root, rel));
    for (const std::string &live : data_lines(spec.dir + "/absent"))
        unlink((root + trim(live)).c_str());
    run_sql_file(db, spec.dir + "/seed.sql");
}

int run_case_call(const CaseSpec &spec, bool exporting, ksdb_handle *h, sqlite3 *db) {
    const std::string &named = exporting ? spec.export_call : spec.import_call;
    if (!named.empty()) return call_named(named, h, db);
    return exporting ? ksdb_export(h, db, spec.category) : ksdb_import(h, db, spec.category);
}

void run_export_law(const CaseSpec &spec) {
    CaseTest law(spec, true);
    law.TestBody();
}

namespace {

// A category by name (any case) or number; -1 when unknown.
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

}  // namespace

std::vector<CaseSpec> find_cases(const std::string &root) {
    std::vector<CaseSpec> out;
    for (const std::string &area : list_dir(root)) {
        for (const std::string &name : list_dir(root + "/" + area)) {
            CaseSpec spec;
            spec.dir = root + "/" + area + "/" + name;
            spec.name = area + "/" + name;
            for (const std::string &line : data_lines(spec.dir + "/case")) {
                const size_t colon = line.find(':');
                const std::string key = trim(line.substr(0, colon));
                const std::string value =
                    colon == std::string::npos ? "" : trim(line.substr(colon + 1));
                if (key == "category") spec.category = category_from_text(value);
                if (key == "laws") {
                    spec.export_law = contains(value, "export");
                    spec.import_law = contains(value, "import");
                }
                if (key == "export-status") spec.export_status = std::atoi(value.c_str());
                if (key == "import-status") spec.import_status = std::atoi(value.c_str());
                if (key == "losses") spec.losses.push_back(value);
                if (key == "log") spec.log_lines.push_back(value);
                if (key == "export-call") spec.export_call = value;
                if (key == "import-call") spec.import_call = value;
            }
            if (exists(spec.dir + "/case")) out.push_back(spec);
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
        for (bool exporting : {true, false}) {
            if (spec.category >= 0 && !(exporting ? spec.export_law : spec.import_law)) continue;
            // A case without a valid category registers one test, which fails.
            const std::string name =
                base + (spec.category < 0 ? "_case" : exporting ? "_export" : "_import");
            ::testing::RegisterTest(
                suite.c_str(), name.c_str(), nullptr, nullptr, __FILE__, __LINE__,
                [spec, exporting]() -> ::testing::Test * { return new CaseTest(spec, exporting); });
            if (spec.category < 0) break;
        }
    }
}

}  // namespace ksdb_test
