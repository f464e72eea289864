// The message dictionary beyond its case folders: the hardware-type filter, and
// failing statements that do not stop the load.
#define KSDB_MODULE "test_dictionary"
#include "tests/support/test_support.h"

#include "ksdb_platform.h"

#include <string>
#include <vector>

using namespace ksdb_test;

namespace {

const char *const kSystypes[] = {nullptr, "N2800", "N5550"};

class DictionaryTest : public RootTest {
  protected:
    void SetUp() override {
        ASSERT_EQ(ksdb_create(h(), db()), 0) << log();
        ksdb_platform_ops ops = *ksdb_platform_builtin();
        ops.systype_str = kSystypes;
        ops.systype_count = 3;
        ksdb_platform_set(&ops);
    }
    void TearDown() override { ksdb_platform_set(nullptr); }

    void dictionary(const std::string &file) { put("/quillfold/dashboard/dictionary.xml", read_file(file)); }
    std::vector<std::string> messages() {
        return sql().rows("SELECT id,lang_id,str FROM _dictionary ORDER BY lang_id,id");
    }
};

// Guards: items of other hardware kept; an unnamed type treated as known.
TEST_F(DictionaryTest, OnKnownHardwareOnlyItemsOfItsTypeAreKept) {
    dictionary(KSDB_TEST_DATA_DIR "/dictionary-hardware.xml");
    h()->sys_info->hw_type = 2;
    ASSERT_EQ(ksdb_import(h(), db(), KSDB_CAT_DICTIONARY), 0) << log();
    EXPECT_EQ(messages(), (std::vector<std::string>{"bays|1|five bays", "fan|1|generic fan"}));

    // A type the platform has no name for is as good as unknown.
    h()->sys_info->hw_type = 7;
    ASSERT_EQ(ksdb_dictionary_import(h(), db()), 0) << log();
    EXPECT_EQ(messages(), (std::vector<std::string>{"bays|1|five bays", "fan|1|two fans",
                                                    "lcd|1|small display"}));
}

// Guards: a failing statement stopping the load or not logged; the items of a
// language whose row cannot be stored not kept under the language before it.
TEST_F(DictionaryTest, FailedStatementsDoNotStopTheLoad) {
    // The file of the case whose load through the driver is rolled back.
    dictionary(KSDB_CASES_DIR
               "/dictionary/failed-language-rolls-back/given/quillfold/dashboard/dictionary.xml");
    ASSERT_EQ(ksdb_dictionary_import(h(), db()), KSDB_E_DB);
    EXPECT_TRUE(contains(log(), "(error) Failed to UPDATE _lang_supported\n")) << log();
    EXPECT_EQ(sql().rows("SELECT id,lang FROM _lang_supported ORDER BY id"),
              (std::vector<std::string>{"1|en", "2|de"}));
    EXPECT_EQ(messages(), (std::vector<std::string>{"a|1|A", "b|1|B", "a|2|Ä"}));

    // A failing item insert is remembered too, and the next item is tried.
    put("/quillfold/dashboard/dictionary.xml",
        R"(<d><Language code="en" spell="English"><item key="a">A</item><item key="b">B</item>)"
        R"(</Language></d>)");
    sql().exec("CREATE TEMP TRIGGER no_a BEFORE INSERT ON _dictionary WHEN NEW.id='a' "
               "BEGIN SELECT RAISE(ABORT,'refused'); END");
    EXPECT_EQ(ksdb_dictionary_import(h(), db()), KSDB_E_DB);
    EXPECT_TRUE(contains(log(), "(error) Failed to UPDATE _dictionary\n"));
    EXPECT_EQ(messages(), std::vector<std::string>{"b|1|B"});
}

}  // namespace
