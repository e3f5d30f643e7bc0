#include "rvitunes/base/CapturingLogSink.h"

#include <algorithm>

namespace rvitunes {

void CapturingLogSink::write(std::string_view line) {
  std::lock_guard lock(mutex_);
  lines_.emplace_back(line);
}

std::vector<std::string> CapturingLogSink::lines() const {
  std::lock_guard lock(mutex_);
  return lines_;
}

bool CapturingLogSink::contains(std::string_view text) const {
  std::lock_guard lock(mutex_);
  return std::any_of(lines_.begin(), lines_.end(), [text](const std::string& line) {
    return line.find(text) != std::string::npos;
  });
}

void CapturingLogSink::clear() {
  std::lock_guard lock(mutex_);
  lines_.clear();
}

}  // namespace rvitunes
