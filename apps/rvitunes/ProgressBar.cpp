#include "ProgressBar.h"

#include <unistd.h>

#include <cstdio>

namespace rvitunes::cli {

ProgressBar::ProgressBar(std::string label, uint64_t total, uint64_t minimumBytes)
    : label_(std::move(label)),
      total_(total),
      enabled_(total >= minimumBytes && isatty(STDERR_FILENO)) {}

ProgressBar::~ProgressBar() {
  if (drawn_) std::fprintf(stderr, "\r\033[K");
}

void ProgressBar::update(uint64_t done) {
  if (!enabled_ || total_ == 0) return;
  int percent = static_cast<int>(done * 100 / total_);
  if (percent == lastPercent_) return;
  lastPercent_ = percent;
  constexpr int kWidth = 30;
  std::string bar(static_cast<size_t>(percent * kWidth / 100), '#');
  bar.resize(kWidth, ' ');
  std::fprintf(stderr, "\r%s [%s] %3d%%", label_.c_str(), bar.c_str(), percent);
  std::fflush(stderr);
  drawn_ = true;
}

}  // namespace rvitunes::cli
