// RVITunesHelper's player facade: the controller's answers, unchanged, with and without a
// player, and a fresh shared controller on every call.
#include <gtest/gtest.h>

#include <memory>

#include "ScriptTestSupport.h"
#include "rvitunes/cadenza/CZTrack.h"
#include "rvitunes/helper/RVITunesHelper.h"
#include "rvitunes/player/PlayerCodes.h"

namespace rvitunes {
namespace {

using player::PlayerModel;
using script_testing::CleanController;
using script_testing::InProcessPlayer;

TEST(FacadeTest, WithoutAPlayerEveryCallAnswersTheControllersEmptyAnswer) {
  CleanController clean;
  ASSERT_FALSE(RVITunesHelper::applicationInfoByName("iTunes").has_value());
  EXPECT_EQ(RVITunesHelper::libraryPlaylist(), nullptr);
  EXPECT_EQ(RVITunesHelper::currentPlaylist(), nullptr);
  EXPECT_EQ(RVITunesHelper::currentTrack(), nullptr);
  EXPECT_EQ(RVITunesHelper::versionNumber(), 0u);
  EXPECT_EQ(RVITunesHelper::versionString(), std::nullopt);
  EXPECT_EQ(RVITunesHelper::soundVolume(), Cadenza::sharedInstance()->soundVolume());
  EXPECT_EQ(RVITunesHelper::soundVolume(), -1);
  // A failed read of the equaliser is -1, whose low byte reads as true.
  EXPECT_EQ(RVITunesHelper::eqEnabled(), Cadenza::sharedInstance()->eqEnabled());
  // Commands and setters go nowhere and do not fail loudly.
  RVITunesHelper::setSoundVolume(10);
  RVITunesHelper::setEqEnable(false);
  RVITunesHelper::previousTrack();
  RVITunesHelper::backTrack();
  RVITunesHelper::nextTrack();
  RVITunesHelper::playPause();
  RVITunesHelper::resume();
  RVITunesHelper::play();
  RVITunesHelper::pause();
  RVITunesHelper::stop();
}

TEST(FacadeTest, ForwardsEveryOperationToThePlayer) {
  CleanController clean;
  InProcessPlayer p;
  ASSERT_NE(p.server, nullptr);
  const auto model = [&](auto f) { return p.server->withModel(f); };

  EXPECT_EQ(RVITunesHelper::versionString(), std::optional<std::string>("7.7.1"));
  EXPECT_EQ(RVITunesHelper::versionNumber(), 0x771u);
  ASSERT_NE(RVITunesHelper::libraryPlaylist(), nullptr);

  RVITunesHelper::setSoundVolume(35);
  EXPECT_EQ(RVITunesHelper::soundVolume(), 35);
  EXPECT_EQ(model([](PlayerModel& m) { return m.soundVolume(); }), 35);
  RVITunesHelper::setEqEnable(true);
  EXPECT_TRUE(RVITunesHelper::eqEnabled());
  RVITunesHelper::setEqEnable(false);
  EXPECT_FALSE(RVITunesHelper::eqEnabled());
  EXPECT_FALSE(model([](PlayerModel& m) { return m.eqEnabled(); }));

  const auto state = [&] { return model([](PlayerModel& m) { return m.playerState(); }); };
  const auto current = [&] { return model([](PlayerModel& m) { return m.currentTrack(); }); };
  EXPECT_EQ(RVITunesHelper::currentTrack(), nullptr);  // stopped
  RVITunesHelper::play();
  EXPECT_EQ(state(), player::kStatePlaying);
  ASSERT_NE(RVITunesHelper::currentTrack(), nullptr);
  EXPECT_NE(RVITunesHelper::currentPlaylist(), nullptr);
  RVITunesHelper::pause();
  EXPECT_EQ(state(), player::kStatePaused);
  RVITunesHelper::resume();
  EXPECT_EQ(state(), player::kStatePlaying);
  RVITunesHelper::playPause();
  EXPECT_EQ(state(), player::kStatePaused);
  RVITunesHelper::playPause();
  const auto first = current();
  RVITunesHelper::nextTrack();
  EXPECT_NE(current(), first);
  RVITunesHelper::previousTrack();
  EXPECT_EQ(current(), first);
  p.time->advance(20);
  RVITunesHelper::backTrack();  // 20 seconds into a track: back to its start
  EXPECT_EQ(current(), first);
  EXPECT_LT(model([](PlayerModel& m) { return m.playerPosition(); }), 1.0);

  RVITunesHelper::stop();
  EXPECT_EQ(state(), player::kStateStopped);
  EXPECT_EQ(RVITunesHelper::currentTrack(), nullptr);
}

TEST(FacadeTest, TakesTheSharedControllerAnewOnEveryCall) {
  CleanController clean;
  // A facade that kept the controller of its first call would keep this one alive.
  RVITunesHelper::stop();
  const std::weak_ptr<Cadenza> old = Cadenza::sharedInstance();
  Cadenza::unSharedInstance();
  RVITunesHelper::stop();
  EXPECT_TRUE(old.expired());
  const std::weak_ptr<Cadenza> made = Cadenza::sharedInstance();
  RVITunesHelper::stop();
  EXPECT_EQ(made.lock(), Cadenza::sharedInstance());
}

}  // namespace
}  // namespace rvitunes
