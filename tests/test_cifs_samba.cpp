// What Samba reads of the CIFS export: hostile values in every guarded
// column, many random shares, and the whole generated configuration, each
// read back by Samba's own parser ("testparm"; skipped when it is missing).
#define KSDB_MODULE "test_cifs_samba"
#include "core/ksdb_internal.h"
#include "tests/support/test_support.h"

#include <dirent.h>
#include <strings.h>
#include <sys/stat.h>

#include <algorithm>
#include <functional>
#include <map>
#include <random>
#include <set>
#include <sstream>

using namespace ksdb_test;

namespace {

using Params = std::map<std::string, std::string>;
using Sections = std::map<std::string, Params>;

// A list as Samba holds it: the set of its entries.
std::string entry_set(std::vector<std::string> list) {
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
    return entry_set(out);
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

// Every file below a folder with its content: what a refused export must
// leave as it found it.
std::map<std::string, std::string> tree(const std::string &dir) {
    std::map<std::string, std::string> out;
    if (DIR *d = opendir(dir.c_str())) {
        while (dirent *e = readdir(d)) {
            const std::string n = e->d_name, p = dir + "/" + n;
            struct stat st;
            if (n == "." || n == ".." || lstat(p.c_str(), &st) != 0) continue;
            if (S_ISDIR(st.st_mode)) {
                for (auto &[k, v] : tree(p)) out[n + "/" + k] = v;
            } else {
                out[n] = read_file(p);
            }
        }
        closedir(d);
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
    Sections samba() {
        return samba_reads(at("/etc/quillfold/samba/Shares.conf"), tmp_ / "smb-check.conf");
    }
};

}  // namespace

// Each hostile value in each guarded column is refused (status 4, no file
// below the root changed, the row named) or, where Samba takes it as plain
// text, written so that Samba reads exactly the intended share and values.
TEST_F(CifsSambaTest, HostileValuesAreRefusedOrReadBackAsExactlyOneValue) {
    sql().exec(
        "INSERT INTO _volume (id,lv_name,blk_size) VALUES('vol1','vol1',1);"
        "INSERT INTO `$user` (id,uname,group_id,is_privileged,rid) VALUES(1000,'alice',100,0,NULL),"
        "(1001,'fuser',100,0,NULL);"
        "INSERT INTO `$group` (id,gname,is_privileged,rid) VALUES(100,'staff',0,NULL);"
        "INSERT INTO host (id,name) VALUES(1,'pc1');"
        "INSERT INTO share (id,zfs_name,volume_id,name,path,comment,user_id,group_id) "
        "VALUES(1,'vol1/docs','vol1','docs','/vol1/docs','Docs',0,0);"
        "INSERT INTO cifs_share_option (share_id,cifs_access,force_user) VALUES(1,'disabled',1001);"
        "INSERT INTO zfs_attr (share_id) VALUES(1);"
        "INSERT INTO user_acl (share_id,user_id,proto,read,write) VALUES(1,1000,'cifs',1,0);"
        "INSERT INTO group_acl (share_id,group_id,proto,read,write) VALUES(1,100,'cifs',1,1);"
        "INSERT INTO host_acl (share_id,host_id,proto,read,write) VALUES(1,1,'cifs',1,1);"
        "INSERT INTO cifs_dfs_option (share_id,volume,share,folder,address,remote_share) "
        "VALUES(1,'vol1','docs','link','server','pub');"
        "INSERT INTO `$application_on_share` (zfs_name,app_name) VALUES('vol1/docs','cms')");
    const Params base = {{"path", "/vol1/docs"},
                         {"comment", "\"Docs\""},
                         {"admin users", entries("+admin Administrator")},
                         {"read list", entries("alice")},
                         {"write list", entries("@staff +admin Administrator")},
                         {"valid users", entries("alice @staff +admin Administrator")},
                         {"hosts allow", entries("pc1")},
                         {"force user", "fuser"}};
    struct Column {
        const char *table, *column, *where, *row;  // row: how the refusal names it
        const char *refused;                       // the labels of the values refused
        std::function<void(Params &, std::string &, const std::string &)> expect;
    };
    auto param = [](const char *key, const char *before, const char *after) {
        return [=](Params &p, std::string &, const std::string &v) {
            p[key] = kLists.count(key) ? entries(before + v + after) : before + v + after;
        };
    };
    const Column columns[] = {
        {"share", "name", "id=1", "'pre", "nl cr nul [ ] % bs ../",
         [](Params &, std::string &s, const std::string &v) { s = v; }},
        {"share", "comment", "id=1", "'docs'", "nl cr nul bs", param("comment", "\"", "\"")},
        {"share", "path", "id=1", "'docs'", "nl cr nul % bs", param("path", "", "")},
        {"$user", "uname", "id=1000", "'1000'", "nl cr nul dq % bs",
         [](Params &p, std::string &, const std::string &v) {
             p["read list"] = entries(v);
             p["valid users"] = entries(v + " @staff +admin Administrator");
         }},
        {"$group", "gname", "id=100", "'100'", "nl cr nul dq % bs",
         [](Params &p, std::string &, const std::string &v) {
             p["write list"] = entries("@" + v + " +admin Administrator");
             p["valid users"] = entries("alice @" + v + " +admin Administrator");
         }},
        {"host", "name", "id=1", "'1'", "nl cr nul dq % bs", param("hosts allow", "", "")},
        {"$user", "uname", "id=1001", "'1001'", "nl cr nul % bs", param("force user", "", "")},
        {"cifs_dfs_option", "folder", "1", "'1/pre", "nl cr nul", nullptr},
        {"cifs_dfs_option", "address", "1", "'1/link'", "nl cr nul", nullptr},
        {"cifs_dfs_option", "share", "1", "'1/link'", "nl cr nul", nullptr},
        {"$application_on_share", "app_name", "1", "'vol1/docs:pre", "nl cr nul % ../", nullptr},
    };
    const std::pair<const char *, std::string> values[] = {
        {"clean", ""},   {"nl", "\n"},  {"cr", "\r"}, {"nul", std::string(1, '\0')},
        {"[", "["},      {"]", "]"},    {";", ";"},   {"#", "#"},
        {"%", "%"},      {"dq", "\""},  {"sq", "'"},  {"bs", "\\"},
        {"$()", "$(id)"}, {"``", "`id`"}, {"../", "../"}};
    ASSERT_EQ(export_cifs(), 0) << log();
    for (const Column &c : columns) {
        std::set<std::string> refused;
        for (std::istringstream in(c.refused); in;) {
            std::string label;
            if (in >> label) refused.insert(label);
        }
        const std::string table = std::string("`") + c.table + "`";
        const std::string old = sql().scalar("SELECT " + std::string(c.column) + " FROM " +
                                             table + " WHERE " + c.where);
        for (const auto &[label, x] : values) {
            // "pre" X "post", the trailing backslash at the end; NUL and the
            // control characters go in through char().
            const std::string v = label == std::string("bs") ? "pre\\" : "pre" + x + "post";
            std::string literal = "'pre'||char(" + std::to_string(x.empty() ? 0 : x[0]) + ")||'post'";
            if (x.empty() || x[0] >= ' ') {
                char *q = sqlite3_mprintf("%Q", v.c_str());
                literal = q;
                sqlite3_free(q);
            }
            const std::string where = std::string(c.where) == "1" ? "" : std::string(" WHERE ") + c.where;
            const std::string what = std::string(c.table) + "." + c.column + " = " + label;
            const auto before = tree(root());
            sql().exec("UPDATE " + table + " SET " + c.column + "=" + literal + where);
            const int rc = export_cifs();
            if (refused.count(label)) {
                EXPECT_EQ(rc, KSDB_E_INVAL) << what;
                EXPECT_EQ(tree(root()), before) << what;
                EXPECT_TRUE(contains(log(), "Refused " + std::string(c.table) + "." + c.column +
                                                " of " + c.row))
                    << what;
            } else if (c.expect) {
                ASSERT_EQ(rc, 0) << what << "\n" << log();
                Params p = base;
                std::string section = "docs";
                c.expect(p, section, v);
                EXPECT_EQ(samba(), (Sections{{section, p}})) << what;
            } else {
                EXPECT_EQ(rc, 0) << what << "\n" << log();
                if (std::string(c.table) == "cifs_dfs_option") {
                    std::map<std::string, std::string> f = {{"folder", "link"},
                                                            {"address", "server"},
                                                            {"share", "docs"}};
                    f[c.column] = v;
                    EXPECT_EQ(get("/etc/quillfold/samba/dfs.conf"),
                              "1!!" + f["folder"] + "!!" + f["address"] + "!!pub!!vol1!!" +
                                  f["share"] + "\n")
                        << what;
                }
            }
            char *q = sqlite3_mprintf("%Q", old.c_str());
            sql().exec("UPDATE " + table + " SET " + c.column + "=" + q + where);
            sqlite3_free(q);
        }
    }
}

// Many shares with random printable names, comments and lists, each value
// drawn until it keeps the rules of the share files: Samba reads back
// exactly the shares and values intended, no more.
TEST_F(CifsSambaTest, RandomSharesReadBackExactlyAsIntended) {
    std::mt19937 rng(20240611);  // fixed: a failure can be replayed
    auto text = [&](size_t lo, size_t hi) {
        std::string s(std::uniform_int_distribution<size_t>(lo, hi)(rng), ' ');
        for (char &c : s) c = static_cast<char>(std::uniform_int_distribution<int>(0x20, 0x7e)(rng));
        return s;
    };
    auto has = [](const std::string &s, const char *set) {
        return s.find_first_of(set) != std::string::npos;
    };
    auto trimmed = [](const std::string &s) {
        return !s.empty() && s.front() != ' ' && s.back() != ' ' && s.back() != '\\';
    };
    // What may stand where: a share name, an account, a host, a comment.
    auto ok_name = [&](const std::string &s) {
        return trimmed(s) && !has(s, "[]/%") && s != "." && s != ".." &&
               strcasecmp(s.c_str(), "global") != 0;
    };
    auto ok_account = [&](const std::string &s) {
        return trimmed(s) && !has(s, "\",%\\") && !std::strchr("@+&", s[0]);
    };
    auto ok_host = [&](const std::string &s) { return trimmed(s) && !has(s, "\",%"); };
    auto draw = [&](auto ok, size_t lo, size_t hi, std::set<std::string> &used) {
        for (;;) {
            std::string s = text(lo, hi), folded = s;
            for (char &c : folded) c = static_cast<char>(std::tolower(c));
            if (ok(s) && used.insert(folded).second) return s;
        }
    };
    auto q = [](const std::string &s) {
        char *p = sqlite3_mprintf("%Q", s.c_str());
        std::string out = p;
        sqlite3_free(p);
        return out;
    };
    sql().exec("INSERT INTO _volume (id,lv_name,blk_size) VALUES('vol1','vol1',1)");
    const std::string admin = "+admin|Administrator|";
    for (int round = 0; round < 3; ++round) {
        for (const char *t : {"share", "cifs_share_option", "zfs_attr", "user_acl", "group_acl",
                              "host_acl", "host", "`$user`", "`$group`"})
            sql().exec(std::string("DELETE FROM ") + t);
        std::set<std::string> used_users, used_groups, used_hosts, used_shares;
        std::vector<std::string> users, groups, hosts;
        for (int i = 0; i < 8; ++i) users.push_back(draw(ok_account, 1, 10, used_users));
        for (int i = 0; i < 4; ++i) groups.push_back(draw(ok_account, 1, 10, used_groups));
        for (int i = 0; i < 4; ++i) hosts.push_back(draw(ok_host, 1, 12, used_hosts));
        for (int i = 0; i < 8; ++i)
            sql().exec("INSERT INTO `$user` (id,uname,group_id,is_privileged) VALUES(" +
                       std::to_string(2000 + i) + "," + q(users[i]) + ",100,0)");
        for (int i = 0; i < 4; ++i) {
            sql().exec("INSERT INTO `$group` (id,gname,is_privileged) VALUES(" +
                       std::to_string(3000 + i) + "," + q(groups[i]) + ",0)");
            sql().exec("INSERT INTO host (id,name) VALUES(" + std::to_string(i + 1) + "," +
                       q(hosts[i]) + ")");
        }
        Sections want;
        for (int id = 1; id <= 15; ++id) {
            const std::string name = draw(ok_name, 1, 12, used_shares);
            std::string comment = text(0, 20);
            if (!comment.empty() && comment.back() == '\\') comment.pop_back();
            const bool writeable = rng() % 2;
            const std::string sid = std::to_string(id);
            sql().exec("INSERT INTO share (id,zfs_name,volume_id,name,path,comment,user_id,"
                       "group_id) VALUES(" + sid + ",'x','vol1'," + q(name) + "," +
                       q("/vol1/" + name) + "," + q(comment) + ",0,0);"
                       "INSERT INTO zfs_attr (share_id) VALUES(" + sid + ");"
                       "INSERT INTO cifs_share_option (share_id,cifs_access) VALUES(" + sid +
                       (writeable ? ",'writeable')" : ",'disabled')"));
            std::vector<std::string> readers, allowed;
            for (int i = 0; i < 8; ++i)
                if (rng() % 4 == 0) {
                    sql().exec("INSERT INTO user_acl (share_id,user_id,proto,read,write) VALUES(" +
                               sid + "," + std::to_string(2000 + i) + ",'cifs',1,0)");
                    readers.push_back(users[i]);
                }
            for (int i = 0; i < 4; ++i) {
                if (rng() % 3 == 0) {
                    sql().exec("INSERT INTO group_acl (share_id,group_id,proto,read,write) "
                               "VALUES(" + sid + "," + std::to_string(3000 + i) + ",'cifs',1,0)");
                    readers.push_back("@" + groups[i]);
                }
                if (rng() % 3 == 0) {
                    sql().exec("INSERT INTO host_acl (share_id,host_id,proto,read,write) VALUES(" +
                               sid + "," + std::to_string(i + 1) + ",'cifs',1,1)");
                    allowed.push_back(hosts[i]);
                }
            }
            Params &p = want[name];
            p["path"] = "/vol1/" + name;
            p["comment"] = "\"" + comment + "\"";
            p["admin users"] = admin;
            if (!readers.empty()) p["read list"] = entry_set(readers);
            if (writeable) {
                p["read only"] = "No";
            } else {
                p["write list"] = admin;
                std::vector<std::string> valid = readers;
                valid.insert(valid.end(), {"+admin", "Administrator"});
                p["valid users"] = entry_set(valid);
            }
            if (!allowed.empty()) p["hosts allow"] = entry_set(allowed);
        }
        ASSERT_EQ(export_cifs(), 0) << log();
        EXPECT_EQ(samba(), want) << "round " << round;
    }
}

// The whole Samba configuration of an appliance as the daemon reads it,
// passed by Samba's checker: smb.conf from the service settings with the
// share file and the other generated files in place, in stand-alone and in
// domain mode.
TEST_F(CifsSambaTest, SambaAcceptsTheWholeGeneratedConfigurationInBothModes) {
    sql().exec(read_file(std::string(KSDB_CASES_DIR) + "/cifs-share/volume-shares/db.sql"));
    // The include files of the applications live on the appliance.
    sql().exec("DELETE FROM `$application_on_share`");
    sql().exec("UPDATE _volume SET uuid='0b9c6d2e-1111-2222-3333-444455556666' WHERE id<>'media'");
    sql().exec("UPDATE service_cifs SET oplocks=1,allow_trusted_domains=0,map_to_guest='Bad User'");
    sql().exec("INSERT INTO service_misc (key,val) VALUES('LANGUAGE','de')");
    // The files of the appliance that this library does not generate.
    put("/etc/quillfold/samba/smb.conf.defaults", "# defaults\n server min protocol = SMB2\n");
    put("/etc/quillfold/samba/smb.conf.UNKNOWN", "# per client kind\n");  // %a as testparm sees it
    put("/etc/quillfold/samba/smb.conf.overrides", "# overrides\n");
    put("/etc/quillfold/samba/Shares.conf.", "# per user\n");  // %U expands to nothing
    put("/etc/quillfold/samba/addons/addons.conf", "# add-ons\n");
    auto check = [&](const char *mode) {
        ASSERT_EQ(ksdb_export(h(), db(), KSDB_CAT_ALL_SERVICE), 0) << mode;
        ASSERT_EQ(export_cifs(), 0) << mode;
        // The include lines name live paths: check a copy pointing below
        // the root, so the checker reads exactly what was generated.
        std::string text = get("/etc/samba/smb.conf");
        text = replace_all(text, " /etc/quillfold/", " " + root() + "/etc/quillfold/");
        text = replace_all(text, " /run/usb/", " " + root() + "/run/usb/");
        write_file(at("/smb.check.conf"), text);
        std::string out;
        EXPECT_EQ(run_checker("check-smb.sh", at("/smb.check.conf"), &out), 0) << mode << out;
        EXPECT_TRUE(contains(text, root() + "/etc/quillfold/samba/Shares.conf")) << mode;
    };
    check("stand-alone");
    sql().exec(
        "UPDATE service_cifs SET security='ads',workgroup='CORP',realm='CORP.EXAMPLE.COM',"
        "domain_admin_user='Administrator',idmap_backend='tdb',join_ads_failed=1");
    check("domain");
    EXPECT_TRUE(contains(get("/etc/quillfold/samba/Shares.conf"),
                         "  admin users = \"+admin\",\"CORP\\Administrator\"\n"));
}

