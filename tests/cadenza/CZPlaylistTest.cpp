// CZPlaylist against the reference player emulating each version that changes its requests,
// and against a scripted player for the faults the reference player never shows: synthetic
// names, the persistent-ID cache, the parent link and its log line, the sorted child list, the
// track look-ups and the two stubs.
#include <gtest/gtest.h>

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "CadenzaTestSupport.h"
#include "RecordingPlayer.h"
#include "TappedPlayer.h"
#include "rvitunes/ae/Build.h"
#include "rvitunes/cadenza/CZPlaylist.h"
#include "rvitunes/cadenza/CZRootUserPlaylist.h"
#include "rvitunes/cadenza/CZTrack.h"
#include "rvitunes/cadenza/CZTrackEnumerator.h"
#include "rvitunes/cadenza/Cadenza.h"

namespace rvitunes {
namespace {

using cadenza_testing::answeringVersion;
using cadenza_testing::answerWith;
using cadenza_testing::anyContains;
using cadenza_testing::built;
using cadenza_testing::CleanControllerState;
using cadenza_testing::frameworkLines;
using cadenza_testing::isPropertyRead;
using cadenza_testing::LogCapture;
using cadenza_testing::namesOf;
using cadenza_testing::RecordingPlayer;
using cadenza_testing::SystemLogCapture;
using cadenza_testing::TappedPlayer;
using Lines = std::vector<std::string>;

// A playlist of the live library by its database ID.
std::shared_ptr<CZPlaylist> playlistWithId(int id) {
  return std::make_shared<CZPlaylist>(built(
      "obj { form:'ID  ', want:type(cPly), seld:" + std::to_string(id) + ", from:'null'() }"));
}

constexpr int kLibraryPlaylistId = 400;
constexpr int kMusicPlaylistId = 401;
constexpr int kYearsPlaylistId = 410;
constexpr int kChillPlaylistId = 411;
constexpr int kFocusPlaylistId = 420;
constexpr int kEmptyPlaylistId = 430;

// ---- Without a player ---------------------------------------------------------------------------

TEST(CZPlaylistSyntheticTest, NamesAndIdsComeWithoutAskingThePlayer) {
  CleanControllerState clean;
  RecordingPlayer player;
  LogCapture log;
  const char* names[] = {"iTunes", "LIBRARY", "STORE", "PLAYLISTS"};
  for (int64_t id = 0; id < 4; ++id) {
    auto synthetic = std::make_shared<CZPlaylist>();
    synthetic->setPersistentId(id);
    EXPECT_EQ(synthetic->name(), names[id]);
    EXPECT_EQ(synthetic->persistentId(), id);
    EXPECT_EQ(synthetic->persistentIdNumber(), id);
  }
  // A plain playlist starts with both IDs 0: the root; its parent is 0 too.
  CZPlaylist root;
  EXPECT_EQ(root.parentPlaylistId(), 0u);
  EXPECT_EQ(root.name(), "iTunes");
  EXPECT_TRUE(root.descriptor().isNull());
  EXPECT_TRUE(root.childPlaylistIds().empty());
  // A playlist of the player whose ID was set to 2 is "STORE" without a request.
  CZPlaylist store(built("obj { form:'ID  ', want:type(cPly), seld:9, from:'null'() }"));
  store.setPersistentId(2);
  EXPECT_EQ(store.name(), "STORE");
  // The empty root kind behaves as any playlist.
  CZRootUserPlaylist userRoot;
  EXPECT_EQ(userRoot.name(), "iTunes");
  EXPECT_EQ(player.count(), 0u);
  EXPECT_TRUE(log.lines().empty());
}

TEST(CZPlaylistSyntheticTest, HostLocalizesTheSyntheticNames) {
  const auto previous =
      CZPlaylist::setNameLocalizer([](std::string_view key) -> std::optional<std::string> {
        if (key == "STORE") return "Boutique";
        return std::nullopt;
      });
  CZPlaylist store;
  store.setPersistentId(2);
  CZPlaylist library;
  library.setPersistentId(1);
  EXPECT_EQ(store.name(), "Boutique");
  EXPECT_EQ(library.name(), "LIBRARY");
  CZPlaylist::setNameLocalizer(previous);
  EXPECT_EQ(store.name(), "STORE");
}

TEST(CZPlaylistSyntheticTest, StubsWriteTheirWarningToTheSystemLog) {
  RecordingPlayer player;
  LogCapture log;
  SystemLogCapture systemLog;
  CZPlaylist playlist;
  EXPECT_FALSE(playlist.isSpecialKind());
  EXPECT_FALSE(playlist.isCached());
  EXPECT_EQ(systemLog.lines(),
            (Lines{"WARNING: not yet implemented", "WARNING: not yet implemented"}));
  EXPECT_TRUE(log.lines().empty());
  EXPECT_EQ(player.count(), 0u);
}

// ---- Persistent IDs by version ------------------------------------------------------------------

struct VersionCase {
  const char* version;
  bool hasIds;  // 6.0 and later
  bool text;    // 7.2.0 and 7.2.1
};

class CZPlaylistVersionTest : public ::testing::TestWithParam<VersionCase> {};

TEST_P(CZPlaylistVersionTest, PersistentIdsAndLookupsInTheFormOfTheVersion) {
  const VersionCase c = GetParam();
  TappedPlayer player(c.version);
  const auto chill = playlistWithId(kChillPlaylistId);
  const auto library = playlistWithId(kLibraryPlaylistId);
  ASSERT_GT(Cadenza::sharedInstance()->versionNumber(), 0u);

  if (!c.hasIds) {
    LogCapture log;
    const size_t mark = player.mark();
    EXPECT_EQ(chill->persistentId(), -1);
    EXPECT_EQ(chill->persistentIdAsString(), std::nullopt);
    EXPECT_EQ(library->trackWithPersistentId(cadenza_testing::kAriaPid), nullptr);
    EXPECT_EQ(library->trackWithPersistentIdString("F00000000000B301"), nullptr);
    EXPECT_EQ(player.eventsSince(mark), Lines{});
    EXPECT_EQ(frameworkLines(log),
              (Lines{"persistentId Unsupported", "persistentIdAsString Unsupported"}));
    // The name compares the ID four times, each time unsupported, then asks for the name.
    EXPECT_EQ(chill->name(), "Chill");
    EXPECT_EQ(frameworkLines(log).size(), 6u);
    EXPECT_EQ(player.eventsSince(mark).size(), 1u);
    return;
  }

  LogCapture log;
  size_t mark = player.mark();
  EXPECT_EQ(chill->persistentId(), cadenza_testing::kChillPid);
  EXPECT_EQ(player.eventsSince(mark).size(), 1u);
  mark = player.mark();
  EXPECT_EQ(chill->persistentId(), cadenza_testing::kChillPid);
  // Only the text form is remembered.
  EXPECT_EQ(player.eventsSince(mark).size(), c.text ? 0u : 1u);

  EXPECT_EQ(chill->persistentIdAsString(), "ABCDEF0000000210");
  EXPECT_EQ(library->persistentIdAsString(), "0000000000000100");

  mark = player.mark();
  const auto aria = library->trackWithPersistentId(cadenza_testing::kAriaPid);
  ASSERT_NE(aria, nullptr);
  EXPECT_EQ(aria->name(), "Aria");
  const auto lookup = player.eventsSince(mark);
  ASSERT_FALSE(lookup.empty());
  EXPECT_EQ(lookup[0].find("\"F00000000000B301\"") != std::string::npos, c.text) << lookup[0];

  mark = player.mark();
  const auto coda = library->trackWithPersistentIdString("00000000000ABCDE");
  ASSERT_NE(coda, nullptr);
  EXPECT_EQ(coda->name(), "coda");
  EXPECT_EQ(player.eventsSince(mark)[0].find("\"00000000000ABCDE\"") != std::string::npos, c.text);
  // "0x" is accepted where the text is read as a number.
  if (!c.text) {
    EXPECT_NE(library->trackWithPersistentIdString("0xabcde"), nullptr);
  }

  // Not in this playlist: the reply holds no object.
  EXPECT_EQ(chill->trackWithPersistentId(cadenza_testing::kBoleroPid), nullptr);
  EXPECT_EQ(frameworkLines(log), Lines{"Error extracting from reply event: -1701"});

  // The name compares the ID with 0 to 3 one call at a time.
  CZPlaylist fresh(built("obj { form:'ID  ', want:type(cPly), seld:411, from:'null'() }"));
  mark = player.mark();
  EXPECT_EQ(fresh.name(), "Chill");
  EXPECT_EQ(player.eventsSince(mark).size(), c.text ? 2u : 5u);
}

INSTANTIATE_TEST_SUITE_P(
    Versions, CZPlaylistVersionTest,
    ::testing::Values(VersionCase{"5.0", false, false}, VersionCase{"6.0", true, false},
                      VersionCase{"6.0.1", true, false}, VersionCase{"7.1", true, false},
                      VersionCase{"7.2", true, true}, VersionCase{"7.2.1", true, true},
                      VersionCase{"7.2.2", true, false}, VersionCase{"7.3", true, false},
                      VersionCase{"8.0", true, false}),
    [](const auto& info) {
      std::string name = info.param.version;
      for (char& ch : name) {
        if (ch == '.') ch = '_';
      }
      return "v" + name;
    });

// ---- The tree and the tracks --------------------------------------------------------------------

class CZPlaylistLiveTest : public ::testing::Test {
 protected:
  TappedPlayer player_{"7.7.1"};
};

TEST_F(CZPlaylistLiveTest, ParentsAreCachedAndATopLevelPlaylistHangsUnderTheRoot) {
  LogCapture log;
  const auto chill = playlistWithId(kChillPlaylistId);
  const auto parent = chill->parentPlaylist();
  ASSERT_NE(parent, nullptr);
  EXPECT_EQ(parent->name(), "Years");
  EXPECT_EQ(chill->parentPlaylistId(), static_cast<uint64_t>(cadenza_testing::kYearsPid));
  size_t mark = player_.mark();
  EXPECT_EQ(chill->parentPlaylistId(), static_cast<uint64_t>(cadenza_testing::kYearsPid));
  EXPECT_EQ(player_.eventsSince(mark), Lines{});

  // The player answers "no such object" (-1728) for a top-level playlist: nothing is logged.
  const auto focus = playlistWithId(kFocusPlaylistId);
  EXPECT_EQ(focus->parentPlaylist(), nullptr);
  EXPECT_EQ(focus->parentPlaylistId(), 0u);
  EXPECT_TRUE(frameworkLines(log).empty());

  // A stored parent is answered as it is.
  focus->setParentPlaylistId(7);
  mark = player_.mark();
  EXPECT_EQ(focus->parentPlaylistId(), 7u);
  EXPECT_EQ(player_.eventsSince(mark), Lines{});
}

TEST_F(CZPlaylistLiveTest, ChildrenSortByNameWhenAskedAndAfterEachAdd) {
  using namespace cadenza_testing;
  CZPlaylist parent;
  parent.addChildPlaylistId(kYearsPid);
  parent.addChildPlaylistId(kFocusPid);
  parent.addChildPlaylistId(kChillPid);
  parent.addChildPlaylistId(kEmptyPid);
  // Case-insensitive: "focus" sorts between "Empty" and "Years".
  EXPECT_EQ(parent.childPlaylistIds(),
            (std::vector<int64_t>{kChillPid, kEmptyPid, kFocusPid, kYearsPid}));
  // Sorted once: asking again sends nothing.
  const size_t mark = player_.mark();
  auto copy = parent.childPlaylistIds();
  EXPECT_EQ(player_.eventsSince(mark), Lines{});
  copy.clear();
  EXPECT_EQ(parent.childPlaylistIds().size(), 4u);
  // An add appends and is sorted in on the next request; duplicates stay.
  parent.addChildPlaylistId(kLiveMusicPid);
  parent.addChildPlaylistId(kChillPid);
  EXPECT_EQ(parent.childPlaylistIds(), (std::vector<int64_t>{kChillPid, kChillPid, kEmptyPid,
                                                             kFocusPid, kLiveMusicPid, kYearsPid}));
}

TEST_F(CZPlaylistLiveTest, KindsCountsAndTracks) {
  LogCapture log;
  const auto chill = playlistWithId(kChillPlaylistId);
  EXPECT_EQ(chill->specialKind(), fourCharCode("kSpN"));
  EXPECT_EQ(playlistWithId(kYearsPlaylistId)->specialKind(), fourCharCode("kSpF"));
  EXPECT_EQ(playlistWithId(kMusicPlaylistId)->specialKind(), fourCharCode("kSpZ"));
  EXPECT_EQ(chill->trackCount(), 2);
  EXPECT_EQ(namesOf(chill->tracks()), (Lines{"Aria", "coda"}));
  EXPECT_TRUE(playlistWithId(kEmptyPlaylistId)->tracks().empty());

  const auto enumerator = chill->trackEnumerator();
  EXPECT_EQ(enumerator->playlist(), chill);
  EXPECT_EQ(enumerator->count(), 2);

  // A playlist not owned by a shared_ptr still walks its tracks.
  CZPlaylist onStack(built("obj { form:'ID  ', want:type(cPly), seld:420, from:'null'() }"));
  EXPECT_EQ(namesOf(onStack.tracks()), Lines{"Bolero"});

  const auto library = playlistWithId(kLibraryPlaylistId);
  const auto bolero = library->trackWithDatabaseId(cadenza_testing::kBoleroId);
  ASSERT_NE(bolero, nullptr);
  EXPECT_EQ(bolero->name(), "Bolero");
  EXPECT_TRUE(frameworkLines(log).empty());
  EXPECT_EQ(chill->trackWithDatabaseId(cadenza_testing::kBoleroId), nullptr);
  EXPECT_EQ(frameworkLines(log), Lines{"Error extracting from reply event: -1701"});
}

// ---- Faults the reference player does not show --------------------------------------------------

class CZPlaylistFaultTest : public ::testing::Test {
 protected:
  // A player of `version` whose playlist answers its name and ID, and `parent` for 'pPlP'.
  void script(const std::string& version, RecordingPlayer::Responder parent) {
    player_.respondWith(answeringVersion(
        version, [parent](const ae::Descriptor& event, ae::Descriptor& reply) -> OSStatus {
          if (isPropertyRead(event, "pnam"))
            return answerWith(reply, ae::Descriptor::makeUnicodeText("Chill"));
          if (isPropertyRead(event, "pPID"))
            return answerWith(reply, ae::Descriptor::makeSInt64(0x1234));
          if (isPropertyRead(event, "pPlP")) return parent(event, reply);
          return noErr;
        }));
  }

