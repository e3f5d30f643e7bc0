// The FileSystem of the running machine, on POSIX calls.
#include <errno.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <random>
#include <system_error>

#include "rvitunes/base/FileDescriptor.h"
#include "rvitunes/base/FileSystem.h"

namespace rvitunes {
namespace {

constexpr size_t kReadChunk = 64 * 1024;
constexpr int kTemporaryAttempts = 100;

bool hasNul(const std::string& path) {
  return path.find('\0') != std::string::npos;
}

Status errnoStatus(int error, std::string_view action, const std::string& path) {
  std::string message = "cannot ";
  message += action;
  if (!path.empty()) message += " \"" + path + "\"";
  message += ": " + std::system_category().message(error);
  return Status::error(osStatusForErrno(error), std::move(message));
}

Status nulPathStatus(std::string_view action, const std::string& path) {
  return Status::error(fnfErr, "cannot " + std::string(action) + " \"" +
                                   path.substr(0, path.find('\0')) +
                                   "\": the path holds a NUL byte");
}

std::string randomSuffix() {
  static constexpr char kAlphabet[] =
      "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789";
  thread_local std::mt19937_64 generator{std::random_device{}()};
  std::uniform_int_distribution<size_t> pick(0, sizeof kAlphabet - 2);
  std::string suffix(6, ' ');
  for (char& c : suffix)
    c = kAlphabet[pick(generator)];
  return suffix;
}

class PosixFileSystem : public FileSystem {
 public:
  Result<std::string> readFile(const std::string& path, uint64_t maxBytes) override {
    if (hasNul(path)) return nulPathStatus("read", path);
    FileDescriptor fd(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
    if (!fd.valid()) return errnoStatus(errno, "open", path);
    struct stat info {};
    if (::fstat(fd.get(), &info) != 0) return errnoStatus(errno, "read", path);
    if (S_ISDIR(info.st_mode)) return errnoStatus(EISDIR, "read", path);
    std::string data;
    if (S_ISREG(info.st_mode)) {
      const auto size = static_cast<uint64_t>(info.st_size);
      if (size > maxBytes) return tooLarge(path, maxBytes);
      data.reserve(size);
    }
    char chunk[kReadChunk];
    for (;;) {
      const ssize_t n = ::read(fd.get(), chunk, sizeof chunk);
      if (n < 0 && errno == EINTR) continue;
      if (n < 0) return errnoStatus(errno, "read", path);
      if (n == 0) break;
      // The size seen by fstat may be stale or absent (pipes, files under /proc).
      if (data.size() + static_cast<uint64_t>(n) > maxBytes) return tooLarge(path, maxBytes);
      data.append(chunk, static_cast<size_t>(n));
    }
    return data;
  }

  bool fileExists(const std::string& path) override {
    struct stat info {};
    return !hasNul(path) && ::stat(path.c_str(), &info) == 0;
  }

  bool isDirectory(const std::string& path) override {
    struct stat info {};
    return !hasNul(path) && ::stat(path.c_str(), &info) == 0 && S_ISDIR(info.st_mode);
  }

  std::optional<Date> modificationDate(const std::string& path) override {
    struct stat info {};
    if (hasNul(path) || ::lstat(path.c_str(), &info) != 0) return std::nullopt;
    // Shift the origin in integers first: a double holds nanoseconds near 2001 exactly enough.
    const int64_t seconds =
        static_cast<int64_t>(info.st_mtim.tv_sec) - static_cast<int64_t>(Date::kUnixToAbsolute);
    return Date::fromAbsoluteTime(static_cast<double>(seconds) +
                                  static_cast<double>(info.st_mtim.tv_nsec) / 1e9);
  }

  std::optional<uint32_t> permissions(const std::string& path) override {
    struct stat info {};
    if (hasNul(path) || ::stat(path.c_str(), &info) != 0) return std::nullopt;
    return static_cast<uint32_t>(info.st_mode & 07777);
  }

  Result<TemporaryFile> createTemporary(const std::string& dir, const std::string& prefix,
                                        std::optional<uint32_t> mode) override {
    const std::string base = (dir.empty() ? std::string(".") : dir) + "/" + prefix;
    if (hasNul(base)) return nulPathStatus("create a file in", dir);
    for (int attempt = 0; attempt < kTemporaryAttempts; ++attempt) {
      std::string path = base + randomSuffix();
      const int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
      if (fd < 0 && errno == EEXIST) continue;
      if (fd < 0) return errnoStatus(errno, "create", path);
      if (mode && ::fchmod(fd, static_cast<mode_t>(*mode & 07777)) != 0) {
        const int error = errno;
        ::close(fd);
        ::unlink(path.c_str());
        return errnoStatus(error, "set the permissions of", path);
      }
      return TemporaryFile{fd, std::move(path)};
    }
    return Status::error(ioErr, "cannot create a unique file \"" + base + "XXXXXX\"");
  }

  Status writeAll(int fd, std::string_view bytes) override {
    while (!bytes.empty()) {
      const ssize_t n = ::write(fd, bytes.data(), bytes.size());
      if (n < 0 && errno == EINTR) continue;
      if (n < 0) return errnoStatus(errno, "write", "");
      // A zero-byte write of a non-empty buffer would loop forever; treat it as a full device.
      if (n == 0) return errnoStatus(ENOSPC, "write", "");
      bytes.remove_prefix(static_cast<size_t>(n));
    }
    return Status::success();
  }

  Status syncFile(int fd) override {
    while (::fsync(fd) != 0) {
      if (errno != EINTR) return errnoStatus(errno, "flush", "");
    }
    return Status::success();
  }

  Status closeFile(int fd) override {
    // EINTR from close still releases the descriptor on Linux; retrying would be wrong.
    if (::close(fd) != 0 && errno != EINTR) return errnoStatus(errno, "close", "");
    return Status::success();
  }

  Status rename(const std::string& from, const std::string& to) override {
    if (hasNul(from) || hasNul(to)) return nulPathStatus("rename", hasNul(from) ? from : to);
    if (::rename(from.c_str(), to.c_str()) != 0) {
      return errnoStatus(errno, "rename \"" + from + "\" to", to);
    }
    return Status::success();
  }

  Status removeFile(const std::string& path) override {
    if (hasNul(path)) return nulPathStatus("remove", path);
    if (::unlink(path.c_str()) != 0) return errnoStatus(errno, "remove", path);
    return Status::success();
  }

  Status syncDirectory(const std::string& dir) override {
    if (hasNul(dir)) return nulPathStatus("flush", dir);
    FileDescriptor fd(::open(dir.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    // A folder we may write but not read (mode 0300) cannot be opened for the flush. The rename
    // is already done by then; failing here would only make callers write the same bytes again.
    if (!fd.valid() && (errno == EACCES || errno == EPERM)) return Status::success();
    if (!fd.valid()) return errnoStatus(errno, "open", dir);
    while (::fsync(fd.get()) != 0) {
      if (errno == EINTR) continue;
      if (errno == EINVAL || errno == EOPNOTSUPP) break;
      return errnoStatus(errno, "flush", dir);
    }
    return Status::success();
  }

  Status makeDirectories(const std::string& path, uint32_t mode) override {
    if (path.empty()) return Status::error(paramErr, "cannot create a directory with no name");
    if (hasNul(path)) return nulPathStatus("create", path);
    // Each prefix ending before a '/', then the whole path; "a//b" and a trailing '/' give empty
    // or repeated prefixes, which the EEXIST check absorbs.
    size_t end = path.find('/', 1);
    for (;;) {
      const std::string prefix = path.substr(0, end);
      if (::mkdir(prefix.c_str(), static_cast<mode_t>(mode & 07777)) != 0) {
        const int error = errno;
        if (error != EEXIST) return errnoStatus(error, "create the directory", prefix);
        if (!isDirectory(prefix)) return errnoStatus(ENOTDIR, "create the directory", prefix);
      }
      if (end == std::string::npos) break;
      end = path.find('/', end + 1);
    }
    return Status::success();
  }

 private:
  static Status tooLarge(const std::string& path, uint64_t maxBytes) {
    return Status::error(memFullErr, "cannot read \"" + path + "\": larger than the limit of " +
                                         std::to_string(maxBytes) + " bytes");
  }
};

}  // namespace

FileSystem& FileSystem::defaultFileSystem() {
  // Deliberately leaked, so it stays usable from other objects' destructors at exit.
  static FileSystem* const fs = new PosixFileSystem;
  return *fs;
}

}  // namespace rvitunes
