// The player's version: how its text packs, that it is read once per process, and the
// comparisons every version gate uses, against the reference player of each version that
// matters.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "CadenzaTestSupport.h"

namespace rvitunes {
namespace {

using cadenza_testing::answeringVersion;
using cadenza_testing::CleanControllerState;
using cadenza_testing::RecordingPlayer;
using cadenza_testing::startTreePlayer;

TEST(VersionPackingTest, ThreeComponentsOfEightBitsShiftedByEightFourAndZero) {
  struct Case {
    const char* text;
    uint32_t packed;
  };
  const Case cases[] = {
      {"7.2", 0x720},
      {"7.2.1", 0x721},
      {"7.3", 0x730},
      {"6.0", 0x600},
      {"8.0.1.5", 0x801},
      {"10.1", 0xA10},
      {"5", 0x500},
      {"7.2.1b3", 0x721},
      {" 7.2", 0x720},
      {"7b.2", 0x720},
      {"", 0},
      {"abc", 0},
      {"7..1", 0x701},
      {"7.2.", 0x720},
      {"0.0", 0},
      {"-1", 0xFF00},
      // Components from 16 on spill into the next one's bits; 256 loses everything.
      {"6.16", 0x700},
      {"7.2.20", 0x734},
      {"256.1", 0x010},
      {"99999999999.0", 0xFF00},
  };
  for (const Case& c : cases)
    EXPECT_EQ(Cadenza::packVersion(c.text), c.packed) << '"' << c.text << '"';
}

class VersionCacheTest : public ::testing::Test {
 protected:
  CleanControllerState clean_;
  RecordingPlayer player_;
  Cadenza controller_;
};

TEST_F(VersionCacheTest, ReadOnceThenComparedFromTheCache) {
  player_.respondWith(answeringVersion("7.2.1"));
  EXPECT_EQ(controller_.versionString(), "7.2.1");
  EXPECT_EQ(controller_.versionNumber(), 0x721u);
  EXPECT_TRUE(controller_.versionGreaterThan(0x720));
  EXPECT_FALSE(controller_.versionGreaterThan(0x721));
  EXPECT_FALSE(controller_.versionLessThan(0x721));
  EXPECT_TRUE(controller_.versionLessThan(0x722));
  // Another controller shares the process-wide cache.
  EXPECT_EQ(Cadenza().versionNumber(), 0x721u);
  ASSERT_EQ(player_.count(), 1u);
  EXPECT_EQ(player_.printed()[0],
            "'core'\\'getd'{ '----':'obj '{ 'form':'prop', 'want':type('prop'), "
            "'seld':type('vers'), 'from':null() } }");
}

TEST_F(VersionCacheTest, AFailedReadIsAskedAgainOnEveryCall) {
  player_.fail(-1728);
  EXPECT_EQ(controller_.versionString(), std::nullopt);
  EXPECT_EQ(controller_.versionNumber(), 0u);
  EXPECT_TRUE(controller_.versionLessThan(0x600));
  EXPECT_EQ(player_.count(), 3u);
  // Once the player answers, the answer is kept.
  player_.respondWith(answeringVersion("6.0.2"));
  EXPECT_EQ(controller_.versionNumber(), 0x602u);
  EXPECT_EQ(controller_.versionNumber(), 0x602u);
  EXPECT_EQ(player_.count(), 4u);
}

TEST_F(VersionCacheTest, ATextThatPacksToZeroIsPackedAgainButNotReadAgain) {
  player_.respondWith(answeringVersion("0.0"));
  EXPECT_EQ(controller_.versionNumber(), 0u);
  EXPECT_EQ(controller_.versionNumber(), 0u);
  EXPECT_EQ(controller_.versionString(), "0.0");
  EXPECT_EQ(player_.count(), 1u);
}

TEST_F(VersionCacheTest, SurvivesReSharingAndIsForgottenOnlyOnRequest) {
  player_.respondWith(answeringVersion("7.2.1"));
  EXPECT_EQ(Cadenza::sharedInstance()->versionNumber(), 0x721u);
  // The player is replaced by a newer one; re-sharing the controller does not notice.
  player_.respondWith(answeringVersion("7.3"));
  EXPECT_EQ(Cadenza::reSharedInstance()->versionNumber(), 0x721u);
  Cadenza::resetCachedVersion();
  EXPECT_EQ(Cadenza::sharedInstance()->versionString(), "7.3");
  EXPECT_EQ(Cadenza::sharedInstance()->versionNumber(), 0x730u);
}

// The versions whose gates matter, read from the reference player, with the comparisons each
// gate makes on both sides of its boundary.
TEST(VersionGatesTest, ReferencePlayerVersionsAgainstEveryBoundary) {
  struct Case {
    const char* version;
    uint32_t packed;
    bool above600;  // persistent IDs exist (playlist look-up)
    bool below720;  // the 7.2 text range starts at 7.2.0
    bool above721;  // ... and ends after 7.2.1
  };
  const Case cases[] = {
      {"5.0.2", 0x502, false, true, false}, {"6.0", 0x600, false, true, false},
      {"6.0.1", 0x601, true, true, false},  {"6.0.2", 0x602, true, true, false},
      {"7.2", 0x720, true, false, false},   {"7.2.1", 0x721, true, false, false},
      {"7.2.2", 0x722, true, false, true},  {"7.3", 0x730, true, false, true},
      {"9.2.1", 0x921, true, false, true},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.version);
    CleanControllerState clean;
    auto player = startTreePlayer(c.version);
    ASSERT_NE(player, nullptr);
    const auto controller = Cadenza::sharedInstance();
    EXPECT_EQ(controller->versionString(), c.version);
    EXPECT_EQ(controller->versionNumber(), c.packed);
    EXPECT_EQ(controller->versionGreaterThan(Cadenza::kVersion6_0_0), c.above600);
    EXPECT_EQ(controller->versionLessThan(Cadenza::kVersion7_2_0), c.below720);
    EXPECT_EQ(controller->versionGreaterThan(Cadenza::kVersion7_2_1), c.above721);
  }
}

}  // namespace
}  // namespace rvitunes
