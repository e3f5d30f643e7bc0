// CZTrackEnumerator: walks the tracks of one playlist, one request per track, by position.
//
// The number of tracks is the playlist's trackCount when the enumerator is made (a failed
// count gives an empty walk). The walk ends, silently and without moving on, at the first
// position whose request gets no reply or whose reply holds no track: allObjects then answers
// the tracks before it.
//
// Ownership: the enumerator shares the playlist; each track answered is new and the caller's.
// Threads: an enumerator belongs to the thread that uses it.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

namespace rvitunes {

class CZPlaylist;
class CZTrack;

class CZTrackEnumerator {
 public:
  // Counts the tracks of `playlist` (one request). A null playlist gives an empty walk.
  explicit CZTrackEnumerator(std::shared_ptr<CZPlaylist> playlist);
  ~CZTrackEnumerator();
  CZTrackEnumerator(const CZTrackEnumerator&) = delete;
  CZTrackEnumerator& operator=(const CZTrackEnumerator&) = delete;

  // The next track; nullptr when the walk is over or broke off.
  std::shared_ptr<CZTrack> nextObject();
  // Every track nextObject answers from here on, until it answers nullptr.
  std::vector<std::shared_ptr<CZTrack>> allObjects();

  const std::shared_ptr<CZPlaylist>& playlist() const { return playlist_; }
  int32_t count() const { return count_; }
  int32_t seq() const { return seq_; }

 private:
  std::shared_ptr<CZPlaylist> playlist_;
  int32_t count_ = 0;
  int32_t seq_ = 0;
};

}  // namespace rvitunes
