// An in-process notification center: observers register for a name and receive every
// notification posted under it, synchronously, on the posting thread.
//
// Thread-safe: observers may be added, removed and notified from any thread, also from inside
// a callback. A post calls the observers present when it starts (one added meanwhile waits for
// the next post). An observer removed while a post is running is not called after
// removeObserver returns: the removal waits for calls of it running on other threads to end;
// a call running on the removing thread itself (removal from inside a callback, even a nested
// one) is not waited for. So a callback must not remove an observer whose callback, on another
// thread, is waiting for this one. Several posts may call one observer at the same time.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "rvitunes/plist/Value.h"

namespace rvitunes::platform {

struct Notification {
  std::string name;
  plist::Value object;  // for example an integer number
};

class NotificationCenter {
 public:
  using ObserverId = uint64_t;
  using Callback = std::function<void(const Notification&)>;

  // The process-wide center, made on first use.
  static NotificationCenter& defaultCenter();

  // `name` empty observes every notification. Answers the id to remove it with (never 0, never
  // reused). An empty callback is never called.
  ObserverId addObserver(std::string name, Callback callback);
  // Unknown and already removed ids are ignored.
  void removeObserver(ObserverId id);
  // Calls the matching observers in the order they were added, on this thread, and returns
  // when all have returned. An exception thrown by a callback passes to the poster and skips
  // the observers after it.
  void postNotification(const std::string& name, plist::Value object);

  NotificationCenter();
  ~NotificationCenter();
  NotificationCenter(const NotificationCenter&) = delete;
  NotificationCenter& operator=(const NotificationCenter&) = delete;

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace rvitunes::platform
