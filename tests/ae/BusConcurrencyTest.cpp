// Many threads on one bus connection: each sender gets its own reply while others time out,
// post with callbacks or find the connection closed under them; and the event manager's shared
// connection, made by whichever sender comes first and replaced when the application restarts.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "rvitunes/ae/Build.h"
#include "rvitunes/ae/BusConnection.h"
#include "rvitunes/ae/BusDirectory.h"
#include "rvitunes/ae/BusServer.h"
#include "rvitunes/ae/EventManager.h"
#include "rvitunes/ae/Printer.h"
#include "support/ScratchFolder.h"

namespace rvitunes::ae {
namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

constexpr OSType kEcho = fourCharCode("echo");
constexpr OSType kPlayer = fourCharCode("hook");

using testing::support::ScratchFolder;

// Return IDs unique in this test program, as the event manager makes them.
int32_t nextReturnID() {
  static std::atomic<int32_t> counter{1};
  return counter.fetch_add(1);
}

BusFrameHeader header(BusFrameKind kind = BusFrameKind::request) {
  BusFrameHeader h;
  h.kind = kind;
  h.returnID = nextReturnID();
  return h;
}

// Answers "echo:<payload>". A payload "slow..." is answered after 30 ms, "stall" only once the
// gate opens, so that requests overtake each other on the wire and some senders give up.
class EchoServer {
 public:
  explicit EchoServer(const BusDirectory& bus) {
    auto started =
        BusServer::start(bus, kEcho, "Echo", [this](const BusFrameHeader&, std::string payload) {
          handled_.fetch_add(1);
          if (payload.rfind("slow", 0) == 0) std::this_thread::sleep_for(30ms);
          if (payload == "stall") {
            std::unique_lock lock(gateMutex_);
            gateChanged_.wait(lock, [this] { return gateOpen_; });
          }
          return std::optional<std::string>("echo:" + payload);
        });
    EXPECT_TRUE(started.ok()) << started.status().toString();
    if (started.ok()) server_ = std::move(*started);
  }
  ~EchoServer() {
    openGate();
    server_.reset();
  }
  EchoServer(const EchoServer&) = delete;
  EchoServer& operator=(const EchoServer&) = delete;

  void openGate() {
    {
      std::lock_guard lock(gateMutex_);
      gateOpen_ = true;
    }
    gateChanged_.notify_all();
  }
  // Stops serving: the socket and every connection close.
  void stop() {
    openGate();
    server_.reset();
  }
  uint64_t handled() const { return handled_.load(); }

 private:
  std::unique_ptr<BusServer> server_;
  std::atomic<uint64_t> handled_{0};
  std::mutex gateMutex_;
  std::condition_variable gateChanged_;
  bool gateOpen_ = false;
};

class BusConcurrencyTest : public ::testing::Test {
 protected:
  void SetUp() override {
    auto opened = BusDirectory::open(scratch_.path() + "/bus");
    ASSERT_TRUE(opened.ok()) << opened.status().toString();
    bus_ = *opened;
    server_ = std::make_unique<EchoServer>(*bus_);
    auto connected = BusConnection::connect(bus_->socketPath(kEcho));
    ASSERT_TRUE(connected.ok()) << connected.status().toString();
    connection_ = *connected;
  }

