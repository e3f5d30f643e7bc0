#include "BusSocket.h"

#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <sys/un.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstring>

#include "rvitunes/ae/BusDirectory.h"
#include "rvitunes/base/FileSystem.h"

namespace rvitunes::ae::detail {
namespace {

bool fillAddress(const std::string& path, sockaddr_un& address) {
  std::memset(&address, 0, sizeof address);
  address.sun_family = AF_UNIX;
  if (path.empty() || path.size() > maxSocketPathLength() || path.find('\0') != std::string::npos) {
    return false;
  }
  std::memcpy(address.sun_path, path.data(), path.size());
  return true;
}

// Stands in for the kernel's credentials when a test installed it.
std::atomic<BusPeerUidReader> peerUidReader{nullptr};

Status pathTooLong(const std::string& path) {
  return Status::error(paramErr, "socket path \"" + path + "\" is empty or longer than " +
                                     std::to_string(maxSocketPathLength()) + " bytes");
}

}  // namespace

size_t maxSocketPathLength() {
  return sizeof(sockaddr_un::sun_path) - 1;
}

Status errnoStatus(int error, const std::string& what) {
  return Status::error(osStatusForErrno(error), what + ": " + std::strerror(error));
}

Result<FileDescriptor> connectUnixSocket(const std::string& path,
                                         std::optional<Clock::time_point> deadline) {
  sockaddr_un address;
  if (!fillAddress(path, address)) return pathTooLong(path);
  FileDescriptor fd(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  if (!fd.valid()) return errnoStatus(errno, "cannot create a socket");
  // A Unix-socket connect waits for room in the listener's backlog at most the send timeout.
  const auto setSendTimeout = [&](std::chrono::microseconds wait) {
    timeval tv{};
    tv.tv_sec = static_cast<time_t>(wait.count() / 1'000'000);
    tv.tv_usec = static_cast<suseconds_t>(wait.count() % 1'000'000);
    ::setsockopt(fd.get(), SOL_SOCKET, SO_SNDTIMEO, &tv, sizeof tv);
  };
  int rc;
  do {
    if (deadline) {
      const auto left = std::chrono::ceil<std::chrono::microseconds>(*deadline - Clock::now());
      if (left.count() <= 0) {
        return Status::error(errAETimeout, "timed out connecting to \"" + path + "\"");
      }
      setSendTimeout(left);
    }
    rc = ::connect(fd.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address);
  } while (rc != 0 && errno == EINTR);
  if (rc != 0) {
    const int error = errno;
    if (error == ENOENT || error == ECONNREFUSED || error == ENOTSOCK) {
      return Status::error(procNotFound, "no application listens at \"" + path + "\"");
    }
    if (error == EAGAIN || error == EINPROGRESS) {
      return Status::error(errAETimeout, "timed out connecting to \"" + path + "\"");
    }
    return errnoStatus(error, "cannot connect to \"" + path + "\"");
  }
  if (deadline) setSendTimeout(std::chrono::microseconds(0));
  return fd;
}

Result<FileDescriptor> listenUnixSocket(const std::string& path, int backlog) {
  sockaddr_un address;
  if (!fillAddress(path, address)) return pathTooLong(path);
  FileDescriptor fd(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  if (!fd.valid()) return errnoStatus(errno, "cannot create a socket");
  if (::bind(fd.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
    return errnoStatus(errno, "cannot bind \"" + path + "\"");
  }
  // The directory is private already; the socket's own mode is a second fence.
  if (::chmod(path.c_str(), 0600) != 0 || ::listen(fd.get(), backlog) != 0) {
    const int error = errno;
    ::unlink(path.c_str());
    return errnoStatus(error, "cannot listen at \"" + path + "\"");
  }
  return fd;
}

std::optional<uid_t> peerUid(int fd) {
  if (const BusPeerUidReader reader = peerUidReader.load()) return reader(fd);
  ucred credentials{};
  socklen_t length = sizeof credentials;
  if (::getsockopt(fd, SOL_SOCKET, SO_PEERCRED, &credentials, &length) != 0 ||
      length != sizeof credentials) {
    return std::nullopt;
  }
  return credentials.uid;
}

Status sendAll(int fd, std::string_view bytes, std::optional<Clock::time_point> deadline,
               size_t* written) {
  size_t done = 0;
  if (written != nullptr) *written = 0;
  while (!bytes.empty()) {
    const ssize_t n = ::send(fd, bytes.data(), bytes.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
    if (n > 0) {
      bytes.remove_prefix(static_cast<size_t>(n));
      done += static_cast<size_t>(n);
      if (written != nullptr) *written = done;
      continue;
    }
    if (n < 0 && errno == EINTR) continue;
    if (n < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) {
      int waitMs = -1;
      if (deadline) {
        const auto left =
            std::chrono::ceil<std::chrono::milliseconds>(*deadline - Clock::now()).count();
        if (left <= 0) return Status::error(errAETimeout, "timed out sending to the bus peer");
        waitMs = left > 60'000 ? 60'000 : static_cast<int>(left);
      }
      pollfd p{fd, POLLOUT, 0};
      if (::poll(&p, 1, waitMs) < 0 && errno != EINTR) {
        return errnoStatus(errno, "cannot wait for the bus peer");
      }
      continue;
    }
    return Status::error(connectionInvalid, std::string("the bus peer has gone: ") +
                                                std::strerror(n < 0 ? errno : EPIPE));
  }
  return Status::success();
}

}  // namespace rvitunes::ae::detail

namespace rvitunes::ae {

BusPeerUidReader setBusPeerUidReaderForTesting(BusPeerUidReader reader) {
  return detail::peerUidReader.exchange(reader);
}

}  // namespace rvitunes::ae
