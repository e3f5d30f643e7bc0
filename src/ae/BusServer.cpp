#include "rvitunes/ae/BusServer.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <system_error>
#include <vector>

#include "BusSocket.h"
#include "rvitunes/base/Log.h"

namespace rvitunes::ae {
namespace {

// Bytes read from one peer before the loop turns to the others.
constexpr size_t kReadTurnLimit = 1u << 20;

// An exclusive flock on the bus directory, held while a signature is claimed or released.
class DirectoryLock {
 public:
  static Result<DirectoryLock> acquire(const std::string& path) {
    FileDescriptor fd(::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    if (!fd.valid()) return detail::errnoStatus(errno, "cannot open \"" + path + "\"");
    int rc;
    do {
      rc = ::flock(fd.get(), LOCK_EX);
    } while (rc != 0 && errno == EINTR);
    if (rc != 0) return detail::errnoStatus(errno, "cannot lock \"" + path + "\"");
    return DirectoryLock(std::move(fd));
  }

 private:
  explicit DirectoryLock(FileDescriptor fd) : fd_(std::move(fd)) {}
  FileDescriptor fd_;  // closing it releases the lock
};

struct Connection {
  FileDescriptor fd;
  BusFrameReader reader;
  std::string out;
  size_t outOffset = 0;
  bool closed = false;

  Connection(FileDescriptor socket, uint32_t maxPayload)
      : fd(std::move(socket)), reader(maxPayload) {}
  bool wantsWrite() const { return outOffset < out.size(); }
};

}  // namespace

class BusServer::Loop {
 public:
  explicit Loop(BusServer& server) : server_(server) {}

  void run() {
    std::vector<pollfd> fds;
    while (!server_.stop_.load()) {
      fds.clear();
      fds.push_back({server_.wake_.get(), POLLIN, 0});
      fds.push_back({server_.listener_.get(), POLLIN, 0});
      for (const auto& connection : connections_) {
        const short events = static_cast<short>(POLLIN | (connection->wantsWrite() ? POLLOUT : 0));
        fds.push_back({connection->fd.get(), events, 0});
      }
      if (::poll(fds.data(), fds.size(), -1) < 0) {
        if (errno == EINTR) continue;
        SystemLog("bus server '%s': poll failed: %s", server_.registration_.name.c_str(),
                  std::strerror(errno));
        break;
      }
      if (fds[0].revents != 0) {
        uint64_t ignored;
        while (::read(server_.wake_.get(), &ignored, sizeof ignored) > 0) {
        }
      }
      if (server_.stop_.load()) break;
      // Only the connections that were polled; ones accepted below wait for the next turn.
      const size_t polled = connections_.size();
      if (fds[1].revents & POLLIN) acceptPeers();
      for (size_t i = 0; i < polled; ++i) {
        Connection& connection = *connections_[i];
        const short revents = fds[i + 2].revents;
        if ((revents & POLLOUT) && !connection.closed) flush(connection);
        if ((revents & (POLLIN | POLLHUP | POLLERR)) && !connection.closed) receive(connection);
      }
      std::erase_if(connections_, [](const auto& c) { return c->closed; });
      server_.connections_.store(connections_.size());
    }
    connections_.clear();
    server_.connections_.store(0);
  }

 private:
  void acceptPeers() {
    for (;;) {
      FileDescriptor peer(
          ::accept4(server_.listener_.get(), nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC));
      if (!peer.valid()) {
        if (errno == EINTR || errno == ECONNABORTED) continue;
        return;  // EAGAIN, or a resource shortage that the next turn retries
      }
      const auto uid = detail::peerUid(peer.get());
      if (!uid || *uid != ::geteuid()) {
        server_.refusedPeers_.fetch_add(1);
        NullLog("bus server '%s': refused a peer of uid %ld", server_.registration_.name.c_str(),
                uid ? static_cast<long>(*uid) : -1L);
        continue;
      }
      if (connections_.size() >= server_.options_.maxConnections) {
        server_.refusedPeers_.fetch_add(1);
        NullLog("bus server '%s': too many peers", server_.registration_.name.c_str());
        continue;
      }
      connections_.push_back(
          std::make_unique<Connection>(std::move(peer), server_.options_.maxPayload));
    }
  }

