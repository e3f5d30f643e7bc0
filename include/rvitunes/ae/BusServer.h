// The listening side of the local event bus: registers an application in a bus directory and
// answers request frames arriving on its socket.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <thread>

#include "rvitunes/ae/BusDirectory.h"
#include "rvitunes/ae/BusFrame.h"
#include "rvitunes/base/FileDescriptor.h"
#include "rvitunes/base/Result.h"

namespace rvitunes::ae {

// One registered application's socket and the thread that serves it. The thread is the
// application's run loop: it accepts peers, reads frames from all of them and calls the request
// handler for one request at a time, in the order the requests arrived, so requests from one
// client are answered in order. Peers of another user are refused as they connect; a peer that
// sends a malformed frame (bad magic, version or kind, a payload over the limit, a reply where
// a request belongs, a stream ending mid-frame) is disconnected without touching the others.
// Not copyable or movable; the destructor unregisters and joins the thread.
class BusServer {
 public:
  // Handles one request: answers the reply payload, or nullopt to send no reply. Runs on the
  // server thread; while it runs no other request of this server is handled. For
  // BusFrameKind::requestNoReply the answer is ignored.
  using RequestHandler =
      std::function<std::optional<std::string>(const BusFrameHeader& header, std::string payload)>;

  struct Options {
    uint32_t maxPayload = kBusMaxPayloadSize;
    size_t maxConnections = 128;  // further peers are closed as soon as they are accepted
  };

  // Registers `signature` under `name` in `directory` and starts serving. The directory is
  // verified again; a socket left by a process that died (nothing listening) is removed with
  // its record, under a lock on the directory so that two registrations cannot interleave.
  // paramErr when another live application holds the signature, when the name is unusable or
  // when the socket path is too long; wrPermErr for a directory that fails verification;
  // the errno mapping for socket errors.
  static Result<std::unique_ptr<BusServer>> start(const BusDirectory& directory, OSType signature,
                                                  const std::string& name, RequestHandler handler,
                                                  Options options);
  static Result<std::unique_ptr<BusServer>> start(const BusDirectory& directory, OSType signature,
                                                  const std::string& name, RequestHandler handler) {
    return start(directory, signature, name, std::move(handler), Options{});
  }

  BusServer(const BusServer&) = delete;
  BusServer& operator=(const BusServer&) = delete;
  // Removes the socket and record (when they are still this server's), closes every
  // connection and joins the thread, after the handler call in progress, if any, returns.
  ~BusServer();

  const BusRegistration& registration() const { return registration_; }

  // Counters for diagnostics and tests; thread-safe.
  size_t connectionCount() const { return connections_.load(); }
  uint64_t refusedPeerCount() const { return refusedPeers_.load(); }
  uint64_t droppedConnectionCount() const { return droppedConnections_.load(); }

 private:
  struct Private {};

 public:
  // Use start().
  BusServer(Private, BusDirectory directory, BusRegistration registration, FileDescriptor listener,
            FileDescriptor wake, RequestHandler handler, Options options);

 private:
  class Loop;
  void unregister();

  BusDirectory directory_;
  BusRegistration registration_;
  FileDescriptor listener_;
  FileDescriptor wake_;
  RequestHandler handler_;
  Options options_;
  uint64_t socketInode_ = 0;
  uint64_t socketDevice_ = 0;
  std::atomic<bool> stop_{false};
  std::atomic<size_t> connections_{0};
  std::atomic<uint64_t> refusedPeers_{0};
  std::atomic<uint64_t> droppedConnections_{0};
  std::thread thread_;
};

}  // namespace rvitunes::ae
