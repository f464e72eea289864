// What the two SSH key modules share: the key-file parser, fingerprints,
// the rules of a key line and the key limit.
#pragma once

#include "core/ksdb_area.h"

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace ksdb::ssh {

// At most this many keys are imported into either key table.
constexpr int kMaxKeys = 256;

struct Key {
    std::optional<std::string> command;  // of a leading command="..." option
    std::string type;
    std::string key;
    std::optional<std::string> comment;
    std::string fingerprint;
};

// The keys of a key file at a live path: OpenSSH lines, or one key in
// RFC4716, PEM or PKCS8 form converted by ssh-keygen.  0, 5 (the file
// cannot be read or converted), 8 or 9 (no fingerprint).
int parse_key_file(ksdb_handle *h, const std::string &live, std::vector<Key> *keys);

// The MD5 digest of the decoded key in colon form ("2a:a6:..."): 0, 8 when
// the digest command cannot be started, 9 when it gives nothing.
int fingerprint(ksdb_handle *h, const std::string &key, std::string *out);

// Refuses (4, nothing written) a key row whose type or key is not one word
// of a key line, or whose comment would start another line.
int guard_key_line(ksdb_handle *h, const char *table, std::string_view row, const char *type,
                   const char *key, const char *comment);

// Logs that the key limit was reached.
void log_overflow(ksdb_handle *h);

}  // namespace ksdb::ssh