  void drop(Connection& connection, const std::string& why) {
    server_.droppedConnections_.fetch_add(1);
    NullLog("bus server '%s': dropped a peer: %s", server_.registration_.name.c_str(), why.c_str());
    connection.closed = true;
    connection.fd.reset();
  }

  void receive(Connection& connection) {
    size_t taken = 0;
    while (!connection.closed && taken < kReadTurnLimit) {
      const ssize_t n = ::recv(connection.fd.get(), buffer_, sizeof buffer_, MSG_DONTWAIT);
      if (n > 0) {
        taken += static_cast<size_t>(n);
        if (Status fed = connection.reader.feed(std::string_view(buffer_, static_cast<size_t>(n)));
            !fed.ok()) {
          // Frames completed before the bad bytes are still answered, in order.
          handleFrames(connection);
          if (!connection.closed) drop(connection, fed.message());
          return;
        }
        handleFrames(connection);
        // A short read means the socket is drained; poll again rather than ask once more.
        if (static_cast<size_t>(n) < sizeof buffer_) return;
        continue;
      }
      if (n < 0 && errno == EINTR) continue;
      if (n < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) return;
      // End of stream or a reset.
      if (connection.reader.midFrame()) {
        drop(connection, "the stream ended inside a frame");
      } else {
        connection.closed = true;
        connection.fd.reset();
      }
      return;
    }
  }

  void handleFrames(Connection& connection) {
    while (!connection.closed) {
      auto frame = connection.reader.next();
      if (!frame) return;
      if (frame->header.kind == BusFrameKind::reply) {
        drop(connection, "a reply frame arrived where a request belongs");
        return;
      }
      std::optional<std::string> answer =
          server_.handler_(frame->header, std::move(frame->payload));
      if (frame->header.kind != BusFrameKind::request || !answer) continue;
      if (answer->size() > server_.options_.maxPayload) {
        SystemLog("bus server '%s': a reply of %zu bytes exceeds the limit; not sent",
                  server_.registration_.name.c_str(), answer->size());
        continue;
      }
      BusFrameHeader header;
      header.kind = BusFrameKind::reply;
      header.returnID = frame->header.returnID;
      header.transactionID = frame->header.transactionID;
      connection.out += encodeBusFrame(header, *answer);
      flush(connection);
      // A peer that sends requests but does not read its replies is not buffered for forever.
      if (!connection.closed &&
          connection.out.size() - connection.outOffset >
              2 * (static_cast<size_t>(server_.options_.maxPayload) + kBusFrameHeaderSize)) {
        drop(connection, "the peer does not read its replies");
      }
    }
  }

  void flush(Connection& connection) {
    while (connection.wantsWrite()) {
      const ssize_t n =
          ::send(connection.fd.get(), connection.out.data() + connection.outOffset,
                 connection.out.size() - connection.outOffset, MSG_DONTWAIT | MSG_NOSIGNAL);
      if (n > 0) {
        connection.outOffset += static_cast<size_t>(n);
        continue;
      }
      if (n < 0 && errno == EINTR) continue;
      if (n < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) break;
      connection.closed = true;  // the peer has gone; nothing to report to anyone
      connection.fd.reset();
      return;
    }
    if (!connection.wantsWrite()) {
      connection.out.clear();
      connection.outOffset = 0;
    }
  }

