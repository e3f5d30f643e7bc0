#include "platform/ChildProcess.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <system_error>
#include <utility>

#include "rvitunes/base/FileDescriptor.h"
#include "rvitunes/base/FileSystem.h"

namespace rvitunes::platform {
namespace {

Status errnoStatus(int error, const std::string& what) {
  return Status::error(osStatusForErrno(error),
                       what + ": " + std::system_category().message(error));
}

}  // namespace

Result<ChildProcess::Outcome> ChildProcess::run(const std::string& program,
                                                const std::vector<std::string>& arguments,
                                                size_t maxOutput) {
  // Everything the child needs is prepared here: after fork it may only make async-signal-safe
  // calls, since another thread of the parent may have held the allocator's lock.
  std::vector<std::string> strings;
  strings.reserve(arguments.size() + 1);
  strings.push_back(program);
  strings.insert(strings.end(), arguments.begin(), arguments.end());
  std::vector<char*> argv;
  for (std::string& s : strings)
    argv.push_back(s.data());
  argv.push_back(nullptr);

  int ends[2];
  if (::pipe2(ends, O_CLOEXEC) != 0) return errnoStatus(errno, "cannot make a pipe for " + program);
  FileDescriptor readEnd(ends[0]);
  FileDescriptor writeEnd(ends[1]);
  FileDescriptor devNull(::open("/dev/null", O_RDWR | O_CLOEXEC));
  if (!devNull.valid()) return errnoStatus(errno, "cannot open /dev/null");

  const pid_t pid = ::fork();
  if (pid < 0) return errnoStatus(errno, "cannot start " + program);
  if (pid == 0) {
    // dup2 clears close-on-exec on the copies, so exactly these three reach the program.
    if (::dup2(devNull.get(), STDIN_FILENO) < 0 || ::dup2(writeEnd.get(), STDOUT_FILENO) < 0 ||
        ::dup2(devNull.get(), STDERR_FILENO) < 0) {
      ::_exit(127);
    }
    ::execvp(argv[0], argv.data());
    ::_exit(127);
  }
  ChildProcess child(pid);
  writeEnd.reset();
  devNull.reset();

  Outcome outcome;
  char buffer[4096];
  while (true) {
    const ssize_t n = ::read(readEnd.get(), buffer, sizeof buffer);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) break;
    const size_t room = maxOutput - outcome.output.size();
    outcome.output.append(buffer, std::min(room, static_cast<size_t>(n)));
  }
  readEnd.reset();
  Result<int> status = child.wait();
  if (!status) return status.status();
  outcome.exitStatus = *status;
  return outcome;
}

ChildProcess::ChildProcess(ChildProcess&& other) noexcept : pid_(std::exchange(other.pid_, -1)) {}

ChildProcess& ChildProcess::operator=(ChildProcess&& other) noexcept {
  if (this != &other) {
    killAndReap();
    pid_ = std::exchange(other.pid_, -1);
  }
  return *this;
}

ChildProcess::~ChildProcess() {
  killAndReap();
}

Result<int> ChildProcess::wait() {
  int status = 0;
  pid_t done;
  do {
    done = ::waitpid(pid_, &status, 0);
  } while (done < 0 && errno == EINTR);
  if (done < 0) {
    // ECHILD: the host ignores SIGCHLD, so the system reaped the child itself.
    const int error = errno;
    pid_ = -1;
    return errnoStatus(error, "cannot wait for a child process");
  }
  pid_ = -1;
  if (WIFEXITED(status)) return WEXITSTATUS(status);
  return -1;
}

void ChildProcess::killAndReap() {
  if (pid_ <= 0) return;
  ::kill(pid_, SIGKILL);
  (void)wait();
}

}  // namespace rvitunes::platform
