#include "rvitunes/player/PlaybackClock.h"

#include <algorithm>
#include <utility>

namespace rvitunes::player {

PlaybackClock::PlaybackClock(std::shared_ptr<TimeSource> time)
    : time_(time ? std::move(time) : steadyTimeSource()), lastUpdate_(time_->nowSeconds()) {}

double PlaybackClock::durationLocked() const {
  return index_ < queue_.size() ? std::max(0.0, queue_[index_].duration) : 0.0;
}

double PlaybackClock::rateLocked() const {
  switch (state_) {
    case kStatePlaying:
      return 1.0;
    case kStateFastForwarding:
      return kScanRate;
    case kStateRewinding:
      return -kScanRate;
    default:
      return 0.0;
  }
}

void PlaybackClock::stopLocked() {
  state_ = kStateStopped;
  position_ = 0;
  once_ = false;
}

void PlaybackClock::startLocked(size_t index, OSType state) {
  index_ = index;
  position_ = 0;
  state_ = state;
}

bool PlaybackClock::nextLocked(bool finished) {
  if (finished && once_) {
    stopLocked();
    return false;
  }
  if (finished && repeat_ == Repeat::kOne) {
    position_ = 0;
    return true;
  }
  if (index_ + 1 < queue_.size()) {
    ++index_;
    position_ = 0;
    return true;
  }
  if (repeat_ == Repeat::kAll && !queue_.empty()) {
    index_ = 0;
    position_ = 0;
    return true;
  }
  stopLocked();
  index_ = 0;
  return false;
}

void PlaybackClock::advanceLocked() {
  const double now = time_->nowSeconds();
  double remaining = now - lastUpdate_;
  lastUpdate_ = now;
  if (remaining <= 0) return;
  // Entries without length end at once; a queue of nothing else must not spin for ever.
  size_t instantEnds = 0;
  while (true) {
    const double rate = rateLocked();
    if (rate == 0.0 || index_ >= queue_.size()) return;
    if (rate < 0) {
      position_ = std::max(0.0, position_ + remaining * rate);
      return;
    }
    const double duration = durationLocked();
    const double needed = std::max(0.0, (duration - position_) / rate);
    if (remaining < needed) {
      position_ += remaining * rate;
      return;
    }
    remaining -= needed;
    instantEnds = needed > 0 ? 0 : instantEnds + 1;
    if (instantEnds > queue_.size()) {
      stopLocked();
      return;
    }
    const bool played = state_ == kStatePlaying;
    if (played) finished_.push_back(queue_[index_].track);
    if (!nextLocked(played)) return;
  }
}

void PlaybackClock::setQueue(std::optional<DatabaseId> playlist, std::vector<Entry> entries,
                             size_t index) {
  std::lock_guard lock(mutex_);
  advanceLocked();
  queue_ = std::move(entries);
  playlist_ = playlist;
  index_ = queue_.empty() ? 0 : std::min(index, queue_.size() - 1);
  position_ = 0;
  if (queue_.empty()) stopLocked();
}

void PlaybackClock::updateQueue(std::vector<Entry> entries) {
  std::lock_guard lock(mutex_);
  advanceLocked();
  std::optional<size_t> found;
  if (index_ < queue_.size()) {
    const DatabaseId current = queue_[index_].track;
    for (size_t i = 0; i < entries.size() && !found; ++i) {
      const size_t at = (index_ + i) % entries.size();
      if (entries[at].track == current) found = at;
    }
  }
  queue_ = std::move(entries);
  if (found) {
    index_ = *found;
  } else {
    index_ = 0;
    stopLocked();
  }
}

void PlaybackClock::playAt(size_t index, bool once) {
  std::lock_guard lock(mutex_);
  advanceLocked();
  if (index >= queue_.size()) return;
  startLocked(index, kStatePlaying);
  once_ = once;
}

void PlaybackClock::playLocked() {
  if (queue_.empty()) return;
  if (state_ == kStateStopped) position_ = 0;
  state_ = kStatePlaying;
}

void PlaybackClock::previousLocked() {
  if (queue_.empty()) return;
  once_ = false;
  if (index_ > 0) --index_;
  position_ = 0;
}

void PlaybackClock::play() {
  std::lock_guard lock(mutex_);
  advanceLocked();
  playLocked();
}

void PlaybackClock::pause() {
  std::lock_guard lock(mutex_);
  advanceLocked();
  if (state_ != kStateStopped) state_ = kStatePaused;
}

void PlaybackClock::playPause() {
  std::lock_guard lock(mutex_);
  advanceLocked();
  if (state_ == kStatePlaying) {
    state_ = kStatePaused;
  } else {
    playLocked();
  }
}

void PlaybackClock::resume() {
  std::lock_guard lock(mutex_);
  advanceLocked();
  if (state_ != kStateStopped) state_ = kStatePlaying;
}

void PlaybackClock::stop() {
  std::lock_guard lock(mutex_);
  advanceLocked();
  stopLocked();
}

void PlaybackClock::fastForward() {
  std::lock_guard lock(mutex_);
  advanceLocked();
  if (queue_.empty()) return;
  if (state_ == kStateStopped) position_ = 0;
  state_ = kStateFastForwarding;
}

void PlaybackClock::rewind() {
  std::lock_guard lock(mutex_);
  advanceLocked();
  if (queue_.empty()) return;
  if (state_ == kStateStopped) position_ = 0;
  state_ = kStateRewinding;
}

void PlaybackClock::nextTrack() {
  std::lock_guard lock(mutex_);
  advanceLocked();
  if (queue_.empty()) return;
  once_ = false;
  nextLocked(false);
}

void PlaybackClock::previousTrack() {
  std::lock_guard lock(mutex_);
  advanceLocked();
  previousLocked();
}

void PlaybackClock::backTrack() {
  std::lock_guard lock(mutex_);
  advanceLocked();
  if (state_ != kStateStopped && position_ > kBackTrackRestart) {
    position_ = 0;
  } else {
    previousLocked();
  }
}

void PlaybackClock::setPosition(double seconds) {
  std::lock_guard lock(mutex_);
  advanceLocked();
  if (state_ == kStateStopped || index_ >= queue_.size()) return;
  position_ = std::clamp(seconds, 0.0, durationLocked());
}

void PlaybackClock::setRepeat(Repeat repeat) {
  std::lock_guard lock(mutex_);
  advanceLocked();
  repeat_ = repeat;
}

PlaybackClock::Snapshot PlaybackClock::snapshot() {
  std::lock_guard lock(mutex_);
  advanceLocked();
  Snapshot out;
  out.state = state_;
  out.position = position_;
  out.playlist = playlist_;
  out.index = index_;
  if (state_ != kStateStopped && index_ < queue_.size()) out.track = queue_[index_].track;
  return out;
}

std::vector<DatabaseId> PlaybackClock::takeFinished() {
  std::lock_guard lock(mutex_);
  advanceLocked();
  return std::exchange(finished_, {});
}

}  // namespace rvitunes::player
