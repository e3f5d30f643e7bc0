// RVITunesPlaylist: the display item the host shows for one playlist of the library file. It is
// made from one playlist record (as the library index keeps it) and a sort value, and holds
// what a list row needs: the playlist's ID, name and persistent ID, its icon pair, the IDs of
// its tracks and the keys of the record whose value is true. On demand it finds the matching
// live playlist in the running player, to reach live tracks.
//
// The names tarcks() and tarckWithPersistentId() are spelled so on purpose: hosts call them by
// these names.
//
// Not synchronised: an item is made and used on one thread at a time.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "rvitunes/helper/IconImage.h"
#include "rvitunes/plist/Dictionary.h"
#include "rvitunes/plist/Ref.h"

namespace rvitunes {

class CZPlaylist;
class CZTrack;

// The value stored under every key of tarcks(): the key's own name, not a track.
inline constexpr const char* kTarcksEntryValue = "Track ID";

class RVITunesPlaylist {
 public:
  // A bare item: every field 0 or nil, except empty strTrueKeys and tarcks and showFlags 1.
  RVITunesPlaylist();
  RVITunesPlaylist(const RVITunesPlaylist&) = delete;
  RVITunesPlaylist& operator=(const RVITunesPlaylist&) = delete;
  ~RVITunesPlaylist();

  // An item for `record` at position `sort`; null when `record` is null. The record is shared,
  // not copied, and receives the icon keys "Playlist Icon" / "Playlist Icon Dark" of the pair
  // chosen for it. Reads, each only when present with the right type:
  //   "Playlist ID" (number)              -> playlistId, its 32-bit value; else 0
  //   "Playlist Persistent ID" (number)   -> libPersistentId; the file's hexadecimal text
  //                                          is not parsed and leaves 0
  //   "Name" (string)                     -> playlistName
  //   every key whose value is a true number (true booleans, non-zero integers and reals, in
  //   the record's key order; "Playlist ID" and other integers included) -> strTrueKeys
  //   "Playlist Items" (array): each element's "Track ID" (number) -> a key of tarcks, once,
  //                                          in first-occurrence order, compared by value
  static std::shared_ptr<RVITunesPlaylist> initWithPlaylistInfoSort(
      plist::Ref<plist::Dictionary> record, int32_t sort);
  // The same; the caller shares the item.
  static std::shared_ptr<RVITunesPlaylist> itemWithPlaylistInfoSort(
      plist::Ref<plist::Dictionary> record, int32_t sort);

  // Chooses the icon pair for `record` from the icon dictionary (assignPlaylistIcons) and sets
  // listImage / listDarkImage to each image that was written into the record; an image not
  // found leaves its side unchanged. Nothing when the dictionary or `record` is null.
  void assignPlaylistImage(plist::Dictionary* record);

  // A placeholder: answers false and does nothing.
  bool updateTracksListInfo();

  // The live playlist whose persistent ID is libPersistentId, asked of the shared controller
  // on every call (also for 0). When the player answers nothing this answers null and the
  // playlist bound by an earlier call stays bound; otherwise the answer replaces it.
  std::shared_ptr<CZPlaylist> czPlaylist();
  // The playlist the last successful czPlaylist() bound; null before any. Asks nothing.
  const std::shared_ptr<CZPlaylist>& boundPlaylist() const { return czPlaylist_; }
  // The tracks of czPlaylist(); nullopt when no live playlist answers.
  std::optional<std::vector<std::shared_ptr<CZTrack>>> czTracks();
  // CZPlaylist::trackWithPersistentId asked of czPlaylist(); null when no live playlist
  // answers.
  std::shared_ptr<CZTrack> tarckWithPersistentId(int64_t persistentId);

  // --- fields ------------------------------------------------------------------------------
  int32_t playlistId() const { return playlistId_; }
  void setPlaylistId(int32_t id) { playlistId_ = id; }
  int64_t libPersistentId() const { return libPersistentId_; }
  void setLibPersistentId(int64_t id) { libPersistentId_ = id; }
  // Kept for the host; nothing here reads it.
  uint32_t status() const { return status_; }
  void setStatus(uint32_t status) { status_ = status; }
  const std::optional<std::string>& playlistName() const { return playlistName_; }
  void setPlaylistName(std::optional<std::string> name) { playlistName_ = std::move(name); }
  // The record the item was made from, shared with the library tree.
  const plist::Ref<plist::Dictionary>& playlistInfo() const { return playlistInfo_; }
  void setPlaylistInfo(plist::Ref<plist::Dictionary> info) { playlistInfo_ = std::move(info); }
  const std::vector<std::string>& strTrueKeys() const { return strTrueKeys_; }
  void setStrTrueKeys(std::vector<std::string> keys) { strTrueKeys_ = std::move(keys); }
  // Track ID (integer key) -> kTarcksEntryValue; never null after construction.
  const plist::Ref<plist::Dictionary>& tarcks() const { return tarcks_; }
  void setTarcks(plist::Ref<plist::Dictionary> tarcks) { tarcks_ = std::move(tarcks); }
  // Images held by the icon dictionary.
  const plist::Ref<IconImage>& listImage() const { return listImage_; }
  void setListImage(plist::Ref<IconImage> image) { listImage_ = std::move(image); }
  const plist::Ref<IconImage>& listDarkImage() const { return listDarkImage_; }
  void setListDarkImage(plist::Ref<IconImage> image) { listDarkImage_ = std::move(image); }
  int32_t sortID() const { return sortID_; }
  void setSortID(int32_t sort) { sortID_ = sort; }
  // Kept for the host; nothing here reads it.
  uint32_t showFlags() const { return showFlags_; }
  void setShowFlags(uint32_t flags) { showFlags_ = flags; }

 private:
  int32_t playlistId_ = 0;
  int64_t libPersistentId_ = 0;
  uint32_t status_ = 0;
  std::optional<std::string> playlistName_;
  plist::Ref<plist::Dictionary> playlistInfo_;
  std::vector<std::string> strTrueKeys_;
  std::shared_ptr<CZPlaylist> czPlaylist_;
  plist::Ref<plist::Dictionary> tarcks_;
  plist::Ref<IconImage> listImage_;
  plist::Ref<IconImage> listDarkImage_;
  int32_t sortID_ = 0;
  uint32_t showFlags_ = 1;
};

}  // namespace rvitunes
