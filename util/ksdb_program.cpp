// Programs run without a shell, and user-owned private folders.
#define KSDB_MODULE "ksdb_program"
#include "util/ksdb_program.h"

#include "platform/platform.h"
#include "util/ksdb_raii.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <vector>

namespace ksdb {

int run_program(const ksdb_handle *h, std::string_view program,
                std::initializer_list<std::string_view> args, std::string *out, size_t limit) {
    std::string name(program);
    if (debug_root_set(h) && !name.empty() && name.front() == '/')
        name = name.substr(name.rfind('/') + 1);
    std::vector<std::string> words;
    words.reserve(args.size() + 1);
    words.push_back(name);
    for (std::string_view a : args) words.emplace_back(a);
    std::vector<const char *> argv;
    for (const std::string &w : words) argv.push_back(w.c_str());
    argv.push_back(nullptr);
    std::string buf(limit + 1, '\0');
    int rc = exec_cmd(argv.data(), buf.data(), buf.size());
    if (out) {
        buf.resize(std::char_traits<char>::length(buf.c_str()));
        *out = std::move(buf);
    }
    return rc;
}

namespace fs {

int own_private_dir(const ksdb_handle *h, std::string_view live, uid_t uid, gid_t gid,
                    mode_t mode) {
    const std::string path = effective_path(h, live);
    if (mkdir(path.c_str(), mode) != 0 && errno != EEXIST) return errno;
    Fd fd(open(path.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    if (!fd.ok()) return errno;
    if (fchown(fd.get(), uid, gid) != 0) return errno;
    if (fchmod(fd.get(), mode) != 0) return errno;
    return 0;
}

}  // namespace fs
}  // namespace ksdb
