// The event manager: registers applications, sends Apple Events to them and brings back their
// replies, in this process or over the local event bus.
//
// Sending follows the platform's AESendMessage contract:
//   - send mode: the reply mode in the low two bits, kAENoReply (1), kAEQueueReply (2) or
//     kAEWaitReply (3); the interaction bits (kAENeverInteract 0x10, ...) and the other flags
//     are accepted and travel with the event; a reply mode of 0 is errAEUnknownSendMode;
//   - timeout in ticks (1/60 s): kAEDefaultTimeout (-1) is the process-wide default (60 s
//     unless changed with setDefaultTimeout), kNoTimeOut (-2) waits without limit, 0 takes only
//     an answer that needs no waiting; other negative values are paramErr;
//   - the target is the event's 'addr' attribute: 'sign' (an application signature) is looked
//     up among the applications registered in this manager first, then on the bus; 'kpid' (a
//     process id) names this process (its first registered application) or a process on the
//     bus. Other address types answer errAEUnknownAddressType;
//   - the result is noErr once a reply arrived (kAEWaitReply) or the event was handed over
//     (kAENoReply, kAEQueueReply), even when the handler failed: its error number is then in
//     the reply's 'errn' (and possibly a message in 'errs'), which the caller reads. Failures
//     of the delivery itself: procNotFound (-600) when no such application is registered or
//     nothing listens on its socket; connectionInvalid (-609) when the application goes away
//     before it answered; errAETimeout (-1712) when no answer came in time (a reply that comes
//     later is discarded); errAECorruptData when the reply cannot be read; memFullErr for an
//     event too large for the bus. On failure the reply is the null descriptor.
//   - an event's return ID is set when it is made (kAutoGenerateReturnID gives one unique in the
//     process); the reply carries the same return ID and transaction ID. Over the bus each
//     request also gets a 32-bit wire return ID, unique in the process, which pairs it with its
//     reply on a connection shared by all sending threads.
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "rvitunes/ae/AECodes.h"
#include "rvitunes/ae/Application.h"
#include "rvitunes/ae/BusConnection.h"
#include "rvitunes/ae/BusDirectory.h"
#include "rvitunes/ae/BusServer.h"
#include "rvitunes/ae/Descriptor.h"
#include "rvitunes/base/Result.h"

namespace rvitunes::ae {

// One entry of the running-application list.
struct RunningApplication {
  std::string name;
  OSType signature = 0;
  int32_t pid = 0;
  bool inProcess = false;  // registered in this event manager
};

class EventManager {
 public:
  struct Options {
    // The bus directory; nullopt: BusDirectory::defaultPath(), read when the bus is first used.
    std::optional<std::string> busDirectory;
  };

  // Receives the replies of events sent with kAEQueueReply (as 'aevt'/'ansr' events; a reply
  // that cannot come carries the delivery error under 'errn'). Called on a bus reader thread,
  // or on the sending thread before send returns when the target is in this process.
  using QueuedReplyHandler = std::function<void(Descriptor reply)>;

  EventManager() : EventManager(Options{}) {}
  explicit EventManager(Options options);
  EventManager(const EventManager&) = delete;
  EventManager& operator=(const EventManager&) = delete;
  // Stops serving (removing this manager's sockets and records), closes its connections
  // (pending sends fail with connectionInvalid) and joins every thread. No send may still be
  // running in the manager.
  ~EventManager();

  // The process-wide manager, made on first use (thread-safe) with the default options and
  // destroyed at exit.
  static EventManager& shared();

  // The timeout kAEDefaultTimeout stands for, for every manager of the process. Thread-safe.
  static void setDefaultTimeout(std::chrono::milliseconds timeout);
  static std::chrono::milliseconds defaultTimeout();

  // Registers an application in this manager under `signature` and `name`. paramErr when the
  // signature is already registered here or the name is empty, longer than 255 bytes or holds a
  // control character. Install its handlers, then publish() it to reach other processes.
  Result<std::shared_ptr<Application>> registerApplication(OSType signature, std::string name);
  // Starts serving a registered application on the bus (its socket and record appear in the bus
  // directory). procNotFound when it is not registered here; otherwise the errors of
  // BusDirectory::open and BusServer::start (a live application of the same signature on the
  // bus is paramErr). Publishing twice is a no-op.
  Status publish(OSType signature);
  // Stops serving and forgets the application; procNotFound when it is not registered here.
  // An event being handled finishes first.
  Status unregisterApplication(OSType signature);
  // The application registered here under `signature`, or nullptr.
  std::shared_ptr<Application> application(OSType signature) const;

  // Sends `event` (AESendMessage); see the contract at the top of this file. `reply` may be null
  // when the reply is not wanted. Thread-safe: any number of threads may send at once.
  OSStatus send(const Descriptor& event, Descriptor* reply, AESendMode sendMode, long timeoutTicks);

  void setQueuedReplyHandler(QueuedReplyHandler handler);

  // The applications registered here and on the bus (live ones only), each once: name,
  // signature, process id. Registrations here come first, in signature order; then the bus's,
  // in name order.
  std::vector<RunningApplication> runningApplications();

  // The bus directory this manager uses, opened (and created) on first use and verified again
  // on every call when `verify` is true. wrPermErr when it fails its checks.
  Result<BusDirectory> busDirectory(bool verify = true);

 private:
  struct Target;
  using Deadline = BusConnection::Deadline;

  Result<Target> resolve(const Descriptor& address);
  Result<std::shared_ptr<BusConnection>> connection(const std::string& socketPath,
                                                    Deadline deadline);
  OSStatus sendInProcess(Application& app, const Descriptor& event, Descriptor* reply,
                         AESendMode replyMode, Deadline deadline);
  OSStatus sendOverBus(const std::string& socketPath, const Descriptor& event, Descriptor* reply,
                       AESendMode sendMode, Deadline deadline);
  std::optional<std::string> serve(Application& app, const BusFrameHeader& header,
                                   std::string payload);
  void deliverQueuedReply(Descriptor reply);

  const Options options_;

  std::mutex publishMutex_;  // serialises publish and unregister
  mutable std::mutex appsMutex_;
  std::map<OSType, std::shared_ptr<Application>> apps_;
  std::vector<OSType> registrationOrder_;
  std::map<OSType, std::unique_ptr<BusServer>> servers_;

  std::mutex directoryMutex_;
  std::optional<BusDirectory> directory_;

  std::mutex connectionsMutex_;
  std::map<std::string, std::shared_ptr<BusConnection>> connections_;

  std::mutex queuedMutex_;
  std::shared_ptr<const QueuedReplyHandler> queuedReplyHandler_;

  static std::atomic<int64_t> defaultTimeoutMs_;
};

}  // namespace rvitunes::ae
