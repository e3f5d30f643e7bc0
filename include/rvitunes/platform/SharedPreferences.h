// Read-only access to another application's preferences, such as the "com.apple.iApps" domain
// that lists the recent iTunes libraries. Looked up, in order, in
// $HOME/Library/Preferences/<domain>.plist (binary or XML, as macOS writes it) and
// ${XDG_CONFIG_HOME:-$HOME/.config}/rvitunes/<domain>.plist (the folder of
// UserDefaults::defaultDirectory()). The environment is read on every call. Thread-safe (no
// shared state).
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "rvitunes/base/FileSystem.h"
#include "rvitunes/plist/Value.h"

namespace rvitunes::platform {

class SharedPreferences {
 public:
  // Files larger than this are passed over unread.
  static constexpr uint64_t kMaxFileBytes = uint64_t{16} << 20;

  // The files consulted for `domain`, in order; empty when the domain is not a plain file name
  // (empty, ".", "..", or holding '/' or a NUL byte).
  static std::vector<std::string> candidatePaths(std::string_view domain);
  // The value of `key` in the first of those files that holds it, or nil (missing files,
  // unreadable files and files whose root is not a dictionary are passed over). The value is
  // the caller's own: nothing else holds it.
  static plist::Value copyAppValue(std::string_view key, std::string_view domain,
                                   FileSystem& fs = FileSystem::defaultFileSystem());
};

}  // namespace rvitunes::platform
