// An application that accepts Apple Events: its signature, its name and its handler table.
#pragma once

#include <chrono>
#include <condition_variable>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <utility>

#include "rvitunes/ae/AECodes.h"
#include "rvitunes/ae/Descriptor.h"
#include "rvitunes/base/OSStatus.h"

namespace rvitunes::ae {

// Handles one event (the platform's AEEventHandlerProcPtr). `reply` is the reply event
// ('aevt'/'ansr', no parameters yet) when the sender wants a reply, the null descriptor when
// it sent with kAENoReply. The handler puts the result under '----' and may put 'errn' and
// 'errs'; a non-zero answer that the handler did not put under 'errn' itself is put there for
// it. Exceptions a handler lets escape are caught and answered as errAEEventFailed.
using EventHandler = std::function<OSStatus(const Descriptor& event, Descriptor& reply)>;

// A registered application. Handlers of one application run one at a time: a handler holds the
// application's run lock from start to end, whether it was called for an event from another
// process (on the application's bus thread) or from this process (on the sending thread, as
// the platform calls a handler directly for an event a process sends to itself). A handler may
// send events to its own application; they are handled at once, inside the running handler.
// Thread-safe; shared by the event manager and whoever registered it.
class Application {
 public:
  Application(OSType signature, std::string name) : signature_(signature), name_(std::move(name)) {}
  Application(const Application&) = delete;
  Application& operator=(const Application&) = delete;

  OSType signature() const { return signature_; }
  const std::string& name() const { return name_; }

  // Installs `handler` for events of `eventClass` / `eventID`, replacing the one installed
  // there before (AEInstallEventHandler). Either code may be typeWildCard ('****'). An empty
  // handler is the same as removeEventHandler.
  void installEventHandler(AEEventClass eventClass, AEEventID eventID, EventHandler handler);
  // False when nothing was installed there (AERemoveEventHandler).
  bool removeEventHandler(AEEventClass eventClass, AEEventID eventID);

  // Handles `event` with the best matching handler (AEProcessAppleEvent): the exact class and
  // ID, then the class with '****', then '****' with the ID, then '****' / '****'. Without one
  // the answer is errAEEventNotHandled. Answers the handler's status; a non-zero status is put
  // under 'errn' of a non-null reply that has none. Waits for the run lock without limit.
  OSStatus dispatch(const Descriptor& event, Descriptor& reply);
  // As dispatch, waiting for the run lock only until `deadline`; nullopt when the lock did not
  // come in time (nothing was handled and `reply` is untouched).
  std::optional<OSStatus> tryDispatch(const Descriptor& event, Descriptor& reply,
                                      std::chrono::steady_clock::time_point deadline);

 private:
  using Handler = std::shared_ptr<const EventHandler>;
  Handler findHandler(AEEventClass eventClass, AEEventID eventID) const;
  // Runs the handler; the caller holds runLock_.
  OSStatus runHandler(const Descriptor& event, Descriptor& reply);

  // Held by the thread running a handler; the same thread may take it again (an event the
  // handler sends to its own application).
  class RunLock {
   public:
    bool lockUntil(std::optional<std::chrono::steady_clock::time_point> deadline);
    void unlock();

   private:
    std::mutex mutex_;
    std::condition_variable released_;
    std::thread::id owner_;
    int depth_ = 0;
  };

  const OSType signature_;
  const std::string name_;
  mutable std::mutex tableMutex_;
  std::map<std::pair<AEEventClass, AEEventID>, Handler> handlers_;
  RunLock runLock_;
};

// The reply event the platform prepares for `event`: 'aevt'/'ansr' with the event's return ID
// and transaction ID and a null address.
Descriptor makeReplyEvent(const Descriptor& event);

}  // namespace rvitunes::ae
