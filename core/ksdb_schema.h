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

// Indexes the library's statements need beyond those of the creation list,
// NULL-terminated: every one CREATE INDEX IF NOT EXISTS on a stored or
// mirror table.  They change no result and leave the schema version where
// it is, so an older library still opens the database.  ksdb_create runs
// them after the creation list and the upgrade steps (an upgrade step that
// rebuilds a stored table drops its indexes), so a database made by an
// older library gets them on its next ksdb_create.
extern const char *const kIndexes[];

// True for the statements of the creation list that concern a scratch
// table: its DROP TABLE, its CREATE TEMPORARY TABLE and its indexes.
bool is_scratch_statement(const char *sql);

}  // namespace ksdb::schema
