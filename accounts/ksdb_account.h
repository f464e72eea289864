// What the account modules share: the local users and groups
// (ksdb_account.cpp), the account settings files (ksdb_account_settings.cpp)
// and the SSH key modules.
#pragma once

#include "core/ksdb_area.h"

#include <cstdlib>
#include <functional>
#include <initializer_list>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace ksdb::account {

constexpr char kPasswd[] = "/etc/passwd";

// The fields of a line at `delim`, empty ones kept; the last of at most
// `max` fields runs to the end of the line.
std::vector<std::string_view> fields(std::string_view line, char delim, size_t max);

// Lines of the passwd and group files that hold no entry.
inline bool skipped_entry_line(const char *line) {
    return !*line || *line == '#' || *line == '$';
}

// The joined domain as the samba settings record it, the empty name when
// the appliance stands alone: 0, or 3 when the query fails.
int domain_name(ksdb_handle *h, sqlite3 *db, std::string *name);

// 1 when the query gives a row, 0 when none, -1 when it fails (after
// logging `failed`).
int row_exists(ksdb_handle *h, sqlite3 *db, const char *failed, const SqlStr &sql);

// A number column or setting as C reads it: leading digits, 0 for none.
inline long long number(const char *text) { return text ? std::strtoll(text, nullptr, 10) : 0; }

// "key!!value" of the appliance's settings files (a trailing carriage
// return dropped); false for other lines.
bool setting(std::string_view line, std::string_view *key, std::string_view *value);

// One value of a row and the rule of its place in a file.
struct Field {
    const char *column;
    const char *value;
    const ValueRule &rule;
};
// 0 when every value may stand at its place; else the first refusal (4).
int guard_row(ksdb_handle *h, const char *table, std::string_view row,
              std::initializer_list<Field> values);

// Fills a temporary file for each (live path, text) pair, runs `between`,
// then puts the files in place in the given order, so that a file naming
// an account is replaced only after the file holding its secret.  Nothing
// is replaced when a temporary file cannot be made or `between` fails.
// 0, between's status, or 5 ("Cannot open temporary file", "Cannot move
// file to").
int write_files(ksdb_handle *h,
                std::initializer_list<std::pair<const char *, const std::string *>> files,
                const std::function<int()> &between = [] { return 0; });

// 0 when a user's home folder may stand in a file and have paths built
// below it: an absolute path with no "." or ".." component and nothing a
// passwd field or a line could not hold.  Otherwise logs the refusal line
// naming the user and gives KSDB_E_INVAL.
int guard_home(ksdb_handle *h, const char *home, std::string_view user);

// The account settings (ksdb_account_settings.cpp).
// The account defaults and password-recovery steps of the account import.
int import_settings(ksdb_handle *h, sqlite3 *db);
// Refuses (4) a value of the password-recovery or home-folder settings
// that would break its file, writing nothing.
int check_settings(ksdb_handle *h, sqlite3 *db);
// The home-folder settings file, the last step of the account export.
int export_hf_settings(ksdb_handle *h, sqlite3 *db);

}  // namespace ksdb::account
