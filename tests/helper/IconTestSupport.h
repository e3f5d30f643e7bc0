// Copies of the framework's icon folder for the icon tests, and a clean icon dictionary.
#pragma once

#include <stdlib.h>

#include <filesystem>
#include <initializer_list>
#include <optional>
#include <string>
#include <string_view>

#include "TestSupport.h"
#include "rvitunes/helper/FrameworkBundle.h"
#include "rvitunes/helper/RVITunesIcons.h"

namespace rvitunes::testing {

// The icons of the source tree, which the build tree's programs use.
inline std::string sourceIconFolder() {
  return std::string(RVITUNES_SOURCE_DIR) + "/resources/icons";
}

// Copies every icon of the source tree into `folder`, except the files named in `leaveOut`
// ("lumo-books.icns").
inline void copyIcons(const ScratchFolder& folder,
                      std::initializer_list<std::string_view> leaveOut = {}) {
  for (const auto& entry : std::filesystem::directory_iterator(sourceIconFolder())) {
    const std::string name = entry.path().filename().string();
    bool skip = false;
    for (std::string_view out : leaveOut)
      skip = skip || name == out;
    if (!skip) std::filesystem::copy_file(entry.path(), folder / name);
  }
}

// Unsets an environment variable for the life of the object.
class ScopedUnsetEnv {
 public:
  explicit ScopedUnsetEnv(const char* name) : name_(name) {
    if (const char* old = getenv(name)) old_ = old;
    unsetenv(name);
  }
  ~ScopedUnsetEnv() {
    if (old_) setenv(name_, old_->c_str(), 1);
  }
  ScopedUnsetEnv(const ScopedUnsetEnv&) = delete;
  ScopedUnsetEnv& operator=(const ScopedUnsetEnv&) = delete;

 private:
  const char* name_;
  std::optional<std::string> old_;
};

// Empties the process-wide icon slot before and after a test, so that each test sees a first
// fill.
class ResetIcons {
 public:
  ResetIcons() { setRVITunesIcons(nullptr); }
  ~ResetIcons() { setRVITunesIcons(nullptr); }
  ResetIcons(const ResetIcons&) = delete;
  ResetIcons& operator=(const ResetIcons&) = delete;
};

}  // namespace rvitunes::testing
