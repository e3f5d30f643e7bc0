// RVITunesInfo: one load of the iTunes library file, and the index over it — which playlists
// are shown under a show-flag mask (each kept record gets its icon pair written into it),
// track look-ups by track ID, a playlist's tracks, and the merge of a newer load.
//
// Records handed out are the tree's own dictionaries, shared by reference: a record changed
// through one holder is changed for all. Not synchronised: one thread at a time, like the tree.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "rvitunes/plist/Dictionary.h"
#include "rvitunes/plist/ParseResult.h"
#include "rvitunes/plist/Value.h"

namespace rvitunes {

// The show flags: which kinds of playlist playlistsWithFlags keeps.
inline constexpr uint32_t kShowLibraryPlaylist = 0x1;   // "Master"
inline constexpr uint32_t kShowMusic = 0x2;             // "Music"
inline constexpr uint32_t kShowBooks = 0x4;             // "Audiobooks" and "Books"
inline constexpr uint32_t kShowMovies = 0x8;            // "Movies"
inline constexpr uint32_t kShowTVShows = 0x10;          // "TV Shows"
inline constexpr uint32_t kShowiTunesDJ = 0x20;         // "All Items" named "iTunes DJ"
inline constexpr uint32_t kShowPodcasts = 0x40;         // "Podcasts"
inline constexpr uint32_t kShowPurchasedMusic = 0x80;   // "Purchased Music"
inline constexpr uint32_t kShowSmartPlaylists = 0x100;  // "Smart Info", and "iTunes DJ"
// Not a union of bits but a mode of its own, tested for equality: everything, including the
// "Genius" playlist and plain user playlists, which no other mask shows.
inline constexpr uint32_t kShowAllPlaylists = 0xFFFF;

// The keys the index writes into each kept playlist record.
inline constexpr const char* kPlaylistIconKey = "Playlist Icon";
inline constexpr const char* kPlaylistIconDarkKey = "Playlist Icon Dark";

class RVITunesInfo {
 public:
  // How the last load went; kept beside the tree because library() alone only says nil.
  struct LoadResult {
    std::string path;                         // the file asked for; empty for none
    std::optional<plist::Diagnostic> error;   // why library() is nil; nullopt when loaded
    std::vector<plist::Diagnostic> warnings;  // defects of the file that were repaired
    plist::Format format = plist::Format::kXml;
    double seconds = 0.0;  // time spent reading and parsing
  };

  // initWithPath: loads the dictionary at `path`. A missing file, one that is not a property
  // list or whose root is not a dictionary leaves library() nil; the object exists either way
  // and loadResult() says why. The file is read with the player's known defects repaired.
  // First makes sure the icon dictionary has been looked for (initializeLocalIcons).
  // `options` bounds the read and may report progress.
  explicit RVITunesInfo(const std::optional<std::string>& path,
                        const plist::ReadOptions& options = {});

  // An object over a tree that is already in memory (a null `library` gives library() nil).
  // The tree is used as it is, not copied.
  static std::shared_ptr<RVITunesInfo> infoWithLibrary(plist::Ref<plist::Dictionary> library);

  // Looks for the framework's own icons. Loads nothing: the icon dictionary is filled only by
  // playlistsDisplayIcons, so RVITunesIcons() stays as it is.
  static void initializeLocalIcons();

  // The icon dictionary (RVITunesIcons()), filled on the first call and answered unchanged on
  // every later one, even when the first found nothing. The fill publishes an empty dictionary
  // first, then looks up the probe icon "lumo-books" in the framework bundle (FrameworkBundle.h);
  // without it the dictionary stays empty for the life of the process. Otherwise it loads the
  // forty icons in the order of playlistIconBaseNames(), the dark variant of each before the
  // normal one, under keys "Lumo_<base>" and "Lumo_<base>_dark" as IconImage values, into a new
  // dictionary that replaces the empty one once complete; a missing or unreadable file leaves
  // only its own key absent. `sender` is ignored. Calls may come from any thread, and readers
  // of RVITunesIcons() meanwhile see the empty dictionary or the complete one; the host's own
  // additions to the dictionary must not race with them.
  static plist::Ref<plist::Dictionary> playlistsDisplayIcons(const void* sender = nullptr);

  // The loaded tree, or null.
  const plist::Ref<plist::Dictionary>& library() const { return library_; }
  const LoadResult& loadResult() const { return loadResult_; }

  // Stored for the host; the index takes its flags from the argument of playlistsWithFlags.
  uint32_t showFlags() const { return showFlags_; }
  void setShowFlags(uint32_t flags) { showFlags_ = flags; }

  // --- the index ---------------------------------------------------------------------------

  // The playlist records kept under `flags`, in the file's order, each annotated with the icon
  // pair of its kind taken from RVITunesIcons(). nullopt when there is no library, "Playlists"
  // is missing, empty or not an array, or a record cannot be read (for example a "Visible"
  // that is neither a number nor a string); an empty vector when nothing is kept.
  std::optional<std::vector<plist::Value>> playlistsWithFlags(uint32_t flags);

  // The track record under the decimal text of `trackId` (a number), or nil.
  plist::Value trackForTracks(const plist::Value& trackId) const;

  // The records of the tracks listed in `playlist`'s "Playlist Items", in order; items whose
  // track is missing are left out. nullopt for a nil or non-dictionary argument and for items
  // that are missing, empty or not an array.
  std::optional<std::vector<plist::Value>> tracksForPlaylist(const plist::Value& playlist) const;

  // The number of entries in `playlist`'s "Playlist Items", missing tracks included; 0 for a
  // nil or non-dictionary argument and for missing items.
  uint64_t trackCountForPlaylist(const plist::Value& playlist) const;

  // Merges `newer` into this library, adding only: tracks whose key has an integer value no
  // key here has, and playlists whose persistent identifier no playlist here has. Runs in time
  // linear in the sizes of both libraries.
  void updateListLibrary(const std::shared_ptr<const RVITunesInfo>& newer);

 private:
  RVITunesInfo() = default;

  plist::Ref<plist::Dictionary> library_;
  uint32_t showFlags_ = 0;
  LoadResult loadResult_;
};

}  // namespace rvitunes
