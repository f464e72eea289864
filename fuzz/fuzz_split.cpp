// The splitters and trimmers on copies of arbitrary text.  The first byte
// chooses the delimiter's length (1 to 3), the next bytes are the delimiter
// and the rest is the text.  Each result is compared with a plain
// re-implementation: split fields joined by the delimiter give the text
// back, splitchr gives the runs of non-delimiter characters, and the
// trimmers cut exactly the blanks (or set characters) at the ends.
#include "fuzz_support.h"

#include <algorithm>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace {

std::vector<char> copy_of(const std::string &s) {
    return std::vector<char>(s.c_str(), s.c_str() + s.size() + 1);
}

void check_split(const std::string &text, const std::string &delim) {
    auto buf = copy_of(text);
    char *p = buf.data();
    char *f[4] = {nullptr, nullptr, nullptr, nullptr};
    int n = split(&p, delim.c_str(), &f[0], &f[1], &f[2], &f[3], NULL);
    FUZZ_CHECK(n >= 1 && n <= 4);
    std::string joined;
    for (int i = 0; i < n; ++i) {
        if (i) joined += delim;
        joined += f[i];
        if (i < n - 1 || n < 4) FUZZ_CHECK(std::strstr(f[i], delim.c_str()) == nullptr);
    }
    FUZZ_CHECK(joined == text);

    auto buf2 = copy_of(text);
    char *g1 = nullptr, *g2 = nullptr;
    FUZZ_CHECK(splitstr(buf2.data(), delim.c_str(), &g1, &g2, NULL) == std::min(n, 2));
}

void check_splitchr(const std::string &text, const std::string &set) {
    // The runs of characters outside the set, with where each begins.
    std::vector<std::pair<size_t, std::string>> runs;
    for (size_t i = text.find_first_not_of(set); i != std::string::npos;) {
        size_t end = text.find_first_of(set, i);
        runs.emplace_back(i, text.substr(i, end == std::string::npos ? end : end - i));
        i = end == std::string::npos ? end : text.find_first_not_of(set, end);
    }

    auto buf = copy_of(text);
    char *p = buf.data();
    char *f[3] = {nullptr, nullptr, nullptr};
    int n = splitchr(&p, set.c_str(), &f[0], &f[1], &f[2], NULL);
    FUZZ_CHECK(n == static_cast<int>(std::min<size_t>(runs.size(), 3)));
    for (int i = 0; i < n; ++i) {
        FUZZ_CHECK(f[i] == buf.data() + runs[i].first);
        if (i == 2) {
            // The outputs ran out: the last field is the rest of the text,
            // trailing delimiters included.
            FUZZ_CHECK(std::string(f[i]) == text.substr(runs[i].first));
        } else {
            FUZZ_CHECK(std::string(f[i]) == runs[i].second);
        }
    }
}

void check_split_to_array(ksdb_handle *h, const std::string &text, const std::string &delim) {
    size_t occurrences = 0;
    for (size_t i = text.find(delim); i != std::string::npos;
         i = text.find(delim, i + delim.size()))
        ++occurrences;
    auto buf = copy_of(text);
    char *p = buf.data();
    char **a = split_to_array(h, &p, delim.c_str());
    FUZZ_CHECK(a != nullptr);
    std::string joined;
    size_t i = 0;
    for (; a[i]; ++i) {
        if (i) joined += delim;
        joined += a[i];
    }
    FUZZ_CHECK(i == occurrences + 1);
    FUZZ_CHECK(joined == text);
}

std::string_view ref_trim(std::string_view s, std::string_view lead, std::string_view trail,
                          bool all) {
    size_t b = 0;
    while (b < s.size() && lead.find(s[b]) != std::string_view::npos) {
        ++b;
        if (!all) break;
    }
    size_t e = s.size();
    while (e > b && trail.find(s[e - 1]) != std::string_view::npos) {
        --e;
        if (!all) break;
    }
    return s.substr(b, e - b);
}

void check_trimmers(const std::string &text, const std::string &set) {
    auto buf = copy_of(text);
    FUZZ_CHECK(ksdb_trim_blanks(buf.data()) == ref_trim(text, " \t\r\n", " \t\r\n", true));
    buf = copy_of(text);
    FUZZ_CHECK(ksdb_trim_line_end(buf.data()) == ref_trim(text, "", "\r\n", true));
    for (int all = 0; all < 2; ++all) {
        buf = copy_of(text);
        FUZZ_CHECK(ksdb_trim(buf.data(), set.c_str(), set.c_str(), all) ==
                   ref_trim(text, set, set, all));
    }

    buf = copy_of(text);
    size_t len = text.size();
    char *r = ksdb_strip_quotes(buf.data());
    bool quoted = len >= 2 && text.front() == '"' && text.back() == '"';
    FUZZ_CHECK(r == buf.data());
    FUZZ_CHECK(std::string(r) == (quoted ? text.substr(1, len - 2) : text));

    buf = copy_of(text);
    FUZZ_CHECK(std::strlen(ksdb_unquote_shell_word(buf.data())) <= len);

    buf = copy_of(text);
    char *c = buf.data();
    int skipped = skip_space(&c);
    FUZZ_CHECK(skipped >= 0 && static_cast<size_t>(skipped) <= len && c == buf.data() + skipped);
    int to = skip_to_chars(&c, set.c_str());
    FUZZ_CHECK(static_cast<size_t>(skipped + to) == text.find_first_of(set, skipped) ||
               (text.find_first_of(set, skipped) == std::string::npos &&
                static_cast<size_t>(skipped + to) == len));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (size < 2) return 0;
    ksdb_fuzz::InputPool pool;
    size_t dlen = 1 + data[0] % 3;
    if (size < 1 + dlen) return 0;
    std::string delim = ksdb_fuzz::as_text(data + 1, dlen);
    if (delim.empty()) delim = "=";
    const std::string text = ksdb_fuzz::as_text(data + 1 + dlen, size - 1 - dlen);

    check_split(text, delim);
    check_splitchr(text, delim);
    check_split_to_array(pool.h(), text, delim);
    check_trimmers(text, delim);
    return 0;
}
