// Running a program of the appliance without a shell, and keeping a
// user's private folder (such as ~/.ssh) without following links.  Both
// apply the handle's debug root the way the other file-system helpers do.
#pragma once

#include "core/ksdb_internal.h"

#include <sys/types.h>

#include <initializer_list>
#include <string>
#include <string_view>

namespace ksdb {

// Runs `program` with `args`, each quoted as one shell word, so every
// argument reaches the program exactly as given and no value is ever read
// by the shell.  At most `limit` bytes of its standard output land in *out
// (when out is not null); its standard error is dropped and its standard
// input is empty.  `program` is the path the program has on the appliance
// ("/sbin/mkhomedir_helper") or a bare name looked up on PATH ("passwd").
// With a debug root set, an absolute program path is replaced by its base
// name looked up on PATH: the harness that set the root puts its recording
// stand-ins first on PATH, so a debug-root run never changes the machine.
// Paths among the arguments are the caller's to put below the root.
// The program's exit status (0 success; 127 when there is no such
// program), 128 + a signal, or a negative errno when no shell could be
// started.
int run_program(const ksdb_handle *h, std::string_view program,
                std::initializer_list<std::string_view> args, std::string *out,
                size_t limit = 1024);

namespace fs {

// Makes sure the folder at a live path belongs to one user: made with
// `mode` when it is missing, then given to uid:gid and set to `mode`.  The
// folder is opened without following a symbolic link and changed through
// that descriptor, so a link or a file that someone put at its name is
// refused, never followed.  0, or the errno value of the failing call
// (ELOOP or ENOTDIR for a link or a file at the name).
int own_private_dir(const ksdb_handle *h, std::string_view live, uid_t uid, gid_t gid,
                    mode_t mode);

}  // namespace fs
}  // namespace ksdb
