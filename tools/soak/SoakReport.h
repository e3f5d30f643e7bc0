// What a soak client found, kind by kind, written as a small text file by the client and read
// back by the coordinator.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "rvitunes/base/Result.h"

namespace rvitunes::soak {

// The kinds of work a client thread does.
enum class Kind : size_t {
  kTrack,        // a track by persistent ID: name, artist, IDs, rating, play count
  kPlaylist,     // a playlist by persistent ID: name, ID, size, one track by position
  kSearch,       // a name search in the library playlist
  kWrite,        // rating and play count of a track this thread owns, written and read back
  kArtwork,      // a track item's artwork, under the process-wide artwork lock
  kCache,        // a new shared controller and playlist cache, and its tree
  kApplication,  // the player's version, playlist count, volume, state
  kCount
};
inline constexpr size_t kKindCount = static_cast<size_t>(Kind::kCount);

std::string_view kindName(Kind kind);

struct KindStats {
  uint64_t operations = 0;
  uint64_t checked = 0;     // answers compared with what the library file says
  uint64_t mismatches = 0;  // an answer that differs: a reply meant for another request, or wrong
  uint64_t errors = 0;      // no answer and no time-out: an error the framework hid
  uint64_t timeouts = 0;    // operations in which a request timed out

  KindStats& operator+=(const KindStats& other);
};

// The last rating and play count a thread wrote to a track (and read back).
struct WriteRecord {
  int32_t trackId = 0;
  int32_t rating = 0;
  int32_t playCount = 0;
};

struct ClientReport {
  std::array<KindStats, kKindCount> kinds{};
  uint64_t timeouts = 0;              // requests that timed out (lines logged by the framework)
  uint64_t lateReplies = 0;           // replies that came after their sender stopped waiting
  std::vector<std::string> problems;  // the first few, described
  std::vector<WriteRecord> writes;
  bool complete = false;  // the client reached its end and wrote everything

  Status writeFile(const std::string& path) const;
  static Result<ClientReport> readFile(const std::string& path);
};

}  // namespace rvitunes::soak
