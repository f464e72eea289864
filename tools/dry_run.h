// An export into a scratch copy of the appliance's files: what `diff` shows
// and what `export --check` checks before anything is put in place.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "tools/session.h"

namespace ksdb_tool {

class DryRun {
  public:
    explicit DryRun(const Options &o) : o_(o) {}
    ~DryRun();
    DryRun(const DryRun &) = delete;
    DryRun &operator=(const DryRun &) = delete;

    // Copies what an export can write into a new scratch folder named after
    // `prefix`: the whole debug root, or on the live system the
    // configuration folders, the run-time share files and each volume of
    // `live` with its share settings.  0 or the exit status.
    int prepare(Session &live, const char *prefix);

    // Exports each category with `h` (whose debug root is the scratch
    // folder) on `db`, inside the caller's transaction.  0 or the exit
    // status, with the failing category named.
    int export_into(ksdb_handle *h, sqlite3 *db, const std::vector<int> &cats) const;

    // The files the export added, changed or removed, relative to the
    // roots, in order.
    std::vector<std::string> changes() const;

    const std::filesystem::path &scratch() const { return scratch_; }
    // Where the files live: the debug root, or "/".
    const std::filesystem::path &source() const { return source_; }

  private:
    const Options &o_;
    std::filesystem::path scratch_;
    std::filesystem::path source_;
    std::vector<std::string> roots_;
};

}  // namespace ksdb_tool
