// The INI reader on arbitrary file contents: the input is written to a
// temporary file and read back with ini_parse_file.  Every call of the
// handler must see a section and a name of at most 50 characters and a
// name and value without surrounding blanks; the result is 0 or the number
// of a line of the file.
#include "fuzz_support.h"

#include <unistd.h>

#include <cstdint>
#include <string>

namespace {

std::string g_path;

void remove_file() { unlink(g_path.c_str()); }

const std::string &temp_path() {
    if (g_path.empty()) {
        const char *dir = std::getenv("TMPDIR");
        std::string pattern = std::string(dir && *dir ? dir : "/tmp") + "/ksdb-fuzz-ini-XXXXXX";
        int fd = mkstemp(pattern.data());
        FUZZ_CHECK(fd >= 0);
        close(fd);
        g_path = pattern;
        std::atexit(remove_file);
    }
    return g_path;
}

bool blank(char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; }

bool trimmed(const char *s) {
    size_t n = std::strlen(s);
    return n == 0 || (!blank(s[0]) && !blank(s[n - 1]));
}

int handler(void *user, const char *section, const char *name, const char *value) {
    FUZZ_CHECK(section && name && value);
    FUZZ_CHECK(std::strlen(section) <= 50);
    FUZZ_CHECK(std::strlen(name) <= 50);
    FUZZ_CHECK(std::strchr(name, '=') == nullptr);
    FUZZ_CHECK(trimmed(value));
    FUZZ_CHECK(std::strlen(value) < 4096);
    ++*static_cast<int *>(user);
    // Refuse some names so that the handler's error path runs too.
    return name[0] != '!';
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    const std::string &path = temp_path();
    FILE *f = std::fopen(path.c_str(), "wb");
    FUZZ_CHECK(f != nullptr);
    FUZZ_CHECK(std::fwrite(data, 1, size, f) == size);
    std::fclose(f);

    int lines = 0;
    for (size_t i = 0; i < size; ++i) lines += data[i] == '\n';
    if (size && data[size - 1] != '\n') ++lines;

    int calls = 0;
    int rc = ini_parse_file(path.c_str(), handler, &calls);
    FUZZ_CHECK(rc >= 0 && rc <= lines);
    FUZZ_CHECK(calls <= lines);
    return 0;
}
