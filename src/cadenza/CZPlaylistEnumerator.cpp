// Walking the player's playlists by position.
#include "rvitunes/cadenza/CZPlaylistEnumerator.h"

#include <algorithm>
#include <utility>

#include "rvitunes/ae/AECodes.h"
#include "rvitunes/base/Log.h"
#include "rvitunes/cadenza/CZPlaylist.h"
#include "rvitunes/cadenza/Cadenza.h"

namespace rvitunes {

namespace {

constexpr OSType kPlaylistClass = fourCharCode("cPly");
// Objects a walk makes room for before they arrive.
constexpr int32_t kMostReservedAhead = 4096;

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
  if (seq_ >= count_ || missingInARow_ >= kMostMissingInARow) return nullptr;
  const CZAppleEventObject::Reply reply =
      Cadenza::sharedInstance()->getElementOfClassAtIndex(appleEventClass(), seq_);
  if (!reply) return nullptr;
  ae::Descriptor specifier;
  const OSStatus status = reply->getParamDesc(ae::keyDirectObject, ae::typeWildCard, &specifier);
  // A reply without a specifier is noted and wrapped all the same: the walk goes on.
  if (status != noErr) SystemLog("Unable to exec getParamDesc: %d", status);
  missingInARow_ = status != noErr ? missingInARow_ + 1 : 0;
  ++seq_;
  return std::make_shared<CZPlaylist>(std::move(specifier));
}

std::vector<std::shared_ptr<CZPlaylist>> CZPlaylistEnumerator::allObjects() {
  std::vector<std::shared_ptr<CZPlaylist>> all;
  // The count is the player's word, not objects in hand: room for only so many is taken ahead.
  if (count_ > seq_) all.reserve(static_cast<size_t>(std::min(count_ - seq_, kMostReservedAhead)));
  while (std::shared_ptr<CZPlaylist> playlist = nextObject())
    all.push_back(std::move(playlist));
  return all;
}

}  // namespace rvitunes
