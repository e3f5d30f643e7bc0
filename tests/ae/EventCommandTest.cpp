// rvitunes event, run as a user runs it, against applications this test serves on a private bus.
#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>
#include <thread>

#include "../cli/ToolRunner.h"
#include "rvitunes/ae/EventManager.h"

namespace rvitunes::ae {
namespace {

using namespace std::chrono_literals;
using rvitunes::testing::runTool;

class EventCommandTest : public ::testing::Test {
 protected:
  void SetUp() override {
    if (!std::filesystem::exists(RVITUNES_CLI_PATH)) GTEST_SKIP() << "the tool is not built";
    std::string pattern = "/tmp/rvcli-XXXXXX";
    ASSERT_NE(::mkdtemp(pattern.data()), nullptr);
    runtime_ = pattern;
    const char* saved = std::getenv("XDG_RUNTIME_DIR");
    saved_ = saved ? std::optional<std::string>(saved) : std::nullopt;
    // The tool finds the bus through the environment it inherits.
    ::setenv("XDG_RUNTIME_DIR", runtime_.c_str(), 1);
    manager_ = std::make_unique<EventManager>(EventManager::Options{runtime_ + "/rvitunes"});
    auto player = manager_->registerApplication(fourCharCode("hook"), "iTunes");
    ASSERT_TRUE(player.ok());
    (*player)->installEventHandler(
        kAECoreSuite, kAEGetData, [](const Descriptor& event, Descriptor& reply) {
          const Descriptor* asked = event.findParam(keyDirectObject);
          if (asked == nullptr) {
            reply.putParamDesc(keyErrorString, Descriptor::makeText("no such track"));
            return errAENoSuchObject;
          }
          if (asked->type() == typeSInt32 && asked->dataSize() == 4) {
            int32_t seconds;
            std::memcpy(&seconds, asked->data().data(), sizeof seconds);
            if (seconds < 0) std::this_thread::sleep_for(500ms);
          }
          reply.putParamDesc(keyDirectObject, *asked);
          return noErr;
        });
    (*player)->installEventHandler(kAECoreSuite, kAESetData,
                                   [this](const Descriptor&, Descriptor&) {
                                     setCount_.fetch_add(1);
                                     return noErr;
                                   });
    ASSERT_TRUE(manager_->publish(fourCharCode("hook")).ok());
  }

  void TearDown() override {
    manager_.reset();
    if (runtime_.empty()) return;
    if (saved_) {
      ::setenv("XDG_RUNTIME_DIR", saved_->c_str(), 1);
    } else {
      ::unsetenv("XDG_RUNTIME_DIR");
    }
    std::error_code ignored;
    std::filesystem::remove_all(runtime_, ignored);
  }

  std::string runtime_;
  std::optional<std::string> saved_;
  std::unique_ptr<EventManager> manager_;
  std::atomic<int> setCount_{0};
};

TEST_F(EventCommandTest, SendsAnEventAndPrintsTheReply) {
  auto run = runTool("event core getd \"'----':long(42)\"");
  EXPECT_EQ(run.status, 0) << run.out;
  EXPECT_NE(run.out.find("'aevt'\\'ansr'"), std::string::npos) << run.out;
  EXPECT_NE(run.out.find("42"), std::string::npos) << run.out;

  run = runTool("event --app iTunes --to hook core getd");
  EXPECT_EQ(run.status, 2) << run.out;
  run = runTool("event --app iTunes --no-reply core setd");
  EXPECT_EQ(run.status, 0) << run.out;
  for (int i = 0; i < 100 && setCount_.load() == 0; ++i)
    std::this_thread::sleep_for(10ms);
  EXPECT_EQ(setCount_.load(), 1);
}

TEST_F(EventCommandTest, ReportsErrorRepliesAndFailedSendsByNumberAndName) {
  auto run = runTool("event --to hook core getd");
  EXPECT_EQ(run.status, 1) << run.out;
  EXPECT_NE(run.out.find("-1728 (errAENoSuchObject): no such track"), std::string::npos) << run.out;
  run = runTool("event --to none core getd");
  EXPECT_EQ(run.status, 1) << run.out;
  EXPECT_NE(run.out.find("-600 (procNotFound)"), std::string::npos) << run.out;
  run = runTool("event --app Nobody core getd");
  EXPECT_EQ(run.status, 1) << run.out;
  run = runTool("event --timeout 0.1 core getd \"'----':long(-1)\"");
  EXPECT_EQ(run.status, 1) << run.out;
  EXPECT_NE(run.out.find("-1712 (errAETimeout)"), std::string::npos) << run.out;
}

TEST_F(EventCommandTest, ListsApplicationsAndRefusesBadUsage) {
  auto run = runTool("event --list");
  EXPECT_EQ(run.status, 0) << run.out;
  EXPECT_NE(run.out.find("iTunes  'hook'     " + std::to_string(::getpid())), std::string::npos)
      << run.out;
  for (const char* bad :
       {"event", "event core", "event --timeout soon core getd", "event --timeout -1 core getd",
        "event toolong getd", "event --list core", "event core getd \"'----':[1, 2\""}) {
    run = runTool(bad);
    EXPECT_EQ(run.status, 2) << bad << "\n" << run.out;
  }
}

}  // namespace
}  // namespace rvitunes::ae
