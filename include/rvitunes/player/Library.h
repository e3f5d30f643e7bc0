// The player's library, loaded from an iTunes library file: one source, the playlists in file
// order (the library playlist, special playlists, folders, smart and ordinary playlists) and
// the tracks, with look-ups by database ID, persistent ID, class and location; property values
// as the player answers them in events; search; added files; artwork.
//
// The loaded property-list tree is kept whole and changed in place: setting a property writes
// its key into the track's or playlist's record, adding a file adds a record, and every key the
// player does not know stays as it was. serialize() gives the file's new bytes in the player's
// own XML layout (a tree that was not changed serializes to the bytes it was read from). Each
// change calls the change listener, which PlayerModel connects to LibraryWriteBack.
//
// Threads: a Library belongs to one thread, the player's event thread, which alone calls its
// members; serialize() alone may run on any other thread at the same time (the write-back
// thread): the event thread takes the tree lock for every change of the tree, serialize()
// takes it for reading.
//
// Pointers to Track, Playlist and the source stay valid for the Library's life (nothing is
// ever removed; load() may only be called once).
#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "rvitunes/ae/Descriptor.h"
#include "rvitunes/base/Result.h"
#include "rvitunes/player/Artwork.h"
#include "rvitunes/player/PlayerCodes.h"
#include "rvitunes/player/PlayerVersion.h"
#include "rvitunes/player/Playlist.h"
#include "rvitunes/player/Source.h"
#include "rvitunes/player/Track.h"
#include "rvitunes/plist/ParseResult.h"
#include "rvitunes/plist/Value.h"

namespace rvitunes::player {

class Library {
 public:
  explicit Library(PlayerVersion version = PlayerVersion());
  ~Library();
  Library(const Library&) = delete;
  Library& operator=(const Library&) = delete;

  // ---- Loading ------------------------------------------------------------------------------

  // Reads the library file at `path` and builds the model. ioErr (with the parser's offset and
  // reason) for a file that does not parse; paramErr when its root is not a dictionary.
  // Missing "Tracks" or "Playlists" give an empty library with a library playlist.
  Status load(const std::string& path);
  // Builds the model from a tree already read; `path` is only remembered (write-back target).
  Status loadTree(plist::Value root, std::string path,
                  plist::EntityStyle entities = plist::EntityStyle::kNumeric);

  const std::string& path() const { return path_; }
  const PlayerVersion& version() const { return version_; }
  // The bytes of the library file as it stands now (XML, the player's layout, the entity style
  // of the file read). Thread-safe against the event thread's changes (see above).
  Result<std::string> serialize() const;
  // Called (on the event thread) after every change of the tree.
  void setChangeListener(std::function<void()> listener) { listener_ = std::move(listener); }

  // ---- Objects ------------------------------------------------------------------------------

  const Source& source() const { return source_; }
  // Every playlist, in file order.
  const std::vector<std::unique_ptr<Playlist>>& playlists() const { return playlists_; }
  // The playlists of `classCode` in file order: 'cPly' all, 'cLiP' the library playlist,
  // 'cUsP' every other one (folders and special playlists included), 'cFoP' the folders.
  std::vector<const Playlist*> playlistsOfClass(OSType classCode) const;
  // The library playlist ("Master"; made when the file has none).
  const Playlist& libraryPlaylist() const { return *playlists_[libraryIndex_]; }
  const Playlist* playlistById(DatabaseId id) const;
  const Playlist* playlistByPersistentId(PersistentId id) const;
  // The folder `playlist` sits in, or null at the top level.
  const Playlist* parentOf(const Playlist& playlist) const;
  // 1-based position among all playlists in file order (the 'pidx' of a playlist).
  int32_t indexOf(const Playlist& playlist) const;

  // Every track, in the order of the file's "Tracks" dictionary (added tracks last).
  const std::vector<std::unique_ptr<Track>>& tracks() const { return tracks_; }
  const Track* trackById(DatabaseId id) const;
  const Track* trackByPersistentId(PersistentId id) const;
  // The file track whose location is `path` (compared as given, after making it absolute).
  const Track* trackByPath(const std::string& path) const;
  // The tracks of `playlist` in order (duplicates kept) that are of `classCode` ('cTrk' all,
  // 'cFlT' file tracks, 'cURT' URL tracks).
  std::vector<const Track*> tracksOf(const Playlist& playlist,
                                     OSType classCode = kClassTrack) const;

  // ---- Property values as the player answers them ----------------------------------------
  // Getters answer errAENoSuchObject (-1728) for a property the object's class does not have
  // or this version does not offer, and errAECantSupplyType (-10009) for object-valued
  // properties (ValueType::kObject: 'ctnr', 'pPlP'), which the resolver makes from parentOf()
  // and the object's container. Setters answer errAENoSuchObject likewise, errAEWriteDenied
  // (-10006) for a read-only property, errAECoercionFail (-1700) when the value cannot be read
  // as the property's type, paramErr for a value out of range (rating 0...100, volume
  // adjustment -100...100) and errAENoSuchObject for an unknown object.

