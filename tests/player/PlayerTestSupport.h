// Scratch folders, sample libraries and a scripted file system for the player tests.
#pragma once

#include <stdlib.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <string_view>

#include "support/ScratchFolder.h"

namespace rvitunes::player::testing {

// The sample library of the source tree.
inline std::string sampleLibraryPath() {
  return std::string(RVITUNES_SOURCE_DIR) + "/examples/library/iTunes Music Library.xml";
}

// Scratch folders of this suite carry its name.
class ScratchFolder : public rvitunes::testing::support::ScratchFolder {
 public:
  ScratchFolder() : rvitunes::testing::support::ScratchFolder("rvitunes-player") {}
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
