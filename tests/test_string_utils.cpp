// The string helpers: cursors, splitters, trimmers, escapers, day-of-week
// sets and the INI reader.
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

// ---- cursors ---------------------------------------------------------------

TEST(StringCursor, SkipSpaceCountsCLocaleSpacesOnly) {
    auto b = buf(" \t\n\v\f\r x");
    char *p = b.data();
    EXPECT_EQ(skip_space(&p), 7);
    EXPECT_STREQ(p, "x");
    EXPECT_EQ(skip_space(&p), 0);

    // A Latin-1 no-break space is not a space in the C locale.
    auto nb = buf("\xA0y");
    p = nb.data();
    EXPECT_EQ(skip_space(&p), 0);
    EXPECT_EQ(p, nb.data());

    EXPECT_EQ(skip_space(nullptr), 0);
    char *null_cursor = nullptr;
    EXPECT_EQ(skip_space(&null_cursor), 0);
    EXPECT_EQ(null_cursor, nullptr);
}

TEST(StringCursor, SkipToCharAndToChars) {
    auto b = buf("key : value=x");
    char *p = b.data();
    EXPECT_EQ(skip_to_chars(&p, "=:"), 4);
    EXPECT_STREQ(p, ": value=x");
    EXPECT_EQ(ksdb_skip_to_char(&p, '='), 7);
    EXPECT_STREQ(p, "=x");
    // Not found: to the end.
    EXPECT_EQ(ksdb_skip_to_char(&p, '#'), 2);
    EXPECT_STREQ(p, "");
    // The cursors never change the text.
    p = b.data();
    EXPECT_EQ(skip_to_chars(&p, "#!"), 13);
    EXPECT_STREQ(b.data(), "key : value=x");
}

// ---- splitchr --------------------------------------------------------------

TEST(StringSplitchr, RunsOfDelimitersAreSkipped) {
    auto b = buf("  a  b");
    char *p = b.data();
    char *f1 = kUntouched, *f2 = kUntouched, *f3 = kUntouched;
    EXPECT_EQ(splitchr(&p, " ", &f1, &f2, &f3, NULL), 2);
    EXPECT_STREQ(f1, "a");
    EXPECT_STREQ(f2, "b");
    EXPECT_EQ(f3, kUntouched);
}

TEST(StringSplitchr, LastFieldTakesTheRestWhenOutputsRunOut) {
    auto b = buf("cmd \targ1  arg2 ");
    char *p = b.data();
    char *f1 = nullptr, *f2 = nullptr;
    EXPECT_EQ(splitchr(&p, " \t", &f1, &f2, NULL), 2);
    EXPECT_STREQ(f1, "cmd");
    EXPECT_STREQ(f2, "arg1  arg2 ");
}

TEST(StringSplitchr, OnlyDelimitersGiveNoField) {
    auto b = buf(" , ,");
    char *p = b.data();
    char *f1 = kUntouched;
    EXPECT_EQ(splitchr(&p, ", ", &f1, NULL), 0);
    EXPECT_EQ(f1, kUntouched);
    EXPECT_STREQ(p, "");
}

TEST(StringSplitchr, NullDelimiterIsAProgrammingError) {
    auto b = buf("a b");
    char *p = b.data();
    char *f1 = nullptr;
    EXPECT_DEATH(splitchr(&p, nullptr, &f1, NULL), "Assertion `delim' failed");
}

// ---- split, splitstr -------------------------------------------------------

TEST(StringSplit, EmptyFieldsAreKept) {
    auto b = buf("a!!!!b");
    char *p = b.data();
    char *f1 = nullptr, *f2 = nullptr, *f3 = nullptr;
    EXPECT_EQ(split(&p, "!!", &f1, &f2, &f3, NULL), 3);
    EXPECT_STREQ(f1, "a");
    EXPECT_STREQ(f2, "");
    EXPECT_STREQ(f3, "b");
}

TEST(StringSplit, KeyValueKeepsFurtherDelimitersInTheValue) {
    auto b = buf("OPTS=-a=1 -b=2");
    char *p = b.data();
    char *key = nullptr, *value = nullptr;
    EXPECT_EQ(split(&p, "=", &key, &value, NULL), 2);
    EXPECT_STREQ(key, "OPTS");
    EXPECT_STREQ(value, "-a=1 -b=2");
}

