// The player's scripting vocabulary: its signature, the classes of its object model, the
// property codes of the application, sources, playlists, tracks and artwork, and the
// enumerations it answers with. Codes are four-character codes; trailing blanks matter
// ('pYr ', 'pEQ ', 'ID  ').
#pragma once

#include <cstdint>

#include "rvitunes/base/FourCharCode.h"

namespace rvitunes::player {

// A database ID ('ID  '): unique among the sources, playlists and tracks of one library and
// stable while the library is loaded. Tracks keep their "Track ID", playlists their
// "Playlist ID" from the library file.
using DatabaseId = int32_t;
// A persistent ID: the 64-bit number the library file writes as 16 hexadecimal digits.
using PersistentId = uint64_t;

inline constexpr OSType kPlayerSignature = fourCharCode("hook");
inline constexpr const char* kPlayerName = "iTunes";

// ---- Classes -----------------------------------------------------------------------------
inline constexpr OSType kClassApplication = fourCharCode("capp");
inline constexpr OSType kClassItem = fourCharCode("cobj");
inline constexpr OSType kClassSource = fourCharCode("cSrc");
inline constexpr OSType kClassPlaylist = fourCharCode("cPly");
inline constexpr OSType kClassLibraryPlaylist = fourCharCode("cLiP");
inline constexpr OSType kClassUserPlaylist = fourCharCode("cUsP");
inline constexpr OSType kClassFolderPlaylist = fourCharCode("cFoP");
inline constexpr OSType kClassTrack = fourCharCode("cTrk");
inline constexpr OSType kClassFileTrack = fourCharCode("cFlT");
inline constexpr OSType kClassUrlTrack = fourCharCode("cURT");
inline constexpr OSType kClassArtwork = fourCharCode("cArt");

// ---- Properties shared by every item -------------------------------------------------------
inline constexpr OSType kPropClass = fourCharCode("pcls");
inline constexpr OSType kPropContainer = fourCharCode("ctnr");
inline constexpr OSType kPropId = fourCharCode("ID  ");
inline constexpr OSType kPropIndex = fourCharCode("pidx");
inline constexpr OSType kPropName = fourCharCode("pnam");
// Persistent ID as a 64-bit 'comp' (as 16-digit hexadecimal text on 7.2.0 and 7.2.1).
inline constexpr OSType kPropPersistentId = fourCharCode("pPID");
// Persistent ID as 16-digit hexadecimal text (from 7.3 on).
inline constexpr OSType kPropPersistentIdText = fourCharCode("pPIS");

// ---- Application -------------------------------------------------------------------------
inline constexpr OSType kPropPlayerPosition = fourCharCode("pPos");
inline constexpr OSType kPropPlayerState = fourCharCode("pPlS");
inline constexpr OSType kPropSoundVolume = fourCharCode("pVol");
inline constexpr OSType kPropEqEnabled = fourCharCode("pEQ ");
inline constexpr OSType kPropFixedIndexing = fourCharCode("pFix");
inline constexpr OSType kPropCurrentTrack = fourCharCode("pTrk");
inline constexpr OSType kPropCurrentPlaylist = fourCharCode("pPla");
inline constexpr OSType kPropSelection = fourCharCode("sele");
inline constexpr OSType kPropVersion = fourCharCode("vers");
inline constexpr OSType kPropFrontmost = fourCharCode("pisf");
inline constexpr OSType kPropVisible = fourCharCode("pvis");
inline constexpr OSType kPropMute = fourCharCode("pMut");

// ---- Source ------------------------------------------------------------------------------
inline constexpr OSType kPropKind = fourCharCode("pKnd");  // source: eSrc; track: text
inline constexpr OSType kPropCapacity = fourCharCode("capa");
inline constexpr OSType kPropFreeSpace = fourCharCode("frsp");

// ---- Playlist ----------------------------------------------------------------------------
inline constexpr OSType kPropDuration = fourCharCode("pDur");
inline constexpr OSType kPropParent = fourCharCode("pPlP");
inline constexpr OSType kPropShuffle = fourCharCode("pShf");
inline constexpr OSType kPropSize = fourCharCode("pSiz");
inline constexpr OSType kPropSongRepeat = fourCharCode("pRpt");
inline constexpr OSType kPropSpecialKind = fourCharCode("pSpK");
inline constexpr OSType kPropTime = fourCharCode("pTim");
inline constexpr OSType kPropShared = fourCharCode("pShr");
inline constexpr OSType kPropSmart = fourCharCode("pSmt");

// ---- Track (the ones other code names; the full list is PropertyTable) --------------------
inline constexpr OSType kPropDatabaseId = fourCharCode("pDID");
inline constexpr OSType kPropLocation = fourCharCode("pLoc");
inline constexpr OSType kPropAddress = fourCharCode("pURL");
inline constexpr OSType kPropPlayedCount = fourCharCode("pPlC");
inline constexpr OSType kPropPlayedDate = fourCharCode("pPlD");
inline constexpr OSType kPropLyrics = fourCharCode("pLyr");
inline constexpr OSType kPropLongDescription = fourCharCode("pLds");

// ---- Artwork -----------------------------------------------------------------------------
inline constexpr OSType kPropPicture = fourCharCode("pPCT");
inline constexpr OSType kPropRawData = fourCharCode("pRaw");
inline constexpr OSType kPropFormat = fourCharCode("pFmt");
inline constexpr OSType kPropDescription = fourCharCode("pDes");
inline constexpr OSType kPropDownloaded = fourCharCode("pDlA");

// ---- Enumerations ------------------------------------------------------------------------
// Player state (ePlS).
inline constexpr OSType kStateStopped = fourCharCode("kPSS");
inline constexpr OSType kStatePlaying = fourCharCode("kPSP");
inline constexpr OSType kStatePaused = fourCharCode("kPSp");
inline constexpr OSType kStateFastForwarding = fourCharCode("kPSF");
inline constexpr OSType kStateRewinding = fourCharCode("kPSR");

// Special kind of a playlist (eSpK).
inline constexpr OSType kSpecialNone = fourCharCode("kSpN");
inline constexpr OSType kSpecialAudiobooks = fourCharCode("kSpA");
inline constexpr OSType kSpecialFolder = fourCharCode("kSpF");
inline constexpr OSType kSpecialMovies = fourCharCode("kSpI");
inline constexpr OSType kSpecialMusic = fourCharCode("kSpZ");
inline constexpr OSType kSpecialPartyShuffle = fourCharCode("kSpS");
inline constexpr OSType kSpecialPodcasts = fourCharCode("kSpP");
inline constexpr OSType kSpecialPurchasedMusic = fourCharCode("kSpM");
inline constexpr OSType kSpecialTvShows = fourCharCode("kSpT");
inline constexpr OSType kSpecialVideos = fourCharCode("kSpV");
inline constexpr OSType kSpecialGenius = fourCharCode("kSpG");  // players from 8.0 only

// Search area (eSrA), the 'pAre' parameter of a search.
inline constexpr OSType kSearchAll = fourCharCode("kSrA");
inline constexpr OSType kSearchAllLater = fourCharCode("kAll");  // later players' spelling
inline constexpr OSType kSearchAlbums = fourCharCode("kSrL");
inline constexpr OSType kSearchArtists = fourCharCode("kSrR");
inline constexpr OSType kSearchComposers = fourCharCode("kSrC");
inline constexpr OSType kSearchDisplayed = fourCharCode("kSrV");
inline constexpr OSType kSearchSongs = fourCharCode("kSrS");

// Song repeat (eRpt).
inline constexpr OSType kRepeatOff = fourCharCode("kRpO");
inline constexpr OSType kRepeatOne = fourCharCode("kRp1");
inline constexpr OSType kRepeatAll = fourCharCode("kRpA");

// Video kind (eVdK).
inline constexpr OSType kVideoNone = fourCharCode("kVdN");
inline constexpr OSType kVideoMovie = fourCharCode("kVdM");
inline constexpr OSType kVideoMusicVideo = fourCharCode("kVdV");
inline constexpr OSType kVideoTvShow = fourCharCode("kVdT");

// Source kind (eSrc).
inline constexpr OSType kSourceLibrary = fourCharCode("kLib");

}  // namespace rvitunes::player
