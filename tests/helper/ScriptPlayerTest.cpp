// The script operations against the reference player, with the built-in interpreter: in this
// process, and against the daemon over the bus, where quitting ends it after its write-back.
#include <gtest/gtest.h>

#include <signal.h>

#include <chrono>
#include <string>
#include <thread>

#include "ScriptTestSupport.h"
#include "rvitunes/ae/BusDirectory.h"
#include "rvitunes/helper/RVITunesHelper.h"
#include "rvitunes/player/PlayerCodes.h"

namespace rvitunes {
namespace {

using player::PlayerModel;
using script_testing::CleanController;
using script_testing::InProcessPlayer;
using script_testing::ScratchFolder;

OSType stateOf(InProcessPlayer& p) {
  return p.server->withModel([](PlayerModel& m) { return m.playerState(); });
}

TEST(ScriptPlayerTest, PlaysAFileOnceFromItsStartThenStops) {
  CleanController clean;
  InProcessPlayer p;
  ASSERT_NE(p.server, nullptr);
  // Somewhere into another track first.
  p.server->withModel([](PlayerModel& m) {
    (void)m.playTrack(101);
    m.clock().setPosition(50);
  });
  ASSERT_EQ(RVITunesHelper::startPlayTracksByAppleScriptFlag(p.file(104)), 0);
  EXPECT_EQ(stateOf(p), player::kStatePlaying);
  EXPECT_EQ(p.server->withModel([](PlayerModel& m) { return m.currentTrack(); }),
            std::optional<player::DatabaseId>(104));
  EXPECT_EQ(p.server->withModel([](PlayerModel& m) { return m.playerPosition(); }), 0.0);
  // "with once": after its 200 seconds the player stops instead of going on.
  p.time->advance(201);
  EXPECT_EQ(stateOf(p), player::kStateStopped);

  // A file that is not there fails every run.
  EXPECT_EQ(RVITunesHelper::startPlayTracksByAppleScriptFlag(p.folder / "missing.mp3"), -1);
}

TEST(ScriptPlayerTest, StopShowHideAndQuitReachThePlayer) {
  CleanController clean;
  InProcessPlayer p;
  ASSERT_NE(p.server, nullptr);
  p.server->withModel([](PlayerModel& m) { m.play(); });
  ASSERT_EQ(stateOf(p), player::kStatePlaying);
  EXPECT_EQ(RVITunesHelper::stopPlayTracksByAppleScript(), 0);
  EXPECT_EQ(stateOf(p), player::kStateStopped);

  const auto shown = [&] {
    return p.server->withModel(
        [](PlayerModel& m) { return std::pair(m.visible(), m.frontmost()); });
  };
  EXPECT_EQ(RVITunesHelper::hideApplicationByAppleScript(std::nullopt), 0);
  EXPECT_FALSE(shown().first);
  EXPECT_EQ(RVITunesHelper::showApplicationByAppleScript("iTunes"), 0);
  EXPECT_EQ(shown(), std::pair(true, true));
  EXPECT_EQ(RVITunesHelper::hideApplicationByAppleScript("iTunes"), 0);
  EXPECT_FALSE(shown().first);

  EXPECT_FALSE(p.server->quitRequested());
  EXPECT_EQ(RVITunesHelper::quitApplicationByAppleScript(std::nullopt), 0);
  EXPECT_TRUE(p.server->quitRequested());
}

TEST(ScriptPlayerTest, QuitEndsTheDaemonAfterItsWriteBack) {
  CleanController clean;
  ScratchFolder folder;
  const std::string library = player::testing::writeTestLibrary(folder);
  const std::string added = folder.write("music/new song.mp3", "ID3");
  player::testing::ChildProcess daemon;
  ASSERT_TRUE(daemon.start(
      {player::testing::daemonPath(), "--library", library},
      {"XDG_RUNTIME_DIR=" + script_testing::kPrivateRuntime.path,
       "RVITUNES_FILEREF_DIR=" + script_testing::kPrivateRuntime.path + "/file-references"},
      folder / "daemon.log"));
  std::optional<ApplicationInfo> info;
  for (int i = 0; i < 500 && !info && daemon.running(); ++i) {
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    info = RVITunesHelper::applicationInfoByName("iTunes");
  }
  ASSERT_TRUE(info.has_value()) << player::testing::readWhole(folder / "daemon.log");
  EXPECT_EQ(info->processIdentifier, daemon.pid());
  EXPECT_FALSE(info->inProcess);

  // A new file: the player adds it to its library, a change it writes back.
  EXPECT_EQ(RVITunesHelper::startPlayTracksByAppleScriptFlag(added), 0);
  EXPECT_EQ(RVITunesHelper::hideApplicationByAppleScript(std::nullopt), 0);
  EXPECT_EQ(RVITunesHelper::showApplicationByAppleScript(std::nullopt), 0);
  EXPECT_EQ(RVITunesHelper::stopPlayTracksByAppleScript(), 0);
  EXPECT_EQ(RVITunesHelper::quitApplicationByAppleScript(std::nullopt), 0);
  EXPECT_EQ(daemon.reap(std::chrono::seconds(10)), std::optional<int>(0))
      << player::testing::readWhole(folder / "daemon.log");
  EXPECT_NE(player::testing::readWhole(library).find("new%20song.mp3"), std::string::npos);
  // Gone from the bus: the operations answer -1 again without a script.
  EXPECT_FALSE(RVITunesHelper::applicationInfoByName("iTunes").has_value());
  EXPECT_EQ(RVITunesHelper::quitApplicationByAppleScript(std::nullopt), -1);
}

}  // namespace
}  // namespace rvitunes
