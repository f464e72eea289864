// What Samba's own parser (testparm) reads of the CIFS share export: hostile
// values in every guarded column.
#define KSDB_MODULE "test_cifs_samba"
#include "core/ksdb_internal.h"
#include "tests/support/share_tests.h"

#include <algorithm>

using namespace ksdb_test;

namespace {

using Params = std::map<std::string, std::string>;
using Sections = std::map<std::string, Params>;

// A list as Samba holds it: the set of its entries.
std::string set_of(std::vector<std::string> list) {
    std::sort(list.begin(), list.end());
    std::string joined;
    for (const auto &e : list) joined += e + "|";
    return joined;
}

// A list value as "testparm -s" prints it: entries separated by blanks, an
// entry holding blanks in double quotes.
std::string entries(const std::string &list) {
    std::vector<std::string> out;
    for (size_t p = 0; p < list.size();) {
        if (list[p] == ' ') { ++p; continue; }
        const bool quoted = list[p] == '"';
        const size_t end = quoted ? list.find('"', p + 1) : list.find(' ', p);
        const size_t stop = end == std::string::npos ? list.size() : end;
        out.push_back(list.substr(p + quoted, stop - p - quoted));
        p = stop + quoted;
    }
    return set_of(out);
}

const std::set<std::string> kLists = {"admin users", "read list",     "write list",
                                      "valid users", "invalid users", "hosts allow"};

// The shares Samba reads from the generated Shares.conf, as "testparm -s"
// prints them (lists as entry sets).
Sections samba_reads(const std::string &shares_conf, const std::string &scratch) {
    write_file(scratch, "[global]\n  workgroup = WG\n  include = " + shares_conf + "\n");
    Sections out;
    std::string text;
    if (FILE *p = popen(("testparm -s '" + scratch + "' 2>/dev/null").c_str(), "r")) {
        char buf[4096];
        while (size_t n = fread(buf, 1, sizeof buf, p)) text.append(buf, n);
        pclose(p);
    }
    std::string section;
    for (const std::string &line : lines(text)) {
        if (line.size() > 1 && line[0] == '[' && line.back() == ']') {
            section = line.substr(1, line.size() - 2);
            if (section != "global") out[section];
        } else if (line[0] == '\t' && section != "global" && contains(line, " = ")) {
            const size_t eq = line.find(" = ");
            const std::string key = line.substr(1, eq - 1), value = line.substr(eq + 3);
            out[section][key] = kLists.count(key) ? entries(value) : value;
        }
    }
    return out;
}

class CifsSambaTest : public RootTest {
  protected:
    void SetUp() override {
        if (!have_program("testparm")) GTEST_SKIP() << "testparm is not installed (scripts/setup-deps)";
        ASSERT_EQ(ksdb_create(h(), db()), 0);
        for (const char *v : {"/vol1/._share", "/vol2/._share", "/media/._share"}) mkdirs(at(v));
    }
    int export_cifs() { return ksdb_export(h(), db(), KSDB_CAT_CIFS_SHARE); }
};

}  // namespace

// Guards: a hostile value written where Samba reads more or other than it; a refusal
// that changes a file or does not name the row.
TEST_F(CifsSambaTest, HostileValuesAreRefusedOrReadBackAsExactlyOneValue) {
    sql().exec(read_file(KSDB_TEST_DATA_DIR "/samba-hostile.sql"));
    const Params base = {{"path", "/vol1/docs"},
                         {"comment", "\"Docs\""},
                         {"admin users", entries("+admin Administrator")},
                         {"read list", entries("alice")},
                         {"write list", entries("@staff +admin Administrator")},
                         {"valid users", entries("alice @staff +admin Administrator")},
                         {"hosts allow", entries("pc1")},
                         {"force user", "fuser"}};
    // Samba reads share "docs" (or `section`) with the base values and `changed`.
    auto reads = [&](const Params &changed, const std::string &section = "docs") {
        Params p = base;
        for (const auto &[k, v] : changed) p[k] = v;
        EXPECT_EQ(samba_reads(at("/etc/quillfold/samba/Shares.conf"), tmp_ / "smb-check.conf"),
                  (Sections{{section, p}}));
    };
    auto param = [&](const char *key, std::string before, std::string after) {
        return [=, &reads](const std::string &v) {
            reads({{key, kLists.count(key) ? set_of({before + v + after}) : before + v + after}});
        };
    };
    auto dfs = [&](const char *column) {
        return [this, column](const std::string &v) {
            std::map<std::string, std::string> f = {
                {"folder", "link"}, {"address", "server"}, {"share", "docs"}};
            f[column] = v;
            EXPECT_EQ(get("/etc/quillfold/samba/dfs.conf"),
                      "1!!" + f["folder"] + "!!" + f["address"] + "!!pub!!vol1!!" + f["share"] + "\n");
        };
    };
    const std::vector<HostileColumn> columns = {
        {"share", "name", "id=1", "'pre", "nl cr nul [ ] % bs / ../ /../",
         [&](const std::string &v) { reads({}, v); }},
        {"share", "comment", "id=1", "'docs'", "nl cr nul bs", param("comment", "\"", "\"")},
        {"share", "path", "id=1", "'docs'", "nl cr nul % bs", param("path", "", "")},
        {"$user", "uname", "id=1000", "'1000'", "nl cr nul dq % bs ,",
         [&](const std::string &v) {
             reads({{"read list", set_of({v})},
                    {"valid users", set_of({v, "@staff", "+admin", "Administrator"})}});
         }},
        {"$group", "gname", "id=100", "'100'", "nl cr nul dq % bs ,",
         [&](const std::string &v) {
             reads({{"write list", set_of({"@" + v, "+admin", "Administrator"})},
                    {"valid users", set_of({"alice", "@" + v, "+admin", "Administrator"})}});
         }},
        {"host", "name", "id=1", "'1'", "nl cr nul dq % bs ,", param("hosts allow", "", "")},
        {"$user", "uname", "id=1001", "'1001'", "nl cr nul % bs", param("force user", "", "")},
        // A '!' (in "punct") would split a DFS line.
        {"cifs_dfs_option", "folder", "1", "'1/pre", "nl cr nul punct", dfs("folder")},
        {"cifs_dfs_option", "address", "1", "'1/link'", "nl cr nul punct", dfs("address")},
        {"cifs_dfs_option", "share", "1", "'1/link'", "nl cr nul punct", dfs("share")},
        {"$application_on_share", "app_name", "1", "'vol1/docs:pre", "nl cr nul % / ../ /../",
         [](const std::string &) {}},
    };
    ASSERT_EQ(export_cifs(), 0) << log();
    walk_hostile_values(root(), sql(), [&] { return export_cifs(); }, [&] { return log(); }, columns);
}
