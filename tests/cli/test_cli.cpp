// The ksdb command, run as a program: each command's success and main failure
// paths, diff, the checked export, and two processes on one database.
#include "tests/support/test_support.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <map>
#include <regex>
#include <thread>

using namespace ksdb_test;
namespace fs = std::filesystem;

namespace {

struct Outcome {
    int status;
    std::string out;
    std::string err;
};

class CliTest : public ::testing::Test {
  protected:
    // Runs the command with the arguments (each quoted for the shell).
    Outcome ksdb(const std::vector<std::string> &args, const std::string &env = "") {
        std::string cmd = env + "'" + std::string(KSDB_TOOL) + "'";
        for (const auto &a : args) cmd += " '" + replace_all(a, "'", "'\\''") + "'";
        const std::string out = dir_ / "stdout", err = dir_ / "stderr";
        cmd += " >'" + out + "' 2>'" + err + "' </dev/null";
        int st = std::system(cmd.c_str());
        return {WIFEXITED(st) ? WEXITSTATUS(st) : -1, read_file(out), read_file(err)};
    }
    // The same against this test's database and appliance tree.
    Outcome on_db(std::vector<std::string> args, const std::string &env = "") {
        args.insert(args.begin(), {"--db", db_, "--root", root_, "--log-level", "1"});
        return ksdb(args, env);
    }
    // The same against this test's database only, without a log.
    Outcome quiet(std::vector<std::string> args) {
        args.insert(args.begin(), {"--db", db_, "--log-level", "0"});
        return ksdb(args);
    }

    // A copy of the demo appliance below this test's folder.
    void demo_tree() {
        fs::copy(KSDB_DEMO_ROOT, root_, fs::copy_options::recursive);
        mkdirs(root_ + "/tmp");
        mkdirs(root_ + "/run/usb/samba");
    }

    // A text of tests/data/cli-texts without its last line end.
    std::string text(const std::string &name) {
        const std::string all = read_file(KSDB_TEST_DATA_DIR "/cli-texts");
        const size_t from = all.find("== " + name + "\n") + name.size() + 4;
        EXPECT_GT(from, name.size() + 3) << name;
        const size_t to = std::min(all.find("\n== ", from), all.size() - 1);
        return replace_all(all.substr(from, to - from), "{root}", root_);
    }

    // Every file below the root and the database, with its content.
    std::map<std::string, std::string> snapshot() {
        std::map<std::string, std::string> files = file_tree(root_);
        files[db_] = read_file(db_);
        return files;
    }

    TempDir dir_;
    std::string root_ = dir_ / "root";
    std::string db_ = dir_ / "ksdb.db";
};

}  // namespace

// Guards: the usage text, a category missing from the list or described wrongly,
// create's versions, log or trace lines lost, an unwritable log accepted, a
// failure's message or exit status.
TEST_F(CliTest, HelpCategoriesCreateLogTraceAndFailuresGiveOneLineAndTheLibraryStatus) {
    Outcome r = ksdb({"--help"});
    EXPECT_EQ(r.status, 0);
    for (const std::string &line : lines(text("help"))) EXPECT_TRUE(contains(r.out, line)) << line;
    r = ksdb({"categories"});  // all of them, with what they run
    EXPECT_EQ(r.status, 0);
    int count = 0;
    for (const auto &line : lines(r.out))
        if (std::regex_match(line, std::regex(R"(\s?\d+ [A-Z_]+)"))) ++count;
    EXPECT_EQ(count, 47);
    for (const char *category : {"category-21", "category-24", "category-16"})
        EXPECT_TRUE(contains(r.out, text(category) + "\n")) << category << "\n" << r.out;
    const std::string log = dir_ / "ksdb.log", trace = dir_ / "trace.log";
    Outcome first = ksdb({"--db", db_, "--log", log, "--trace", trace, "--log-level", "5", "create"});
    EXPECT_EQ(first.status, 0);
    EXPECT_EQ(first.out, "schema version: new -> 23\n");
    EXPECT_TRUE(contains(read_file(log), "ksdb_create() ==> 0"));
    EXPECT_TRUE(contains(read_file(trace), "sql=PRAGMA user_version"));
    EXPECT_EQ(ksdb({"--db", db_, "--log-level", "1", "create"}).out, "schema version: 23 -> 23\n");

    // The failures written in tests/data/cli-failures (the file says how): heading, message.
    std::vector<std::pair<std::string, std::string>> failures;
    const std::string data = read_file(KSDB_TEST_DATA_DIR "/cli-failures");
    for (const std::string &line : lines(replace_all(replace_all(data, "{db}", db_), "{dir}", dir_.path()))) {
        if (line.rfind("== ", 0) == 0)
            failures.push_back({line.substr(3), ""});
        else if (line[0] != '#')
            failures.back().second += line + "\n";
    }
    ASSERT_EQ(failures.size(), 11u);
    for (const auto &[heading, err] : failures) {
        std::vector<std::string> args = split(heading, '|');
        const int status = std::stoi(args[0]);
        args.erase(args.begin());
        Outcome o = ksdb(args);
        EXPECT_EQ(o.status, status) << heading << ": " << o.err;
        if (err.rfind('~', 0) == 0) {
            EXPECT_TRUE(contains(o.err, err.substr(1, err.size() - 2))) << o.err;
        } else if (!err.empty()) {
            EXPECT_EQ(o.err, err);
        }
    }
}

