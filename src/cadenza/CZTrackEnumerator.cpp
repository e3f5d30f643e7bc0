// Walking the tracks of a playlist by position.
#include "rvitunes/cadenza/CZTrackEnumerator.h"

#include <algorithm>
#include <utility>

#include "rvitunes/ae/AECodes.h"
#include "rvitunes/cadenza/CZPlaylist.h"
#include "rvitunes/cadenza/CZTrack.h"

namespace rvitunes {

namespace {

// Objects a walk makes room for before they arrive.
constexpr int32_t kMostReservedAhead = 4096;

}  // namespace

CZTrackEnumerator::CZTrackEnumerator(std::shared_ptr<CZPlaylist> playlist)
    : playlist_(std::move(playlist)) {
  const int32_t count = playlist_ ? playlist_->trackCount() : 0;
  count_ = count > 0 ? count : 0;
}

CZTrackEnumerator::~CZTrackEnumerator() = default;

std::shared_ptr<CZTrack> CZTrackEnumerator::nextObject() {
  if (seq_ >= count_) return nullptr;
  const CZAppleEventObject::Reply reply =
      playlist_->getElementOfClassAtIndex(fourCharCode("cTrk"), seq_);
  if (!reply) return nullptr;
  ae::Descriptor specifier;
  // A reply without a track ends the walk here, silently.
  if (reply->getParamDesc(ae::keyDirectObject, ae::typeWildCard, &specifier) != noErr) {
    return nullptr;
  }
  ++seq_;
  return std::make_shared<CZTrack>(std::move(specifier));
}

std::vector<std::shared_ptr<CZTrack>> CZTrackEnumerator::allObjects() {
  std::vector<std::shared_ptr<CZTrack>> all;
  // The count is the player's word, not objects in hand: room for only so many is taken ahead.
  if (count_ > seq_) all.reserve(static_cast<size_t>(std::min(count_ - seq_, kMostReservedAhead)));
  while (std::shared_ptr<CZTrack> track = nextObject())
    all.push_back(std::move(track));
  return all;
}

}  // namespace rvitunes
