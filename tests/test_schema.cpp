// The schema: a new database gets every table and index of the catalogue,
// older databases are upgraded step by step (or rolled back when their
// remaining steps cannot run), a rerun empties mirror and scratch tables,
// and ksdb_delete empties every stored and mirror table.
#include "tests/support/test_support.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstring>
#include <memory>
#include <regex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

using namespace ksdb_test;

namespace {

// ---- the catalogue, written out by hand ------------------------------------
// 'S' stored ("$"), 'M' mirror, 'X' scratch (temporary), in catalogue order.
const std::vector<std::pair<std::string, char>> kCatalogue = {
    {"_volume", 'X'},
    {"share", 'M'},
    {"user_acl", 'M'},
    {"$user", 'S'},
    {"host_acl", 'M'},
    {"readonly_host", 'M'},
    {"cifs_share_option", 'M'},
    {"afp_share_option", 'M'},
    {"http_share_option", 'M'},
    {"nfs_share_option", 'M'},
    {"user_quota", 'M'},
    {"$group", 'S'},
    {"group_acl", 'M'},
    {"$group_has_user", 'S'},
    {"host", 'M'},
    {"group_quota", 'M'},
    {"backup", 'M'},
    {"dlna_share_option", 'M'},
    {"service_dlna", 'M'},
    {"account_default", 'M'},
    {"passwordrecovery", 'M'},
    {"usb_storage", 'M'},
    {"network_if", 'M'},
    {"service_avahi", 'M'},
    {"vital_product_data", 'M'},
    {"service_misc", 'M'},
    {"service_cifs", 'M'},
    {"service_afp", 'M'},
    {"usb_port", 'M'},
    {"backup_protocol", 'M'},
    {"backup_button_jobs", 'M'},
    {"system_config", 'M'},
    {"$disk_info", 'S'},
    {"disk_port", 'M'},
    {"_disk_health", 'X'},
    {"$snapshot", 'S'},
    {"ftp_share_option", 'M'},
    {"_zfs_stat", 'X'},
    {"_user_quota_stat", 'X'},
    {"_group_quota_stat", 'X'},
    {"service_ftp", 'M'},
    {"service_nfs", 'M'},
    {"snapshot_schedule", 'M'},
    {"zvol_share_option", 'M'},
    {"_enclosure_health", 'X'},
    {"service_snmp", 'M'},
    {"$log", 'S'},
    {"zfs_attr", 'M'},
    {"$volume_spares", 'S'},
    {"disk_enclosure", 'M'},
    {"$registry", 'S'},
    {"jbod_port", 'M'},
    {"$snapshot_clones", 'S'},
    {"$application_on_share", 'S'},
    {"$kestravad", 'S'},
    {"service_ssh", 'M'},
    {"$iscsi_lun_group_access", 'S'},
    {"service_replicate", 'M'},
    {"_ads_importer", 'X'},
    {"enclosure_health_spec", 'M'},
    {"rsync_share_option", 'M'},
    {"service_rsync", 'M'},
    {"service_tivo", 'M'},
    {"service_vault", 'M'},
    {"service_upnpd", 'M'},
    {"tivo_mak", 'M'},
    {"rsync_user_password_acl", 'M'},
    {"_ups_health", 'X'},
    {"ups_config", 'M'},
    {"service_upsd", 'M'},
    {"process_on_share", 'M'},
    {"$iscsi_lun_group", 'S'},
    {"$iscsi_initiator", 'S'},
    {"service_smartnetwork", 'M'},
    {"service_http", 'M'},
    {"service_https", 'M'},
    {"_dictionary", 'X'},
    {"_lang_supported", 'X'},
    {"service_daap", 'M'},
    {"$iscsi_lun", 'S'},
    {"cifs_dfs_option", 'M'},
    {"service_anti_virus", 'M'},
    {"volume_schedule", 'M'},
    {"daap_share_option", 'M'},
    {"$timemachine_quota", 'S'},
    {"$home_folder_snapshot_schedule", 'S'},
    {"$home_folder", 'S'},
    {"$home_folder_snapshot", 'S'},
    {"_hf_zfs_stat", 'X'},
    {"_disk_enclosure", 'X'},
    {"_ups_config", 'X'},
    {"ssh_public_key", 'M'},
    {"snapshot_management", 'M'},
    {"smb_username_map", 'M'},
    {"$vol_maint_log", 'S'},
    {"replisync", 'M'},
    {"replisync_key", 'M'},
};

// Named indexes, in creation order.
const std::vector<std::string> kIndexes = {
    "$user_rid",
    "$group_rid",
    "ssh_public_key_key_INDEX",
    "ssh_public_key_serve_for_INDEX",
    "ssh_public_key_user_id_INDEX",
    "ssh_public_key_user_id_key_INDEX",
    "ssh_public_key_Title_INDEX",
    "smb_username_map_unix_uname_index",
    "smb_username_map_type_index",
};

std::vector<std::string> catalogue_names(bool scratch) {
    std::vector<std::string> out;
    for (const auto &[name, kind] : kCatalogue)
        if ((kind == 'X') == scratch) out.push_back(name);
    return out;
}

// ---- current shapes, written from the table descriptions ------------------

const char kUserSql[] =
    "CREATE TABLE `$user` ( `id` INT NOT NULL, `uname` VARCHAR(45) NOT NULL COLLATE NOCASE, "
    "`passwd` VARCHAR(45) NULL COLLATE NOCASE, `fullname` VARCHAR(45) NULL COLLATE NOCASE, "
    "`email` VARCHAR(255) NULL COLLATE NOCASE, `home` VARCHAR(45) NULL COLLATE NOCASE, "
    "`group_id` INT NULL, `shell` VARCHAR(45) NULL COLLATE NOCASE, `is_privileged` "
    "TINYINT(1) NOT NULL, `last_changed` VARCHAR(45) NULL COLLATE NOCASE, `rid` INT NULL, "
    "`dn` VARCHAR(255) NULL COLLATE NOCASE, `is_locked` TINYINT(1) NOT NULL DEFAULT 0, "
    "`shell_access` TINYINT(1) NOT NULL DEFAULT 0, PRIMARY KEY (`id`))";

const char kGroupSql[] =
    "CREATE TABLE `$group` ( `id` INT NOT NULL, `gname` VARCHAR(45) NOT NULL COLLATE BINARY, "
    "`is_privileged` TINYINT(1) NOT NULL, `rid` INT NULL, `dn` VARCHAR(255) NULL COLLATE "
    "NOCASE, PRIMARY KEY (`id`))";

// ---- historical shapes, as older versions of the library left them --------

// `$user` as version 11 created it; versions 15 and 19 added the two flags.
const char kUserV11[] =
    "CREATE TABLE `$user` ( `id` INT NOT NULL, `uname` VARCHAR(45) NOT NULL COLLATE NOCASE, "
    "`passwd` VARCHAR(45) NULL COLLATE NOCASE, `fullname` VARCHAR(45) NULL COLLATE NOCASE, "
    "`email` VARCHAR(255) NULL COLLATE NOCASE, `home` VARCHAR(45) NULL COLLATE NOCASE, "
    "`group_id` INT NULL, `shell` VARCHAR(45) NULL COLLATE NOCASE, `is_privileged` "
    "TINYINT(1) NOT NULL, `last_changed` VARCHAR(45) NULL COLLATE NOCASE, `rid` INT NULL, "
    "`dn` VARCHAR(255) NULL COLLATE NOCASE, PRIMARY KEY (`id`))";
const char kUserAddLocked[] =
    "ALTER TABLE `$user`ADD COLUMN `is_locked` TINYINT(1) NOT NULL DEFAULT 0";
const char kUserAddShell[] =
    "ALTER TABLE `$user`ADD COLUMN `shell_access` TINYINT(1) NOT NULL DEFAULT 0";
// `$group` as version 11 created it (unique names) and as version 18 left it.
const char kGroupV11[] =
    "CREATE TABLE `$group` ( `id` INT NOT NULL, `gname` VARCHAR(45) NOT NULL COLLATE NOCASE, "
    "`is_privileged` TINYINT(1) NOT NULL, `rid` INT NULL, `dn` VARCHAR(255) NULL COLLATE "
    "NOCASE, UNIQUE (`gname` ASC), PRIMARY KEY (`id`))";
const char kGroupV18[] =
    "CREATE TABLE `$group` ( `id` INT NOT NULL, `gname` VARCHAR(45) NOT NULL COLLATE NOCASE, "
    "`is_privileged` TINYINT(1) NOT NULL, `rid` INT NULL, `dn` VARCHAR(255) NULL COLLATE "
    "NOCASE, PRIMARY KEY (`id`))";
const char kGroupHasUser[] =
    "CREATE TABLE `$group_has_user` ( `user_id` INT NOT NULL, `group_id` INT NOT NULL, "
    "PRIMARY KEY (`user_id`, `group_id`))";
const char kUserRid[] = "CREATE INDEX `$user_rid` ON `$user` (`rid` ASC)";
const char kGroupRid[] = "CREATE INDEX `$group_rid` ON `$group` (`rid` ASC)";
// `$home_folder` before `prev_versions` (version 15 to 19).
const char kHomeFolderV15[] =
    "CREATE TABLE `$home_folder` ( `user_id` INT NOT NULL, `snapshot_protection_enabled` INT "
    "NOT NULL DEFAULT 0, `quota` BIGINT NULL, `visible_snapdir` INT NOT NULL DEFAULT 0, "
    "PRIMARY KEY (`user_id`))";
// `$iscsi_lun_group` before version 14.
const char kIscsiLunGroupV13[] =
    "CREATE TABLE `$iscsi_lun_group` ( `name` VARCHAR(255) NOT NULL COLLATE NOCASE, "
    "`target` VARCHAR(255) NOT NULL COLLATE NOCASE, `all_hosts` INT NOT NULL, `chap_auth` INT "
    "NOT NULL, `chap_secret` VARCHAR(255) NULL COLLATE NOCASE, PRIMARY KEY (`name`))";

// Rows of the account tables used by the upgrade tests.
void insert_accounts(Db &db) {
    db.exec(
        "INSERT INTO `$user` (id,uname,passwd,fullname,email,home,group_id,shell,"
        "is_privileged,last_changed,rid,dn) VALUES "
        "(0,'root','$6$r',NULL,'root',  '/root',0,'/bin/bash',1,'19000',NULL,NULL),"
        "(100,'Alice','$6$a','Alice A','alice@x','/home/Alice',100,'/bin/bash',0,'19500',"
        "NULL,NULL),"
        "(70001,'bob','$6$b',NULL,NULL,'/home/DOM/bob',70000,'/bin/false',0,NULL,1105,"
        "'CN=bob')");
    db.exec(
        "INSERT INTO `$group` (id,gname,is_privileged,rid,dn) VALUES "
        "(100,'Staff',0,NULL,NULL),(70000,'domain users',0,513,'CN=Domain Users')");
    db.exec("INSERT INTO `$group_has_user` VALUES (100,100),(70001,70000)");
}

// Runs every statement of `sql` (several may follow each other) to completion.
::testing::AssertionResult run_statements(sqlite3 *db, const std::string &sql) {
    const char *tail = sql.c_str();
    while (tail && *tail) {
        sqlite3_stmt *st = nullptr;
        const char *next = nullptr;
        int rc = sqlite3_prepare_v2(db, tail, -1, &st, &next);
        if (rc != SQLITE_OK)
            return ::testing::AssertionFailure()
                   << "prepare: " << sqlite3_errmsg(db) << " in: " << tail;
        if (st) {
            while ((rc = sqlite3_step(st)) == SQLITE_ROW) {
            }
            sqlite3_finalize(st);
            if (rc != SQLITE_DONE)
                return ::testing::AssertionFailure()
                       << "step: " << sqlite3_errmsg(db) << " in: " << tail;
        }
        tail = next;
    }
    return ::testing::AssertionSuccess();
}

std::string mprintf(const char *format, ...) {
    va_list ap;
    va_start(ap, format);
    char *s = sqlite3_vmprintf(format, ap);
    va_end(ap);
    std::string out = s ? s : "";
    sqlite3_free(s);
    return out;
}

// Whether another thread can take the mutex right now.
bool mutex_free(pthread_mutex_t *m) {
    int rc = -1;
    std::thread t([&] {
        rc = pthread_mutex_trylock(m);
        if (rc == 0) pthread_mutex_unlock(m);
    });
    t.join();
    return rc == 0;
}

// The statements of an SQL trace, in order.
std::vector<std::string> traced_statements(const std::string &trace) {
    std::vector<std::string> out;
    static const std::regex statement(R"(sql=([^\n]*)\n)");
    for (std::sregex_iterator it(trace.begin(), trace.end(), statement), end; it != end; ++it)
        out.push_back((*it)[1].str());
    return out;
}

int count_of(const std::string &text, const std::string &what) {
    int n = 0;
    for (size_t pos = text.find(what); pos != std::string::npos; pos = text.find(what, pos + 1))
        ++n;
    return n;
}

// A handle below a temporary debug root (so failure logs stay there), logging
// at debug level and tracing SQL, over a file database.
class SchemaTest : public ::testing::Test {
  protected:
    SchemaTest() {
        mkdirs(root_);
        handle_ =
            std::make_unique<Handle>(Handle::Options{log_.get(), 5, trace_.get(), root_.c_str()});
    }

