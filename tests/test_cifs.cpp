// Shares over CIFS: the exported Samba share files byte for byte, the
// quotas, the round trip through the driver with its deliberate losses,
// bad per-share files, the DFS link file in both forms and Samba's own
// checker on the generated sections.
#define KSDB_MODULE "test_cifs"
#include "core/ksdb_areas.h"
#include "core/ksdb_internal.h"
#include "tests/support/test_support.h"

#include <dirent.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <functional>
#include <set>
#include <string>
#include <vector>

using namespace ksdb_test;

namespace {

using Rows = std::vector<std::string>;

// Rows of `a` that `b` does not hold, in `a`'s order.
Rows minus(const Rows &a, const Rows &b) {
    std::set<std::string> in_b(b.begin(), b.end());
    Rows out;
    for (const auto &r : a)
        if (!in_b.count(r)) out.push_back(r);
    return out;
}

Rows dir_entries(const std::string &path) {
    Rows out;
    if (DIR *d = opendir(path.c_str())) {
        while (dirent *e = readdir(d))
            if (std::string(e->d_name) != "." && std::string(e->d_name) != "..")
                out.push_back(e->d_name);
        closedir(d);
    }
    return out;
}

bool contains(const std::string &text, const std::string &part) {
    return text.find(part) != std::string::npos;
}

// ---- the expected share sections, written by hand ----------------------------

const std::string kArchive = R"([archive]
  path = /vol1/archive
  comment = "Old files"
  browseable = 0
  force create mode = 0675
  create mask = 0675
  force directory mode = 1775
  directory mask = 1775
  admin users = "+admin","Administrator"
  write list = "bob","@staff","+admin","Administrator"
  hosts allow = "192.168.1.0/24","pc-1"
  #hosts allow = "10.0.0.5"
)";

// A NULL comment leaves the value empty (the line keeps its blank).
const std::string kClosed =
    "[closed]\n"
    "  path = /vol1/closed\n"
    "  comment = \n"
    "  admin users = \"+admin\",\"Administrator\"\n"
    "  write list = \"+admin\",\"Administrator\"\n"
    "  valid users = \"+admin\",\"Administrator\"\n";

const std::string kClosedGuest = R"([closedguest]
  path = /vol1/closedguest
  comment = "Guests"
  guest ok = 1
  admin users = "+admin","Administrator"
  available = 0
  write list = "+admin","Administrator"
  valid users = "+admin","Administrator","guest"
)";

const std::string kData = R"([data]
  path = /vol1/data
  comment = "Team data"
  force create mode = 0664
  create mask = 0664
  force directory mode = 0777
  directory mask = 0777
  admin users = "+admin","Administrator"
  read list = "alice","@eng"
  writeable = 1
  invalid users = "carol"
)";

const std::string kPrivate = R"([private]
  path = /vol1/private
  comment = "Private"
  guest ok = 1
  admin users = "+admin","Administrator"
  read list = "alice","@eng"
  write list = "bob","@staff","+admin","Administrator"
  valid users = "alice","bob","erin","@eng","@staff","+admin","Administrator","guest"
)";

const std::string kReaders = R"([readers]
  path = /vol1/readers
  comment = "Readers"
  admin users = "+admin","Administrator"
  read list = "alice"
  write list = "+admin","Administrator"
  valid users = "alice","+admin","Administrator"
)";

// The share's own file: everything but the application include.
const std::string kSnapOwn = R"([snap]
  path = /vol2/snap
  comment = "Snapshots"
  msdfs root = yes
  admin users = "+admin","Administrator"
  writeable = 1
  follow symlinks = 1
  force user = alice
)";
const std::string kSnap = kSnapOwn + "  include = /apps/photos/etc/samba.include\n";

const std::string kWriters = R"([writers]
  path = /vol2/writers
  comment = "Writers"
  admin users = "+admin","Administrator"
  write list = "bob","@staff","+admin","Administrator"
  valid users = "bob","@staff","+admin","Administrator"
)";

const std::string kUsb = R"([usb]
  path = /media/usb
  comment = "USB"
  admin users = "+admin","Administrator"
  writeable = 1
)";

const std::string kUsbDisk = R"([usbdisk]
  path = /media/usbdisk
  comment = "Disk"
  admin users = "+admin","Administrator"
  write list = "+admin","Administrator"
)";

const std::string kDfs =
    "9!!docs!!server1!!pub!!vol2!!snap\n"
    "9!!old!!srv2!!share2!!(null)!!(null)\n";

// ---- the queries the round trip compares -------------------------------------

const char kShareRows[] =
    "SELECT name,zfs_name,type,volume_id,usb_storage_id,path,comment,user_id,group_id,"
    "user_access,group_access,everyone_access,non_owner_delete,migrate_to_volume_id,"
    "visible_snapdir FROM share ORDER BY name";
const char kOptionRows[] =
    "SELECT S.name,C.available,C.cifs_access,C.cifs_guest_access,C.cifs_hide_share,"
    "C.cifs_group_create_mask,C.cifs_everyone_create_mask,C.cifs_enable_masks,"
    "C.cifs_group_directory_mask,C.cifs_everyone_directory_mask,C.cifs_enable_forced_minimum,"
    "C.cifs_recycle,C.cifs_recycle_mb_limit,C.cifs_recycle_age_limit,C.oplocks,C.force_user,"
    "C.cifs_enabledfs FROM cifs_share_option C INNER JOIN share S ON S.id=C.share_id ORDER BY "
    "S.name";
const char kUserAclRows[] =
    "SELECT S.name,U.uname,A.read,A.write FROM user_acl A INNER JOIN share S ON S.id=A.share_id "
    "INNER JOIN `$user` U ON U.id=A.user_id WHERE A.proto='cifs' ORDER BY 1,2";
const char kGroupAclRows[] =
    "SELECT S.name,G.gname,A.read,A.write FROM group_acl A INNER JOIN share S ON "
    "S.id=A.share_id INNER JOIN `$group` G ON G.id=A.group_id WHERE A.proto='cifs' ORDER BY 1,2";
const char kHostAclRows[] =
    "SELECT S.name,H.name,A.read,A.write,A.root FROM host_acl A INNER JOIN share S ON "
    "S.id=A.share_id INNER JOIN host H ON H.id=A.host_id WHERE A.proto='cifs' ORDER BY 1,2";
const char kDfsRows[] =
    "SELECT S.name,D.volume,D.share,D.folder,D.address,D.remote_share FROM cifs_dfs_option D "
    "INNER JOIN share S ON S.id=D.share_id ORDER BY 1,4";

