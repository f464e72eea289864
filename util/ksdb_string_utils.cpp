// String helpers: cursors and splitters that take configuration lines apart
// in place, trimmers, the shell, URL and XML escapers and day-of-week sets.
// (The INI reader is with the configuration reader.)
//
// Everything works on NUL-terminated byte strings.  The splitters and
// trimmers change the caller's buffer; the helpers that make new strings
// take them from the handle's result pool (or the pool passed in).  Null
// arguments that can only come from a programming error stop the process
// through KSDB_ASSERT.
#define KSDB_MODULE "ksdb_string_utils"
#include "util/ksdb_string_utils.h"

#include <apr_strings.h>

#include <cstdio>
#include <cstring>

namespace ksdb {

// The 21 characters a shell treats specially in an unquoted word.  Newline
// is not among them: values written this way are single-line.
const char kShellSpecials[] = "! \t\\&()|^<>?*[]$`\"'{}";

namespace {

// The day names of the schedules (bit 0 Sunday ... bit 6 Saturday) and,
// beside them, the XML entities the escapers write and read.
const char *const kDayNames[7] = {"sun", "mon", "tue", "wed", "thu", "fri", "sat"};

struct XmlEntity {
    char ch;
    std::string_view name;
};
const XmlEntity kXmlEntities[] = {
    {'&', "&amp;"}, {'<', "&lt;"}, {'>', "&gt;"}, {'"', "&quot;"}, {'\'', "&apos;"},
};

const char kBlanks[] = " \t\r\n";
const char kHexUpper[] = "0123456789ABCDEF";

bool is_c_space(unsigned char c) {
    // isspace() of the C locale, whatever locale the caller has set.
    return c == ' ' || c == '\t' || c == '\n' || c == '\v' || c == '\f' || c == '\r';
}

bool in_set(const char *set, char c) { return c != '\0' && set && std::strchr(set, c) != nullptr; }

bool url_unreserved(unsigned char c) {
    return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') ||
           c == '-' || c == '.' || c == '_' || c == '~' || c == '/';
}

char *pool_copy(apr_pool_t *pool, const std::string &s) {
    return apr_pstrmemdup(pool, s.data(), s.size());
}

// A pool string made by body(), or NULL when making it threw (no memory).
template <class Body>
char *pooled(const ksdb_handle *h, const char *func, Body &&body) noexcept {
    return boundary_value(h, KSDB_TAG, func, static_cast<char *>(nullptr), body);
}

// split() on a va_list, so that split() and splitstr() share one body.
int vsplit(char **ptrptr, const char *delim, va_list ap) {
    KSDB_ASSERT(ptrptr && *ptrptr);
    KSDB_ASSERT(delim);
    const size_t dlen = std::strlen(delim);
    char *p = *ptrptr;
    char **out = va_arg(ap, char **);
    if (!out) return 0;
    *out = p;
    int n = 1;
    while ((out = va_arg(ap, char **)) != nullptr) {
        // An empty delimiter occurs nowhere: the whole string is one field.
        char *hit = dlen ? std::strstr(p, delim) : nullptr;
        if (!hit) break;
        *hit = '\0';
        p = hit + dlen;
        *out = p;
        ++n;
    }
    *ptrptr = p;
    return n;
}

}  // namespace

std::string escape_shell(std::string_view s) {
    std::string out;
    out.reserve(s.size() + 8);
    for (char c : s) {
        if (in_set(kShellSpecials, c)) out += '\\';
        out += c;
    }
    return out;
}

std::string escape_url(std::string_view s) {
    std::string out;
    out.reserve(s.size() + 8);
    for (char ch : s) {
        auto c = static_cast<unsigned char>(ch);
        if (url_unreserved(c)) {
            out += ch;
        } else {
            out += '%';
            out += kHexUpper[c >> 4];
            out += kHexUpper[c & 15];
        }
    }
    return out;
}

std::string unescape_url(std::string_view s) {
    std::string out;
    out.reserve(s.size());
    for (size_t i = 0; i < s.size(); ++i) {
        if (s[i] == '%' && i + 2 < s.size()) {
            int hi = ksdb_hex_digit(static_cast<unsigned char>(s[i + 1]));
            int lo = ksdb_hex_digit(static_cast<unsigned char>(s[i + 2]));
            if (hi >= 0 && lo >= 0) {
                out += static_cast<char>(hi << 4 | lo);
                i += 2;
                continue;
            }
        }
        out += s[i];
    }
    return out;
}

std::string escape_xml(std::string_view s) {
    std::string out;
    out.reserve(s.size() + 8);
    for (char c : s) {
        bool done = false;
        for (const XmlEntity &e : kXmlEntities) {
            if (e.ch == c) {
                out += e.name;
                done = true;
                break;
            }
        }
        if (!done) out += c;
    }
    return out;
}

std::string unescape_xml(std::string_view s) {
    std::string out;
    out.reserve(s.size());
    for (size_t i = 0; i < s.size(); ++i) {
        bool done = false;
        if (s[i] == '&') {
            for (const XmlEntity &e : kXmlEntities) {
                if (s.substr(i).starts_with(e.name)) {
                    out += e.ch;
                    i += e.name.size() - 1;
                    done = true;
                    break;
                }
            }
        }
        if (!done) out += s[i];
    }
    return out;
}

std::string normalize_smb_path(std::string_view s) {
    std::string out;
    out.reserve(s.size());
    for (char c : s) {
        if (c == '\\') c = '/';
        if (c == '/' && !out.empty() && out.back() == '/') continue;
        out += c;
    }
    if (out.size() > 1 && out.back() == '/') out.pop_back();
    return out;
}

std::string_view trim_blanks(std::string_view s) {
    size_t b = s.find_first_not_of(kBlanks);
    if (b == std::string_view::npos) return s.substr(s.size());
    size_t e = s.find_last_not_of(kBlanks);
    return s.substr(b, e - b + 1);
}

}  // namespace ksdb

