// Test support for hostile peers on the event bus: a stand-in application that registers in a
// real bus directory (record and listening socket, as a live application does) and answers each
// request through a script the test sets and may change at any time: a well-formed reply, any
// bytes at all (lying frames, lying descriptors), silence, or a hang-up. Everything travels over
// the Unix socket; nothing is dispatched in this process's event manager.
//
// Also here: byte builders for frames and flattened descriptors that can say what they like
// about their own lengths, and the number of descriptors this process has open.
#pragma once

#include <dirent.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

#include "rvitunes/ae/Application.h"
#include "rvitunes/ae/BusDirectory.h"
#include "rvitunes/ae/BusFrame.h"
#include "rvitunes/ae/Descriptor.h"
#include "rvitunes/ae/Wire.h"
#include "rvitunes/base/FileDescriptor.h"
#include "support/ScratchFolder.h"

namespace rvitunes::ae::hostile {

// A private folder (mode 0700, from mkdtemp) for a bus directory, removed with its content.
using ScratchBus = rvitunes::testing::support::ScratchFolder;

// Opens the bus directory at `path`, expecting it to pass its checks.
inline BusDirectory openBus(const std::string& path) {
  auto bus = BusDirectory::open(path);
  EXPECT_TRUE(bus.ok()) << bus.status().toString();
  return *bus;
}

// ---- Bytes ------------------------------------------------------------------------------------

inline std::string be32(uint32_t value) {
  return {static_cast<char>(value >> 24), static_cast<char>(value >> 16),
          static_cast<char>(value >> 8), static_cast<char>(value)};
}

inline std::string fourChars(OSType code) {
  return be32(code);
}

// The flattened form of `desc` as a payload.
inline std::string flattened(const Descriptor& desc) {
  auto bytes = flatten(desc);
  EXPECT_TRUE(bytes.ok()) << bytes.status().toString();
  if (!bytes.ok()) return {};
  return std::string(reinterpret_cast<const char*>(bytes->data()), bytes->size());
}

// A frame whose header announces `declared` payload bytes (the payload's own size when
// nullopt), followed by `payload` as it is.
inline std::string frame(BusFrameKind kind, int32_t returnID, std::string_view payload,
                         std::optional<uint32_t> declared = std::nullopt) {
  BusFrameHeader header;
  header.kind = kind;
  header.returnID = returnID;
  header.payloadLength = declared.value_or(static_cast<uint32_t>(payload.size()));
  return encodeBusFrameHeader(header) + std::string(payload);
}

// One descriptor in the flattened form used inside containers: type, size field (`declared`, or
// the data's size), the data and its pad byte.
inline std::string rawDesc(OSType type, std::string_view data,
                           std::optional<uint32_t> declared = std::nullopt) {
  std::string out = fourChars(type) + be32(declared.value_or(static_cast<uint32_t>(data.size())));
  out += data;
  if (data.size() % 2 != 0) out.push_back('\0');
  return out;
}

inline std::string rawLong(int32_t value) {
  return rawDesc(typeSInt32, be32(static_cast<uint32_t>(value)));
}

// A list of the given flattened items, in the inner (short) form.
inline std::string rawList(const std::vector<std::string>& items) {
  std::string body = be32(static_cast<uint32_t>(items.size())) + be32(0);
  for (const std::string& item : items)
    body += item;
  return fourChars(typeAEList) + be32(static_cast<uint32_t>(body.size())) + body;
}

// `depth` lists, each the only item of the one around it; the innermost is empty. Written from
// the outside in, so that ten thousand levels cost no more than their bytes.
inline std::string nestedLists(size_t depth) {
  std::string out;
  out.reserve(depth * 16);
  for (size_t level = 0; level < depth; ++level) {
    const size_t below = depth - level;  // this list and the ones inside it
    out += fourChars(typeAEList) + be32(static_cast<uint32_t>(below * 16 - 8)) +
           be32(level + 1 < depth ? 1 : 0) + be32(0);
  }
  return out;
}

// A flattened 'aevt'/'ansr' event with no attributes and the given parameters (each a key and
// one flattened descriptor), as a reply payload. `declared` overrides the event's size field.
inline std::string rawReply(AEReturnID returnID,
                            const std::vector<std::pair<OSType, std::string>>& params,
                            std::optional<uint32_t> declared = std::nullopt) {
  std::string items;
  for (const auto& [key, desc] : params)
    items += fourChars(key) + desc;
  std::string body = be32(1) + fourChars(kCoreEventClass) + fourChars(kAEAnswer);
  body.push_back(static_cast<char>(static_cast<uint16_t>(returnID) >> 8));
  body.push_back(static_cast<char>(static_cast<uint16_t>(returnID) & 0xFF));
  body += std::string(2, '\0') + be32(0) + be32(0) + be32(static_cast<uint32_t>(params.size()));
  body += items;
  return "dle2" + be32(0) + fourChars(typeAppleEvent) +
         be32(declared.value_or(static_cast<uint32_t>(body.size()))) + body;
}

// The descriptors this process has open.
inline size_t openDescriptorCount() {
  size_t count = 0;
  for ([[maybe_unused]] const auto& entry : std::filesystem::directory_iterator("/proc/self/fd"))
    ++count;
  // The iterator's own descriptor was open while it counted.
  return count - 1;
}

// Connects to `socketPath` from a forked child running as user and group `id`, sends `bytes`
// and waits (at most five seconds) for the child. Answers its exit status: 0 when the
// connection was closed without an answer, 1 when something came back, 3 when the child could
// not become `id` (that needs root), 4 when it could not connect; -1 when it did not end in time
// (it is then killed).
inline int sendAsAnotherUser(uid_t id, const std::string& socketPath, std::string_view bytes) {
  const pid_t child = ::fork();
  if (child < 0) return -1;
  if (child == 0) {
    // Only system calls from here: this is the child of a threaded process.
    if (::syscall(SYS_setresgid, id, id, id) != 0 || ::syscall(SYS_setresuid, id, id, id) != 0) {
      ::_exit(3);
    }
    const int fd = ::socket(AF_UNIX, SOCK_STREAM, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::memcpy(address.sun_path, socketPath.data(), socketPath.size());
    if (::connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) ::_exit(4);
    ::send(fd, bytes.data(), bytes.size(), MSG_NOSIGNAL);
    char buffer[64];
    const ssize_t n = ::recv(fd, buffer, sizeof buffer, 0);
    ::_exit(n <= 0 ? 0 : 1);
  }
  for (int i = 0; i < 500; ++i) {
    int status = 0;
    if (::waitpid(child, &status, WNOHANG) == child) {
      return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  ::kill(child, SIGKILL);
  ::waitpid(child, nullptr, 0);
  return -1;
}

// ---- The peer ---------------------------------------------------------------------------------

// One request as the peer received it.
struct Request {
  BusFrameHeader header;
  // The event, when the payload reads as one.
  std::optional<Descriptor> event;
  // The connection it came on: 1 for the first the peer accepted, and so on.
  size_t connection = 0;
};

// What the peer does about one request.
struct Action {
  // Written to the requester's connection as they are (nothing: no answer at all).
  std::string bytes;
  // Close the connection once the bytes are out.
  bool hangUp = false;
  // The bytes leave the stream in a state no later reply can repair (a frame cut short that
  // the peer never finishes); a peer that turns honest again drops such a connection, as a
  // restarted application would.
  bool breaksStream = false;
};

using Script = std::function<Action(const Request&)>;

inline Action silence() {
  return {};
}

inline Action hangUp(std::string bytes = {}) {
  Action action;
  action.bytes = std::move(bytes);
  action.hangUp = true;
  return action;
}

// A reply frame for `request` carrying `payload`.
inline Action replyPayload(const Request& request, std::string_view payload) {
  Action action;
  action.bytes = frame(BusFrameKind::reply, request.header.returnID, payload);
  return action;
}

// A reply frame for `request` carrying the flattened `reply`.
inline Action reply(const Request& request, const Descriptor& reply) {
  return replyPayload(request, flattened(reply));
}

// The reply event the platform prepares for the request (no parameters yet).
inline Descriptor replyEventFor(const Request& request) {
  return request.event ? makeReplyEvent(*request.event)
                       : Descriptor::makeAppleEvent(kCoreEventClass, kAEAnswer, Descriptor(), 0, 0);
}

class Peer {
 public:
  // Registers `name` under `signature` in `directory` and starts answering through `honest`.
  Peer(const BusDirectory& directory, OSType signature, std::string name, Script honest)
      : socketPath_(directory.socketPath(signature)),
        recordPath_(directory.recordPath(signature)),
        honest_(std::move(honest)) {
    BusRegistration registration{signature, std::move(name), static_cast<int32_t>(::getpid()), ""};
    const Status written = directory.writeRecord(registration);
    EXPECT_TRUE(written.ok()) << written.toString();
    listener_.reset(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::memcpy(address.sun_path, socketPath_.data(), socketPath_.size());
    ::unlink(socketPath_.c_str());
    const bool listening =
        ::bind(listener_.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0 &&
        ::chmod(socketPath_.c_str(), 0600) == 0 && ::listen(listener_.get(), 16) == 0;
    EXPECT_TRUE(listening) << socketPath_ << ": " << std::strerror(errno);
    wake_.reset(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
    thread_ = std::thread([this] { run(); });
  }

  ~Peer() {
    {
      std::lock_guard lock(mutex_);
      stopping_ = true;
    }
    poke();
    thread_.join();
    ::unlink(socketPath_.c_str());
    ::unlink(recordPath_.c_str());
  }

  Peer(const Peer&) = delete;
  Peer& operator=(const Peer&) = delete;

  // Requests from now on go to `script`.
  void misbehave(Script script) {
    std::lock_guard lock(mutex_);
    hostile_ = std::move(script);
  }

  // Requests from now on get honest answers. Connections whose stream a hostile answer broke
  // are closed before this returns.
  void behave() {
    std::unique_lock lock(mutex_);
    hostile_ = nullptr;
    const uint64_t wanted = ++dropRequested_;
    lock.unlock();
    poke();
    lock.lock();
    settled_.wait(lock, [&] { return dropDone_ >= wanted || stopped_; });
  }

  size_t requestCount() const {
    std::lock_guard lock(mutex_);
    return requests_;
  }
  // Connections accepted so far, and those still open.
  size_t acceptedCount() const {
    std::lock_guard lock(mutex_);
    return accepted_;
  }
  size_t openConnectionCount() const {
    std::lock_guard lock(mutex_);
    return open_;
  }

 private:
  struct Connection {
    FileDescriptor fd;
    BusFrameReader reader;
    size_t number = 0;
    bool broken = false;
  };

  void poke() {
    const uint64_t one = 1;
    [[maybe_unused]] const ssize_t ignored = ::write(wake_.get(), &one, sizeof one);
  }

  void run() {
    std::vector<std::unique_ptr<Connection>> connections;
    uint64_t dropsHandled = 0;
    for (;;) {
      std::vector<pollfd> fds = {{wake_.get(), POLLIN, 0}, {listener_.get(), POLLIN, 0}};
      for (const auto& connection : connections)
        fds.push_back({connection->fd.get(), POLLIN, 0});
      if (::poll(fds.data(), fds.size(), -1) < 0 && errno != EINTR) break;
      uint64_t drained = 0;
      while (::read(wake_.get(), &drained, sizeof drained) > 0) {
      }
      {
        std::unique_lock lock(mutex_);
        if (stopping_) break;
        if (dropRequested_ != dropsHandled) {
          dropsHandled = dropRequested_;
          std::erase_if(connections, [](const auto& c) { return c->broken; });
          open_ = connections.size();
          dropDone_ = dropsHandled;
          settled_.notify_all();
        }
      }
      const size_t polled = fds.size() - 2;
      if (fds[1].revents & POLLIN) accept(connections);
      for (size_t i = 0; i < polled && i < connections.size(); ++i) {
        if (fds[i + 2].revents != 0) serve(*connections[i]);
      }
      std::erase_if(connections, [](const auto& c) { return !c->fd.valid(); });
      std::lock_guard lock(mutex_);
      open_ = connections.size();
    }
    connections.clear();
    std::lock_guard lock(mutex_);
    open_ = 0;
    stopped_ = true;
    settled_.notify_all();
  }

  void accept(std::vector<std::unique_ptr<Connection>>& connections) {
    for (;;) {
      FileDescriptor fd(::accept4(listener_.get(), nullptr, nullptr, SOCK_CLOEXEC));
      if (!fd.valid()) return;
      // Writes block, but never for long: every reader in these tests reads or goes away.
      timeval wait{5, 0};
      ::setsockopt(fd.get(), SOL_SOCKET, SO_SNDTIMEO, &wait, sizeof wait);
      auto connection = std::make_unique<Connection>();
      connection->fd = std::move(fd);
      std::lock_guard lock(mutex_);
      connection->number = ++accepted_;
      connections.push_back(std::move(connection));
    }
  }

  void serve(Connection& connection) {
    char buffer[64 * 1024];
    const ssize_t n = ::recv(connection.fd.get(), buffer, sizeof buffer, MSG_DONTWAIT);
    if (n < 0 && (errno == EAGAIN || errno == EINTR)) return;
    if (n <= 0 || !connection.reader.feed(std::string_view(buffer, static_cast<size_t>(n))).ok()) {
      connection.fd.reset();
      return;
    }
    while (connection.fd.valid()) {
      auto received = connection.reader.next();
      if (!received) return;
      Request request;
      request.header = received->header;
      request.connection = connection.number;
      auto event = unflatten(std::span(reinterpret_cast<const uint8_t*>(received->payload.data()),
                                       received->payload.size()));
      if (event.ok()) request.event = std::move(event).value();
      Script script;
      {
        std::lock_guard lock(mutex_);
        ++requests_;
        script = hostile_ ? hostile_ : honest_;
      }
      const Action action = script(request);
      if (action.breaksStream) connection.broken = true;
      if (!action.bytes.empty() &&
          ::send(connection.fd.get(), action.bytes.data(), action.bytes.size(), MSG_NOSIGNAL) !=
              static_cast<ssize_t>(action.bytes.size())) {
        connection.fd.reset();
        return;
      }
      if (action.hangUp) connection.fd.reset();
    }
  }

  const std::string socketPath_;
  const std::string recordPath_;
  const Script honest_;
  FileDescriptor listener_;
  FileDescriptor wake_;
  mutable std::mutex mutex_;
  std::condition_variable settled_;
  Script hostile_;
  bool stopping_ = false;
  bool stopped_ = false;
  uint64_t dropRequested_ = 0;
  uint64_t dropDone_ = 0;
  size_t requests_ = 0;
  size_t accepted_ = 0;
  size_t open_ = 0;
  std::thread thread_;
};

}  // namespace rvitunes::ae::hostile