class CifsTest : public RootTest {
  protected:
    void SetUp() override {
        ASSERT_EQ(ksdb_create(h(), db()), 0);
        // Volumes below the debug root are the root's folders holding ._share.
        mkdirs(at("/vol1/._share"));
        mkdirs(at("/vol2/._share"));
        sql().exec(
            "INSERT INTO service_cifs (security,workgroup,domain_admin_user,user_home_directory,"
            "hostname_lookups) VALUES('user','WG','dadmin',0,0)");
        sql().exec(
            "INSERT INTO _volume (id,lv_name,blk_size) VALUES('vol1','vol1',1024),"
            "('vol2','vol2',1024),('media','media',0)");
        // Primary group 97 and 98 mark cloud users; admin and ftp never count.
        sql().exec(
            "INSERT INTO `$user` (id,uname,group_id,is_privileged,rid) VALUES"
            "(1000,'alice',100,0,NULL),(1001,'bob',100,0,NULL),(1002,'carol',97,0,NULL),"
            "(1003,'dave',98,0,NULL),(1004,'erin',100,0,NULL),(500,'admin',98,1,NULL),"
            "(501,'ftp',98,0,NULL),(65534,'guest',65534,0,NULL),"
            "(1005,'twin',100,0,NULL),(2001,'twin',100,0,9),(2002,'dom1',100,0,5)");
        sql().exec(
            "INSERT INTO `$group` (id,gname,is_privileged,rid) VALUES(100,'staff',0,NULL),"
            "(101,'eng',0,NULL),(97,'cloud',0,NULL),(3000,'dgroup',0,7)");
    }

    // The database of the golden files: two volumes and two USB shares, each
    // default access, masks, hosts, accounts in every list, DFS links, an
    // application include and a share without attributes.
    void seed() {
        sql().exec(
            "INSERT INTO share (id,zfs_name,type,volume_id,name,path,comment,user_access,"
            "group_access,everyone_access,non_owner_delete,user_id,group_id,visible_snapdir) VALUES"
            "(1,'vol1/archive',NULL,'vol1','archive','/vol1/archive','Old files',7,7,0,1,1000,"
            "100,NULL),"
            "(2,'vol1/closed','share','vol1','closed','/vol1/closed',NULL,7,5,5,0,0,0,''),"
            "(3,'vol1/closedguest','share','vol1','closedguest','/vol1/closedguest','Guests',7,5,"
            "5,0,0,0,'1'),"
            "(4,'vol1/data','media','vol1','data','/vol1/data','Team data',7,7,5,0,1001,100,''),"
            "(5,'vol1/noattr','share','vol1','noattr','/vol1/noattr','No attributes',7,5,5,0,0,"
            "0,''),"
            "(6,'vol1/private','share','vol1','private','/vol1/private','Private',7,5,5,0,0,0,''),"
            "(7,'vol1/readers','share','vol1','readers','/vol1/readers','Readers',7,5,5,0,0,0,''),"
            "(8,'vol2/writers','share','vol2','writers','/vol2/writers','Writers',7,5,5,0,0,0,''),"
            "(9,'vol2/snap','share','vol2','snap','/vol2/snap','Snapshots',7,5,5,0,0,0,''),"
            "(10,'media/usb','share','media','usb','/media/usb','USB',7,7,7,0,0,0,''),"
            "(11,'media/usbdisk','share','media','usbdisk','/media/usbdisk','Disk',7,7,7,0,0,0,"
            "'')");
        sql().exec(
            "INSERT INTO cifs_share_option (share_id,available,cifs_access,cifs_guest_access,"
            "cifs_hide_share,cifs_group_create_mask,cifs_everyone_create_mask,cifs_enable_masks,"
            "cifs_group_directory_mask,cifs_everyone_directory_mask,cifs_enable_forced_minimum,"
            "cifs_recycle,cifs_recycle_mb_limit,cifs_recycle_age_limit,oplocks,force_user,"
            "cifs_enabledfs) VALUES"
            "(1,1,'readonly',0,1,7,5,1,7,5,0,1,100,7,1,NULL,0),"
            "(2,1,'disabled',0,0,NULL,NULL,0,NULL,NULL,0,0,NULL,NULL,0,NULL,0),"
            "(3,0,'disabled',1,0,NULL,NULL,0,NULL,NULL,0,0,NULL,NULL,0,NULL,0),"
            "(4,1,'writeable',0,0,NULL,NULL,1,NULL,NULL,0,0,NULL,NULL,0,NULL,0),"
            "(5,1,'writeable',0,0,NULL,NULL,0,NULL,NULL,0,0,NULL,NULL,0,NULL,0),"
            "(6,1,'disabled',1,0,NULL,NULL,0,NULL,NULL,0,0,NULL,NULL,0,NULL,0),"
            "(7,1,'disabled',0,0,NULL,NULL,0,NULL,NULL,0,0,NULL,NULL,0,NULL,0),"
            "(8,1,'disabled',0,0,NULL,NULL,0,NULL,NULL,0,0,NULL,NULL,0,NULL,0),"
            "(9,1,'writeable',0,0,NULL,NULL,0,NULL,NULL,0,0,NULL,NULL,0,1000,1),"
            "(10,1,'writeable',0,0,NULL,NULL,0,NULL,NULL,0,0,NULL,NULL,0,NULL,0),"
            "(11,1,'readonly',0,0,NULL,NULL,0,NULL,NULL,0,0,NULL,NULL,0,NULL,0)");
        sql().exec(
            "INSERT INTO zfs_attr (share_id) VALUES(1),(2),(3),(4),(6),(7),(8),(9),(10),(11)");
        sql().exec("INSERT INTO snapshot_schedule (share_id,enabled) VALUES(9,1),(4,0)");
        sql().exec(
            "INSERT INTO user_acl (share_id,user_id,proto,read,write) VALUES"
            "(1,1000,'cifs',1,0),(1,1001,'cifs',1,1),(1,1004,'nfs',1,1),"
            "(4,1000,'cifs',1,0),(4,1004,'cifs',0,0),(4,1002,'cifs',0,0),"
            "(6,1000,'cifs',1,0),(6,1001,'cifs',1,1),(6,1004,'cifs',0,0),"
            "(7,1000,'cifs',1,0),(8,1001,'cifs',1,1)");
        sql().exec(
            "INSERT INTO group_acl (share_id,group_id,proto,read,write) VALUES"
            "(1,100,'cifs',1,1),(4,101,'cifs',1,0),(6,101,'cifs',1,0),(6,100,'cifs',1,1),"
            "(8,100,'cifs',1,1),(7,100,'afp',1,1)");
        sql().exec(
            "INSERT INTO host (id,name) VALUES(1,'192.168.1.0/24'),(2,'pc-1'),(3,'10.0.0.5')");
        sql().exec(
            "INSERT INTO host_acl (share_id,host_id,proto,read,write,root) VALUES"
            "(1,1,'cifs',1,1,0),(1,2,'cifs',1,0,0),(1,3,'cifs',0,0,0),(4,1,'nfs',1,1,1)");
        sql().exec(
            "INSERT INTO cifs_dfs_option (share_id,volume,share,folder,address,remote_share) "
            "VALUES(9,'vol2','snap','docs','server1','pub'),(9,NULL,NULL,'old','srv2','share2')");
        // The first application has no include file; the second's is taken
        // and the third's never looked at.
        sql().exec(
            "INSERT INTO `$application_on_share` (zfs_name,app_name) VALUES('vol2/snap','alpha'),"
            "('vol2/snap','photos'),('vol2/snap','zeta')");
        put("/apps/photos/etc/samba.include", "[x]\n");
        put("/apps/zeta/etc/samba.include", "[y]\n");
        sql().exec("INSERT INTO user_quota (user_id,share_id,mb_hard) VALUES(1000,1,100)");
        sql().exec("INSERT INTO group_quota (group_id,share_id,mb_hard) VALUES(100,4,2)");
    }

