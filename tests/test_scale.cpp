// Exports at scale: only changed files are replaced; a batch flushes and sweeps
// each folder once, at its end.
#define KSDB_MODULE "test_scale"
#include "util/ksdb_file_utils.h"

#include "tests/support/test_support.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <set>

using namespace ksdb_test;

namespace {

using Paths = std::set<std::string>;

// What each commit of the managed-file layer did during one export of the
// CIFS shares, by live path (-1: failed).
std::map<std::string, int> export_outcomes(ksdb_handle *h, sqlite3 *db, const std::string &root) {
    std::pair<std::string, std::map<std::string, int>> seen{root, {}};
    ksdb_observer obs{};
    obs.arg = &seen;
    obs.file_done = [](void *arg, const char *target, int outcome, int status) {
        auto *s = static_cast<decltype(seen) *>(arg);
        s->second[std::string(target).substr(s->first.size())] = status == 0 ? outcome : -1;
    };
    ksdb_set_observer(&obs);
    EXPECT_EQ(ksdb_export(h, db, KSDB_CAT_CIFS_SHARE), 0);
    ksdb_set_observer(nullptr);
    return seen.second;
}

Paths with(const std::map<std::string, int> &outcomes, int outcome) {
    Paths out;
    for (const auto &[path, o] : outcomes)
        if (o == outcome) out.insert(path);
    return out;
}

class ScaleTest : public RootTest {
  protected:
    void SetUp() override {
        ASSERT_EQ(ksdb_create(h(), db()), 0);
        for (const char *v : {"/vol1/._share", "/vol2/._share", "/media/._share"}) mkdirs(at(v));
        sql().exec(read_file(KSDB_CASES_DIR "/cifs-share/volume-shares/db.sql"));
    }
};

}  // namespace

TEST_F(ScaleTest, AnExportAfterAChangeReplacesOnlyTheFilesThatChanged) {
    const auto first = export_outcomes(h(), db(), root());
    // Ten shares with attributes, four files each; the two USB copies;
    // both Shares.conf files and dfs.conf.
    EXPECT_EQ(with(first, KSDB_FILE_NEW).size(), 45u) << log();
    const size_t written = first.size();

    const struct {
        const char *change;
        Paths replaced;
    } kChanges[] = {
        // A comment is in the share's own file and in the global one.
        {"UPDATE share SET comment='Team files' WHERE name='data'",
         {"/vol1/._share/data/samba.conf", "/etc/quillfold/samba/Shares.conf"}},
        // The recycle limits are in the share's side file only.
        {"UPDATE cifs_share_option SET cifs_recycle_age_limit=30 WHERE share_id=6",
         {"/vol1/._share/private/recycle.conf"}},
        // A USB share's section is in the USB file and in its own copies,
        // and in the copy of "usb", whose name its header contains.
        {"UPDATE share SET comment='Stick' WHERE name='usbdisk'",
         {"/media/._share/usbdisk/samba.conf", "/run/usb/samba/Shares.conf",
          "/etc/quillfold/usb/._share/usbdisk/samba.conf",
          "/etc/quillfold/usb/._share/usb/samba.conf"}},
        // An entry of another protocol changes no CIFS file.
        {"UPDATE user_acl SET write=0 WHERE proto='nfs'", {}},
    };
    for (const auto &c : kChanges) {
        SCOPED_TRACE(c.change);
        sql().exec(c.change);
        const auto again = export_outcomes(h(), db(), root());
        EXPECT_EQ(with(again, KSDB_FILE_CHANGED), c.replaced);
        EXPECT_EQ(with(again, KSDB_FILE_UNCHANGED).size(), written - c.replaced.size());
        EXPECT_EQ(again.size(), written);
    }
    EXPECT_EQ(get("/vol1/._share/private/recycle.conf"), "30,0\n");
}

// Guards: a batch flushing or sweeping before its end, sweeping a locked writer's file,
// or not naming a folder gone by then; a commit outside a batch not sweeping at once.
TEST_F(ScaleTest, ABatchFlushesAndSweepsEachFolderOnceAtItsEnd) {
    auto commit = [&](const char *live, const char *text) {
        ksdb::ManagedFile f(h(), ksdb_file_spec{live, -1, -1, 0644});
        f.write(text);
        return f.commit() == 0 ? f.outcome() : -1;
    };
    put("/etc/.exports.ksdb-ZZZZZZ", "half");  // a dead writer's: its lock is free
    put("/etc/.exports.ksdb-YYYYYY", "busy");  // a writer at work: it holds the lock
    ksdb::Fd held(open(at("/etc/.exports.ksdb-YYYYYY").c_str(), O_RDONLY));
    ASSERT_EQ(flock(held.get(), LOCK_EX), 0);
    {
        ksdb::FolderSyncBatch outer(h());
        EXPECT_EQ(commit("/etc/exports", "one\n"), KSDB_FILE_NEW);
        EXPECT_EQ(get("/etc/exports"), "one\n") << "in place at once";
        {
            ksdb::FolderSyncBatch inner(h());  // inside another: the outer one flushes
            EXPECT_EQ(commit("/etc/exports", "two\n"), KSDB_FILE_CHANGED);
            EXPECT_EQ(inner.flush(), 0);
        }
        EXPECT_TRUE(exists(at("/etc/.exports.ksdb-ZZZZZZ"))) << "swept at the end only";
        EXPECT_EQ(outer.flush(), 0);
    }
    EXPECT_FALSE(exists(at("/etc/.exports.ksdb-ZZZZZZ")));
    EXPECT_TRUE(exists(at("/etc/.exports.ksdb-YYYYYY")));
    EXPECT_EQ(get("/etc/exports.bak"), "one\n");

    // Without a batch a commit sweeps at once.
    put("/etc/.exports.ksdb-XXXXXX", "half");
    EXPECT_EQ(commit("/etc/exports", "two\n"), KSDB_FILE_UNCHANGED);
    EXPECT_FALSE(exists(at("/etc/.exports.ksdb-XXXXXX")));

    ksdb::FolderSyncBatch batch(h());
    ASSERT_EQ(commit("/etc/gone/file.conf", "x\n"), KSDB_FILE_NEW);
    ASSERT_EQ(unlink(at("/etc/gone/file.conf").c_str()), 0);
    ASSERT_EQ(rmdir(at("/etc/gone").c_str()), 0);
    EXPECT_EQ(batch.flush(), KSDB_E_FILE);
    EXPECT_TRUE(contains(log(), "Cannot write the folder " + at("/etc/gone") + " to disk"));
}
