#include "rvitunes/ae/BusConnection.h"

#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <ctime>
#include <system_error>

#include "BusSocket.h"
#include "rvitunes/base/Log.h"

namespace rvitunes::ae {
namespace {

// How long the helper thread reads before it looks at its work again.
constexpr auto kHelperTurn = std::chrono::milliseconds(100);
// Bytes one read turn takes before it hands out what it has.
constexpr size_t kReadTurnLimit = size_t{1} << 20;

Status closedStatus() {
  return Status::error(connectionInvalid, "the connection to the application is closed");
}

}  // namespace

Result<std::shared_ptr<BusConnection>> BusConnection::connect(const std::string& socketPath,
                                                              Deadline deadline,
                                                              uint32_t maxPayload) {
  auto fd = detail::connectUnixSocket(socketPath, deadline);
  if (!fd) return fd.status();
  const auto uid = detail::peerUid(fd->get());
  if (!uid || *uid != ::geteuid()) {
    return Status::error(procNotFound,
                         "the application at \"" + socketPath + "\" belongs to another user");
  }
  return std::make_shared<BusConnection>(Private{}, std::move(fd).value(), maxPayload);
}

BusConnection::BusConnection(Private, FileDescriptor fd, uint32_t maxPayload)
    : fd_(std::move(fd)), maxPayload_(maxPayload), frames_(maxPayload) {}

BusConnection::~BusConnection() {
  close();
  {
    std::lock_guard lock(mutex_);
    stopping_ = true;
  }
  changed_.notify_all();
  if (helper_.joinable()) helper_.join();
}

bool BusConnection::alive() const {
  std::lock_guard lock(mutex_);
  return alive_;
}

size_t BusConnection::pendingCount() const {
  std::lock_guard lock(mutex_);
  return pending_.size();
}

void BusConnection::run(Callbacks& callbacks) {
  for (auto& [callback, result] : callbacks)
    callback(std::move(result));
  callbacks.clear();
}

void BusConnection::close() {
  Callbacks callbacks;
  {
    std::lock_guard lock(mutex_);
    if (!alive_) return;
    failAll(closedStatus(), callbacks);
  }
  run(callbacks);
}

void BusConnection::failAll(const Status& why, Callbacks& callbacks) {
  alive_ = false;
  for (auto& [id, pending] : pending_) {
    if (pending->callback) {
      callbacks.emplace_back(std::move(pending->callback), why);
    } else {
      pending->result = why;
    }
  }
  pending_.clear();
  callbackRequests_ = 0;
  // Wakes a thread blocked reading; the descriptor itself stays open until destruction.
  ::shutdown(fd_.get(), SHUT_RDWR);
  changed_.notify_all();
}

Status BusConnection::write(const BusFrameHeader& header, std::string_view payload,
                            Deadline deadline, bool* unsent) {
  if (payload.size() > maxPayload_) {
    return Status::error(memFullErr, "an event of " + std::to_string(payload.size()) +
                                         " bytes exceeds the bus limit of " +
                                         std::to_string(maxPayload_));
  }
  const std::string frame = encodeBusFrame(header, payload);
  size_t written = 0;
  Status sent;
  {
    std::lock_guard lock(writeMutex_);
    sent = detail::sendAll(fd_.get(), frame, deadline, &written);
  }
  if (unsent != nullptr) *unsent = !sent.ok() && written == 0;
  // Part of a frame on the wire leaves the stream unusable for everyone, and a peer that has
  // gone will not come back to this connection.
  if (!sent.ok() && (written > 0 || sent.code() == connectionInvalid)) close();
  return sent;
}

void BusConnection::readTurn(std::unique_lock<std::mutex>& lock, Deadline deadline,
                             Callbacks& callbacks) {
  lock.unlock();
  std::optional<Status> failure;
  std::vector<BusFrameReader::Frame> frames;
  pollfd p{fd_.get(), POLLIN, 0};
  timespec wait{};
  if (deadline) {
    const auto left =
        std::max(std::chrono::nanoseconds(0), std::chrono::nanoseconds(*deadline - Clock::now()));
    wait.tv_sec = static_cast<time_t>(left.count() / 1'000'000'000);
    wait.tv_nsec = static_cast<long>(left.count() % 1'000'000'000);
  }
  const int ready = ::ppoll(&p, 1, deadline ? &wait : nullptr, nullptr);
  if (ready > 0) {
    // Everything the socket holds, up to a bound so that the turn passes on now and then.
    char buffer[16 * 1024];
    for (size_t taken = 0; !failure && taken < kReadTurnLimit;) {
      const ssize_t n = ::recv(fd_.get(), buffer, sizeof buffer, MSG_DONTWAIT);
      if (n > 0) {
        taken += static_cast<size_t>(n);
        if (Status fed = frames_.feed(std::string_view(buffer, static_cast<size_t>(n)));
            !fed.ok()) {
          failure = Status::error(connectionInvalid, "malformed reply stream: " + fed.message());
        }
        while (auto frame = frames_.next())
          frames.push_back(std::move(*frame));
        if (static_cast<size_t>(n) < sizeof buffer) break;
      } else if (n == 0) {
        failure = Status::error(connectionInvalid, "the application closed the connection");
      } else if (errno == EINTR) {
        continue;
      } else if (errno == EAGAIN || errno == EWOULDBLOCK) {
        break;
      } else {
        failure = Status::error(connectionInvalid, "the connection to the application failed");
      }
    }
  } else if (ready < 0 && errno != EINTR) {
    failure = detail::errnoStatus(errno, "cannot wait for the application");
  }
  lock.lock();
  for (auto& frame : frames) {
    if (frame.header.kind != BusFrameKind::reply) {
      failure = Status::error(connectionInvalid, "the application sent a request frame");
      break;
    }
    auto it = pending_.find(frame.header.returnID);
    if (it == pending_.end()) {
      NullLog("bus client: discarding a reply for return ID %d that nobody waits for",
              static_cast<int>(frame.header.returnID));
      continue;
    }
    std::shared_ptr<Pending> pending = std::move(it->second);
    pending_.erase(it);
    if (pending->callback) {
      --callbackRequests_;
      callbacks.emplace_back(std::move(pending->callback), std::move(frame.payload));
    } else {
      pending->result = std::move(frame.payload);
    }
  }
  if (failure && alive_) {
    NullLog("bus client: %s", failure->message().c_str());
    failAll(*failure, callbacks);
  }
  reading_ = false;
  changed_.notify_all();
}

Result<std::string> BusConnection::request(const BusFrameHeader& header, std::string_view payload,
                                           Deadline deadline, bool* unsent) {
  if (unsent != nullptr) *unsent = false;
  auto pending = std::make_shared<Pending>();
  {
    std::lock_guard lock(mutex_);
    if (!alive_) {
      if (unsent != nullptr) *unsent = true;
      return closedStatus();
    }
    if (!pending_.emplace(header.returnID, pending).second) {
      return Status::error(paramErr, "return ID " + std::to_string(header.returnID) +
                                         " is already waiting for a reply");
    }
  }
  const auto forget = [&] {
    // The reader may have failed it already; either way nobody waits for it any more.
    if (auto it = pending_.find(header.returnID); it != pending_.end() && it->second == pending) {
      pending_.erase(it);
    }
  };
  if (Status sent = write(header, payload, deadline, unsent); !sent.ok()) {
    std::lock_guard lock(mutex_);
    forget();
    return sent;
  }
  Callbacks callbacks;
  std::unique_lock lock(mutex_);
  for (;;) {
    if (pending->result) break;
    if (!alive_) {
      pending->result = closedStatus();
      break;
    }
    if (deadline && Clock::now() >= *deadline) {
      // Forgotten, so that a late reply finds nobody and is discarded.
      forget();
      pending->result = Status::error(errAETimeout, "no reply in time");
      break;
    }
    if (!reading_) {
      reading_ = true;
      readTurn(lock, deadline, callbacks);
      if (!callbacks.empty()) {
        lock.unlock();
        run(callbacks);
        lock.lock();
      }
      continue;
    }
    if (deadline) {
      changed_.wait_until(lock, *deadline);
    } else {
      changed_.wait(lock);
    }
  }
  return std::move(*pending->result);
}

Status BusConnection::post(const BusFrameHeader& header, std::string_view payload,
                           Deadline deadline, ReplyCallback onReply, bool* unsent) {
  if (unsent != nullptr) *unsent = false;
  std::shared_ptr<Pending> pending;
  {
    std::lock_guard lock(mutex_);
    if (!alive_) {
      if (unsent != nullptr) *unsent = true;
      return closedStatus();
    }
    if (header.kind == BusFrameKind::request) {
      pending = std::make_shared<Pending>();
      pending->callback = std::move(onReply);
      if (!pending_.emplace(header.returnID, pending).second) {
        return Status::error(paramErr, "return ID " + std::to_string(header.returnID) +
                                           " is already waiting for a reply");
      }
      ++callbackRequests_;
      try {
        startHelper();
      } catch (const std::system_error& error) {
        pending_.erase(header.returnID);
        --callbackRequests_;
        return Status::error(memFullErr,
                             std::string("cannot start the bus reply thread: ") + error.what());
      }
    }
  }
  changed_.notify_all();
  Status sent = write(header, payload, deadline, unsent);
  if (!sent.ok() && pending) {
    std::lock_guard lock(mutex_);
    if (auto it = pending_.find(header.returnID); it != pending_.end() && it->second == pending) {
      pending_.erase(it);
      --callbackRequests_;
    }
  }
  return sent;
}

void BusConnection::startHelper() {
  if (!helper_.joinable()) helper_ = std::thread([this] { helperLoop(); });
}

void BusConnection::helperLoop() {
  Callbacks callbacks;
  std::unique_lock lock(mutex_);
  while (!stopping_) {
    if (!alive_ || reading_ || callbackRequests_ == 0) {
      changed_.wait(lock);
      continue;
    }
    reading_ = true;
    readTurn(lock, Clock::now() + kHelperTurn, callbacks);
    if (!callbacks.empty()) {
      lock.unlock();
      run(callbacks);
      lock.lock();
    }
  }
}

}  // namespace rvitunes::ae
