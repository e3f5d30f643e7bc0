// Cadenza: the controller of the running player. One process-wide instance addresses the
// player application itself (its descriptor is the null descriptor, its events go to 'hook'):
// transport commands, playing a file or a track, the application's properties, searching,
// adding files, the selection, look-ups by persistent ID, the tree of playlists kept by the
// playlist cache, and the player's version, by which every live object picks the request
// forms the running player understands.
//
// Results on failure. Nothing throws. Commands and writes fail silently but for one NullLog
// line; reads answer nullptr (objects), std::nullopt (lists, the version text), the presets of
// the base conversions (numbers), or false. Log texts are fixed: "Error creating Apple Event:
// %d" and "Error creating AppleEvent: %d" (both forms are used, each where noted), "Error
// sending AppleEvent: %d", "Error extracting from reply event: %d", "Unable to access Reply
// List: %d", "Error rextracting from List: %d", "Unable to resolve path to alias" and "Unable
// to get Library Playlist".
//
// Ownership. Every object handed out is a new object the caller shares; it holds its own
// specifier and does not depend on the controller staying alive.
//
// Threads. The shared instance and the cached version live in mutex-protected slots, so any
// thread may make the first call. Every other operation works on its own event and reply and
// may run on several threads at once; each blocks its caller until the player has taken the
// event (commands, plays and writes) or answered (reads), or the default timeout has passed.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "rvitunes/ae/Descriptor.h"
#include "rvitunes/base/FourCharCode.h"
#include "rvitunes/base/Url.h"
#include "rvitunes/cadenza/CZAppleEventObject.h"

namespace rvitunes {

class CZPlaylist;
class CZTrack;
class CZPlaylistEnumerator;
class CZUserPlaylistEnumerator;

// The list-returning queries: nullopt when nothing could be read, otherwise the tracks read
// (possibly none, possibly fewer than the player sent when the walk of its list broke off).
using CZTrackList = std::optional<std::vector<std::shared_ptr<CZTrack>>>;

class Cadenza : public CZAppleEventObject {
 public:
  // Packed versions named by the gates (major << 8 | minor << 4 | patch).
  static constexpr uint32_t kVersion6_0_0 = 0x600;
  static constexpr uint32_t kVersion7_2_0 = 0x720;
  static constexpr uint32_t kVersion7_2_1 = 0x721;

  // A controller of its own, addressing the application (null descriptor, 'hook'). Hosts use
  // the shared instance; a separate one behaves the same and shares the cached version.
  Cadenza();
  ~Cadenza() override;

  // ---- The shared instance ------------------------------------------------------------------

  // The shared controller, made on first use. Two calls without unSharedInstance between them
  // answer the same object.
  static std::shared_ptr<Cadenza> sharedInstance();
  // Forgets the shared controller (holders keep theirs); nothing when there is none.
  static void unSharedInstance();
  // Forgets the shared controller and the shared playlist cache together, then answers a new
  // shared controller: the next tree of playlists is read anew from the player. The cached
  // version is kept (see resetCachedVersion).
  static std::shared_ptr<Cadenza> reSharedInstance();

  // ---- Commands -----------------------------------------------------------------------------

  // The event 'hook'/`eventID` to the player with the null descriptor as its direct object;
  // nullptr when it cannot be built ("Error creating Apple Event: %d").
  std::unique_ptr<ae::Descriptor> newCommandEvent(OSType eventID);
  // Builds the command and sends it without waiting for a reply (mode 17). A command that
  // cannot be built is sent anyway as the null event, which fails to send; every send failure
  // logs "Error sending AppleEvent: %d".
  void sendCommand(OSType eventID);

  void backTrack();      // 'Back'
  void fastForward();    // 'Fast'
  void nextTrack();      // 'Next'
  void pause();          // 'Paus'
  void play();           // 'Play'
  void playPause();      // 'PlPs'
  void previousTrack();  // 'Prev'
  void resume();         // 'Resu'
  void rewind();         // 'Rwnd'
  void stop();           // 'Stop'

  // Plays the file at `path` ('hook'/'Play' with an alias to it). A path that names no file
  // logs "Unable to resolve path to alias" and sends nothing.
  void playTrackWithPath(std::string_view path);
  // Plays `track` (any live object: its specifier is the direct object).
  void playTrack(const CZAppleEventObject& track);

  // ---- Application properties ---------------------------------------------------------------

