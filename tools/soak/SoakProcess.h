// Child processes of a soak run and what /proc tells about them.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "rvitunes/base/Result.h"

namespace rvitunes::soak {

// A child started with fork and exec, its stdout and stderr going to a log file. The child gets
// SIGTERM when this process dies, so nothing outlives a killed run. The destructor ends a child
// still running (SIGTERM, then SIGKILL after a grace period) and reaps it.
class ChildProcess {
 public:
  static Result<ChildProcess> start(const std::vector<std::string>& argv,
                                    const std::string& logPath);

  ChildProcess(ChildProcess&& other) noexcept;
  ChildProcess& operator=(ChildProcess&& other) noexcept;
  ChildProcess(const ChildProcess&) = delete;
  ChildProcess& operator=(const ChildProcess&) = delete;
  ~ChildProcess();

  pid_t pid() const { return pid_; }
  bool running();
  // The exit status (0-255), or 128 + the signal that ended it; nullopt while it runs (with
  // `wait` false) or when it did not end within `timeout`.
  std::optional<int> exitStatus(bool wait, std::chrono::milliseconds timeout = {});
  void signal(int number);
  // SIGTERM, then SIGKILL after `grace`; answers the exit status.
  int stop(std::chrono::milliseconds grace);

 private:
  explicit ChildProcess(pid_t pid) : pid_(pid) {}
  pid_t pid_ = -1;
  std::optional<int> status_;
};

struct ProcessSample {
  double seconds = 0;   // since the run started
  uint64_t rssKiB = 0;  // VmRSS
  size_t descriptors = 0;
};

// The resident memory and open descriptors of `pid`; nullopt when it is gone. A descriptor the
// process holds only for a moment (a file being written) is left out by taking the least count
// of five looks over 0.4 s.
std::optional<ProcessSample> sampleProcess(pid_t pid);

// The path of this program.
std::string selfExecutable();

}  // namespace rvitunes::soak