    ksdb_handle *h() const { return handle_->get(); }
    std::string log() { return log_.text(); }
    std::string trace() { return trace_.text(); }

    // The whole content of the database: its schema and every row.
    std::vector<std::string> snapshot_of(Db &db) {
        std::vector<std::string> out =
            db.rows("SELECT type,name,tbl_name,sql FROM sqlite_master ORDER BY type,name");
        for (const std::string &t :
             db.column("SELECT name FROM sqlite_master WHERE type='table' ORDER BY name")) {
            std::vector<std::string> rows = db.rows("SELECT * FROM `" + t + "`");
            std::sort(rows.begin(), rows.end());
            for (const std::string &r : rows) out.push_back(t + ": " + r);
        }
        out.push_back("user_version " + db.scalar("PRAGMA user_version"));
        return out;
    }

    TempDir tmp_;
    std::string root_ = tmp_ / "root";
    CaptureFile log_;
    CaptureFile trace_;
    std::unique_ptr<Handle> handle_;
    Db db_{tmp_ / "config.db"};
};

}  // namespace

// ---- a new database --------------------------------------------------------

TEST_F(SchemaTest, NewDatabaseGetsEveryTableAndIndexOfTheCatalogueInOrder) {
    ASSERT_EQ(kCatalogue.size(), 97u);
    ASSERT_EQ(ksdb_create(h(), db_), 0);

    EXPECT_EQ(db_.column("SELECT name FROM sqlite_master WHERE type='table' ORDER BY rowid"),
              catalogue_names(false));
    EXPECT_EQ(db_.column("SELECT name FROM sqlite_temp_master WHERE type='table' ORDER BY rowid"),
              catalogue_names(true));
    EXPECT_EQ(db_.column("SELECT name FROM sqlite_master WHERE type='index' AND name NOT LIKE "
                         "'sqlite_autoindex_%' ORDER BY rowid"),
              kIndexes);
    EXPECT_EQ(db_.column("SELECT name FROM sqlite_temp_master WHERE type='index' AND name NOT "
                         "LIKE 'sqlite_autoindex_%'"),
              std::vector<std::string>{});
    // The queue keeps its own tables.
    EXPECT_EQ(db_.scalar("SELECT COUNT(*) FROM sqlite_master WHERE name IN ('queue','config')"),
              "0");
    EXPECT_EQ(db_.scalar("PRAGMA user_version"), "23");
    EXPECT_EQ(db_.scalar("PRAGMA page_size"), "4096");

    std::string text = log();
    EXPECT_TRUE(std::regex_search(
        text, std::regex(R"(ksdb_api:\d+ \(error\) DB \(main\) schema version: new ==> 23\n)")))
        << text;
    EXPECT_EQ(text.find("DB upgrade to version"), std::string::npos) << text;
    EXPECT_EQ(text.find("page size"), std::string::npos) << text;
    EXPECT_TRUE(
        std::regex_search(text, std::regex(R"(\(debug\) ksdb_create\(\) ==> 0 \(\d+ms\)\n)")))
        << text;
    // The scratch tables are dropped before they are created, by name with one blank after it.
    EXPECT_NE(trace().find("sql=DROP TABLE IF EXISTS `_volume` \n"), std::string::npos);
}

