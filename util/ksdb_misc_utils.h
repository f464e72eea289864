// Internal side of the command and template helpers.
#pragma once

#include "core/ksdb_internal.h"
#include "util/ksdb_raii.h"

#include <string>
#include <string_view>

namespace ksdb {

// `value` as one shell word: wrapped in single quotes, each single quote
// written as '\''.  Every command line that carries a value taken from a
// file or the database goes through this, so a name like "a;touch x" or
// "$(id)" reaches the program as one argument and runs nothing.
std::string shell_quote(std::string_view value);


}  // namespace ksdb
