// The controller: its shared instance, the transport commands, playing a file or a track, and
// the application's properties, against the reference player and a recording one.
#include <gtest/gtest.h>

#include <fstream>
#include <functional>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "CadenzaTestSupport.h"
#include "rvitunes/cadenza/CZTrackEnumerator.h"

namespace rvitunes {
namespace {

using cadenza_testing::answeringVersion;
using cadenza_testing::answerWith;
using cadenza_testing::built;
using cadenza_testing::CleanControllerState;
using cadenza_testing::frameworkLines;
using cadenza_testing::isCount;
using cadenza_testing::item;
using cadenza_testing::LogCapture;
using cadenza_testing::RecordingPlayer;
using cadenza_testing::ScratchDirectory;
using cadenza_testing::startTreePlayer;
using cadenza_testing::valueOf;

constexpr OSType kPlaying = fourCharCode("kPSP");
constexpr OSType kPaused = fourCharCode("kPSp");
constexpr OSType kStopped = fourCharCode("kPSS");

// ---- The shared instance ------------------------------------------------------------------------

TEST(CadenzaSharedInstanceTest, OneInstanceUntilUnsharedOrReshared) {
  CleanControllerState clean;
  Cadenza::unSharedInstance();  // nothing to forget: no effect
  const auto first = Cadenza::sharedInstance();
  EXPECT_EQ(Cadenza::sharedInstance(), first);
  EXPECT_TRUE(first->descriptor().isNull());
  EXPECT_EQ(first->targetApplCode(), fourCharCode("hook"));

  Cadenza::unSharedInstance();
  const auto second = Cadenza::sharedInstance();
  EXPECT_NE(second, first);
  EXPECT_NE(Cadenza::reSharedInstance(), second);
}

TEST(CadenzaSharedInstanceTest, ResharingDropsThePlaylistCacheToo) {
  CleanControllerState clean;
  RecordingPlayer player;
  player.respondWith([](const ae::Descriptor& event, ae::Descriptor& reply) {
    return isCount(event) ? answerWith(reply, ae::Descriptor::makeSInt32(0)) : noErr;
  });
  const auto cache = CZPlaylistCache::sharedInstance();
  EXPECT_EQ(CZPlaylistCache::sharedInstance(), cache);
  Cadenza::unSharedInstance();
  EXPECT_EQ(CZPlaylistCache::sharedInstance(), cache);  // only the controller went
  Cadenza::reSharedInstance();
  EXPECT_NE(CZPlaylistCache::sharedInstance(), cache);
}

TEST(CadenzaSharedInstanceTest, ThreadsMakingTheFirstCallAtOnceShareOneInstance) {
  CleanControllerState clean;
  std::vector<std::shared_ptr<Cadenza>> seen(8);
  std::vector<std::thread> threads;
  for (size_t i = 0; i < seen.size(); ++i)
    threads.emplace_back([&seen, i] { seen[i] = Cadenza::sharedInstance(); });
  for (std::thread& t : threads)
    t.join();
  for (const auto& instance : seen)
    EXPECT_EQ(instance, seen.front());
}

// ---- Commands -----------------------------------------------------------------------------------

class CadenzaRecordedTest : public ::testing::Test {
 protected:
  CleanControllerState clean_;
  LogCapture log_;
  RecordingPlayer player_;
  Cadenza controller_;
};

TEST_F(CadenzaRecordedTest, TransportCommandsGoOutWithoutWaitingForAReply) {
  const std::vector<std::pair<std::function<void(Cadenza&)>, std::string>> commands = {
      {&Cadenza::backTrack, "Back"},     {&Cadenza::fastForward, "Fast"},
      {&Cadenza::nextTrack, "Next"},     {&Cadenza::pause, "Paus"},
      {&Cadenza::play, "Play"},          {&Cadenza::playPause, "PlPs"},
      {&Cadenza::previousTrack, "Prev"}, {&Cadenza::resume, "Resu"},
      {&Cadenza::rewind, "Rwnd"},        {&Cadenza::stop, "Stop"},
  };
  for (const auto& [command, code] : commands) {
    SCOPED_TRACE(code);
    command(controller_);
    EXPECT_EQ(player_.printed().back(), "'hook'\\'" + code + "'{ '----':null() }");
    EXPECT_FALSE(player_.lastWantedReply());
    const ae::Descriptor event = player_.last();
    EXPECT_EQ(event.address().type(), ae::typeApplSignature);
    EXPECT_EQ(valueOf<OSType>(event.address()), iTunesSignature);
  }
  EXPECT_EQ(player_.count(), commands.size());
  EXPECT_TRUE(frameworkLines(log_).empty());
}

TEST_F(CadenzaRecordedTest, PlayingAPathSendsAnAliasOrNothing) {
  controller_.playTrackWithPath("/nonexistent/song.mp3");
  EXPECT_EQ(player_.count(), 0u);
  EXPECT_EQ(frameworkLines(log_), std::vector<std::string>{"Unable to resolve path to alias"});

  ScratchDirectory folder;
  const std::string path = folder.path() + "/song.mp3";
  std::ofstream(path) << "ID3";
  controller_.playTrackWithPath(path);
  ASSERT_EQ(player_.count(), 1u);
  const ae::Descriptor event = player_.last();
  EXPECT_EQ(event.eventID(), fourCharCode("Play"));
  EXPECT_EQ(item(event, "----").type(), fourCharCode("alis"));
  EXPECT_FALSE(player_.lastWantedReply());
}

TEST_F(CadenzaRecordedTest, PlayingATrackSendsItsSpecifier) {
  CZTrack track(built("obj { form:'ID  ', want:type(cFlT), seld:1003, from:null() }"));
  controller_.playTrack(track);
  EXPECT_EQ(player_.printed().back(),
            "'hook'\\'Play'{ '----':'obj '{ 'form':'ID  ', 'want':type('cFlT'), 'seld':1003, "
            "'from':null() } }");
  EXPECT_FALSE(player_.lastWantedReply());
}

TEST(CadenzaNoPlayerTest, EveryFailureIsALogLineAndAPreset) {
  CleanControllerState clean;
  LogCapture log;
  Cadenza controller;  // nothing is registered under 'hook' and the bus is empty
  controller.play();
  EXPECT_EQ(frameworkLines(log), std::vector<std::string>{"Error sending AppleEvent: -600"});
  EXPECT_EQ(controller.playerState(), 0xFFFFFFFFu);
  EXPECT_EQ(controller.soundVolume(), -1);
  EXPECT_TRUE(controller.eqEnabled());  // the failed read, -1, has a non-zero low byte
  EXPECT_TRUE(controller.fixedIndexing());
  EXPECT_EQ(controller.currentTrack(), nullptr);
  EXPECT_EQ(controller.currentPlaylist(), nullptr);
  EXPECT_EQ(controller.libraryPlaylist(), nullptr);
  EXPECT_TRUE(log.contains("Unable to get Library Playlist"));
}

// ---- Properties ---------------------------------------------------------------------------------

TEST_F(CadenzaRecordedTest, FlagsCountOnlyTheLowestByteOfTheInteger) {
  const auto answerInteger = [this](int32_t value) {
    player_.answer(ae::Descriptor::makeSInt32(value));
  };
  answerInteger(256);
  EXPECT_FALSE(controller_.eqEnabled());
  EXPECT_FALSE(controller_.fixedIndexing());
  answerInteger(257);
  EXPECT_TRUE(controller_.eqEnabled());
  EXPECT_TRUE(controller_.fixedIndexing());
  answerInteger(0x7F00);
  EXPECT_FALSE(controller_.eqEnabled());
  // The reply holds no integer: -1 after the conversion's log line, and so true.
  player_.answer(ae::Descriptor::makeText("on"));
  EXPECT_TRUE(controller_.eqEnabled());
  // A state reply without a code reads as stopped.
  player_.answer(ae::Descriptor::makeSInt32(1));
  EXPECT_EQ(controller_.playerState(), kStopped);
}

TEST_F(CadenzaRecordedTest, FlagWritesSendTheIntegersOneAndZero) {
  controller_.setEqEnable(true);
  EXPECT_EQ(valueOf<int32_t>(item(player_.last(), "data")), 1);
  controller_.setFixedIndexing(false);
  EXPECT_EQ(valueOf<int32_t>(item(player_.last(), "data")), 0);
  EXPECT_FALSE(player_.lastWantedReply());
}

TEST_F(CadenzaRecordedTest, ObjectReadsWaitForTheReplyAndLogWhatFails) {
  player_.fail(-1728);  // e.g. no current track while stopped
  EXPECT_EQ(controller_.currentTrack(), nullptr);
  EXPECT_TRUE(player_.lastWantedReply());
  EXPECT_EQ(player_.printed().back(),
            "'core'\\'getd'{ '----':'obj '{ 'form':'prop', 'want':type('prop'), "
            "'seld':type('pTrk'), 'from':null() } }");
  EXPECT_EQ(controller_.currentPlaylist(), nullptr);
  EXPECT_EQ(player_.printed().back(),
            "'core'\\'getd'{ '----':'obj '{ 'form':'prop', 'want':type('prop'), "
            "'seld':type('pPla'), 'from':null() } }");
  EXPECT_EQ(controller_.libraryPlaylist(), nullptr);
  // The first library playlist: position 1 for the player.
  EXPECT_EQ(player_.printed().back(),
            "'core'\\'getd'{ '----':'obj '{ 'form':'indx', 'want':type('cLiP'), 'seld':1, "
            "'from':null() } }");
  EXPECT_EQ(frameworkLines(log_),
            std::vector<std::string>(3, "Error extracting from reply event: -1701"));
}

TEST_F(CadenzaRecordedTest, AListAnsweredForTheCurrentTrackNamesItsFirstItem) {
  player_.answer(
      built("[obj { form:'ID  ', want:type(cFlT), seld:7, from:null() }, "
            "obj { form:'ID  ', want:type(cFlT), seld:8, from:null() }]"));
  const auto track = controller_.currentTrack();
  ASSERT_NE(track, nullptr);
  EXPECT_EQ(ae::printDesc(track->descriptor()),
            "'obj '{ 'form':'ID  ', 'want':type('cFlT'), 'seld':7, 'from':null() }");
}

// ---- Against the reference player ---------------------------------------------------------------

class CadenzaPlayerTest : public ::testing::Test {
 protected:
  CleanControllerState clean_;
  LogCapture log_;
  std::unique_ptr<player::PlayerServer> player_ = startTreePlayer("7.7.1");
  std::shared_ptr<Cadenza> controller_ = Cadenza::sharedInstance();
};

TEST_F(CadenzaPlayerTest, TransportMovesThePlayerThroughItsStates) {
  EXPECT_EQ(controller_->playerState(), kStopped);
  EXPECT_EQ(controller_->currentTrack(), nullptr);  // nothing plays
  controller_->play();
  EXPECT_EQ(controller_->playerState(), kPlaying);
  auto current = controller_->currentTrack();
  ASSERT_NE(current, nullptr);
  EXPECT_EQ(current->name(), "Anthem");
  EXPECT_GE(controller_->playerPosition(), 0);

  controller_->nextTrack();
  EXPECT_EQ(controller_->currentTrack()->name(), "Ballad");
  controller_->previousTrack();
  EXPECT_EQ(controller_->currentTrack()->name(), "Anthem");
  controller_->pause();
  EXPECT_EQ(controller_->playerState(), kPaused);
  controller_->playPause();
  EXPECT_EQ(controller_->playerState(), kPlaying);
  controller_->fastForward();
  EXPECT_EQ(controller_->playerState(), fourCharCode("kPSF"));
  controller_->rewind();
  EXPECT_EQ(controller_->playerState(), fourCharCode("kPSR"));
  controller_->resume();
  EXPECT_EQ(controller_->playerState(), kPlaying);
  controller_->backTrack();
  EXPECT_EQ(controller_->currentTrack()->name(), "Anthem");
  controller_->stop();
  EXPECT_EQ(controller_->playerState(), kStopped);
  EXPECT_EQ(controller_->currentPlaylist()->name(), "Library");
  EXPECT_EQ(frameworkLines(log_),
            std::vector<std::string>{"Error extracting from reply event: -1701"});
}

TEST_F(CadenzaPlayerTest, PlaysAFileAndATrackOfAPlaylist) {
  ScratchDirectory folder;
  const std::string path = folder.path() + "/Fresh Tune.mp3";
  std::ofstream(path) << "ID3";
  controller_->playTrackWithPath(path);
  EXPECT_EQ(controller_->playerState(), kPlaying);
  EXPECT_EQ(controller_->currentTrack()->name(), "Fresh Tune");

  // The third track of "Classics", played through its own specifier.
  auto classics = controller_->playlistWithPersistentId(cadenza_testing::kClassicsPid);
  ASSERT_NE(classics, nullptr);
  const auto tracks = CZTrackEnumerator(classics).allObjects();
  ASSERT_EQ(tracks.size(), 3u);
  controller_->playTrack(*tracks[2]);
  EXPECT_EQ(controller_->currentTrack()->name(), "Ballad");
  const auto playlist = controller_->currentPlaylist();
  ASSERT_NE(playlist, nullptr);
  EXPECT_EQ(playlist->name(), "Classics");
  EXPECT_TRUE(frameworkLines(log_).empty());
}

TEST_F(CadenzaPlayerTest, PropertiesRoundTrip) {
  controller_->setSoundVolume(37);
  EXPECT_EQ(controller_->soundVolume(), 37);
  controller_->setSoundVolume(150);  // the player clamps
  EXPECT_EQ(controller_->soundVolume(), 100);
  for (bool on : {true, false}) {
    controller_->setEqEnable(on);
    EXPECT_EQ(controller_->eqEnabled(), on);
    controller_->setFixedIndexing(on);
    EXPECT_EQ(controller_->fixedIndexing(), on);
  }
  const auto library = controller_->libraryPlaylist();
  ASSERT_NE(library, nullptr);
  EXPECT_EQ(library->name(), "Library");
  EXPECT_EQ(library->trackCount(), 4);
  EXPECT_TRUE(frameworkLines(log_).empty());
}

}  // namespace
}  // namespace rvitunes
