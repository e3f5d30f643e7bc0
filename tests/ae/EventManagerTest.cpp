// The event manager: handler tables, sending in this process and over the bus, the platform's
// reply and error contract, and the failures of a bus peer.
#include "rvitunes/ae/EventManager.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstring>
#include <filesystem>
#include <mutex>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "rvitunes/ae/Build.h"
#include "rvitunes/ae/Printer.h"
#include "rvitunes/base/CapturingLogSink.h"

namespace rvitunes::ae {
namespace {

using namespace std::chrono_literals;

constexpr OSType kPlayer = fourCharCode("hook");
constexpr OSType kRecorder = fourCharCode("rcrd");
constexpr AESendMode kWait = kAEWaitReply | kAENeverInteract;  // 19, what requests use
constexpr AESendMode kNoReply = kAENoReply;

class ScratchDirectory {
 public:
  ScratchDirectory() {
    std::string pattern = "/tmp/rvevent-XXXXXX";
    path_ = ::mkdtemp(pattern.data()) != nullptr ? pattern : "";
  }
  ~ScratchDirectory() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }
  const std::string& path() const { return path_; }

 private:
  std::string path_;
};

size_t entriesIn(const char* dir) {
  size_t n = 0;
  for ([[maybe_unused]] const auto& entry : std::filesystem::directory_iterator(dir))
    ++n;
  return n;
}

// An event addressed by signature, its parameters in the build language.
template <class... A>
Descriptor event(OSType eventClass, OSType eventID, OSType target, std::string_view params = "",
                 const A&... args) {
  Descriptor out;
  BuildError err;
  const OSStatus status =
      buildAppleEvent(eventClass, eventID, typeApplSignature,
                      std::span(reinterpret_cast<const uint8_t*>(&target), sizeof target),
                      kAutoGenerateReturnID, kAnyTransactionID, &out, &err, params, args...);
  EXPECT_EQ(status, noErr) << params << ": error " << err.code << " at " << err.position;
  return out;
}

Descriptor addressedTo(DescType type, int32_t value) {
  Descriptor address = Descriptor::fromBytes(
      type, std::span(reinterpret_cast<const uint8_t*>(&value), sizeof value));
  return Descriptor::makeAppleEvent(kAECoreSuite, kAEGetData, address, kAutoGenerateReturnID,
                                    kAnyTransactionID);
}

int32_t errn(const Descriptor& reply) {
  int32_t number = 0;
  if (reply.getParamPtr(keyErrorNumber, typeSInt32, nullptr, &number, sizeof number, nullptr) !=
      noErr) {
    return 0;
  }
  return number;
}

std::string direct(const Descriptor& reply) {
  const Descriptor* result = reply.findParam(keyDirectObject);
  return result ? printDesc(*result) : "<none>";
}

// Answers '----' with the event's own '----' (or 'long'(n) for a 'long' one, plus one).
OSStatus echo(const Descriptor& event, Descriptor& reply) {
  if (const Descriptor* value = event.findParam(keyDirectObject); value && reply.isAppleEvent()) {
    reply.putParamDesc(keyDirectObject, *value);
  }
  return noErr;
}

EventHandler answering(std::string_view text) {
  return [text = std::string(text)](const Descriptor&, Descriptor& reply) {
    reply.putParamDesc(keyDirectObject, Descriptor::makeText(text));
    return noErr;
  };
}

// Each test gets its own bus directory and a short default timeout.
class EventManagerTest : public ::testing::Test {
 protected:
  void SetUp() override { EventManager::setDefaultTimeout(3s); }
  void TearDown() override { EventManager::setDefaultTimeout(60s); }

  EventManager::Options options() const { return {scratch_.path() + "/bus"}; }

