// Exports killed at random moments.  A child exports a case's state again
// and again, changing a few values between exports so that every run
// replaces files, and is killed after a random delay; the root is a tmpfs
// of its own and its /tmp another, so the targets and the machine's
// temporary folder are on different file systems.  After every kill each
// file the export writes holds one of its two versions whole; the next
// export leaves no temporary file anywhere below the root.
#include "tests/support/case_runner.h"
#include "tests/support/test_support.h"

#include <unistd.h>

#include <chrono>
#include <map>
#include <random>
#include <set>

using namespace ksdb_test;

namespace {

// One line per export: the case folder whose state is run, a blank, and SQL
// flipping some of its values between two states.
const std::vector<std::string> kCases = lines(read_file(KSDB_TEST_DATA_DIR "/kill-toggles"));

class CrashSafetyTest : public RootTest, public ::testing::WithParamInterface<std::string> {};

// Guards: a target empty, partial or missing after a kill at any moment of
// an export; temporary files left behind by a killed export.
TEST_P(CrashSafetyTest, KillAtAnyMomentLeavesEveryFileWholeAndTheNextExportSweeps) {
    const std::string folder = GetParam().substr(0, GetParam().find(' '));
    ScopedTmpfs files(root(), 64 << 20);
    if (!files.ok()) GTEST_SKIP() << files.why();
    ScopedTmpfs tmp(at("/tmp"), 8 << 20);
    ASSERT_TRUE(tmp.ok()) << tmp.why();
    CaseSpec spec;
    for (const CaseSpec &c : find_cases(KSDB_CASES_DIR))
        if (c.dir == KSDB_CASES_DIR "/" + folder) spec = c;
    ASSERT_FALSE(spec.dir.empty()) << folder;
    ASSERT_EQ(ksdb_create(h(), db()), 0) << log();
    stage_case(spec, true, root(), db());

    // One step from one state to the other, whenever the child is killed.
    const std::string toggle = "BEGIN;" + GetParam().substr(folder.size() + 1) + ";COMMIT";
    // The two versions of every file the export writes, and how long an
    // export and a toggle take: the kills fall anywhere in the first three.
    std::map<std::string, std::set<std::string>> versions;
    auto took = std::chrono::microseconds(0);
    for (int i = 0; i < 2; ++i) {
        const auto t0 = std::chrono::steady_clock::now();
        ASSERT_EQ(run_case_call(spec, true, h(), db()), 0) << log();
        for (const std::string &rel : files_below(root()))
            if (rel.find(".bak") == std::string::npos) versions[rel].insert(read_file(at("/" + rel)));
        sql().exec(toggle);
        took = std::chrono::duration_cast<std::chrono::microseconds>(std::chrono::steady_clock::now() - t0);
    }
    size_t changing = 0;
    for (const auto &[rel, texts] : versions) changing += texts.size() == 2;
    ASSERT_GE(changing, 2u) << "the toggle changes too little";

    std::mt19937 rng(20261124);
    std::uniform_int_distribution<long> delay_us(0, 3 * took.count() + 1000);
    Handle quiet({nullptr, 0, nullptr, root().c_str()});  // no log: the child must not write into our capture
    std::set<std::string> seen;  // the states of the whole tree met after kills
    for (int round = 0; round < 300; ++round) {
        ASSERT_TRUE(kill_while_running([&] {
            run_case_call(spec, true, quiet, db());
            sqlite3_exec(db(), toggle.c_str(), nullptr, nullptr, nullptr);
        }, delay_us(rng)));
        std::string state;
        for (const auto &[rel, texts] : versions) {
            const std::string live = at("/" + rel);
            ASSERT_TRUE(exists(live)) << "round " << round << ": /" << rel << " is missing";
            const std::string text = read_file(live);
            ASSERT_TRUE(texts.count(text)) << "round " << round << ": /" << rel << " holds "
                                           << text.size() << " bytes of partial or mixed content";
            state += text == *texts.begin() ? '0' : '1';
        }
        seen.insert(state);
    }
    EXPECT_GE(seen.size(), 2u) << "the child never got through an export";

    ASSERT_EQ(run_case_call(spec, true, h(), db()), 0) << log();
    for (const std::string &rel : files_below(root()))
        EXPECT_EQ(rel.find(".ksdb-"), std::string::npos) << "/" << rel << " left behind";
}

INSTANTIATE_TEST_SUITE_P(Exports, CrashSafetyTest, ::testing::ValuesIn(kCases),
                         [](const auto &info) {
                             return replace_all(info.param.substr(0, info.param.find('/')), "-", "_");
                         });

}  // namespace