TEST(StringSplit, MissingDelimiterGivesOneField) {
    auto b = buf("novalue");
    char *p = b.data();
    char *key = nullptr, *value = kUntouched;
    EXPECT_EQ(split(&p, "!!", &key, &value, NULL), 1);
    EXPECT_STREQ(key, "novalue");
    EXPECT_EQ(value, kUntouched);
}

TEST(StringSplit, TrailingDelimiterGivesAnEmptyLastField) {
    auto b = buf("a,,b,");
    char *p = b.data();
    char *f[5] = {kUntouched, kUntouched, kUntouched, kUntouched, kUntouched};
    EXPECT_EQ(split(&p, ",", &f[0], &f[1], &f[2], &f[3], &f[4], NULL), 4);
    EXPECT_STREQ(f[0], "a");
    EXPECT_STREQ(f[1], "");
    EXPECT_STREQ(f[2], "b");
    EXPECT_STREQ(f[3], "");
    EXPECT_EQ(f[4], kUntouched);
}

TEST(StringSplit, EmptyOutputListStoresNothing) {
    auto b = buf("a=b");
    char *p = b.data();
    EXPECT_EQ(split(&p, "=", NULL), 0);
    EXPECT_STREQ(b.data(), "a=b");
}

TEST(StringSplit, SplitstrOnAPlainString) {
    auto b = buf("user!!secret!!x");
    char *f1 = nullptr, *f2 = nullptr;
    EXPECT_EQ(splitstr(b.data(), "!!", &f1, &f2, NULL), 2);
    EXPECT_STREQ(f1, "user");
    EXPECT_STREQ(f2, "secret!!x");
}

TEST(StringSplit, NullCursorIsAProgrammingError) {
    char *f1 = nullptr;
    char *null_cursor = nullptr;
    EXPECT_DEATH(split(nullptr, "=", &f1, NULL), "Assertion `ptrptr && \\*ptrptr' failed");
    EXPECT_DEATH(split(&null_cursor, "=", &f1, NULL), "Assertion `ptrptr && \\*ptrptr' failed");
    EXPECT_DEATH(splitstr(nullptr, "=", &f1, NULL), "Assertion `ptrptr && \\*ptrptr' failed");
}

// ---- split_to_array --------------------------------------------------------

TEST(StringSplitToArray, FieldsAndClosingNull) {
    Handle h;
    auto b = buf("x!!y!!!z!!");
    char *p = b.data();
    char **a = split_to_array(h, &p, "!!");
    ASSERT_NE(a, nullptr);
    EXPECT_STREQ(a[0], "x");
    EXPECT_STREQ(a[1], "y");
    EXPECT_STREQ(a[2], "!z");
    EXPECT_STREQ(a[3], "");
    EXPECT_EQ(a[4], nullptr);
}

TEST(StringSplitToArray, EmptyInputIsOneEmptyField) {
    Handle h;
    auto b = buf("");
    char *p = b.data();
    char **a = split_to_array(h, &p, ",");
    ASSERT_NE(a, nullptr);
    EXPECT_STREQ(a[0], "");
    EXPECT_EQ(a[1], nullptr);
}

// ---- ksdb_csv_to_array -----------------------------------------------------

std::vector<std::string> csv(ksdb_handle *h, const char *line, int expect_rc = 0) {
    char **a = nullptr;
    int n = -1;
    EXPECT_EQ(ksdb_csv_to_array(h, line, &a, &n), expect_rc);
    std::vector<std::string> out;
    if (expect_rc != 0) {
        EXPECT_EQ(a, nullptr);
        EXPECT_EQ(n, 0);
        return out;
    }
    for (int i = 0; i < n; ++i) out.emplace_back(a[i]);
    EXPECT_EQ(a[n], nullptr);
    return out;
}

using Fields = std::vector<std::string>;

TEST(StringCsv, LeadingBlanksSkippedTrailingKept) {
    Handle h;
    EXPECT_EQ(csv(h, "rw, \tno_root_squash,  async "), (Fields{"rw", "no_root_squash", "async "}));
}

