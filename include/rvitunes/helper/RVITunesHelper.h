// RVITunesHelper: the framework's main object. It finds the iTunes library file (the host's
// own setting, then the iApps list of recent libraries, then the default location, then the
// user), remembers the choice, and tells whether the file changed since the host last read it.
// It also holds the host's current load and its lists of display items.
//
// The host uses it from its user-interface thread: the alert and the open panel it may show are
// modal. Only the creation of the shared instance is guarded against races.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "rvitunes/ae/Descriptor.h"
#include "rvitunes/base/Date.h"
#include "rvitunes/helper/AppleScript.h"
#include "rvitunes/helper/ApplicationInfo.h"
#include "rvitunes/helper/RVITunesInfo.h"

namespace rvitunes {

class CZPlaylist;
class CZTrack;
class RVITunesPlaylist;
class RVITunesTrackItem;

// The user default that remembers the library file in use.
inline constexpr const char* kiTunesLibraryXMLPathKey = "iTunesLibraryXMLPath";
// Where iTunes lists its recent libraries: a key of another application's preferences.
inline constexpr const char* kiAppsDomain = "com.apple.iApps";
inline constexpr const char* kiTunesRecentDatabasesKey = "iTunesRecentDatabases";

class RVITunesHelper {
 public:
  using PlaylistItems = std::vector<std::shared_ptr<RVITunesPlaylist>>;
  // Track display items by track ID. Ordered by ID, so that listings are reproducible.
  using TrackItems = std::map<int32_t, std::shared_ptr<RVITunesTrackItem>>;

  // The one main object of the process, made on first use.
  static std::shared_ptr<RVITunesHelper> sharediTunesHelper();

  // Empty lists, no load, flags 0, and the epoch (1970-01-01) as the last-seen file date.
  RVITunesHelper();
  RVITunesHelper(const RVITunesHelper&) = delete;
  RVITunesHelper& operator=(const RVITunesHelper&) = delete;
  ~RVITunesHelper();

  // --- fields ------------------------------------------------------------------------------
  const std::shared_ptr<RVITunesInfo>& itunesInfo() const { return itunesInfo_; }
  void setItunesInfo(std::shared_ptr<RVITunesInfo> info) { itunesInfo_ = std::move(info); }
  uint32_t showFlags() const { return showFlags_; }
  void setShowFlags(uint32_t flags) { showFlags_ = flags; }
  // The library file's modification date as last taken in; nullopt is nil.
  const std::optional<Date>& xmlInfodate() const { return xmlInfodate_; }
  void setXmlInfodate(std::optional<Date> date) { xmlInfodate_ = date; }
  PlaylistItems& playlistsArray() { return playlistsArray_; }
  const PlaylistItems& playlistsArray() const { return playlistsArray_; }
  void setPlaylistsArray(PlaylistItems items) { playlistsArray_ = std::move(items); }
  TrackItems& tracksInfoDict() { return tracksInfoDict_; }
  const TrackItems& tracksInfoDict() const { return tracksInfoDict_; }
  void setTracksInfoDict(TrackItems items) { tracksInfoDict_ = std::move(items); }
  // Stored for the host and never called by the framework; not owned.
  void* delegate() const { return delegate_; }
  void setDelegate(void* delegate) { delegate_ = delegate; }

  // --- the library file --------------------------------------------------------------------

  // $HOME followed by "/Music/iTunes/iTunes Music Library.xml". Never empty.
  std::string defaultiTunesXmlPath() const;

  // The first library named in the iApps list of recent libraries whose file exists; nullopt
  // when there is no list or none of its files exists. Entries that are not URLs are skipped.
  std::optional<std::string> enumeratorPropertyList() const;

  // The library file to use: the user default while its file exists, else the iApps list,
  // else the default location; when that file is missing too, asks the user (alert, then open
  // panel). A chosen path whose file exists is stored as the user default. nullopt when the
  // user cancels.
  std::optional<std::string> playlistLibraryFilePath();

