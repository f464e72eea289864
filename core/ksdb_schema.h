// The schema lists: the creation list of every table of the catalogue and
// the upgrade steps from each older version.
#pragma once

namespace ksdb::schema {

constexpr long kVersion = 23;

// Every statement of the creation list, in catalogue order, NULL-terminated.
extern const char *const kCreation[];

// kUpgrades[n] takes a database from version n - 1 to n (NULL-terminated
// lists); kUpgrades[0] is empty and never used.
extern const char *const *const kUpgrades[kVersion + 1];

// True for the statements of the creation list that concern a scratch
// table: its DROP TABLE, its CREATE TEMPORARY TABLE and its indexes.
bool is_scratch_statement(const char *sql);

}  // namespace ksdb::schema
