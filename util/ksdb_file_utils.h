// Internal side of the managed-file layer: the file mover and the writer
// every exporter uses to produce a managed file.
#pragma once

#include "core/ksdb_internal.h"
#include "util/ksdb_conf_reader.h"
#include "util/ksdb_raii.h"

#include <optional>
#include <string>
#include <string_view>

namespace ksdb {

// Moves a file, across file systems too: 0, or the negative codes of the
// mover (-1 no source, -ENOENT, -11 .. -17, -ESRCH).
int _copy_file(const char *source, const char *destination);

// Writes one managed file.  The constructor opens the temporary file; the
// new content replaces the target only through commit().  On every other
// path (an early return, an abandoned export) the destructor closes and
// removes the temporary file, so no exporter can leak or half-commit a file.
//
//     ksdb::ManagedFile out(h, "/etc/exports");
//     if (!out.ok()) { ...log...; return KSDB_E_FILE; }
//     out.printf("...");
//     if (int rc = out.commit()) return rc;
class ManagedFile {
  public:
    ManagedFile(ksdb_handle *h, const ksdb_file_spec &spec);
    // The spec comes from the managed file table (ksdb_file_spec_lookup).
    ManagedFile(ksdb_handle *h, const char *live_path);
    ~ManagedFile();
    ManagedFile(const ManagedFile &) = delete;
    ManagedFile &operator=(const ManagedFile &) = delete;

    bool ok() const { return fp_ != nullptr; }
    FILE *fp() const { return fp_; }
    const char *tmp_path() const { return tmp_path_.c_str(); }
    const ksdb_file_spec &spec() const { return spec_; }

    void printf(const char *format, ...) KSDB_PRINTF(2, 3);
    void write(std::string_view text);

    // Closes the temporary file and puts it in place with ksdb_file_update:
    // that call's status, or KSDB_E_FILE when the temporary file could not
    // be written completely (it is then removed and the target kept).  The
    // content is flushed to disk first; a temporary file left behind by a
    // failed update is removed as well.
    int commit();
    // Closes and removes the temporary file; the target keeps its content.
    void abandon();

  private:
    void open();

    ksdb_handle *h_;
    std::string path_;
    ksdb_file_spec spec_;
    FILE *fp_ = nullptr;
    std::string tmp_path_;
    bool owns_tmp_ = false;  // the temporary file is ours to remove
};

// Loads a whole file like ksdb_file_load (the same checks, messages and
// trailing-NUL rule) into scratch memory instead of the caller's result
// pool, so an importer that reads its files on every run does not grow the
// pool.  nullopt where ksdb_file_load gives null.
std::optional<std::string> load_file(ksdb_handle *h, const char *path, size_t max_len = 0);

// The folder work of ksdb_share_conf_spec (the volume's ._share subvolume
// and the share's folder are made when missing) with the file's live path,
// "/<volume>/._share/<share>/<name>.conf", in scratch memory: 0, or -1 as
// ksdb_share_conf_spec.
int share_conf_path(ksdb_handle *h, const char *volume, const char *share, const char *name,
                    std::string *path);

// Where the six random letters of a temporary file's name come from.  The
// default draws them from the kernel's random source; tests install a
// scripted source to plant files under the names that will be tried.
// Returns the previous source; nullptr restores the default.
using TempLetters = void (*)(char letters[6]);
TempLetters set_temp_letters(TempLetters source);

// "/<volume>/._share/<share>": a share's configuration folder (live path).
std::string share_conf_dir(std::string_view volume, std::string_view share);

// The shell command ksdb_foreach_share_subvolume reads: one line
// "V=<volume>,S=<subvolume>" per subvolume of every volume that has a
// ._share folder (below the handle's debug root when it has one).
std::string share_subvolume_command(const ksdb_handle *h);

}  // namespace ksdb
