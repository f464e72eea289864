// Internal side of the CIFS share area: the steps the other share areas
// reuse.
#pragma once

#include "core/ksdb_internal.h"

namespace ksdb {

// Gives each cloud user (a `$user` whose primary group is 97 or 98, other
// than "admin" and "ftp") an entry in user_acl for the share and protocol
// with the rights of the share's default access word: "readonly" read
// only, "writeable" read and write, "disabled" (or any other word) no
// access.  Entries already there are kept as they are.  0, or -1 when the
// user list cannot be read or an entry cannot be written.
int _ksdb_cifs_grant_cloud_users(ksdb_handle *h, sqlite3 *db, int share_id, const char *proto,
                                 const char *access);

}  // namespace ksdb
