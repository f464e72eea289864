// The configuration-file reader: loading (regular files only, bounded),
// line tokenizing and the INI form.
#define KSDB_MODULE "ksdb_conf_reader"
#include "util/ksdb_conf_reader.h"

#include "util/ksdb_raii.h"
#include "util/ksdb_string_utils.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <new>

namespace ksdb {

int read_conf_file(ksdb_handle *h, std::string_view live_path, std::string *text, bool *missing,
                   size_t limit) {
    *missing = false;
    text->clear();
    const std::string path = effective_path(h, live_path);
    // Opened without blocking, so a FIFO planted under the name cannot
    // stall the import, and judged on the open descriptor, so a file
    // swapped in after a check cannot slip through.
    Fd fd(::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
    if (!fd.ok()) {
        if (errno == ENOENT || errno == ENOTDIR) {
            *missing = true;
            KSDB_INFO(h, "Cannot stat <%s>\n", path.c_str());
        } else {
            KSDB_ERR(h, "Cannot open <%s> for read (%s)\n", path.c_str(), std::strerror(errno));
        }
        return KSDB_E_FILE;
    }
    struct stat st;
    if (fstat(fd.get(), &st) != 0) {
        KSDB_ERR(h, "Cannot stat <%s> (%s)\n", path.c_str(), std::strerror(errno));
        return KSDB_E_FILE;
    }
    if (!S_ISREG(st.st_mode)) {
        KSDB_ERR(h, "<%s> is not regular file. mode=%o\n", path.c_str(), st.st_mode);
        return KSDB_E_FILE;
    }
    if (static_cast<unsigned long long>(st.st_size) > limit) {
        KSDB_ERR(h, "<%s> is too large (%lld bytes, at most %zu are read)\n", path.c_str(),
                 static_cast<long long>(st.st_size), limit);
        return KSDB_E_FILE;
    }
    try {
        text->resize(static_cast<size_t>(st.st_size));
    } catch (const std::bad_alloc &) {
        KSDB_ERR(h, "Cannot allocate %lld bytes for <%s>\n", static_cast<long long>(st.st_size),
                 path.c_str());
        return KSDB_E_FILE;
    }
    size_t got = 0;
    while (got < text->size()) {
        ssize_t n = ::read(fd.get(), text->data() + got, text->size() - got);
        if (n < 0 && errno == EINTR) continue;
        if (n < 0) {
            KSDB_ERR(h, "Cannot read <%s> (%s)\n", path.c_str(), std::strerror(errno));
            text->clear();
            return KSDB_E_FILE;
        }
        if (n == 0) break;  // the file shrank while it was read
        got += static_cast<size_t>(n);
    }
    text->resize(got);
    // A text ends at its first NUL for every walker; trailing NULs are
    // dropped so they do not count as content.
    while (!text->empty() && text->back() == '\0') text->pop_back();
    return 0;
}

ConfFile::ConfFile(ksdb_handle *h, std::string_view live_path, size_t limit)
    : live_path_(live_path) {
    status_ = read_conf_file(h, live_path, &text_, &missing_, limit);
}

bool is_blank_or_comment(const char *line, const char *comment_chars) {
    while (*line == ' ' || *line == '\t' || *line == '\r') ++line;
    return *line == '\0' || std::strchr(comment_chars, *line) != nullptr;
}

std::optional<std::string_view> section_name(std::string_view line) {
    line = trim_blanks(line);
    if (line.size() < 2 || line.front() != '[' || line.back() != ']') return std::nullopt;
    return trim_blanks(line.substr(1, line.size() - 2));
}

bool split_key_value(std::string_view line, char sep, std::string_view *key,
                     std::string_view *value) {
    const size_t at = line.find(sep);
    if (at == std::string_view::npos) return false;
    *key = trim_blanks(line.substr(0, at));
    *value = trim_blanks(line.substr(at + 1));
    return true;
}

void KeyValues::set(std::string_view key, std::string_view value) {
    for (auto &item : items_) {
        if (item.first == key) {
            item.second.assign(value);
            return;
        }
    }
    items_.emplace_back(std::string(key), std::string(value));
}

const std::string *KeyValues::find(std::string_view key) const {
    for (const auto &item : items_)
        if (item.first == key) return &item.second;
    return nullptr;
}

const KeyValues *IniFile::section(std::string_view name) const {
    for (const auto &s : sections)
        if (s.first == name) return &s.second;
    return nullptr;
}

int read_ini(ksdb_handle *h, std::string_view live_path, IniFile *out, bool *missing) {
    ConfFile conf(h, live_path);
    if (missing) *missing = conf.missing();
    if (!conf.ok()) return conf.status();
    out->sections.clear();
    int rc = 0;
    int lineno = 0;
    conf.lines([&](char *line) {
        ++lineno;
        if (is_blank_or_comment(line, "#;")) return true;
        if (auto name = section_name(line)) {
            out->sections.emplace_back(std::string(*name), KeyValues{});
            return true;
        }
        std::string_view key, value;
        if (!split_key_value(line, '=', &key, &value) &&
            !split_key_value(line, ':', &key, &value)) {
            KSDB_ERR(h, "%s:%d: not a section, a key or a comment\n", conf.path().c_str(), lineno);
            rc = KSDB_E_FORMAT;
            return false;
        }
        if (out->sections.empty()) out->sections.emplace_back(std::string(), KeyValues{});
        out->sections.back().second.set(key, value);
        return true;
    });
    return rc;
}

}  // namespace ksdb