  int32_t playerPosition();  // 'pPos'; -1 when the read fails
  // 'pPlS' as the player reports it ('kPSP', 'kPSS', ...); 'kPSS' when the reply holds no
  // code, 0xFFFFFFFF when the request fails.
  OSType playerState();
  int32_t soundVolume();  // 'pVol'; -1 when the read fails
  void setSoundVolume(int32_t volume);
  // 'pEQ ' read as an integer of which only the lowest byte counts: a failed read (-1) is true.
  bool eqEnabled();
  void setEqEnable(bool enabled);  // writes 1 or 0
  // 'pFix', lowest byte as for eqEnabled.
  bool fixedIndexing();
  void setFixedIndexing(bool fixed);

  // The track playing (or paused); nullptr when there is none or the read fails.
  std::shared_ptr<CZTrack> currentTrack();
  // The playlist the player plays from; nullptr when the read fails.
  std::shared_ptr<CZPlaylist> currentPlaylist();
  // The player's first library playlist; nullptr when it cannot be read ("Unable to get
  // Library Playlist" when no reply came).
  std::shared_ptr<CZPlaylist> libraryPlaylist();

  // ---- Library queries ----------------------------------------------------------------------

  // The tracks of `playlist` that match `text` in the player's search area `field` (a code of
  // the player's such as 'kSrA'; 0 searches without naming an area).
  CZTrackList searchForStringInField(const CZAppleEventObject& playlist, std::string_view text,
                                     OSType field);
  // Adds the file `location` names (its path) to `playlist`: the tracks the player made (an
  // existing track when the file is already in the library). Without a playlist the request
  // cannot be built, so nullptr always answers nullopt after "Error creating Apple Event: %d";
  // use addTrackToLibrary for that.
  CZTrackList addTrackToPlaylist(const Url& location, const CZAppleEventObject* playlist);
  // Adds the file `location` names to the library (no insertion place).
  CZTrackList addTrackToLibrary(const Url& location);
  // The tracks selected in the player.
  CZTrackList selectedTracks();

  // The root (ID 0) of the whole playlist tree, and of the user-playlist tree, of the shared
  // playlist cache (built on first use).
  std::shared_ptr<CZPlaylist> rootPlaylist();
  std::shared_ptr<CZPlaylist> rootUserPlaylist();
  // Drops the shared playlist cache and answers the root of a freshly read one.
  std::shared_ptr<CZPlaylist> reloadRootPlaylist();

  // The number of the player's playlists; -1 when it cannot be read.
  int32_t playlistCount();
  // All of the player's playlists, one request each.
  std::vector<std::shared_ptr<CZPlaylist>> playlists();
  std::shared_ptr<CZPlaylistEnumerator> playlistEnumerator();
  // The player's ordinary playlists (no folders, no special playlists), one request each; the
  // count is that of the list.
  int32_t userPlaylistCount();
  std::vector<std::shared_ptr<CZPlaylist>> userPlaylists();
  std::shared_ptr<CZUserPlaylistEnumerator> userPlaylistEnumerator();

  // The playlist with persistent ID `persistentId`, asked in the form the running version
  // understands: nothing is sent to players of 6.0.0 and older (nullptr); 7.2.0 and 7.2.1 get
  // the ID as 16 upper-case hexadecimal digits, every other version as a 64-bit integer.
  // nullptr when there is no such playlist ("Error extracting from reply event: %d").
  std::shared_ptr<CZPlaylist> playlistWithPersistentId(uint64_t persistentId);
  // The track of the library playlist with that persistent ID (as a number, or as hexadecimal
  // text); nullptr when there is no library playlist or no such track.
  std::shared_ptr<CZTrack> trackWithPersistentId(uint64_t persistentId);
  std::shared_ptr<CZTrack> trackWithPersistentIdString(std::string_view persistentId);

  // ---- The player's version -----------------------------------------------------------------
  // Read once per process and kept: the text from the player's 'vers', and that text packed as
  // major << 8 | minor << 4 | patch, each of the first three components reduced to its lowest
  // 8 bits (components from 16 upward spill into the next one's bits; 7.2.1 is 0x721, 6.0 is
  // 0x600, 8.0.1.5 is 0x801). A failed read is not kept, so the next call asks again; a text
  // that packs to 0 is packed again on every call.

  // The player's version text; nullopt when it could not be read.
  std::optional<std::string> versionString();
  // The packed version; 0 when unknown.
  uint32_t versionNumber();
  // Unsigned comparisons of versionNumber() with a packed version.
  bool versionGreaterThan(uint32_t version);
  bool versionLessThan(uint32_t version);

  // Forgets the cached version, so that the next versionString asks the player again: for a
  // host whose player was restarted, perhaps as another version, in the same process.
  static void resetCachedVersion();

  // Packs a version text as versionNumber does (pure; "" and text without digits give 0).
  static uint32_t packVersion(std::string_view version);
};

}  // namespace rvitunes
