// The daemons' own checkers run over the files an export would change.
//
// Each file is matched by its live path against one table (checks.cpp) that
// names the checker wrapper to run, the programs it needs and how the file
// is prepared: include lines and exported folders that exist in the scratch
// tree are pointed there, so the checker reads the new files together.  The
// wrappers are shell scripts kept in tests/validators and installed with the
// command (<libexecdir>/ksdb/checkers); $KSDB_CHECKERS_DIR overrides where
// they are looked for.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace ksdb_tool {

struct CheckTotals {
    int passed = 0;
    int failed = 0;
    int not_checked = 0;
};

// Checks each of `files` (relative paths) as the scratch tree holds them,
// printing one line per file ("passed", "failed" with the checker's
// complaint, "not checked" with the reason, "removed"); paths are shown
// below `shown_root`, the debug root or "/".
CheckTotals check_files(const std::filesystem::path &scratch,
                        const std::filesystem::path &shown_root,
                        const std::vector<std::string> &files);

}  // namespace ksdb_tool
