// A one-line progress bar on standard error, drawn only when standard error is a terminal and
// the work is large enough to be worth watching.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>

namespace rvitunes::cli {

class ProgressBar {
 public:
  // `label` leads the line; nothing is drawn when total < minimumBytes or stderr is no terminal.
  ProgressBar(std::string label, uint64_t total, uint64_t minimumBytes = uint64_t{8} << 20);
  ProgressBar(const ProgressBar&) = delete;
  ProgressBar& operator=(const ProgressBar&) = delete;
  // Clears the line if anything was drawn.
  ~ProgressBar();

  void update(uint64_t done);

 private:
  std::string label_;
  uint64_t total_;
  bool enabled_;
  bool drawn_ = false;
  int lastPercent_ = -1;
};

}  // namespace rvitunes::cli
