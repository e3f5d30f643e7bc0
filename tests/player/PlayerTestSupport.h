// Scratch folders, sample libraries and a scripted file system for the player tests.
#pragma once

#include <stdlib.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <string_view>

namespace rvitunes::player::testing {

// The sample library of the source tree.
inline std::string sampleLibraryPath() {
  return std::string(RVITUNES_SOURCE_DIR) + "/examples/library/iTunes Music Library.xml";
}

// A fresh folder under $TMPDIR, removed with its contents when the object goes.
class ScratchFolder {
 public:
  ScratchFolder() {
    std::string pattern = (std::filesystem::temp_directory_path() / "rvitunes-player.XXXXXX");
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

inline std::string readWhole(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream out;
  out << in.rdbuf();
  return out.str();
}

// Copies the sample library into `folder`; answers the copy's path.
inline std::string copySampleLibrary(const ScratchFolder& folder) {
  return folder.write("iTunes Music Library.xml", readWhole(sampleLibraryPath()));
}

// Generates a library with the shared generator into `folder`; "" when the generator or
// python3 is not there.
inline std::string generateLibrary(const ScratchFolder& folder, int tracks, int playlists) {
  const std::string script = "/work/shared/bench/gen_library.py";
  if (!std::filesystem::exists(script)) return "";
  const std::string out = folder / "generated.xml";
  const std::string command = "python3 '" + script + "' --tracks " + std::to_string(tracks) +
                              " --playlists " + std::to_string(playlists) + " --out '" + out +
                              "' > /dev/null 2>&1";
  if (std::system(command.c_str()) != 0 || !std::filesystem::exists(out)) return "";
  return out;
}

}  // namespace rvitunes::player::testing
