// Test scaffolding shared by the suites.
#pragma once

#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <string_view>
#include <system_error>

namespace rvitunes::testing::support {

// A fresh folder under $TMPDIR, removed with its contents when the object goes.
class ScratchFolder {
 public:
  // The folder's name starts with `prefix`, so a leftover tells which suite made it.
  explicit ScratchFolder(std::string_view prefix = "rvitunes") {
    std::string pattern =
        (std::filesystem::temp_directory_path() / (std::string(prefix) + ".XXXXXX"));
    if (mkdtemp(pattern.data()) != nullptr) path_ = pattern;
  }
  ~ScratchFolder() {
    std::error_code ignored;
    if (!path_.empty()) std::filesystem::remove_all(path_, ignored);
  }
  ScratchFolder(const ScratchFolder&) = delete;
  ScratchFolder& operator=(const ScratchFolder&) = delete;

  const std::string& path() const { return path_; }
  std::string operator/(std::string_view relative) const {
    return path_ + "/" + std::string(relative);
  }
  // Writes `content` to `relative`, making the folders on the way; answers the full path.
  std::string write(std::string_view relative, std::string_view content = "x") const {
    std::string full = *this / relative;
    std::filesystem::create_directories(std::filesystem::path(full).parent_path());
    std::ofstream(full, std::ios::binary) << content;
    return full;
  }

 private:
  std::string path_;
};

}  // namespace rvitunes::testing::support
