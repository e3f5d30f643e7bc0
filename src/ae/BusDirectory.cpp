#include "rvitunes/ae/BusDirectory.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "BusSocket.h"
#include "rvitunes/base/FileDescriptor.h"

namespace rvitunes::ae {
namespace {

constexpr const char* kRecordHeader = "rvitunes-bus-registration 1";
constexpr size_t kMaxRecordSize = 4096;
// The longest entry name made below the directory: ".<8 hex>.<pid>.<counter>.tmp" with 10-digit
// numbers is 36 bytes; "<8 hex>.sock" and "<8 hex>.app" are shorter.
constexpr size_t kLongestEntryName = 36;

std::string signatureHex(OSType signature) {
  char text[9];
  std::snprintf(text, sizeof text, "%08x", signature);
  return text;
}

std::optional<OSType> parseSignatureHex(std::string_view text) {
  if (text.size() != 8) return std::nullopt;
  OSType value = 0;
  for (char c : text) {
    value <<= 4;
    if (c >= '0' && c <= '9') {
      value |= static_cast<OSType>(c - '0');
    } else if (c >= 'a' && c <= 'f') {
      value |= static_cast<OSType>(c - 'a' + 10);
    } else {
      return std::nullopt;
    }
  }
  return value;
}

Status refused(const std::string& path, const std::string& why) {
  return Status::error(wrPermErr, "bus directory \"" + path + "\" refused: " + why);
}

Status corruptRecord(const std::string& path, const std::string& why) {
  return Status::error(errAECorruptData, "registration record \"" + path + "\": " + why);
}

bool validName(std::string_view name) {
  if (name.empty() || name.size() > BusDirectory::kMaxNameLength) return false;
  return std::none_of(name.begin(), name.end(),
                      [](char c) { return static_cast<unsigned char>(c) < 0x20 || c == 0x7F; });
}

}  // namespace

std::string BusDirectory::defaultPath() {
  const char* runtime = std::getenv("XDG_RUNTIME_DIR");
  if (runtime != nullptr && runtime[0] == '/') {
    std::string path = runtime;
    while (path.size() > 1 && path.back() == '/')
      path.pop_back();
    return (path == "/" ? "" : path) + "/rvitunes";
  }
  return "/tmp/rvitunes-" + std::to_string(::geteuid());
}

Result<BusDirectory> BusDirectory::open(const std::string& path) {
  if (path.empty() || path[0] != '/' || path.find('\0') != std::string::npos) {
    return Status::error(paramErr, "bus directory \"" + path + "\" is not an absolute path");
  }
  if (path.size() + 1 + kLongestEntryName > detail::maxSocketPathLength()) {
    return Status::error(paramErr, "bus directory \"" + path + "\" is too long for socket paths");
  }
  if (::mkdir(path.c_str(), 0700) == 0) {
    // mkdir applied the umask; the directory must end up exactly owner-only.
    if (::chmod(path.c_str(), 0700) != 0) {
      return detail::errnoStatus(errno, "cannot set the mode of \"" + path + "\"");
    }
  } else if (errno != EEXIST) {
    return detail::errnoStatus(errno, "cannot create bus directory \"" + path + "\"");
  }
  BusDirectory directory(path);
  if (Status verified = directory.verify(); !verified.ok()) return verified;
  return directory;
}

Result<BusDirectory> BusDirectory::openDefault() {
  return open(defaultPath());
}

Status BusDirectory::verify() const {
  struct stat info {};
  if (::lstat(path_.c_str(), &info) != 0) {
    return detail::errnoStatus(errno, "cannot examine bus directory \"" + path_ + "\"");
  }
  if (S_ISLNK(info.st_mode)) return refused(path_, "it is a symbolic link");
  if (!S_ISDIR(info.st_mode)) return refused(path_, "it is not a directory");
  if (info.st_uid != ::geteuid()) {
    return refused(path_, "it belongs to uid " + std::to_string(info.st_uid) + ", not " +
                              std::to_string(::geteuid()));
  }
  if ((info.st_mode & 077) != 0) {
    char mode[8];
    std::snprintf(mode, sizeof mode, "%04o", static_cast<unsigned>(info.st_mode & 07777));
    return refused(path_, std::string("group or others have access (mode ") + mode + ")");
  }
  return Status::success();
}

std::string BusDirectory::socketPath(OSType signature) const {
  return path_ + "/" + signatureHex(signature) + ".sock";
}

std::string BusDirectory::recordPath(OSType signature) const {
  return path_ + "/" + signatureHex(signature) + ".app";
}

Status BusDirectory::writeRecord(const BusRegistration& registration) const {
  if (!validName(registration.name)) {
    return Status::error(paramErr, "application name \"" + registration.name +
                                       "\" is empty, too long or holds control characters");
  }
  if (Status verified = verify(); !verified.ok()) return verified;
  static std::atomic<unsigned> counter{0};
  const std::string hex = signatureHex(registration.signature);
  const std::string temporary = path_ + "/." + hex + "." + std::to_string(::getpid()) + "." +
                                std::to_string(counter.fetch_add(1) % 1'000'000'000u) + ".tmp";
  const std::string text = std::string(kRecordHeader) + "\nsignature " + hex + "\nname " +
                           registration.name + "\npid " + std::to_string(registration.pid) + "\n";
  FileDescriptor fd(
      ::open(temporary.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
  if (!fd.valid()) return detail::errnoStatus(errno, "cannot create \"" + temporary + "\"");
  std::string_view rest = text;
  while (!rest.empty()) {
    const ssize_t n = ::write(fd.get(), rest.data(), rest.size());
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) {
      const int error = n < 0 ? errno : EIO;
      ::unlink(temporary.c_str());
      return detail::errnoStatus(error, "cannot write \"" + temporary + "\"");
    }
    rest.remove_prefix(static_cast<size_t>(n));
  }
  fd.reset();
  if (::rename(temporary.c_str(), recordPath(registration.signature).c_str()) != 0) {
    const int error = errno;
    ::unlink(temporary.c_str());
    return detail::errnoStatus(error,
                               "cannot install \"" + recordPath(registration.signature) + "\"");
  }
  return Status::success();
}

Result<BusRegistration> BusDirectory::readRecord(OSType signature) const {
  const std::string path = recordPath(signature);
  FileDescriptor fd(::open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK));
  if (!fd.valid()) return detail::errnoStatus(errno, "cannot open \"" + path + "\"");
  struct stat info {};
  if (::fstat(fd.get(), &info) != 0) return detail::errnoStatus(errno, "cannot examine " + path);
  if (!S_ISREG(info.st_mode)) return corruptRecord(path, "not a regular file");
  // Only this user's registrations are trusted; one that someone else put here (only root
  // could) names nobody we should talk to.
  if (info.st_uid != ::geteuid()) {
    return corruptRecord(path, "it belongs to uid " + std::to_string(info.st_uid));
  }
  if (info.st_size > static_cast<off_t>(kMaxRecordSize)) return corruptRecord(path, "too large");
  std::string text(kMaxRecordSize + 1, '\0');
  size_t filled = 0;
  while (filled < text.size()) {
    const ssize_t n = ::read(fd.get(), text.data() + filled, text.size() - filled);
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) return detail::errnoStatus(errno, "cannot read \"" + path + "\"");
    if (n == 0) break;
    filled += static_cast<size_t>(n);
  }
  if (filled > kMaxRecordSize) return corruptRecord(path, "too large");
  text.resize(filled);

  BusRegistration registration;
  registration.socketPath = socketPath(signature);
  bool haveSignature = false, haveName = false, havePid = false;
  size_t at = 0;
  size_t lineNumber = 0;
  while (at < text.size()) {
    const size_t end = text.find('\n', at);
    if (end == std::string::npos) return corruptRecord(path, "last line is not terminated");
    const std::string_view line = std::string_view(text).substr(at, end - at);
    at = end + 1;
    ++lineNumber;
    if (lineNumber == 1) {
      if (line != kRecordHeader) return corruptRecord(path, "unknown format");
      continue;
    }
    const size_t space = line.find(' ');
    const std::string_view key = line.substr(0, space);
    const std::string_view value =
        space == std::string_view::npos ? std::string_view() : line.substr(space + 1);
    if (key == "signature") {
      const auto parsed = parseSignatureHex(value);
      if (!parsed || *parsed != signature) return corruptRecord(path, "wrong signature");
      registration.signature = *parsed;
      haveSignature = true;
    } else if (key == "name") {
      if (!validName(value)) return corruptRecord(path, "bad name");
      registration.name = std::string(value);
      haveName = true;
    } else if (key == "pid") {
      char* endOfNumber = nullptr;
      const std::string digits(value);
      errno = 0;
      const long pid = std::strtol(digits.c_str(), &endOfNumber, 10);
      if (digits.empty() || *endOfNumber != '\0' || errno != 0 || pid <= 0 || pid > INT32_MAX) {
        return corruptRecord(path, "bad process id");
      }
      registration.pid = static_cast<int32_t>(pid);
      havePid = true;
    }
    // Unknown keys are ignored so that later versions may add fields.
  }
  if (!haveSignature || !haveName || !havePid) return corruptRecord(path, "a field is missing");
  return registration;
}

std::optional<BusRegistration> BusDirectory::find(OSType signature) const {
  if (!verify().ok()) return std::nullopt;
  auto record = readRecord(signature);
  if (!record || !busSocketHasListener(record->socketPath)) return std::nullopt;
  return std::move(record).value();
}

std::optional<BusRegistration> BusDirectory::findByPid(int32_t pid) const {
  for (BusRegistration& registration : applications()) {
    if (registration.pid == pid) return std::move(registration);
  }
  return std::nullopt;
}

std::vector<BusRegistration> BusDirectory::applications() const {
  std::vector<BusRegistration> found;
  if (!verify().ok()) return found;
  DIR* dir = ::opendir(path_.c_str());
  if (dir == nullptr) return found;
  std::vector<OSType> signatures;
  while (const dirent* entry = ::readdir(dir)) {
    const std::string_view name = entry->d_name;
    if (name.size() != 12 || name.substr(8) != ".app") continue;
    if (auto signature = parseSignatureHex(name.substr(0, 8))) signatures.push_back(*signature);
  }
  ::closedir(dir);
  for (OSType signature : signatures) {
    if (auto registration = find(signature)) found.push_back(std::move(*registration));
  }
  std::sort(found.begin(), found.end(), [](const BusRegistration& a, const BusRegistration& b) {
    return a.name != b.name ? a.name < b.name : a.signature < b.signature;
  });
  return found;
}

bool busSocketHasListener(const std::string& path) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  if (path.empty() || path.size() > detail::maxSocketPathLength()) return false;
  std::memcpy(address.sun_path, path.data(), path.size());
  FileDescriptor fd(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  if (!fd.valid()) return false;
  if (::connect(fd.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0) {
    // A listener of another user (reached through a link planted here) is nobody we talk to.
    const auto uid = detail::peerUid(fd.get());
    return uid && *uid == ::geteuid();
  }
  // A full backlog (EAGAIN) still means someone listens.
  return errno == EAGAIN || errno == EINPROGRESS;
}

}  // namespace rvitunes::ae
