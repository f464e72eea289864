#include "tools/checks.h"

#include <fcntl.h>
#include <fnmatch.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <map>
#include <regex>
#include <sstream>
#include <utility>

#include "tools/files.h"

#ifndef KSDB_CHECKERS_FROM_BIN
#define KSDB_CHECKERS_FROM_BIN "../libexec/ksdb/checkers"
#endif

namespace fs = std::filesystem;

namespace ksdb_tool {

namespace {

// How a file is handed to its checker.
enum class Prepare {
    kAsIs,             // the scratch file itself
    kSambaIncludes,    // a copy whose "include =" lines name the scratch tree
    kProftpdIncludes,  // a copy whose "Include" lines name the scratch tree
    kExportedFolders,  // a copy whose exported folders name the scratch tree
    kAccountFiles,     // the four account files of the scratch tree together
};

// A daemon's checker and how a file is handed to it.
struct Checker {
    const char *label;   // the checker as the report names it
    const char *script;  // wrapper in the checker folder
    const char *needs;   // programs (or absolute files) it runs, blank-separated
    Prepare prepare;
    const char *extra;   // one more argument after the file, or nullptr
};

constexpr Checker kSamba{"testparm", "check-smb.sh", "testparm", Prepare::kSambaIncludes, nullptr};
constexpr Checker kExports{"exportfs", "check-exports.sh", "exportfs unshare",
                           Prepare::kExportedFolders, nullptr};
constexpr Checker kProftpd{"proftpd -t", "check-proftpd.sh", "proftpd", Prepare::kProftpdIncludes,
                           nullptr};
constexpr Checker kRsyncd{"rsync --daemon", "check-rsyncd.sh", "rsync", Prepare::kAsIs, nullptr};
constexpr Checker kSshd{"sshd -t", "check-sshd.sh", "sshd ssh-keygen", Prepare::kAsIs, nullptr};
constexpr Checker kSnmpd{"snmpd", "check-snmpd.sh", "snmpd", Prepare::kAsIs, nullptr};
constexpr Checker kClamd{"clamconf", "check-clamd.sh", "clamconf", Prepare::kAsIs, nullptr};
constexpr Checker kAvahi{"xmllint", "check-xml.sh", "xmllint /usr/share/avahi/avahi-service.dtd",
                         Prepare::kAsIs, "/usr/share/avahi/avahi-service.dtd"};
constexpr Checker kXml{"xmllint", "check-xml.sh", "xmllint", Prepare::kAsIs, nullptr};
constexpr Checker kAccounts{"pwck/grpck", "check-accounts.sh", "pwck grpck", Prepare::kAccountFiles,
                            nullptr};
constexpr Checker kCron{"crontab -n", "check-cron-d.sh", "crontab", Prepare::kAsIs, nullptr};

// Every file with an offline checker, by its live path ('*' stays within
// one path component).  Files not listed are reported as not checked.
const struct {
    const char *pattern;
    const Checker *checker;
} kCheckedFiles[] = {
    {"/etc/samba/smb.conf", &kSamba},
    {"/etc/quillfold/samba/Shares.conf", &kSamba},
    {"/etc/quillfold/samba/Shares.conf.admin", &kSamba},
    {"/run/usb/samba/Shares.conf", &kSamba},
    {"/*/._share/*/samba.conf", &kSamba},
    {"/etc/quillfold/usb/._share/*/samba.conf", &kSamba},
    {"/etc/exports", &kExports},
    {"/etc/proftpd/proftpd.conf", &kProftpd},
    {"/etc/quillfold/proftpd/*.conf", &kProftpd},
    {"/etc/quillfold/rsync/Shares.conf", &kRsyncd},
    {"/etc/ssh/sshd_config", &kSshd},
    {"/etc/snmp/snmpd.conf", &kSnmpd},
    {"/etc/clamav/clamd.conf", &kClamd},
    {"/etc/avahi/services/*.service", &kAvahi},
    {"/etc/quillfold/backup_jobs.conf", &kXml},
    {"/*/.volume_schedule.conf", &kXml},
    {"/etc/passwd", &kAccounts},
    {"/etc/shadow", &kAccounts},
    {"/etc/group", &kAccounts},
    {"/etc/gshadow", &kAccounts},
    {"/etc/cron.d/*", &kCron},
};

const Checker *checker_for(const std::string &live_path) {
    for (const auto &f : kCheckedFiles)
        if (fnmatch(f.pattern, live_path.c_str(), FNM_PATHNAME | FNM_PERIOD) == 0) return f.checker;
    return nullptr;
}

// The search path of the checkers: the caller's, with the system folders
// that hold daemons added (a user's PATH often lacks them).
std::string checker_path() {
    const char *env = std::getenv("PATH");
    std::string path = env && *env ? env : "/usr/local/bin:/usr/bin:/bin";
    for (const char *dir : {"/usr/local/sbin", "/usr/sbin", "/sbin"})
        if ((":" + path + ":").find(std::string(":") + dir + ":") == std::string::npos)
            path += std::string(":") + dir;
    return path;
}

bool installed(const std::string &name, const std::string &path) {
    if (name[0] == '/') return access(name.c_str(), R_OK) == 0;
    std::stringstream dirs(path);
    std::string dir;
    while (std::getline(dirs, dir, ':'))
        if (!dir.empty() && access((dir + "/" + name).c_str(), X_OK) == 0) return true;
    return false;
}

// The first program the checker needs that is missing, or "".
std::string missing_program(const Checker &c, const std::string &path) {
    std::stringstream names(c.needs);
    std::string name;
    while (names >> name)
        if (!installed(name, path)) return name;
    return std::string();
}

// Where the wrappers are: $KSDB_CHECKERS_DIR, else beside the installed
// command, else beside the command in the build tree.
fs::path checker_dir() {
    if (const char *d = std::getenv("KSDB_CHECKERS_DIR"); d && *d) return d;
    std::error_code ec;
    fs::path bin = fs::read_symlink("/proc/self/exe", ec).parent_path();
    if (ec) return {};
    for (const fs::path &dir : {bin / KSDB_CHECKERS_FROM_BIN, bin / "checkers"})
        if (fs::is_directory(dir, ec)) return dir.lexically_normal();
    return {};
}

std::string replace_all(std::string text, const std::string &from, const std::string &to) {
    if (from.empty()) return text;
    for (size_t p = 0; (p = text.find(from, p)) != std::string::npos; p += to.size())
        text.replace(p, from.size(), to);
    return text;
}

bool is_octal(char c) { return c >= '0' && c <= '7'; }

// "\040" and the other octal escapes of a path in /etc/exports.
std::string unescape_octal(const std::string &text) {
    std::string out;
    for (size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '\\' && i + 3 < text.size() && is_octal(text[i + 1]) &&
            is_octal(text[i + 2]) && is_octal(text[i + 3])) {
            out += static_cast<char>(std::stoi(text.substr(i + 1, 3), nullptr, 8));
            i += 3;
        } else {
            out += text[i];
        }
    }
    return out;
}

// Copies of the files handed to checkers, in a work folder of their own.
class Preparer {
  public:
    Preparer(fs::path scratch, fs::path shown_root, fs::path work)
        : scratch_(std::move(scratch)),
          shown_root_(std::move(shown_root)),
          work_(std::move(work)) {}

