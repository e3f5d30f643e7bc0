// Walking the player's playlists by position.
#include "rvitunes/cadenza/CZPlaylistEnumerator.h"

#include <utility>

#include "rvitunes/ae/AECodes.h"
#include "rvitunes/base/Log.h"
#include "rvitunes/cadenza/CZPlaylist.h"
#include "rvitunes/cadenza/Cadenza.h"

namespace rvitunes {

namespace {

constexpr OSType kPlaylistClass = fourCharCode("cPly");

int32_t countOf(OSType elementClass) {
  const int32_t count = Cadenza::sharedInstance()->getCountOfElementsOfClass(elementClass);
  return count > 0 ? count : 0;
}

}  // namespace

CZPlaylistEnumerator::CZPlaylistEnumerator() : CZPlaylistEnumerator(kPlaylistClass) {}

CZPlaylistEnumerator::CZPlaylistEnumerator(OSType elementClass) : count_(countOf(elementClass)) {}

CZPlaylistEnumerator::~CZPlaylistEnumerator() = default;

OSType CZPlaylistEnumerator::appleEventClass() const {
  return kPlaylistClass;
}

std::shared_ptr<CZPlaylist> CZPlaylistEnumerator::nextObject() {
  if (seq_ >= count_) return nullptr;
  const CZAppleEventObject::Reply reply =
      Cadenza::sharedInstance()->getElementOfClassAtIndex(appleEventClass(), seq_);
  if (!reply) return nullptr;
  ae::Descriptor specifier;
  const OSStatus status = reply->getParamDesc(ae::keyDirectObject, ae::typeWildCard, &specifier);
  // A reply without a specifier is noted and wrapped all the same: the walk goes on.
  if (status != noErr) SystemLog("Unable to exec getParamDesc: %d", status);
  ++seq_;
  return std::make_shared<CZPlaylist>(std::move(specifier));
}

std::vector<std::shared_ptr<CZPlaylist>> CZPlaylistEnumerator::allObjects() {
  std::vector<std::shared_ptr<CZPlaylist>> all;
  if (count_ > seq_) all.reserve(static_cast<size_t>(count_ - seq_));
  while (std::shared_ptr<CZPlaylist> playlist = nextObject())
    all.push_back(std::move(playlist));
  return all;
}

}  // namespace rvitunes
