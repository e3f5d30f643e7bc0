// The player's transport: which track of which playlist is current, the player state and the
// position, advancing in real time on a TimeSource. No audio is produced; the clock is what a
// client observes.
//
// The clock plays a queue: the tracks of the current playlist with their durations, in order.
// While playing, the position grows with the time source; at the end of a track the next one
// starts (repeat one: the same one, repeat all: after the last comes the first), after the last
// one (or after a track played "once") the player stops. Fast forwarding and rewinding move the
// position kScanRate times faster than real time, forward or back; rewinding stops at the
// track's start, fast forwarding runs on into the next track. Time is brought up to date
// lazily, whenever the clock is asked or told something, so no thread is needed.
//
// Stopped means: position 0 and no current track (the player answers "no such object" for it)
// although the clock remembers where it was, so that play() starts that track again.
//
// Thread-safe: every member locks the clock's own mutex, so a status display may read it from
// another thread while the event thread drives it.
#pragma once

#include <cstddef>
#include <memory>
#include <mutex>
#include <optional>
#include <vector>

#include "rvitunes/player/PlayerCodes.h"
#include "rvitunes/player/TimeSource.h"

namespace rvitunes::player {

class PlaybackClock {
 public:
  // Seconds of track covered per second of real time while fast forwarding or rewinding.
  static constexpr double kScanRate = 4.0;
  // back track restarts the current track when more than this many seconds have played.
  static constexpr double kBackTrackRestart = 2.0;

  struct Entry {
    DatabaseId track = 0;
    double duration = 0;  // seconds; 0 or less plays as an instant
  };

  enum class Repeat { kOff, kOne, kAll };

  // What a client sees at one moment.
  struct Snapshot {
    OSType state = kStateStopped;
    double position = 0;                 // seconds into the current track
    std::optional<DatabaseId> track;     // none while stopped
    std::optional<DatabaseId> playlist;  // the playlist the queue came from
    size_t index = 0;                    // queue position of the (remembered) track
  };

  explicit PlaybackClock(std::shared_ptr<TimeSource> time);
  PlaybackClock(const PlaybackClock&) = delete;
  PlaybackClock& operator=(const PlaybackClock&) = delete;

  // Replaces the queue with `entries` of `playlist`, the cursor at `index` (clamped), position
  // 0. The state is kept, so a playing clock goes on with the new track from its start.
  void setQueue(std::optional<DatabaseId> playlist, std::vector<Entry> entries, size_t index);
  // Replaces the queue but keeps the current track and its position when `entries` holds it
  // (the first entry with its ID at or after the old index, else any); used when a playlist
  // changes under the player. Otherwise as setQueue with index 0.
  void updateQueue(std::vector<Entry> entries);
  // Starts queue entry `index` from 0 and plays it; with `once` the player stops after it.
  // Ignored when the index is out of range.
  void playAt(size_t index, bool once = false);

  // Play: from stopped, starts the remembered track from 0; from paused, fast forwarding or
  // rewinding, plays on from the position. Nothing happens with an empty queue.
  void play();
  void pause();        // playing, fast forwarding, rewinding -> paused; stopped stays stopped
  void playPause();    // playing -> paused; anything else -> play()
  void resume();       // paused, fast forwarding, rewinding -> playing
  void stop();         // -> stopped, position 0
  void fastForward();  // -> fast forwarding (from stopped: the remembered track from 0)
  void rewind();       // -> rewinding (the same)
  // The next / previous entry from 0, in the same state (a stopped clock only moves its
  // cursor). After the last entry next wraps to the first only with repeat all; otherwise it
  // stops. Before the first previous stays on the first.
  void nextTrack();
  void previousTrack();
  // Restarts the current track when more than kBackTrackRestart seconds have played, else
  // acts as previousTrack().
  void backTrack();
  // Moves the position within the current track, clamped to 0...duration. Ignored while
  // stopped.
  void setPosition(double seconds);
  void setRepeat(Repeat repeat);

  Snapshot snapshot();
  OSType state() { return snapshot().state; }
  double position() { return snapshot().position; }
  std::optional<DatabaseId> currentTrack() { return snapshot().track; }
  std::optional<DatabaseId> currentPlaylist() { return snapshot().playlist; }

  // The tracks that played to their end since the last call, in order (a track that ends
  // twice is listed twice). The player counts them as played.
  std::vector<DatabaseId> takeFinished();

 private:
  // Brings the state up to the time source's now. Requires mutex_.
  void advanceLocked();
  void startLocked(size_t index, OSType state);
  void playLocked();
  void previousLocked();
  void stopLocked();
  // Moves past the end of the current entry in the direction of travel. Requires mutex_.
  bool nextLocked(bool finished);
  double durationLocked() const;
  double rateLocked() const;

  std::shared_ptr<TimeSource> time_;
  std::mutex mutex_;
  std::vector<Entry> queue_;
  std::optional<DatabaseId> playlist_;
  size_t index_ = 0;
  OSType state_ = kStateStopped;
  double position_ = 0;  // at lastUpdate_
  double lastUpdate_ = 0;
  bool once_ = false;
  Repeat repeat_ = Repeat::kOff;
  std::vector<DatabaseId> finished_;
};

}  // namespace rvitunes::player