// Guards: categories by number or name, the report of each file; a dry run
// changing a file or the database, or showing another change.
TEST_F(CliTest, ImportExportAndTheDiffThatChangesNothingButShowsWhatTheExportThenChanges) {
    demo_tree();
    ASSERT_EQ(on_db({"create"}).status, 0);
    Outcome import = on_db({"import", "all"});
    EXPECT_EQ(import.status, 0) << import.err;
    EXPECT_TRUE(std::regex_match(import.out, std::regex(R"(import ALL: ok \(\d+ ms\)\n)"))) << import.out;
    // By number and by name in any case; the first export writes new files.
    Outcome exported = on_db({"export", "21", "cifs_service"});
    EXPECT_EQ(exported.status, 0) << exported.err;
    EXPECT_TRUE(std::regex_search(exported.out, std::regex(R"(^export CIFS_SHARE: ok \(\d+ ms\)\n)")))
        << exported.out;
    // The demo's Shares.conf already holds this content: only owner and mode are set.
    EXPECT_TRUE(contains(exported.out, "  fixed     " + root_ + "/etc/quillfold/samba/Shares.conf\n"))
        << exported.out;
    EXPECT_TRUE(contains(exported.out, "  new       " + root_ + "/run/usb/samba/Shares.conf\n"))
        << exported.out;
    EXPECT_TRUE(contains(exported.out, "export CIFS_SERVICE: ok"));
    EXPECT_TRUE(contains(exported.out, root_ + "/etc/samba/smb.conf\n"));

    ASSERT_EQ(on_db({"sql", "UPDATE cifs_share_option SET cifs_access='readonly' WHERE "
                            "share_id=(SELECT id FROM share WHERE name='public')"}).status, 0);

    auto before = snapshot();
    Outcome diff = on_db({"diff", "CIFS_SHARE"});
    EXPECT_EQ(diff.status, 0) << diff.err;
    EXPECT_EQ(snapshot(), before) << "the dry run touched a file or the database";

    EXPECT_TRUE(contains(diff.out, text("diff-hunk") + "\n")) << diff.out;
    EXPECT_TRUE(contains(diff.out, "--- a/data/._share/public/samba.conf\n"));
    EXPECT_TRUE(diff.out.ends_with("\n2 files would change\n")) << diff.out;

    // The export then makes exactly that change.
    std::string shares = read_file(root_ + "/etc/quillfold/samba/Shares.conf");
    ASSERT_EQ(on_db({"export", "CIFS_SHARE"}).status, 0);
    EXPECT_EQ(read_file(root_ + "/etc/quillfold/samba/Shares.conf"),
              replace_all(shares, "  writeable = 1\n", "  write list = \"+admin\",\"Administrator\"\n"));
    EXPECT_EQ(on_db({"diff", "CIFS_SHARE"}).out, "0 files would change\n");

    // A failing export in the dry run gives its status and still changes nothing.
    before = snapshot();
    Outcome bad = on_db({"diff", "HOTPLUG_USB"});
    EXPECT_EQ(bad.status, 4);
    EXPECT_TRUE(contains(bad.err, "export HOTPLUG_USB failed")) << bad.err;
    EXPECT_EQ(snapshot(), before);
}

