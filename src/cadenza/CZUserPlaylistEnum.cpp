// Walking the player's ordinary playlists.
#include "rvitunes/cadenza/CZUserPlaylistEnum.h"

#include "rvitunes/cadenza/CZPlaylist.h"

namespace rvitunes {

namespace {

constexpr OSType kUserPlaylistClass = fourCharCode("cUsP");
constexpr OSType kOrdinaryKind = fourCharCode("kSpN");

}  // namespace

CZUserPlaylistEnumerator::CZUserPlaylistEnumerator() : CZPlaylistEnumerator(kUserPlaylistClass) {}

CZUserPlaylistEnumerator::~CZUserPlaylistEnumerator() = default;

OSType CZUserPlaylistEnumerator::appleEventClass() const {
  return kUserPlaylistClass;
}

std::shared_ptr<CZPlaylist> CZUserPlaylistEnumerator::nextObject() {
  std::shared_ptr<CZPlaylist> playlist;
  do {
    playlist = CZPlaylistEnumerator::nextObject();
  } while (playlist && playlist->specialKind() != kOrdinaryKind);
  return playlist;
}

}  // namespace rvitunes
