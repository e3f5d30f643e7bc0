// Running a helper program and collecting what it prints.
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

#include "rvitunes/base/Result.h"

namespace rvitunes::platform {

// Owns a started child process and reaps it: a child still running when its owner goes away is
// killed and waited for, so none is left behind as a zombie. Move-only; not thread-safe.
class ChildProcess {
 public:
  struct Outcome {
    int exitStatus = -1;  // -1 when the child was ended by a signal
    std::string output;   // its standard output, cut to the requested size
  };

  // Runs `program` (a path, or a name looked up as execvp does) with `arguments`, its standard
  // input and standard error on /dev/null, and waits for it while collecting at most
  // `maxOutput` bytes of its standard output (the rest is read and dropped). An exec failure
  // shows as exit status 127. Fails (ioErr and the like) when the pipe or the process cannot be
  // made. The call blocks until the child ends.
  static Result<Outcome> run(const std::string& program, const std::vector<std::string>& arguments,
                             size_t maxOutput);

  ChildProcess(ChildProcess&& other) noexcept;
  ChildProcess& operator=(ChildProcess&& other) noexcept;
  ChildProcess(const ChildProcess&) = delete;
  ChildProcess& operator=(const ChildProcess&) = delete;
  ~ChildProcess();

 private:
  explicit ChildProcess(pid_t pid) : pid_(pid) {}
  // Waits for the child to end and answers its exit status (-1 after a signal).
  Result<int> wait();
  void killAndReap();

  pid_t pid_ = -1;
};

}  // namespace rvitunes::platform