  Result<ae::Descriptor> sourceProperty(OSType code) const;
  // `container` gives 'pidx' (the position in it; the library playlist when null).
  Result<ae::Descriptor> trackProperty(const Track& track, OSType code,
                                       const Playlist* container = nullptr) const;
  Status setTrackProperty(DatabaseId track, OSType code, const ae::Descriptor& value);
  Result<ae::Descriptor> playlistProperty(const Playlist& playlist, OSType code) const;
  Status setPlaylistProperty(DatabaseId playlist, OSType code, const ae::Descriptor& value);
  // `index` counts from 0.
  Result<ae::Descriptor> artworkProperty(const Track& track, size_t index, OSType code) const;
  Status setArtworkProperty(DatabaseId track, size_t index, OSType code,
                            const ae::Descriptor& value);

  // ---- Changes ------------------------------------------------------------------------------

  // Counts one complete play of the track: "Play Count" + 1, "Play Date UTC" (and the local
  // "Play Date") set to `when`.
  Status notePlayed(DatabaseId track, Date when);

  // Adds the file at `path` (made absolute) as a new file track of the library playlist and
  // answers it; a file already in the library answers its existing track and adds nothing. The
  // new record has a new "Track ID" and "Persistent ID", "Name" from the file name without its
  // extension, "Kind" from the extension, "Size", "Date Added" and "Date Modified" now,
  // "Track Type" "File", "Location" as a file URL, and "Total Time" where the file tells it
  // (WAV). fnfErr for a missing file, paramErr for a directory.
  Result<const Track*> addFile(const std::string& path);
  // As addFile for one file; a directory adds the audio files below it (by extension, sorted by
  // path). Answers the tracks in that order.
  Result<std::vector<const Track*>> addFiles(const std::string& path);
  // Appends `track` to the items of the ordinary playlist `playlist`. errAENoSuchObject for
  // unknown IDs; errAECantPutThatThere (-10024) for the library, folders, smart and special
  // playlists.
  Status addTrackToPlaylist(DatabaseId track, DatabaseId playlist);

  // ---- Search -------------------------------------------------------------------------------

  // The tracks of `playlist` matching `term`: every word of it (split at white space) must
  // occur, ignoring case (Latin, Greek and Cyrillic letters), in at least one field of `area`:
  // 'kSrS' name; 'kSrR' artist (and album artist); 'kSrL' album; 'kSrC' composer; 'kSrA' / 'kAll'
  // name, artist, album artist, album, composer; 'kSrV' those and genre; 0 means all. Playlist
  // order; each track once. errAENotAnEnumMember (-10023) for another area code. An empty term
  // finds nothing.
  Result<std::vector<const Track*>> search(const Playlist& playlist, std::string_view term,
                                           OSType area = kSearchAll) const;

  // ---- Artwork ------------------------------------------------------------------------------

  // The track's artwork. Loaded on first use from a picture beside the track's file
  // ("cover.jpg", "folder.jpg", "cover.png", "folder.png", "Folder.jpg", "Cover.jpg", the first
  // that exists) when the record's "Artwork Count" is positive; otherwise none. Kept in memory.
  const std::vector<Artwork>& artwork(const Track& track) const;
  // Replaces artwork `index` (from 0); index == count appends. Writes "Artwork Count".
  // errAEIllegalIndex beyond the end, errAENoSuchObject for an unknown track.
  Status setArtwork(DatabaseId track, size_t index, Artwork artwork);
  Status deleteArtwork(DatabaseId track, size_t index);
  Status deleteAllArtwork(DatabaseId track);

 private:
  void buildModel();
  Track* mutableTrack(DatabaseId id);
  Playlist* mutablePlaylist(DatabaseId id);
  DatabaseId newDatabaseId();
  PersistentId newPersistentId();
  // Sets or removes (nil) `key` of `record` under the tree lock, placing a new key where the
  // player would write it; then tells the listener.
  void writeKey(plist::Dictionary& record, std::string_view key, plist::Value value);
  void changed();
  void classifyPlaylist(Playlist& playlist) const;

  PlayerVersion version_;
  std::string path_;
  plist::EntityStyle entities_ = plist::EntityStyle::kNumeric;
  plist::Value root_;
  mutable std::mutex treeMutex_;
  std::function<void()> listener_;
  bool loaded_ = false;

  Source source_;
  std::vector<std::unique_ptr<Playlist>> playlists_;
  size_t libraryIndex_ = 0;
  std::vector<std::unique_ptr<Track>> tracks_;
  std::unordered_map<DatabaseId, size_t> playlistById_;
  std::unordered_map<PersistentId, size_t> playlistByPid_;
  std::unordered_map<DatabaseId, Track*> trackById_;
  std::unordered_map<PersistentId, Track*> trackByPid_;
  std::unordered_map<std::string, Track*> trackByPath_;
  DatabaseId maxId_ = 0;
  uint64_t pidState_ = 0;
};

}  // namespace rvitunes::player