// Guards: a checked export writing what Samba's checker (with the app's include) rejects.
TEST_F(CliTest, CheckedExportRefusesWhatTheCheckerRejectsAndChangesNothing) {
    if (!have_program("testparm")) GTEST_SKIP() << "testparm is not installed (scripts/setup-deps)";
    demo_tree();
    ASSERT_EQ(on_db({"create"}).status, 0);
    ASSERT_EQ(on_db({"import", "ALL"}).status, 0);
    ASSERT_EQ(on_db({"sql", "INSERT INTO `$application_on_share` (zfs_name,app_name) "
                            "VALUES('data/docs','media')"}).status, 0);
    mkdirs(root_ + "/apps/media/etc");
    write_file(root_ + "/apps/media/etc/samba.include", "  no such parameter = 1\n");

    const auto before = snapshot();
    Outcome refused = on_db({"export", "--check", "CIFS_SHARE"});
    EXPECT_EQ(refused.status, 4);
    EXPECT_EQ(refused.out, text("check-refused") + "\n");
    EXPECT_EQ(refused.err, "ksdb: export refused: 1 file failed the daemon's check; nothing was "
                           "changed (status 4: invalid argument or unhandled category)\n");
    EXPECT_EQ(snapshot(), before) << "a refused export changed a file or the database";

    // A good include passes, and then the files are put in place.
    write_file(root_ + "/apps/media/etc/samba.include", "  veto files = /*.tmp/\n");
    Outcome passed = on_db({"export", "--check", "CIFS_SHARE"});
    EXPECT_EQ(passed.status, 0) << passed.out << passed.err;
    EXPECT_TRUE(contains(passed.out, text("check-passed"))) << passed.out;
    EXPECT_TRUE(contains(read_file(root_ + "/etc/quillfold/samba/Shares.conf"),
                         text("share-with-include") + "\n"));

    // Without the checker the file is reported as not checked and written.
    ASSERT_EQ(on_db({"sql", "UPDATE cifs_share_option SET cifs_access='readonly'"}).status, 0);
    Outcome unchecked = on_db({"export", "--check", "CIFS_SHARE"}, "PATH=/nonexistent ");
    EXPECT_EQ(unchecked.status, 0) << unchecked.err;
    EXPECT_TRUE(contains(unchecked.out, "  not checked  " + root_ +
                                            "/etc/quillfold/samba/Shares.conf "
                                            "(testparm is not installed)\n"))
        << unchecked.out;
    EXPECT_FALSE(contains(read_file(root_ + "/etc/quillfold/samba/Shares.conf"), "writeable = 1"));
}

// Guards: a reader and a writer process waiting for each other (not WAL).
TEST_F(CliTest, AReaderAndAWriterDoNotWaitForEachOther) {
    ASSERT_EQ(quiet({"create"}).status, 0);

    const std::string trace = dir_ / "reader.trace";
    const std::string endless = "WITH RECURSIVE n(x) AS (SELECT 1 UNION ALL SELECT x+1 FROM n) "
                                "SELECT count(*) FROM n, sqlite_master";
    // The reader runs in the background, a minute at most (timeout passes a TERM on).
    const std::string pid_file = dir_ / "reader.pid";
    const std::string cmd = "timeout 60 '" KSDB_TOOL "' --db '" + db_ + "' --log-level 4 --trace '" + trace +
                            "' sql '" + endless + "' >/dev/null 2>&1 & echo $! >'" + pid_file + "'";
    ASSERT_EQ(std::system(cmd.c_str()), 0);
    const pid_t reader = std::stoi(read_file(pid_file));
    // The trace names the statement just before it runs.
    for (int i = 0; i < 200 && read_file(trace).find("sql=WITH RECURSIVE") == std::string::npos; ++i)
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
    std::this_thread::sleep_for(std::chrono::milliseconds(200));

    auto t0 = std::chrono::steady_clock::now();
    quiet({"sql", "CREATE TABLE meanwhile (x)"});  // the read below shows it done
    Outcome read = quiet({"sql", "SELECT count(*) AS n FROM meanwhile"});
    auto elapsed = std::chrono::steady_clock::now() - t0;
    EXPECT_EQ(kill(reader, 0), 0) << "the reader stopped early";
    kill(reader, SIGTERM);

    EXPECT_EQ(read.out, "n\n-\n0\n(1 row)\n") << read.err;
    EXPECT_LT(elapsed, std::chrono::seconds(3));
}

