// RVITunesTrackItem: the display item the host shows for one track, made from one track record
// of the library file or from a live track of the running player. It keeps the names and IDs,
// the file location split into URL, path, name and type, the play length, the video flag, the
// artwork count, a file-type image chosen from RVITunesIcons and, once fetched, the artwork.
//
// Ownership. Items are shared (std::shared_ptr). The track record is shared with the caller,
// not copied; the type image is shared with the icon dictionary; the artwork is the item's own.
// Results on failure are values: null items, nullopt strings, null images. Nothing throws or
// logs.
//
// Threads. An item is made and used on one thread at a time, with one exception: metaImage()
// may be called from any thread; every artwork fetch of every item runs under the process-wide
// metaImageLock, one at a time.
#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include "rvitunes/helper/IconImage.h"
#include "rvitunes/image/Image.h"
#include "rvitunes/plist/Array.h"
#include "rvitunes/plist/Dictionary.h"
#include "rvitunes/plist/Ref.h"

namespace rvitunes {

class CZTrack;

// The lock under which every artwork fetch of every track item runs. Created on first use,
// never destroyed; not re-entrant (metaImageArtWork never calls metaImage).
std::mutex& metaImageLock();

class RVITunesTrackItem {
 public:
  // Every field 0 or nil but splitMusics, a new empty array.
  RVITunesTrackItem();
  ~RVITunesTrackItem() = default;
  RVITunesTrackItem(const RVITunesTrackItem&) = delete;
  RVITunesTrackItem& operator=(const RVITunesTrackItem&) = delete;

  // ---- Creation -------------------------------------------------------------------------------

  // The item of one track record of the library file; null for a null record and for a record
  // without a numeric, non-zero "Track ID". Keys of the wrong type are skipped one by one.
  // "Album" is taken only when it is a string; unlike initWithCzTrackPointer there is no
  // fallback to the name. "Total Time" is read as a 32-bit integer (wrapping) and widened with
  // its sign. "Location" is parsed strictly; when it parses, fileUrl is its text, filePath the
  // decoded path, fileName the last component and fileType the extension ("" when none). The
  // type image is chosen from fileType (assignFileTypeImage), or is the "iTunes_generic" entry
  // when there is no fileType; it stays null when RVITunesIcons is null.
  static std::shared_ptr<RVITunesTrackItem> initWithTrackDictInfo(
      const plist::Ref<plist::Dictionary>& record);
  // Always null, for every record, and makes nothing. Kept so on purpose: the library's track
  // list, which uses this factory, stays empty. Use initWithTrackDictInfo.
  static std::shared_ptr<RVITunesTrackItem> itemWithTrackDictInfo(
      const plist::Ref<plist::Dictionary>& record);
  // The item of a live track: database ID, persistent ID, name, artist and album, one player
  // request each; a nil album becomes the name. No file fields, no type image, trackInfo null.
  // Null for a null track.
  static std::shared_ptr<RVITunesTrackItem> initWithCzTrackPointer(
      const std::shared_ptr<CZTrack>& track);
  // The same; the caller simply shares the result.
  static std::shared_ptr<RVITunesTrackItem> itemWithCzTrackPointer(
      const std::shared_ptr<CZTrack>& track);

  // ---- The live track ---------------------------------------------------------------------------

  // The first live track with trackId() found asking the player's playlists in order, or null
  // (no player, no playlists, no playlist knows it). Asked anew on every call.
  std::shared_ptr<CZTrack> czTrackPtr() const;
  // Plays the live track; false (nothing sent) when czTrackPtr() is null, else true whatever
  // the player did.
  bool playCzTrack() const;
  // Plays the file at `path`, but only when the live track exists: false for a nullopt path
  // (nothing asked) or a null czTrackPtr(), else true.
  bool playCzTrack(const std::optional<std::string>& path) const;
  // Asks the player to stop.
  void stopCzTrack() const;

  // ---- Images (RVITunesTrackItemImages.cpp) -------------------------------------------------

  // Sets typeImage from RVITunesIcons by the file type, compared in lower case with the fixed
  // table ("mp3" → "iTunes_mp3", "m4a" → "iTunes_mpeg4", "mpeg4" → "iTunes_mpeg4p", ...); any
  // other type, "" and nullopt choose "iTunes_generic". A missing entry gives null (no second
  // try with the generic image). With RVITunesIcons null, typeImage is left as it is.
  void assignFileTypeImage(const std::optional<std::string>& type);
  // The artwork, fetched once and then kept. Looks up the live track (falling back to a walk of
  // every playlist's tracks, where the last playlist holding the track wins) and takes its
  // first artwork. When none came although artworkCount() is non-zero, replaces the shared
  // controller once and asks a fresh live track up to four more times. A failure keeps nothing,
  // so a later call tries again. Takes no lock: call it only while holding metaImageLock().
  std::shared_ptr<const image::Image> metaImageArtWork();
  // metaImageArtWork under metaImageLock(). The operation the host calls; any thread.
  std::shared_ptr<const image::Image> metaImage();

