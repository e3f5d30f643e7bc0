// The enumerators: their counts, where each walk stops, and the one that logs and carries on.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "CadenzaTestSupport.h"
#include "rvitunes/cadenza/CZPlaylistEnumerator.h"
#include "rvitunes/cadenza/CZTrackEnumerator.h"
#include "rvitunes/cadenza/CZUserPlaylistEnum.h"

namespace rvitunes {
namespace {

using namespace cadenza_testing;

constexpr const char* kTrackSpecifier =
    "obj { form:'ID  ', want:type(cFlT), seld:1001, from:null() }";
constexpr const char* kPlaylistSpecifier =
    "obj { form:'ID  ', want:type(cUsP), seld:2011, from:null() }";

// A recording player with `count` elements of everything, of which position `broken`
// (1-based) answers an error.
RecordingPlayer::Responder elements(int32_t count, int64_t broken, const char* specifier) {
  return [=](const ae::Descriptor& event, ae::Descriptor& reply) -> OSStatus {
    if (isCount(event)) return answerWith(reply, ae::Descriptor::makeSInt32(count));
    if (elementPosition(event) == broken) return errAENoSuchObject;
    return answerWith(reply, built(specifier));
  };
}

class EnumeratorRecordedTest : public ::testing::Test {
 protected:
  CleanControllerState clean_;
  LogCapture log_;
  SystemLogCapture systemLog_;
};

TEST_F(EnumeratorRecordedTest, PlaylistWalkLogsABadReplyAndCarriesOn) {
  RecordingPlayer player;
  player.respondWith(elements(3, 2, kPlaylistSpecifier));
  CZPlaylistEnumerator walk;
  EXPECT_EQ(walk.count(), 3);
  EXPECT_EQ(walk.appleEventClass(), fourCharCode("cPly"));
  const auto all = walk.allObjects();
  ASSERT_EQ(all.size(), 3u);
  EXPECT_FALSE(all[0]->descriptor().isNull());
  EXPECT_TRUE(all[1]->descriptor().isNull());  // wrapped all the same
  EXPECT_FALSE(all[2]->descriptor().isNull());
  EXPECT_EQ(walk.seq(), 3);
  EXPECT_EQ(systemLog_.lines(), std::vector<std::string>{"Unable to exec getParamDesc: -1701"});
  EXPECT_TRUE(frameworkLines(log_).empty());
  // Positions 1, 2, 3 for the player; one count first.
  const auto printed = player.printed();
  ASSERT_EQ(printed.size(), 4u);
  EXPECT_EQ(printed[0], "'core'\\'cnte'{ 'kocl':type('cPly'), '----':null() }");
  EXPECT_EQ(printed[3],
            "'core'\\'getd'{ '----':'obj '{ 'form':'indx', 'want':type('cPly'), 'seld':3, "
            "'from':null() } }");
  EXPECT_EQ(walk.nextObject(), nullptr);
  EXPECT_EQ(player.count(), 4u);  // a finished walk asks nothing
}

// A player that claims far more playlists than it has: the walk carries on past missing ones,
// but a long enough run of them ends it instead of walking two billion positions.
TEST_F(EnumeratorRecordedTest, PlaylistWalkGivesUpOnALongRunOfMissingPlaylists) {
  RecordingPlayer player;
  player.respondWith([](const ae::Descriptor& event, ae::Descriptor& reply) -> OSStatus {
    if (isCount(event)) return answerWith(reply, ae::Descriptor::makeSInt32(INT32_MAX));
    const int64_t position = elementPosition(event);
    // Two real ones, a shorter gap, one more, then nothing.
    if (position <= 2 || position == 2 + CZPlaylistEnumerator::kMostMissingInARow) {
      return answerWith(reply, built(kPlaylistSpecifier));
    }
    return errAENoSuchObject;
  });
  CZPlaylistEnumerator walk;
  const auto all = walk.allObjects();
  const size_t expected = 3 + 2 * (CZPlaylistEnumerator::kMostMissingInARow - 1) + 1;
  EXPECT_EQ(all.size(), expected);
  const size_t lastReal = 1 + CZPlaylistEnumerator::kMostMissingInARow;
  EXPECT_FALSE(all[1]->descriptor().isNull());
  EXPECT_TRUE(all[2]->descriptor().isNull());
  EXPECT_FALSE(all[lastReal]->descriptor().isNull());
  EXPECT_TRUE(all.back()->descriptor().isNull());
  EXPECT_EQ(walk.nextObject(), nullptr);
  EXPECT_EQ(player.count(), 1 + expected);  // the count, then one request per position
}

TEST_F(EnumeratorRecordedTest, PlaylistWalkEndsWhenNoReplyComes) {
  std::unique_ptr<CZPlaylistEnumerator> walk;
  {
    RecordingPlayer player;
    player.respondWith(elements(3, 0, kPlaylistSpecifier));
    walk = std::make_unique<CZPlaylistEnumerator>();
    ASSERT_NE(walk->nextObject(), nullptr);
  }
  EXPECT_EQ(walk->nextObject(), nullptr);
  EXPECT_EQ(walk->seq(), 1);
  EXPECT_TRUE(walk->allObjects().empty());
}

TEST_F(EnumeratorRecordedTest, AFailedCountIsAnEmptyWalk) {
  RecordingPlayer player;
  player.fail(errAENoSuchObject);
  CZPlaylistEnumerator walk;
  EXPECT_EQ(walk.count(), 0);
  EXPECT_TRUE(walk.allObjects().empty());
  CZTrackEnumerator tracks(std::make_shared<CZPlaylist>(built(kPlaylistSpecifier)));
  EXPECT_EQ(tracks.count(), 0);
  EXPECT_TRUE(tracks.allObjects().empty());
  EXPECT_EQ(player.count(), 2u);
  EXPECT_TRUE(CZTrackEnumerator(nullptr).allObjects().empty());
}

TEST_F(EnumeratorRecordedTest, TrackWalkStopsSilentlyAtTheFirstTrackItCannotFetch) {
  RecordingPlayer player;
  player.respondWith(elements(5, 3, kTrackSpecifier));
  const auto playlist = std::make_shared<CZPlaylist>(built(kPlaylistSpecifier));
  CZTrackEnumerator walk(playlist);
  EXPECT_EQ(walk.playlist(), playlist);
  EXPECT_EQ(walk.count(), 5);
  EXPECT_EQ(walk.allObjects().size(), 2u);
  EXPECT_EQ(walk.seq(), 2);
  EXPECT_EQ(walk.nextObject(), nullptr);  // tries the same position again
  EXPECT_EQ(walk.seq(), 2);
  EXPECT_TRUE(frameworkLines(log_).empty());
  EXPECT_TRUE(systemLog_.lines().empty());
  // The track requests go to the playlist's elements.
  EXPECT_EQ(player.printed()[1],
            "'core'\\'getd'{ '----':'obj '{ 'form':'indx', 'want':type('cTrk'), 'seld':1, "
            "'from':'obj '{ 'form':'ID  ', 'want':type('cUsP'), 'seld':2011, 'from':null() } } }");
}

TEST(EnumeratorPlayerTest, UserWalkAnswersOrdinaryPlaylistsOnlyAndNeverAFolder) {
  for (const char* version : {"7.7.1", "8.1"}) {
    SCOPED_TRACE(version);
    CleanControllerState clean;
    auto player = startTreePlayer(version);
    ASSERT_NE(player, nullptr);
    CZPlaylistEnumerator all;
    EXPECT_EQ(all.count(), 16);
    CZUserPlaylistEnumerator user;
    EXPECT_EQ(user.appleEventClass(), fourCharCode("cUsP"));
    EXPECT_EQ(user.count(), 15);  // every playlist but the library, folders included
    const auto ordinary = user.allObjects();
    for (const auto& playlist : ordinary)
      EXPECT_EQ(playlist->specialKind(), fourCharCode("kSpN")) << playlist->name().value_or("");
    const std::vector<std::string> expected =
        std::string(version) == "8.1"
            ? std::vector<std::string>{"Classics", "Cuts", "Zebra", "alpha"}
            : std::vector<std::string>{"Genius", "Classics", "Cuts", "Zebra", "alpha"};
    EXPECT_EQ(namesOf(ordinary), expected);
    EXPECT_EQ(user.seq(), 15);
  }
}

TEST(EnumeratorPlayerTest, TrackWalkFollowsThePlaylistsOrder) {
  CleanControllerState clean;
  auto player = startTreePlayer("7.3");
  ASSERT_NE(player, nullptr);
  const auto classics =
      Cadenza::sharedInstance()->playlistWithPersistentId(static_cast<uint64_t>(kClassicsPid));
  ASSERT_NE(classics, nullptr);
  CZTrackEnumerator walk(classics);
  EXPECT_EQ(walk.count(), 3);
  EXPECT_EQ(namesOf(walk.allObjects()), (std::vector<std::string>{"Anthem", "Canon", "Ballad"}));
}

}  // namespace
}  // namespace rvitunes