TEST_F(SchemaTest, ColumnDefinitionsAreThoseOfTheTableDescriptions) {
    ASSERT_EQ(ksdb_create(h(), db_), 0);
    auto sql_of = [&](const char *name) {
        return db_.scalar(std::string("SELECT sql FROM sqlite_master WHERE name='") + name + "'");
    };
    EXPECT_EQ(sql_of("service_cifs"),
              "CREATE TABLE `service_cifs` ( `enabled` INT NULL, `security` VARCHAR(45) NULL "
              "COLLATE NOCASE, `oplocks` INT NULL, `map_to_guest` VARCHAR(45) NULL COLLATE "
              "NOCASE, `workgroup` VARCHAR(45) NULL COLLATE NOCASE, `realm` VARCHAR(45) NULL "
              "COLLATE NOCASE, `orgunit` VARCHAR(45) NULL COLLATE NOCASE, `restrict_ou` "
              "VARCHAR(45) NULL COLLATE NOCASE, `domain_admin_user` VARCHAR(45) NULL COLLATE "
              "NOCASE, `domain_admin_gid` INT NULL, `domain_admin_uid` INT NULL, `domain_sid` "
              "VARCHAR(45) NULL COLLATE NOCASE, `password_server` VARCHAR(45) NULL COLLATE "
              "NOCASE, `allow_trusted_domains` INT NULL, `user_home_directory` INT NOT NULL, "
              "`user_home_directory_recycle` INT NULL, `user_home_directory_recycle_max_days` "
              "INT NULL, `user_home_directory_recycle_max_size` INT NULL, `no_sync_ads` INT "
              "NULL, `hostname_lookups` INT NULL, `join_ads_failed` INT NULL, `idmap_backend` "
              "VARCHAR(45) NULL DEFAULT 'rid' COLLATE NOCASE)");
    EXPECT_EQ(sql_of("smb_username_map"),
              "CREATE TABLE `smb_username_map` ( `id` INTEGER NOT NULL, `unix_uname` "
              "VARCHAR(45) NOT NULL COLLATE NOCASE, `smb_uname` VARCHAR(45) NOT NULL COLLATE "
              "NOCASE, `type` VARCHAR(45) NULL COLLATE NOCASE, UNIQUE (`smb_uname` ASC), UNIQUE "
              "(`unix_uname` ASC, `type` ASC), PRIMARY KEY (`id`))");
    EXPECT_EQ(sql_of("smb_username_map_type_index"),
              "CREATE INDEX `smb_username_map_type_index` ON `smb_username_map` (`type` ASC)");
    EXPECT_EQ(sql_of("share"),
              "CREATE TABLE `share` ( `id` INTEGER NOT NULL, `zfs_name` VARCHAR(45) NOT NULL "
              "COLLATE NOCASE, `type` VARCHAR(45) NULL COLLATE NOCASE, `volume_id` VARCHAR(45) "
              "NULL COLLATE NOCASE, `usb_storage_id` INT NULL, `name` VARCHAR(45) NOT NULL "
              "COLLATE NOCASE, `path` VARCHAR(255) NOT NULL COLLATE NOCASE, `comment` "
              "VARCHAR(255) NULL COLLATE NOCASE, `user_access` INT NULL, `group_access` INT "
              "NULL, `everyone_access` INT NULL, `non_owner_delete` TINYINT(1) NULL, `user_id` "
              "INT NOT NULL, `group_id` INT NOT NULL, `migrate_to_volume_id` VARCHAR(45) NULL "
              "COLLATE NOCASE, `visible_snapdir` VARCHAR(45) NULL COLLATE NOCASE, `update_ts` "
              "DATETIME NOT NULL DEFAULT CURRENT_TIMESTAMP, UNIQUE (`name` ASC), PRIMARY KEY "
              "(`id`))");
    EXPECT_EQ(sql_of("$user"), kUserSql);
    EXPECT_EQ(sql_of("$user_rid"), "CREATE INDEX `$user_rid` ON `$user` (`rid` ASC)");
    EXPECT_EQ(sql_of("$group"), kGroupSql);
    EXPECT_EQ(sql_of("$kestravad"),
              "CREATE TABLE `$kestravad` ( `started_on` INT NOT NULL DEFAULT 0, `stopped_on` "
              "INT NOT NULL DEFAULT 0, `version` VARCHAR(45) NOT NULL DEFAULT '1.0.0' COLLATE "
              "NOCASE)");
    EXPECT_EQ(sql_of("host_acl"),
              "CREATE TABLE `host_acl` ( `share_id` INT NOT NULL, `host_id` INT NOT NULL, "
              "`proto` VARCHAR(45) NOT NULL COLLATE NOCASE, `read` TINYINT(1) NOT NULL, `write` "
              "TINYINT(1) NOT NULL, `root` TINYINT(1) NOT NULL DEFAULT 0, PRIMARY KEY "
              "(`share_id`, `proto`, `host_id`))");
    EXPECT_EQ(sql_of("zvol_share_option"),
              "CREATE TABLE `zvol_share_option` ( `share_id` INT NULL, `kb_size` BIGINT NULL, "
              "`is_sparse` VARCHAR(45) NULL COLLATE NOCASE, PRIMARY KEY (`share_id`))");
    EXPECT_EQ(db_.scalar("SELECT sql FROM sqlite_temp_master WHERE name='_dictionary'"),
              "CREATE TABLE `_dictionary` ( `id` VARCHAR(0) NOT NULL COLLATE BINARY, `lang_id` "
              "INT NOT NULL, `str` VARCHAR(1023) NOT NULL COLLATE NOCASE, PRIMARY KEY (`id`, "
              "`lang_id`))");

    // Defaults and collations behave as declared.
    db_.exec("INSERT INTO account_default (home_volume_id) VALUES('vol1')");
    EXPECT_EQ(db_.rows("SELECT * FROM account_default"),
              std::vector<std::string>{"vol1|0|0|0|0|0|0|0|0|100"});
    db_.exec("INSERT INTO `$user` (id,uname,is_privileged) VALUES(100,'Alice',0)");
    EXPECT_EQ(db_.scalar("SELECT id FROM `$user` WHERE uname='ALICE'"), "100");
    db_.exec("INSERT INTO `$group` (id,gname,is_privileged) VALUES(100,'Staff',0)");
    EXPECT_EQ(db_.scalar("SELECT COUNT(*) FROM `$group` WHERE gname='staff'"), "0");
}

