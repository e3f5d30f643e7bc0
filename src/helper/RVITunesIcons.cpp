#include "rvitunes/helper/RVITunesIcons.h"

#include <mutex>
#include <utility>

namespace rvitunes {

namespace {

struct IconSlot {
  std::mutex mutex;
  plist::Ref<plist::Dictionary> icons;
};

IconSlot& slot() {
  static IconSlot s;
  return s;
}

}  // namespace

plist::Ref<plist::Dictionary> RVITunesIcons() {
  IconSlot& s = slot();
  std::lock_guard<std::mutex> lock(s.mutex);
  return s.icons;
}

void setRVITunesIcons(plist::Ref<plist::Dictionary> icons) {
  IconSlot& s = slot();
  plist::Ref<plist::Dictionary> previous;
  {
    std::lock_guard<std::mutex> lock(s.mutex);
    previous = std::exchange(s.icons, std::move(icons));
  }
  // `previous` is released here, outside the lock: dropping the last reference to a large
  // dictionary of images should not hold up readers.
}

}  // namespace rvitunes
