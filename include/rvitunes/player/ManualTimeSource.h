// A TimeSource whose time moves only when told to: for tests of playback.
#pragma once

#include <atomic>

#include "rvitunes/player/TimeSource.h"

namespace rvitunes::player {

class ManualTimeSource final : public TimeSource {
 public:
  explicit ManualTimeSource(double start = 1000.0) : now_(start) {}
  double nowSeconds() override { return now_.load(); }
  // Moves time forward by `seconds` (negative values are ignored: time never goes back).
  void advance(double seconds) {
    if (seconds > 0) now_.store(now_.load() + seconds);
  }

 private:
  std::atomic<double> now_;
};

}  // namespace rvitunes::player
