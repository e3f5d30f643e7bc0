// CZUserPlaylistEnumerator: walks the player's user playlists ('cUsP') and answers only the
// ordinary ones (special kind 'kSpN'): folders and special playlists are passed over, each
// costing its element request and a kind request. The count is that of all user playlists,
// folders included. Ownership and threads as for CZPlaylistEnumerator.
#pragma once

#include <memory>

#include "rvitunes/cadenza/CZPlaylistEnumerator.h"

namespace rvitunes {

class CZUserPlaylistEnumerator : public CZPlaylistEnumerator {
 public:
  // Counts the player's user playlists through the shared controller.
  CZUserPlaylistEnumerator();
  ~CZUserPlaylistEnumerator() override;

  // The next ordinary playlist; nullptr when the walk is over or broke off.
  std::shared_ptr<CZPlaylist> nextObject() override;
  // 'cUsP'.
  OSType appleEventClass() const override;
};

}  // namespace rvitunes
