#include "rvitunes/base/Log.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <string>
#include <thread>
#include <vector>

#include "rvitunes/base/CapturingLogSink.h"

namespace rvitunes {
namespace {

// Restores both channels whatever a test installed.
class LogTest : public testing::Test {
 protected:
  void TearDown() override {
    setNullLogSink(nullptr);
    setSystemLogSink(nullptr);
  }
};

TEST_F(LogTest, NullLogDiscardsUntilASinkIsInstalled) {
  NullLog("discarded %d", 1);

  auto sink = std::make_shared<CapturingLogSink>();
  EXPECT_EQ(setNullLogSink(sink), nullptr);
  NullLog("plain text");
  NullLog("100%% of %s: %d/%u %.2f %c %llx", "tracks", -3, 7u, 0.5, 'z', 255ull);
  EXPECT_EQ(sink->lines(),
            (std::vector<std::string>{"plain text", "100% of tracks: -3/7 0.50 z ff"}));
  EXPECT_TRUE(sink->contains("of tracks"));

  const std::string big(5000, 'x');  // past the first formatting buffer
  EXPECT_EQ(formatLog("<%s>", big.c_str()), "<" + big + ">");

  EXPECT_EQ(setNullLogSink(nullptr), sink);
  NullLog("after");
  EXPECT_EQ(sink->lines().size(), 2u);
}

TEST_F(LogTest, SystemLogGoesToItsOwnSink) {
  auto debug = std::make_shared<CapturingLogSink>();
  auto system = std::make_shared<CapturingLogSink>();
  setNullLogSink(debug);
  setSystemLogSink(system);
  SystemLog("Error %d: %s", -1728, "errAENoSuchObject");
  EXPECT_EQ(system->lines(), std::vector<std::string>{"Error -1728: errAENoSuchObject"});
  EXPECT_TRUE(debug->lines().empty());
}

TEST_F(LogTest, DefaultSystemLogWritesAPrefixedLineToStderr) {
  testing::internal::CaptureStderr();
  SystemLog("hello %s", "world");
  const std::string out = testing::internal::GetCapturedStderr();
  // "YYYY-MM-DD HH:MM:SS.mmm name[pid] hello world\n"
  const std::string pid = "[" + std::to_string(getpid()) + "] hello world\n";
  ASSERT_GE(out.size(), 24 + pid.size());
  EXPECT_EQ(out[4], '-');
  EXPECT_EQ(out[19], '.');
  EXPECT_EQ(out.substr(out.size() - pid.size()), pid);
  EXPECT_NE(out.find(" base_tests["), std::string::npos);
}

TEST_F(LogTest, SinksCanBeSwappedWhileOtherThreadsLog) {
  auto sink = std::make_shared<CapturingLogSink>();
  constexpr int kThreads = 4;
  constexpr int kMessages = 500;
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([t] {
      for (int i = 0; i < kMessages; ++i)
        NullLog("thread %d message %d", t, i);
    });
  }
  for (int i = 0; i < 200; ++i) {
    setNullLogSink(i % 2 == 0 ? sink : nullptr);
    std::this_thread::yield();
  }
  for (auto& thread : threads)
    thread.join();
  setNullLogSink(nullptr);
  for (const std::string& line : sink->lines()) {
    ASSERT_EQ(line.rfind("thread ", 0), 0u) << line;
  }
}

}  // namespace
}  // namespace rvitunes
