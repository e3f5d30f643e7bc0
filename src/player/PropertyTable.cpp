#include "rvitunes/player/PropertyTable.h"

#include <array>

#include "rvitunes/player/PlayerCodes.h"

namespace rvitunes::player {
namespace {

using enum ValueType;
constexpr Access R = Access::kReadOnly;
constexpr Access RW = Access::kReadWrite;
constexpr uint32_t kAll = 0xFFFFFFFF;

constexpr PropertyInfo P(const char (&code)[5], std::string_view name, ValueType type,
                         Access access, uint32_t minVersion = 0, std::string_view key = {}) {
  return PropertyInfo{fourCharCode(code), name, type, access, minVersion, kAll, key};
}

// The application ('capp').
constexpr auto kApplication = std::to_array<PropertyInfo>({
    P("pcls", "class", kType, R),
    P("pnam", "name", kText, R),
    P("vers", "version", kVersion, R),
    P("pPos", "player position", kInteger, RW),
    P("pPlS", "player state", kEnum, R),
    P("pVol", "sound volume", kInteger, RW),
    P("pEQ ", "EQ enabled", kBoolean, RW),
    P("pFix", "fixed indexing", kBoolean, RW),
    P("pTrk", "current track", kObject, R),
    P("pPla", "current playlist", kObject, R),
    P("sele", "selection", kObject, R),
    P("pisf", "frontmost", kBoolean, RW),
    P("pvis", "visible", kBoolean, RW),
    P("pMut", "mute", kBoolean, RW),
});

// The library source ('cSrc').
constexpr auto kSource = std::to_array<PropertyInfo>({
    P("pcls", "class", kType, R),
    P("ctnr", "container", kObject, R),
    P("ID  ", "id", kInteger, R),
    P("pidx", "index", kInteger, R),
    P("pnam", "name", kText, R),
    P("pPID", "persistent ID", kPersistentId, R, 0x600, "Library Persistent ID"),
    P("pPIS", "persistent ID", kText, R, 0x730, "Library Persistent ID"),
    P("pKnd", "kind", kEnum, R),
    P("capa", "capacity", kLongInteger, R),
    P("frsp", "free space", kLongInteger, R),
});

// Playlists ('cPly' and subclasses).
constexpr auto kPlaylist = std::to_array<PropertyInfo>({
    P("pcls", "class", kType, R),
    P("ctnr", "container", kObject, R),
    P("ID  ", "id", kInteger, R, 0, "Playlist ID"),
    P("pidx", "index", kInteger, R),
    P("pnam", "name", kText, RW, 0, "Name"),
    P("pPID", "persistent ID", kPersistentId, R, 0x600, "Playlist Persistent ID"),
    P("pPIS", "persistent ID", kText, R, 0x730, "Playlist Persistent ID"),
    P("pDur", "duration", kInteger, R),
    P("pPlP", "parent", kObject, R, 0, "Parent Persistent ID"),
    P("pShf", "shuffle", kBoolean, RW),
    P("pSiz", "size", kLongInteger, R),
    P("pRpt", "song repeat", kEnum, RW),
    P("pSpK", "special kind", kEnum, R),
    P("pTim", "time", kText, R),
    P("pvis", "visible", kBoolean, R, 0, "Visible"),
    P("pShr", "shared", kBoolean, RW),
    P("pSmt", "smart", kBoolean, R, 0, "Smart Info"),
});

// Tracks ('cTrk' and subclasses). Keys of the library file; times in the file are
// milliseconds, the player answers seconds.
constexpr auto kTrack = std::to_array<PropertyInfo>({
    P("pcls", "class", kType, R),
    P("ctnr", "container", kObject, R),
    P("ID  ", "id", kInteger, R, 0, "Track ID"),
    P("pidx", "index", kInteger, R),
    P("pnam", "name", kText, RW, 0, "Name"),
    P("pPID", "persistent ID", kPersistentId, R, 0x600, "Persistent ID"),
    P("pPIS", "persistent ID", kText, R, 0x730, "Persistent ID"),
    P("pAlb", "album", kText, RW, 0, "Album"),
    P("pArt", "artist", kText, RW, 0, "Artist"),
    P("pAlA", "album artist", kText, RW, 0x700, "Album Artist"),
    P("pAlR", "album rating", kInteger, RW, 0, "Album Rating"),
    P("pBRt", "bit rate", kInteger, R, 0, "Bit Rate"),
    P("pBPM", "bpm", kInteger, RW, 0, "BPM"),
    P("pBkt", "bookmark", kSeconds, RW, 0, "Bookmark"),
    P("pBkm", "bookmarkable", kBoolean, RW, 0, "Bookmarkable"),
    P("pCat", "category", kText, RW, 0, "Category"),
    P("pCmt", "comment", kText, RW, 0, "Comments"),
    P("pAnt", "compilation", kBoolean, RW, 0, "Compilation"),
    P("pCmp", "composer", kText, RW, 0, "Composer"),
    P("pDID", "database ID", kInteger, R, 0, "Track ID"),
    P("pAdd", "date added", kDate, R, 0, "Date Added"),
    P("pDes", "description", kText, RW, 0, "Description"),
    P("pDsC", "disc count", kInteger, RW, 0, "Disc Count"),
    P("pDsN", "disc number", kInteger, RW, 0, "Disc Number"),
    P("pDur", "duration", kSeconds, R, 0, "Total Time"),
    P("pEpD", "episode ID", kText, RW, 0x700, "Episode"),
    P("pEpN", "episode number", kInteger, RW, 0x700, "Episode Order"),
    P("enbl", "enabled", kBoolean, RW, 0, "Disabled"),
    P("pEQp", "EQ", kText, RW, 0, "Equalizer"),
    P("pStp", "finish", kSeconds, RW, 0, "Stop Time"),
    P("pGpl", "gapless", kBoolean, RW, 0x700, "Part Of Gapless Album"),
    P("pGen", "genre", kText, RW, 0, "Genre"),
    P("pGrp", "grouping", kText, RW, 0, "Grouping"),
    P("pKnd", "kind", kText, R, 0, "Kind"),
    P("pLoc", "location", kFileLocation, RW, 0, "Location"),
    P("pURL", "address", kText, RW, 0, "Location"),
    P("pLds", "long description", kText, RW, 0x602, "Long Description"),
    P("pLyr", "lyrics", kText, RW, 0x601, "Lyrics"),
    P("asmo", "modification date", kDate, R, 0, "Date Modified"),
    P("pPlC", "played count", kInteger, RW, 0, "Play Count"),
    P("pPlD", "played date", kDate, RW, 0, "Play Date UTC"),
    P("pTPc", "podcast", kBoolean, R, 0, "Podcast"),
    P("pRte", "rating", kInteger, RW, 0, "Rating"),
    P("pSRt", "sample rate", kInteger, R, 0, "Sample Rate"),
    P("pSeN", "season number", kInteger, RW, 0x700, "Season"),
    P("pSiz", "size", kInteger, R, 0, "Size"),
    P("pShw", "show", kText, RW, 0x700, "Series"),
    P("pSkC", "skipped count", kInteger, RW, 0x700, "Skip Count"),
    P("pSkD", "skipped date", kDate, RW, 0x700, "Skip Date"),
    P("pStr", "start", kSeconds, RW, 0, "Start Time"),
    P("pTim", "time", kText, R, 0, "Total Time"),
    P("pTrC", "track count", kInteger, RW, 0, "Track Count"),
    P("pTrN", "track number", kInteger, RW, 0, "Track Number"),
    P("pUnp", "unplayed", kBoolean, RW, 0, "Unplayed"),
    P("pVdK", "video kind", kEnum, RW, 0x700),
    P("pAdj", "volume adjustment", kInteger, RW, 0, "Volume Adjustment"),
    P("pYr ", "year", kInteger, RW, 0, "Year"),
    P("pSAl", "sort album", kText, RW, 0x710, "Sort Album"),
    P("pSAr", "sort artist", kText, RW, 0x710, "Sort Artist"),
    P("pSAA", "sort album artist", kText, RW, 0x710, "Sort Album Artist"),
    P("pSNm", "sort name", kText, RW, 0x710, "Sort Name"),
    P("pSCm", "sort composer", kText, RW, 0x710, "Sort Composer"),
    P("pSSN", "sort show", kText, RW, 0x710, "Sort Series"),
});

// Artwork ('cArt').
constexpr auto kArtwork = std::to_array<PropertyInfo>({
    P("pcls", "class", kType, R),
    P("ctnr", "container", kObject, R),
    P("pidx", "index", kInteger, R),
    P("pPCT", "data", kPicture, RW),
    P("pRaw", "raw data", kData, RW),
    P("pFmt", "format", kType, R),
    P("pDes", "description", kText, RW),
    P("pKnd", "kind", kInteger, RW),
    P("pDlA", "downloaded", kBoolean, R),
});

}  // namespace

std::span<const PropertyInfo> PropertyTable::applicationProperties() {
  return kApplication;
}
std::span<const PropertyInfo> PropertyTable::sourceProperties() {
  return kSource;
}
std::span<const PropertyInfo> PropertyTable::playlistProperties() {
  return kPlaylist;
}
std::span<const PropertyInfo> PropertyTable::trackProperties() {
  return kTrack;
}
std::span<const PropertyInfo> PropertyTable::artworkProperties() {
  return kArtwork;
}

const PropertyInfo* PropertyTable::find(std::span<const PropertyInfo> table, OSType code,
                                        const PlayerVersion& version) {
  for (const PropertyInfo& info : table) {
    if (info.code == code) return info.offeredBy(version) ? &info : nullptr;
  }
  return nullptr;
}

std::span<const PropertyInfo> PropertyTable::forClass(OSType classCode) {
  switch (classCode) {
    case kClassApplication:
      return kApplication;
    case kClassSource:
      return kSource;
    case kClassPlaylist:
    case kClassLibraryPlaylist:
    case kClassUserPlaylist:
    case kClassFolderPlaylist:
      return kPlaylist;
    case kClassTrack:
    case kClassFileTrack:
    case kClassUrlTrack:
      return kTrack;
    case kClassArtwork:
      return kArtwork;
    default:
      return {};
  }
}

}  // namespace rvitunes::player