  // ---- Accessors ------------------------------------------------------------------------------

  int32_t trackId() const { return trackId_; }
  void setTrackId(int32_t value) { trackId_ = value; }
  int64_t persistentId() const { return persistentId_; }
  void setPersistentId(int64_t value) { persistentId_ = value; }
  const std::optional<std::string>& trackName() const { return trackName_; }
  void setTrackName(std::optional<std::string> value) { trackName_ = std::move(value); }
  const std::optional<std::string>& artistName() const { return artistName_; }
  void setArtistName(std::optional<std::string> value) { artistName_ = std::move(value); }
  const std::optional<std::string>& albumName() const { return albumName_; }
  void setAlbumName(std::optional<std::string> value) { albumName_ = std::move(value); }
  // The record the item was made from (shared); null for items of live tracks.
  const plist::Ref<plist::Dictionary>& trackInfo() const { return trackInfo_; }
  void setTrackInfo(plist::Ref<plist::Dictionary> value) { trackInfo_ = std::move(value); }
  // Kept for the host; 0 at creation.
  uint32_t status() const { return status_; }
  void setStatus(uint32_t value) { status_ = value; }
  // Kept for the host under these spellings; 0 and an empty array at creation.
  int32_t isSplited() const { return isSplited_; }
  void setIsSplited(int32_t value) { isSplited_ = value; }
  const plist::Ref<plist::Array>& splitMusics() const { return splitMusics_; }
  void setSplitMusics(plist::Ref<plist::Array> value) { splitMusics_ = std::move(value); }
  // Kept for the host; null at creation.
  const plist::Ref<plist::Dictionary>& settingInfo() const { return settingInfo_; }
  void setSettingInfo(plist::Ref<plist::Dictionary> value) { settingInfo_ = std::move(value); }
  const std::optional<std::string>& fileUrl() const { return fileUrl_; }
  void setFileUrl(std::optional<std::string> value) { fileUrl_ = std::move(value); }
  const std::optional<std::string>& filePath() const { return filePath_; }
  void setFilePath(std::optional<std::string> value) { filePath_ = std::move(value); }
  const std::optional<std::string>& fileName() const { return fileName_; }
  void setFileName(std::optional<std::string> value) { fileName_ = std::move(value); }
  const std::optional<std::string>& fileType() const { return fileType_; }
  void setFileType(std::optional<std::string> value) { fileType_ = std::move(value); }
  // The file-type image, shared with RVITunesIcons; null when none was found.
  const plist::Ref<IconImage>& typeImage() const { return typeImage_; }
  void setTypeImage(plist::Ref<IconImage> value) { typeImage_ = std::move(value); }
  int32_t artworkCount() const { return artworkCount_; }
  void setArtworkCount(int32_t value) { artworkCount_ = value; }
  // In the library file's unit (milliseconds).
  int64_t totalTime() const { return totalTime_; }
  void setTotalTime(int64_t value) { totalTime_ = value; }
  // 1 for a video, else 0.
  int32_t hasVideo() const { return hasVideo_; }
  void setHasVideo(int32_t value) { hasVideo_ = value; }

 private:
  // Takes the first artwork of `track` when there is one.
  void takeFirstArtwork(CZTrack& track);

  int32_t trackId_ = 0;
  int64_t persistentId_ = 0;
  std::optional<std::string> trackName_;
  std::optional<std::string> artistName_;
  std::optional<std::string> albumName_;
  plist::Ref<plist::Dictionary> trackInfo_;
  uint32_t status_ = 0;
  int32_t isSplited_ = 0;
  plist::Ref<plist::Array> splitMusics_;
  plist::Ref<plist::Dictionary> settingInfo_;
  std::optional<std::string> fileUrl_;
  std::optional<std::string> filePath_;
  std::optional<std::string> fileName_;
  std::optional<std::string> fileType_;
  plist::Ref<IconImage> typeImage_;
  std::shared_ptr<const image::Image> metaImage_;
  int32_t artworkCount_ = 0;
  int64_t totalTime_ = 0;
  int32_t hasVideo_ = 0;
};

}  // namespace rvitunes