    std::string own(const std::string &volume, const std::string &share,
                    const std::string &file = "samba.conf") {
        return get("/" + volume + "/._share/" + share + "/" + file);
    }

    void folder(const std::string &live, mode_t mode, uid_t uid, gid_t gid) {
        mkdirs(at(live));
        ASSERT_EQ(chown(at(live).c_str(), uid, gid), 0);
        ASSERT_EQ(chmod(at(live).c_str(), mode), 0);
    }

    // A per-share file and the share folder the enumerator finds.
    void share_conf(const std::string &volume, const std::string &share,
                    const std::string &text) {
        mkdirs(at("/" + volume + "/" + share));
        put("/" + volume + "/._share/" + share + "/samba.conf", text);
    }

    int import_usb() {
        EXPECT_EQ(ksdb_sql_begin(h(), db(), nullptr, KSDB_TAG), 0);
        int rc = ksdb_cifs_usb_share_import(h(), db());
        EXPECT_EQ(ksdb_sql_commit(h(), db(), nullptr, KSDB_TAG), 0);
        return rc;
    }

    std::string mode_of(const std::string &live) {
        struct stat st {};
        if (stat(at(live).c_str(), &st) != 0) return "missing";
        return std::to_string(st.st_uid) + ":" + std::to_string(st.st_gid) + " " +
               ksdb::strprintf("%04o", st.st_mode & 07777);
    }
};

}  // namespace

// ---- export ------------------------------------------------------------------------

TEST_F(CifsTest, ExportWritesEverySambaFileByteForByte) {
    seed();
    ASSERT_EQ(ksdb_export(h(), db(), KSDB_CAT_CIFS_SHARE), 0);

    // Shares in name order; the share without attributes is left out, the
    // USB shares go to their own file.
    EXPECT_EQ(get("/etc/quillfold/samba/Shares.conf"),
              kArchive + kClosed + kClosedGuest + kData + kPrivate + kReaders + kSnap + kWriters);
    EXPECT_EQ(get("/run/usb/samba/Shares.conf"), kUsb + kUsbDisk);

    EXPECT_EQ(own("vol1", "archive"), kArchive);
    EXPECT_EQ(own("vol1", "closed"), kClosed);
    EXPECT_EQ(own("vol1", "closedguest"), kClosedGuest);
    EXPECT_EQ(own("vol1", "data"), kData);
    EXPECT_EQ(own("vol1", "private"), kPrivate);
    EXPECT_EQ(own("vol1", "readers"), kReaders);
    EXPECT_EQ(own("vol2", "writers"), kWriters);
    EXPECT_EQ(own("vol2", "snap"), kSnapOwn);  // no include in the share's own file
    EXPECT_EQ(own("media", "usb"), kUsb);
    EXPECT_FALSE(exists(at("/vol1/._share/noattr")));

    // Side files: recycle limits (age, then size; NULL as 0), the dataset
    // type ("share" for NULL) and the snapshot-folder setting.
    EXPECT_EQ(own("vol1", "archive", "recycle.conf"), "7,100\n");
    EXPECT_EQ(own("vol1", "closed", "recycle.conf"), "0,0\n");
    EXPECT_EQ(own("vol1", "archive", "datasettype.conf"), "share\n");
    EXPECT_EQ(own("vol1", "data", "datasettype.conf"), "media\n");
    EXPECT_EQ(own("vol1", "archive", "snapdir.conf"), "\n");
    EXPECT_EQ(own("vol1", "closedguest", "snapdir.conf"), "1\n");

    // USB copies: "usb" is part of the header "[usbdisk]" too, so its copy
    // holds both sections; "usbdisk" only its own.
    EXPECT_EQ(get("/etc/quillfold/usb/._share/usb/samba.conf"), kUsb + kUsbDisk);
    EXPECT_EQ(get("/etc/quillfold/usb/._share/usbdisk/samba.conf"), kUsbDisk);

    EXPECT_EQ(get("/etc/quillfold/samba/dfs.conf"), kDfs);

    // Owners and modes from the managed file table and the per-share spec.
    EXPECT_EQ(mode_of("/etc/quillfold/samba/Shares.conf"), "98:98 0600");
    EXPECT_EQ(mode_of("/run/usb/samba/Shares.conf"), "98:98 0600");
    EXPECT_EQ(mode_of("/etc/quillfold/samba/dfs.conf"), "98:98 0644");
    EXPECT_EQ(mode_of("/vol1/._share/archive/samba.conf"), "98:98 0644");
    EXPECT_EQ(dir_entries(at("/tmp")), Rows{});

    std::string text = log();
    EXPECT_TRUE(contains(text, "(debug) _ksdb_cifs_selectdb_acl_list() ==> 0 ("));
    EXPECT_TRUE(contains(text,
                         "(debug) Share[private] cifs_access[disabled] read_list[\"alice\",\"@eng\"] "
                         "write_list[\"bob\",\"@staff\"] valid_list[\"alice\",\"bob\",\"erin\","
                         "\"@eng\",\"@staff\"] invalid_list[]\n"));
    EXPECT_TRUE(contains(text, "(debug) ksdb_cifs_share_export() ==> 0 ("));
}