extern "C" {

// ---- cursors -----------------------------------------------------------------

int skip_space(char **cursor) {
    if (!cursor || !*cursor) return 0;
    char *p = *cursor;
    while (ksdb::is_c_space(static_cast<unsigned char>(*p))) ++p;
    int n = static_cast<int>(p - *cursor);
    *cursor = p;
    return n;
}

int ksdb_skip_to_char(char **cursor, int c) {
    if (!cursor || !*cursor) return 0;
    char *p = *cursor;
    const char ch = static_cast<char>(c);
    while (*p && *p != ch) ++p;
    int n = static_cast<int>(p - *cursor);
    *cursor = p;
    return n;
}

int skip_to_chars(char **cursor, const char *set) {
    if (!cursor || !*cursor) return 0;
    char *p = *cursor;
    p += set ? std::strcspn(p, set) : std::strlen(p);
    int n = static_cast<int>(p - *cursor);
    *cursor = p;
    return n;
}

// ---- splitting ---------------------------------------------------------------

// Fields are separated by runs of characters of `delim`; leading delimiters
// are skipped and every skipped delimiter becomes NUL.  The last field
// stored runs to the end of the string (delimiters included) when the
// output list is exhausted first.  The cursor is left at the start of the
// last field stored, or where scanning stopped when none was.  Outputs
// beyond the count returned are not touched.
int splitchr(char **ptrptr, const char *delim, ...) {
    KSDB_ASSERT(ptrptr && *ptrptr);
    KSDB_ASSERT(delim);
    va_list ap;
    va_start(ap, delim);
    char *p = *ptrptr;
    char *last = nullptr;
    int n = 0;
    char **out;
    while ((out = va_arg(ap, char **)) != nullptr) {
        while (ksdb::in_set(delim, *p)) *p++ = '\0';
        if (!*p) break;
        *out = last = p;
        ++n;
        p += std::strcspn(p, delim);
    }
    va_end(ap);
    *ptrptr = last ? last : p;
    return n;
}

// The delimiter is a whole string.  The first field starts the string;
// each further field starts just after the next occurrence of the
// delimiter, whose first character becomes NUL.  Empty fields are kept, and
// the last field stored runs to the end of the string.  The cursor is left
// at the start of that last field.  Outputs beyond the count returned are
// not touched.
int split(char **ptrptr, const char *delim, ...) {
    va_list ap;
    va_start(ap, delim);
    int n = ksdb::vsplit(ptrptr, delim, ap);
    va_end(ap);
    return n;
}

int splitstr(char *str, const char *delim, ...) {
    va_list ap;
    va_start(ap, delim);
    int n = ksdb::vsplit(&str, delim, ap);
    va_end(ap);
    return n;
}

// Every occurrence of the delimiter becomes NUL (its first character), and
// the array holds the count + 1 fields and a closing null pointer.  The
// cursor is left at the start of the last field.
char **split_to_array(ksdb_handle *handle, char **ptrptr, const char *delim) {
    KSDB_ASSERT(handle);
    KSDB_ASSERT(ptrptr && *ptrptr);
    KSDB_ASSERT(delim);
    const size_t dlen = std::strlen(delim);
    char *p = *ptrptr;
    size_t count = 0;
    if (dlen) {
        for (char *q = p; (q = std::strstr(q, delim)) != nullptr; q += dlen) ++count;
    }
    auto **array = static_cast<char **>(
        apr_palloc(ksdb::result_pool(handle), (count + 2) * sizeof(char *)));
    if (!array) return nullptr;
    array[0] = p;
    for (size_t i = 1; i <= count; ++i) {
        char *hit = std::strstr(p, delim);
        *hit = '\0';
        p = hit + dlen;
        array[i] = p;
    }
    array[count + 1] = nullptr;
    *ptrptr = p;
    return array;
}

// A backslash takes the next character literally ("\," is a comma inside a
// field; a backslash that ends the line is kept as it is), and the blanks
// (space, tab) that begin a field are skipped.  The fields are copied into
// one pool block of the line's length; the array ends with a null pointer
// after its `count` fields.  An empty line is one empty field.
// Returns 0; KSDB_E_INVAL (4) for a null argument, KSDB_E_FILE (5) when the
// pool cannot give the memory.  On failure *array is NULL and *count 0.
int ksdb_csv_to_array(ksdb_handle *handle, const char *line, char ***array, int *count) {
    if (array) *array = nullptr;
    if (count) *count = 0;
    if (!handle || !line || !array || !count) return KSDB_E_INVAL;
    apr_pool_t *pool = ksdb::result_pool(handle);
    const size_t len = std::strlen(line);

    size_t fields = 1;
    for (size_t i = 0; i < len; ++i) {
        if (line[i] == '\\' && line[i + 1])
            ++i;
        else if (line[i] == ',')
            ++fields;
    }
    if (fields > static_cast<size_t>(INT32_MAX)) return KSDB_E_INVAL;

    auto *block = static_cast<char *>(apr_palloc(pool, len + 1));
    auto **out = static_cast<char **>(apr_palloc(pool, (fields + 1) * sizeof(char *)));
    if (!block || !out) return KSDB_E_FILE;

    char *w = block;
    size_t k = 0;
    bool field_start = true;
    out[0] = w;
    for (size_t i = 0; i < len; ++i) {
        char c = line[i];
        if (field_start && (c == ' ' || c == '\t')) continue;
        field_start = false;
        if (c == '\\' && line[i + 1]) {
            *w++ = line[++i];
        } else if (c == ',') {
            *w++ = '\0';
            out[++k] = w;
            field_start = true;
        } else {
            *w++ = c;
        }
    }
    *w = '\0';
    out[fields] = nullptr;
    *array = out;
    *count = static_cast<int>(fields);
    return KSDB_OK;
}

// ---- trimming ----------------------------------------------------------------

char *ksdb_trim(char *str, const char *leading, const char *trailing, int all) {
    if (!str) return nullptr;
    char *p = str;
    while (ksdb::in_set(leading, *p)) {
        ++p;
        if (!all) break;
    }
    if (trailing) {
        char *end = p + std::strlen(p);
        char *cut = end;
        while (cut > p && ksdb::in_set(trailing, cut[-1])) {
            --cut;
            if (!all) break;
        }
        if (cut != end) *cut = '\0';
    }
    return p;
}

char *ksdb_trim_blanks(char *str) { return ksdb_trim(str, ksdb::kBlanks, ksdb::kBlanks, 1); }

char *ksdb_trim_line_end(char *str) { return ksdb_trim(str, nullptr, "\r\n", 1); }

// The text moves to the start of the buffer, so the caller's pointer and
// the one returned both see the unquoted string.
char *ksdb_strip_quotes(char *str) {
    if (!str) return nullptr;
    size_t len = std::strlen(str);
    if (len >= 2 && str[0] == '"' && str[len - 1] == '"') {
        std::memmove(str, str + 1, len - 2);
        str[len - 2] = '\0';
    }
    return str;
}

// ---- escaping ----------------------------------------------------------------

char *escape_for_shell(ksdb_handle *handle, const char *str) {
    KSDB_ASSERT(handle);
    return ksdb::pooled(handle, __func__, [&] {
        return ksdb::pool_copy(ksdb::result_pool(handle), ksdb::escape_shell(str ? str : ""));
    });
}

// Every backslash is dropped and the character after it kept (a backslash
// that ends the string is dropped too).
char *unescape_for_shell(char *src) {
    KSDB_ASSERT(src);
    char *r = src;
    char *w = src;
    while (*r) {
        if (*r == '\\' && !*++r) break;
        *w++ = *r++;
    }
    *w = '\0';
    return src;
}

// One shell word without its quoting, in place: outside quotes a backslash
// makes the next character literal; '...' is taken literally; inside "..."
// a backslash escapes only $ ` " and \ (elsewhere it stays).  A
// quote without its closing partner is an ordinary character.
char *ksdb_unquote_shell_word(char *str) {
    if (!str) return nullptr;
    char *r = str;
    char *w = str;
    while (*r) {
        const char c = *r;
        if (c == '\\') {
            if (r[1]) {
                *w++ = r[1];
                r += 2;
            } else {
                ++r;
            }
            continue;
        }
        if (c == '\'') {
            if (char *close = std::strchr(r + 1, '\'')) {
                size_t n = static_cast<size_t>(close - (r + 1));
                std::memmove(w, r + 1, n);
                w += n;
                r = close + 1;
                continue;
            }
        } else if (c == '"') {
            char *q = r + 1;
            while (*q && *q != '"') q += (*q == '\\' && q[1]) ? 2 : 1;
            if (*q == '"') {
                for (char *s = r + 1; s < q; ++s) {
                    if (*s == '\\' && s + 1 < q && std::strchr("$`\"\\", s[1])) ++s;
                    *w++ = *s;
                }
                r = q + 1;
                continue;
            }
        }
        *w++ = c;
        ++r;
    }
    *w = '\0';
    return str;
}

int ksdb_hex_digit(int c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}

// Null inputs give an empty string.  "%00" decodes to a NUL byte, which
// ends the C string handed back.
char *ksdb_unescape_url(apr_pool_t *pool, const char *path) {
    KSDB_ASSERT(pool);
    return ksdb::pooled(nullptr, __func__, [&] { return ksdb::pool_copy(pool, ksdb::unescape_url(path ? path : "")); });
}

char *ksdb_escape_url(apr_pool_t *pool, const char *path) {
    KSDB_ASSERT(pool);
    return ksdb::pooled(nullptr, __func__, [&] { return ksdb::pool_copy(pool, ksdb::escape_url(path ? path : "")); });
}

char *ksdb_unescape_xml(apr_pool_t *pool, const char *str) {
    KSDB_ASSERT(pool);
    return ksdb::pooled(nullptr, __func__, [&] { return ksdb::pool_copy(pool, ksdb::unescape_xml(str ? str : "")); });
}

char *ksdb_escape_xml(apr_pool_t *pool, const char *str) {
    KSDB_ASSERT(pool);
    return ksdb::pooled(nullptr, __func__, [&] { return ksdb::pool_copy(pool, ksdb::escape_xml(str ? str : "")); });
}

// A null string counts as the empty one.
int ksdb_tail_match(const char *a, const char *b) {
    std::string_view sa = a ? a : "";
    std::string_view sb = b ? b : "";
    return sa.ends_with(sb) ? 1 : 0;
}

const char *ksdb_or_none(const char *value) { return value && *value ? value : "none"; }

char *ksdb_pstrdup_or_none(apr_pool_t *pool, const char *value) {
    KSDB_ASSERT(pool);
    return apr_pstrdup(pool, ksdb_or_none(value));
}

// Null gives an empty string.  Normalising twice gives the same text as
// normalising once.
char *ksdb_normalize_smb_path(ksdb_handle *handle, const char *path) {
    KSDB_ASSERT(handle);
    return ksdb::pooled(handle, __func__, [&] {
        return ksdb::pool_copy(ksdb::result_pool(handle), ksdb::normalize_smb_path(path ? path : ""));
    });
}

// ---- day-of-week sets --------------------------------------------------------

char *ksdb_i_to_dow(apr_pool_t *pool, int bits) {
    KSDB_ASSERT(pool);
    bits &= 0x7f;
    if (!bits) return nullptr;
    char buf[28];  // "sun,mon,tue,wed,thu,fri,sat" and its NUL
    size_t n = 0;
    for (int day = 0; day < 7; ++day) {
        if (!(bits & (1 << day))) continue;
        if (n) buf[n++] = ',';
        std::memcpy(buf + n, ksdb::kDayNames[day], 3);
        n += 3;
    }
    buf[n] = '\0';
    return apr_pstrdup(pool, buf);
}

int ksdb_dow_to_i(const char *text) {
    if (!text) return 0;
    int bits = 0;
    for (int day = 0; day < 7; ++day)
        if (strcasestr(text, ksdb::kDayNames[day])) bits |= 1 << day;
    return bits;
}

}  // extern "C"
