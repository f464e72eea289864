// The string helpers' exact forms and edges (the fuzz targets check their properties).
#include "tests/support/test_support.h"

using namespace ksdb_test;

namespace {

using Fields = std::vector<std::string>;

std::vector<char> buf(const std::string &s) { return std::vector<char>(s.c_str(), s.c_str() + s.size() + 1); }

// What an in-place helper makes of a copy of `s`.
template <class F>
std::string in_place(const std::string &s, F f) {
    auto b = buf(s);
    return f(b.data());
}

char kUntouched[] = "untouched";

// Guards: a Latin-1 no-break space taken for a blank; "not found" not at the end.
TEST(StringCursor, SkipsCLocaleSpacesAndToCharacters) {
    auto b = buf(" \t\n\v\f\r \xA0x");
    char *p = b.data();
    EXPECT_EQ(skip_space(&p), 7);
    EXPECT_EQ(skip_space(nullptr), 0);
    b = buf("key : value=x");
    p = b.data();
    EXPECT_EQ(skip_to_chars(&p, "=:"), 4);
    EXPECT_EQ(ksdb_skip_to_char(&p, '='), 7);
    EXPECT_EQ(ksdb_skip_to_char(&p, '#'), 2);
    EXPECT_STREQ(p, "");
    EXPECT_STREQ(b.data(), "key : value=x");
}

// What a splitter makes of a copy of `text` with 0, 2 or 3 outputs: its count, then
// each output ("-" for one left untouched).
std::string outputs(int (*fn)(char **, const char *, ...), const char *text, const char *delim, int room) {
    auto b = buf(text);
    char *p = b.data();
    char *f[3] = {kUntouched, kUntouched, kUntouched};
    const int n = room == 0   ? fn(&p, delim, NULL)
                  : room == 2 ? fn(&p, delim, &f[0], &f[1], NULL)
                              : fn(&p, delim, &f[0], &f[1], &f[2], NULL);
    std::string out = std::to_string(n);
    for (int i = 0; i < room; ++i) out += "|" + std::string(f[i] == kUntouched ? "-" : f[i]);
    return out;
}

// Guards: empty fields from splitchr or lost by split; the rest not in the last output.
TEST(StringSplit, SplitchrSkipsRunsSplitKeepsEmptyFields) {
    EXPECT_EQ(outputs(splitchr, "  a  b", " ", 3), "2|a|b|-");
    EXPECT_EQ(outputs(splitchr, "cmd \targ1  arg2 ", " \t", 2), "2|cmd|arg1  arg2 ");
    EXPECT_EQ(outputs(split, "a!!!!b", "!!", 3), "3|a||b");
    EXPECT_EQ(outputs(split, "OPTS=-a=1 -b=2", "=", 2), "2|OPTS|-a=1 -b=2");
    EXPECT_EQ(outputs(split, "novalue", "!!", 2), "1|novalue|-");
    EXPECT_EQ(outputs(split, "a=b", "=", 0), "0");
    char *f1 = nullptr, *f2 = nullptr;
    auto b = buf("user!!secret!!x");
    EXPECT_EQ(splitstr(b.data(), "!!", &f1, &f2, NULL), 2);
    EXPECT_STREQ(f2, "secret!!x");
    Handle h;
    b = buf("x!!y!!!z!!");
    char *p = b.data();
    char **a = split_to_array(h, &p, "!!");
    ASSERT_NE(a, nullptr);
    EXPECT_EQ(std::string(a[0]) + "|" + a[1] + "|" + a[2] + "|" + a[3], "x|y|!z|");
    EXPECT_EQ(a[4], nullptr);
    EXPECT_DEATH(splitchr(&p, nullptr, &f1, NULL), "Assertion `delim' failed");
}

// Guards: escapes not read, blanks after a comma kept, empty lines giving no field.
TEST(StringCsv, BackslashesBlanksAndEmptyFields) {
    Handle h;
    auto csv = [&](const char *line) {
        char **a = nullptr;
        int n = -1;
        EXPECT_EQ(ksdb_csv_to_array(h, line, &a, &n), 0);
        EXPECT_EQ(a[n], nullptr);
        return Fields(a, a + n);
    };
    EXPECT_EQ(csv("rw, \tno_root_squash,  async "), (Fields{"rw", "no_root_squash", "async "}));
    EXPECT_EQ(csv("a\\,b,\\ lead, \\\\,b\\"), (Fields{"a,b", " lead", "\\", "b\\"}));
    EXPECT_EQ(csv(""), (Fields{""}));
    EXPECT_EQ(csv(",, ,"), (Fields{"", "", "", ""}));
    char **a = nullptr;
    int n = 0;
    EXPECT_EQ(ksdb_csv_to_array(h, nullptr, &a, &n), KSDB_E_INVAL);
    EXPECT_EQ(a, nullptr);
}

// Guards: "all" ignored, the two sets swapped, a lone or single quote stripped.
TEST(StringTrim, OneOrAllOfEachSetAndQuotes) {
    EXPECT_EQ(in_place("xxabcxx", [](char *s) { return ksdb_trim(s, "x", "x", 0); }), "xabcx");
    EXPECT_EQ(in_place("xy-abc-yx", [](char *s) { return ksdb_trim(s, "yx", "-", 1); }), "-abc-yx");
    EXPECT_EQ(in_place(" \t a  b \r\n", ksdb_trim_blanks), "a  b");
    EXPECT_EQ(in_place("  value \r\n\n", ksdb_trim_line_end), "  value ");
    EXPECT_EQ(in_place("\"\"a b\"\"", ksdb_strip_quotes), "\"a b\"");
    for (const char *unchanged : {"\"", "\"abc", "'abc'"})
        EXPECT_EQ(in_place(unchanged, ksdb_strip_quotes), unchanged);
}

// Guards: the special set escaped wrongly; unescaping not the inverse; shell quotes;
// reserved characters left bare, bad escapes misread, entities decoded twice.
TEST(StringEscaping, ShellUrlAndXmlEdgesAndRoundTrips) {
    Handle h;
    apr_pool_t *p = h.pool();
    EXPECT_STREQ(escape_for_shell(h, "! \t\\&()|^<>?*[]$`\"'{}"),
                 "\\!\\ \\\t\\\\\\&\\(\\)\\|\\^\\<\\>\\?\\*\\[\\]\\$\\`\\\"\\'\\{\\}");
    EXPECT_STREQ(escape_for_shell(h, "a;b#c~d%e=f:g/h,i"), "a;b#c~d%e=f:g/h,i");
    EXPECT_STREQ(escape_for_shell(h, nullptr), "");
    EXPECT_EQ(in_place("'a  b'\"c\\\"d\\n\"\\ e", ksdb_unquote_shell_word), "a  bc\"d\\n e");
    EXPECT_EQ(in_place("it's \"open", ksdb_unquote_shell_word), "it's \"open");
    EXPECT_STREQ(ksdb_escape_url(p, "/vol1/my share/100%"), "/vol1/my%20share/100%25");
    EXPECT_STREQ(ksdb_escape_url(p, "a-b_c.d~e/F9?\xC3\xA9"), "a-b_c.d~e/F9%3F%C3%A9");
    EXPECT_STREQ(ksdb_unescape_url(p, "%41%4a+b 50% %4 %zz %%41 %2541"), "AJ+b 50% %4 %zz %A %41");
    EXPECT_STREQ(ksdb_escape_xml(p, "<a href=\"x\">Tom & Jerry's</a>"),
                 "&lt;a href=&quot;x&quot;&gt;Tom &amp; Jerry&apos;s&lt;/a&gt;");
    EXPECT_STREQ(ksdb_unescape_xml(p, "&amp;lt; &unknown; & &amp &#38;"), "&lt; &unknown; & &amp &#38;");
    std::string every_byte;
    for (int c = 1; c < 256; ++c) every_byte += static_cast<char>(c);
    for (const std::string &s : {std::string("a\\"), std::string("$(rm -rf /)"), std::string("%25"),
                                 std::string("&&lt;;"), every_byte}) {
        EXPECT_EQ(in_place(escape_for_shell(h, s.c_str()), unescape_for_shell), s);
        EXPECT_EQ(std::string(ksdb_unescape_url(p, ksdb_escape_url(p, s.c_str()))), s);
        EXPECT_EQ(std::string(ksdb_unescape_xml(p, ksdb_escape_xml(p, s.c_str()))), s);
    }
}

// Guards: tail matches of a shorter text; Samba paths keeping "\\" or "//"; the eighth
// day bit named, day names read case-sensitively, day sets not read back.
TEST(StringMisc, TailMatchOrNoneSambaPathsAndDaysOfTheWeek) {
    EXPECT_EQ(ksdb_tail_match("share.conf", ".conf"), 1);
    EXPECT_EQ(ksdb_tail_match("conf", ".conf"), 0);
    EXPECT_EQ(ksdb_tail_match("", ""), 1);
    Handle h;
    EXPECT_STREQ(ksdb_or_none(""), "none");
    EXPECT_STREQ(ksdb_pstrdup_or_none(h.pool(), nullptr), "none");
    EXPECT_STREQ(ksdb_normalize_smb_path(h, "\\\\vol1\\share\\"), "/vol1/share");
    EXPECT_STREQ(ksdb_normalize_smb_path(h, "//vol1///a b//"), "/vol1/a b");
    EXPECT_STREQ(ksdb_normalize_smb_path(h, "///"), "/");
    EXPECT_EQ(ksdb_i_to_dow(h.pool(), 0x80), nullptr);
    EXPECT_STREQ(ksdb_i_to_dow(h.pool(), 0x41), "sun,sat");
    EXPECT_STREQ(ksdb_i_to_dow(h.pool(), -1), "sun,mon,tue,wed,thu,fri,sat");
    EXPECT_EQ(ksdb_dow_to_i("SUNDAY"), 1);
    EXPECT_EQ(ksdb_dow_to_i("Mon,Wed"), 10);
    EXPECT_EQ(ksdb_dow_to_i(nullptr), 0);
    for (int bits = 1; bits < 128; ++bits) EXPECT_EQ(ksdb_dow_to_i(ksdb_i_to_dow(h.pool(), bits)), bits);
}

// Records each call as "section|name|value"; names "reject" are refused.
int record(void *user, const char *section, const char *name, const char *value) {
    static_cast<Fields *>(user)->push_back(std::string(section) + "|" + name + "|" + value);
    return std::string(name) != "reject";
}

// The calls ini_parse_file makes on a file holding `text`, then its status.
Fields parse(const std::string &text) {
    TempDir dir;
    write_file(dir / "x.ini", text);
    Fields seen;
    const int rc = ini_parse_file((dir / "x.ini").c_str(), record, &seen);
    seen.push_back(std::to_string(rc));
    return seen;
}

// Guards: comments in values, ":" separators, blanks, the first bad line, the limits.
TEST(StringIni, SectionsCommentsBadLinesAndLimits) {
    EXPECT_EQ(parse(read_file(KSDB_TEST_DATA_DIR "/ini-forms.ini")),
              (Fields{"|top|1", "global|name|value", "global|key|colon value", "global|a:b|c",
                      "global|path|/x;y", "global|empty|", "global|semi|", " spaced |k|v", "0"}));
    EXPECT_EQ(parse("[s]\na=1\nreject=1\nkey value\n[unclosed\nc=3\n"),
              (Fields{"s|a|1", "s|reject|1", "s|c|3", "3"}));
    const std::string too_long = std::string(60, 'n') + "=" + std::string(5000, 'v') + "\nbad\n";
    EXPECT_EQ(parse("[" + std::string(60, 's') + "]\n" + too_long),
              (Fields{std::string(50, 's') + "|" + std::string(50, 'n') + "|" + std::string(4095 - 61, 'v'),
                      "3"}));
    Fields seen;
    EXPECT_EQ(ini_parse_file("/nonexistent/dir/x.ini", record, &seen), -1);
    EXPECT_EQ(ini_parse_file(nullptr, record, &seen), -1);
}

}  // namespace