  BusServer& server_;
  std::vector<std::unique_ptr<Connection>> connections_;
  char buffer_[64 * 1024];
};

Result<std::unique_ptr<BusServer>> BusServer::start(const BusDirectory& directory, OSType signature,
                                                    const std::string& name, RequestHandler handler,
                                                    Options options) {
  if (Status verified = directory.verify(); !verified.ok()) return verified;
  BusRegistration registration;
  registration.signature = signature;
  registration.name = name;
  registration.pid = static_cast<int32_t>(::getpid());
  registration.socketPath = directory.socketPath(signature);

  auto lock = DirectoryLock::acquire(directory.path());
  if (!lock) return lock.status();

  struct stat existing {};
  if (::lstat(registration.socketPath.c_str(), &existing) == 0) {
    if (!S_ISSOCK(existing.st_mode)) {
      return Status::error(paramErr, "\"" + registration.socketPath + "\" is not a socket");
    }
    if (busSocketHasListener(registration.socketPath)) {
      auto other = directory.readRecord(signature);
      return Status::error(
          paramErr,
          "signature " + fourCharDisplay(signature) + " is already registered" +
              (other ? " by \"" + other->name + "\" (pid " + std::to_string(other->pid) + ")"
                     : std::string()));
    }
    // Left by a process that died without unregistering.
    NullLog("bus: removing the stale socket %s", registration.socketPath.c_str());
    ::unlink(registration.socketPath.c_str());
    ::unlink(directory.recordPath(signature).c_str());
  } else if (errno != ENOENT) {
    return detail::errnoStatus(errno, "cannot examine \"" + registration.socketPath + "\"");
  }

  if (Status written = directory.writeRecord(registration); !written.ok()) return written;
  const auto removeRecord = [&] { ::unlink(directory.recordPath(signature).c_str()); };
  const std::string temporary =
      directory.socketPath(signature) + "." + std::to_string(registration.pid) + ".tmp";
  ::unlink(temporary.c_str());
  auto listener = detail::listenUnixSocket(temporary, 128);
  if (!listener) {
    removeRecord();
    return listener.status();
  }
  // The socket appears under its final name already listening.
  if (::rename(temporary.c_str(), registration.socketPath.c_str()) != 0 ||
      ::lstat(registration.socketPath.c_str(), &existing) != 0) {
    const int error = errno;
    ::unlink(temporary.c_str());
    removeRecord();
    return detail::errnoStatus(error, "cannot install \"" + registration.socketPath + "\"");
  }
  FileDescriptor wake(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
  if (!wake.valid()) {
    const int error = errno;
    ::unlink(registration.socketPath.c_str());
    removeRecord();
    return detail::errnoStatus(error, "cannot create an eventfd");
  }

  auto server = std::make_unique<BusServer>(Private{}, directory, std::move(registration),
                                            std::move(listener).value(), std::move(wake),
                                            std::move(handler), options);
  server->socketInode_ = existing.st_ino;
  server->socketDevice_ = existing.st_dev;
  try {
    server->thread_ = std::thread([raw = server.get()] {
      Loop loop(*raw);
      loop.run();
    });
  } catch (const std::system_error& error) {
    server->unregister();
    return Status::error(memFullErr,
                         std::string("cannot start the bus server thread: ") + error.what());
  }
  return server;
}

BusServer::BusServer(Private, BusDirectory directory, BusRegistration registration,
                     FileDescriptor listener, FileDescriptor wake, RequestHandler handler,
                     Options options)
    : directory_(std::move(directory)),
      registration_(std::move(registration)),
      listener_(std::move(listener)),
      wake_(std::move(wake)),
      handler_(std::move(handler)),
      options_(options) {}

BusServer::~BusServer() {
  stop_.store(true);
  const uint64_t one = 1;
  [[maybe_unused]] const ssize_t ignored = ::write(wake_.get(), &one, sizeof one);
  if (thread_.joinable()) thread_.join();
  unregister();
}

void BusServer::unregister() {
  if (!listener_.valid()) return;
  // Under the directory lock, and before the listener closes, so that no registration of the
  // same signature can slip in between and lose its files to this cleanup.
  auto lock = DirectoryLock::acquire(directory_.path());
  struct stat current {};
  if (::lstat(registration_.socketPath.c_str(), &current) == 0 &&
      static_cast<uint64_t>(current.st_ino) == socketInode_ &&
      static_cast<uint64_t>(current.st_dev) == socketDevice_) {
    ::unlink(registration_.socketPath.c_str());
    auto record = directory_.readRecord(registration_.signature);
    if (record && record->pid == registration_.pid) {
      ::unlink(directory_.recordPath(registration_.signature).c_str());
    }
  }
  listener_.reset();
}

}  // namespace rvitunes::ae