TEST_F(SchemaTest, PageSizeIsFixedWithAVacuumAfterTheCommit) {
    db_.exec("PRAGMA page_size=1024");
    db_.exec("CREATE TABLE keep (x INT)");
    ASSERT_EQ(db_.scalar("PRAGMA page_size"), "1024");
    ASSERT_EQ(ksdb_create(h(), db_), 0);
    EXPECT_EQ(db_.scalar("PRAGMA page_size"), "4096");
    std::string text = log();
    EXPECT_TRUE(
        std::regex_search(text, std::regex(R"(\(error\) DB \(main\) page size: 1024 ==> 4096\n)")))
        << text;
    EXPECT_EQ(text.find("failed!"), std::string::npos) << text;
}

TEST_F(SchemaTest, FailedPageSizeChangeIsLoggedAndDoesNotChangeTheResult) {
    db_.exec("PRAGMA page_size=1024");
    db_.exec("CREATE TABLE keep (x INT)");
    // Refuse every page_size change on this connection.
    sqlite3_set_authorizer(
        db_,
        [](void *, int action, const char *a, const char *b, const char *, const char *) {
            return action == SQLITE_PRAGMA && a && !std::strcmp(a, "page_size") && b ? SQLITE_DENY
                                                                                     : SQLITE_OK;
        },
        nullptr);
    EXPECT_EQ(ksdb_create(h(), db_), 0);
    sqlite3_set_authorizer(db_, nullptr, nullptr);
    EXPECT_EQ(db_.scalar("PRAGMA page_size"), "1024");
    EXPECT_EQ(db_.scalar("PRAGMA user_version"), "23");
    std::string text = log();
    EXPECT_NE(text.find("(error) Setting page_size failed!\n"), std::string::npos) << text;
    EXPECT_EQ(text.find("VACUUM"), std::string::npos) << text;
}

// ---- statements that touch the tables without an owning area ---------------

