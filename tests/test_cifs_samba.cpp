// What Samba's own parser (testparm) reads of the CIFS share export: hostile
// values in every guarded column, and many random shares.
#define KSDB_MODULE "test_cifs_samba"
#include "core/ksdb_internal.h"
#include "tests/support/share_tests.h"

#include <strings.h>

#include <algorithm>
#include <random>

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

// Guards: a hostile value written where Samba reads more or other than it; a refusal
// that changes a file or does not name the row.
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
    // Samba reads share "docs" (or `section`) with the base values and `changed`.
    auto reads = [&](const Params &changed, const std::string &section = "docs") {
        Params p = base;
        for (const auto &[k, v] : changed) p[k] = v;
        EXPECT_EQ(samba(), (Sections{{section, p}}));
    };
    auto param = [&](const char *key, std::string before, std::string after) {
        return [=, &reads](const std::string &v) {
            reads({{key, kLists.count(key) ? entries(before + v + after) : before + v + after}});
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
        {"share", "name", "id=1", "'pre", "nl cr nul [ ] % bs ../",
         [&](const std::string &v) { reads({}, v); }},
        {"share", "comment", "id=1", "'docs'", "nl cr nul bs", param("comment", "\"", "\"")},
        {"share", "path", "id=1", "'docs'", "nl cr nul % bs", param("path", "", "")},
        {"$user", "uname", "id=1000", "'1000'", "nl cr nul dq % bs",
         [&](const std::string &v) {
             reads({{"read list", entries(v)}, {"valid users", entries(v + " @staff +admin Administrator")}});
         }},
        {"$group", "gname", "id=100", "'100'", "nl cr nul dq % bs",
         [&](const std::string &v) {
             reads({{"write list", entries("@" + v + " +admin Administrator")},
                    {"valid users", entries("alice @" + v + " +admin Administrator")}});
         }},
        {"host", "name", "id=1", "'1'", "nl cr nul dq % bs", param("hosts allow", "", "")},
        {"$user", "uname", "id=1001", "'1001'", "nl cr nul % bs", param("force user", "", "")},
        {"cifs_dfs_option", "folder", "1", "'1/pre", "nl cr nul", dfs("folder")},
        {"cifs_dfs_option", "address", "1", "'1/link'", "nl cr nul", dfs("address")},
        {"cifs_dfs_option", "share", "1", "'1/link'", "nl cr nul", dfs("share")},
        {"$application_on_share", "app_name", "1", "'vol1/docs:pre", "nl cr nul % ../",
         [](const std::string &) {}},
    };
    ASSERT_EQ(export_cifs(), 0) << log();
    walk_hostile_values(root(), sql(), [&] { return export_cifs(); }, [&] { return log(); }, columns,
                        {{"clean", ""}, {"nl", "\n"}, {"cr", "\r"}, {"nul", std::string(1, '\0')},
                         {"[", "["}, {"]", "]"}, {";", ";"}, {"#", "#"}, {"%", "%"}, {"dq", "\""},
                         {"sq", "'"}, {"bs", "\\"}, {"$()", "$(id)"}, {"``", "`id`"}, {"../", "../"}});
}

// Guards: random valid names, comments and lists that Samba reads back otherwise.
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
    auto q = sql_quoted;
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