  ScratchFolder scratch_{"rvbusmt"};
  std::optional<BusDirectory> bus_;
  std::unique_ptr<EchoServer> server_;
  std::shared_ptr<BusConnection> connection_;
};

TEST_F(BusConcurrencyTest, SendersGetTheirOwnRepliesWhileOthersGiveUp) {
  // Fast and slow requests from eight threads; every third thread gives its slow requests too
  // little time, so late replies keep arriving for senders that left. None may reach another.
  constexpr int kThreads = 8;
  constexpr int kRequests = 60;
  std::atomic<int> wrong{0}, timedOut{0}, answered{0};
  std::vector<std::string> firstWrong(kThreads);
  {
    std::vector<std::jthread> threads;
    for (int t = 0; t < kThreads; ++t) {
      threads.emplace_back([&, t] {
        for (int i = 0; i < kRequests; ++i) {
          const bool slow = i % 7 == 0;
          const bool impatient = slow && t % 3 == 0;
          const std::string payload =
              (slow ? "slow-" : "fast-") + std::to_string(t) + "-" + std::to_string(i);
          auto reply =
              connection_->request(header(), payload, Clock::now() + (impatient ? 5ms : 10s));
          if (reply.ok() && *reply == "echo:" + payload) {
            answered.fetch_add(1);
          } else if (!reply.ok() && reply.status().code() == errAETimeout && impatient) {
            timedOut.fetch_add(1);
          } else {
            if (wrong.fetch_add(1) == 0) {
              firstWrong[static_cast<size_t>(t)] =
                  payload + " -> " + (reply.ok() ? *reply : reply.status().toString());
            }
          }
        }
      });
    }
  }
  std::string detail;
  for (const std::string& w : firstWrong)
    detail += w;
  EXPECT_EQ(wrong.load(), 0) << detail;
  EXPECT_GT(timedOut.load(), 0);
  EXPECT_EQ(answered.load() + timedOut.load(), kThreads * kRequests);
  EXPECT_TRUE(connection_->alive());
  EXPECT_EQ(connection_->pendingCount(), 0u);
}

TEST_F(BusConcurrencyTest, CallbacksNoReplyFramesAndWaitingSendersMix) {
  // Posted requests are answered through callbacks on whichever thread reads their reply;
  // no-reply frames are handled but never answered; waiting senders read meanwhile.
  constexpr int kThreads = 6;
  constexpr int kRequests = 50;
  std::mutex mutex;
  std::map<std::string, int> calls;  // payload -> callbacks received
  std::atomic<int> wrong{0};
  std::atomic<int> callbacks{0};
  {
    std::vector<std::jthread> threads;
    for (int t = 0; t < kThreads; ++t) {
      threads.emplace_back([&, t] {
        for (int i = 0; i < kRequests; ++i) {
          const std::string payload = "p-" + std::to_string(t) + "-" + std::to_string(i);
          switch ((t + i) % 3) {
            case 0: {
              const Status posted = connection_->post(
                  header(), payload, Clock::now() + 10s, [&, payload](Result<std::string> reply) {
                    std::lock_guard lock(mutex);
                    if (!reply.ok() || *reply != "echo:" + payload) wrong.fetch_add(1);
                    ++calls[payload];
                    callbacks.fetch_add(1);
                  });
              if (!posted.ok()) wrong.fetch_add(1);
              break;
            }
            case 1:
              if (!connection_
                       ->post(header(BusFrameKind::requestNoReply), payload, Clock::now() + 10s)
                       .ok()) {
                wrong.fetch_add(1);
              }
              break;
            default: {
              auto reply = connection_->request(header(), payload, Clock::now() + 10s);
              if (!reply.ok() || *reply != "echo:" + payload) wrong.fetch_add(1);
            }
          }
        }
      });
    }
  }
  // The server answers in order, so one more request flushes the posted replies.
  ASSERT_TRUE(connection_->request(header(), "last", Clock::now() + 10s).ok());
  for (int i = 0; i < 200 && connection_->pendingCount() > 0; ++i)
    std::this_thread::sleep_for(10ms);
  EXPECT_EQ(wrong.load(), 0);
  EXPECT_EQ(connection_->pendingCount(), 0u);
  std::lock_guard lock(mutex);
  EXPECT_EQ(static_cast<int>(calls.size()), callbacks.load());  // each callback exactly once
  EXPECT_EQ(server_->handled(), static_cast<uint64_t>(kThreads * kRequests + 1));
}

TEST_F(BusConcurrencyTest, ClosingOrLosingTheServerReleasesEveryWaiter) {
  for (const bool serverGoes : {false, true}) {
    SCOPED_TRACE(serverGoes ? "the server stops" : "the connection is closed");
    if (serverGoes) {
      server_.reset();  // the stalled one of the first round
      server_ = std::make_unique<EchoServer>(*bus_);
      auto connected = BusConnection::connect(bus_->socketPath(kEcho));
      ASSERT_TRUE(connected.ok());
      connection_ = *connected;
    }
    // One request stalls the server; the others queue behind it, some waiting without limit,
    // one posted with a callback, which must hear back exactly once either way.
    std::atomic<int> released{0}, wrong{0}, callbacks{0};
    const uint64_t handledBefore = server_->handled();
    ASSERT_TRUE(connection_
                    ->post(header(), "p", Clock::now() + 5s,
                           [&](Result<std::string>) { callbacks.fetch_add(1); })
                    .ok());
    std::vector<std::jthread> waiters;
    for (int t = 0; t < 6; ++t) {
      // The stalling request must reach the server before the others, or the server would
      // answer some of them first and fewer than six would be left waiting.
      if (t == 1) {
        while (server_->handled() < handledBefore + 2)
          std::this_thread::sleep_for(1ms);
      }
      waiters.emplace_back([&, t] {
        const BusConnection::Deadline deadline =
            t % 2 == 0 ? BusConnection::Deadline() : Clock::now() + 30s;
        auto reply = connection_->request(header(), t == 0 ? "stall" : "queued", deadline);
        if (!reply.ok() && reply.status().code() == connectionInvalid) {
          released.fetch_add(1);
        } else if (!reply.ok() || reply->rfind("echo:", 0) != 0) {
          wrong.fetch_add(1);
        }
      });
    }
    while (connection_->pendingCount() < 6)
      std::this_thread::sleep_for(1ms);
    const auto start = Clock::now();
    if (serverGoes) {
      server_->stop();  // the stalled request is answered as it winds down; the rest see it go
    } else {
      connection_->close();
    }
    waiters.clear();  // joins
    EXPECT_LT(Clock::now() - start, 5s);
    EXPECT_EQ(wrong.load(), 0);
    if (!serverGoes) {
      EXPECT_EQ(released.load(), 6);  // nobody was answered: the server stalls
    }
    EXPECT_EQ(connection_->request(header(), "after", Clock::now() + 1s).status().code(),
              connectionInvalid);
    EXPECT_FALSE(connection_->alive());
    EXPECT_EQ(connection_->pendingCount(), 0u);
    EXPECT_EQ(callbacks.load(), 1);
  }
}

// ---- Through the event manager ---------------------------------------------------------------

std::string directText(const Descriptor& reply) {
  const Descriptor* result = reply.findParam(keyDirectObject);
  return result ? printDesc(*result) : "<none>";
}

Descriptor numberedEvent(int32_t n) {
  Descriptor out;
  const OSType target = kPlayer;
  EXPECT_EQ(
      buildAppleEvent(kAECoreSuite, kAEGetData, typeApplSignature,
                      std::span(reinterpret_cast<const uint8_t*>(&target), sizeof target),
                      kAutoGenerateReturnID, kAnyTransactionID, &out, nullptr, "'----':long(@)", n),
      noErr);
  return out;
}

// The reference player's stand-in: answers '----' with the event's own '----', optionally after
// a moment, from a manager of its own published on the test's bus.
class EchoApplication {
 public:
  EchoApplication(const EventManager::Options& options, std::chrono::microseconds delay)
      : manager_(options) {
    auto app = manager_.registerApplication(kPlayer, "iTunes");
    EXPECT_TRUE(app.ok());
    if (!app.ok()) return;
    (*app)->installEventHandler(typeWildCard, typeWildCard,
                                [this, delay](const Descriptor& event, Descriptor& reply) {
                                  handled_.fetch_add(1);
                                  if (delay.count() > 0) std::this_thread::sleep_for(delay);
                                  if (const Descriptor* value = event.findParam(keyDirectObject);
                                      value && reply.isAppleEvent()) {
                                    reply.putParamDesc(keyDirectObject, *value);
                                  }
                                  return noErr;
                                });
    EXPECT_TRUE(manager_.publish(kPlayer).ok());
  }
  uint64_t handled() const { return handled_.load(); }

