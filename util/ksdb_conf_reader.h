// The configuration-file reader every importer is built on: loading a file
// (regular files only, with a size limit, below the debug root), walking
// its lines, and taking a line apart into a section name or a key and a
// value.  The INI reader is built on the same pieces.
//
//     ksdb::ConfFile conf(h, "/etc/default/services");
//     if (conf.missing()) return 0;             // not every file must exist
//     if (!conf.ok()) return conf.status();     // 5: not a regular file, too large, unreadable
//     conf.lines([&](char *line) { ...; return true; });
#pragma once

#include "core/ksdb_internal.h"

#include <sys/types.h>

#include <cstring>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace ksdb {

// The largest file an importer reads (a passwd file of 100,000 accounts is
// about 6 MiB).  Larger files are refused with status 5, never allocated.
constexpr size_t kConfFileLimit = KSDB_FILE_READ_LIMIT;

// Walks a NUL-terminated text line by line, in place: every newline is
// replaced by NUL and fn(line) is called with the line (without its
// newline, leading blanks kept).  fn returns false to stop.
template <class Fn>
void for_each_line(char *text, Fn &&fn) {
    char *p = text;
    while (p && *p) {
        char *nl = std::strchr(p, '\n');
        if (nl) *nl = '\0';
        if (!fn(p)) return;
        p = nl ? nl + 1 : nullptr;
    }
}

// Like for_each_line, for files in which a line may continue on the next:
// a newline preceded by a backslash (with only blanks between) joins the
// next line, the backslash, the blanks and the newline becoming one blank.
// fn(line, following) also receives the text that follows the (joined)
// line in the file, not yet touched, or nullptr after the last line.
template <class Fn>
void for_each_joined_line(char *text, Fn &&fn) {
    char *p = text;
    while (p && *p) {
        char *w = p;  // the joined line is written over its own text
        char *r = p;
        char *next;
        for (;;) {
            char *nl = std::strchr(r, '\n');
            char *end = nl ? nl : r + std::strlen(r);
            char *b = end;
            while (b > r && (b[-1] == ' ' || b[-1] == '\t')) --b;
            const bool joined = nl && b > r && b[-1] == '\\';
            const size_t n = static_cast<size_t>((joined ? b - 1 : end) - r);
            std::memmove(w, r, n);
            w += n;
            if (!joined) {
                next = nl ? nl + 1 : nullptr;
                break;
            }
            *w++ = ' ';
            r = nl + 1;
        }
        *w = '\0';
        if (!fn(p, static_cast<const char *>(next))) return;
        p = next;
    }
}

// Why a file could not be read (read_regular_file).
enum class ReadError {
    kNone,
    kMissing,     // nothing at the path (or a path component is not a folder)
    kOpen,        // open(2) failed otherwise (permissions, a symbolic-link loop ...)
    kNotRegular,  // a FIFO, a device, a socket or a folder
    kTooLarge,    // more bytes to read than the limit
    kMemory,      // no memory for the text
    kRead,        // read(2) failed
};

struct ReadResult {
    ReadError error = ReadError::kNone;
    int err = 0;         // errno of the failing call
    mode_t mode = 0;     // the file's mode (kNotRegular)
    long long size = 0;  // the file's size (kTooLarge)
    explicit operator bool() const { return error == ReadError::kNone; }
};

// The one way the library reads a file, at a real path (the debug root
// already applied), logging nothing.  The file is opened without blocking
// (a FIFO planted under the name cannot stall the reader) and judged on the
// open descriptor (a file swapped in after a check cannot slip through):
// only a regular file is read.  At most `max_len` bytes are read when it is
// non-zero; more than `limit` bytes to read refuse the file.  Symbolic
// links are followed: readers read what the administrator points them to.
// Never throws.
ReadResult read_regular_file(const std::string &path, std::string *text,
                             size_t limit = kConfFileLimit, size_t max_len = 0) noexcept;

// One configuration file, read whole into scratch memory.
class ConfFile {
  public:
    // Reads the file at a live path (the handle's debug root applied).  A
    // missing file is logged at info level, anything else that keeps the
    // file from being read at error level, naming the path.
    ConfFile(ksdb_handle *h, std::string_view live_path, size_t limit = kConfFileLimit);

    bool ok() const { return status_ == 0; }
    // True when there is no file at the path (nothing else went wrong).
    bool missing() const { return missing_; }
    // 0 when the file was read; KSDB_E_FILE when it is missing, not a
    // regular file (FIFO, device, directory), larger than the limit, or
    // could not be read.
    int status() const { return status_; }
    const std::string &path() const { return live_path_; }

    std::string &text() { return text_; }
    char *data() { return text_.data(); }

    template <class Fn>
    void lines(Fn &&fn) {
        for_each_line(text_.data(), std::forward<Fn>(fn));
    }
    template <class Fn>
    void joined_lines(Fn &&fn) {
        for_each_joined_line(text_.data(), std::forward<Fn>(fn));
    }

  private:
    std::string live_path_;
    std::string text_;
    int status_ = KSDB_E_FILE;
    bool missing_ = false;
};

// Reads a file into `text` with the rules of ConfFile: 0, or KSDB_E_FILE
// (with *missing set when the file does not exist).  At most `max_len`
// bytes are read when it is non-zero.  Trailing NUL bytes are dropped.
int read_conf_file(ksdb_handle *h, std::string_view live_path, std::string *text, bool *missing,
                   size_t limit = kConfFileLimit, size_t max_len = 0);

// ---- taking a line apart ------------------------------------------------------

// True for a line that holds nothing: empty, blanks only, or a comment
// starting (after blanks) with one of `comment_chars`.
bool is_blank_or_comment(const char *line, const char *comment_chars = "#");

// "[name]" (blanks around allowed): the name, trimmed; nullopt for any
// other line.  An unclosed "[" is not a section line.
std::optional<std::string_view> section_name(std::string_view line);

// Splits a line at the first `sep`: key and value, both trimmed of blanks.
// False when the line has no `sep`.
bool split_key_value(std::string_view line, char sep, std::string_view *key,
                     std::string_view *value);

// The key/value pairs of one section in file order; a key given twice
// keeps its first place and its last value.
class KeyValues {
  public:
    void set(std::string_view key, std::string_view value);
    // The value of a key (compared exactly), or nullptr.
    const std::string *find(std::string_view key) const;
    const std::vector<std::pair<std::string, std::string>> &items() const { return items_; }
    bool empty() const { return items_.empty(); }

  private:
    std::vector<std::pair<std::string, std::string>> items_;
};

// An INI file as sections of key/value pairs, in file order.  Lines are
// "[section]", "key = value" (or "key: value"), comments beginning with "#"
// or ";"; keys before the first section belong to the section "".
struct IniFile {
    std::vector<std::pair<std::string, KeyValues>> sections;
    // The section of that name, or nullptr.
    const KeyValues *section(std::string_view name) const;
};

// Reads an INI file at a live path with ConfFile's rules: 0, or
// KSDB_E_FILE (missing: *missing set), or KSDB_E_FORMAT for a line that is
// neither a section, a key, a comment nor blank (the line is logged).
int read_ini(ksdb_handle *h, std::string_view live_path, IniFile *out, bool *missing = nullptr);

}  // namespace ksdb