// Guards: queue tables in the configuration database; the queue file options; the
// queue commands' output and statuses.
TEST_F(CliTest, TheQueueKeepsItsOwnDatabaseAndItsCommands) {
    ASSERT_EQ(quiet({"create"}).status, 0);
    ASSERT_EQ(quiet({"queue", "create"}).status, 0);
    EXPECT_TRUE(exists(dir_ / "queue.db"));
    // The configuration database keeps its schema and works on.
    EXPECT_EQ(quiet({"sql", "PRAGMA user_version"}).out, "user_version\n------------\n23\n(1 row)\n");
    Outcome import = ksdb({"--db", db_, "--log-level", "1", "import", "VOLUME"});
    EXPECT_EQ(import.status, 0) << import.err;
    EXPECT_EQ(quiet({"sql", "SELECT count(*) AS n FROM sqlite_master WHERE name IN ('queue','config')"}).out,
              "n\n-\n0\n(1 row)\n");

    // --queue-db and $KSDB_QUEUE_DB name another file.
    const std::string other = dir_ / "other-queue.db";
    ASSERT_EQ(ksdb({"--queue-db", other, "--log-level", "0", "queue", "create"}).status, 0);
    ASSERT_EQ(ksdb({"--queue-db", other, "--log-level", "0", "queue", "push", "hello"}).status, 0);
    EXPECT_EQ(ksdb({"--log-level", "0", "queue", "stat"}, "KSDB_QUEUE_DB='" + other + "' ").out, "1\n");
    EXPECT_EQ(quiet({"queue", "stat"}).out, "0\n");

    EXPECT_EQ(quiet({"queue", "push", "--src", "ui", "--dst", "daemon", "--pri", "5", "hello"}).status, 0);
    EXPECT_EQ(quiet({"queue", "push", "--src", "ui", "--dst", "daemon", "--at", "+3600", "later"}).status, 0);
    EXPECT_EQ(quiet({"queue", "push", "--src", "cron", "--at", "2000-01-01 00:00:00", "o"}).status, 0);
    EXPECT_EQ(quiet({"queue", "stat"}).out, "2\n");  // the message of the future is not counted yet
    EXPECT_EQ(quiet({"queue", "stat", "--src", "ui"}).out, "1\n");

    Outcome read = quiet({"queue", "read", "--dst", "daemon"});
    EXPECT_TRUE(std::regex_match(read.out, std::regex("id:  \\d+\nsrc: ui\ndst: daemon\nts:  \\d+\n"
                                                      "val: hello\n")))
        << read.out;
    Outcome pop = quiet({"queue", "pop"});
    EXPECT_TRUE(std::regex_match(pop.out, std::regex("src: ui\ndst: daemon\nts:  \\d+\nval: hello\n")))
        << pop.out;
    EXPECT_EQ(quiet({"queue", "pop", "--src", "ui"}).out, "(no message)\n");

    Outcome old = quiet({"queue", "read"});
    std::smatch m;
    ASSERT_TRUE(std::regex_search(old.out, m, std::regex("id:  (\\d+)"))) << old.out;
    EXPECT_EQ(quiet({"queue", "remove", m[1]}).status, 0);
    EXPECT_EQ(quiet({"queue", "stat"}).out, "0\n");
    EXPECT_EQ(quiet({"queue", "clear"}).status, 0);
    EXPECT_EQ(quiet({"queue", "push", "--at", "yesterday", "x"}).status, 4);
    EXPECT_EQ(quiet({"queue", "frob"}).status, 4);
}

// Guards: the table and JSON forms of a result.
TEST_F(CliTest, SqlPrintsAnAlignedTableOrJsonLines) {
    ASSERT_EQ(quiet({"create"}).status, 0);
    Outcome table = ksdb({"--db", db_, "sql",
                      "SELECT 'a' AS name, 12345 AS n UNION ALL SELECT 'longer name', NULL"});
    EXPECT_EQ(table.status, 0);
    EXPECT_EQ(table.out, text("sql-table") + "\n");
    Outcome json = quiet({"sql", "--json", "SELECT 'say \"hi\"' AS text, NULL AS empty"});
    EXPECT_EQ(json.out, "{\"text\":\"say \\\"hi\\\"\",\"empty\":null}\n");
    // Scratch tables of the connection are there to query.
    EXPECT_EQ(quiet({"sql", "SELECT COUNT(*) AS n FROM _volume WHERE id='media'"}).out,
              "n\n-\n1\n(1 row)\n");
}

// Guards: the demo failing, writing to standard error or exporting unchecked.
TEST_F(CliTest, DemoRunsTheWholeStory) {
    Outcome demo = ksdb({"demo", dir_ / "demo"});
    EXPECT_EQ(demo.status, 0) << demo.out << demo.err;
    EXPECT_EQ(demo.err, "");
    EXPECT_TRUE(contains(demo.out, "2 files would change")) << demo.out;
    EXPECT_TRUE(contains(demo.out, "check: 3 files would change\n")) << demo.out;
    EXPECT_TRUE(contains(read_file(dir_ / "demo/root/etc/quillfold/samba/Shares.conf"),
                         "  write list = \"+admin\",\"Administrator\"\n"));
    EXPECT_TRUE(exists(dir_ / "demo/ksdb.db"));
}
