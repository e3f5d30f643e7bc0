// RVITunesHelper's script operations through the executor seam: the composed texts, the retry
// loop and its exception guard, the lock, the guard on running applications and the stop road.
#include <gtest/gtest.h>

#include <unistd.h>

#include <chrono>
#include <stdexcept>
#include <string>
#include <vector>

#include "ScriptTestSupport.h"
#include "rvitunes/helper/RVITunesHelper.h"
#include "rvitunes/helper/RvExecuteLock.h"

namespace rvitunes {
namespace {

using script_testing::CleanController;
using script_testing::failedRun;
using script_testing::RecordingApp;
using script_testing::RecordingExecutor;

constexpr OSType kHook = fourCharCode("hook");
// The controller's stop and the script's.
constexpr const char* kControllerStop = "'hook'\\'Stop'{ '----':null() }";
constexpr const char* kScriptStop = "'hook'\\'Stop'{ &'subj':null(), &'csig':65536 }";

TEST(ScriptOperationsTest, ComposesEachScriptTextForText) {
  CleanController clean;
  RecordingApp itunes(kHook, "iTunes");
  RecordingApp mail(fourCharCode("emal"), "Mail");
  RecordingExecutor executor;

  const std::string play =
      "tell application \"iTunes\"\nplay POSIX file \"/music/a b.mp3\" with once\n"
      "set player position to 0\nend tell\n";
  EXPECT_EQ(RVITunesHelper::startPlayTracksByAppleScriptFlag("/music/a b.mp3"), 0);
  EXPECT_EQ(RVITunesHelper::startPlayTracksByAppleScriptFlag("/music/a b.mp3", true), 0);
  EXPECT_EQ(RVITunesHelper::startPlayTracksByAppleScriptFlag("/music/a b.mp3", false), 0);
  EXPECT_EQ(RVITunesHelper::stopPlayTracksByAppleScript(), 0);
  EXPECT_EQ(RVITunesHelper::showApplicationByAppleScript(std::nullopt), 0);
  EXPECT_EQ(RVITunesHelper::showApplicationByAppleScript("Mail"), 0);
  EXPECT_EQ(RVITunesHelper::hideApplicationByAppleScript(std::nullopt), 0);
  EXPECT_EQ(RVITunesHelper::hideApplicationByAppleScript("Mail"), 0);
  EXPECT_EQ(RVITunesHelper::quitApplicationByAppleScript(std::nullopt), 0);
  EXPECT_EQ(RVITunesHelper::quitApplicationByAppleScript("Mail"), 0);

  const std::vector<std::string> expected = {
      play,
      play,
      play,
      "tell application \"iTunes\"\nstop\nend tell\n",
      "tell application \"iTunes\" to activate\ntell application \"System Events\"\n"
      "set visible of process \"iTunes\" to true\nend tell\n",
      "tell application \"Mail\" to activate\ntell application \"System Events\"\n"
      "set visible of process \"Mail\" to true\nend tell\n",
      "tell application \"System Events\"  to tell process \"iTunes\" to set visible to false\n",
      "tell application \"System Events\"  to tell process \"Mail\" to set visible to false\n",
      "tell application \"iTunes\"\nquit\nend tell\n",
      "tell application \"Mail\"\nquit\nend tell\n",
  };
  EXPECT_EQ(executor.sources(), expected);
  // Every composed script is in the interpreter's language.
  for (const std::string& source : expected) {
    AppleScriptError error;
    EXPECT_TRUE(AppleScript(source).compile(&error)) << source << error.message;
  }
  // Only the controller's stop reached the player: the scripts went to the executor.
  EXPECT_EQ(itunes.events(), std::vector<std::string>{kControllerStop});
}

TEST(ScriptOperationsTest, RetriesAFailingScriptUpToFiftyTimesMore) {
  {
    RecordingExecutor twice([](int call, AppleScriptError* error) {
      return call <= 2 ? failedRun(error) : std::make_shared<ae::Descriptor>();
    });
    EXPECT_EQ(RVITunesHelper::executeAppleScriptWithString("any"), 0);
    EXPECT_EQ(twice.sources().size(), 3u);
  }
  {
    RecordingExecutor always([](int, AppleScriptError* error) { return failedRun(error); });
    EXPECT_EQ(RVITunesHelper::executeAppleScriptWithString("any"), -1);
    const auto times = always.times();
    ASSERT_EQ(times.size(), 51u);
    for (size_t i = 1; i < times.size(); ++i) {
      EXPECT_GE(times[i] - times[i - 1], std::chrono::microseconds(100)) << i;
    }
    for (const std::string& source : always.sources())
      EXPECT_EQ(source, "any");
  }
  // The built-in runner: a script outside the language fails every run.
  EXPECT_EQ(RVITunesHelper::executeAppleScriptWithString("display dialog \"hi\""), -1);
  EXPECT_EQ(RVITunesHelper::executeAppleScriptWithString(""), 0);
}

TEST(ScriptOperationsTest, StandardExceptionsAreSwallowedAndOthersPassThrough) {
  {
    RecordingExecutor throwsAfterFailures([](int call, AppleScriptError* error) {
      if (call <= 2) return failedRun(error);
      throw std::runtime_error("runner broke");
    });
    EXPECT_EQ(RVITunesHelper::executeAppleScriptWithString("any"), 0);
    EXPECT_EQ(throwsAfterFailures.sources().size(), 3u);
    EXPECT_EQ(RVITunesHelper::executeAppleScriptBackDesc("any"), nullptr);
  }
  {
    RecordingExecutor throwsOther(
        [](int, AppleScriptError*) -> std::shared_ptr<ae::Descriptor> { throw 42; });
    EXPECT_THROW(RVITunesHelper::executeAppleScriptWithString("any"), int);
    EXPECT_THROW(RVITunesHelper::executeAppleScriptBackDesc("any"), int);
  }
}

TEST(ScriptOperationsTest, BackDescRunsOnceAndAnswersTheResult) {
  RecordingExecutor executor([](int call, AppleScriptError* error) {
    return call == 1 ? std::make_shared<ae::Descriptor>(ae::Descriptor::makeSInt32(7))
                     : failedRun(error);
  });
  const auto result = RVITunesHelper::executeAppleScriptBackDesc("first");
  ASSERT_NE(result, nullptr);
  EXPECT_EQ(*result, ae::Descriptor::makeSInt32(7));
  EXPECT_EQ(RVITunesHelper::executeAppleScriptBackDesc("second"), nullptr);
  EXPECT_EQ(executor.sources(), (std::vector<std::string>{"first", "second"}));
}

TEST(ScriptOperationsTest, ThreadLockVariantCreatesTheLockAndNeverTakesIt) {
  RecordingExecutor executor;
  std::mutex* before = Rv_ExecuteLock();
  EXPECT_EQ(RVITunesHelper::executeAppleScriptWithThreadLock(std::nullopt), -1);
  EXPECT_EQ(Rv_ExecuteLock(), before);  // nothing given, nothing created
  EXPECT_TRUE(executor.sources().empty());

  EXPECT_EQ(RVITunesHelper::executeAppleScriptWithThreadLock("x"), 0);
  std::mutex* lock = Rv_ExecuteLock();
  ASSERT_NE(lock, nullptr);
  {
    // The host holds it around a run; the framework does not take it, so this returns.
    std::lock_guard host(*lock);
    EXPECT_EQ(RVITunesHelper::executeAppleScriptWithThreadLock("y"), 0);
  }
  EXPECT_EQ(Rv_ExecuteLock(), lock);
  EXPECT_EQ(executor.sources(), (std::vector<std::string>{"x", "y"}));
}

TEST(ScriptOperationsTest, NothingIsSentForApplicationsThatDoNotRun) {
  CleanController clean;
  // The player's signature answers, but under another name: "iTunes" does not run.
  RecordingApp jukebox(kHook, "Jukebox");
  RecordingExecutor executor;
  EXPECT_EQ(RVITunesHelper::stopPlayTracksByAppleScript(), -1);
  EXPECT_EQ(RVITunesHelper::showApplicationByAppleScript(std::nullopt), -1);
  EXPECT_EQ(RVITunesHelper::hideApplicationByAppleScript(std::nullopt), -1);
  EXPECT_EQ(RVITunesHelper::quitApplicationByAppleScript(std::nullopt), -1);
  EXPECT_EQ(RVITunesHelper::showApplicationByAppleScript("jukebox"), -1);
  EXPECT_EQ(RVITunesHelper::quitApplicationByAppleScript("Nobody"), -1);
  EXPECT_EQ(RVITunesHelper::startPlayTracksByAppleScriptFlag(std::nullopt, true), -1);
  EXPECT_TRUE(executor.sources().empty());
  EXPECT_TRUE(jukebox.events().empty());
  // Playing does not ask first: the script goes out whether or not iTunes runs.
  EXPECT_EQ(RVITunesHelper::startPlayTracksByAppleScriptFlag("/a.mp3"), 0);
  EXPECT_EQ(executor.sources().size(), 1u);
}

TEST(ScriptOperationsTest, StopTellsTheControllerAndAgainWhenTheScriptFails) {
  CleanController clean;
  RecordingApp itunes(kHook, "iTunes");
  {
    // The built-in runner: the controller's stop, then the script's.
    EXPECT_EQ(RVITunesHelper::stopPlayTracksByAppleScript(), 0);
    EXPECT_EQ(itunes.events(), (std::vector<std::string>{kControllerStop, kScriptStop}));
  }
  {
    RecordingExecutor failing([](int, AppleScriptError* error) { return failedRun(error); });
    EXPECT_EQ(RVITunesHelper::stopPlayTracksByAppleScript(), -1);
    EXPECT_EQ(failing.sources().size(), 51u);
    // Two more controller stops: before the script and after its failure.
    EXPECT_EQ(itunes.events().size(), 4u);
  }
}

TEST(ScriptOperationsTest, ApplicationInfoByNameIsExactAndCaseSensitive) {
  RecordingApp itunes(kHook, "iTunes");
  const auto info = RVITunesHelper::applicationInfoByName("iTunes");
  ASSERT_TRUE(info.has_value());
  EXPECT_EQ(info->name, "iTunes");
  EXPECT_EQ(info->processIdentifier, static_cast<int32_t>(::getpid()));
  EXPECT_EQ(info->signature, kHook);
  EXPECT_TRUE(info->inProcess);
  const plist::Value dictionary = info->dictionary();
  ASSERT_NE(dictionary.asDictionary(), nullptr);
  EXPECT_EQ(dictionary.asDictionary()->get(kNSApplicationName).stringView(), "iTunes");
  EXPECT_EQ(dictionary.asDictionary()->get(kNSApplicationProcessIdentifier).intValue(),
            static_cast<int32_t>(::getpid()));
  EXPECT_EQ(dictionary.asDictionary()->get(kRVApplicationSignature).stringView(), "hook");

  EXPECT_FALSE(RVITunesHelper::applicationInfoByName("itunes").has_value());
  EXPECT_FALSE(RVITunesHelper::applicationInfoByName("iTunes ").has_value());
  EXPECT_FALSE(RVITunesHelper::applicationInfoByName(std::nullopt).has_value());
}

}  // namespace
}  // namespace rvitunes
