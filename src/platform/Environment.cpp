#include "platform/Environment.h"

#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <vector>

namespace rvitunes::platform {

std::optional<std::string> Environment::variable(const char* name) {
  const char* value = std::getenv(name);
  if (value == nullptr || *value == '\0') return std::nullopt;
  return std::string(value);
}

std::string Environment::homeDirectory() {
  if (auto home = variable("HOME")) return *home;
  long size = ::sysconf(_SC_GETPW_R_SIZE_MAX);
  std::vector<char> buffer(size > 0 ? static_cast<size_t>(size) : 16384);
  struct passwd entry {};
  struct passwd* found = nullptr;
  if (::getpwuid_r(::getuid(), &entry, buffer.data(), buffer.size(), &found) == 0 &&
      found != nullptr && found->pw_dir != nullptr) {
    return found->pw_dir;
  }
  return "";
}

std::optional<std::string> Environment::findExecutable(std::string_view program) {
  const auto runnable = [](const std::string& candidate) {
    struct stat info {};
    return ::stat(candidate.c_str(), &info) == 0 && S_ISREG(info.st_mode) &&
           ::access(candidate.c_str(), X_OK) == 0;
  };
  if (program.empty() || program.find('\0') != std::string_view::npos) return std::nullopt;
  if (program.find('/') != std::string_view::npos) {
    std::string candidate(program);
    return runnable(candidate) ? std::optional(candidate) : std::nullopt;
  }
  const std::string path = variable("PATH").value_or("/usr/local/bin:/usr/bin:/bin");
  size_t start = 0;
  while (start <= path.size()) {
    size_t end = path.find(':', start);
    if (end == std::string::npos) end = path.size();
    // An empty entry would mean the current folder, which is not a place to pick programs from.
    if (end > start) {
      std::string candidate = path.substr(start, end - start);
      candidate += '/';
      candidate += program;
      if (runnable(candidate)) return candidate;
    }
    start = end + 1;
  }
  return std::nullopt;
}

std::optional<std::string> Environment::executableName() {
  std::string target(4096, '\0');
  const ssize_t length = ::readlink("/proc/self/exe", target.data(), target.size());
  if (length <= 0 || static_cast<size_t>(length) >= target.size()) return std::nullopt;
  target.resize(static_cast<size_t>(length));
  // The kernel marks an executable replaced or removed since it started.
  constexpr std::string_view kDeleted = " (deleted)";
  if (target.ends_with(kDeleted)) target.resize(target.size() - kDeleted.size());
  std::string name = target.substr(target.rfind('/') + 1);
  if (!isPlainFileName(name)) return std::nullopt;
  return name;
}

bool Environment::isPlainFileName(std::string_view name) {
  return !name.empty() && name != "." && name != ".." &&
         name.find_first_of(std::string_view("/\0", 2)) == std::string_view::npos;
}

}  // namespace rvitunes::platform
