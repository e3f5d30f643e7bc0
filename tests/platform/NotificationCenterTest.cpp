#include "rvitunes/platform/NotificationCenter.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <stdexcept>
#include <thread>
#include <vector>

namespace rvitunes::platform {
namespace {

using plist::Value;

TEST(NotificationCenterTest, CallsMatchingObserversInOrderUntilRemoved) {
  NotificationCenter center;
  std::vector<std::string> calls;
  const auto record = [&calls](std::string who) {
    return [&calls, who](const Notification& n) {
      calls.push_back(who + ":" + n.name + ":" + n.object.stringValue());
    };
  };
  const auto first = center.addObserver("Changed", record("first"));
  center.addObserver("", record("all"));
  center.addObserver("Other", record("other"));
  const auto last = center.addObserver("Changed", record("last"));
  center.addObserver("Changed", nullptr);  // never called

  center.postNotification("Changed", Value::integer(7));
  center.postNotification("Unknown", Value());
  EXPECT_EQ(calls, (std::vector<std::string>{"first:Changed:7", "all:Changed:7", "last:Changed:7",
                                             "all:Unknown:"}));

  calls.clear();
  center.removeObserver(first);
  center.removeObserver(first);  // twice: ignored
  center.removeObserver(9999);   // unknown: ignored
  center.postNotification("Changed", Value::integer(8));
  EXPECT_EQ(calls, (std::vector<std::string>{"all:Changed:8", "last:Changed:8"}));
  EXPECT_GT(center.addObserver("x", nullptr), last);  // ids are not reused
}

TEST(NotificationCenterTest, CallbacksMayChangeTheObserversOfTheRunningPost) {
  NotificationCenter center;
  std::vector<std::string> calls;
  NotificationCenter::ObserverId self = 0;
  NotificationCenter::ObserverId later = 0;
  self = center.addObserver("N", [&](const Notification&) {
    calls.push_back("self");
    center.removeObserver(self);   // from its own callback: returns at once
    center.removeObserver(later);  // a later one is skipped in this very post
    center.addObserver("N", [&](const Notification&) { calls.push_back("added"); });
  });
  later = center.addObserver("N", [&](const Notification&) { calls.push_back("later"); });
  center.postNotification("N", Value());
  EXPECT_EQ(calls, std::vector<std::string>{"self"});
  center.postNotification("N", Value());
  EXPECT_EQ(calls, (std::vector<std::string>{"self", "added"}));

  // A nested post that removes the observer whose callback is still below it on the stack.
  NotificationCenter::ObserverId outer = 0;
  int outerCalls = 0;
  outer = center.addObserver("Outer", [&](const Notification&) {
    ++outerCalls;
    center.postNotification("Inner", Value());
  });
  center.addObserver("Inner", [&](const Notification&) { center.removeObserver(outer); });
  center.postNotification("Outer", Value());
  center.postNotification("Outer", Value());
  EXPECT_EQ(outerCalls, 1);
}

TEST(NotificationCenterTest, AThrowingCallbackLeavesTheCenterUsable) {
  NotificationCenter center;
  const auto id = center.addObserver("N", [](const Notification&) { throw std::logic_error("x"); });
  EXPECT_THROW(center.postNotification("N", Value()), std::logic_error);
  // Removal from another thread would wait forever if the call still counted as running.
  std::thread([&] { center.removeObserver(id); }).join();
}

TEST(NotificationCenterTest, ConcurrentPostsAddsAndRemovalsKeepTheRemovalPromise) {
  NotificationCenter center;
  std::atomic<int> delivered{0};
  center.addObserver("Tick", [&](const Notification& n) { delivered += n.object.intValue(); });

  constexpr int kPosters = 4;
  constexpr int kPostsEach = 2000;
  constexpr int kChurners = 2;
  constexpr int kMinTransientCalls = 500;
  std::atomic<bool> posting{true};
  std::atomic<int> callsAfterRemoval{0};
  std::atomic<int> transientCalls{0};

  std::vector<std::thread> threads;
  for (int c = 0; c < kChurners; ++c) {
    threads.emplace_back([&] {
      while (posting) {
        auto removed = std::make_shared<std::atomic<bool>>(false);
        const auto id = center.addObserver("Tick", [&, removed](const Notification&) {
          ++transientCalls;
          if (*removed) ++callsAfterRemoval;
          // Stay inside long enough for a removal to overlap; it must wait for us.
          std::this_thread::sleep_for(std::chrono::microseconds(20));
          if (*removed) ++callsAfterRemoval;
        });
        std::this_thread::yield();
        center.removeObserver(id);
        *removed = true;  // any call seeing this started after removeObserver returned
      }
    });
  }
  // Posting goes on until the churning observers have been called often enough for removals
  // to have overlapped running calls.
  std::atomic<int> posted{0};
  std::vector<std::thread> posters;
  for (int p = 0; p < kPosters; ++p) {
    posters.emplace_back([&] {
      for (int i = 0; i < kPostsEach || transientCalls < kMinTransientCalls; ++i) {
        center.postNotification("Tick", Value::integer(1));
        ++posted;
      }
    });
  }
  for (auto& poster : posters)
    poster.join();
  posting = false;
  for (auto& thread : threads)
    thread.join();

  EXPECT_EQ(delivered, posted);
  EXPECT_EQ(callsAfterRemoval, 0);
}

}  // namespace
}  // namespace rvitunes::platform