 private:
  EventManager manager_;
  std::atomic<uint64_t> handled_{0};
};

class EventManagerConcurrencyTest : public ::testing::Test {
 protected:
  void SetUp() override { EventManager::setDefaultTimeout(10s); }
  void TearDown() override { EventManager::setDefaultTimeout(60s); }
  EventManager::Options options() const { return {scratch_.path() + "/bus"}; }

  ScratchFolder scratch_{"rvbusmt"};
};

TEST_F(EventManagerConcurrencyTest, FirstSendersShareOneConnectionAndEveryReplyModeWorks) {
  EchoApplication player(options(), 0us);
  EventManager client(options());  // no connection yet: the first senders race to make it
  std::mutex mutex;
  std::map<AEReturnID, std::string> queued;  // return ID -> answer
  client.setQueuedReplyHandler([&](Descriptor reply) {
    std::lock_guard lock(mutex);
    queued[reply.returnID()] = directText(reply);
  });
  constexpr int kThreads = 8;
  constexpr int kRequests = 40;
  std::atomic<int> wrong{0};
  std::map<AEReturnID, std::string> expectedQueued;
  std::mutex expectedMutex;
  {
    std::vector<std::jthread> threads;
    for (int t = 0; t < kThreads; ++t) {
      threads.emplace_back([&, t] {
        for (int i = 0; i < kRequests; ++i) {
          const int32_t n = t * 1000 + i;
          const Descriptor request = numberedEvent(n);
          switch (i % 4) {
            case 0: {
              std::lock_guard lock(expectedMutex);
              expectedQueued[request.returnID()] = std::to_string(n);
            }
              if (client.send(request, nullptr, kAEQueueReply, kAEDefaultTimeout) != noErr) {
                wrong.fetch_add(1);
              }
              break;
            case 1:
              if (client.send(request, nullptr, kAENoReply, kAEDefaultTimeout) != noErr) {
                wrong.fetch_add(1);
              }
              break;
            default: {
              Descriptor reply;
              if (client.send(request, &reply, kAEWaitReply | kAENeverInteract,
                              kAEDefaultTimeout) != noErr ||
                  directText(reply) != std::to_string(n) ||
                  reply.returnID() != request.returnID()) {
                wrong.fetch_add(1);
              }
            }
          }
          if (i % 10 == 0) (void)client.runningApplications();
        }
      });
    }
  }
  // Requests are answered in order: once this one is, every queued reply has been read.
  Descriptor last;
  ASSERT_EQ(client.send(numberedEvent(-1), &last, kAEWaitReply, kAEDefaultTimeout), noErr);
  for (int i = 0; i < 200; ++i) {
    {
      std::lock_guard lock(mutex);
      if (queued.size() == expectedQueued.size()) break;
    }
    std::this_thread::sleep_for(10ms);
  }
  EXPECT_EQ(wrong.load(), 0);
  std::lock_guard lock(mutex);
  EXPECT_EQ(queued, expectedQueued);
  EXPECT_EQ(player.handled(), static_cast<uint64_t>(kThreads * kRequests + 1));
}

TEST_F(EventManagerConcurrencyTest, SendersCarryOnAcrossARestartOfTheApplication) {
  // While senders run, the application goes away and comes back. A send may fail while it is
  // gone (-600, -609) but never brings back another request's answer, and sending works again
  // over a fresh connection once it is back.
  auto player = std::make_unique<EchoApplication>(options(), 200us);
  EventManager client(options());
  std::atomic<bool> stop{false};
  std::atomic<int> wrong{0}, ok{0}, failed{0};
  std::string firstWrong;
  std::mutex wrongMutex;
  std::vector<std::jthread> threads;
  for (int t = 0; t < 6; ++t) {
    threads.emplace_back([&, t] {
      for (int32_t i = 0; !stop.load(); ++i) {
        const int32_t n = t * 1'000'000 + i;
        Descriptor reply;
        const OSStatus status =
            client.send(numberedEvent(n), &reply, kAEWaitReply, kAEDefaultTimeout);
        if (status == noErr && directText(reply) == std::to_string(n)) {
          ok.fetch_add(1);
        } else if (status == procNotFound || status == connectionInvalid) {
          failed.fetch_add(1);
        } else {
          wrong.fetch_add(1);
          std::lock_guard lock(wrongMutex);
          if (firstWrong.empty()) {
            firstWrong =
                std::to_string(n) + ": status " + std::to_string(status) + ", " + directText(reply);
          }
        }
      }
    });
  }
  for (int round = 0; round < 3; ++round) {
    std::this_thread::sleep_for(50ms);
    player.reset();
    std::this_thread::sleep_for(20ms);
    player = std::make_unique<EchoApplication>(options(), 200us);
  }
  std::this_thread::sleep_for(50ms);
  const int before = ok.load();
  std::this_thread::sleep_for(100ms);
  stop.store(true);
  threads.clear();
  EXPECT_EQ(wrong.load(), 0) << firstWrong;
  EXPECT_GT(ok.load(), before);  // the last start is reached again
  Descriptor reply;
  EXPECT_EQ(client.send(numberedEvent(7), &reply, kAEWaitReply, kAEDefaultTimeout), noErr);
  EXPECT_EQ(directText(reply), "7");
}

}  // namespace
}  // namespace rvitunes::ae