TEST_F(SchemaTest, StatementsOnDesignedTablesRun) {
    ASSERT_EQ(ksdb_create(h(), db_), 0);
    db_.exec(
        "INSERT INTO `$user` (id,uname,is_privileged,home,rid) VALUES"
        "(100,'alice',0,'/home/alice',NULL),(70001,'bob',0,'/home/bob',1105)");
    db_.exec("INSERT INTO `$group` (id,gname,is_privileged,rid) VALUES(70000,'dom',0,513)");
    db_.exec(
        "INSERT INTO `$home_folder` (user_id,snapshot_protection_enabled,quota,"
        "visible_snapdir,prev_versions) VALUES(100,1,500,0,1),(70001,0,NULL,1,NULL)");

    // The account import resets the domain-import progress.
    EXPECT_TRUE(
        run_statements(db_,
                       "DELETE FROM `_ads_importer`;INSERT INTO `_ads_importer` (state,total_group,"
                       "curr_group,total_user,curr_user,start_at,done_at) VALUES(0,0,0,0,0,0,0);"));
    EXPECT_EQ(db_.rows("SELECT * FROM `_ads_importer`"), std::vector<std::string>{"0|0|0|0|0|0|0"});

    // The home-folder settings export.
    EXPECT_EQ(db_.rows("SELECT U.home,H.quota,U.uname,H.snapshot_protection_enabled,"
                       "H.visible_snapdir,H.prev_versions FROM `$home_folder` H,`$user` U WHERE "
                       "H.user_id=U.id"),
              (std::vector<std::string>{"/home/alice|500|alice|1|0|1",
                                        "/home/bob|<NULL>|bob|0|1|<NULL>"}));

    // Leaving a domain removes the domain accounts and their rights.
    EXPECT_TRUE(run_statements(
        db_,
        "DELETE FROM `user_acl` WHERE EXISTS(SELECT 1 FROM `$user` U WHERE user_id=U.id AND "
        "U.rid IS NOT NULL);DELETE FROM `group_acl` WHERE EXISTS(SELECT 1 FROM `$group` G "
        "WHERE group_id=G.id AND G.rid IS NOT NULL);DELETE FROM `$group_has_user` WHERE "
        "EXISTS(SELECT 1 FROM `$user` U WHERE user_id=U.id AND U.rid IS NOT NULL);DELETE FROM "
        "`$group_has_user` WHERE EXISTS(SELECT 1 FROM `$group` G WHERE group_id=G.id AND G.rid "
        "IS NOT NULL);DELETE FROM `$home_folder` WHERE EXISTS(SELECT 1 FROM `$user` U WHERE "
        "user_id=U.id AND U.rid IS NOT NULL);DELETE FROM `$user` WHERE rid IS NOT NULL;DELETE "
        "FROM `$group` WHERE rid IS NOT NULL;"));
    EXPECT_EQ(db_.column("SELECT user_id FROM `$home_folder`"), std::vector<std::string>{"100"});

    // The share writer finds the USB device of a share.
    db_.exec("INSERT INTO usb_storage (name,devname) VALUES('disk1','sdb1')");
    db_.exec("INSERT INTO _volume (id,lv_name,blk_size) VALUES('USB','USB',1024)");
    EXPECT_TRUE(run_statements(
        db_, mprintf("INSERT OR IGNORE INTO share (zfs_name,volume_id,name,path,user_id,group_id) "
                     "VALUES('','*',%Q,'',0,0)",
                     "disk1")));
    EXPECT_TRUE(run_statements(
        db_,
        mprintf("UPDATE share SET zfs_name=%Q,type=%Q,visible_snapdir=%Q,volume_id=(SELECT V.id "
                "FROM _volume V WHERE %Q LIKE '/'||V.lv_name||'/%%'),usb_storage_id=(SELECT U.id "
                "FROM usb_storage U WHERE '/USB/'||U.name=%Q),comment=%Q,path=%Q,user_id=%d,"
                "group_id=%d,user_access=%d,group_access=%d,everyone_access=%d,"
                "non_owner_delete=%d WHERE name=%Q",
                "USB/disk1", "share", "", "/USB/disk1", "/USB/disk1", "usb", "/USB/disk1", 0, 0, 7,
                7, 7, 0, "disk1")));
    EXPECT_EQ(db_.rows("SELECT volume_id,usb_storage_id,path FROM share WHERE name='disk1'"),
              std::vector<std::string>{"USB|1|/USB/disk1"});

    // Per-share options of the FTP, HTTP and media protocols follow the
    // access model of the other protocols: keyed by share, with a default
    // access word where the protocol has access lists.
    EXPECT_TRUE(run_statements(
        db_,
        "INSERT OR IGNORE INTO ftp_share_option (share_id,ftp_access) VALUES(1,'readonly');"
        "INSERT OR IGNORE INTO http_share_option (share_id,http_access) "
        "VALUES(1,'disabled');"
        "INSERT OR IGNORE INTO dlna_share_option (share_id) VALUES(1);"
        "INSERT OR IGNORE INTO daap_share_option (share_id) VALUES(1);"));
    EXPECT_EQ(db_.rows("SELECT S.name,FTP.ftp_access,FTP.available,HTTP.http_access,"
                       "HTTP.available,DLNA.available,DAAP.available FROM share S INNER JOIN "
                       "ftp_share_option FTP ON FTP.share_id=S.id INNER JOIN http_share_option "
                       "HTTP ON HTTP.share_id=S.id INNER JOIN dlna_share_option DLNA ON "
                       "DLNA.share_id=S.id INNER JOIN daap_share_option DAAP ON "
                       "DAAP.share_id=S.id"),
              std::vector<std::string>{"disk1|readonly|1|disabled|1|1|1"});
    EXPECT_FALSE(run_statements(
        db_, "INSERT INTO ftp_share_option (share_id,ftp_access) VALUES(1,'writeable')"))
        << "one option row per share";

    // Spare disks refer to the disks seen.
    db_.exec("INSERT INTO `$disk_info` (id,serial) VALUES('WD-1','S1')");
    db_.exec("INSERT INTO `$volume_spares` (disk_info_id) VALUES('WD-1')");
    EXPECT_EQ(db_.column("SELECT D.serial FROM `$volume_spares` S INNER JOIN `$disk_info` D ON "
                         "D.id=S.disk_info_id"),
              std::vector<std::string>{"S1"});

    // Home-folder usage after a user import.
    EXPECT_TRUE(run_statements(db_,
                               "INSERT OR REPLACE INTO _hf_zfs_stat (user_id,used,usedbysnapshots) "
                               "VALUES(100,4096,0)"));
}

// ---- reruns and upgrades ----------------------------------------------------

