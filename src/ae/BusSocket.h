// Unix-socket helpers shared by the bus server and client (internal to the ae layer).
#pragma once

#include <sys/types.h>

#include <chrono>
#include <optional>
#include <string>
#include <string_view>

#include "rvitunes/base/FileDescriptor.h"
#include "rvitunes/base/Result.h"

namespace rvitunes::ae::detail {

using Clock = std::chrono::steady_clock;

// The longest path a socket address holds (sun_path less its terminating NUL).
size_t maxSocketPathLength();

// Connects to the listening socket at `path`, waiting for room in a full backlog until
// `deadline` (nullopt: no limit). procNotFound when nothing is there or nothing listens
// (ENOENT, ECONNREFUSED); errAETimeout when the deadline passes; paramErr for a path too long;
// the errno mapping otherwise. The descriptor is blocking and close-on-exec.
Result<FileDescriptor> connectUnixSocket(const std::string& path,
                                         std::optional<Clock::time_point> deadline);

// Binds a new listening socket at `path` (which must not exist) with mode 0600. The descriptor
// is non-blocking and close-on-exec.
Result<FileDescriptor> listenUnixSocket(const std::string& path, int backlog);

// The user id of the process at the other end of a connected Unix socket.
std::optional<uid_t> peerUid(int fd);

// Writes all of `bytes` to the socket without raising SIGPIPE, waiting for room until
// `deadline` (nullopt: no limit). connectionInvalid when the peer has gone, errAETimeout when
// the deadline passes; `written`, when given, receives the number of bytes written either way.
Status sendAll(int fd, std::string_view bytes, std::optional<Clock::time_point> deadline,
               size_t* written = nullptr);

// "<what>: <strerror(error)>" with the errno mapping as code.
Status errnoStatus(int error, const std::string& what);

}  // namespace rvitunes::ae::detail
