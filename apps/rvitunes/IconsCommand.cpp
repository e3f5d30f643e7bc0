// rvitunes icons: fills the playlist icon dictionary the way a host does and lists it; with
// --save, writes a PNG preview of every icon.

#include <cstdio>
#include <fstream>
#include <string>
#include <vector>

#include "CommandLine.h"
#include "Commands.h"
#include "JsonOut.h"
#include "rvitunes/helper/FrameworkBundle.h"
#include "rvitunes/helper/IconImage.h"
#include "rvitunes/helper/RVITunesInfo.h"

namespace rvitunes::cli {

namespace {

constexpr const char* kIconsUsage =
    "usage: rvitunes icons [--save DIR] [--json]\n"
    "\n"
    "Loads the playlist icons from the framework's resource folder and lists the icon\n"
    "dictionary in load order: key, size in pixels and the file it was read from. The folder\n"
    "is $RVITUNES_RESOURCE_DIR when set, else the installed framework bundle, else the source\n"
    "tree's resources/icons (docs/icons.md).\n"
    "\n"
    "  --save DIR    also write each icon as DIR/<key>.png (--render DIR: the same)\n"
    "  --json        one object {\"resourceFolder\", \"icons\"}, each icon as {\"key\",\n"
    "                \"width\", \"height\", \"source\"} (and \"saved\", its PNG, with --save)\n"
    "  -h, --help    show this help\n"
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
  CommandLine cl({"--save", "--render"}, {"--json", "--help", "-h"});
  if (!cl.parse(args)) return reportUsageError("icons", cl.error());
  if (wantsHelp(cl)) return showUsage(kIconsUsage);
  if (!cl.operands().empty()) {
    return reportUsageError("icons", "unexpected operand \"" + cl.operands()[0] + "\"");
  }
  if (cl.has("--save") && cl.has("--render")) {
    return reportUsageError("icons", "--render is another name of --save; give one of them");
  }
  const std::optional<std::string> saveDir =
      cl.has("--save") ? cl.value("--save") : cl.value("--render");
  const bool asJson = cl.has("--json");

  const plist::Ref<plist::Dictionary> icons = RVITunesInfo::playlistsDisplayIcons();
  const std::string folder = FrameworkBundle::resourceDirectory();
  if (!icons || icons->size() == 0) {
    return reportFailure(
        "icons", "no icons found in " + folder + " (the probe icon lumo-books.icns is missing)");
  }

  int status = kExitOk;
  JsonOut json;
  json.beginObject().field("resourceFolder", folder).key("icons").beginArray();
  if (!asJson) std::printf("resource folder: %s\n", folder.c_str());
  for (const plist::Dictionary::Entry& entry : *icons) {
    const std::string key(entry.key.stringView());
    const IconImage* icon = asIconImage(entry.value);
    if (icon == nullptr) {
      // Not ours to draw: a host may keep other things in the dictionary.
      if (asJson) {
        json.beginObject().field("key", key).nullField("width").nullField("height");
        json.nullField("source").endObject();
      } else {
        std::printf("%-28s (not an icon image)\n", key.c_str());
      }
      continue;
    }
    const image::Image& img = *icon->image();
    std::optional<std::string> saved;
    if (saveDir) {
      const std::string path = *saveDir + "/" + key + ".png";
      Result<std::vector<uint8_t>> png = img.pngRepresentation();
      if (png && writeFile(path, *png)) {
        saved = path;
      } else {
        status = reportFailure("icons", "cannot write " + path);
      }
    }
    if (asJson) {
      json.beginObject().field("key", key).integerField("width", img.width());
      json.integerField("height", img.height()).field("source", icon->source());
      if (saveDir) json.field("saved", saved);
      json.endObject();
    } else {
      std::printf("%-28s %4ux%-4u %s\n", key.c_str(), img.width(), img.height(),
                  icon->source().c_str());
    }
  }
  if (asJson) {
    json.endArray().endObject().print();
  } else {
    std::printf("%zu icons\n", icons->size());
  }
  return status;
}

}  // namespace rvitunes::cli