TEST_F(SchemaTest, RerunAtVersion23KeepsStoredRowsAndEmptiesMirrorAndScratchTables) {
    ASSERT_EQ(ksdb_create(h(), db_), 0);
    db_.exec("INSERT INTO `$user` (id,uname,is_privileged) VALUES(100,'alice',0)");
    db_.exec("INSERT INTO `$snapshot` (zfs_name,name,type,created_on) VALUES('v/s','m_1',2,5)");
    db_.exec("INSERT INTO `$registry` VALUES(1,'one')");
    db_.exec(
        "INSERT INTO share (zfs_name,name,path,user_id,group_id) VALUES('v/s','s','/v/s',0,0)");
    db_.exec("INSERT INTO service_cifs (user_home_directory) VALUES(1)");
    db_.exec("INSERT INTO _volume (id,lv_name,blk_size) VALUES('v','v',1024)");
    db_.exec(
        "INSERT INTO ssh_public_key (type,key,fingerprint,Title) VALUES('ssh-rsa','k','f','t')");
    log_.text();

    ASSERT_EQ(ksdb_create(h(), db_), 0);
    EXPECT_EQ(db_.rows("SELECT id,uname FROM `$user`"), std::vector<std::string>{"100|alice"});
    EXPECT_EQ(db_.scalar("SELECT COUNT(*) FROM `$snapshot`"), "1");
    EXPECT_EQ(db_.scalar("SELECT value FROM `$registry`"), "one");
    for (const char *t : {"share", "service_cifs", "_volume", "ssh_public_key"})
        EXPECT_EQ(db_.scalar(std::string("SELECT COUNT(*) FROM `") + t + "`"), "0") << t;
    EXPECT_EQ(db_.scalar("PRAGMA user_version"), "23");
    std::string text = log();
    EXPECT_NE(text.find("(error) DB (main) schema version: 23 ==> 23\n"), std::string::npos)
        << text;
    EXPECT_EQ(text.find("DB upgrade"), std::string::npos) << text;
}

TEST_F(SchemaTest, NewerStoredVersionRunsNoUpgradeAndKeepsItsNumber) {
    db_.exec("PRAGMA user_version=30");
    ASSERT_EQ(ksdb_create(h(), db_), 0);
    EXPECT_EQ(db_.scalar("PRAGMA user_version"), "30");
    std::string text = log();
    EXPECT_NE(text.find("DB (main) schema version: 30 ==> 23\n"), std::string::npos) << text;
    EXPECT_EQ(text.find("DB upgrade"), std::string::npos) << text;
}

TEST_F(SchemaTest, UpgradeFrom21RebuildsAccountsWithNamesCaseSensitiveForGroupsOnly) {
    // Version 21: `$user` of version 11 with both flags added, `$group` as
    // version 18 left it.
    for (const char *s :
         {kUserV11, kUserAddLocked, kUserAddShell, kUserRid, kGroupV18, kGroupRid, kGroupHasUser})
        db_.exec(s);
    insert_accounts(db_);
    db_.exec("UPDATE `$user` SET is_locked=1 WHERE id=100");
    db_.exec("UPDATE `$user` SET shell_access=1 WHERE id IN (0,100)");
    db_.exec("PRAGMA user_version=21");
    const std::string users = "SELECT * FROM `$user` ORDER BY id";
    std::vector<std::string> before = db_.rows(users);
    ASSERT_EQ(before.size(), 3u);
    std::vector<std::string> groups = db_.rows("SELECT * FROM `$group` ORDER BY id");
    std::vector<std::string> members = db_.rows("SELECT * FROM `$group_has_user` ORDER BY 1");

    ASSERT_EQ(ksdb_create(h(), db_), 0);
    EXPECT_EQ(db_.scalar("PRAGMA user_version"), "23");
    EXPECT_EQ(db_.rows(users), before);
    EXPECT_EQ(db_.rows("SELECT * FROM `$group` ORDER BY id"), groups);
    EXPECT_EQ(db_.rows("SELECT * FROM `$group_has_user` ORDER BY 1"), members);
    EXPECT_EQ(db_.scalar("SELECT sql FROM sqlite_master WHERE name='$user'"), kUserSql);
    EXPECT_EQ(db_.scalar("SELECT sql FROM sqlite_master WHERE name='$group'"), kGroupSql);
    EXPECT_EQ(db_.rows("SELECT name,tbl_name FROM sqlite_master WHERE name LIKE '%rid' ORDER BY 1"),
              (std::vector<std::string>{"$group_rid|$group", "$user_rid|$user"}));
    EXPECT_EQ(db_.scalar("SELECT COUNT(*) FROM sqlite_master WHERE name LIKE '%_old'"), "0");
    EXPECT_EQ(db_.scalar("SELECT id FROM `$user` WHERE uname='alice'"), "100");
    EXPECT_EQ(db_.scalar("SELECT COUNT(*) FROM `$group` WHERE gname='staff'"), "0");

    std::string text = log();
    EXPECT_NE(text.find("(error) DB (main) schema version: 21 ==> 23\n"), std::string::npos)
        << text;
    EXPECT_EQ(text.find("DB upgrade to version 21\n"), std::string::npos) << text;
    size_t v22 = text.find("(info) DB upgrade to version 22\n");
    size_t v23 = text.find("(info) DB upgrade to version 23\n");
    ASSERT_NE(v22, std::string::npos) << text;
    ASSERT_NE(v23, std::string::npos) << text;
    EXPECT_LT(v22, v23);
    std::string sql = trace();
    EXPECT_EQ(count_of(sql, "sql=ALTER TABLE `$user` RENAME TO `user_old` \n"), 2);
    EXPECT_EQ(count_of(sql, "sql=ALTER TABLE `$group` RENAME TO `group_old` \n"), 1);
}

