#include "tools/files.h"

#include <stdlib.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <sstream>

#include "tools/session.h"

namespace fs = std::filesystem;

namespace ksdb_tool {

bool same_content(const fs::path &a, const fs::path &b) {
    std::error_code ea, eb;
    auto sa = fs::file_size(a, ea), sb = fs::file_size(b, eb);
    if (ea || eb || sa != sb) return false;
    FILE *fa = std::fopen(a.c_str(), "rb");
    FILE *fb = std::fopen(b.c_str(), "rb");
    bool same = fa && fb;
    char ba[65536], bb[65536];
    while (same) {
        size_t na = std::fread(ba, 1, sizeof ba, fa), nb = std::fread(bb, 1, sizeof bb, fb);
        if (na != nb || std::memcmp(ba, bb, na) != 0) same = false;
        if (na == 0) break;
    }
    if (fa) std::fclose(fa);
    if (fb) std::fclose(fb);
    return same;
}

void copy_tree(const fs::path &from, const fs::path &to) {
    std::error_code ec;
    if (!fs::exists(fs::symlink_status(from, ec))) return;
    fs::create_directories(to.parent_path(), ec);
    fs::copy(from, to,
             fs::copy_options::recursive | fs::copy_options::copy_symlinks |
                 fs::copy_options::overwrite_existing,
             ec);
}

std::set<std::string> files_below(const fs::path &dir) {
    std::set<std::string> out;
    std::error_code ec;
    if (!fs::is_directory(dir, ec)) return out;
    for (auto it = fs::recursive_directory_iterator(
             dir, fs::directory_options::skip_permission_denied, ec);
         it != fs::recursive_directory_iterator(); it.increment(ec)) {
        if (ec) break;
        if (it->is_regular_file(ec)) out.insert(fs::relative(it->path(), dir, ec).string());
    }
    return out;
}

std::string read_text(const fs::path &file) {
    std::ifstream in(file, std::ios::binary);
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
}

std::string make_scratch_folder(const char *prefix) {
    std::string tmpl = std::string("/tmp/") + prefix + "-XXXXXX";
    if (!mkdtemp(tmpl.data())) {
        fail(KSDB_E_FILE, std::string("cannot make a scratch folder: ") + std::strerror(errno));
        return std::string();
    }
    return tmpl;
}

}  // namespace ksdb_tool