TEST(StringCsv, BackslashTakesTheNextCharacter) {
    Handle h;
    EXPECT_EQ(csv(h, "a\\,b,c"), (Fields{"a,b", "c"}));
    EXPECT_EQ(csv(h, "\\ lead, \\\\,x"), (Fields{" lead", "\\", "x"}));
    // A backslash that ends the line stays.
    EXPECT_EQ(csv(h, "a,b\\"), (Fields{"a", "b\\"}));
}

TEST(StringCsv, EmptyFields) {
    Handle h;
    EXPECT_EQ(csv(h, ""), (Fields{""}));
    EXPECT_EQ(csv(h, "a,"), (Fields{"a", ""}));
    EXPECT_EQ(csv(h, ",, ,"), (Fields{"", "", "", ""}));
}

TEST(StringCsv, TheLineIsNotChanged) {
    Handle h;
    const std::string line = " a\\,b , c";
    auto b = buf(line);
    csv(h, b.data());
    EXPECT_EQ(std::string(b.data()), line);
}

TEST(StringCsv, NullArgumentsAreRefused) {
    Handle h;
    csv(h, nullptr, KSDB_E_INVAL);
    csv(nullptr, "a", KSDB_E_INVAL);
    int n = 0;
    EXPECT_EQ(ksdb_csv_to_array(h, "a", nullptr, &n), KSDB_E_INVAL);
}

// ---- trimmers --------------------------------------------------------------

TEST(StringTrim, OneOrAllCharactersOfEachSet) {
    auto b = buf("xxabcxx");
    EXPECT_STREQ(ksdb_trim(b.data(), "x", "x", 0), "xabcx");
    b = buf("xxabcxx");
    EXPECT_STREQ(ksdb_trim(b.data(), "x", "x", 1), "abc");
    b = buf("xy-abc-yx");
    EXPECT_STREQ(ksdb_trim(b.data(), "yx", "-", 1), "-abc-yx");
    b = buf("xxxx");
    EXPECT_STREQ(ksdb_trim(b.data(), "x", "x", 1), "");
    b = buf("x");
    EXPECT_STREQ(ksdb_trim(b.data(), "x", "x", 0), "");
    EXPECT_EQ(ksdb_trim(nullptr, "x", "x", 1), nullptr);
}

TEST(StringTrim, BlanksAndLineEnds) {
    auto b = buf(" \t a  b \r\n");
    EXPECT_STREQ(ksdb_trim_blanks(b.data()), "a  b");
    b = buf(" \t\r\n");
    EXPECT_STREQ(ksdb_trim_blanks(b.data()), "");
    b = buf("  value\r\n\n");
    EXPECT_STREQ(ksdb_trim_line_end(b.data()), "  value");
    b = buf("value \t");
    EXPECT_STREQ(ksdb_trim_line_end(b.data()), "value \t");
}

TEST(StringTrim, StripQuotesRemovesOnePairInPlace) {
    auto b = buf("\"\"a b\"\"");
    EXPECT_STREQ(ksdb_strip_quotes(b.data()), "\"a b\"");
    EXPECT_STREQ(b.data(), "\"a b\"");
    b = buf("\"\"");
    EXPECT_STREQ(ksdb_strip_quotes(b.data()), "");
    for (const char *unchanged : {"\"", "\"abc", "abc\"", "'abc'", ""}) {
        b = buf(unchanged);
        EXPECT_STREQ(ksdb_strip_quotes(b.data()), unchanged);
    }
}

// ---- shell escaping --------------------------------------------------------

TEST(StringShell, EscapesExactlyTheSpecialSet) {
    Handle h;
    EXPECT_STREQ(escape_for_shell(h, "a b"), "a\\ b");
    EXPECT_STREQ(escape_for_shell(h, "! \t\\&()|^<>?*[]$`\"'{}"),
                 "\\!\\ \\\t\\\\\\&\\(\\)\\|\\^\\<\\>\\?\\*\\[\\]\\$\\`\\\"\\'\\{\\}");
    // Not in the set: these pass through.
    EXPECT_STREQ(escape_for_shell(h, "a;b#c~d%e=f:g/h,i\nj"), "a;b#c~d%e=f:g/h,i\nj");
    EXPECT_STREQ(escape_for_shell(h, nullptr), "");
}

