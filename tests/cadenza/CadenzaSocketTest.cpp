// The controller, the cache and the enumerators against the player daemon in another process,
// over the event bus: the same operations as in-process, with every event, alias and reply
// crossing the socket. The daemon emulates 7.2.1, so persistent IDs travel as text.
#include <gtest/gtest.h>

#include <signal.h>

#include <chrono>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include "../player/HandlerTestSupport.h"
#include "CadenzaTestSupport.h"
#include "rvitunes/ae/BusDirectory.h"
#include "rvitunes/cadenza/CZTrackEnumerator.h"
#include "rvitunes/cadenza/CZUserPlaylistEnum.h"

namespace rvitunes {
namespace {

using namespace cadenza_testing;
using player::testing::ChildProcess;
using player::testing::daemonPath;
using player::testing::readWhole;

// The daemon on this program's private bus directory, serving a copy of the tree library.
class DaemonPlayer {
 public:
  DaemonPlayer(const ScratchDirectory& folder, const std::string& version)
      : busPath_(kPrivateRuntimeDirectories.path + "/rvitunes"),
        logPath_(folder.path() + "/daemon.log") {
    const std::string library = folder.path() + "/iTunes Music Library.xml";
    std::ofstream(library) << readWhole(treeLibraryPath());
    started_ = process_.start(
        {daemonPath(), "--library", library, "--player-version", version},
        {"XDG_RUNTIME_DIR=" + kPrivateRuntimeDirectories.path,
         "RVITUNES_FILEREF_DIR=" + kPrivateRuntimeDirectories.path + "/file-references"},
        logPath_);
  }
  ~DaemonPlayer() {
    process_.signal(SIGTERM);
    (void)process_.reap(std::chrono::seconds(5));
  }

  bool waitUntilRegistered() {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (started_ && process_.running() && std::chrono::steady_clock::now() < deadline) {
      auto directory = ae::BusDirectory::open(busPath_);
      if (directory && directory->find(fourCharCode("hook"))) return true;
      std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    return false;
  }
  std::string log() const { return readWhole(logPath_); }

 private:
  std::string busPath_;
  std::string logPath_;
  ChildProcess process_;
  bool started_ = false;
};

TEST(CadenzaSocketTest, ControllerCacheAndEnumeratorsOverTheBus) {
  CleanControllerState clean;
  LogCapture log;
  ScratchDirectory folder;
  DaemonPlayer daemon(folder, "7.2.1");
  ASSERT_TRUE(daemon.waitUntilRegistered()) << daemon.log();
  // Nothing of this process answers to 'hook': every event below goes through the socket.
  ASSERT_EQ(ae::EventManager::shared().application(fourCharCode("hook")), nullptr);

  const auto controller = Cadenza::sharedInstance();
  EXPECT_EQ(controller->versionString(), "7.2.1");
  EXPECT_EQ(controller->versionNumber(), 0x721u);

  // Transport and properties.
  controller->play();
  EXPECT_EQ(controller->playerState(), fourCharCode("kPSP"));
  const auto playing = controller->currentTrack();
  ASSERT_NE(playing, nullptr);
  EXPECT_EQ(playing->name(), "Anthem");
  controller->setSoundVolume(42);
  EXPECT_EQ(controller->soundVolume(), 42);
  controller->stop();
  EXPECT_EQ(controller->playerState(), fourCharCode("kPSS"));

  // An alias made here resolves in the daemon.
  const std::string path = folder.path() + "/Over The Wire.mp3";
  std::ofstream(path) << "ID3";
  controller->playTrackWithPath(path);
  EXPECT_EQ(controller->currentTrack()->name(), "Over The Wire");

  // The text form of the persistent ID, and the queries.
  const auto classics = controller->playlistWithPersistentId(static_cast<uint64_t>(kClassicsPid));
  ASSERT_NE(classics, nullptr);
  EXPECT_EQ(classics->name(), "Classics");
  EXPECT_EQ(namesOf(CZTrackEnumerator(classics).allObjects()),
            (std::vector<std::string>{"Anthem", "Canon", "Ballad"}));
  const auto found = controller->searchForStringInField(*classics, "ada", fourCharCode("kSrR"));
  ASSERT_TRUE(found.has_value());
  EXPECT_EQ(namesOf(*found), (std::vector<std::string>{"Anthem", "Canon"}));
  const auto canon = controller->trackWithPersistentId(static_cast<uint64_t>(kCanonPid));
  ASSERT_NE(canon, nullptr);
  EXPECT_EQ(canon->name(), "Canon");
  EXPECT_EQ(namesOf(controller->userPlaylists()),
            (std::vector<std::string>{"Genius", "Classics", "Cuts", "Zebra", "alpha"}));

  // The trees.
  ASSERT_NE(controller->rootPlaylist(), nullptr);
  const auto cache = CZPlaylistCache::sharedInstance();
  EXPECT_EQ(cache->playlistForPersistentId(0)->childPlaylistIds(), (std::vector<int64_t>{1, 3, 2}));
  EXPECT_EQ(cache->playlistForPersistentId(kRockPid)->childPlaylistIds(),
            (std::vector<int64_t>{kClassicsPid, kDeepPid}));
  EXPECT_EQ(cache->userPlaylistForPersistentId(kDeepPid)->childPlaylistIds(),
            (std::vector<int64_t>{kCutsPid}));
  EXPECT_TRUE(frameworkLines(log).empty());
}

}  // namespace
}  // namespace rvitunes
