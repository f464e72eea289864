// demo: a small appliance tree (embedded from examples/demo-root) in a new
// folder, taken through the whole story: create, import, a change made as
// the management daemon makes it, diff, and an export checked by the
// daemons' own checkers.
#include <stdlib.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstring>
#include <filesystem>

#include "tools/commands.h"
#include "tools/demo_files.h"
#include "tools/files.h"

namespace fs = std::filesystem;

namespace ksdb_tool {

namespace {

void banner(const char *text) { std::printf("\n== %s\n", text); }

int write_demo_tree(const fs::path &root) {
    for (size_t i = 0; i < ksdb_demo::kFileCount; ++i) {
        const ksdb_demo::File &f = ksdb_demo::kFiles[i];
        fs::path p = root / f.path;
        std::error_code ec;
        fs::create_directories(p.parent_path(), ec);
        FILE *out = std::fopen(p.c_str(), "wb");
        if (!out)
            return fail(KSDB_E_FILE, "cannot write " + p.string() + ": " + std::strerror(errno));
        std::fwrite(f.data, 1, f.size, out);
        std::fclose(out);
        chmod(p.c_str(), f.mode);
    }
    for (const char *dir : {"tmp", "run/usb/samba", "var/log/kestravad"}) {
        std::error_code ec;
        fs::create_directories(root / dir, ec);
    }
    return 0;
}

// Runs `work` on a connection of its own inside one transaction, as the
// management daemon does.
template <class Work>
int in_transaction(const Options &o, const char *what, Work &&work) {
    Session s;
    if (int rc = s.open(o)) return rc;
    if (int rc = s.connect()) return rc;
    int rc = ksdb_sql_begin(s.h(), s.db(), nullptr, KSDB_SITE("ksdb_demo"));
    if (rc == 0) rc = work(s.h(), s.db());
    if (rc == 0) {
        rc = ksdb_sql_commit(s.h(), s.db(), nullptr, KSDB_SITE("ksdb_demo"));
    } else {
        ksdb_sql_rollback(s.h(), s.db(), nullptr, KSDB_SITE("ksdb_demo"));
    }
    if (rc != 0) return fail(rc, std::string(what) + " failed");
    return 0;
}

// Runs one statement through the SQL layer, as the management daemon
// changes settings.
int demo_statement(const Options &o, const std::string &sql) {
    return in_transaction(o, ("statement " + sql).c_str(), [&](ksdb_handle *h, sqlite3 *db) {
        return ksdb_sql_exec(h, db, nullptr, KSDB_SITE("ksdb_demo"), sql.c_str());
    });
}

}  // namespace

int cmd_demo(const Options &given, std::vector<std::string> args) {
    const bool check = std::erase(args, std::string("--no-check")) == 0;
    if (args.size() > 1) return usage_error("demo: at most one DIR");
    fs::path dir;
    if (args.size() == 1) {
        dir = args[0];
        std::error_code ec;
        fs::create_directories(dir, ec);
        if (!fs::is_directory(dir)) return fail(KSDB_E_FILE, "cannot make " + dir.string());
    } else {
        std::string made = make_scratch_folder("ksdb-demo");
        if (made.empty()) return KSDB_E_FILE;
        dir = made;
    }
    dir = fs::absolute(dir);
    Options o = given;
    o.root = (dir / "root").string();
    o.db = (dir / "ksdb.db").string();
    o.queue_db.clear();
    // The demo's own output tells the story; the library log shows only
    // fatal lines unless a level was asked for.
    if (!given.log_level_given) o.log_level = KSDB_LOG_FATAL;

    banner("copying the demo appliance");
    if (int rc = write_demo_tree(o.root)) return rc;
    std::printf("appliance tree: %s\n", o.root.c_str());

    banner("creating the database");
    if (int rc = cmd_create(o)) return rc;

    banner("importing the appliance (ALL)");
    if (int rc = cmd_import(o, {"ALL"})) return rc;
    if (int rc = cmd_sql(o, {"SELECT S.name,S.path,C.cifs_access FROM share S "
                             "INNER JOIN cifs_share_option C ON C.share_id=S.id ORDER BY S.name"}))
        return rc;
    // No category reads the service announcements: the management daemon
    // calls their reader itself.
    if (int rc = in_transaction(o, "reading the service announcements", ksdb_avahi_service_import))
        return rc;

    banner("making share 'public' read-only, as the management daemon would");
    if (int rc = demo_statement(o, "UPDATE cifs_share_option SET cifs_access='readonly' "
                                   "WHERE share_id=(SELECT id FROM share WHERE name='public')"))
        return rc;

    banner("what exporting CIFS_SHARE would change");
    if (int rc = cmd_diff(o, {"CIFS_SHARE"})) return rc;

    const std::string checked = check ? ", checked by the daemons' checkers" : "";
    banner(("exporting CIFS_SHARE and CIFS_SERVICE" + checked).c_str());
    if (int rc = cmd_export(o, check ? std::vector<std::string>{"--check", "CIFS_SHARE",
                                                                "CIFS_SERVICE"}
                                     : std::vector<std::string>{"CIFS_SHARE", "CIFS_SERVICE"}))
        return rc;

    banner(("exporting the rest of the appliance (ALL)" + checked).c_str());
    if (int rc = cmd_export(o, check ? std::vector<std::string>{"--check", "ALL"}
                                     : std::vector<std::string>{"ALL"}))
        return rc;

    banner("writing the service announcements");
    if (int rc = in_transaction(o, "writing the service announcements", ksdb_avahi_service_export))
        return rc;
    std::printf("announcements:       %s/etc/avahi/services\n", o.root.c_str());

    banner("done");
    std::printf("database:            %s\n", o.db.c_str());
    std::printf("appliance tree:      %s\n", o.root.c_str());
    std::printf("samba share file:    %s/etc/quillfold/samba/Shares.conf\n", o.root.c_str());
    std::printf("samba configuration: %s/etc/samba/smb.conf\n", o.root.c_str());
    const char *const kFiles[][2] = {
        {"nfs exports:", "/etc/exports"},
        {"afp share file:", "/etc/quillfold/netatalk/Shares.conf"},
        {"rsync module file:", "/etc/quillfold/rsync/Shares.conf"},
        {"rsync secrets:", "/etc/quillfold/rsync/secrets"},
        {"accounts:", "/etc/passwd, /etc/shadow, /etc/group, /etc/gshadow"},
        {"ssh keys:", "/etc/quillfold/ssh_authorized_keys.conf"},
        {"services:", "/etc/ssh/sshd_config, /etc/snmp/snmpd.conf, /etc/clamav/clamd.conf"},
        {"backup jobs:", "/etc/quillfold/backup_jobs.conf, /etc/cron.d/quillfold-backup"},
        {"replication jobs:", "/etc/replisync/replisync.conf"},
    };
    for (const auto &f : kFiles) {
        std::string paths;
        std::string rest = f[1];
        for (size_t at; !rest.empty(); rest = at == std::string::npos ? "" : rest.substr(at + 2)) {
            at = rest.find(", ");
            if (!paths.empty()) paths += ", ";
            paths += o.root + rest.substr(0, at);
        }
        std::printf("%-20s %s\n", f[0], paths.c_str());
    }
    std::printf("try:  ksdb --db %s --root %s sql \"SELECT * FROM share\"\n", o.db.c_str(),
                o.root.c_str());
    return 0;
}

}  // namespace ksdb_tool
