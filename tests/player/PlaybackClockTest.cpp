#include "rvitunes/player/PlaybackClock.h"

#include <gtest/gtest.h>

#include "rvitunes/player/ManualTimeSource.h"

namespace rvitunes::player {
namespace {

class PlaybackClockTest : public ::testing::Test {
 protected:
  PlaybackClockTest() : time_(std::make_shared<ManualTimeSource>()), clock_(time_) {
    clock_.setQueue(500, {{1, 100}, {2, 50}, {3, 10}}, 0);
  }
  std::shared_ptr<ManualTimeSource> time_;
  PlaybackClock clock_;
};

TEST_F(PlaybackClockTest, PlayPauseResumeAndPositionInRealTime) {
  EXPECT_EQ(clock_.state(), kStateStopped);
  EXPECT_FALSE(clock_.currentTrack().has_value());
  EXPECT_EQ(clock_.currentPlaylist(), 500);
  time_->advance(30);  // nothing moves while stopped
  clock_.play();
  EXPECT_EQ(clock_.state(), kStatePlaying);
  EXPECT_EQ(clock_.currentTrack(), 1);
  EXPECT_DOUBLE_EQ(clock_.position(), 0);
  time_->advance(12.5);
  EXPECT_DOUBLE_EQ(clock_.position(), 12.5);
  clock_.pause();
  time_->advance(20);
  EXPECT_EQ(clock_.state(), kStatePaused);
  EXPECT_DOUBLE_EQ(clock_.position(), 12.5);
  EXPECT_EQ(clock_.currentTrack(), 1);  // a paused track is still current
  clock_.playPause();
  time_->advance(1);
  EXPECT_EQ(clock_.state(), kStatePlaying);
  EXPECT_DOUBLE_EQ(clock_.position(), 13.5);
  clock_.playPause();
  EXPECT_EQ(clock_.state(), kStatePaused);
  clock_.resume();
  EXPECT_EQ(clock_.state(), kStatePlaying);
}

TEST_F(PlaybackClockTest, NextTrackStartsAtTheEndAndTheLastOneStops) {
  clock_.play();
  time_->advance(100 + 20);  // through track 1 into track 2
  EXPECT_EQ(clock_.currentTrack(), 2);
  EXPECT_DOUBLE_EQ(clock_.position(), 20);
  time_->advance(30 + 10 + 5);  // through 2 and 3, then past the end of the queue
  EXPECT_EQ(clock_.state(), kStateStopped);
  EXPECT_FALSE(clock_.currentTrack().has_value());
  EXPECT_DOUBLE_EQ(clock_.position(), 0);
  EXPECT_EQ(clock_.takeFinished(), (std::vector<DatabaseId>{1, 2, 3}));
  EXPECT_TRUE(clock_.takeFinished().empty());
  clock_.play();  // starts over from the first
  EXPECT_EQ(clock_.currentTrack(), 1);
}

TEST_F(PlaybackClockTest, RepeatModesAndPlayOnce) {
  clock_.setRepeat(PlaybackClock::Repeat::kAll);
  clock_.playAt(2);
  time_->advance(10 + 3);
  EXPECT_EQ(clock_.currentTrack(), 1);  // wrapped around
  EXPECT_DOUBLE_EQ(clock_.position(), 3);

  clock_.setRepeat(PlaybackClock::Repeat::kOne);
  time_->advance(97 + 100 + 1);
  EXPECT_EQ(clock_.currentTrack(), 1);
  EXPECT_EQ(clock_.takeFinished(), (std::vector<DatabaseId>{3, 1, 1}));

  clock_.setRepeat(PlaybackClock::Repeat::kOff);
  clock_.playAt(1, /*once=*/true);
  time_->advance(51);
  EXPECT_EQ(clock_.state(), kStateStopped);
  EXPECT_EQ(clock_.takeFinished(), (std::vector<DatabaseId>{2}));
}

TEST_F(PlaybackClockTest, StopResetsAndNavigationMovesTheCursor) {
  clock_.play();
  time_->advance(40);
  clock_.stop();
  EXPECT_EQ(clock_.state(), kStateStopped);
  EXPECT_DOUBLE_EQ(clock_.position(), 0);
  time_->advance(10);
  EXPECT_DOUBLE_EQ(clock_.position(), 0);
  EXPECT_TRUE(clock_.takeFinished().empty());  // a stopped track was not played through

  clock_.nextTrack();  // a stopped clock only moves its cursor
  EXPECT_EQ(clock_.state(), kStateStopped);
  EXPECT_EQ(clock_.snapshot().index, 1u);
  clock_.play();
  EXPECT_EQ(clock_.currentTrack(), 2);
  time_->advance(5);
  clock_.backTrack();  // more than two seconds in: restart
  EXPECT_EQ(clock_.currentTrack(), 2);
  EXPECT_DOUBLE_EQ(clock_.position(), 0);
  clock_.backTrack();  // at the start: previous track
  EXPECT_EQ(clock_.currentTrack(), 1);
  clock_.previousTrack();  // stays on the first
  EXPECT_EQ(clock_.currentTrack(), 1);
  clock_.nextTrack();
  clock_.nextTrack();
  clock_.nextTrack();  // past the last without repeat: stop
  EXPECT_EQ(clock_.state(), kStateStopped);
}

TEST_F(PlaybackClockTest, FastForwardAndRewindMoveThePosition) {
  clock_.play();
  time_->advance(10);
  clock_.fastForward();
  EXPECT_EQ(clock_.state(), kStateFastForwarding);
  time_->advance(5);
  EXPECT_DOUBLE_EQ(clock_.position(), 10 + 5 * PlaybackClock::kScanRate);
  clock_.rewind();
  EXPECT_EQ(clock_.state(), kStateRewinding);
  time_->advance(2);
  EXPECT_DOUBLE_EQ(clock_.position(), 30 - 2 * PlaybackClock::kScanRate);
  time_->advance(60);  // rewinding stops at the start of the track
  EXPECT_DOUBLE_EQ(clock_.position(), 0);
  EXPECT_EQ(clock_.currentTrack(), 1);
  clock_.fastForward();
  time_->advance(26);  // 104 s of track: into the next one, not counted as played
  EXPECT_EQ(clock_.currentTrack(), 2);
  EXPECT_DOUBLE_EQ(clock_.position(), 4);
  EXPECT_TRUE(clock_.takeFinished().empty());
  clock_.resume();
  EXPECT_EQ(clock_.state(), kStatePlaying);
}

TEST_F(PlaybackClockTest, SetPositionClampsAndQueueChangesKeepTheTrack) {
  clock_.setPosition(5);  // ignored while stopped
  EXPECT_DOUBLE_EQ(clock_.position(), 0);
  clock_.playAt(1);
  clock_.setPosition(500);
  EXPECT_DOUBLE_EQ(clock_.position(), 50);
  clock_.setPosition(20);
  clock_.updateQueue({{9, 10}, {2, 50}, {3, 10}});
  EXPECT_EQ(clock_.currentTrack(), 2);
  EXPECT_DOUBLE_EQ(clock_.position(), 20);
  clock_.updateQueue({{9, 10}});  // the playing track went away
  EXPECT_EQ(clock_.state(), kStateStopped);
}

TEST(PlaybackClockEdgeTest, EmptyAndZeroLengthQueues) {
  auto time = std::make_shared<ManualTimeSource>();
  PlaybackClock clock(time);
  clock.play();
  EXPECT_EQ(clock.state(), kStateStopped);
  clock.setQueue(std::nullopt, {{1, 0}, {2, 0}}, 0);
  clock.setRepeat(PlaybackClock::Repeat::kAll);
  clock.play();
  time->advance(1);  // tracks of no length under repeat-all must not spin for ever
  EXPECT_EQ(clock.state(), kStateStopped);
}

}  // namespace
}  // namespace rvitunes::player
