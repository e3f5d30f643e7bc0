// The file-system seam: every file access of the system goes through a FileSystem, so that
// tests can substitute one that fails at a chosen step.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "rvitunes/base/Date.h"
#include "rvitunes/base/Result.h"

namespace rvitunes {

// File operations by path and by descriptor. Failures are Status values whose code comes from
// osStatusForErrno and whose message names the path and the system's reason. Paths holding a
// NUL byte are refused (fnfErr, or false / nullopt) rather than silently truncated.
// Implementations must be thread-safe; defaultFileSystem() is.
class FileSystem {
 public:
  // A freshly created file: its open descriptor (write-only) and its path.
  struct TemporaryFile {
    int fd = -1;
    std::string path;
  };

  virtual ~FileSystem() = default;

  // The whole content of the file at `path`, following symbolic links. memFullErr when it holds
  // more than `maxBytes` (checked before reading and again while reading, for files that grow
  // or report no size), fnfErr when it does not exist, otherwise the errno mapping (ioErr for a
  // directory).
  virtual Result<std::string> readFile(const std::string& path, uint64_t maxBytes) = 0;

  // True when something exists at `path`, following symbolic links (a dangling link does not
  // count); directories and special files count.
  virtual bool fileExists(const std::string& path) = 0;
  // True when `path` is a directory or a symbolic link to one.
  virtual bool isDirectory(const std::string& path) = 0;
  // The last modification time of `path` itself: a final symbolic link is not followed, so a
  // link answers its own time. nullopt when nothing is there.
  virtual std::optional<Date> modificationDate(const std::string& path) = 0;
  // The permission bits (mode & 07777) of `path`, following links; nullopt when it is missing.
  virtual std::optional<uint32_t> permissions(const std::string& path) = 0;

  // Creates a new file `dir`/`prefix`XXXXXX with a unique random suffix, exclusively, and opens
  // it for writing. With `mode` the file gets exactly those permission bits; without, the usual
  // 0666 less the process umask. The caller owns the descriptor (release it with closeFile).
  virtual Result<TemporaryFile> createTemporary(const std::string& dir, const std::string& prefix,
                                                std::optional<uint32_t> mode) = 0;
  // Writes all of `bytes`, continuing after short writes and EINTR.
  virtual Status writeAll(int fd, std::string_view bytes) = 0;
  // Flushes the file's data and metadata to the device (fsync).
  virtual Status syncFile(int fd) = 0;
  // Closes `fd`. The descriptor is released even when an error is reported.
  virtual Status closeFile(int fd) = 0;
  // Renames `from` to `to` atomically, replacing a file at `to`.
  virtual Status rename(const std::string& from, const std::string& to) = 0;
  // Removes a file (not a directory).
  virtual Status removeFile(const std::string& path) = 0;
  // Flushes the directory entry list of `dir`, making a rename in it durable. File systems that
  // cannot sync a directory, and a directory the caller may not open for reading (a write-only
  // folder), count as success: the rename is in place and cannot be made more durable by us.
  virtual Status syncDirectory(const std::string& dir) = 0;
  // Creates `path` and any missing parents with permission bits `mode` (less the umask).
  // Success when it already is a directory; an error when it or a parent is something else.
  virtual Status makeDirectories(const std::string& path, uint32_t mode) = 0;

  // The POSIX implementation, shared by the whole process. Never destroyed.
  static FileSystem& defaultFileSystem();
};

// The platform error for an errno value: ENOSPC and EDQUOT give dskFulErr; EACCES, EPERM and
// EROFS give wrPermErr; ENOENT gives fnfErr; 0 gives noErr; everything else ioErr.
OSStatus osStatusForErrno(int error);

// Replaces the file at `path` with `bytes` so that a reader sees either the old content or the
// new one, never a mixture, even after a crash: writes a temporary file in the same directory,
// flushes and closes it, renames it over `path` and flushes the directory, all through `fs`.
// The new file keeps the permission bits of the one it replaces (a new file gets 0666 less the
// umask); a symbolic link at `path` is replaced by a regular file, not followed. On a failure
// before the rename the temporary is removed and the previous file is untouched; a failure of
// the final directory flush is reported although the new content is already in place. Error
// messages name `path` and the failing step.
Status writeFileAtomically(FileSystem& fs, const std::string& path, std::string_view bytes);

}  // namespace rvitunes
