// The sending side of the local event bus: one connection to an application's socket, shared
// by every thread that sends to that application.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

#include "rvitunes/ae/BusFrame.h"
#include "rvitunes/base/FileDescriptor.h"
#include "rvitunes/base/Result.h"

namespace rvitunes::ae {

// A connection to one bus server. Any number of threads may send at once: frames are written
// whole under a lock, and replies are matched to their requests by return ID. There is no
// reader thread on the hot path: a thread waiting for a reply reads the socket itself while no
// other thread does, and hands the replies it finds to their waiters, so a lone sender costs
// one wake-up per round trip, like a plain socket. Replies to requests sent with a callback
// are read by a helper thread started with the first such request. A reply that arrives after
// its sender stopped waiting is discarded. When the server goes away every unanswered request
// fails with connectionInvalid and the connection stays dead (alive() turns false); make a new
// one to reach a restarted server. Thread-safe. The destructor closes the socket, fails what
// is pending and joins the helper thread.
class BusConnection {
 public:
  using Clock = std::chrono::steady_clock;
  using Deadline = std::optional<Clock::time_point>;  // nullopt: wait without limit
  // Receives the reply payload of a request sent with post(), or the failure. Called on
  // whichever thread read the reply (a sender's or the helper thread) or on the thread that
  // closes the connection, without locks held; it must not block for long and must not drop
  // the last reference to this connection.
  using ReplyCallback = std::function<void(Result<std::string> reply)>;

  // Connects to the socket at `socketPath`. procNotFound when nothing listens there or the
  // listener belongs to another user; errAETimeout when a listener's full backlog has no room
  // before `deadline`; paramErr for a path too long for a socket address.
  static Result<std::shared_ptr<BusConnection>> connect(const std::string& socketPath,
                                                        Deadline deadline = std::nullopt,
                                                        uint32_t maxPayload = kBusMaxPayloadSize);

  BusConnection(const BusConnection&) = delete;
  BusConnection& operator=(const BusConnection&) = delete;
  ~BusConnection();

  // Sends a request frame (header.kind must be request) and waits for its reply until
  // `deadline`; answers the reply payload. errAETimeout when the deadline passes first;
  // connectionInvalid when the server goes away first or the connection is already dead;
  // paramErr when a request with the same return ID is still waiting on this connection.
  // `unsent`, when given, is set to true when the failure came before any byte of this request
  // was written, so that the request may safely be sent again over a new connection.
  Result<std::string> request(const BusFrameHeader& header, std::string_view payload,
                              Deadline deadline, bool* unsent = nullptr);

  // Sends a frame without waiting for an answer. For a request frame `onReply` receives the
  // reply (or connectionInvalid) later; for requestNoReply it must be empty. The deadline
  // bounds only the writing. Errors as for request().
  Status post(const BusFrameHeader& header, std::string_view payload, Deadline deadline,
              ReplyCallback onReply = {}, bool* unsent = nullptr);

  bool alive() const;
  // Requests waiting for a reply (for tests and diagnostics).
  size_t pendingCount() const;
  // Shuts the socket down; pending requests fail with connectionInvalid. Idempotent.
  void close();

 private:
  struct Private {};

 public:
  BusConnection(Private, FileDescriptor fd, uint32_t maxPayload);

 private:
  struct Pending {
    std::optional<Result<std::string>> result;
    ReplyCallback callback;
  };
  using Callbacks = std::vector<std::pair<ReplyCallback, Result<std::string>>>;

  Status write(const BusFrameHeader& header, std::string_view payload, Deadline deadline,
               bool* unsent);
  // Reads what the socket has, waiting for it until `deadline`, and hands out the replies.
  // Called with `lock` held and reading_ set; unlocks while blocked.
  void readTurn(std::unique_lock<std::mutex>& lock, Deadline deadline, Callbacks& callbacks);
  // Marks the connection dead and fails everything pending; callbacks are collected.
  void failAll(const Status& why, Callbacks& callbacks);
  void helperLoop();
  void startHelper();
  static void run(Callbacks& callbacks);

  FileDescriptor fd_;
  uint32_t maxPayload_;
  mutable std::mutex mutex_;         // guards everything below except frames_ and writeMutex_
  std::condition_variable changed_;  // a reply was handed out, the reader left, or death
  bool alive_ = true;
  bool reading_ = false;  // some thread owns the read side (and frames_)
  bool stopping_ = false;
  size_t callbackRequests_ = 0;
  std::map<int32_t, std::shared_ptr<Pending>> pending_;
  BusFrameReader frames_;
  std::mutex writeMutex_;  // one frame at a time on the socket
  std::thread helper_;
};

}  // namespace rvitunes::ae
