// Internal side of the string helpers: std::string forms of the escapers,
// for modules that build text in scratch strings rather than in a pool.
// The exported C functions are thin wrappers over these, so both give the
// same bytes.
#pragma once

#include "core/ksdb_internal.h"

#include <string>
#include <string_view>

namespace ksdb {

// The characters escape_for_shell() puts a backslash in front of.
extern const char kShellSpecials[];

// Each character of kShellSpecials preceded by a backslash.
std::string escape_shell(std::string_view s);

// Percent-encoding of every byte outside the unreserved set
// A-Z a-z 0-9 "-" "." "_" "~" and "/" ("/" stays so that a path keeps its
// shape); hexadecimal digits are upper case.
std::string escape_url(std::string_view s);
// "%XX" with two hexadecimal digits becomes that byte; a "%" not followed by
// two hexadecimal digits is kept as it is.
std::string unescape_url(std::string_view s);

// "&", "<", ">", '"' and "'" as the entities "&amp;", "&lt;", "&gt;",
// "&quot;", "&apos;".
std::string escape_xml(std::string_view s);
// The reverse; an "&" that starts none of the five entities is kept.
std::string unescape_xml(std::string_view s);

// A share path as Samba expects it: backslashes become "/", runs of "/"
// collapse to one, and a trailing "/" is dropped unless the path is "/".
std::string normalize_smb_path(std::string_view s);

// `s` without leading and trailing blanks (" \t\r\n").
std::string_view trim_blanks(std::string_view s);

}  // namespace ksdb