  // Stores `path` as the user default, when it names an existing file; otherwise does nothing.
  void setPlaylistLibraryFilePath(const std::optional<std::string>& path);

  // Whether the file playlistLibraryFilePath() answers is newer than xmlInfodate(). May ask
  // the user, as that call does. False when there is no file.
  bool isiTunesLibraryFileUpdate();

  // The same test for a file the caller names, with no look-up and no dialog: true when
  // xmlInfodate() is nil or strictly earlier than the modification date of `path` itself (a
  // final symbolic link is not followed); false when nothing is there.
  bool isLibraryFileUpdatedAtPath(const std::string& path) const;

  // --- scripts and application control (RVITunesHelperScripts.cpp) -------------------------
  // Scripts are composed as text and run by an AppleScript object (AppleScript.h); results are
  // 0 for success and -1 for failure. Nothing is logged; nothing throws (see the executor).

  // Runs one script source once: its result descriptor, or nullptr with *error filled.
  using AppleScriptExecutor = std::function<std::shared_ptr<ae::Descriptor>(
      const std::string& source, AppleScriptError* error)>;
  // Replaces what runs the scripts of the operations below (an empty executor restores the
  // built-in one, an AppleScript object on the shared event manager) and answers the previous
  // one. Exceptions derived from std::exception that an executor throws are swallowed by the
  // operations; others pass through. Thread-safe.
  static AppleScriptExecutor setAppleScriptExecutor(AppleScriptExecutor executor);

  // Runs `source` until a run succeeds, at most 51 times with 100 microseconds between runs:
  // 0 once a run succeeds, -1 when all 51 failed. The script's own result is dropped.
  static int32_t executeAppleScriptWithString(std::string_view source);
  // Runs `source` once: its result descriptor, or nullptr when it fails.
  static std::shared_ptr<ae::Descriptor> executeAppleScriptBackDesc(std::string_view source);
  // nullopt gives -1. Otherwise creates Rv_ExecuteLock (RvExecuteLock.h) if needed, without
  // taking it, and answers executeAppleScriptWithString(source).
  static int32_t executeAppleScriptWithThreadLock(std::optional<std::string_view> source);

  // Plays the file at `path` once in iTunes and rewinds to its start; nullopt gives -1 and runs
  // nothing. `flag` is not used. Whether iTunes runs is not checked first.
  static int32_t startPlayTracksByAppleScriptFlag(std::optional<std::string_view> path,
                                                  std::optional<bool> flag = std::nullopt);
  // Stops iTunes: -1 at once when it is not running; otherwise the controller's stop, the
  // script, and the controller's stop again when the script failed. `sender` is not used.
  static int32_t stopPlayTracksByAppleScript(const void* sender = nullptr);
  // Activate and make visible, hide, or quit the running application `name` (nullopt:
  // "iTunes"); -1 without running a script when it is not running.
  static int32_t showApplicationByAppleScript(std::optional<std::string_view> name);
  static int32_t hideApplicationByAppleScript(std::optional<std::string_view> name);
  static int32_t quitApplicationByAppleScript(std::optional<std::string_view> name);
  // The first running application whose name equals `name` exactly (case matters); nullopt
  // for nullopt or when none runs. Reads the shared event manager's running applications.
  static std::optional<ApplicationInfo> applicationInfoByName(std::optional<std::string_view> name);

  // --- the display-item lists (RVITunesHelperLists.cpp) --------------------------------------
  // Playlist items (RVITunesPlaylist.h) in display order and track items (RVITunesTrackItem.h)
  // by track ID, made from the loaded library. Nothing here logs or throws; a missing library
  // or input of the wrong type gives nil, false or an unchanged list.