  ScratchDirectory scratch_;
};

// A child process serving `signature` with `handler` on the test's bus; the parent continues
// once it is registered. The child ends when killed or when the handler ends it.
class ChildApplication {
 public:
  ChildApplication(const EventManager::Options& options, OSType signature, EventHandler handler) {
    int ready[2];
    if (::pipe(ready) != 0) return;
    pid_ = ::fork();
    if (pid_ == 0) {
      ::close(ready[0]);
      EventManager manager(options);
      auto app = manager.registerApplication(signature, "Child");
      if (!app) ::_exit(2);
      (*app)->installEventHandler(typeWildCard, typeWildCard, std::move(handler));
      if (!manager.publish(signature).ok()) ::_exit(3);
      (void)!::write(ready[1], "r", 1);
      for (;;)
        ::pause();
    }
    ::close(ready[1]);
    char byte;
    started_ = pid_ > 0 && ::read(ready[0], &byte, 1) == 1;
    ::close(ready[0]);
  }
  ~ChildApplication() {
    if (pid_ > 0) {
      ::kill(pid_, SIGKILL);
      ::waitpid(pid_, nullptr, 0);
    }
  }
  bool started() const { return started_; }

 private:
  pid_t pid_ = -1;
  bool started_ = false;
};

// ---- In this process -------------------------------------------------------------------------

TEST_F(EventManagerTest, SendsInProcessAndAnswersWithTheRequestsIDs) {
  EventManager manager(options());
  auto player = manager.registerApplication(kPlayer, "iTunes");
  ASSERT_TRUE(player.ok());
  std::string received;
  (*player)->installEventHandler(kAECoreSuite, kAEGetData,
                                 [&](const Descriptor& e, Descriptor& reply) {
                                   received = printDesc(e);
                                   reply.putParamDesc(keyDirectObject, Descriptor::makeSInt32(7));
                                   return noErr;
                                 });
  const Descriptor request = event(kAECoreSuite, kAEGetData, kPlayer,
                                   "'----':obj { form:prop, want:type(prop), "
                                   "seld:type(pnam), from:null() }");
  Descriptor reply;
  ASSERT_EQ(manager.send(request, &reply, kWait, kAEDefaultTimeout), noErr);
  EXPECT_EQ(received, printDesc(request));
  ASSERT_TRUE(reply.isAppleEvent());
  EXPECT_EQ(reply.eventClass(), kCoreEventClass);
  EXPECT_EQ(reply.eventID(), kAEAnswer);
  EXPECT_EQ(reply.returnID(), request.returnID());
  EXPECT_EQ(reply.transactionID(), request.transactionID());
  EXPECT_EQ(direct(reply), "7");
  EXPECT_EQ(errn(reply), 0);
  EXPECT_EQ(manager.send(request, nullptr, kWait, kAEDefaultTimeout), noErr);

  // Fire and forget: the handler gets a null reply and the caller none.
  bool nullReply = false;
  (*player)->installEventHandler(kAECoreSuite, kAESetData, [&](const Descriptor&, Descriptor& r) {
    nullReply = r.isNull();
    return noErr;
  });
  reply = Descriptor::makeSInt32(1);
  EXPECT_EQ(manager.send(event(kAECoreSuite, kAESetData, kPlayer), &reply, kNoReply, -1), noErr);
  EXPECT_TRUE(nullReply);
  EXPECT_TRUE(reply.isNull());
}

TEST_F(EventManagerTest, PicksTheMostSpecificHandlerAndReportsFailuresInTheReply) {
  EventManager manager(options());
  auto app = *manager.registerApplication(kPlayer, "iTunes");
  const auto answer = [&](OSType cls, OSType id) {
    Descriptor reply;
    EXPECT_EQ(manager.send(event(cls, id, kPlayer), &reply, kWait, -1), noErr);
    return reply;
  };
  EXPECT_EQ(errn(answer(kAECoreSuite, kAEGetData)), errAEEventNotHandled);

  app->installEventHandler(typeWildCard, typeWildCard, answering("any"));
  app->installEventHandler(typeWildCard, kAEGetData, answering("any/getd"));
  app->installEventHandler(kAECoreSuite, typeWildCard, answering("core/any"));
  app->installEventHandler(kAECoreSuite, kAEGetData, answering("core/getd"));
  EXPECT_EQ(direct(answer(kAECoreSuite, kAEGetData)), "\"core/getd\"");
  EXPECT_EQ(direct(answer(kAECoreSuite, kAESetData)), "\"core/any\"");
  EXPECT_EQ(direct(answer(kAEMiscStandards, kAEGetData)), "\"any/getd\"");
  EXPECT_EQ(direct(answer(kAEMiscStandards, kAEActivate)), "\"any\"");
  EXPECT_TRUE(app->removeEventHandler(kAECoreSuite, kAEGetData));
  EXPECT_FALSE(app->removeEventHandler(kAECoreSuite, kAEGetData));
  EXPECT_EQ(direct(answer(kAECoreSuite, kAEGetData)), "\"core/any\"");

  // A failing handler's number lands in 'errn' unless it put its own there; send succeeds.
  app->installEventHandler(kAECoreSuite, kAEDelete,
                           [](const Descriptor&, Descriptor&) { return errAEPrivilegeError; });
  EXPECT_EQ(errn(answer(kAECoreSuite, kAEDelete)), errAEPrivilegeError);
  app->installEventHandler(kAECoreSuite, kAEDelete, [](const Descriptor&, Descriptor& reply) {
    const int32_t own = errAENoSuchObject;
    reply.putParamPtr(keyErrorNumber, typeSInt32, &own, sizeof own);
    reply.putParamDesc(keyErrorString, Descriptor::makeText("no such track"));
    return errAEEventFailed;
  });
  const Descriptor failed = answer(kAECoreSuite, kAEDelete);
  EXPECT_EQ(errn(failed), errAENoSuchObject);
  ASSERT_NE(failed.findParam(keyErrorString), nullptr);
  EXPECT_EQ(printDesc(*failed.findParam(keyErrorString)), "\"no such track\"");
  app->installEventHandler(kAECoreSuite, kAEDelete, [](const Descriptor&, Descriptor&) -> OSStatus {
    throw std::runtime_error("handler bug");
  });
  auto log = std::make_shared<CapturingLogSink>();
  auto previous = setSystemLogSink(log);
  EXPECT_EQ(errn(answer(kAECoreSuite, kAEDelete)), errAEEventFailed);
  setSystemLogSink(previous);
  EXPECT_TRUE(log->contains("handler bug"));
}

TEST_F(EventManagerTest, RefusesBadModesTimeoutsAndAddresses) {
  EventManager manager(options());
  auto app = *manager.registerApplication(kPlayer, "iTunes");
  app->installEventHandler(typeWildCard, typeWildCard, echo);
  const Descriptor request = event(kAECoreSuite, kAEGetData, kPlayer);
  Descriptor reply = Descriptor::makeSInt32(1);
  EXPECT_EQ(manager.send(request, &reply, kAENeverInteract, -1), errAEUnknownSendMode);
  EXPECT_TRUE(reply.isNull());
  EXPECT_EQ(manager.send(request, &reply, kWait, -3), paramErr);
  EXPECT_EQ(manager.send(Descriptor::makeSInt32(1), &reply, kWait, -1), errAENotAppleEvent);
  EXPECT_EQ(manager.send(request, const_cast<Descriptor*>(&request), kWait, -1), paramErr);
  EXPECT_EQ(manager.send(addressedTo(typeProcessSerialNumber, 1), &reply, kWait, -1),
            errAEUnknownAddressType);
  EXPECT_EQ(manager.send(event(kAECoreSuite, kAEGetData, fourCharCode("none")), &reply, kWait, -1),
            procNotFound);
  // Our own process id reaches the first application registered here.
  EXPECT_EQ(manager.send(addressedTo(typeKernelProcessID, ::getpid()), &reply, kWait, -1), noErr);
  EXPECT_TRUE(reply.isAppleEvent());
  EXPECT_EQ(manager.send(request, &reply, kWait, kNoTimeOut), noErr);
  EXPECT_EQ(manager.send(request, &reply, kWait, 0), noErr);  // nothing to wait for here

  EXPECT_EQ(manager.registerApplication(kPlayer, "Again").status().code(), paramErr);
  EXPECT_EQ(manager.registerApplication(kRecorder, "bad\nname").status().code(), paramErr);
  EXPECT_EQ(manager.publish(kRecorder).code(), procNotFound);
  ASSERT_TRUE(manager.unregisterApplication(kPlayer).ok());
  EXPECT_EQ(manager.unregisterApplication(kPlayer).code(), procNotFound);
  EXPECT_EQ(manager.send(request, &reply, kWait, -1), procNotFound);
}

TEST_F(EventManagerTest, HandlersRunOneAtATimeAndMaySendToTheirOwnApplication) {
  EventManager manager(options());
  auto app = *manager.registerApplication(kPlayer, "iTunes");
  std::atomic<int> running{0}, overlaps{0};
  app->installEventHandler(kAECoreSuite, kAEGetData, [&](const Descriptor& e, Descriptor& reply) {
    if (running.fetch_add(1) != 0) overlaps.fetch_add(1);
    std::this_thread::sleep_for(50us);
    // An event to its own application is handled at once, inside this handler.
    Descriptor inner;
    const OSStatus sent =
        manager.send(event(kAECoreSuite, kAECountElements, kPlayer), &inner, kWait, -1);
    running.fetch_sub(1);
    if (sent != noErr || direct(inner) != "\"counted\"") return errAEEventFailed;
    return echo(e, reply);
  });
  app->installEventHandler(kAECoreSuite, kAECountElements, answering("counted"));
  std::vector<std::thread> senders;
  std::atomic<int> wrong{0};
  for (int t = 0; t < 4; ++t) {
    senders.emplace_back([&, t] {
      for (int i = 0; i < 50; ++i) {
        Descriptor reply;
        const int32_t n = t * 1000 + i;
        if (manager.send(event(kAECoreSuite, kAEGetData, kPlayer, "'----':long(@)", n), &reply,
                         kWait, -1) != noErr ||
            direct(reply) != std::to_string(n)) {
          wrong.fetch_add(1);
        }
      }
    });
  }
  for (auto& sender : senders)
    sender.join();
  EXPECT_EQ(overlaps.load(), 0);
  EXPECT_EQ(wrong.load(), 0);

  // A sender that cannot get its turn in time gives up with errAETimeout.
  std::mutex gate;
  std::unique_lock closed(gate);
  std::atomic<bool> entered{false};
  app->installEventHandler(kAECoreSuite, kAEDelete, [&](const Descriptor&, Descriptor&) {
    entered.store(true);
    std::lock_guard wait(gate);
    return noErr;
  });
  std::thread busy(
      [&] { manager.send(event(kAECoreSuite, kAEDelete, kPlayer), nullptr, kWait, kNoTimeOut); });
  while (!entered.load())
    std::this_thread::sleep_for(1ms);
  EXPECT_EQ(manager.send(event(kAECoreSuite, kAEGetData, kPlayer), nullptr, kWait, 6),
            errAETimeout);
  closed.unlock();
  busy.join();
}

// ---- Over the bus ----------------------------------------------------------------------------

TEST_F(EventManagerTest, ARecordingApplicationReceivesEventsExactlyAsSent) {
  EventManager recorderSide(options());
  auto recorder = *recorderSide.registerApplication(kRecorder, "Recorder");
  std::mutex recordedMutex;
  std::vector<std::string> recorded;
  recorder->installEventHandler(
      typeWildCard, typeWildCard, [&](const Descriptor& e, Descriptor& reply) {
        {
          std::lock_guard lock(recordedMutex);
          recorded.push_back(printDesc(e));
        }
        if (e.eventID() == kAEDelete) {
          reply.putParamDesc(keyErrorString, Descriptor::makeText("read only"));
          return errAEWriteDenied;
        }
        return echo(e, reply);
      });
  ASSERT_TRUE(recorderSide.publish(kRecorder).ok());

  EventManager sender(options());
  const Descriptor big = Descriptor::makeSInt64(int64_t{1} << 40);
  std::vector<Descriptor> sent;
  sent.push_back(event(kAECoreSuite, kAEGetData, kRecorder,
                       "'----':obj { form:prop, want:type(prop), seld:type(pnam), "
                       "from:obj { form:indx, want:type(cTrk), seld:long(1), from:null() } }"));
  sent.push_back(event(kAECoreSuite, kAESetData, kRecorder,
                       "'----':[1, \"two\", {name:\"x\", size:-3}], data:@", big));
  sent.push_back(event(kAECoreSuite, kAEDelete, kRecorder, "'----':'utxt'($4100$)"));
  Descriptor reply;
  ASSERT_EQ(sender.send(sent[0], &reply, kWait, -1), noErr);
  EXPECT_EQ(reply.returnID(), sent[0].returnID());
  EXPECT_EQ(direct(reply), direct(sent[0]));
  ASSERT_EQ(sender.send(sent[1], nullptr, kNoReply, -1), noErr);
  // The handler's failure crosses the bus in the reply; the send itself succeeds.
  ASSERT_EQ(sender.send(sent[2], &reply, kWait, -1), noErr);
  EXPECT_EQ(errn(reply), errAEWriteDenied);
  ASSERT_NE(reply.findParam(keyErrorString), nullptr);

  std::lock_guard lock(recordedMutex);
  ASSERT_EQ(recorded.size(), sent.size());
  for (size_t i = 0; i < sent.size(); ++i)
    EXPECT_EQ(recorded[i], printDesc(sent[i])) << i;
}

TEST_F(EventManagerTest, ConcurrentSendersOverTheBusGetTheirOwnReplies) {
  EventManager serverSide(options());
  auto app = *serverSide.registerApplication(kPlayer, "iTunes");
  app->installEventHandler(typeWildCard, typeWildCard, echo);
  ASSERT_TRUE(serverSide.publish(kPlayer).ok());
  EventManager client(options());
  std::atomic<int> wrong{0};
  std::vector<std::thread> senders;
  for (int t = 0; t < 6; ++t) {
    senders.emplace_back([&, t] {
      for (int i = 0; i < 100; ++i) {
        const int32_t n = t * 10000 + i;
        Descriptor reply;
        const OSStatus status = client.send(
            event(kAECoreSuite, kAEGetData, kPlayer, "'----':long(@)", n), &reply, kWait, -1);
        if (status != noErr || direct(reply) != std::to_string(n)) wrong.fetch_add(1);
      }
    });
  }
  for (auto& sender : senders)
    sender.join();
  EXPECT_EQ(wrong.load(), 0);
}

TEST_F(EventManagerTest, QueuedRepliesArriveThroughTheReplyHandler) {
  EventManager serverSide(options());
  auto app = *serverSide.registerApplication(kPlayer, "iTunes");
  app->installEventHandler(typeWildCard, typeWildCard, echo);
  ASSERT_TRUE(serverSide.publish(kPlayer).ok());

  for (bool overBus : {false, true}) {
    auto separate = overBus ? std::make_unique<EventManager>(options()) : nullptr;
    EventManager& sender = separate ? *separate : serverSide;
    std::mutex mutex;
    std::condition_variable arrived;
    std::vector<std::string> replies;
    sender.setQueuedReplyHandler([&](Descriptor reply) {
      std::lock_guard lock(mutex);
      replies.push_back(std::to_string(reply.returnID()) + " " + direct(reply));
      arrived.notify_all();
    });
    const Descriptor request = event(kAECoreSuite, kAEGetData, kPlayer, "'----':long(5)");
    ASSERT_EQ(sender.send(request, nullptr, kAEQueueReply, -1), noErr);
    std::unique_lock lock(mutex);
    ASSERT_TRUE(arrived.wait_for(lock, 2s, [&] { return !replies.empty(); })) << overBus;
    EXPECT_EQ(replies[0], std::to_string(request.returnID()) + " 5");
  }
}

TEST_F(EventManagerTest, ListsRunningApplicationsAndReachesThemByProcessID) {
  EventManager host(options());
  auto player = *host.registerApplication(kPlayer, "iTunes");
  player->installEventHandler(typeWildCard, typeWildCard, answering("player"));
  ASSERT_TRUE(host.publish(kPlayer).ok());
  ASSERT_TRUE(host.publish(kPlayer).ok());  // a second publish changes nothing
  ASSERT_TRUE(host.registerApplication(kRecorder, "Private").ok());

  const auto hostList = host.runningApplications();
  ASSERT_EQ(hostList.size(), 2u);
  EXPECT_EQ(hostList[0].name, "iTunes");
  EXPECT_TRUE(hostList[0].inProcess);
  EXPECT_EQ(hostList[1].name, "Private");

  EventManager other(options());
  auto seen = other.runningApplications();
  ASSERT_EQ(seen.size(), 1u);
  EXPECT_EQ(seen[0].name, "iTunes");
  EXPECT_EQ(seen[0].signature, kPlayer);
  EXPECT_EQ(seen[0].pid, ::getpid());
  EXPECT_FALSE(seen[0].inProcess);
  Descriptor reply;
  ASSERT_EQ(other.send(addressedTo(typeKernelProcessID, ::getpid()), &reply, kWait, -1), noErr);
  EXPECT_EQ(direct(reply), "\"player\"");

  ASSERT_TRUE(host.unregisterApplication(kPlayer).ok());
  EXPECT_TRUE(other.runningApplications().empty());
  EXPECT_EQ(other.send(event(kAECoreSuite, kAEGetData, kPlayer), &reply, kWait, -1), procNotFound);
}

TEST_F(EventManagerTest, PeersThatDieStallOrVanishGiveThePlatformsErrors) {
  ChildApplication dying(options(), fourCharCode("die "), [](const Descriptor&, Descriptor&) {
    ::_exit(0);
    return noErr;
  });
  ChildApplication mute(options(), fourCharCode("mute"), [](const Descriptor&, Descriptor&) {
    for (;;)
      ::pause();
    return noErr;
  });
  ASSERT_TRUE(dying.started());
  ASSERT_TRUE(mute.started());

  EventManager manager(options());
  Descriptor reply;
  EXPECT_EQ(manager.send(event(kAECoreSuite, kAEGetData, fourCharCode("die ")), &reply, kWait, -1),
            connectionInvalid);
  EXPECT_TRUE(reply.isNull());
  // Gone for good: its socket is stale now.
  EXPECT_EQ(manager.send(event(kAECoreSuite, kAEGetData, fourCharCode("die ")), &reply, kWait, -1),
            procNotFound);

  const auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(manager.send(event(kAECoreSuite, kAEGetData, fourCharCode("mute")), &reply, kWait, 6),
            errAETimeout);
  EXPECT_LT(std::chrono::steady_clock::now() - start, 1s);
  EventManager::setDefaultTimeout(150ms);
  EXPECT_EQ(manager.send(event(kAECoreSuite, kAEGetData, fourCharCode("mute")), &reply, kWait,
                         kAEDefaultTimeout),
            errAETimeout);
  // Fire and forget only hands the event over.
  EXPECT_EQ(manager.send(event(kAECoreSuite, kAESetData, fourCharCode("mute")), nullptr, kNoReply,
                         kAEDefaultTimeout),
            noErr);
  EXPECT_EQ(manager.send(event(kAECoreSuite, kAEGetData, fourCharCode("gone")), &reply, kWait, -1),
            procNotFound);
}

TEST_F(EventManagerTest, ReleasesEveryDescriptorAndThreadItMade) {
  const size_t fds = entriesIn("/proc/self/fd");
  const size_t threads = entriesIn("/proc/self/task");
  {
    EventManager serverSide(options());
    auto app = *serverSide.registerApplication(kPlayer, "iTunes");
    app->installEventHandler(typeWildCard, typeWildCard, echo);
    ASSERT_TRUE(serverSide.publish(kPlayer).ok());
    EventManager client(options());
    Descriptor reply;
    ASSERT_EQ(client.send(event(kAECoreSuite, kAEGetData, kPlayer), &reply, kWait, -1), noErr);
    ASSERT_EQ(client.send(event(kAECoreSuite, kAESetData, kPlayer), nullptr, kNoReply, -1), noErr);
  }
  EXPECT_EQ(entriesIn("/proc/self/fd"), fds);
  EXPECT_EQ(entriesIn("/proc/self/task"), threads);
}

}  // namespace
}  // namespace rvitunes::ae
