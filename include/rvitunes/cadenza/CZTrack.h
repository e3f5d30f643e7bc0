// CZTrack: one track inside the running player. It keeps the object specifier the player handed
// out for it; every accessor sends one request to the player when it is called and nothing is
// cached.
//
// Each accessor binds one property code of the player to one of the conversions of
// CZAppleEventObject:
//   text      read as 'utxt'/'TEXT'; nullopt when the read fails; written as 'utxt'
//   integer   read as 'long'; -1 when the read fails; written as 'long'
//   flag      read as an integer of which only the low 8 bits count (256 is false, and a failed
//             read, -1, is true); written as 1 or 0. `unplayed` alone tests the whole integer.
//   date      read as 'ldt '; nullopt when the request fails; written as 'ldt '
//   location  the track's file as a file URL ("file:///Music/a%20b.mp3"); read only
// Setters send without waiting for the player; a write the player refuses is not seen, one that
// cannot be sent is logged to NullLog.
//
// Versions (asked of Cadenza::sharedInstance(), decided before anything is sent): lyrics and
// writing the long description need 6.0.1, reading the long description 6.0.2, persistent IDs
// 6.0; see each accessor.
//
// Ownership: the caller owns the tracks it receives (std::shared_ptr). Thread safety: nothing is
// cached, so any number of threads may call accessors on one track at once.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "rvitunes/ae/Descriptor.h"
#include "rvitunes/base/Date.h"
#include "rvitunes/base/FourCharCode.h"
#include "rvitunes/cadenza/CZAppleEventObject.h"
#include "rvitunes/image/Image.h"

namespace rvitunes {

class CZTrack : public CZAppleEventObject {
 public:
  // Takes over `descriptor`, a specifier the player returned. When it is a list (the player
  // answers some searches with one) whose first item can be read, the track refers to that
  // first item; an empty list is kept as it is.
  explicit CZTrack(ae::Descriptor&& descriptor);
  ~CZTrack() override;

  // ---- Text --------------------------------------------------------------------------------
  std::optional<std::string> name();  // 'pnam'
  void setName(std::string_view value);
  std::optional<std::string> album();  // 'pAlb'
  void setAlbum(std::string_view value);
  std::optional<std::string> artist();  // 'pArt'
  void setArtist(std::string_view value);
  std::optional<std::string> albumArtist();  // 'pAlA'
  void setAlbumArtist(std::string_view value);
  std::optional<std::string> category();  // 'pCat'
  void setCategory(std::string_view value);
  std::optional<std::string> comment();  // 'pCmt'
  void setComment(std::string_view value);
  std::optional<std::string> composer();  // 'pCmp'
  void setComposer(std::string_view value);
  // The track's description text in the player ('pDes'), not a description of this object.
  std::optional<std::string> description();
  void setDescription(std::string_view value);
  std::optional<std::string> episodeId();  // 'pEpD'
  void setEpisodeId(std::string_view value);
  std::optional<std::string> eq();  // 'pEQp', the equaliser preset's name
  void setEq(std::string_view value);
  std::optional<std::string> genre();  // 'pGen'
  void setGenre(std::string_view value);
  std::optional<std::string> grouping();  // 'pGrp'
  void setGrouping(std::string_view value);
  std::optional<std::string> kind();  // 'pKnd', read only
  std::optional<std::string> show();  // 'pShw', read only
  std::optional<std::string> time();  // 'pTim' ("3:20"), read only
  // 'pLds'. Reading needs 6.0.2 and answers nullopt before, without sending; writing needs
  // only 6.0.1 and does nothing before. The two boundaries differ on purpose.
  std::optional<std::string> longDescription();
  void setLongDescription(std::string_view value);
  // 'pLyr'; below 6.0.1 nullopt and nothing sent, for both.
  std::optional<std::string> lyrics();
  void setLyrics(std::string_view value);

  // ---- Integers ----------------------------------------------------------------------------
  int32_t bitrate();  // 'pBRt', read only
  int32_t bpm();      // 'pBPM'
  void setBpm(int32_t value);
  int32_t bookmark();  // 'pBkt'
  void setBookmark(int32_t value);
  int32_t databaseId();  // 'pDID', read only
  int32_t discCount();   // 'pDsC'
  void setDiscCount(int32_t value);
  int32_t discNumber();  // 'pDsN'
  void setDiscNumber(int32_t value);
  int32_t duration();       // 'pDur', read only
  int32_t episodeNumber();  // 'pEpN'
  void setEpisodeNumber(int32_t value);
  int32_t finish();  // 'pStp'
  void setFinish(int32_t value);
  int32_t playedCount();  // 'pPlC'
  void setPlayedCount(int32_t value);
  int32_t rating();  // 'pRte'
  void setRating(int32_t value);
  int32_t sampleRate();    // 'pSRt', read only
  int32_t seasonNumber();  // 'pSeN'
  void setSeasonNumber(int32_t value);
  int32_t size();          // 'pSiz', read only
  int32_t skippedCount();  // 'pSkC'
  void setSkippedCount(int32_t value);
  int32_t start();  // 'pStr'
  void setStart(int32_t value);
  int32_t trackCount();  // 'pTrC'
  void setTrackCount(int32_t value);
  int32_t trackNumber();  // 'pTrN'
  void setTrackNumber(int32_t value);
  int32_t volumeAdjustment();  // 'pAdj'
  void setVolumeAdjustment(int32_t value);
  int32_t year();  // 'pYr ' (the fourth character is a blank)
  void setYear(int32_t value);

