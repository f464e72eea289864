// diff: exports into a scratch copy inside a transaction that is rolled
// back, and shows a unified diff of every file that would change.
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>

#include "tools/commands.h"
#include "tools/dry_run.h"

namespace fs = std::filesystem;

namespace ksdb_tool {

namespace {

// Prints a unified diff of two files (either may be missing) with the
// system's diff; returns true when they differ.
bool print_diff(const std::string &label, const fs::path &old_file, const fs::path &new_file) {
    std::string old_arg = fs::exists(old_file) ? old_file.string() : "/dev/null";
    std::string new_arg = fs::exists(new_file) ? new_file.string() : "/dev/null";
    std::fflush(stdout);
    pid_t pid = fork();
    if (pid == 0) {
        std::string a = "a" + label, b = "b" + label;
        execlp("diff", "diff", "-u", "--label", a.c_str(), "--label", b.c_str(), old_arg.c_str(),
               new_arg.c_str(), static_cast<char *>(nullptr));
        _exit(127);
    }
    int status = 0;
    waitpid(pid, &status, 0);
    return WIFEXITED(status) && WEXITSTATUS(status) == 1;
}

}  // namespace

int cmd_diff(const Options &o, const std::vector<std::string> &args) {
    std::vector<int> cats;
    if (int rc = parse_categories(args, &cats)) return rc;

    // The volume list and the database come from the real session; the
    // export itself runs with a handle whose debug root is the scratch copy.
    Session live;
    if (int rc = live.open(o)) return rc;
    if (int rc = live.connect()) return rc;
    DryRun run(o);
    if (int rc = run.prepare(live, "ksdb-diff")) return rc;

    Session dry;
    int rc = dry.open_handle(o, run.scratch().string());
    if (rc != 0) return rc;
    // The scratch handle shares the live connection, inside one transaction
    // that is rolled back: nothing in the database changes.
    ksdb_handle *h = dry.h();
    sqlite3 *db = live.db();
    rc = ksdb_sql_begin(h, db, nullptr, KSDB_SITE("ksdb_tool"));
    if (rc == 0) rc = run.export_into(h, db, cats);
    ksdb_sql_rollback(h, db, nullptr, KSDB_SITE("ksdb_tool"));
    if (rc != 0) return exit_status(rc);

    int changed = 0;
    for (const auto &f : run.changes())
        if (print_diff("/" + f, run.source() / f, run.scratch() / f)) ++changed;
    std::printf("%d file%s would change\n", changed, changed == 1 ? "" : "s");
    return 0;
}

}  // namespace ksdb_tool
