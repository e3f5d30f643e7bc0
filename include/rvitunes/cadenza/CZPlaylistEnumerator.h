// CZPlaylistEnumerator: walks the player's playlists one request at a time, by position.
//
// The number of elements is read once, when the enumerator is made (a failed count gives an
// empty walk); playlists added or removed in the player during a walk shift the positions.
// Each nextObject asks the controller for the element at the next position and wraps the
// specifier of the reply. A reply without a specifier is written to the system log ("Unable
// to exec getParamDesc: %d") and still wrapped, as a playlist without a specifier, so that the
// walk goes on to the end; only a request that gets no reply at all ends the walk early, and so
// does a run of kMostMissingInARow replies without a specifier: a player that claims two billion
// playlists and then has none would otherwise keep the caller walking (and allocating) for hours.
//
// Ownership: each playlist answered is new and the caller's. Threads: an enumerator belongs to
// the thread that uses it; it is not safe to share one between threads.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "rvitunes/base/FourCharCode.h"

namespace rvitunes {

class CZPlaylist;

class CZPlaylistEnumerator {
 public:
  // Counts the player's playlists ('cPly') through the shared controller.
  CZPlaylistEnumerator();
  virtual ~CZPlaylistEnumerator();
  CZPlaylistEnumerator(const CZPlaylistEnumerator&) = delete;
  CZPlaylistEnumerator& operator=(const CZPlaylistEnumerator&) = delete;

  // The next playlist; nullptr when the walk is over or no reply came (the position stays).
  virtual std::shared_ptr<CZPlaylist> nextObject();
  // Every playlist nextObject answers from here on, until it answers nullptr.
  std::vector<std::shared_ptr<CZPlaylist>> allObjects();
  // The element class walked: 'cPly'.
  virtual OSType appleEventClass() const;

  // The number of elements counted when the enumerator was made (0 when the count failed),
  // and the 0-based position of the next one.
  int32_t count() const { return count_; }
  int32_t seq() const { return seq_; }

 protected:
  // Counts the elements of `elementClass`, which must be what appleEventClass() answers.
  explicit CZPlaylistEnumerator(OSType elementClass);

 public:
  static constexpr int32_t kMostMissingInARow = 64;

 private:
  int32_t count_ = 0;
  int32_t seq_ = 0;
  int32_t missingInARow_ = 0;
};

}  // namespace rvitunes
