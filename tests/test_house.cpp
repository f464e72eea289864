// House rules a source scan checks: area code reaches the file system only through
// the shared helpers (debug root, one writer), never the C library itself.
#include "tests/support/test_support.h"

#include <algorithm>
#include <filesystem>
#include <regex>
#include <string>
#include <vector>

using namespace ksdb_test;
namespace stdfs = std::filesystem;

namespace {

const std::string kSourceDir = std::string(KSDB_CASES_DIR) + "/../..";

// The text with comments, string and character literals each blanked to one
// space, so a message such as "mkdir(%s) failed" is not taken for a call.
std::string code_only(const std::string &text) {
    std::string out;
    for (size_t i = 0; i < text.size(); ++i) {
        const char c = text[i];
        if (c == '/' && (text[i + 1] == '/' || text[i + 1] == '*')) {
            const std::string end = text[i + 1] == '/' ? "\n" : "*/";
            i = std::min(text.find(end, i + 2), text.size()) + end.size() - 1;
        } else if (c == '"' || c == '\'') {
            for (++i; i < text.size() && text[i] != c; ++i)
                if (text[i] == '\\') ++i;
        } else {
            out += c;
            continue;
        }
        out += ' ';
    }
    return out;
}

// The file-system functions a text calls directly: plain, "::" or "std::"
// qualified.  Members ("x.open(") and the shared helpers ("fs::stat(") are
// not calls of the C library.
std::vector<std::string> direct_calls(const std::string &text) {
    static const std::regex call(
        R"((^|[^\w.>:]|[^\w]::|std::)\s*)"
        R"((access|stat|lstat|mkdir|open|fopen|unlink|rename|popen|system|opendir)\s*\()");
    std::vector<std::string> out;
    const std::string code = code_only(text);
    for (auto it = std::sregex_iterator(code.begin(), code.end(), call); it != std::sregex_iterator(); ++it)
        out.push_back((*it)[2].str());
    return out;
}

// Guards: area code calling the file system around the shared helpers.
TEST(House, AreaCodeCallsNoFileSystemFunctionDirectly) {
    // The scanner itself: calls are found, helpers, members and text are not.
    EXPECT_EQ(direct_calls("int f() { ::stat(p, &st); std::fopen(p, \"r\"); open (p, 0);\n"
                           "  fs::stat(h, p, &st); ksdb::fs::mkdir(h, p); f.open(p); x->rename(a);\n"
                           "  log(\"mkdir(%s) failed\"); // unlink(p)\n  /* system(c) */ struct stat st;\n"
                           "  c = '\\''; s = \"\\\"rename(\"; opendir(d); }\n"),
              (std::vector<std::string>{"stat", "fopen", "open", "opendir"}));

    std::vector<std::string> found;
    for (const char *area : {"shares", "services", "accounts", "storage"}) {
        ASSERT_TRUE(stdfs::is_directory(kSourceDir + "/" + area)) << area;
        for (const auto &e : stdfs::directory_iterator(kSourceDir + "/" + area))
            if (e.path().extension() == ".cpp")
                for (const auto &fn : direct_calls(read_file(e.path())))
                    found.push_back(std::string(area) + "/" + e.path().filename().string() + ": " + fn);
    }
    EXPECT_EQ(found, std::vector<std::string>{})
        << "use ksdb::fs, ConfFile, ManagedFile or the command helpers";
}

}  // namespace
