#include "rvitunes/player/TimeSource.h"

#include <chrono>

namespace rvitunes::player {
namespace {

class SteadyTimeSource final : public TimeSource {
 public:
  double nowSeconds() override {
    return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch())
        .count();
  }
};

}  // namespace

std::shared_ptr<TimeSource> steadyTimeSource() {
  static const std::shared_ptr<TimeSource> instance = std::make_shared<SteadyTimeSource>();
  return instance;
}

}  // namespace rvitunes::player