  // ---- Flags -------------------------------------------------------------------------------
  bool bookmarkable();  // 'pBkm'
  void setBookmarkable(bool value);
  bool compilation();  // 'pAnt'
  void setCompilation(bool value);
  bool enabled();  // 'enbl'
  void setEnabled(bool value);
  bool gapless();  // 'pGpl'
  void setGapless(bool value);
  bool podcast();  // 'pTPc', read only
  // 'pUnp': true when the whole integer is non-zero (256 is true here, false for the others).
  bool unplayed();
  void setUnplayed(bool value);

  // ---- Dates -------------------------------------------------------------------------------
  std::optional<Date> dateAdded();         // 'pAdd', read only
  std::optional<Date> modificationDate();  // 'asmo', read only
  std::optional<Date> playedDate();        // 'pPlD'
  void setPlayedDate(const Date& value);
  std::optional<Date> skippedDate();  // 'pSkD'
  void setSkippedDate(const Date& value);

  // ---- Location ----------------------------------------------------------------------------
  // 'pLoc' as a file URL; nullopt when the read fails or the file is gone.
  std::optional<std::string> location();

  // ---- Persistent IDs ----------------------------------------------------------------------
  // Below 6.0: "persistentId Unsupported" to NullLog and -1. On 7.2.0 and 7.2.1: 'pPID' read as
  // text and answered as its hexadecimal value (a failed read gives 0). Otherwise 'pPID' as a
  // 64-bit integer (-1 when the read fails). Never cached.
  int64_t persistentId();
  // By the packed version v: below 0x600 "persistentIdAsString Unsupported" and nullopt;
  // below 0x720 'pPID' as an integer written as 16 upper-case hexadecimal digits; below 0x730
  // 'pPID' as text, unchanged; from 0x730 'pPIS' as text, unchanged. So 7.2.2 to 7.2.15 read
  // the text here but the integer in persistentId(): the boundaries differ on purpose.
  std::optional<std::string> persistentIdAsString();
  // The persistent ID as 16 upper-case hexadecimal digits on every player that has one: the
  // value persistentId() reads, written out. Unlike persistentIdAsString it also answers on
  // 7.2.2 to 7.2.15. nullopt below 6.0 (nothing sent, nothing logged) and when the read fails.
  std::optional<std::string> persistentIdHexString();

  // ---- Video kind --------------------------------------------------------------------------
  // Sends nothing: always 0, and the setter does nothing. Kept so that the accessor set is
  // complete.
  uint32_t videoKind() { return 0; }
  void setVideoKind(uint32_t /*value*/) {}

  // ---- Artwork (defined in CZTrackArtwork.cpp) ----------------------------------------------
  // The track's artwork elements ('cArt'), read through their pictures ('pPCT', QuickDraw PICT)
  // and indexed from 0 (the requests add 1). Diagnostics go to NullLog with the texts quoted.

  // Every artwork of the track as an image, in order; possibly empty. Counts the elements, then
  // for each fetches its reference, reads its picture as 'PICT' and decodes it. A failed fetch,
  // reference, picture request, size query or extraction ends the read with what was collected
  // ("Failed to retrieve artwork number: %d" with the index, "Failed to get reference to
  // artwork: %d", "Failed to get data Reply Event: %d" (always 0), "Failed to get size and type
  // of data returned: %d", "Failed to extract PICT data to buffer: %d"); a picture that does
  // not decode is skipped silently and the read goes on.
  std::vector<image::Image> artwork();
  // nullopt deletes every artwork of the track. Otherwise sets image i as artwork i for each i
  // of the list (results ignored); artwork beyond the list's length is left alone, and an empty
  // list does nothing.
  void setArtwork(const std::optional<std::vector<image::Image>>& images);
  // Replaces artwork `index` (or adds it, when `index` is the count) with `image`: converted to
  // TIFF ("Unable to convert NSImage to TIFF" when that fails), then to PICT through the
  // pasteboard "Cadenza" ("Unable to convert to PICT" when 511 bytes or fewer result), wrapped
  // as a 'PICT' descriptor ("Error with constructing PICT: %d") and written to the artwork's
  // 'pPCT'. True when that write was sent. A null image deletes artwork `index` and answers
  // false whatever the deletion did.
  bool setArtworkAtIndex(const image::Image* image, int32_t index);
  // ---- end of artwork ------------------------------------------------------------------------

 private:
  bool flag(OSType property);
};

}  // namespace rvitunes
