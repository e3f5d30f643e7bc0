// The host's own settings: one property-list file per domain under the XDG configuration folder
// (${XDG_CONFIG_HOME:-$HOME/.config}/rvitunes/<domain>.plist), XML, replaced atomically on every
// change so that a crash or a full disk never loses the settings already there. A file that does
// not read as a property list (or whose root is not a dictionary) is reported, renamed aside
// (<file>.corrupt-<unix time>, with "-N" added when that name is taken) and replaced only by the
// next change; it is never silently overwritten.
//
// A domain must be a plain file name: empty, ".", "..", or a name holding '/' or a NUL byte is
// refused (reads answer nil, changes answer paramErr).
//
// Several processes may share one domain: each read notices a changed file by its modification
// time (a file changed within the last two seconds is read again regardless, since two changes
// inside one tick of the file-system clock can share a time), and each change is applied to the
// file's current content. Two processes changing the same file at the same moment: the last
// rename wins.
//
// Thread safety: all operations lock the instance; instances for one domain share nothing, so
// one process should keep one instance per domain (standardUserDefaults does).
#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>

#include "rvitunes/base/FileSystem.h"
#include "rvitunes/base/Result.h"
#include "rvitunes/plist/Value.h"

namespace rvitunes::platform {

class UserDefaults {
 public:
  // A settings file larger than this is treated as corrupt.
  static constexpr uint64_t kMaxFileBytes = uint64_t{16} << 20;

  // `directory` holds the domain's file and is created (0700) by the first change when it is
  // missing; `fs` is the I/O seam (tests inject faults) and must outlive the instance. Nothing
  // is read until the first call.
  UserDefaults(std::string domain, std::string directory,
               FileSystem& fs = FileSystem::defaultFileSystem());

  // The process-wide instance of the host's domain: the name set with setStandardDomain, else
  // the executable's file name (from /proc/self/exe; "rvitunes" when that cannot be read), in
  // defaultDirectory(). Domain and directory are looked at on every call, and the instance is
  // made anew when either has changed; callers that keep the pointer keep the old instance.
  // Thread-safe.
  static std::shared_ptr<UserDefaults> standardUserDefaults();
  // Chooses the host's domain for standardUserDefaults() calls after it; "" returns to the
  // executable's name. Thread-safe.
  static void setStandardDomain(std::string domain);
  // ${XDG_CONFIG_HOME:-$HOME/.config}/rvitunes as the environment says now. An XDG_CONFIG_HOME
  // that is empty or relative is ignored, as the XDG rules say; without HOME the user's home
  // folder comes from the password database.
  static std::string defaultDirectory();

  const std::string& domain() const { return domain_; }
  // The file that holds the settings: <directory>/<domain>.plist.
  std::string path() const;

  // The value under `key`, nil when absent. The file is read on first use and again whenever
  // it changes, so a second process's writes are seen. Containers are answered as copies:
  // changing them does not change the settings.
  plist::Value objectForKey(std::string_view key);
  // The string under `key`; nullopt when absent or not a string.
  std::optional<std::string> stringForKey(std::string_view key);

  // Sets (or with a nil value removes) `key` and writes the file; the value is copied. Fails
  // with paramErr for values a property list cannot hold (nil inside a container, host
  // objects), with the file-system error when the write fails, and with the read error when
  // the present file cannot be read or a corrupt one could not be moved aside (so it is never
  // overwritten). On failure the file on disk is unchanged and so is the value in memory; the
  // one exception is a failed flush of the directory after the new file is already in place,
  // which is reported while later reads see the new value. Removing an absent key writes
  // nothing and succeeds. There is no separate synchronize step and nothing is kept back to
  // retry: a change is on disk when the call succeeds, and after a failure (a full disk, a
  // read-only folder) the caller makes it again, which succeeds once the fault has passed. A
  // writer killed mid-change leaves the previous file whole, and at most a hidden temporary
  // beside it (".<domain>.plist.XXXXXX"), which later reads and changes ignore.
  Status setObjectForKey(plist::Value value, std::string_view key);
  Status setStringForKey(std::string_view value, std::string_view key);
  Status removeObjectForKey(std::string_view key);

  // What went wrong when the file was last read (a corrupt file and where it was moved, or an
  // unreadable one), or nullopt when it read cleanly or did not exist.
  std::optional<std::string> lastLoadProblem() const;

 private:
  void loadIfChanged();  // caller holds mutex_
  // Moves the corrupt file (judged by its content as of `stamp`) aside; caller holds mutex_.
  void setAside(const std::string& reason, std::optional<Date> stamp);

  const std::string domain_;
  const std::string directory_;
  const bool usable_;  // the domain is a plain file name
  FileSystem& fs_;
  mutable std::mutex mutex_;
  plist::Value values_;  // a dictionary once loaded
  std::optional<Date> loadedDate_;
  Date loadedAt_;  // when values_ was last read from (or written to) the file
  bool loaded_ = false;
  std::optional<std::string> loadProblem_;
  std::optional<Status> writeBlock_;  // why the file must not be replaced now
};

}  // namespace rvitunes::platform
