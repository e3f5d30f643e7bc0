// The clock that playback runs on: monotonic seconds. The player uses the steady system clock;
// tests substitute ManualTimeSource and move time by hand.
#pragma once

#include <memory>

namespace rvitunes::player {

class TimeSource {
 public:
  virtual ~TimeSource() = default;
  // Seconds since an arbitrary fixed origin; never decreases. Must be thread-safe.
  virtual double nowSeconds() = 0;
};

// The steady system clock (std::chrono::steady_clock), one instance for the whole process.
std::shared_ptr<TimeSource> steadyTimeSource();

}  // namespace rvitunes::player
