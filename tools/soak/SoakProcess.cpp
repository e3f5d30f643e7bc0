#include "SoakProcess.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <thread>

#include "rvitunes/base/OSStatus.h"

namespace rvitunes::soak {
namespace {

int decodeStatus(int raw) {
  if (WIFEXITED(raw)) return WEXITSTATUS(raw);
  if (WIFSIGNALED(raw)) return 128 + WTERMSIG(raw);
  return 255;
}

std::optional<uint64_t> residentKiB(pid_t pid) {
  std::ifstream status("/proc/" + std::to_string(pid) + "/status");
  std::string line;
  while (std::getline(status, line)) {
    if (line.rfind("VmRSS:", 0) == 0) return std::stoull(line.substr(6));
  }
  return std::nullopt;
}

std::optional<size_t> descriptorCount(pid_t pid) {
  std::error_code error;
  std::filesystem::directory_iterator it("/proc/" + std::to_string(pid) + "/fd", error);
  if (error) return std::nullopt;
  size_t count = 0;
  for (; it != std::filesystem::directory_iterator(); it.increment(error)) {
    if (error) return std::nullopt;
    ++count;
  }
  return count;
}

}  // namespace

Result<ChildProcess> ChildProcess::start(const std::vector<std::string>& argv,
                                         const std::string& logPath) {
  // Everything the child needs is prepared before the fork: it only redirects and execs.
  std::vector<char*> args;
  for (const std::string& arg : argv)
    args.push_back(const_cast<char*>(arg.c_str()));
  args.push_back(nullptr);
  const int log = ::open(logPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
  if (log < 0) return Status::error(ioErr, "cannot open " + logPath + ": " + std::strerror(errno));
  const pid_t parent = ::getpid();
  const pid_t pid = ::fork();
  if (pid < 0) {
    ::close(log);
    return Status::error(memFullErr, std::string("fork: ") + std::strerror(errno));
  }
  if (pid == 0) {
    ::prctl(PR_SET_PDEATHSIG, SIGTERM);
    if (::getppid() != parent) ::_exit(127);  // the parent died before the line above
    ::dup2(log, STDOUT_FILENO);
    ::dup2(log, STDERR_FILENO);
    ::execv(args[0], args.data());
    ::_exit(127);
  }
  ::close(log);
  return ChildProcess(pid);
}

ChildProcess::ChildProcess(ChildProcess&& other) noexcept
    : pid_(std::exchange(other.pid_, -1)), status_(other.status_) {}

ChildProcess& ChildProcess::operator=(ChildProcess&& other) noexcept {
  if (this != &other) {
    if (pid_ > 0 && !status_) stop(std::chrono::seconds(5));
    pid_ = std::exchange(other.pid_, -1);
    status_ = other.status_;
  }
  return *this;
}

ChildProcess::~ChildProcess() {
  if (pid_ > 0 && !status_) stop(std::chrono::seconds(5));
}

bool ChildProcess::running() {
  return !exitStatus(false).has_value();
}

std::optional<int> ChildProcess::exitStatus(bool wait, std::chrono::milliseconds timeout) {
  if (status_ || pid_ <= 0) return status_;
  const auto until = std::chrono::steady_clock::now() + timeout;
  for (;;) {
    int raw = 0;
    const pid_t done = ::waitpid(pid_, &raw, WNOHANG);
    if (done == pid_) {
      status_ = decodeStatus(raw);
      return status_;
    }
    if (done < 0 && errno != EINTR) {
      status_ = 255;
      return status_;
    }
    if (!wait || std::chrono::steady_clock::now() >= until) return std::nullopt;
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
}

void ChildProcess::signal(int number) {
  if (pid_ > 0 && !status_) ::kill(pid_, number);
}

int ChildProcess::stop(std::chrono::milliseconds grace) {
  signal(SIGTERM);
  if (auto status = exitStatus(true, grace)) return *status;
  signal(SIGKILL);
  return exitStatus(true, std::chrono::seconds(10)).value_or(255);
}

std::optional<ProcessSample> sampleProcess(pid_t pid) {
  std::optional<size_t> fewest;
  // A write-back of a large library holds its file open for a few hundred milliseconds.
  for (int look = 0; look < 5; ++look) {
    if (look > 0) std::this_thread::sleep_for(std::chrono::milliseconds(100));
    const std::optional<size_t> count = descriptorCount(pid);
    if (!count) return std::nullopt;
    fewest = std::min(fewest.value_or(*count), *count);
  }
  const std::optional<uint64_t> rss = residentKiB(pid);
  if (!rss) return std::nullopt;
  ProcessSample sample;
  sample.rssKiB = *rss;
  sample.descriptors = *fewest;
  return sample;
}

std::string selfExecutable() {
  std::error_code error;
  const auto path = std::filesystem::read_symlink("/proc/self/exe", error);
  return error ? std::string() : path.string();
}

}  // namespace rvitunes::soak
