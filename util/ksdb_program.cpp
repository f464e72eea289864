// Programs run without a shell, and user-owned private folders.
#define KSDB_MODULE "ksdb_program"
#include "util/ksdb_program.h"

#include "util/ksdb_misc_utils.h"
#include "util/ksdb_raii.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>

namespace ksdb {

int run_program(const ksdb_handle *h, std::string_view program,
                std::initializer_list<std::string_view> args, std::string *out, size_t limit) {
    std::string name(program);
    if (debug_root_set(h) && !name.empty() && name.front() == '/')
        name = name.substr(name.rfind('/') + 1);
    std::string cmd = shell_quote(name);
    for (std::string_view a : args) cmd += " " + shell_quote(a);
    // What the program says on its standard error is its own business: the
    // caller judges the status and logs the failure in its own words.
    cmd += " 2>/dev/null </dev/null";
    std::string text;
    Pipe pipe(cmd.c_str(), "re");
    if (!pipe) return -errno;
    char buf[4096];
    size_t n;
    while ((n = std::fread(buf, 1, sizeof buf, pipe.get())) > 0)
        if (text.size() < limit) text.append(buf, std::min(n, limit - text.size()));
    int status = pipe.close();
    if (out) *out = std::move(text);
    if (status == -1) return -ECHILD;
    if (WIFEXITED(status)) return WEXITSTATUS(status);
    return WIFSIGNALED(status) ? 128 + WTERMSIG(status) : -ECHILD;
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