TEST_F(CifsTest, DomainSecurityNamesTheDomainAdministratorAndPrefixesEveryAccount) {
    seed();
    sql().exec("UPDATE service_cifs SET security='ads'");
    ASSERT_EQ(ksdb_export(h(), db(), KSDB_CAT_CIFS_SHARE), 0);
    EXPECT_EQ(own("vol1", "private"), R"([private]
  path = /vol1/private
  comment = "Private"
  guest ok = 1
  admin users = "+admin","WG\dadmin"
  read list = "WG\alice","@WG\eng"
  write list = "WG\bob","@WG\staff","+admin","WG\dadmin"
  valid users = "WG\alice","WG\bob","WG\erin","@WG\eng","@WG\staff","+admin","WG\dadmin","guest"
)");
    // Without a service row the administrator is the local one and there is
    // no prefix.
    sql().exec("DELETE FROM service_cifs");
    ASSERT_EQ(ksdb_export(h(), db(), KSDB_CAT_CIFS_SHARE), 0);
    EXPECT_EQ(own("vol1", "private"), kPrivate);
}

TEST_F(CifsTest, ApplicationIncludeTakesTheFirstReadableOfTheThreeNames) {
    sql().exec(
        "INSERT INTO share (id,zfs_name,volume_id,name,path,user_id,group_id) "
        "VALUES(1,'vol1/web','vol1','web','/vol1/web',0,0)");
    sql().exec("INSERT INTO cifs_share_option (share_id,cifs_access) VALUES(1,'writeable')");
    sql().exec("INSERT INTO zfs_attr (share_id) VALUES(1)");
    sql().exec("INSERT INTO `$application_on_share` (zfs_name,app_name) VALUES('vol1/web','cms')");
    const std::string head = R"([web]
  path = /vol1/web
  comment = 
  admin users = "+admin","Administrator"
  writeable = 1
)";
    ASSERT_EQ(ksdb_export(h(), db(), KSDB_CAT_CIFS_SHARE), 0);
    EXPECT_EQ(get("/etc/quillfold/samba/Shares.conf"), head);

    // The third name puts the share name in the folder and the application
    // name in the file name.
    put("/apps/web/etc/samba.cms.include.x86_64", "");
    ASSERT_EQ(ksdb_export(h(), db(), KSDB_CAT_CIFS_SHARE), 0);
    EXPECT_EQ(get("/etc/quillfold/samba/Shares.conf"),
              head + "  include = /apps/web/etc/samba.cms.include.x86_64\n");

    put("/apps/cms/etc/samba.include.x86_64", "");
    ASSERT_EQ(ksdb_export(h(), db(), KSDB_CAT_CIFS_SHARE), 0);
    EXPECT_EQ(get("/etc/quillfold/samba/Shares.conf"),
              head + "  include = /apps/cms/etc/samba.include.x86_64\n");

    put("/apps/cms/etc/samba.include", "");
    ASSERT_EQ(ksdb_export(h(), db(), KSDB_CAT_CIFS_SHARE), 0);
    EXPECT_EQ(get("/etc/quillfold/samba/Shares.conf"),
              head + "  include = /apps/cms/etc/samba.include\n");
    EXPECT_EQ(own("vol1", "web"), head);
}

TEST_F(CifsTest, QuotasReachTheAttributeSetterWithoutFailing) {
    seed();
    CaptureFile trace;
    h()->trace_stream = trace.get();
    ASSERT_EQ(ksdb_export(h(), db(), KSDB_CAT_CIFS_SHARE), 0);
    h()->trace_stream = nullptr;
    Rows t = lines(trace.text());
    auto after = [&](const std::string &statement) {
        for (size_t i = 0; i + 1 < t.size(); ++i)
            if (contains(t[i], "ksdb_cifs:") && contains(t[i], "sql=" + statement))
                return t[i + 1];
        return std::string("<not run>");
    };
    EXPECT_TRUE(contains(after("SELECT 'userquota@'||Q.user_id,S.zfs_name,Q.mb_hard*1048576 "
                               "FROM user_quota Q INNER JOIN share S ON S.id=Q.share_id"),
                         " ==> 0:0 (success) nrow=1 ncol=3"));
    EXPECT_TRUE(contains(after("SELECT 'groupquota@'||Q.group_id,S.zfs_name,Q.mb_hard*1048576 "
                               "FROM group_quota Q INNER JOIN share S ON S.id=Q.share_id"),
                         " ==> 0:0 (success) nrow=1 ncol=3"));
    // The setter ignores quota attributes: no file-system tool ran for them.
    for (const FakeCall &call : fake_calls())
        for (const std::string &arg : call)
            EXPECT_FALSE(contains(arg, "quota") || contains(arg, "qgroup")) << arg;

    sql().exec("DROP TABLE group_quota");
    EXPECT_EQ(ksdb_export(h(), db(), KSDB_CAT_CIFS_SHARE), KSDB_E_DB);
    EXPECT_TRUE(contains(log(), "(error) Error in SELECT group_quota.\n"));
    EXPECT_TRUE(contains(log(), "(error) ksdb_cifs_share_export() ==> 3 ("));
}

TEST_F(CifsTest, AFailedAccessQueryRemovesEveryTemporaryFileAndKeepsTheOldFiles) {
    seed();
    put("/etc/quillfold/samba/Shares.conf", "old main\n");
    put("/run/usb/samba/Shares.conf", "old usb\n");
    mkdirs(at("/var/log/kestravad"));
    sql().exec("DROP TABLE `$group`");
    EXPECT_EQ(ksdb_export(h(), db(), KSDB_CAT_CIFS_SHARE), KSDB_E_DB);
    EXPECT_EQ(dir_entries(at("/tmp")), Rows{});
    EXPECT_EQ(get("/etc/quillfold/samba/Shares.conf"), "old main\n");
    EXPECT_EQ(get("/run/usb/samba/Shares.conf"), "old usb\n");
    EXPECT_FALSE(exists(at("/vol1/._share/archive/samba.conf")));
    EXPECT_FALSE(exists(at("/etc/quillfold/samba/dfs.conf")));
    std::string text = log();
    EXPECT_TRUE(contains(text, "(error) Failed to get read_group_list for share 'archive'\n"));
    EXPECT_TRUE(contains(text, "(error) _ksdb_cifs_selectdb_acl_list() ==> -1 ("));
    EXPECT_TRUE(contains(text, "(error) ksdb_cifs_share_export() ==> 3 ("));
    EXPECT_TRUE(contains(text, "(error) ksdb_export() ==> 3 ("));
    // The failure also reaches the domain-account log below the root.
    EXPECT_TRUE(contains(get("/var/log/kestravad/ads.log"), "ksdb_cifs_share_export() ==> 3"));
}