TEST(StringShell, UnescapeDropsBackslashesInPlace) {
    auto b = buf("a\\ b\\\\c\\$d\\");
    char *r = unescape_for_shell(b.data());
    EXPECT_EQ(r, b.data());
    EXPECT_STREQ(r, "a b\\c$d");
    EXPECT_DEATH(unescape_for_shell(nullptr), "Assertion `src' failed");
}

TEST(StringShell, RoundTrip) {
    Handle h;
    std::string all_bytes;
    for (int c = 1; c < 256; ++c) all_bytes += static_cast<char>(c);
    for (const std::string &s :
         std::vector<std::string>{"", "\\", "\\\\", "a\\", "'\"'\"", "$(rm -rf /)", "`id`;echo ok",
                                  "tab\there", "{a,b}*?", "end with space ", all_bytes}) {
        auto b = buf(escape_for_shell(h, s.c_str()));
        EXPECT_EQ(std::string(unescape_for_shell(b.data())), s);
    }
}

TEST(StringShell, UnquoteShellWord) {
    auto b = buf("'a  b'\"c\\\"d\\n\"\\ e");
    EXPECT_STREQ(ksdb_unquote_shell_word(b.data()), "a  bc\"d\\n e");
    b = buf("\"it's\" 'say \"hi\"'");
    EXPECT_STREQ(ksdb_unquote_shell_word(b.data()), "it's say \"hi\"");
    // Quotes without a partner are ordinary characters.
    b = buf("it's \"open");
    EXPECT_STREQ(ksdb_unquote_shell_word(b.data()), "it's \"open");
    b = buf("'\\$x'");
    EXPECT_STREQ(ksdb_unquote_shell_word(b.data()), "\\$x");
    EXPECT_EQ(ksdb_unquote_shell_word(nullptr), nullptr);
}

// ---- URL escaping ----------------------------------------------------------

TEST(StringUrl, HexDigit) {
    EXPECT_EQ(ksdb_hex_digit('0'), 0);
    EXPECT_EQ(ksdb_hex_digit('9'), 9);
    EXPECT_EQ(ksdb_hex_digit('a'), 10);
    EXPECT_EQ(ksdb_hex_digit('f'), 15);
    EXPECT_EQ(ksdb_hex_digit('A'), 10);
    EXPECT_EQ(ksdb_hex_digit('F'), 15);
    for (int c : {int{'/'}, int{':'}, int{'@'}, int{'G'}, int{'g'}, int{'`'}, int{' '}, 0, 0xC0})
        EXPECT_EQ(ksdb_hex_digit(c), -1) << c;
}

TEST(StringUrl, Escape) {
    Handle h;
    EXPECT_STREQ(ksdb_escape_url(h.pool(), "/vol1/my share/100%"), "/vol1/my%20share/100%25");
    EXPECT_STREQ(ksdb_escape_url(h.pool(), "a-b_c.d~e/F9"), "a-b_c.d~e/F9");
    EXPECT_STREQ(ksdb_escape_url(h.pool(), "?&=+#\xC3\xA9\x01\x7F"), "%3F%26%3D%2B%23%C3%A9%01%7F");
    EXPECT_STREQ(ksdb_escape_url(h.pool(), nullptr), "");
}

TEST(StringUrl, Unescape) {
    Handle h;
    EXPECT_STREQ(ksdb_unescape_url(h.pool(), "%41%4a%4A+b"), "AJJ+b");
    // Incomplete or non-hexadecimal escapes stay as they are.
    EXPECT_STREQ(ksdb_unescape_url(h.pool(), "50%"), "50%");
    EXPECT_STREQ(ksdb_unescape_url(h.pool(), "%4"), "%4");
    EXPECT_STREQ(ksdb_unescape_url(h.pool(), "%zz%g1"), "%zz%g1");
    EXPECT_STREQ(ksdb_unescape_url(h.pool(), "%%41"), "%A");
    // One pass only.
    EXPECT_STREQ(ksdb_unescape_url(h.pool(), "%2541"), "%41");
    EXPECT_STREQ(ksdb_unescape_url(h.pool(), nullptr), "");
}

// ---- XML escaping ----------------------------------------------------------

