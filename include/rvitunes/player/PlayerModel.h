// The whole state of the reference player that events read and change: the library, the
// version it pretends to be, the application's properties (sound volume, equaliser, fixed
// indexing, frontmost, visible, mute), the selection, and playback (player state, position,
// current track and playlist), plus the write-back of the library file.
//
// Threads: the event thread alone calls PlayerModel's members (the player handles events one
// at a time). Two helpers run beside it, each safe by itself: the playback clock (its own
// mutex) and the write-back thread, which only serializes the library tree under the
// library's tree lock. tick() lets an idle event loop count finished tracks as played without
// a client asking.
#pragma once

#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "rvitunes/ae/Descriptor.h"
#include "rvitunes/base/FileSystem.h"
#include "rvitunes/base/Result.h"
#include "rvitunes/player/Library.h"
#include "rvitunes/player/LibraryWriteBack.h"
#include "rvitunes/player/PlaybackClock.h"
#include "rvitunes/player/PlayerCodes.h"
#include "rvitunes/player/PlayerVersion.h"
#include "rvitunes/player/TimeSource.h"

namespace rvitunes::player {

struct PlayerOptions {
  PlayerVersion version;
  // Write changes of the library back to its file.
  bool writeBack = true;
  std::chrono::milliseconds writeBackDelay{500};
  std::chrono::milliseconds writeBackMaxDelay{5000};
  // The clock of playback; the steady clock when null.
  std::shared_ptr<TimeSource> time;
  // The file system of the write-back; the default one when null. Must outlive the model.
  FileSystem* fileSystem = nullptr;
};

class PlayerModel {
 public:
  // How long a track plays whose length the library does not know (no "Total Time", as for an
  // added file whose format tells no length); its 'pDur' still reads 0.
  static constexpr double kUnknownLengthSeconds = 180.0;

  explicit PlayerModel(PlayerOptions options = {});
  ~PlayerModel();  // flushes a pending write
  PlayerModel(const PlayerModel&) = delete;
  PlayerModel& operator=(const PlayerModel&) = delete;

  // Loads the library file (Library::load) and starts its write-back. The selection becomes
  // the first track of the library; the queue is the library playlist, nothing playing.
  Status load(const std::string& path);
  // As load, from a tree (no write-back when `path` is empty).
  Status loadTree(plist::Value root, std::string path);

  Library& library() { return library_; }
  const Library& library() const { return library_; }
  const PlayerVersion& version() const { return options_.version; }
  PlaybackClock& clock() { return clock_; }
  // Null when write-back is off or nothing is loaded.
  LibraryWriteBack* writeBack() { return writeBack_.get(); }

  // ---- Application properties ---------------------------------------------------------------
  // Scalar properties of the application: 'pPos' (whole seconds, 'long'), 'pPlS' ('enum'),
  // 'pVol' (0...100), 'pEQ ', 'pFix', 'pisf', 'pvis', 'pMut' ('bool'), 'pnam' ("iTunes"),
  // 'vers' (the version record). errAENoSuchObject for other codes; errAECantSupplyType for
  // the object-valued 'pTrk', 'pPla' and 'sele', which the resolver makes from currentTrack(),
  // currentPlaylist() and selection(). Setting: 'pPos', 'pVol' (clamped to 0...100), 'pEQ ',
  // 'pFix', 'pisf', 'pvis', 'pMut'; errAEWriteDenied for the read-only ones.
  Result<ae::Descriptor> applicationProperty(OSType code);
  Status setApplicationProperty(OSType code, const ae::Descriptor& value);

  int32_t soundVolume() const { return volume_; }
  bool eqEnabled() const { return eqEnabled_; }
  bool fixedIndexing() const { return fixedIndexing_; }
  bool frontmost() const { return frontmost_; }
  bool visible() const { return visible_; }
  // Activation ('misc'/'actv') makes the player frontmost and visible.
  void activate();

  // ---- Selection ----------------------------------------------------------------------------
  // The selected tracks (the first track of the library after loading; empty for an empty
  // library).
  const std::vector<DatabaseId>& selection() const { return selection_; }
  // errAENoSuchObject (and no change) when an ID names no track.
  Status setSelection(std::vector<DatabaseId> tracks);

  // ---- Playback ----------------------------------------------------------------------------
  OSType playerState();
  double playerPosition();
  // The playing or paused track; nullopt while stopped.
  std::optional<DatabaseId> currentTrack();
  // The playlist being played (the library playlist until another one is played).
  std::optional<DatabaseId> currentPlaylist();

  // Transport commands ('hook' events of the same names).
  void play();
  // Plays `track` of `playlist` (the library playlist when nullopt or when the track is not in
  // it); with `once` the player stops after it. errAENoSuchObject for unknown IDs.
  Status playTrack(DatabaseId track, std::optional<DatabaseId> playlist = std::nullopt,
                   bool once = false);
  // Plays a playlist from its first track. errAENoSuchObject for an unknown ID.
  Status playPlaylist(DatabaseId playlist);
  // Plays the file at `path`, adding it to the library first when it is new.
  Result<DatabaseId> playFile(const std::string& path, bool once = false);
  void pause();
  void playPause();
  void resume();
  void stop();
  void nextTrack();
  void previousTrack();
  void backTrack();
  void fastForward();
  void rewind();

  // Counts tracks that played to their end (play count and date) and brings the queue in line
  // with a changed playlist. Called by every playback member; an idle loop may call it now and
  // then.
  void tick();

  // ---- Library changes that concern the whole player ------------------------------------------
  // Adds files (Library::addFiles) and, when `playlist` is given, appends the new tracks to it.
  Result<std::vector<DatabaseId>> addFiles(const std::vector<std::string>& paths,
                                           std::optional<DatabaseId> playlist = std::nullopt);

  // Quitting: writes a pending change of the library now and ends the write-back thread. When
  // the write fails the error is answered and the write-back keeps running with the change
  // still pending (it retries on its own), so the caller can stay up instead of losing it.
  Status quit();

 private:
  void startWriteBack();
  void afterLoad();
  std::vector<PlaybackClock::Entry> queueFor(const Playlist& playlist) const;
  // Makes `playlist` the clock's queue with the cursor at `index`.
  void queuePlaylist(const Playlist& playlist, size_t index);

  PlayerOptions options_;
  Library library_;
  PlaybackClock clock_;
  std::unique_ptr<LibraryWriteBack> writeBack_;
  // The items of the playlist the clock's queue was made from, to notice changes.
  std::vector<DatabaseId> queued_;
  std::vector<DatabaseId> selection_;
  int32_t volume_ = 100;
  bool eqEnabled_ = false;
  bool fixedIndexing_ = false;
  bool frontmost_ = false;
  bool visible_ = true;
  bool mute_ = false;
};

}  // namespace rvitunes::player