TEST_F(CifsTest, AFailedShareQueryGivesThreeAndLeavesNoTemporaryFile) {
    seed();
    put("/etc/quillfold/samba/Shares.conf", "old main\n");
    sql().exec("DROP TABLE zfs_attr");
    EXPECT_EQ(ksdb_export(h(), db(), KSDB_CAT_CIFS_SHARE), KSDB_E_DB);
    EXPECT_TRUE(contains(log(), "(error) Failed DB Query for cifs share\n"));
    EXPECT_EQ(dir_entries(at("/tmp")), Rows{});
    EXPECT_EQ(get("/etc/quillfold/samba/Shares.conf"), "old main\n");
}

TEST_F(CifsTest, RepeatedExportsDoNotGrowTheCallersPools) {
    seed();
    ASSERT_EQ(ksdb_export(h(), db(), KSDB_CAT_CIFS_SHARE), 0);  // folders made once
    apr_pool_t *call = nullptr;
    ASSERT_EQ(apr_pool_create(&call, nullptr), APR_SUCCESS);
    h()->call_pool = call;
    // APR hands out 8-byte aligned pieces one after another: two marks are
    // neighbours exactly when nothing was taken in between.
    char *call_mark = static_cast<char *>(apr_palloc(call, 8));
    char *main_mark = static_cast<char *>(apr_palloc(h()->pool, 8));
    for (int i = 0; i < 3; ++i) ASSERT_EQ(ksdb_cifs_share_export(h(), db()), 0);
    EXPECT_EQ(static_cast<char *>(apr_palloc(call, 8)), call_mark + 8);
    EXPECT_EQ(static_cast<char *>(apr_palloc(h()->pool, 8)), main_mark + 8);
    h()->call_pool = nullptr;
    apr_pool_destroy(call);
}

// ---- round trip --------------------------------------------------------------------

TEST_F(CifsTest, RoundTripThroughTheDriverKeepsWhatTheFilesCarry) {
    seed();
    // The share folders, with the owners and modes the share rows record.
    folder("/vol1/archive", 01770, 1000, 100);
    for (const char *s : {"/vol1/closed", "/vol1/closedguest", "/vol1/private", "/vol1/readers",
                          "/vol2/writers", "/vol2/snap"})
        folder(s, 0755, 0, 0);
    folder("/vol1/data", 0775, 1001, 100);
    folder("/vol1/noattr", 0755, 0, 0);  // a folder without a samba.conf
    ASSERT_EQ(ksdb_export(h(), db(), KSDB_CAT_CIFS_SHARE), 0);

    const Rows shares = sql().rows(kShareRows), options = sql().rows(kOptionRows),
               users = sql().rows(kUserAclRows), groups = sql().rows(kGroupAclRows),
               hosts = sql().rows(kHostAclRows), links = sql().rows(kDfsRows),
               host_names = sql().column("SELECT name FROM host ORDER BY name");
    for (const char *t : {"share", "cifs_share_option", "user_acl", "group_acl", "host_acl", "host",
                          "cifs_dfs_option"})
        sql().exec(std::string("DELETE FROM ") + t);

    ASSERT_EQ(ksdb_import(h(), db(), KSDB_CAT_CIFS_SHARE), 0);
    // The USB shares come back through the USB importer; their folders are
    // missing and are made (root's, mode 0777).
    ASSERT_EQ(import_usb(), 0);
    EXPECT_EQ(mode_of("/media/usb"), "0:0 0777");
    EXPECT_TRUE(contains(log(), "(warn) '/media/usb' not exist, ignored. Create it.\n"));
    EXPECT_TRUE(contains(log(), "(info) This is not CIFS share. name = 'vol1/noattr'\n"));

    // share: a NULL type and snapshot setting come back as their file
    // defaults, a NULL comment as empty; the share that was never exported
    // is not restored.
    const Rows shares_after = sql().rows(kShareRows);
    EXPECT_EQ(minus(shares, shares_after),
              (Rows{"archive|vol1/archive|<NULL>|vol1|<NULL>|/vol1/archive|Old "
                    "files|1000|100|7|7|0|1|<NULL>|<NULL>",
                    "closed|vol1/closed|share|vol1|<NULL>|/vol1/closed|<NULL>|0|0|7|5|5|0|<NULL>|",
                    "noattr|vol1/noattr|share|vol1|<NULL>|/vol1/noattr|No "
                    "attributes|0|0|7|5|5|0|<NULL>|"}));
    EXPECT_EQ(minus(shares_after, shares),
              (Rows{"archive|vol1/archive|share|vol1|<NULL>|/vol1/archive|Old "
                    "files|1000|100|7|7|0|1|<NULL>|",
                    "closed|vol1/closed|share|vol1|<NULL>|/vol1/closed||0|0|7|5|5|0|<NULL>|"}));

    // cifs_share_option: the recycle limits end as 25000 in the age column
    // with the size column untouched (NULL in a new row) and the recycle
    // flag off (no recycle parameter is written); oplocks are not written;
    // masks come back as the digits written (0664/0777 for enabled NULL
    // masks, 0 when disabled).
    EXPECT_EQ(options[0], "archive|1|readonly|0|1|7|5|1|7|5|0|1|100|7|1|<NULL>|0");
    EXPECT_EQ(sql().rows(kOptionRows),
              (Rows{"archive|1|readonly|0|1|7|5|1|7|5|0|0|<NULL>|25000|0|<NULL>|0",
                    "closed|1|disabled|0|0|0|0|0|0|0|0|0|<NULL>|25000|0|<NULL>|0",
                    "closedguest|0|disabled|1|0|0|0|0|0|0|0|0|<NULL>|25000|0|<NULL>|0",
                    "data|1|writeable|0|0|6|4|1|7|7|0|0|<NULL>|25000|0|<NULL>|0",
                    "private|1|disabled|1|0|0|0|0|0|0|0|0|<NULL>|25000|0|<NULL>|0",
                    "readers|1|disabled|0|0|0|0|0|0|0|0|0|<NULL>|25000|0|<NULL>|0",
                    "snap|1|writeable|0|0|0|0|0|0|0|0|0|<NULL>|25000|0|1000|1",
                    "usb|1|writeable|0|0|0|0|0|0|0|0|0|<NULL>|25000|0|<NULL>|0",
                    "usbdisk|1|readonly|0|0|0|0|0|0|0|0|0|<NULL>|25000|0|<NULL>|0",
                    "writers|1|disabled|0|0|0|0|0|0|0|0|0|<NULL>|25000|0|<NULL>|0"}));

    // user_acl: entries that no written list carries are lost (the read
    // list of a read-only share, users without access outside group 97);
    // cloud users gain the share's default access where they had no entry.
    const Rows users_after = sql().rows(kUserAclRows);
    EXPECT_EQ(minus(users, users_after),
              (Rows{"archive|alice|1|0", "data|erin|0|0", "private|erin|0|0"}));
    EXPECT_EQ(minus(users_after, users),
              (Rows{"archive|carol|1|0", "archive|dave|1|0", "closed|carol|0|0", "closed|dave|0|0",
                    "closedguest|carol|0|0", "closedguest|dave|0|0", "data|dave|1|1",
                    "private|carol|0|0", "private|dave|0|0", "readers|carol|0|0",
                    "readers|dave|0|0", "snap|carol|1|1", "snap|dave|1|1", "usb|carol|1|1",
                    "usb|dave|1|1", "usbdisk|carol|1|0", "usbdisk|dave|1|0", "writers|carol|0|0",
                    "writers|dave|0|0"}));

    EXPECT_EQ(sql().rows(kGroupAclRows), groups);
    EXPECT_EQ(groups.size(), 5u);

    // Hosts: an allowed host always comes back with write 1.
    EXPECT_EQ(sql().column("SELECT name FROM host ORDER BY name"), host_names);
    const Rows hosts_after = sql().rows(kHostAclRows);
    EXPECT_EQ(minus(hosts, hosts_after), Rows{"archive|pc-1|1|0|0"});
    EXPECT_EQ(minus(hosts_after, hosts), Rows{"archive|pc-1|1|1|0"});

    // DFS: the link whose volume and share were NULL cannot be placed.
    EXPECT_EQ(links.size(), 2u);
    EXPECT_EQ(sql().rows(kDfsRows), Rows{"snap|vol2|snap|docs|server1|pub"});

    // A host name among the hosts turns the service's name lookups on.
    EXPECT_EQ(sql().scalar("SELECT hostname_lookups FROM service_cifs"), "1");
    EXPECT_TRUE(contains(log(), "(debug) ksdb_cifs_share_import() ==> 0 ("));
    EXPECT_TRUE(contains(log(), "(debug) ksdb_cifs_usb_share_import() ==> 0 ("));

    // The shares were numbered afresh (in name order), so the tables of
    // other areas keyed by share id (zfs_attr, snapshot_schedule, quotas)
    // no longer match them: restoring those is not this importer's work.
    EXPECT_EQ(sql().scalar("SELECT id FROM share WHERE name='snap'"), "7");
}