TEST(StringXml, EscapeAndUnescape) {
    Handle h;
    EXPECT_STREQ(ksdb_escape_xml(h.pool(), "<a href=\"x\">Tom & Jerry's</a>"),
                 "&lt;a href=&quot;x&quot;&gt;Tom &amp; Jerry&apos;s&lt;/a&gt;");
    EXPECT_STREQ(ksdb_unescape_xml(h.pool(), "&lt;&gt;&quot;&apos;&amp;"), "<>\"'&");
    EXPECT_STREQ(ksdb_unescape_xml(h.pool(), "&amp;lt;"), "&lt;");
    EXPECT_STREQ(ksdb_unescape_xml(h.pool(), "&unknown; & &amp &#38;"), "&unknown; & &amp &#38;");
    EXPECT_STREQ(ksdb_escape_xml(h.pool(), nullptr), "");
    EXPECT_STREQ(ksdb_unescape_xml(h.pool(), nullptr), "");
}

TEST(StringEscaping, UrlAndXmlRoundTrips) {
    Handle h;
    std::string all_bytes;
    for (int c = 1; c < 256; ++c) all_bytes += static_cast<char>(c);
    for (const std::string &s :
         std::vector<std::string>{"", "%", "%%%", "%25", "%41", "&", "&amp;", "&&lt;;", "a+b c",
                                  "/x//y/", "\xC3\xA9t\xC3\xA9", "<![CDATA[x]]>", all_bytes}) {
        EXPECT_EQ(std::string(ksdb_unescape_url(h.pool(), ksdb_escape_url(h.pool(), s.c_str()))),
                  s);
        EXPECT_EQ(std::string(ksdb_unescape_xml(h.pool(), ksdb_escape_xml(h.pool(), s.c_str()))),
                  s);
    }
}

// ---- small helpers ---------------------------------------------------------

TEST(StringMisc, TailMatch) {
    EXPECT_EQ(ksdb_tail_match("share.conf", ".conf"), 1);
    EXPECT_EQ(ksdb_tail_match("share.conf", "share.conf"), 1);
    EXPECT_EQ(ksdb_tail_match("conf", ".conf"), 0);
    EXPECT_EQ(ksdb_tail_match("share.conf", ".conF"), 0);
    EXPECT_EQ(ksdb_tail_match("abc", ""), 1);
    EXPECT_EQ(ksdb_tail_match("", ""), 1);
    EXPECT_EQ(ksdb_tail_match("", "a"), 0);
}

TEST(StringMisc, OrNone) {
    Handle h;
    const char *v = "value";
    EXPECT_STREQ(ksdb_or_none(nullptr), "none");
    EXPECT_STREQ(ksdb_or_none(""), "none");
    EXPECT_EQ(ksdb_or_none(v), v);
    char *copy = ksdb_pstrdup_or_none(h.pool(), v);
    EXPECT_STREQ(copy, "value");
    EXPECT_NE(copy, v);
    EXPECT_STREQ(ksdb_pstrdup_or_none(h.pool(), ""), "none");
    EXPECT_STREQ(ksdb_pstrdup_or_none(h.pool(), nullptr), "none");
}

TEST(StringMisc, NormalizeSmbPath) {
    Handle h;
    EXPECT_STREQ(ksdb_normalize_smb_path(h, "\\\\vol1\\share\\"), "/vol1/share");
    EXPECT_STREQ(ksdb_normalize_smb_path(h, "//vol1///a b//"), "/vol1/a b");
    EXPECT_STREQ(ksdb_normalize_smb_path(h, "/"), "/");
    EXPECT_STREQ(ksdb_normalize_smb_path(h, "///"), "/");
    EXPECT_STREQ(ksdb_normalize_smb_path(h, "vol1/x"), "vol1/x");
    EXPECT_STREQ(ksdb_normalize_smb_path(h, ""), "");
    EXPECT_STREQ(ksdb_normalize_smb_path(h, nullptr), "");
    for (const char *p : {"\\/\\a\\\\/b/", "a//b\\", "/./x/"}) {
        const char *once = ksdb_normalize_smb_path(h, p);
        EXPECT_STREQ(ksdb_normalize_smb_path(h, once), once) << p;
    }
}

// ---- day-of-week sets ------------------------------------------------------

