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
#include <algorithm>
#include <new>

namespace ksdb {

ReadResult read_regular_file(const std::string &path, std::string *text, size_t limit,
                             size_t max_len) noexcept {
    ReadResult r;
    text->clear();
    auto fail = [&r](ReadError e) {
        r.error = e;
        r.err = errno;
        return r;
    };
    Fd fd(::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
    if (!fd.ok()) return fail(errno == ENOENT || errno == ENOTDIR ? ReadError::kMissing : ReadError::kOpen);
    struct stat st;
    if (fstat(fd.get(), &st) != 0) return fail(ReadError::kOpen);
    r.mode = st.st_mode;
    r.size = static_cast<long long>(st.st_size);
    if (!S_ISREG(st.st_mode)) return fail(ReadError::kNotRegular);
    size_t want = static_cast<size_t>(st.st_size);
    if (max_len != 0 && max_len < want) want = max_len;
    if (want > limit) {
        errno = EFBIG;
        return fail(ReadError::kTooLarge);
    }
    try {
        text->resize(want);
    } catch (...) {
        errno = ENOMEM;
        return fail(ReadError::kMemory);
    }
    size_t got = 0;
    while (got < want) {
        ssize_t n = ::read(fd.get(), text->data() + got, want - got);
        if (n < 0 && errno == EINTR) continue;
        if (n < 0) {
            text->clear();
            return fail(ReadError::kRead);
        }
        if (n == 0) break;  // the file shrank while it was read
        got += static_cast<size_t>(n);
    }
    text->resize(got);
    return r;
}

int read_conf_file(ksdb_handle *h, std::string_view live_path, std::string *text, bool *missing,
                   size_t limit, size_t max_len) {
    *missing = false;
    const std::string path = effective_path(h, live_path);
    const ReadResult r = read_regular_file(path, text, limit, max_len);
    switch (r.error) {
        case ReadError::kNone:
            // A text ends at its first NUL for every walker; trailing NULs
            // are dropped so they do not count as content.
            while (!text->empty() && text->back() == '\0') text->pop_back();
            return 0;
        case ReadError::kMissing:
            *missing = true;
            KSDB_INFO(h, "Cannot stat <%s>\n", path.c_str());
            break;
        case ReadError::kNotRegular:
            KSDB_ERR(h, "<%s> is not regular file. mode=%o\n", path.c_str(), r.mode);
            break;
        case ReadError::kTooLarge:
            KSDB_ERR(h, "<%s> is too large (%lld bytes, at most %zu are read)\n", path.c_str(),
                     r.size, limit);
            break;
        case ReadError::kMemory:
            KSDB_ERR(h, "Cannot allocate %lld bytes for <%s>\n", r.size, path.c_str());
            break;
        case ReadError::kOpen:
            KSDB_ERR(h, "Cannot open <%s> for read (%s)\n", path.c_str(), std::strerror(r.err));
            break;
        case ReadError::kRead:
            KSDB_ERR(h, "Cannot read <%s> (%s)\n", path.c_str(), std::strerror(r.err));
            break;
    }
    return KSDB_E_FILE;
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

// ---- the C INI reader ------------------------------------------------------------

namespace ksdb {
namespace {

// Copies at most max characters of src into dst (which holds max + 1).
void copy_bounded(char *dst, const char *src, size_t max) {
    size_t n = strnlen(src, max);
    std::memcpy(dst, src, n);
    dst[n] = '\0';
}

// Cuts an inline comment off an INI value: a ";" at the start of the value
// or after a blank.  A ";" inside a word ("a;b") is part of the value.
void cut_ini_comment(char *value) {
    for (char *p = value; *p; ++p) {
        if (*p == ';' && (p == value || p[-1] == ' ' || p[-1] == '\t')) {
            *p = '\0';
            return;
        }
    }
}

// Lines keep at most 4095 characters (the rest of a longer line is dropped,
// so line numbers stay those of the file).  Each line is blank-trimmed;
// empty lines and lines starting with "#" or ";" are skipped; "[name]"
// starts a section; any other line is name "=" value or, without "=",
// name ":" value.  Section and name keep at most 50 characters.
int parse_ini(const char *path, ini_handler handler, void *user) {
    constexpr size_t kLineMax = 4095;
    constexpr size_t kNameMax = 50;
    std::string text;
    if (!path || !read_regular_file(path, &text)) return -1;

    std::string line;
    char section[kNameMax + 1] = "";
    char name[kNameMax + 1] = "";
    int lineno = 0;
    int error = 0;
    auto fail = [&] {
        if (!error) error = lineno;
    };
    size_t pos = 0;
    while (pos < text.size()) {
        const size_t nl = text.find('\n', pos);
        const size_t end = nl == std::string::npos ? text.size() : nl;
        line.assign(text, pos, std::min(end - pos, kLineMax));
        pos = end + 1;
        ++lineno;
        char *start = ksdb_trim_blanks(line.data());
        if (!*start || *start == '#' || *start == ';') continue;

        if (*start == '[') {
            char *close = std::strchr(start + 1, ']');
            if (!close) {
                fail();
                continue;
            }
            *close = '\0';
            copy_bounded(section, start + 1, kNameMax);
            name[0] = '\0';
            continue;
        }

        char *sep = std::strchr(start, '=');
        if (!sep) sep = std::strchr(start, ':');
        if (!sep) {
            fail();
            continue;
        }
        *sep = '\0';
        copy_bounded(name, ksdb_trim_blanks(start), kNameMax);
        char *value = sep + 1;
        cut_ini_comment(value);
        value = ksdb_trim_blanks(value);
        if (!handler(user, section, name, value)) fail();
    }
    return error;
}

}  // namespace
}  // namespace ksdb

// The file is read with the readers' rules (a regular file of at most the
// read limit, taken at its path as given); the result is the number of the
// first line that broke the format or whose handler returned 0, 0 when
// there was none, and -1 when the file can't be read.
extern "C" int ini_parse_file(const char *path, ini_handler handler, void *user) {
    KSDB_ASSERT(handler);
    return ksdb::boundary_value(nullptr, KSDB_TAG, __func__, -1,
                                [&] { return ksdb::parse_ini(path, handler, user); });
}