TEST_F(SchemaTest, UpgradeFrom16MovesThroughTheEmptyStep17ToTheGroupRebuild) {
    // Version 16: accounts of version 11 with `is_locked`, home folders of
    // version 15, home-folder snapshots already rebuilt.
    for (const char *s :
         {kUserV11, kUserAddLocked, kUserRid, kGroupV11, kGroupRid, kGroupHasUser, kHomeFolderV15})
        db_.exec(s);
    db_.exec(
        "CREATE TABLE `$home_folder_snapshot` ( `id` INTEGER NOT NULL, `user_name` "
        "VARCHAR(45) NOT NULL COLLATE NOCASE, `home_dir` VARCHAR(255) NOT NULL COLLATE "
        "NOCASE, `name` VARCHAR(45) NOT NULL COLLATE NOCASE, `type` INT NOT NULL, "
        "`created_on` INT NOT NULL, `used` BIGINT NULL, PRIMARY KEY (`id`))");
    insert_accounts(db_);
    db_.exec("INSERT INTO `$home_folder` VALUES(100,1,2048,1),(0,0,NULL,0)");
    db_.exec("PRAGMA user_version=16");
    std::vector<std::string> groups = db_.rows("SELECT * FROM `$group` ORDER BY id");

    ASSERT_EQ(ksdb_create(h(), db_), 0);
    EXPECT_EQ(db_.scalar("PRAGMA user_version"), "23");
    EXPECT_EQ(db_.rows("SELECT * FROM `$group` ORDER BY id"), groups);
    EXPECT_EQ(db_.scalar("SELECT sql FROM sqlite_master WHERE name='$group'"), kGroupSql);
    EXPECT_EQ(db_.scalar("SELECT sql FROM sqlite_master WHERE name='$user'"), kUserSql);
    EXPECT_EQ(db_.rows("SELECT id,uname,is_locked,shell_access FROM `$user` ORDER BY id"),
              (std::vector<std::string>{"0|root|0|0", "100|Alice|0|0", "70001|bob|0|0"}));
    EXPECT_EQ(db_.rows("SELECT * FROM `$home_folder` ORDER BY user_id"),
              (std::vector<std::string>{"0|0|<NULL>|0|<NULL>", "100|1|2048|1|<NULL>"}));

    std::string text = log();
    size_t at = 0;
    for (int n = 17; n <= 23; ++n) {
        size_t pos = text.find("(info) DB upgrade to version " + std::to_string(n) + "\n", at);
        ASSERT_NE(pos, std::string::npos) << n << "\n" << text;
        at = pos;
    }
    EXPECT_EQ(text.find("DB upgrade to version 16\n"), std::string::npos) << text;
    // Step 17 has no statement: its version write follows the last statement
    // of the creation list at once and is followed at once by the first
    // statement of step 18, the rebuild of `$group`.
    std::string sql = trace();
    std::vector<std::string> statements = traced_statements(sql);
    auto it = std::find(statements.begin(), statements.end(), "PRAGMA user_version=17");
    ASSERT_NE(it, statements.end()) << sql;
    ASSERT_NE(it, statements.begin());
    ASSERT_NE(it + 1, statements.end());
    EXPECT_EQ(it[-1].substr(0, 29), "CREATE TABLE `replisync_key` ");
    EXPECT_EQ(it[1], "ALTER TABLE `$group` RENAME TO `group_old` ");
    EXPECT_EQ(count_of(sql, "sql=ALTER TABLE `$group` RENAME TO `group_old` \n"), 2);
}

TEST_F(SchemaTest, UpgradeFrom13FailsAndRollsBackEverything) {
    // The stored tables of version 13 and a filled mirror table.
    db_.exec(
        "CREATE TABLE `$snapshot` ( `id` INTEGER NOT NULL, `zfs_name` VARCHAR(45) NOT NULL "
        "COLLATE NOCASE, `name` VARCHAR(45) NOT NULL COLLATE NOCASE, `type` INT NOT NULL, "
        "`created_on` INT NOT NULL, `used` BIGINT NULL, `exported_as_share` INT NULL, "
        "UNIQUE (`zfs_name` ASC, `name` ASC), PRIMARY KEY (`id`))");
    db_.exec(
        "CREATE TABLE `$registry` ( `key` INT NOT NULL, `value` VARCHAR(1023) NOT NULL "
        "DEFAULT '' COLLATE NOCASE, PRIMARY KEY (`key`))");
    for (const char *s :
         {kUserV11, kUserRid, kGroupV11, kGroupRid, kGroupHasUser, kIscsiLunGroupV13})
        db_.exec(s);
    insert_accounts(db_);
    db_.exec("INSERT INTO `$snapshot` (zfs_name,name,type,created_on) VALUES('v/s','m_1',2,5)");
    db_.exec("INSERT INTO `$registry` VALUES(7,'seven')");
    db_.exec("INSERT INTO `$iscsi_lun_group` VALUES('g','iqn.x',1,0,NULL)");
    db_.exec("CREATE TABLE share (id INTEGER PRIMARY KEY, name TEXT)");
    db_.exec("INSERT INTO share VALUES(1,'kept')");
    db_.exec("PRAGMA user_version=13");
    std::vector<std::string> before = snapshot_of(db_);

    EXPECT_EQ(ksdb_create(h(), db_), 3);
    EXPECT_EQ(snapshot_of(db_), before);
    EXPECT_EQ(db_.scalar("SELECT COUNT(*) FROM sqlite_temp_master"), "0");
    EXPECT_TRUE(mutex_free(h()->db_mutex)) << "the rollback releases the database lock";
    EXPECT_NE(sqlite3_get_autocommit(db_), 0);

    std::string text = log();
    EXPECT_NE(text.find("(info) DB upgrade to version 14\n"), std::string::npos) << text;
    EXPECT_EQ(text.find("DB upgrade to version 15\n"), std::string::npos) << text;
    EXPECT_TRUE(
        std::regex_search(text, std::regex(R"(\(error\) ksdb_create\(\) ==> 3 \(\d+ms\)\n)")))
        << text;
}

// ---- failure paths ---------------------------------------------------------

TEST_F(SchemaTest, FailedCreationStatementRollsBack) {
    ASSERT_EQ(ksdb_create(h(), db_), 0);
    db_.exec(
        "INSERT INTO share (zfs_name,name,path,user_id,group_id) VALUES('v/s','s','/v/s',0,0)");
    sqlite3 *ro = nullptr;
    ASSERT_EQ(sqlite3_open_v2((tmp_ / "config.db").c_str(), &ro, SQLITE_OPEN_READONLY, nullptr),
              SQLITE_OK);
    EXPECT_EQ(ksdb_create(h(), ro), 3);
    EXPECT_NE(sqlite3_get_autocommit(ro), 0);
    EXPECT_TRUE(mutex_free(h()->db_mutex));
    sqlite3_close(ro);
    EXPECT_EQ(db_.column("SELECT name FROM share"), std::vector<std::string>{"s"});
}