TEST(StringDow, BitsToNames) {
    Handle h;
    EXPECT_EQ(ksdb_i_to_dow(h.pool(), 0), nullptr);
    EXPECT_EQ(ksdb_i_to_dow(h.pool(), 0x80), nullptr);
    EXPECT_STREQ(ksdb_i_to_dow(h.pool(), 0x41), "sun,sat");
    EXPECT_STREQ(ksdb_i_to_dow(h.pool(), 0x0A), "mon,wed");
    EXPECT_STREQ(ksdb_i_to_dow(h.pool(), 0x7F), "sun,mon,tue,wed,thu,fri,sat");
    EXPECT_STREQ(ksdb_i_to_dow(h.pool(), -1), "sun,mon,tue,wed,thu,fri,sat");
    EXPECT_STREQ(ksdb_i_to_dow(h.pool(), 0x110), "thu");
}

TEST(StringDow, NamesToBits) {
    EXPECT_EQ(ksdb_dow_to_i(nullptr), 0);
    EXPECT_EQ(ksdb_dow_to_i(""), 0);
    EXPECT_EQ(ksdb_dow_to_i("SUNDAY"), 1);
    EXPECT_EQ(ksdb_dow_to_i("Mon,Wed"), 10);
    EXPECT_EQ(ksdb_dow_to_i("saturday and Friday"), 0x60);
    EXPECT_EQ(ksdb_dow_to_i("holiday"), 0);
}

TEST(StringDow, RoundTripOfEverySet) {
    Handle h;
    for (int bits = 1; bits < 128; ++bits)
        EXPECT_EQ(ksdb_dow_to_i(ksdb_i_to_dow(h.pool(), bits)), bits);
}

// ---- INI reader ------------------------------------------------------------

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
    EXPECT_EQ(parse("; comment\n"
                    "# comment\n"
                    "\n"
                    "top=1\n"
                    "  [global]  \n"
                    "  name = value  \n"
                    "key:colon value\n"
                    "a:b=c\n"
                    "path = /x;y ; a comment\n"
                    "empty =\r\n"
                    "semi=;all comment\n"
                    "[ spaced ]\n"
                    "k=v",
                    rec),
              0);
    EXPECT_EQ(rec.seen,
              (Seen{"|top|1", "global|name|value", "global|key|colon value", "global|a:b|c",
                    "global|path|/x;y", "global|empty|", "global|semi|", " spaced |k|v"}));
}

TEST(StringIni, BadLineIsReportedAndReadingGoesOn) {
    IniRecorder rec;
    EXPECT_EQ(parse("[s]\n"
                    "a=1\n"
                    "key value\n"
                    "b=2\n"
                    "[unclosed\n"
                    "c=3\n",
                    rec),
              3);
    EXPECT_EQ(rec.seen, (Seen{"s|a|1", "s|b|2", "s|c|3"}));
}

TEST(StringIni, FirstErrorWinsHandlerRefusalCounts) {
    IniRecorder rec;
    EXPECT_EQ(parse("\n[s]\nreject=1\nno separator\nok=2\n", rec), 3);
    EXPECT_EQ(rec.seen, (Seen{"s|reject|1", "s|ok|2"}));
    IniRecorder rec2;
    EXPECT_EQ(parse("x=1\n[open\n", rec2), 2);
}

TEST(StringIni, LongNamesAndLinesAreCut) {
    IniRecorder rec;
    const std::string n60(60, 'n'), s60(60, 's');
    EXPECT_EQ(parse("[" + s60 + "]\n" + n60 + "=v\n", rec), 0);
    EXPECT_EQ(rec.seen, (Seen{std::string(50, 's') + "|" + std::string(50, 'n') + "|v"}));

    // An over-long line keeps its first 4095 characters; the next line keeps
    // its own number.
    IniRecorder rec2;
    EXPECT_EQ(parse("k=" + std::string(5000, 'v') + "\nbad\n", rec2), 2);
    ASSERT_EQ(rec2.seen.size(), 1u);
    EXPECT_EQ(rec2.seen[0], "|k|" + std::string(4093, 'v'));
}

TEST(StringIni, MissingFile) {
    IniRecorder rec;
    EXPECT_EQ(ini_parse_file("/nonexistent/dir/x.ini", IniRecorder::handler, &rec), -1);
    EXPECT_EQ(ini_parse_file(nullptr, IniRecorder::handler, &rec), -1);
    EXPECT_TRUE(rec.seen.empty());
}

}  // namespace