  CleanControllerState clean_;
  RecordingPlayer player_;
  LogCapture log_;
  std::shared_ptr<CZPlaylist> playlist_ = playlistWithId(kChillPlaylistId);
};

TEST_F(CZPlaylistFaultTest, AParentErrorOtherThanNoSuchObjectIsLoggedWithTheReply) {
  script("7.7.1", [](const ae::Descriptor&, ae::Descriptor&) { return OSStatus{-1719}; });
  EXPECT_EQ(playlist_->parentPlaylist(), nullptr);
  EXPECT_EQ(log_.lines(), Lines{"ERROR in -[CZPlaylist parentplaylist] \"Chill\" -- replyEvent: "
                                "'aevt'\\'ansr'{ 'errn':-1719 } (AEGetParamPtr result 0)"});
  // Not cached as unknown: the failed parent becomes 0.
  EXPECT_EQ(playlist_->parentPlaylistId(), 0u);
}

TEST_F(CZPlaylistFaultTest, AReplyWithoutObjectOrErrorIsLoggedWithTheReadFailure) {
  script("7.7.1", [](const ae::Descriptor&, ae::Descriptor&) { return noErr; });
  EXPECT_EQ(playlist_->parentPlaylist(), nullptr);
  ASSERT_EQ(log_.lines().size(), 1u);
  EXPECT_NE(log_.lines()[0].find("\" -- replyEvent: "), std::string::npos);
  EXPECT_NE(log_.lines()[0].find(" (AEGetParamPtr result -1701)"), std::string::npos);
}

TEST_F(CZPlaylistFaultTest, NoSuchObjectIsQuietAndAParentObjectIsWrapped) {
  script("7.7.1", [](const ae::Descriptor&, ae::Descriptor&) { return OSStatus{-1728}; });
  EXPECT_EQ(playlist_->parentPlaylist(), nullptr);
  EXPECT_TRUE(log_.lines().empty());
  const std::string folder = "obj { form:'ID  ', want:type(cPly), seld:410, from:'null'() }";
  script("7.7.1", [folder](const ae::Descriptor&, ae::Descriptor& reply) {
    return answerWith(reply, built(folder));
  });
  const auto parent = playlist_->parentPlaylist();
  ASSERT_NE(parent, nullptr);
  EXPECT_EQ(parent->descriptor(), built(folder));
  EXPECT_EQ(parent->parentPlaylistId(), 0x1234u);  // asked of the scripted player: its parent's ID
}

TEST_F(CZPlaylistFaultTest, AFailedTextIdIsRememberedAsZero) {
  // 7.2.0 answers IDs as text; a read that fails parses as nothing and is kept.
  player_.respondWith(answeringVersion(
      "7.2", [](const ae::Descriptor&, ae::Descriptor&) { return OSStatus{-1728}; }));
  EXPECT_EQ(playlist_->persistentId(), 0);
  const size_t before = player_.count();
  EXPECT_EQ(playlist_->persistentId(), 0);
  EXPECT_EQ(playlist_->name(), "iTunes");
  EXPECT_EQ(player_.count(), before);
}

TEST(CZPlaylistNoPlayerTest, ALookupThatCouldNotBeSentIsReadAsAnEmptyReply) {
  CleanControllerState clean;
  LogCapture log;
  EXPECT_EQ(playlistWithId(kChillPlaylistId)->trackWithDatabaseId(5), nullptr);
  EXPECT_EQ(log.lines(),
            (Lines{"Error sending Apple Event: -600", "Error extracting from reply event: -1703"}));
}

}  // namespace
}  // namespace rvitunes
