// The case runner: expected files and given trees are data, kept in case
// folders, and one runner checks both laws on each:
//
//   export law   export(db.sql) leaves exactly the files of expect/
//   import law   import(given/ + expect/) gives the rows of `rows`
//
// A case folder tests/cases/<area>/<case>/ holds
//
//   case       "key: value" lines:
//                category: CIFS_SHARE      the category run (name or number)
//                laws: export import       the laws that apply (default: both)
//                export-status: 4          the export's expected status (default 0);
//                                          when not 0, no file below the root may change
//                import-status: 0          the import's expected status (default 0);
//                                          when not 0, the rows must be those of the seed
//                losses: ...               what the import does not bring back (free
//                                          text, may repeat; shown when the law fails)
//                log: text                 a line the export's or import's log must hold
//                                          (may repeat)
//                export-call: NAME         a call no category makes, run in place of the
//                import-call: NAME         category's export or import
//                                          (ksdb_account_export, ksdb_avahi_service_*)
//   given/     a tree put below the debug root before each law (a volume is
//              a folder holding ._share; empty folders hold a file ".keep",
//              which is not copied)
//   db.sql     statements run after ksdb_create on the export law's database
//   expect/    every file the export must leave, byte for byte, at its path
//              below the root ("expect/etc/exports" is ROOT/etc/exports);
//              "{fsid:VOLUME}" stands for the file-system id of ROOT/VOLUME
//   modes      optional: "<octal mode> <uid>:<gid> <live path>" per line,
//              checked after the export
//   calls      optional: the calls the export must make of the recording
//              fakes, in order, one per line, the program and its arguments
//              separated by tabs, "{root}" standing for the debug root
//   absent     optional: live paths, one per line, the export must not write
//              (the import law reads given/ and expect/ without them); the
//              laws run in the root, so "/pwned" is where an injected
//              "touch pwned" would leave its file
//   seed.sql   statements run after ksdb_create before the import
//   rows       the import's rows: a line "> QUERY" followed by the rows the
//              query must give, one per line, columns joined by "|", NULL as
//              <NULL>; lines starting with "#" are comments
#pragma once

#include "ksdb.h"

#include <sqlite3.h>

#include <string>
#include <vector>

namespace ksdb_test {

struct CaseSpec {
    std::string dir;    // the case folder
    std::string name;   // "<area>/<case>"
    int category = -1;
    bool export_law = true;
    bool import_law = true;
    int export_status = 0;
    int import_status = 0;
    std::vector<std::string> losses;
    std::vector<std::string> log_lines;
    std::string export_call, import_call;
};

// Every file below `dir` (not following links), as paths relative to it
// ("etc/exports").
std::vector<std::string> files_below(const std::string &dir);

// Copies every file below `from` to the same path below `to` (".keep" files
// only make their folders).
void copy_tree(const std::string &from, const std::string &to);

// Every case folder below `root` (sorted by name); a malformed "case" file
// is reported as a failure of that case.
std::vector<CaseSpec> find_cases(const std::string &root);

// Runs the export law of one case as the current test; failures are
// reported through GoogleTest.
void run_export_law(const CaseSpec &spec);

// Puts the state a law starts from in place: for the export law the given/
// tree below `root` and db.sql run on `db`; for the import law given/ and
// expect/ (file-system ids filled in) below `root`, the paths of `absent`
// removed, and seed.sql.  `db` has had ksdb_create.
void stage_case(const CaseSpec &spec, bool for_export, const std::string &root, sqlite3 *db);

// Runs the export or the import a case names: its export-call or
// import-call when it has one, else its category's.
int run_case_call(const CaseSpec &spec, bool exporting, ksdb_handle *h, sqlite3 *db);

// Registers the export and import law of every case below `root` as
// GoogleTest tests "Cases_<area>.<case>_export" and "..._import" (every
// character but letters and digits becomes "_").
void register_case_tests(const std::string &root);

}  // namespace ksdb_test
