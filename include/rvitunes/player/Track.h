// One track of the library: its identity and its record in the library file's "Tracks"
// dictionary, which holds every value of the track (the record is the truth; the accessors
// read it). Changes go through Library, which keeps the record and the model together.
//
// Owned by its Library; a Track never moves while the Library lives. Read from the event
// thread (see Library).
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "rvitunes/base/Date.h"
#include "rvitunes/player/Artwork.h"
#include "rvitunes/player/PlayerCodes.h"
#include "rvitunes/plist/Dictionary.h"

namespace rvitunes::player {

class Library;

class Track {
 public:
  Track(DatabaseId id, PersistentId persistentId, plist::Ref<plist::Dictionary> record);

  // "Track ID".
  DatabaseId id() const { return id_; }
  // "Persistent ID" (a new random one when the file had none).
  PersistentId persistentId() const { return persistentId_; }
  // 'cURT' for "Track Type" "URL" (and "Remote"), 'cFlT' otherwise.
  OSType classCode() const;
  // True when this track is of `classCode` or one of its subclasses ('cTrk', 'cobj').
  bool isKindOf(OSType classCode) const;

  // Values of the record, with the defaults the player shows for absent keys.
  std::string text(std::string_view key) const;  // "" when absent or not a string
  std::optional<int64_t> integer(std::string_view key) const;
  bool flag(std::string_view key) const;  // false when absent
  std::optional<Date> date(std::string_view key) const;

  std::string name() const { return text("Name"); }
  // "Total Time" in seconds (0 when absent).
  double durationSeconds() const;
  // The path of a file track's "Location" (file URL), nullopt for other tracks or a URL that
  // is not a file URL.
  std::optional<std::string> locationPath() const;

  // The record in the loaded tree. Borrowed view; change it only through Library.
  const plist::Dictionary& record() const { return *record_; }

 private:
  friend class Library;
  DatabaseId id_;
  PersistentId persistentId_;
  plist::Ref<plist::Dictionary> record_;
  // Artwork, loaded on first use (see Library::artwork).
  mutable std::optional<std::vector<Artwork>> artwork_;
};

}  // namespace rvitunes::player