TEST_F(CifsTest, ImportOverExistingRowsKeepsTheSizeLimitAndExtraEntries) {
    seed();
    folder("/vol1/archive", 01770, 1000, 100);
    ASSERT_EQ(ksdb_export(h(), db(), KSDB_CAT_CIFS_SHARE), 0);
    sql().exec("UPDATE cifs_share_option SET cifs_recycle_mb_limit=100 WHERE share_id=1");
    ASSERT_EQ(ksdb_import(h(), db(), KSDB_CAT_CIFS_SHARE), 0);
    EXPECT_EQ(sql().rows("SELECT cifs_recycle_age_limit,cifs_recycle_mb_limit FROM "
                         "cifs_share_option WHERE share_id=1"),
              Rows{"25000|100"});
    // Import never deletes: alice's entry (not in the file) stays.
    EXPECT_EQ(sql().scalar("SELECT read||write FROM user_acl WHERE share_id=1 AND user_id=1000 "
                           "AND proto='cifs'"),
              "10");
    EXPECT_EQ(sql().scalar("SELECT id FROM share WHERE name='archive'"), "1");
}

// ---- the per-share reader and the record writer ------------------------------------

TEST_F(CifsTest, KeyTableAndPrefixTableFillTheRecord) {
    share_conf("vol1", "keys",
               "[Some Other Name]\n"
               "  PATH = \"/vol1/keys\"\n"
               "  Comment = \"Quoted\"\n"
               "  oplocks = Yes\n"
               "  create mode = 0750\n"
               "  directory mode = 0705\n"
               "  force security mode = 0600\n"
               "  available = no\n"
               "  browsable = no\n"
               "  public = 1\n"
               "  read only = YES\n"
               "  msdfs root = yes\n"
               "  force user = \"alice\"\n"
               "  vfs objects = recycle\n"
               "  Recycle:repository = .recycle\n"
               "  allow hosts = \"host-a\", \"10.1.1.1\"\n"
               "  unknown key = whatever\n");
    folder("/vol1/keys", 0750, 1001, 100);
    ASSERT_EQ(ksdb_import(h(), db(), KSDB_CAT_CIFS_SHARE), 0);
    // The share is named by its folder, not by its section.
    EXPECT_EQ(sql().rows("SELECT name,path,comment,user_id,group_id,user_access,group_access,"
                         "everyone_access,non_owner_delete,type,visible_snapdir FROM share"),
              Rows{"keys|/vol1/keys|Quoted|1001|100|7|5|0|0|share|"});
    EXPECT_EQ(sql().rows(kOptionRows),
              Rows{"keys|0|readonly|1|1|5|0|1|0|5|1|1|<NULL>|25000|1|1000|1"});
    EXPECT_EQ(sql().rows(kHostAclRows), (Rows{"keys|10.1.1.1|1|1|0", "keys|host-a|1|1|0"}));
    // The read-only default gives the cloud users read access.
    EXPECT_EQ(sql().rows(kUserAclRows), (Rows{"keys|carol|1|0", "keys|dave|1|0"}));
}

TEST_F(CifsTest, ContinuedLinesAndTheLookAheadQuirk) {
    share_conf("vol1", "quirk",
               "[quirk]\n"
               "path = /vol1/quirk\n"
               "read list = alice, \\  \n"
               "   @eng\n"
               "writable = 1\n"
               "comment = dropped because the next line starts with #\n"
               "# a comment = with an equals sign\n"
               "guest ok = yes\n"
               "invalid users = bob\n"
               ";semicolon\n"
               "write list = erin = twice\n"
               "  #hosts allow = \"10.9.9.9\"\n");
    mkdirs(at("/vol1/quirk"));
    ASSERT_EQ(ksdb_import(h(), db(), KSDB_CAT_CIFS_SHARE), 0);
    // The comment line was followed by "#": not used (NULL).  "# a comment"
    // itself has two fields and is read as an unknown key.  The invalid
    // users line was followed by ";".  A line with two "=" is not used.  The
    // indented "#hosts allow" line is read: a denied host.
    EXPECT_EQ(sql().scalar("SELECT IFNULL(comment,'<NULL>') FROM share WHERE name='quirk'"),
              "<NULL>");
    EXPECT_EQ(sql().rows(kOptionRows),
              Rows{"quirk|1|writeable|1|0|0|0|0|0|0|0|0|<NULL>|25000|0|<NULL>|0"});
    EXPECT_EQ(sql().rows(kUserAclRows),
              (Rows{"quirk|alice|1|0", "quirk|carol|1|1", "quirk|dave|1|1"}));
    EXPECT_EQ(sql().rows(kGroupAclRows), Rows{"quirk|eng|1|0"});
    EXPECT_EQ(sql().rows(kHostAclRows), Rows{"quirk|10.9.9.9|0|0|0"});
}

