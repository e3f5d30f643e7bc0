#include "rvitunes/platform/NotificationCenter.h"

#include <algorithm>
#include <condition_variable>
#include <mutex>
#include <thread>
#include <vector>

namespace rvitunes::platform {
namespace {

struct Observer {
  NotificationCenter::ObserverId id = 0;
  std::string name;
  NotificationCenter::Callback callback;
  // Both guarded by the center's mutex.
  bool removed = false;
  std::vector<std::thread::id> callers;  // threads inside the callback now (may repeat)
};

using ObserverList = std::vector<std::shared_ptr<Observer>>;

}  // namespace

struct NotificationCenter::Impl {
  std::mutex mutex;
  std::condition_variable callEnded;
  // Replaced, never changed in place, so a post walks its snapshot without holding the lock.
  std::shared_ptr<const ObserverList> observers = std::make_shared<const ObserverList>();
  ObserverId nextId = 1;
};

NotificationCenter::NotificationCenter() : impl_(std::make_unique<Impl>()) {}

NotificationCenter::~NotificationCenter() = default;

NotificationCenter& NotificationCenter::defaultCenter() {
  static NotificationCenter center;
  return center;
}

NotificationCenter::ObserverId NotificationCenter::addObserver(std::string name,
                                                               Callback callback) {
  auto observer = std::make_shared<Observer>();
  observer->name = std::move(name);
  observer->callback = std::move(callback);
  std::lock_guard lock(impl_->mutex);
  observer->id = impl_->nextId++;
  auto updated = std::make_shared<ObserverList>(*impl_->observers);
  updated->push_back(observer);
  impl_->observers = std::move(updated);
  return observer->id;
}

void NotificationCenter::removeObserver(ObserverId id) {
  std::unique_lock lock(impl_->mutex);
  const ObserverList& current = *impl_->observers;
  const auto found = std::find_if(current.begin(), current.end(),
                                  [id](const auto& observer) { return observer->id == id; });
  if (found == current.end()) return;
  const std::shared_ptr<Observer> observer = *found;
  auto updated = std::make_shared<ObserverList>();
  updated->reserve(current.size() - 1);
  for (const auto& other : current) {
    if (other != observer) updated->push_back(other);
  }
  impl_->observers = std::move(updated);
  observer->removed = true;

  // Calls on this thread are below us on the stack; waiting for them would never end.
  const std::thread::id self = std::this_thread::get_id();
  impl_->callEnded.wait(lock, [&] {
    return std::all_of(observer->callers.begin(), observer->callers.end(),
                       [self](std::thread::id caller) { return caller == self; });
  });
}

void NotificationCenter::postNotification(const std::string& name, plist::Value object) {
  std::shared_ptr<const ObserverList> snapshot;
  {
    std::lock_guard lock(impl_->mutex);
    snapshot = impl_->observers;
  }
  const Notification notification{name, std::move(object)};
  const std::thread::id self = std::this_thread::get_id();

  // Marks this thread as inside an observer's callback for as long as it is.
  class CallScope {
   public:
    CallScope(Impl& impl, Observer& observer, std::thread::id self)
        : impl_(impl), observer_(observer), self_(self) {}
    CallScope(const CallScope&) = delete;
    CallScope& operator=(const CallScope&) = delete;
    ~CallScope() {
      std::lock_guard lock(impl_.mutex);
      auto& callers = observer_.callers;
      callers.erase(std::find(callers.begin(), callers.end(), self_));
      impl_.callEnded.notify_all();
    }

   private:
    Impl& impl_;
    Observer& observer_;
    std::thread::id self_;
  };

  for (const std::shared_ptr<Observer>& observer : *snapshot) {
    if (!observer->name.empty() && observer->name != name) continue;
    if (!observer->callback) continue;
    {
      std::lock_guard lock(impl_->mutex);
      // Removed since the snapshot was taken: removeObserver may already have returned.
      if (observer->removed) continue;
      observer->callers.push_back(self);
    }
    CallScope scope(*impl_, *observer, self);
    observer->callback(notification);
  }
}

}  // namespace rvitunes::platform
