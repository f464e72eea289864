// The URL and XML unescapers on arbitrary text, and the round trips
// escape -> unescape of the URL, XML and shell escapers, which must give
// the input back exactly.  Also the share path normaliser (its output is a
// fixed point) and the day-of-week reader.
#include "fuzz_support.h"

#include <cstdint>
#include <string>
#include <vector>

namespace {

bool url_safe(unsigned char c) {
    return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') ||
           c == '-' || c == '.' || c == '_' || c == '~' || c == '/';
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    ksdb_fuzz::InputPool in;
    apr_pool_t *pool = in.pool();
    const std::string s = ksdb_fuzz::as_text(data, size);

    // Unescaping never lengthens the text.
    FUZZ_CHECK(std::strlen(ksdb_unescape_url(pool, s.c_str())) <= s.size());
    FUZZ_CHECK(std::strlen(ksdb_unescape_xml(pool, s.c_str())) <= s.size());

    // URL: only unreserved characters and %XX escapes, and back again.
    const char *url = ksdb_escape_url(pool, s.c_str());
    for (const char *p = url; *p; ++p) {
        if (*p == '%') {
            FUZZ_CHECK(ksdb_hex_digit(p[1]) >= 0 && ksdb_hex_digit(p[2]) >= 0);
            p += 2;
        } else {
            FUZZ_CHECK(url_safe(static_cast<unsigned char>(*p)));
        }
    }
    FUZZ_CHECK(s == ksdb_unescape_url(pool, url));

    // XML: no markup characters left, and back again.
    const char *xml = ksdb_escape_xml(pool, s.c_str());
    FUZZ_CHECK(std::strpbrk(xml, "<>\"'") == nullptr);
    FUZZ_CHECK(s == ksdb_unescape_xml(pool, xml));

    // Shell: unescaped in place from a copy.
    const char *sh = escape_for_shell(in.h(), s.c_str());
    std::vector<char> buf(sh, sh + std::strlen(sh) + 1);
    FUZZ_CHECK(s == unescape_for_shell(buf.data()));

    // Share paths: normalising is idempotent and leaves no "\" or "//".
    const char *norm = ksdb_normalize_smb_path(in.h(), s.c_str());
    FUZZ_CHECK(std::strchr(norm, '\\') == nullptr && std::strstr(norm, "//") == nullptr);
    FUZZ_CHECK(std::strcmp(ksdb_normalize_smb_path(in.h(), norm), norm) == 0);

    // Day-of-week sets: any text reads as a set of the low seven bits, and
    // the set written back reads as itself.
    int bits = ksdb_dow_to_i(s.c_str());
    FUZZ_CHECK(bits >= 0 && bits < 128);
    const char *days = ksdb_i_to_dow(pool, bits);
    FUZZ_CHECK(bits == 0 ? days == nullptr : ksdb_dow_to_i(days) == bits);
    return 0;
}
