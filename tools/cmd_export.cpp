// export: writes each category's files from the database.  With --check
// the export first runs into a scratch copy, the daemons' checkers read
// every file that would change, and the files are put in place only when
// all of them pass; the database is read once, in one transaction, so what
// is put in place is what was checked.
#include <filesystem>

#include "tools/checks.h"
#include "tools/commands.h"
#include "tools/dry_run.h"

namespace ksdb_tool {

namespace {

int exec(Session &s, const char *sql) {
    return ksdb_sql_exec(s.h(), s.db(), nullptr, KSDB_SITE("ksdb_tool"), sql);
}

// Inside the live transaction: the scratch export, undone in the database
// by a savepoint, then the checks.  0 when the files may be put in place.
int dry_run_and_check(const Options &o, Session &live, const std::vector<int> &cats) {
    DryRun run(o);
    if (int rc = run.prepare(live, "ksdb-check")) return rc;
    Session dry;
    if (int rc = dry.open_handle(o, run.scratch().string())) return rc;
    if (int rc = exec(live, "SAVEPOINT ksdb_check"))
        return fail(rc, "cannot set a savepoint");
    int rc = run.export_into(dry.h(), live.db(), cats);
    int undo = exec(live, "ROLLBACK TO ksdb_check");
    if (undo == 0) undo = exec(live, "RELEASE ksdb_check");
    if (rc != 0) return rc;
    if (undo != 0) return fail(undo, "cannot undo the scratch export");

    std::vector<std::string> files = run.changes();
    std::printf("check: %zu file%s would change\n", files.size(), files.size() == 1 ? "" : "s");
    CheckTotals t = check_files(run.scratch(), run.source(), files);
    if (t.failed > 0)
        return fail(KSDB_E_INVAL, "export refused: " + std::to_string(t.failed) + " file" +
                                      (t.failed == 1 ? "" : "s") +
                                      " failed the daemon's check; nothing was changed");
    std::printf("check: %d passed, %d not checked\n", t.passed, t.not_checked);
    return 0;
}

int export_checked(const Options &o, const std::vector<int> &cats) {
    Session live;
    if (int rc = live.open(o)) return rc;
    if (int rc = live.connect()) return rc;
    if (int rc = ksdb_sql_begin(live.h(), live.db(), nullptr, KSDB_SITE("ksdb_tool"))) {
        ksdb_sql_rollback(live.h(), live.db(), nullptr, KSDB_SITE("ksdb_tool"));
        return fail(rc, "cannot begin a transaction");
    }
    int rc = dry_run_and_check(o, live, cats);
    if (rc == 0) rc = run_categories(live, cats, true, true);
    if (rc != 0) {
        ksdb_sql_rollback(live.h(), live.db(), nullptr, KSDB_SITE("ksdb_tool"));
        return rc;
    }
    if (int c = ksdb_sql_commit(live.h(), live.db(), nullptr, KSDB_SITE("ksdb_tool"))) {
        // The commit has given the lock back; only the transaction is left.
        exec(live, "ROLLBACK");
        return fail(c, "cannot commit the export");
    }
    return 0;
}

}  // namespace

int cmd_export(const Options &o, std::vector<std::string> args) {
    const bool check = std::erase(args, std::string("--check")) > 0;
    std::vector<int> cats;
    if (int rc = parse_categories(args, &cats)) return rc;
    if (check) return export_checked(o, cats);
    Session s;
    if (int rc = s.open(o)) return rc;
    if (int rc = s.connect()) return rc;
    return run_categories(s, cats, true);
}

}  // namespace ksdb_tool
