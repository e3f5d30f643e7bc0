#include "rvitunes/ae/EventManager.h"

#include <unistd.h>

#include <algorithm>
#include <cstring>

#include "rvitunes/ae/Wire.h"
#include "rvitunes/base/Log.h"

namespace rvitunes::ae {
namespace {

constexpr int64_t kPlatformDefaultTimeoutMs = 60'000;

bool usableName(const std::string& name) {
  return !name.empty() && name.size() <= BusDirectory::kMaxNameLength &&
         std::none_of(name.begin(), name.end(),
                      [](char c) { return static_cast<unsigned char>(c) < 0x20 || c == 0x7F; });
}

// Unique in the process, never 0 or -1, so that it cannot be mistaken for "no ID" or
// kAutoGenerateReturnID by a reader of the wire.
int32_t nextWireReturnID() {
  static std::atomic<uint32_t> counter{0};
  return static_cast<int32_t>(counter.fetch_add(1, std::memory_order_relaxed) % 0x7FFFFFFEu + 1);
}

std::string toPayload(const std::vector<uint8_t>& bytes) {
  return std::string(reinterpret_cast<const char*>(bytes.data()), bytes.size());
}

std::span<const uint8_t> bytesOf(const std::string& payload) {
  return {reinterpret_cast<const uint8_t*>(payload.data()), payload.size()};
}

// A reply that reports a failure which kept the handler from answering.
Descriptor errorReply(AEReturnID returnID, AETransactionID transactionID, OSStatus error,
                      const std::string& message) {
  Descriptor reply = Descriptor::makeAppleEvent(kCoreEventClass, kAEAnswer, nullDescriptor(),
                                                returnID, transactionID);
  const int32_t number = error;
  reply.putParamPtr(keyErrorNumber, typeSInt32, &number, sizeof number);
  if (!message.empty()) reply.putParamDesc(keyErrorString, Descriptor::makeText(message));
  return reply;
}

// Reads a reply payload; errAECorruptData when it is not a readable Apple event.
Result<Descriptor> readReply(const std::string& payload) {
  auto reply = unflatten(bytesOf(payload));
  if (!reply) {
    return Status::error(errAECorruptData, "unreadable reply: " + reply.status().message());
  }
  if (!reply->isAppleEvent()) {
    return Status::error(errAECorruptData, "the reply is not an Apple event");
  }
  return std::move(reply).value();
}

}  // namespace

std::atomic<int64_t> EventManager::defaultTimeoutMs_{kPlatformDefaultTimeoutMs};

struct EventManager::Target {
  std::shared_ptr<Application> app;  // in this manager, or
  std::string socketPath;            // on the bus
};

EventManager::EventManager(Options options) : options_(std::move(options)) {}

EventManager::~EventManager() {
  std::map<OSType, std::unique_ptr<BusServer>> servers;
  {
    std::lock_guard lock(appsMutex_);
    servers.swap(servers_);
  }
  servers.clear();  // joins the server threads, outside the lock their handlers may need
  std::map<std::string, std::shared_ptr<BusConnection>> connections;
  {
    std::lock_guard lock(connectionsMutex_);
    connections.swap(connections_);
  }
  for (auto& [path, connection] : connections)
    connection->close();
  connections.clear();
  std::lock_guard lock(appsMutex_);
  apps_.clear();
  registrationOrder_.clear();
}

EventManager& EventManager::shared() {
  static EventManager manager;
  return manager;
}

void EventManager::setDefaultTimeout(std::chrono::milliseconds timeout) {
  defaultTimeoutMs_.store(std::max<int64_t>(0, timeout.count()));
}

std::chrono::milliseconds EventManager::defaultTimeout() {
  return std::chrono::milliseconds(defaultTimeoutMs_.load());
}

Result<std::shared_ptr<Application>> EventManager::registerApplication(OSType signature,
                                                                       std::string name) {
  if (!usableName(name)) {
    return Status::error(paramErr, "application name \"" + name +
                                       "\" is empty, too long or holds control characters");
  }
  std::lock_guard lock(appsMutex_);
  if (apps_.count(signature) != 0) {
    return Status::error(paramErr, "signature " + fourCharDisplay(signature) +
                                       " is already registered in this process");
  }
  auto app = std::make_shared<Application>(signature, std::move(name));
  apps_.emplace(signature, app);
  registrationOrder_.push_back(signature);
  return app;
}

Status EventManager::publish(OSType signature) {
  std::lock_guard publishing(publishMutex_);
  const std::shared_ptr<Application> app = application(signature);
  if (!app) {
    return Status::error(procNotFound,
                         "application " + fourCharDisplay(signature) + " is not registered");
  }
  {
    std::lock_guard lock(appsMutex_);
    if (servers_.count(signature) != 0) return Status::success();
  }
  auto directory = busDirectory();
  if (!directory) return directory.status();
  auto server = BusServer::start(*directory, signature, app->name(),
                                 [this, app](const BusFrameHeader& header, std::string payload) {
                                   return serve(*app, header, std::move(payload));
                                 });
  if (!server) return server.status();
  std::lock_guard lock(appsMutex_);
  servers_.emplace(signature, std::move(server).value());
  return Status::success();
}

Status EventManager::unregisterApplication(OSType signature) {
  std::lock_guard publishing(publishMutex_);
  std::unique_ptr<BusServer> server;
  {
    std::lock_guard lock(appsMutex_);
    if (apps_.erase(signature) == 0) {
      return Status::error(procNotFound,
                           "application " + fourCharDisplay(signature) + " is not registered");
    }
    std::erase(registrationOrder_, signature);
    if (auto it = servers_.find(signature); it != servers_.end()) {
      server = std::move(it->second);
      servers_.erase(it);
    }
  }
  server.reset();  // joins its thread outside the lock a running handler may need
  return Status::success();
}

std::shared_ptr<Application> EventManager::application(OSType signature) const {
  std::lock_guard lock(appsMutex_);
  auto it = apps_.find(signature);
  return it == apps_.end() ? nullptr : it->second;
}

void EventManager::setQueuedReplyHandler(QueuedReplyHandler handler) {
  auto shared = handler ? std::make_shared<const QueuedReplyHandler>(std::move(handler)) : nullptr;
  std::lock_guard lock(queuedMutex_);
  queuedReplyHandler_ = std::move(shared);
}

void EventManager::deliverQueuedReply(Descriptor reply) {
  std::shared_ptr<const QueuedReplyHandler> handler;
  {
    std::lock_guard lock(queuedMutex_);
    handler = queuedReplyHandler_;
  }
  if (handler) (*handler)(std::move(reply));
}

Result<BusDirectory> EventManager::busDirectory(bool verify) {
  std::lock_guard lock(directoryMutex_);
  if (directory_) {
    // A directory changed behind our back is not trusted.
    if (verify) {
      if (Status verified = directory_->verify(); !verified.ok()) return verified;
    }
    return *directory_;
  }
  auto opened = BusDirectory::open(options_.busDirectory.value_or(BusDirectory::defaultPath()));
  if (!opened) return opened.status();
  directory_ = *opened;
  return opened;
}

std::vector<RunningApplication> EventManager::runningApplications() {
  std::vector<RunningApplication> running;
  const auto self = static_cast<int32_t>(::getpid());
  {
    std::lock_guard lock(appsMutex_);
    for (const auto& [signature, app] : apps_) {
      running.push_back({app->name(), signature, self, true});
    }
  }
  auto directory = busDirectory();
  if (!directory) return running;
  for (BusRegistration& registration : directory->applications()) {
    const bool mine = std::any_of(running.begin(), running.end(), [&](const auto& r) {
      return r.inProcess && r.signature == registration.signature && registration.pid == self;
    });
    if (!mine) {
      running.push_back(
          {std::move(registration.name), registration.signature, registration.pid, false});
    }
  }
  return running;
}

Result<EventManager::Target> EventManager::resolve(const Descriptor& address) {
  if (address.type() == typeApplSignature && address.dataSize() == sizeof(OSType)) {
    OSType signature;
    std::memcpy(&signature, address.data().data(), sizeof signature);
    if (auto app = application(signature)) return Target{std::move(app), {}};
    // The directory is verified again when a connection is made (see connection()).
    auto directory = busDirectory(false);
    if (!directory) return directory.status();
    return Target{nullptr, directory->socketPath(signature)};
  }
  if (address.type() == typeKernelProcessID && address.dataSize() == sizeof(int32_t)) {
    int32_t pid;
    std::memcpy(&pid, address.data().data(), sizeof pid);
    if (pid == static_cast<int32_t>(::getpid())) {
      std::lock_guard lock(appsMutex_);
      if (!registrationOrder_.empty()) return Target{apps_.at(registrationOrder_.front()), {}};
    }
    auto directory = busDirectory();
    if (!directory) return directory.status();
    if (auto registration = directory->findByPid(pid)) {
      return Target{nullptr, std::move(registration->socketPath)};
    }
    return Status::error(procNotFound,
                         "no application of process " + std::to_string(pid) + " is registered");
  }
  return Status::error(errAEUnknownAddressType,
                       "cannot send to an address of type " + fourCharDisplay(address.type()));
}

Result<std::shared_ptr<BusConnection>> EventManager::connection(const std::string& socketPath,
                                                                Deadline deadline) {
  {
    std::lock_guard lock(connectionsMutex_);
    auto it = connections_.find(socketPath);
    if (it != connections_.end() && it->second->alive()) return it->second;
  }
  // Nothing is trusted from a directory that fails its checks now.
  if (auto directory = busDirectory(); !directory) return directory.status();
  // Connecting may wait until the deadline (a listener with a full backlog); the lock is not
  // held meanwhile, so senders to other applications are not held up by this one.
  auto made = BusConnection::connect(socketPath, deadline);
  std::lock_guard lock(connectionsMutex_);
  auto it = connections_.find(socketPath);
  // Another thread connected first: its connection is shared and ours closes as it goes.
  if (it != connections_.end() && it->second->alive()) return it->second;
  if (!made) {
    if (it != connections_.end()) connections_.erase(it);
    return made.status();
  }
  connections_[socketPath] = *made;
  return made;
}

OSStatus EventManager::send(const Descriptor& event, Descriptor* reply, AESendMode sendMode,
                            long timeoutTicks) {
  if (reply == &event) return paramErr;
  if (reply != nullptr) *reply = Descriptor();
  if (!event.isAppleEvent()) return errAENotAppleEvent;
  const AESendMode replyMode = sendMode & kAEReplyModeMask;
  if (replyMode == 0) return errAEUnknownSendMode;

  Deadline deadline;
  if (timeoutTicks == kAEDefaultTimeout) {
    deadline = BusConnection::Clock::now() + defaultTimeout();
  } else if (timeoutTicks >= 0) {
    deadline = BusConnection::Clock::now() +
               std::chrono::microseconds(static_cast<int64_t>(timeoutTicks) * 1'000'000 / 60);
  } else if (timeoutTicks != kNoTimeOut) {
    return paramErr;
  }

  auto target = resolve(event.address());
  if (!target) {
    NullLog("send %s/%s: %s", fourCharDisplay(event.eventClass()).c_str(),
            fourCharDisplay(event.eventID()).c_str(), target.status().toString().c_str());
    return target.status().code();
  }
  if (target->app) return sendInProcess(*target->app, event, reply, replyMode, deadline);
  return sendOverBus(target->socketPath, event, reply, sendMode, deadline);
}

OSStatus EventManager::sendInProcess(Application& app, const Descriptor& event, Descriptor* reply,
                                     AESendMode replyMode, Deadline deadline) {
  Descriptor answer = replyMode == kAENoReply ? Descriptor() : makeReplyEvent(event);
  if (deadline) {
    if (!app.tryDispatch(event, answer, *deadline)) return errAETimeout;
  } else {
    app.dispatch(event, answer);
  }
  if (replyMode == kAEWaitReply) {
    if (reply != nullptr) *reply = std::move(answer);
  } else if (replyMode == kAEQueueReply) {
    deliverQueuedReply(std::move(answer));
  }
  return noErr;
}

OSStatus EventManager::sendOverBus(const std::string& socketPath, const Descriptor& event,
                                   Descriptor* reply, AESendMode sendMode, Deadline deadline) {
  auto flat = flatten(event);
  if (!flat) return flat.status().code();
  if (flat->size() > kBusMaxPayloadSize) return memFullErr;
  const std::string_view payload(reinterpret_cast<const char*>(flat->data()), flat->size());
  const AESendMode replyMode = sendMode & kAEReplyModeMask;

  BusFrameHeader header;
  header.kind = replyMode == kAENoReply ? BusFrameKind::requestNoReply : BusFrameKind::request;
  header.flags = static_cast<uint32_t>(sendMode);
  header.returnID = nextWireReturnID();
  header.transactionID = event.transactionID();

  // A cached connection may turn out dead only when written to (the application restarted
  // since); a request that never left is sent once more over a fresh connection.
  for (int attempt = 0;; ++attempt) {
    auto connected = connection(socketPath, deadline);
    if (!connected) return connected.status().code();
    BusConnection& bus = **connected;
    bool unsent = false;
    if (replyMode == kAEWaitReply) {
      auto answered = bus.request(header, payload, deadline, &unsent);
      if (!answered && unsent && attempt == 0) continue;
      if (!answered) return answered.status().code();
      auto answer = readReply(*answered);
      if (!answer) return answer.status().code();
      if (reply != nullptr) *reply = std::move(answer).value();
      return noErr;
    }
    Status posted;
    if (replyMode == kAENoReply) {
      posted = bus.post(header, payload, deadline, {}, &unsent);
    } else {
      const AEReturnID returnID = event.returnID();
      const AETransactionID transactionID = event.transactionID();
      posted = bus.post(
          header, payload, deadline,
          [this, returnID, transactionID](Result<std::string> answered) {
            if (!answered) {
              deliverQueuedReply(errorReply(returnID, transactionID, answered.status().code(),
                                            answered.status().message()));
              return;
            }
            auto answer = readReply(*answered);
            deliverQueuedReply(answer ? std::move(answer).value()
                                      : errorReply(returnID, transactionID, answer.status().code(),
                                                   answer.status().message()));
          },
          &unsent);
    }
    if (!posted.ok() && unsent && attempt == 0) continue;
    return posted.code();
  }
}

std::optional<std::string> EventManager::serve(Application& app, const BusFrameHeader& header,
                                               std::string payload) {
  const bool wantsReply = header.kind == BusFrameKind::request;
  auto event = unflatten(bytesOf(payload));
  if (!event || !event->isAppleEvent()) {
    // Whatever bound the bytes broke (nesting, item count), to the sender they are corrupt data,
    // as its own reading of a reply would say.
    const Status why = event ? Status::error(errAENotAppleEvent, "the request is not an event")
                             : Status::error(errAECorruptData, event.status().message());
    NullLog("application '%s': unreadable request: %s", app.name().c_str(), why.toString().c_str());
    if (!wantsReply) return std::nullopt;
    auto flat = flatten(errorReply(0, header.transactionID, why.code(), why.message()));
    return flat ? std::optional(toPayload(*flat)) : std::nullopt;
  }
  Descriptor answer = wantsReply ? makeReplyEvent(*event) : Descriptor();
  app.dispatch(*event, answer);
  if (!wantsReply) return std::nullopt;
  auto flat = flatten(answer);
  if (!flat || flat->size() > kBusMaxPayloadSize) {
    const OSStatus code = flat ? memFullErr : flat.status().code();
    flat = flatten(errorReply(event->returnID(), event->transactionID(), code,
                              "the reply is too large for the bus"));
    if (!flat) return std::nullopt;
  }
  return toPayload(*flat);
}

}  // namespace rvitunes::ae
