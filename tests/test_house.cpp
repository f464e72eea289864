// House rules a source scan checks: area code reaches the file system only through
// the shared helpers (debug root, one writer), never the C library itself.
#include "tests/support/test_support.h"

#include <dirent.h>

#include <algorithm>
#include <map>
#include <regex>
#include <string>
#include <vector>

using namespace ksdb_test;

namespace {

const std::string kSourceDir = std::string(KSDB_CASES_DIR) + "/../..";

// The text with comments, string and character literals blanked out, so a
// message such as "mkdir(%s) failed" is not taken for a call.
std::string code_only(const std::string &text) {
    std::string out = text;
    enum { kCode, kLine, kBlock, kString, kChar } state = kCode;
    for (size_t i = 0; i < out.size(); ++i) {
        const char c = out[i], next = i + 1 < out.size() ? out[i + 1] : '\0';
        switch (state) {
            case kCode:
                if (c == '/' && next == '/') state = kLine;
                else if (c == '/' && next == '*') state = kBlock;
                else if (c == '"') state = kString;
                else if (c == '\'') state = kChar;
                else continue;
                break;
            case kLine:
                if (c == '\n') {
                    state = kCode;
                    continue;
                }
                break;
            case kBlock:
                if (c == '*' && next == '/') {
                    out[i] = out[i + 1] = ' ';
                    ++i;
                    state = kCode;
                    continue;
                }
                break;
            case kString:
            case kChar:
                if (c == '\\') {
                    out[i] = ' ';
                    if (i + 1 < out.size() && out[i + 1] != '\n') out[++i] = ' ';
                    continue;
                }
                if (c == (state == kString ? '"' : '\'')) {
                    state = kCode;
                    continue;
                }
                break;
        }
        if (out[i] != '\n') out[i] = ' ';
    }
    return out;
}

// The file-system functions a file calls directly: plain, "::" or "std::"
// qualified.  Members ("x.open(") and the shared helpers ("fs::stat(") are
// not calls of the C library.
std::vector<std::string> direct_calls(const std::string &file) {
    static const std::regex call(
        R"((^|[^\w.>:]|[^\w]::|std::)\s*)"
        R"((access|stat|lstat|mkdir|open|fopen|unlink|rename|popen|system|opendir)\s*\()");
    std::vector<std::string> out;
    const std::string code = code_only(read_file(file));
    for (auto it = std::sregex_iterator(code.begin(), code.end(), call); it != std::sregex_iterator();
         ++it) {
        out.push_back((*it)[2].str());
    }
    return out;
}

// Calls that area files make today, to be replaced by the shared helpers:
// the count per file and function may only go down.
const std::map<std::string, int> kAllowed = {};

// Guards: area code calling the file system around the shared helpers.
TEST(House, AreaCodeCallsNoFileSystemFunctionDirectly) {
    // The scanner itself: calls are found, helpers, members and text are not.
    const std::string probe = "/tmp/ksdb-house-probe.cpp";
    write_file(probe, "int f() { ::stat(p, &st); std::fopen(p, \"r\"); open (p, 0);\n"
                      "  fs::stat(h, p, &st); ksdb::fs::mkdir(h, p); f.open(p); x->rename(a);\n"
                      "  log(\"mkdir(%s) failed\"); // unlink(p)\n  /* system(c) */ struct stat st; }\n");
    EXPECT_EQ(direct_calls(probe), (std::vector<std::string>{"stat", "fopen", "open"}));
    std::remove(probe.c_str());

    std::map<std::string, int> found;
    for (const char *area : {"shares", "services", "accounts", "storage"}) {
        DIR *d = opendir((kSourceDir + "/" + area).c_str());
        if (!d) continue;
        while (dirent *e = readdir(d)) {
            const std::string name = e->d_name;
            if (!name.ends_with(".cpp")) continue;
            const std::string rel = std::string(area) + "/" + name;
            for (const auto &fn : direct_calls(kSourceDir + "/" + rel)) ++found[rel + ": " + fn];
        }
        closedir(d);
    }
    for (const auto &[what, n] : found) {
        auto allowed = kAllowed.find(what);
        const int limit = allowed == kAllowed.end() ? 0 : allowed->second;
        EXPECT_LE(n, limit) << what << " is called " << n
                            << " times: use ksdb::fs, ConfFile, ManagedFile or the command helpers";
        if (n < limit)
            std::printf("note: %s is called %d times now; lower its allowance to %d\n", what.c_str(),
                        n, n);
    }
}

}  // namespace
