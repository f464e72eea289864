// The debug-root fixture's recording fakes: calls argument by argument, paths outside the root.
#include "tests/support/test_support.h"

#include <cstdlib>

using namespace ksdb_test;

class FixtureTest : public RootTest {};

// Guards: the recording fakes losing or splitting arguments.
TEST_F(FixtureTest, FakesRecordArgumentsExactly) {
    std::string cmd =
        "btrfs subvolume create '" + at("/vol/._share") + "' && chattr +c 'a b' \"$(printf 'x\\ny')\"";
    ASSERT_EQ(std::system(cmd.c_str()), 0);
    auto calls = fake_calls();
    ASSERT_EQ(calls.size(), 2u);
    EXPECT_EQ(calls[0], (FakeCall{"btrfs", "subvolume", "create", at("/vol/._share")}));
    EXPECT_EQ(calls[1], (FakeCall{"chattr", "+c", "a b", "x\ny"}));
    EXPECT_TRUE(exists(at("/vol/._share")));
}

// Guards: a path outside the root passing the fakes.
TEST_F(FixtureTest, FakesRefusePathsOutsideTheRoot) {
    EXPECT_NE(std::system("chattr +c /etc/passwd"), 0);
    auto calls = fake_calls();
    ASSERT_EQ(calls.size(), 2u);
    EXPECT_EQ(calls[1], (FakeCall{"VIOLATION", "chattr", "/etc/passwd"}));
    clear_fake_calls();  // the violation was provoked on purpose
}
