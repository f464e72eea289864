// The string helpers: cursors, splitters, trimmers, escapers, day-of-week
// sets and the C INI reader.  Each escaper is checked on its edge cases and
// by a round trip over every byte.
#include "tests/support/test_support.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

using namespace ksdb_test;

namespace {

// A writable copy of a literal, for the in-place helpers.
std::vector<char> buf(const std::string &s) {
    return std::vector<char>(s.c_str(), s.c_str() + s.size() + 1);
}

char kUntouched[] = "untouched";

std::string every_byte() {
    std::string s;
    for (int c = 1; c < 256; ++c) s += static_cast<char>(c);
    return s;
}

TEST(StringCursor, SkipsCLocaleSpacesAndToCharacters) {
    auto b = buf(" \t\n\v\f\r \xA0x");
    char *p = b.data();
    EXPECT_EQ(skip_space(&p), 7);  // a Latin-1 no-break space is not a C-locale space
    EXPECT_EQ(skip_space(nullptr), 0);
    b = buf("key : value=x");
    p = b.data();
    EXPECT_EQ(skip_to_chars(&p, "=:"), 4);
    EXPECT_EQ(ksdb_skip_to_char(&p, '='), 7);
    EXPECT_EQ(ksdb_skip_to_char(&p, '#'), 2);  // not found: to the end
    EXPECT_STREQ(p, "");
    EXPECT_STREQ(b.data(), "key : value=x");
}

TEST(StringSplit, SplitchrSkipsRunsSplitKeepsEmptyFields) {
    auto b = buf("  a  b");
    char *p = b.data();
    char *f1 = kUntouched, *f2 = kUntouched, *f3 = kUntouched;
    EXPECT_EQ(splitchr(&p, " ", &f1, &f2, &f3, NULL), 2);
    EXPECT_STREQ(f1, "a");
    EXPECT_STREQ(f2, "b");
    EXPECT_EQ(f3, kUntouched);
    b = buf("cmd \targ1  arg2 ");  // the last output takes the rest
    p = b.data();
    EXPECT_EQ(splitchr(&p, " \t", &f1, &f2, NULL), 2);
    EXPECT_STREQ(f2, "arg1  arg2 ");

    b = buf("a!!!!b");
    p = b.data();
    EXPECT_EQ(split(&p, "!!", &f1, &f2, &f3, NULL), 3);
    EXPECT_EQ(std::string(f1) + "|" + f2 + "|" + f3, "a||b");
    b = buf("OPTS=-a=1 -b=2");
    p = b.data();
    EXPECT_EQ(split(&p, "=", &f1, &f2, NULL), 2);
    EXPECT_STREQ(f2, "-a=1 -b=2");
    b = buf("novalue");
    p = b.data();
    f2 = kUntouched;
    EXPECT_EQ(split(&p, "!!", &f1, &f2, NULL), 1);
    EXPECT_EQ(f2, kUntouched);
    EXPECT_EQ(split(&p, "=", NULL), 0);
    b = buf("user!!secret!!x");
    EXPECT_EQ(splitstr(b.data(), "!!", &f1, &f2, NULL), 2);
    EXPECT_STREQ(f2, "secret!!x");

    Handle h;
    b = buf("x!!y!!!z!!");
    p = b.data();
    char **a = split_to_array(h, &p, "!!");
    ASSERT_NE(a, nullptr);
    EXPECT_EQ(std::string(a[0]) + "|" + a[1] + "|" + a[2] + "|" + a[3], "x|y|!z|");
    EXPECT_EQ(a[4], nullptr);

    EXPECT_DEATH(splitchr(&p, nullptr, &f1, NULL), "Assertion `delim' failed");
    char *null_cursor = nullptr;
    EXPECT_DEATH(split(&null_cursor, "=", &f1, NULL), "Assertion `ptrptr && \\*ptrptr' failed");
}

std::vector<std::string> csv(ksdb_handle *h, const char *line) {
    char **a = nullptr;
    int n = -1;
    EXPECT_EQ(ksdb_csv_to_array(h, line, &a, &n), 0);
    std::vector<std::string> out(a, a + n);
    EXPECT_EQ(a[n], nullptr);
    return out;
}

using Fields = std::vector<std::string>;

TEST(StringCsv, BackslashesBlanksAndEmptyFields) {
    Handle h;
    EXPECT_EQ(csv(h, "rw, \tno_root_squash,  async "), (Fields{"rw", "no_root_squash", "async "}));
    EXPECT_EQ(csv(h, "a\\,b,\\ lead, \\\\,b\\"), (Fields{"a,b", " lead", "\\", "b\\"}));
    EXPECT_EQ(csv(h, ""), (Fields{""}));
    EXPECT_EQ(csv(h, ",, ,"), (Fields{"", "", "", ""}));
    char **a = nullptr;
    int n = 0;
    EXPECT_EQ(ksdb_csv_to_array(h, nullptr, &a, &n), KSDB_E_INVAL);
    EXPECT_EQ(a, nullptr);
}

TEST(StringTrim, OneOrAllOfEachSetAndQuotes) {
    auto b = buf("xxabcxx");
    EXPECT_STREQ(ksdb_trim(b.data(), "x", "x", 0), "xabcx");
    b = buf("xy-abc-yx");
    EXPECT_STREQ(ksdb_trim(b.data(), "yx", "-", 1), "-abc-yx");
    b = buf(" \t a  b \r\n");
    EXPECT_STREQ(ksdb_trim_blanks(b.data()), "a  b");
    b = buf("  value \r\n\n");
    EXPECT_STREQ(ksdb_trim_line_end(b.data()), "  value ");
    b = buf("\"\"a b\"\"");
    EXPECT_STREQ(ksdb_strip_quotes(b.data()), "\"a b\"");
    EXPECT_STREQ(b.data(), "\"a b\"");
    for (const char *unchanged : {"\"", "\"abc", "'abc'"}) {
        b = buf(unchanged);
        EXPECT_STREQ(ksdb_strip_quotes(b.data()), unchanged);
    }
}

TEST(StringShell, EscapesExactlyTheSpecialSetAndRoundTrips) {
    Handle h;
    EXPECT_STREQ(escape_for_shell(h, "a b"), "a\\ b");
    EXPECT_STREQ(escape_for_shell(h, "! \t\\&()|^<>?*[]$`\"'{}"),
                 "\\!\\ \\\t\\\\\\&\\(\\)\\|\\^\\<\\>\\?\\*\\[\\]\\$\\`\\\"\\'\\{\\}");
    EXPECT_STREQ(escape_for_shell(h, "a;b#c~d%e=f:g/h,i"), "a;b#c~d%e=f:g/h,i");
    EXPECT_STREQ(escape_for_shell(h, nullptr), "");
    for (const std::string &s : {std::string("\\"), std::string("a\\"), std::string("$(rm -rf /)"),
                                 every_byte()}) {
        auto b = buf(escape_for_shell(h, s.c_str()));
        EXPECT_EQ(std::string(unescape_for_shell(b.data())), s);
    }
    auto b = buf("'a  b'\"c\\\"d\\n\"\\ e");
    EXPECT_STREQ(ksdb_unquote_shell_word(b.data()), "a  bc\"d\\n e");
    b = buf("it's \"open");  // quotes without a partner are ordinary characters
    EXPECT_STREQ(ksdb_unquote_shell_word(b.data()), "it's \"open");
}

TEST(StringEscaping, UrlAndXmlEdgesAndRoundTrips) {
    Handle h;
    apr_pool_t *p = h.pool();
    EXPECT_STREQ(ksdb_escape_url(p, "/vol1/my share/100%"), "/vol1/my%20share/100%25");
    EXPECT_STREQ(ksdb_escape_url(p, "a-b_c.d~e/F9?\xC3\xA9"), "a-b_c.d~e/F9%3F%C3%A9");
    EXPECT_STREQ(ksdb_unescape_url(p, "%41%4a+b 50% %4 %zz %%41 %2541"), "AJ+b 50% %4 %zz %A %41");
    EXPECT_STREQ(ksdb_escape_xml(p, "<a href=\"x\">Tom & Jerry's</a>"),
                 "&lt;a href=&quot;x&quot;&gt;Tom &amp; Jerry&apos;s&lt;/a&gt;");
    EXPECT_STREQ(ksdb_unescape_xml(p, "&amp;lt; &unknown; & &amp &#38;"),
                 "&lt; &unknown; & &amp &#38;");
    for (const std::string &s : {std::string("%25"), std::string("&&lt;;"), every_byte()}) {
        EXPECT_EQ(std::string(ksdb_unescape_url(p, ksdb_escape_url(p, s.c_str()))), s);
        EXPECT_EQ(std::string(ksdb_unescape_xml(p, ksdb_escape_xml(p, s.c_str()))), s);
    }
}

TEST(StringMisc, TailMatchOrNoneAndSambaPaths) {
    EXPECT_EQ(ksdb_tail_match("share.conf", ".conf"), 1);
    EXPECT_EQ(ksdb_tail_match("conf", ".conf"), 0);
    EXPECT_EQ(ksdb_tail_match("", ""), 1);
    Handle h;
    EXPECT_STREQ(ksdb_or_none(""), "none");
    EXPECT_STREQ(ksdb_pstrdup_or_none(h.pool(), nullptr), "none");
    EXPECT_STREQ(ksdb_normalize_smb_path(h, "\\\\vol1\\share\\"), "/vol1/share");
    EXPECT_STREQ(ksdb_normalize_smb_path(h, "//vol1///a b//"), "/vol1/a b");
    EXPECT_STREQ(ksdb_normalize_smb_path(h, "///"), "/");
    const char *once = ksdb_normalize_smb_path(h, "\\/\\a\\\\/b/");
    EXPECT_STREQ(ksdb_normalize_smb_path(h, once), once);
}

TEST(StringDow, NamesOfTheLowSevenBitsAndBack) {
    Handle h;
    EXPECT_EQ(ksdb_i_to_dow(h.pool(), 0x80), nullptr);
    EXPECT_STREQ(ksdb_i_to_dow(h.pool(), 0x41), "sun,sat");
    EXPECT_STREQ(ksdb_i_to_dow(h.pool(), -1), "sun,mon,tue,wed,thu,fri,sat");
    EXPECT_EQ(ksdb_dow_to_i("SUNDAY"), 1);
    EXPECT_EQ(ksdb_dow_to_i("Mon,Wed"), 10);
    EXPECT_EQ(ksdb_dow_to_i(nullptr), 0);
    for (int bits = 1; bits < 128; ++bits)
        EXPECT_EQ(ksdb_dow_to_i(ksdb_i_to_dow(h.pool(), bits)), bits);
}

// ---- the C INI reader ------------------------------------------------------------

struct IniRecorder {
    std::vector<std::string> seen;
    static int handler(void *user, const char *section, const char *name, const char *value) {
        auto *self = static_cast<IniRecorder *>(user);
        self->seen.push_back(std::string(section) + "|" + name + "|" + value);
        return std::string(name) != "reject";
    }
};

int parse(const std::string &text, IniRecorder &rec) {
    TempDir dir;
    write_file(dir / "x.ini", text);
    return ini_parse_file((dir / "x.ini").c_str(), IniRecorder::handler, &rec);
}

using Seen = std::vector<std::string>;

TEST(StringIni, SectionsNamesValuesAndComments) {
    IniRecorder rec;
    EXPECT_EQ(parse("; comment\n# comment\n\ntop=1\n  [global]  \n  name = value  \n"
                    "key:colon value\na:b=c\npath = /x;y ; a comment\nempty =\r\n"
                    "semi=;all comment\n[ spaced ]\nk=v",
                    rec),
              0);
    EXPECT_EQ(rec.seen,
              (Seen{"|top|1", "global|name|value", "global|key|colon value", "global|a:b|c",
                    "global|path|/x;y", "global|empty|", "global|semi|", " spaced |k|v"}));
}

TEST(StringIni, FirstBadLineIsReportedAndReadingGoesOn) {
    IniRecorder rec;
    EXPECT_EQ(parse("[s]\na=1\nreject=1\nkey value\n[unclosed\nc=3\n", rec), 3);
    EXPECT_EQ(rec.seen, (Seen{"s|a|1", "s|reject|1", "s|c|3"}));

    // Section and name keep 50 characters; a line 4095, and the next line
    // keeps its own number.
    IniRecorder cut;
    EXPECT_EQ(parse("[" + std::string(60, 's') + "]\n" + std::string(60, 'n') + "=" +
                        std::string(5000, 'v') + "\nbad\n",
                    cut),
              3);
    EXPECT_EQ(cut.seen, (Seen{std::string(50, 's') + "|" + std::string(50, 'n') + "|" +
                              std::string(4095 - 61, 'v')}));
    EXPECT_EQ(ini_parse_file("/nonexistent/dir/x.ini", IniRecorder::handler, &rec), -1);
    EXPECT_EQ(ini_parse_file(nullptr, IniRecorder::handler, &rec), -1);
}

}  // namespace