  // Refills tracksInfoDict with the items of RVITunesTrackItem::itemWithTrackDictInfo for each
  // value of `tracks` (a dictionary's values or an array's elements) that is a record with a
  // numeric "Track ID"; a later record with the same ID replaces an earlier one. Nothing when
  // `tracks` is nil or no library is loaded. That factory makes no items, so the list ends up
  // empty; updateTrackItemsFromRecords is the variant that fills it.
  void updateiTunesTracksItem(const plist::Value& tracks);
  // The same refill with RVITunesTrackItem::initWithTrackDictInfo, which makes an item for
  // every record with a non-zero numeric "Track ID".
  void updateTrackItemsFromRecords(const plist::Value& tracks);
  // Refills playlistsArray with one item per record of itunesInfo()->playlistsWithFlags(
  // showFlags()) that is a dictionary with a "Playlist ID", sort values 0, 1, 2 ... over the
  // items made. Nothing when `sender` is null or no library is loaded; when the index answers
  // nullopt the old items stay. Track items are not rebuilt here.
  void updateiTunesPlaylistsItem(const void* sender);
  // A placeholder: answers false and does nothing.
  bool refreshTunesPlaylists(const void* sender = nullptr);

  // The loaded tree; null without a load.
  plist::Ref<plist::Dictionary> itunesLibraryInfo() const;
  // playlistsWithFlags(showFlags()) of the load, run anew (which writes the icon keys into the
  // kept records again); nullopt without a load.
  std::optional<std::vector<plist::Value>> itunesPlaylistsInfo();
  // The library's "Tracks" dictionary; null without a load or when it is not a dictionary.
  plist::Ref<plist::Dictionary> itunesTracksInfo() const;

  // The keys of "Tracks" whose record's "Name", "Artist" or "Album" contains `text`, compared
  // in lower case and ignoring diacritics, in the dictionary's order; nullopt for nullopt
  // text, without tracks, and when nothing matches (an empty text matches nothing). Only keys
  // that are numbers are looked at, so on a tree read from a file (string keys) it finds
  // nothing; searchTrackKeysByString also looks at string keys.
  std::optional<std::vector<plist::Value>> searchForTrackNumbersByString(
      std::optional<std::string_view> text) const;
  // The same search over every key, numbers and strings alike.
  std::optional<std::vector<plist::Value>> searchTrackKeysByString(
      std::optional<std::string_view> text) const;

  // These two read the lists of the shared instance (sharediTunesHelper()), not this one's.
  // The track items of the first playlist item with `playlistID`, in the order of its tarcks
  // keys, leaving out IDs without an item; nullopt for 0 or when no item has that ID.
  std::optional<std::vector<std::shared_ptr<RVITunesTrackItem>>> tracksItemsForPlaylistID(
      int32_t playlistID) const;
  // The track item under `trackID`; null for IDs below 1 and when there is none.
  std::shared_ptr<RVITunesTrackItem> trackItemForTrackID(int32_t trackID) const;

  // The lists themselves.
  PlaylistItems& playlistsItems() { return playlistsArray_; }
  TrackItems& tracksItems() { return tracksInfoDict_; }

  // --- the player facade (RVITunesHelperFacade.cpp) ----------------------------------------
  // Each takes Cadenza::sharedInstance() anew and forwards to the operation of the same name,
  // answering what the controller answers.
  static std::shared_ptr<CZPlaylist> libraryPlaylist();
  static std::shared_ptr<CZPlaylist> currentPlaylist();
  static std::shared_ptr<CZTrack> currentTrack();
  static uint32_t versionNumber();
  static std::optional<std::string> versionString();
  static void setSoundVolume(int32_t volume);
  static int32_t soundVolume();
  static void setEqEnable(bool enabled);
  static bool eqEnabled();
  static void previousTrack();
  static void backTrack();
  static void nextTrack();
  static void playPause();
  static void resume();
  static void play();
  static void pause();
  static void stop();

 private:
  std::shared_ptr<RVITunesInfo> itunesInfo_;
  uint32_t showFlags_ = 0;
  std::optional<Date> xmlInfodate_;
  PlaylistItems playlistsArray_;
  TrackItems tracksInfoDict_;
  void* delegate_ = nullptr;
};

}  // namespace rvitunes
