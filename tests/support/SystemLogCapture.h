// Captures the system log while it lives, then puts the previous sink back.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "rvitunes/base/CapturingLogSink.h"
#include "rvitunes/base/Log.h"

namespace rvitunes::testing::support {

class SystemLogCapture {
 public:
  SystemLogCapture() : previous_(setSystemLogSink(sink)) {}
  ~SystemLogCapture() { setSystemLogSink(previous_); }
  SystemLogCapture(const SystemLogCapture&) = delete;
  SystemLogCapture& operator=(const SystemLogCapture&) = delete;

  std::vector<std::string> lines() const { return sink->lines(); }

  const std::shared_ptr<CapturingLogSink> sink = std::make_shared<CapturingLogSink>();

 private:
  std::shared_ptr<LogSink> previous_;
};

}  // namespace rvitunes::testing::support