TEST_F(SchemaTest, FailedVersionWriteReturnsWithTheTransactionStillHeld) {
    // Refuse writes of user_version: the read works, the final write fails.
    sqlite3_set_authorizer(
        db_,
        [](void *, int action, const char *a, const char *b, const char *, const char *) {
            return action == SQLITE_PRAGMA && a && !std::strcmp(a, "user_version") && b
                       ? SQLITE_DENY
                       : SQLITE_OK;
        },
        nullptr);
    EXPECT_EQ(ksdb_create(h(), db_), 3);
    sqlite3_set_authorizer(db_, nullptr, nullptr);
    // No rollback: the transaction stays open and the calling thread keeps db_mutex.
    EXPECT_EQ(sqlite3_get_autocommit(db_), 0);
    EXPECT_FALSE(mutex_free(h()->db_mutex));
    EXPECT_EQ(db_.scalar("SELECT COUNT(*) FROM sqlite_master WHERE name='share'"), "1");
    EXPECT_EQ(ksdb_sql_rollback(h(), db_, nullptr, "test_schema", 1), SQLITE_OK);
    EXPECT_TRUE(mutex_free(h()->db_mutex));
    EXPECT_EQ(db_.scalar("SELECT COUNT(*) FROM sqlite_master"), "0");
}

TEST_F(SchemaTest, FailedVersionReadReturnsWithTheTransactionStillHeld) {
    sqlite3_set_authorizer(
        db_,
        [](void *, int action, const char *a, const char *, const char *, const char *) {
            return action == SQLITE_PRAGMA && a && !std::strcmp(a, "user_version") ? SQLITE_DENY
                                                                                   : SQLITE_OK;
        },
        nullptr);
    EXPECT_EQ(ksdb_create(h(), db_), 3);
    sqlite3_set_authorizer(db_, nullptr, nullptr);
    EXPECT_EQ(sqlite3_get_autocommit(db_), 0);
    EXPECT_FALSE(mutex_free(h()->db_mutex));
    std::string text = log();
    EXPECT_EQ(text.find("schema version"), std::string::npos) << text;
    EXPECT_NE(text.find("ksdb_create() ==> 3"), std::string::npos) << text;
    ksdb_sql_rollback(h(), db_, nullptr, "test_schema", 1);
}

// ---- log levels --------------------------------------------------------------

TEST_F(SchemaTest, VersionLinesNeedErrorLevelAndUpgradeLinesInfoLevel) {
    for (const char *s :
         {kUserV11, kUserAddLocked, kUserAddShell, kUserRid, kGroupV18, kGroupRid, kGroupHasUser})
        db_.exec(s);
    db_.exec("PRAGMA user_version=21");
    CaptureFile warn_log;
    Handle warn({warn_log.get(), 3, nullptr, root_.c_str()});
    ASSERT_EQ(ksdb_create(warn, db_), 0);
    std::string text = warn_log.text();
    EXPECT_NE(text.find("DB (main) schema version: 21 ==> 23\n"), std::string::npos) << text;
    EXPECT_EQ(text.find("DB upgrade"), std::string::npos) << text;
    EXPECT_EQ(text.find("ksdb_create()"), std::string::npos) << "success is logged at debug level";

    CaptureFile fatal_log;
    Handle fatal({fatal_log.get(), 1, nullptr, root_.c_str()});
    ASSERT_EQ(ksdb_create(fatal, db_), 0);
    EXPECT_EQ(fatal_log.text(), "");
}

// ---- ksdb_delete -------------------------------------------------------------

TEST_F(SchemaTest, DeleteEmptiesStoredAndMirrorTablesAndKeepsTheSchema) {
    ASSERT_EQ(ksdb_create(h(), db_), 0);
    insert_accounts(db_);
    db_.exec("INSERT INTO `$registry` VALUES(1,'one')");
    db_.exec(
        "INSERT INTO share (zfs_name,name,path,user_id,group_id) VALUES('v/s','s','/v/s',0,0)");
    db_.exec("INSERT INTO service_cifs (user_home_directory) VALUES(1)");
    db_.exec("INSERT INTO _volume (id,lv_name,blk_size) VALUES('v','v',1024)");
    std::vector<std::string> schema =
        db_.rows("SELECT type,name,tbl_name,sql FROM sqlite_master ORDER BY rowid");
    log_.text();

    ASSERT_EQ(ksdb_delete(h(), db_), 0);
    EXPECT_EQ(db_.rows("SELECT type,name,tbl_name,sql FROM sqlite_master ORDER BY rowid"), schema);
    EXPECT_EQ(db_.scalar("PRAGMA user_version"), "23");
    for (const std::string &t : catalogue_names(false))
        EXPECT_EQ(db_.scalar("SELECT COUNT(*) FROM `" + t + "`"), "0") << t;
    EXPECT_EQ(db_.scalar("SELECT COUNT(*) FROM _volume"), "1") << "scratch tables are left alone";
    EXPECT_TRUE(mutex_free(h()->db_mutex));
    std::string text = log();
    EXPECT_TRUE(
        std::regex_search(text, std::regex(R"(\(debug\) ksdb_delete\(\) ==> 0 \(\d+ms\)\n)")))
        << text;
}

TEST_F(SchemaTest, FailedDeleteIsLoggedAndRolledBack) {
    ASSERT_EQ(ksdb_create(h(), db_), 0);
    insert_accounts(db_);
    db_.exec("INSERT INTO service_cifs (user_home_directory) VALUES(1)");
    db_.exec(
        "CREATE TRIGGER keep_cifs BEFORE DELETE ON service_cifs BEGIN SELECT "
        "RAISE(ABORT,'kept'); END");
    log_.text();

    EXPECT_EQ(ksdb_delete(h(), db_), 3);
    // `$user` comes before service_cifs and was emptied before the failure.
    EXPECT_EQ(db_.scalar("SELECT COUNT(*) FROM `$user`"), "3");
    EXPECT_EQ(db_.scalar("SELECT COUNT(*) FROM service_cifs"), "1");
    EXPECT_TRUE(mutex_free(h()->db_mutex));
    EXPECT_NE(sqlite3_get_autocommit(db_), 0);
    std::string text = log();
    EXPECT_NE(text.find("(error) Error in SQL query (DELETE FROM service_cifs)\n"),
              std::string::npos)
        << text;
    EXPECT_TRUE(
        std::regex_search(text, std::regex(R"(\(error\) ksdb_delete\(\) ==> 3 \(\d+ms\)\n)")))
        << text;
}
