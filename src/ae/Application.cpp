#include "rvitunes/ae/Application.h"

#include <exception>

#include "rvitunes/base/Log.h"

namespace rvitunes::ae {

void Application::installEventHandler(AEEventClass eventClass, AEEventID eventID,
                                      EventHandler handler) {
  if (!handler) {
    removeEventHandler(eventClass, eventID);
    return;
  }
  auto shared = std::make_shared<const EventHandler>(std::move(handler));
  std::lock_guard lock(tableMutex_);
  handlers_[{eventClass, eventID}] = std::move(shared);
}

bool Application::removeEventHandler(AEEventClass eventClass, AEEventID eventID) {
  std::lock_guard lock(tableMutex_);
  return handlers_.erase({eventClass, eventID}) != 0;
}

Application::Handler Application::findHandler(AEEventClass eventClass, AEEventID eventID) const {
  std::lock_guard lock(tableMutex_);
  for (const auto& key :
       {std::pair{eventClass, eventID}, std::pair{eventClass, typeWildCard},
        std::pair{typeWildCard, eventID}, std::pair{typeWildCard, typeWildCard}}) {
    if (auto it = handlers_.find(key); it != handlers_.end()) return it->second;
  }
  return nullptr;
}

bool Application::RunLock::lockUntil(
    std::optional<std::chrono::steady_clock::time_point> deadline) {
  const std::thread::id self = std::this_thread::get_id();
  std::unique_lock lock(mutex_);
  if (depth_ > 0 && owner_ == self) {
    ++depth_;
    return true;
  }
  const auto free = [this] { return depth_ == 0; };
  if (deadline) {
    if (!released_.wait_until(lock, *deadline, free)) return false;
  } else {
    released_.wait(lock, free);
  }
  owner_ = self;
  depth_ = 1;
  return true;
}

void Application::RunLock::unlock() {
  {
    std::lock_guard lock(mutex_);
    if (--depth_ > 0) return;
    owner_ = std::thread::id();
  }
  released_.notify_one();
}

OSStatus Application::dispatch(const Descriptor& event, Descriptor& reply) {
  runLock_.lockUntil(std::nullopt);
  const OSStatus status = runHandler(event, reply);
  runLock_.unlock();
  return status;
}

std::optional<OSStatus> Application::tryDispatch(const Descriptor& event, Descriptor& reply,
                                                 std::chrono::steady_clock::time_point deadline) {
  if (!runLock_.lockUntil(deadline)) return std::nullopt;
  const OSStatus status = runHandler(event, reply);
  runLock_.unlock();
  return status;
}

OSStatus Application::runHandler(const Descriptor& event, Descriptor& reply) {
  OSStatus status = errAEEventNotHandled;
  // Looked up when the event's turn comes, so the event sees the table as it is then.
  if (const Handler handler = findHandler(event.eventClass(), event.eventID())) {
    try {
      status = (*handler)(event, reply);
    } catch (const std::exception& error) {
      SystemLog("application '%s': an event handler threw: %s", name_.c_str(), error.what());
      status = errAEEventFailed;
    } catch (...) {
      SystemLog("application '%s': an event handler threw", name_.c_str());
      status = errAEEventFailed;
    }
  }
  if (status != noErr && reply.isAppleEvent() && reply.findParam(keyErrorNumber) == nullptr) {
    const int32_t number = status;
    reply.putParamPtr(keyErrorNumber, typeSInt32, &number, sizeof number);
  }
  return status;
}

Descriptor makeReplyEvent(const Descriptor& event) {
  return Descriptor::makeAppleEvent(kCoreEventClass, kAEAnswer, nullDescriptor(), event.returnID(),
                                    event.transactionID());
}

}  // namespace rvitunes::ae
