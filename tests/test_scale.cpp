// Exports at scale: an export after a change replaces only the files whose
// content changed (the writer compares before it replaces), and a batch of
// commits flushes each folder once, at its end, sweeping the temporary
// files of dead writers there with one scan.
#define KSDB_MODULE "test_scale"
#include "util/ksdb_file_utils.h"

#include "tests/support/test_support.h"

#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <map>
#include <set>

using namespace ksdb_test;

namespace {

using Paths = std::set<std::string>;

// What each commit of the managed-file layer did, by live path.
class Outcomes {
  public:
    explicit Outcomes(const std::string &root) : root_(root) {
        ksdb_observer obs{};
        obs.arg = this;
        obs.file_done = [](void *arg, const char *target, int outcome, int status) {
            auto *self = static_cast<Outcomes *>(arg);
            self->of[std::string(target).substr(self->root_.size())] = status == 0 ? outcome : -1;
        };
        ksdb_set_observer(&obs);
    }
    ~Outcomes() { ksdb_set_observer(nullptr); }
    Paths with(int outcome) const {
        Paths out;
        for (const auto &[path, o] : of)
            if (o == outcome) out.insert(path);
        return out;
    }
    std::map<std::string, int> of;

  private:
    std::string root_;
};

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
    size_t written = 0;
    {
        Outcomes first(root());
        ASSERT_EQ(ksdb_export(h(), db(), KSDB_CAT_CIFS_SHARE), 0) << log();
        // Ten shares with attributes, four files each; the two USB copies;
        // both Shares.conf files and dfs.conf.
        EXPECT_EQ(first.with(KSDB_FILE_NEW).size(), 45u);
        written = first.of.size();
    }
    struct stat before {};
    ASSERT_EQ(stat(at("/vol2/._share/snap/samba.conf").c_str(), &before), 0);

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
        Outcomes again(root());
        ASSERT_EQ(ksdb_export(h(), db(), KSDB_CAT_CIFS_SHARE), 0) << log();
        EXPECT_EQ(again.with(KSDB_FILE_CHANGED), c.replaced);
        EXPECT_EQ(again.with(KSDB_FILE_UNCHANGED).size(), written - c.replaced.size());
        EXPECT_EQ(again.of.size(), written);
    }
    // An untouched share's file is the very file the first export wrote.
    struct stat after {};
    ASSERT_EQ(stat(at("/vol2/._share/snap/samba.conf").c_str(), &after), 0);
    EXPECT_EQ(after.st_ino, before.st_ino);
    EXPECT_EQ(after.st_mtim.tv_nsec, before.st_mtim.tv_nsec);
    EXPECT_EQ(get("/vol1/._share/private/recycle.conf"), "30,0\n");
}

