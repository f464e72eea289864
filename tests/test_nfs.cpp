// Shares over NFS beyond their case folders: hostile values read back by the
// kernel server's own exportfs.
#define KSDB_MODULE "test_nfs"
#include "core/ksdb_internal.h"
#include "tests/support/share_tests.h"

#include <set>

using namespace ksdb_test;

namespace {

// What "exportfs -s" printed, one "path|client|rw or ro" per client, with the
// root taken off the paths and their octal escapes read.
std::set<std::string> exportfs_read(const std::string &output, const std::string &root) {
    std::set<std::string> out;
    for (const std::string &line : lines(output)) {
        const size_t gap = line.find("  ");
        if (line.rfind(root + "/", 0) != 0 || gap == std::string::npos) continue;
        std::string path;
        for (size_t i = root.size(); i < gap; ++i) {
            if (line[i] != '\\') {
                path += line[i];
                continue;
            }
            path += static_cast<char>(std::stoi(line.substr(i + 1, 3), nullptr, 8));
            i += 3;
        }
        const std::string client = line.substr(gap + 2);
        out.insert(path + "|" + client.substr(0, client.find('(')) + "|" +
                   (contains(client, ",rw,") ? "rw" : "ro"));
    }
    return out;
}

class NfsTest : public RootTest {
  protected:
    void SetUp() override { ASSERT_EQ(ksdb_create(h(), db()), 0); }
    int export_nfs() { return ksdb_export(h(), db(), KSDB_CAT_NFS_SHARE); }
};

}  // namespace

// Guards: a hostile value written where exportfs reads other exports or clients, or the
// import another host name; a refusal that changes a file or does not name the row.
TEST_F(NfsTest, HostileValuesAreRefusedOrReadBackExactly) {
    sql().exec(read_file(KSDB_TEST_DATA_DIR "/nfs-hostile.sql"));
    enum { kHost, kVolumeId, kName, kVolume, kSnap };
    const std::string base[] = {"pc*", "vol1", "docs", "vol1", "/vol1/docs/snap"};
    const struct {
        const char *update, *refusal, *refused;  // "%s": the value; how it is named; labels refused
        std::string prefix;
    } columns[] = {
        // Host names first: their import reads every share folder, and the
        // volume names below leave folders of their own.
        {"UPDATE host SET name=%s", "host.name of '1'", "nl cr nul sp tab ( ) # dq $() lead-",
         "pc*"},
        {"UPDATE share SET volume_id=%s; UPDATE _volume SET id=%s", "share.volume_id of 'docs'",
         "nl cr nul dq bs / ../ /../", "pre"},
        {"UPDATE share SET name=%s", "share.name of '1'", "nl cr nul dq bs / ../ /../", "pre"},
        {"UPDATE _volume SET lv_name=%s", "_volume.lv_name of 'vol1'", "nl cr nul dq bs / ../ /../",
         "pre"},
        {"UPDATE share SET visible_snapdir=%s", "share.visible_snapdir of 'docs'",
         "nl cr nul dq bs /../ lead-", "/vol1/docs/pre"},
    };
    for (int c = kHost; c <= kSnap; ++c) {
        for (const auto &[label, x] : kHostile) {
            const std::string v =
                label == "lead-" ? x + columns[c].prefix : columns[c].prefix + x + "post";
            std::string literal = "''";
            for (char ch : v)
                literal += "||char(" + std::to_string(static_cast<unsigned char>(ch)) + ")";
            const std::string what = std::string(columns[c].refusal) + " = " + label;
            const auto before = file_tree(root());
            sql().exec(replace_all(columns[c].update, "%s", literal));
            const int rc = export_nfs();
            if (contains(" " + std::string(columns[c].refused) + " ", " " + label + " ")) {
                EXPECT_EQ(rc, KSDB_E_INVAL) << what;
                EXPECT_EQ(file_tree(root()), before) << what;
                EXPECT_TRUE(contains(log(), "Refused " + std::string(columns[c].refusal))) << what;
            } else {
                ASSERT_EQ(rc, 0) << what << "\n" << log();
                std::string e[5] = {base[0], base[1], base[2], base[3], base[4]};
                e[c] = v;
                const std::string share = "/" + e[kVolumeId] + "/" + e[kName];
                std::set<std::string> want = {"/run/nfs4|*|ro",
                                              "/run/nfs4/" + e[kVolume] + "|*|ro"};
                for (const std::string &p :
                     {"/run/nfs4" + share, "/run/nfs4" + e[kSnap], share, e[kSnap]})
                    want.insert({p + "|*|ro", p + "|" + e[kHost] + "|rw"});
                // exportfs on the root's /etc/exports, the exported folders
                // made first (77: it cannot run here).
                for (const std::string &line : lines(get("/etc/exports")))
                    mkdirs(at(line.substr(1, line.find('"', 1) - 1)));
                ScopedEnv env("KSDB_EXPORTS_ROOT", root());
                std::string out;
                if (const int checked = run_checker("check-exports.sh", at("/etc/exports"), &out);
                    checked != 77) {
                    EXPECT_EQ(checked, 0) << what << "\n" << out;
                    EXPECT_EQ(exportfs_read(out, root()), want) << what << "\n" << out;
                }
                if (c == kHost) {
                    mkdirs(at("/vol1/docs"));
                    sql().exec("DELETE FROM host_acl; DELETE FROM host");
                    ASSERT_EQ(ksdb_import(h(), db(), KSDB_CAT_NFS_SHARE), 0) << what;
                    EXPECT_EQ(
                        sql().rows("SELECT H.name||'|'||A.write||A.root FROM host_acl A INNER JOIN "
                                   "host H ON H.id=A.host_id"),
                        Rows{v + "|11"})
                        << what;
                    sql().exec("UPDATE host_acl SET host_id=1; UPDATE host SET id=1");
                }
            }
            sql().exec(replace_all(columns[c].update, "%s", "'" + base[c] + "'"));
        }
    }
}