    // A copy of `file` (a live path) prepared as `how` says; its path.
    std::string copy(const std::string &live, Prepare how, int depth = 0) {
        const fs::path file = in_tree(live);
        if (auto it = copies_.find(file); it != copies_.end()) return it->second;
        const std::string out =
            (work_ / (std::to_string(copies_.size() + 1) + "-" + file.filename().string()))
                .string();
        copies_[file] = out;  // before following includes, so a cycle ends here
        const std::string text = read_text(file);
        std::string result;
        for (size_t start = 0; start < text.size();) {
            size_t end = text.find('\n', start);
            const bool newline = end != std::string::npos;
            if (!newline) end = text.size();
            result += rewrite(text.substr(start, end - start), how, depth);
            if (newline) result += '\n';
            start = end + 1;
        }
        std::ofstream(out, std::ios::binary) << result;
        return out;
    }

    // The checker's words with the copies and the scratch tree named as
    // the files they stand for.
    std::string shown(std::string text) const {
        for (const auto &[file, copy] : copies_)
            text = replace_all(text, copy, shown_path(fs::relative(file, scratch_).string()));
        const std::string root = shown_root_ == "/" ? std::string() : shown_root_.string();
        return replace_all(text, scratch_.string(), root);
    }

    std::string shown_path(const std::string &rel) const { return (shown_root_ / rel).string(); }
    fs::path in_tree(const std::string &live) const { return scratch_ / live.substr(1); }