TEST_F(CifsTest, DomainAndLocalAccountsOfTheSameName) {
    share_conf("vol1", "mixed",
               "[mixed]\n"
               "  path = /vol1/mixed\n"
               "  read list = \"twin\",\"@WG\\dgroup\"\n"
               "  write list = \"WG\\twin\",\"ADMIN\",\"administrator\",\"unknown\"\n"
               "  valid users = \"twin\"\n");
    mkdirs(at("/vol1/mixed"));
    ASSERT_EQ(ksdb_import(h(), db(), KSDB_CAT_CIFS_SHARE), 0);
    EXPECT_EQ(sql().rows("SELECT A.user_id,A.read,A.write FROM user_acl A WHERE A.user_id NOT IN "
                         "(1002,1003) ORDER BY 1"),
              (Rows{"1005|1|0", "2001|1|1"}));
    EXPECT_EQ(sql().rows("SELECT group_id,read,write FROM group_acl"), Rows{"3000|1|0"});
    EXPECT_EQ(sql().scalar("SELECT cifs_access FROM cifs_share_option"), "disabled");
}

TEST_F(CifsTest, TwoSectionsInOneFileImportNothingForThatShare) {
    share_conf("vol1", "good", "[good]\n  path = /vol1/good\n  writeable = 1\n");
    share_conf("vol1", "twice",
               "[twice]\n  path = /vol1/twice\n[other]\n  path = /vol1/other\n");
    share_conf("vol1", "nosection", "  path = /vol1/nosection\n");
    mkdirs(at("/vol1/nofile"));
    ASSERT_EQ(ksdb_import(h(), db(), KSDB_CAT_CIFS_SHARE), 0);
    EXPECT_EQ(sql().column("SELECT name FROM share"), Rows{"good"});
    std::string text = log();
    EXPECT_TRUE(contains(text, "(error) There seems two share in one config.\n"));
    EXPECT_TRUE(contains(
        text, "(error) Cannot parse cifs share conf file. /vol1/._share/twice/samba.conf\n"));
    EXPECT_TRUE(contains(
        text, "(error) Cannot parse cifs share conf file. /vol1/._share/nosection/samba.conf\n"));
    EXPECT_TRUE(contains(text, "(info) This is not CIFS share. name = 'vol1/nofile'\n"));
}

TEST_F(CifsTest, APathNotOfTheVolumeShareFormFailsTheImport) {
    sql().exec(
        "INSERT INTO share (id,zfs_name,volume_id,name,path,user_id,group_id) "
        "VALUES(1,'vol1/kept','vol1','kept','/vol1/kept',0,0)");
    share_conf("vol1", "aaa", "[aaa]\n  path = /vol1/aaa\n");
    share_conf("vol1", "flat", "[flat]\n  path = /flat\n");
    EXPECT_EQ(ksdb_import(h(), db(), KSDB_CAT_CIFS_SHARE), KSDB_E_DB);
    std::string text = log();
    EXPECT_TRUE(contains(text, "(error) share path (/flat) should be /vol/share format\n"));
    EXPECT_TRUE(contains(text, "(error) Cannot insert cifs share conf to database\n"));
    EXPECT_TRUE(contains(text, "(error) ksdb_cifs_share_import() ==> 3 ("));
    // The driver rolled back: the share written before the failure is gone
    // again, the old row stays, and nothing was made for the refused path.
    EXPECT_EQ(sql().column("SELECT name FROM share"), Rows{"kept"});
    EXPECT_FALSE(exists(at("/flat")));
}

TEST_F(CifsTest, ASharePathOffEveryVolumeFailsAndAFolderThatCannotBeMadeIsSkipped) {
    share_conf("vol1", "deep", "[deep]\n  path = /vol1/missing/deep\n");
    ASSERT_EQ(ksdb_import(h(), db(), KSDB_CAT_CIFS_SHARE), 0);
    EXPECT_EQ(sql().scalar("SELECT COUNT(*) FROM share"), "0");
    EXPECT_TRUE(contains(
        log(), "(warn) Error in mkdir(/vol1/missing/deep) 2 (No such file or directory)\n"));

    share_conf("vol1", "away", "[away]\n  path = /elsewhere/away\n");
    mkdirs(at("/elsewhere/away"));
    EXPECT_EQ(ksdb_import(h(), db(), KSDB_CAT_CIFS_SHARE), KSDB_E_DB);
    EXPECT_TRUE(contains(log(), "(error) Share away at /elsewhere/away is not on valid volume\n"));
}

TEST_F(CifsTest, UsbImportReadsOnlyTheSharesUnderMedia) {
    put("/run/usb/samba/Shares.conf",
        "[stick]\n  path = /media/stick\n[data]\n  path = /vol1/data\n");
    put("/media/._share/stick/samba.conf", "[stick]\n  path = /media/stick\n  writeable = 1\n");
    share_conf("vol1", "data", "[data]\n  path = /vol1/data\n");
    mkdirs(at("/media/stick"));
    ASSERT_EQ(import_usb(), 0);
    EXPECT_EQ(sql().rows("SELECT name,volume_id,zfs_name FROM share"),
              Rows{"stick|media|media/stick"});

    // Without the USB file there is nothing to do, and that is no error.
    unlink(at("/run/usb/samba/Shares.conf").c_str());
    EXPECT_EQ(import_usb(), 0);
}

// ---- DFS links -----------------------------------------------------------------------

