// Small file helpers of the ksdb command.
#pragma once

#include <filesystem>
#include <set>
#include <string>

namespace ksdb_tool {

// True when both files exist and hold the same bytes.
bool same_content(const std::filesystem::path &a, const std::filesystem::path &b);

// Copies a tree, keeping symbolic links as links; a missing source is
// skipped.
void copy_tree(const std::filesystem::path &from, const std::filesystem::path &to);

// Every regular file below `dir`, relative to it.
std::set<std::string> files_below(const std::filesystem::path &dir);

// The whole content of a file ("" when it cannot be read).
std::string read_text(const std::filesystem::path &file);

// Makes a new folder /tmp/PREFIX-XXXXXX; "" with the error printed when it
// cannot.
std::string make_scratch_folder(const char *prefix);

}  // namespace ksdb_tool