TEST_F(ScaleTest, ABatchFlushesAndSweepsEachFolderAtItsEnd) {
    // A dead writer's temporary file: nobody holds its lock.
    put("/etc/.exports.ksdb-ZZZZZZ", "half");
    auto orphan_left = [&] { return exists(at("/etc/.exports.ksdb-ZZZZZZ")); };
    auto commit = [&](const char *live, const char *text) {
        ksdb::ManagedFile f(h(), ksdb_file_spec{live, -1, -1, 0644});
        f.write(text);
        return f.commit();
    };
    {
        ksdb::FolderSyncBatch outer(h());
        ASSERT_EQ(commit("/etc/exports", "one\n"), 0);
        EXPECT_EQ(get("/etc/exports"), "one\n") << "in place at once";
        EXPECT_TRUE(orphan_left()) << "swept only at the end of the batch";
        {
            // A batch inside another leaves the flush to the outer one.
            ksdb::FolderSyncBatch inner(h());
            ASSERT_EQ(commit("/etc/exports", "two\n"), 0);
            EXPECT_EQ(inner.flush(), 0);
            EXPECT_TRUE(orphan_left());
        }
        EXPECT_TRUE(orphan_left());
        EXPECT_EQ(outer.flush(), 0);
        EXPECT_FALSE(orphan_left());
        EXPECT_EQ(get("/etc/exports"), "two\n");
        EXPECT_EQ(get("/etc/exports.bak"), "one\n");
    }
    // Without a batch the commit sweeps at once; an unchanged commit too.
    put("/etc/.exports.ksdb-YYYYYY", "half");
    ASSERT_EQ(commit("/etc/exports", "two\n"), 0);
    EXPECT_FALSE(exists(at("/etc/.exports.ksdb-YYYYYY")));

    // A writer at work keeps its file: its lock is held.
    put("/etc/.exports.ksdb-XXXXXX", "busy");
    {
        ksdb::Fd held(open(at("/etc/.exports.ksdb-XXXXXX").c_str(), O_RDONLY));
        ASSERT_TRUE(held.ok());
        ASSERT_EQ(flock(held.get(), LOCK_EX), 0);
        ksdb::FolderSyncBatch batch(h());
        ASSERT_EQ(commit("/etc/exports", "three\n"), 0);
        EXPECT_EQ(batch.flush(), 0);
        EXPECT_TRUE(exists(at("/etc/.exports.ksdb-XXXXXX")));
    }

    // A folder that is gone by the end of the batch cannot be flushed: the
    // batch says so and names it.
    {
        ksdb::FolderSyncBatch batch(h());
        ASSERT_EQ(commit("/etc/gone/file.conf", "x\n"), 0);
        ASSERT_EQ(unlink(at("/etc/gone/file.conf").c_str()), 0);
        ASSERT_EQ(rmdir(at("/etc/gone").c_str()), 0);
        EXPECT_EQ(batch.flush(), KSDB_E_FILE);
    }
    EXPECT_NE(log().find("Cannot write the folder " + at("/etc/gone") + " to disk"),
              std::string::npos)
        << log();
}

// In a batch a target is recognised as unchanged through its path; only a
// regular file with the content, owner and mode counts: another mode is
// set, a link holding the same content is replaced, not followed.
TEST_F(ScaleTest, InABatchOnlyTheWholeFileAsItShouldBeCountsAsUnchanged) {
    auto commit = [&](const char *live, mode_t mode) {
        ksdb::ManagedFile f(h(), ksdb_file_spec{live, -1, -1, static_cast<int>(mode)});
        f.write("same\n");
        const int rc = f.commit();
        return rc == 0 ? f.outcome() : -1;
    };
    put("/etc/kept", "same\n");
    chmod(at("/etc/kept").c_str(), 0644);
    put("/etc/moded", "same\n");
    chmod(at("/etc/moded").c_str(), 0600);
    put("/elsewhere", "same\n");
    ASSERT_EQ(symlink(at("/elsewhere").c_str(), at("/etc/linked").c_str()), 0);
    struct stat kept {};
    ASSERT_EQ(stat(at("/etc/kept").c_str(), &kept), 0);

    ksdb::FolderSyncBatch batch(h());
    EXPECT_EQ(commit("/etc/kept", 0644), KSDB_FILE_UNCHANGED);
    EXPECT_EQ(commit("/etc/moded", 0644), KSDB_FILE_FIXED);
    EXPECT_EQ(commit("/etc/linked", 0644), KSDB_FILE_CHANGED);
    EXPECT_EQ(batch.flush(), 0);

    struct stat st {};
    ASSERT_EQ(stat(at("/etc/kept").c_str(), &st), 0);
    EXPECT_EQ(st.st_ino, kept.st_ino);
    ASSERT_EQ(stat(at("/etc/moded").c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 07777, 0644u);
    ASSERT_EQ(lstat(at("/etc/linked").c_str(), &st), 0);
    EXPECT_TRUE(S_ISREG(st.st_mode)) << "the link itself is replaced";
    EXPECT_EQ(get("/elsewhere"), "same\n");
}
