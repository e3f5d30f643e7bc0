// A log sink for tests: keeps every line it receives.
#pragma once

#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "rvitunes/base/Log.h"

namespace rvitunes {

// Stores each written line in order. All members are thread-safe.
class CapturingLogSink : public LogSink {
 public:
  void write(std::string_view line) override;

  // A copy of the lines written so far, oldest first.
  std::vector<std::string> lines() const;
  // True when some line contains `text`.
  bool contains(std::string_view text) const;
  void clear();

 private:
  mutable std::mutex mutex_;
  std::vector<std::string> lines_;
};

}  // namespace rvitunes
