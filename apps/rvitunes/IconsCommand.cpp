// rvitunes icons: fills the playlist icon dictionary the way a host does and lists it; with
// --render, writes a PNG preview of every icon.

#include <cstdio>
#include <fstream>
#include <string>
#include <vector>

#include "CommandLine.h"
#include "Commands.h"
#include "rvitunes/helper/FrameworkBundle.h"
#include "rvitunes/helper/IconImage.h"
#include "rvitunes/helper/RVITunesInfo.h"

namespace rvitunes::cli {

namespace {

constexpr const char* kIconsUsage =
    "usage: rvitunes icons [--render DIR]\n"
    "\n"
    "Loads the playlist icons from the framework's resource folder and lists the icon\n"
    "dictionary in load order: key, size in pixels and the file it was read from. The folder\n"
    "is $RVITUNES_RESOURCE_DIR when set, else the installed framework bundle, else the source\n"
    "tree's resources/icons (docs/icons.md).\n"
    "\n"
    "  --render DIR  also write each icon as DIR/<key>.png\n"
    "\n"
    "exit status: 0 success, 1 no icons found or a preview could not be written, 2 wrong usage.\n";

bool writeFile(const std::string& path, const std::vector<uint8_t>& bytes) {
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out.write(reinterpret_cast<const char*>(bytes.data()),
            static_cast<std::streamsize>(bytes.size()));
  return static_cast<bool>(out.flush());
}

}  // namespace

int runIcons(const std::vector<std::string>& args) {
  CommandLine cl({"--render"}, {"--help", "-h"});
  if (!cl.parse(args) || !cl.operands().empty()) {
    std::fprintf(stderr, "rvitunes icons: %s\n\n%s",
                 cl.error().empty() ? "unexpected operand" : cl.error().c_str(), kIconsUsage);
    return kExitUsage;
  }
  if (cl.has("--help") || cl.has("-h")) {
    std::fputs(kIconsUsage, stdout);
    return kExitOk;
  }
  const std::optional<std::string> renderDir = cl.value("--render");

  const plist::Ref<plist::Dictionary> icons = RVITunesInfo::playlistsDisplayIcons();
  std::printf("resource folder: %s\n", FrameworkBundle::resourceDirectory().c_str());
  if (!icons || icons->size() == 0) {
    std::fprintf(stderr,
                 "rvitunes icons: no icons found (the probe icon lumo-books.icns is "
                 "missing from the resource folder)\n");
    return kExitFailure;
  }

  int status = kExitOk;
  for (const plist::Dictionary::Entry& entry : *icons) {
    const std::string key(entry.key.stringView());
    const IconImage* icon = asIconImage(entry.value);
    if (icon == nullptr) {
      std::printf("%-28s (not an icon image)\n", key.c_str());
      continue;
    }
    const image::Image& img = *icon->image();
    std::printf("%-28s %4ux%-4u %s\n", key.c_str(), img.width(), img.height(),
                icon->source().c_str());
    if (renderDir) {
      const std::string path = *renderDir + "/" + key + ".png";
      Result<std::vector<uint8_t>> png = img.pngRepresentation();
      if (!png || !writeFile(path, *png)) {
        std::fprintf(stderr, "rvitunes icons: cannot write %s\n", path.c_str());
        status = kExitFailure;
      }
    }
  }
  std::printf("%zu icons\n", icons->size());
  return status;
}

}  // namespace rvitunes::cli
