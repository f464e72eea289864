#include "tools/dry_run.h"

#include <set>

#include "tools/files.h"

namespace fs = std::filesystem;

namespace ksdb_tool {

namespace {

// The live-system folders an export can write: the configuration folders,
// the run-time share files and each volume's share-settings folder.
std::vector<std::string> live_roots(Session &s) {
    std::vector<std::string> roots = {"/etc", "/run/usb", "/opt/replication/etc"};
    char **table = nullptr;
    int nrow = 0, ncol = 0;
    if (ksdb_sql_get_table(s.h(), s.db(), nullptr, KSDB_SITE("ksdb_tool"), &table, &nrow, &ncol,
                           "SELECT lv_name FROM _volume WHERE lv_name<>'media'") == 0) {
        for (int r = 1; r <= nrow; ++r)
            if (table[r * ncol]) {
                roots.push_back(std::string("/") + table[r * ncol] + "/._share");
                roots.push_back(std::string("/") + table[r * ncol] + "/.volume_schedule.conf");
            }
    }
    sqlite3_free_table(table);
    return roots;
}

}  // namespace

DryRun::~DryRun() {
    std::error_code ec;
    if (!scratch_.empty()) fs::remove_all(scratch_, ec);
}

int DryRun::prepare(Session &live, const char *prefix) {
    std::string folder = make_scratch_folder(prefix);
    if (folder.empty()) return KSDB_E_FILE;
    scratch_ = folder;
    source_ = o_.root.empty() ? fs::path("/") : fs::path(o_.root);
    if (o_.root.empty()) {
        roots_ = live_roots(live);
        for (const auto &r : roots_) copy_tree(r, scratch_ / r.substr(1));
    } else {
        copy_tree(source_, scratch_);
        roots_ = {"/"};
    }
    std::error_code ec;
    fs::create_directories(scratch_ / "tmp", ec);
    return 0;
}

int DryRun::export_into(ksdb_handle *h, sqlite3 *db, const std::vector<int> &cats) const {
    for (int cat : cats) {
        int rc = ksdb_export_nolock(h, db, cat);
        if (rc != 0) return fail(rc, std::string("export ") + ksdb_cat2str(cat) + " failed");
    }
    return 0;
}

std::vector<std::string> DryRun::changes() const {
    std::set<std::string> files;
    for (const auto &r : roots_) {
        fs::path rel = r == "/" ? fs::path() : fs::path(r.substr(1));
        for (const auto &f : files_below(scratch_ / rel)) files.insert((rel / f).string());
        if (!o_.root.empty() || fs::is_directory(r))
            for (const auto &f : files_below(source_ / rel)) files.insert((rel / f).string());
        else if (fs::exists(scratch_ / rel) || fs::exists(source_ / rel))
            files.insert(rel.string());
    }
    std::vector<std::string> out;
    for (const auto &f : files) {
        // The library's temporary files and logs are no part of the result.
        // The writer keeps each replaced file as <name>.bak: a backup, not
        // something the export made.
        if (f.rfind("tmp/", 0) == 0 || f.rfind("var/log/", 0) == 0 || f.ends_with(".bak"))
            continue;
        if (same_content(source_ / f, scratch_ / f)) continue;
        out.push_back(f);
    }
    return out;
}

}  // namespace ksdb_tool