TEST_F(CifsTest, DfsImportPlacesBothLineForms) {
    sql().exec(
        "INSERT INTO share (id,zfs_name,volume_id,name,path,user_id,group_id) VALUES"
        "(1,'vol1/archive','vol1','archive','/vol1/archive',0,0),"
        "(2,'vol2/snap','vol2','snap','/vol2/snap',0,0)");
    // The first share holds a link of the same name to another target.
    mkdirs(at("/vol1/archive"));
    mkdirs(at("/vol2/snap"));
    ASSERT_EQ(symlink("msdfs:other\\pub", at("/vol1/archive/docs").c_str()), 0);
    ASSERT_EQ(symlink("msdfs:server1\\pub", at("/vol2/snap/docs").c_str()), 0);
    ASSERT_EQ(symlink("msdfs:server1\\pub", at("/vol2/snap/it's $(docs)").c_str()), 0);
    put("/etc/quillfold/samba/dfs.conf",
        "7!!docs!!server1!!pub\n"
        "7!!it's $(docs)!!server1!!pub\n"
        "7!!nowhere!!server1!!pub\n"
        "7!!bad\n"
        "9!!!links!!srv!!!!remote!!vol2!!snap\n"
        "9!!gone!!srv!!remote!!vol9!!snap\n");
    ASSERT_EQ(ksdb_import(h(), db(), KSDB_CAT_CIFS_SHARE), 0);
    EXPECT_EQ(sql().rows(kDfsRows), (Rows{"snap|vol2|snap|docs|server1|pub",
                                          "snap|vol2|snap|it's $(docs)|server1|pub",
                                          "snap|vol2|snap|links|srv|remote"}));
    std::string text = log();
    EXPECT_TRUE(contains(text, "(debug) index sssssssssss = 4\n"));
    EXPECT_TRUE(contains(text, "(debug) index sssssssssss = 2\n"));
    EXPECT_TRUE(contains(text, "(debug) index sssssssssss = 6\n"));

    // Importing again meets the links already there: logged, not fatal.
    ASSERT_EQ(ksdb_import(h(), db(), KSDB_CAT_CIFS_SHARE), 0);
    EXPECT_TRUE(contains(log(), "(error) Failed to UPDATE cifs_dfs_option\n"));
    EXPECT_EQ(sql().rows(kDfsRows).size(), 3u);
}

TEST_F(CifsTest, DfsImportWithoutAFileIsNoError) {
    ASSERT_EQ(ksdb_import(h(), db(), KSDB_CAT_CIFS_SHARE), 0);
    EXPECT_TRUE(contains(log(), "(error) Cannot load /etc/quillfold/samba/dfs.conf\n"));
}

// ---- Samba's own checker --------------------------------------------------------------

TEST_F(CifsTest, SambaAcceptsTheGeneratedSections) {
    if (std::system("command -v testparm >/dev/null 2>&1") != 0)
        GTEST_SKIP() << "testparm is not installed (scripts/setup-deps installs it)";
    seed();
    // The include files named by the application lines live on the
    // appliance, not below the root.
    sql().exec("DELETE FROM `$application_on_share`");
    ASSERT_EQ(ksdb_export(h(), db(), KSDB_CAT_CIFS_SHARE), 0);
    const std::string checker = fakes_dir() + "/../validators/check-smb.sh";
    auto check = [&](const std::string &included) {
        const std::string conf =
            tmp_ / ("smb-" + std::to_string(std::hash<std::string>{}(included)));
        write_file(conf, "[global]\n  workgroup = WG\n  include = " + at(included) + "\n");
        return std::system(("sh " + checker + " " + conf + " 2>&1").c_str());
    };
    EXPECT_EQ(check("/etc/quillfold/samba/Shares.conf"), 0);
    EXPECT_EQ(check("/run/usb/samba/Shares.conf"), 0);
    EXPECT_EQ(check("/vol1/._share/private/samba.conf"), 0);
    EXPECT_EQ(check("/vol1/._share/archive/samba.conf"), 0);

    // The checker does catch a broken section.
    put("/broken.conf", "[broken]\n  no such parameter = 1\n");
    EXPECT_NE(check("/broken.conf"), 0);
}

// The whole Samba configuration of an appliance, as the daemon reads it:
// smb.conf from the service settings with the share file and the other
// generated files in place, through the driver, in stand-alone and in
// domain mode.
TEST_F(CifsTest, SambaAcceptsTheWholeGeneratedConfigurationInBothModes) {
    if (!have_program("testparm")) GTEST_SKIP() << "testparm is not installed (scripts/setup-deps)";
    seed();
    sql().exec("DELETE FROM `$application_on_share`");
    sql().exec("UPDATE _volume SET uuid='0b9c6d2e-1111-2222-3333-444455556666' WHERE id<>'media'");
    // Settings as an imported appliance has them.
    sql().exec("UPDATE service_cifs SET oplocks=1,allow_trusted_domains=0,map_to_guest='Bad User'");
    sql().exec("INSERT INTO service_misc (key,val) VALUES('LANGUAGE','de')");
    sql().exec("INSERT INTO smb_username_map (unix_uname,smb_uname,type) VALUES('alice','ALICE','UNAME')");
    // The files of the appliance that this library does not generate.
    put("/etc/quillfold/samba/smb.conf.defaults", "# appliance defaults\n server min protocol = SMB2\n");
    put("/etc/quillfold/samba/smb.conf.UNKNOWN", "# per client kind\n");  // %a as testparm expands it
    put("/etc/quillfold/samba/smb.conf.overrides",
        "include = " + at("/etc/quillfold/samba/Shares.conf.admin") + "\n");
    put("/etc/quillfold/samba/Shares.conf.", "# per user\n");  // %U expands to nothing
    put("/etc/quillfold/samba/addons/addons.conf", "# add-ons\n");

    auto check = [&](const char *mode) {
        ASSERT_EQ(ksdb_export(h(), db(), KSDB_CAT_ALL_SERVICE), 0) << mode;
        ASSERT_EQ(ksdb_export(h(), db(), KSDB_CAT_CIFS_SHARE), 0) << mode;
        // The include lines name live paths: check a copy pointing below
        // the root, so the checker reads exactly what was generated.
        std::string text = get("/etc/samba/smb.conf");
        text = replace_all(text, " /etc/quillfold/", " " + root() + "/etc/quillfold/");
        text = replace_all(text, " /run/usb/", " " + root() + "/run/usb/");
        const std::string copy = at("/smb.check.conf");
        write_file(copy, text);
        std::string out;
        EXPECT_EQ(run_checker("check-smb.sh", copy, &out), 0) << mode << "\n" << out;
        // Every share reached the file the checker read.
        for (const char *section : {"[archive]", "[closed]", "[data]", "[writers]", "[snap]"})
            EXPECT_TRUE(contains(get("/etc/quillfold/samba/Shares.conf"), section)) << section;
    };
    check("stand-alone");

    sql().exec(
        "UPDATE service_cifs SET security='ads',workgroup='CORP',realm='CORP.EXAMPLE.COM',"
        "domain_admin_user='Administrator',idmap_backend='tdb',join_ads_failed=1");
    check("domain");
    EXPECT_TRUE(contains(get("/etc/samba/smb.conf"), "\n client signing = mandatory\n"));
    EXPECT_TRUE(contains(get("/etc/quillfold/samba/Shares.conf"),
                         "  admin users = \"+admin\",\"CORP\\Administrator\"\n"));
    EXPECT_EQ(get("/etc/samba/winbind.conf"), "# used by svf\n");
}
