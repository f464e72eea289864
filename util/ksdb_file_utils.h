// Internal side of the managed-file layer: the one writer every file the
// library writes goes through, the file mover, and the share folders.
#pragma once

#include "core/ksdb_internal.h"
#include "util/ksdb_conf_reader.h"
#include "util/ksdb_raii.h"

#include <deque>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace ksdb {

// Moves a file, across file systems too: 0, or the negative codes of the
// mover (-1 no source, -ENOENT, -11 .. -17, -ESRCH).  Kept for callers of
// the mover itself; the writer never moves a file across file systems.
int _copy_file(const char *source, const char *destination);

// The one writer.  Puts `content` at `target` (a real path: the debug root
// already applied) so that the name always holds a whole file, old or new,
// even across a kill or a power cut:
//   1. the target is compared first: the same content with the right owner
//      and mode writes nothing (the target keeps its inode and times); the
//      same content with another owner or mode has them set in place;
//   2. otherwise the content goes to ".<name>.ksdb-XXXXXX" in the target's
//      own folder, made exclusively with mode 0600 without following a
//      link, locked while it is written, written whole, given its owner and
//      mode, and flushed to disk;
//   3. an existing regular target is kept as "<name>.bak" by a hard link
//      (a copy where links are impossible), made before the rename;
//   4. one rename puts the file in place, and the folder is flushed;
//   5. temporary files of the same target whose writer died (their lock is
//      free) are removed.
// A symbolic link at the target, at the .bak name or at a temporary name is
// never followed: the link itself is replaced or skipped.  A missing folder
// is made (mode 0755).  spec.uid, spec.gid or spec.mode -1 keep what the
// existing file has (a new file: the process's owner, mode 0644); spec.path
// is not used.  0, or KSDB_E_FILE after one error line naming the target,
// with the target as it was.  *outcome receives KSDB_FILE_*.  The calling
// thread's observer sees the commit.
int write_file(ksdb_handle *h, const std::string &target, const ksdb_file_spec &spec,
               std::string_view content, int *outcome = nullptr);

// Defers, while it lives, the flush of the folder that write_file does
// after each rename on the calling thread: every folder that received a
// file is flushed once, at flush() or when the batch ends, and the
// temporary files that died writers left there are swept then, with one
// scan of the folder.  Each file is still whole under its name at every
// moment (one rename, after the file itself is on disk); only the moment
// the new names are on disk moves to the end of the batch.  An export that
// writes many files into few folders (four per share configuration folder)
// saves one flush per file: on a journalling file system the flush of the
// next file carries the renames before it.  A batch opened while another
// is open on the thread does nothing: the outer one flushes.
class FolderSyncBatch {
  public:
    explicit FolderSyncBatch(ksdb_handle *h);
    ~FolderSyncBatch();
    FolderSyncBatch(const FolderSyncBatch &) = delete;
    FolderSyncBatch &operator=(const FolderSyncBatch &) = delete;

    // Flushes every folder noted: 0, or KSDB_E_FILE after an error line
    // naming a folder that could not be flushed (the files are in place).
    int flush();
    // A file was put in place in `dir` (renamed) or found unchanged there;
    // `prefix` names its temporary files.  Called by write_file.
    void note(const std::string &dir, const std::string &prefix, bool renamed);

  private:
    struct Folder {
        std::string dir;
        std::set<std::string> prefixes;
        bool renamed;
    };
    ksdb_handle *h_;
    bool active_ = false;
    std::vector<Folder> folders_;
    std::unordered_map<std::string, size_t> index_;
};

// One managed file of an export.  Its content is kept in memory until
// commit(), so an exporter may hold any number of them without a file
// descriptor each, check every value first and commit them all at the end.
// Nothing reaches the disk on any other path (an early return, an
// abandoned export): the target keeps its content.
//
//     ksdb::ManagedFile out(h, "/etc/exports");
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

    // False only when the memory buffer could not be made; commit() then
    // gives KSDB_E_FILE.
    bool ok() const { return fp_ != nullptr; }
    // The buffer as a stream, for writers that take a FILE * (templates).
    FILE *fp() const { return fp_; }
    const ksdb_file_spec &spec() const { return spec_; }
    const std::string &path() const { return path_; }

    void printf(const char *format, ...) KSDB_PRINTF(2, 3);
    void write(std::string_view text);

    // Puts the content in place with write_file (below the debug root): 0,
    // or KSDB_E_FILE (the buffer could not be written, or the writer
    // failed; the target is kept).  Committing again gives the first
    // result; nothing is written twice.
    int commit();
    // Drops the content; the target keeps its own.
    void abandon();
    // KSDB_FILE_* after a commit.
    int outcome() const { return outcome_; }

  private:
    enum class State { kOpen, kCommitted, kAbandoned };

    ksdb_handle *h_;
    std::string path_;
    ksdb_file_spec spec_;
    FILE *fp_ = nullptr;
    char *buf_ = nullptr;
    size_t size_ = 0;
    State state_ = State::kOpen;
    int result_ = 0;
    int outcome_ = KSDB_FILE_UNCHANGED;
};

// The managed files of one export, committed together at its end: every
// value is checked while the files are filled, and nothing is written when
// a check fails (the set is dropped, or abandon() called).
//
//     ksdb::ManagedFileSet files(h);
//     ksdb::ManagedFile &exports = files.add("/etc/exports");
//     for (each share) { if (int rc = guard_value(...)) return rc; files.add(spec).printf(...); }
//     return files.commit();
class ManagedFileSet {
  public:
    explicit ManagedFileSet(ksdb_handle *h) : h_(h) {}
    ManagedFileSet(const ManagedFileSet &) = delete;
    ManagedFileSet &operator=(const ManagedFileSet &) = delete;

    // A new file of the set; the reference stays valid for the set's life.
    ManagedFile &add(const ksdb_file_spec &spec) { return files_.emplace_back(h_, spec); }
    ManagedFile &add(const char *live_path) { return files_.emplace_back(h_, live_path); }
    size_t size() const { return files_.size(); }

    // Commits the files in the order they were added.  The first failure
    // stops the commit: the files after it are abandoned (those before it
    // stay committed) and KSDB_E_FILE is returned.
    int commit();
    // Drops every file not committed yet.
    void abandon();

  private:
    ksdb_handle *h_;
    std::deque<ManagedFile> files_;
};

// Loads a whole file like ksdb_file_load (regular files only, the size
// limit, the trailing-NUL rule) into scratch memory instead of the caller's
// result pool, so an importer that reads its files on every run does not
// grow the pool.  nullopt where ksdb_file_load gives null.
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
// Six letters from the installed source.
void draw_temp_letters(char letters[6]);

// "/<volume>/._share/<share>": a share's configuration folder (live path).
std::string share_conf_dir(std::string_view volume, std::string_view share);

// The subvolume names in the output of "btrfs subvolume list": the text
// after "path " of each "ID n gen n top level n path NAME" line, blanks
// inside the name kept; other lines are skipped.
std::vector<std::string> parse_subvolume_list(std::string_view output);

}  // namespace ksdb
