#include "rvitunes/helper/RVITunesInfo.h"

#include <chrono>
#include <utility>

#include "rvitunes/helper/RVITunesIcons.h"
#include "rvitunes/plist/PropertyList.h"

namespace rvitunes {

void RVITunesInfo::initializeLocalIcons() {
  // Nothing to do: the icon dictionary is filled only when the host asks for it
  // (playlistsDisplayIcons, before it builds its lists), so it is left as it stands.
}

RVITunesInfo::RVITunesInfo(const std::optional<std::string>& path,
                           const plist::ReadOptions& options) {
  if (!RVITunesIcons()) initializeLocalIcons();
  if (!path) {
    loadResult_.error = plist::Diagnostic{0, "no library file given"};
    return;
  }
  loadResult_.path = *path;
  auto start = std::chrono::steady_clock::now();
  plist::ParseResult parsed = plist::PropertyList::readFile(*path, options);
  loadResult_.seconds =
      std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  loadResult_.format = parsed.format;
  loadResult_.warnings = std::move(parsed.warnings);
  if (!parsed.ok()) {
    loadResult_.error = std::move(parsed.error);
    return;
  }
  if (!parsed.root.isDictionary()) {
    // Like the platform's dictionary-from-file reader: any other root reads as nothing.
    loadResult_.error = plist::Diagnostic{0, "the root of the property list is " +
                                                 std::string(plist::typeName(parsed.root.type())) +
                                                 ", not a dictionary"};
    return;
  }
  library_ = parsed.root.dictionaryRef();
}

std::shared_ptr<RVITunesInfo> RVITunesInfo::infoWithLibrary(plist::Ref<plist::Dictionary> library) {
  if (!RVITunesIcons()) initializeLocalIcons();
  std::shared_ptr<RVITunesInfo> info(new RVITunesInfo());
  info->library_ = std::move(library);
  if (!info->library_) info->loadResult_.error = plist::Diagnostic{0, "no library given"};
  return info;
}

}  // namespace rvitunes
