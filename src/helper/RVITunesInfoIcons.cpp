// The icon dictionary of the playlist list: filled once, from the framework bundle's icon
// files, by the first playlistsDisplayIcons call.

#include <filesystem>
#include <memory>
#include <mutex>

#include "rvitunes/helper/FrameworkBundle.h"
#include "rvitunes/helper/IconImage.h"
#include "rvitunes/helper/PlaylistIconChoice.h"
#include "rvitunes/helper/RVITunesIcons.h"
#include "rvitunes/helper/RVITunesInfo.h"
#include "rvitunes/image/Image.h"

namespace rvitunes {
namespace {

constexpr std::string_view kIconType = "icns";

// Icon files are small; anything near these bounds is not one of ours.
image::DecodeLimits iconLimits() {
  image::DecodeLimits limits;
  limits.maxDimension = 1024;
  limits.maxPixelBytes = uint64_t{1024} * 1024 * 4;
  return limits;
}

// Loads one icon into `icons` under its key; a missing or unreadable file leaves the key out.
void loadIcon(plist::Dictionary& icons, std::string_view base, bool dark) {
  std::optional<std::string> path =
      FrameworkBundle::pathForResource(playlistIconResourceName(base, dark), kIconType);
  if (!path) return;
  Result<image::Image> loaded = image::Image::fromFile(*path, iconLimits());
  if (!loaded) return;
  icons.set(playlistIconKey(base, dark),
            IconImage::makeValue(std::make_shared<const image::Image>(std::move(*loaded)), *path));
}

}  // namespace

plist::Ref<plist::Dictionary> RVITunesInfo::playlistsDisplayIcons(const void* /*sender*/) {
  // Callers after the first wait for its fill instead of meeting half a dictionary.
  static std::mutex fillMutex;
  std::lock_guard<std::mutex> lock(fillMutex);
  if (plist::Ref<plist::Dictionary> existing = RVITunesIcons()) return existing;

  // Published before anything is loaded: a failed look-up leaves this empty dictionary for
  // every later call.
  plist::Ref<plist::Dictionary> icons = plist::Dictionary::create();
  setRVITunesIcons(icons);

  const std::string_view probe = playlistIconBaseNames().front();
  std::optional<std::string> probePath =
      FrameworkBundle::pathForResource(playlistIconResourceName(probe, false), kIconType);
  if (!probePath) {
    // A miss is looked up once more before giving up.
    probePath = FrameworkBundle::pathForResource(playlistIconResourceName(probe, false), kIconType);
    if (!probePath) return icons;
  }
  std::error_code ignored;
  if (!std::filesystem::exists(*probePath, ignored)) return icons;

  // Readers of RVITunesIcons() do not wait for this fill, and a dictionary must not be read
  // while it changes: the icons go into a dictionary of their own, published once complete.
  plist::Ref<plist::Dictionary> loaded = plist::Dictionary::create();
  for (std::string_view base : playlistIconBaseNames()) {
    loadIcon(*loaded, base, true);
    loadIcon(*loaded, base, false);
  }
  setRVITunesIcons(loaded);
  return loaded;
}

}  // namespace rvitunes