  private:
    std::string rewrite(const std::string &line, Prepare how, int depth) {
        static const std::regex samba(R"(^(\s*include\s*=\s*)(\S.*?)\s*$)", std::regex::icase);
        static const std::regex proftpd(R"(^(\s*Include\s+)(\S+)\s*$)", std::regex::icase);
        static const std::regex exported(R"(^(\s*"?)(/[^\s"]*)(.*)$)");
        std::smatch m;
        std::error_code ec;
        if (how == Prepare::kSambaIncludes && std::regex_match(line, m, samba)) {
            const std::string v = m[2];
            // Per-client includes name a different file for each connection.
            if (v.find('%') != std::string::npos) return "# " + line;
            if (v[0] == '/' && depth < 8 && fs::is_regular_file(in_tree(v), ec))
                return m[1].str() + copy(v, how, depth + 1);
        } else if (how == Prepare::kProftpdIncludes && std::regex_match(line, m, proftpd)) {
            const std::string v = m[2];
            if (v[0] != '/') return line;
            if (v.find_first_of("*?[") != std::string::npos) {
                if (fs::is_directory(in_tree(v).parent_path(), ec))
                    return m[1].str() + in_tree(v).string();
            } else if (depth < 8 && fs::is_regular_file(in_tree(v), ec)) {
                return m[1].str() + copy(v, how, depth + 1);
            }
        } else if (how == Prepare::kExportedFolders && std::regex_match(line, m, exported)) {
            if (fs::is_directory(in_tree(unescape_octal(m[2])), ec))
                return m[1].str() + scratch_.string() + m[2].str() + m[3].str();
        }
        return line;
    }

    fs::path scratch_, shown_root_, work_;
    std::map<fs::path, std::string> copies_;
};

struct Outcome {
    int status = 0;
    std::string output;
};

// Runs `sh SCRIPT ARGS...` in `work` with standard input closed to it.
Outcome run_wrapper(const fs::path &script, const std::vector<std::string> &args,
                    const fs::path &work, const std::string &path) {
    const std::string out = (work / "output").string();
    std::fflush(stdout);
    pid_t pid = fork();
    if (pid == 0) {
        int in = open("/dev/null", O_RDONLY);
        int fd = open(out.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
        if (in < 0 || fd < 0 || chdir(work.c_str()) != 0) _exit(127);
        dup2(in, 0);
        dup2(fd, 1);
        dup2(fd, 2);
        setenv("PATH", path.c_str(), 1);
        std::vector<const char *> argv = {"sh", script.c_str()};
        for (const auto &a : args) argv.push_back(a.c_str());
        argv.push_back(nullptr);
        execv("/bin/sh", const_cast<char *const *>(argv.data()));
        _exit(127);
    }
    Outcome r;
    int status = 0;
    if (pid < 0 || waitpid(pid, &status, 0) < 0) {
        r.status = 127;
        r.output = "cannot start the checker";
        return r;
    }
    r.status = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    r.output = read_text(out);
    return r;
}

// The checker's complaint, indented below the file's line, at most twenty
// lines of it.
void print_complaint(const std::string &text) {
    std::stringstream in(text);
    std::vector<std::string> lines;
    for (std::string line; std::getline(in, line);)
        if (!line.empty()) lines.push_back(line);
    const size_t shown = std::min<size_t>(lines.size(), 20);
    for (size_t i = 0; i < shown; ++i) std::printf("      %s\n", lines[i].c_str());
    if (lines.size() > shown) std::printf("      ... (%zu more lines)\n", lines.size() - shown);
}

}  // namespace

CheckTotals check_files(const fs::path &scratch, const fs::path &shown_root,
                        const std::vector<std::string> &files) {
    CheckTotals totals;
    const std::string path = checker_path();
    const fs::path dir = checker_dir();
    const std::string work_dir = make_scratch_folder("ksdb-check-work");
    Preparer prep(scratch, shown_root, work_dir);
    std::map<std::string, Outcome> once;  // checks that cover several files
    auto line = [](const char *what, const std::string &file, const std::string &why) {
        const std::string note = why.empty() ? std::string() : " (" + why + ")";
        std::printf("  %-12s %s%s\n", what, file.c_str(), note.c_str());
    };

    for (const auto &rel : files) {
        const std::string live = "/" + rel;
        const std::string shown = prep.shown_path(rel);
        std::error_code ec;
        if (!fs::exists(prep.in_tree(live), ec)) {
            line("removed", shown, "");
            continue;
        }
        const Checker *c = checker_for(live);
        if (!c) {
            ++totals.not_checked;
            line("not checked", shown, "no checker for this file");
            continue;
        }
        if (std::string missing = missing_program(*c, path); !missing.empty()) {
            ++totals.not_checked;
            line("not checked", shown, missing + " is not installed");
            continue;
        }
        const fs::path script = dir / c->script;
        Outcome r;
        if (work_dir.empty() || dir.empty() || !fs::is_regular_file(script, ec)) {
            r = {127, "checker " + std::string(c->script) + " not found" +
                          (dir.empty() ? std::string() : " in " + dir.string())};
        } else if (c->prepare == Prepare::kAccountFiles) {
            if (!once.count(c->script)) {
                std::vector<std::string> args;
                for (const char *f : {"/etc/passwd", "/etc/shadow", "/etc/group", "/etc/gshadow"})
                    args.push_back(prep.in_tree(f).string());
                once[c->script] = run_wrapper(script, args, work_dir, path);
            }
            r = once[c->script];
        } else {
            std::vector<std::string> args = {c->prepare == Prepare::kAsIs
                                                 ? prep.in_tree(live).string()
                                                 : prep.copy(live, c->prepare)};
            if (c->extra) args.push_back(c->extra);
            r = run_wrapper(script, args, work_dir, path);
        }
        if (r.status == 0) {
            ++totals.passed;
            line("passed", shown, c->label);
        } else {
            ++totals.failed;
            line("failed", shown, c->label);
            print_complaint(prep.shown(r.output));
        }
    }
    if (!work_dir.empty()) {
        std::error_code ec;
        fs::remove_all(work_dir, ec);
    }
    return totals;
}

}  // namespace ksdb_tool
