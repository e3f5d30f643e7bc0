// The library a soak run drives: written by our own generator (tracks in album folders, some
// with a cover picture beside them) or taken from a file, and read back as the answers every
// client expects from the player.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "rvitunes/base/Result.h"
#include "rvitunes/image/Image.h"

namespace rvitunes::soak {

struct GeneratorOptions {
  int tracks = 2000;
  int playlists = 60;  // the library playlist included
  uint64_t seed = 3;
};

// Writes "<folder>/iTunes Music Library.xml" and, under "<folder>/music", one folder per album
// whose tracks point into it. Every third album has a cover.png there and claims its artwork,
// the next one claims none, the next claims artwork it does not have (the framework then
// retries with a fresh controller). Track names carry a unique word ("t00042"), so a search for
// it has exactly one answer. Deterministic for equal options and folder. Answers the file's
// path.
Result<std::string> generateLibrary(const std::string& folder, const GeneratorOptions& options);

struct ExpectedTrack {
  int32_t id = 0;
  int64_t persistentId = 0;
  std::string name;
  std::string artist;
  std::string album;
  int32_t rating = 0;
  int32_t playCount = 0;
  int32_t artworkCount = 0;
  // The picture the player must answer for the first artwork; null when it has none to give.
  std::shared_ptr<const image::Image> cover;
};

struct ExpectedPlaylist {
  int64_t persistentId = 0;
  int64_t parentPersistentId = 0;  // 0 at the top
  std::string name;
  bool master = false;
  bool folder = false;
  bool special = false;           // a distinguished kind (Music, Movies, ...)
  std::vector<int32_t> trackIds;  // in the playlist's order
};

// What the player answers for a library file, as far as a client can know it in advance.
struct ExpectedLibrary {
  std::vector<ExpectedTrack> tracks;         // in the file's order
  std::vector<ExpectedPlaylist> playlists;   // in the file's order
  std::map<int32_t, size_t> trackIndexById;  // into tracks
  // Whether every track name is plain ASCII, so that a client can count the answers of a name
  // search itself.
  bool asciiNames = true;

  const ExpectedTrack* track(int32_t id) const;
  const ExpectedPlaylist* master() const;
};

// Reads `path` and answers what the player will say about it. A track's cover is the
// "cover.png" beside its file, when the track claims artwork and the file decodes.
Result<ExpectedLibrary> readExpectedLibrary(const std::string& path);

// The words of `text` the way the player splits a search (white space), each folded to lower
// case for ASCII letters only.
std::vector<std::string> asciiSearchWords(const std::string& text);

// Whether `name` holds every word of `words` (ASCII-insensitively).
bool nameMatchesWords(const std::string& name, const std::vector<std::string>& words);

}  // namespace rvitunes::soak
