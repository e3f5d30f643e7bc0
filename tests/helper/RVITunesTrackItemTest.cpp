// The track item: made from records of the library file (IDs, names, the album rule, numbers,
// the location and the type image) and from live tracks, and finding and playing its live
// track in the reference player.
#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "TrackItemTestSupport.h"
#include "rvitunes/cadenza/CZTrack.h"
#include "rvitunes/cadenza/Cadenza.h"
#include "rvitunes/helper/RVITunesTrackItem.h"

namespace rvitunes {
namespace {

using track_item_testing::FilteringPlayer;
using track_item_testing::IconsInstalled;
using track_item_testing::Record;

class TrackItemFromRecordTest : public ::testing::Test {
 protected:
  IconsInstalled icons_{{"iTunes_generic", "iTunes_mp3"}};
};

TEST_F(TrackItemFromRecordTest, NoItemWithoutAUsableTrackId) {
  EXPECT_EQ(RVITunesTrackItem::initWithTrackDictInfo(nullptr), nullptr);
  EXPECT_EQ(RVITunesTrackItem::initWithTrackDictInfo(Record().with("Name", "x").dict()), nullptr);
  EXPECT_EQ(RVITunesTrackItem::initWithTrackDictInfo(Record().with("Track ID", 0).dict()), nullptr);
  EXPECT_EQ(RVITunesTrackItem::initWithTrackDictInfo(Record().with("Track ID", "17").dict()),
            nullptr);
  // Only the low 32 bits count: 2^32 is 0.
  EXPECT_EQ(
      RVITunesTrackItem::initWithTrackDictInfo(Record().with("Track ID", int64_t{1} << 32).dict()),
      nullptr);
  // The factory makes nothing, even from a complete record.
  EXPECT_EQ(RVITunesTrackItem::itemWithTrackDictInfo(
                Record().with("Track ID", 3).with("Name", "x").with("Album", "y").dict()),
            nullptr);
}

TEST_F(TrackItemFromRecordTest, BareRecordGivesGenericImageAndEmptyFields) {
  Record record;
  record.with("Track ID", 17);
  auto item = RVITunesTrackItem::initWithTrackDictInfo(record.dict());
  ASSERT_NE(item, nullptr);
  EXPECT_EQ(item->trackId(), 17);
  EXPECT_EQ(item->trackInfo().get(), record.dict().get());  // shared, not copied
  EXPECT_EQ(item->trackName(), std::nullopt);
  EXPECT_EQ(item->albumName(), std::nullopt);
  EXPECT_EQ(item->fileType(), std::nullopt);
  EXPECT_EQ(IconsInstalled::nameOf(item->typeImage()), "iTunes_generic");
  ASSERT_TRUE(item->splitMusics());
  EXPECT_TRUE(item->splitMusics()->empty());
}

TEST_F(TrackItemFromRecordTest, NamesNumbersAndTheAlbumRule) {
  Record full;
  full.with("Track ID", 5)
      .with("Name", "Song")
      .with("Artist", "Ann")
      .with("Album", "Arias")
      .with("Persistent ID", 0x1234)
      .with("Total Time", 1000)
      .with("Has Video", plist::Value::boolean(true))
      .with("Artwork Count", 2);
  auto item = RVITunesTrackItem::initWithTrackDictInfo(full.dict());
  ASSERT_NE(item, nullptr);
  EXPECT_EQ(item->trackName(), "Song");
  EXPECT_EQ(item->artistName(), "Ann");
  EXPECT_EQ(item->albumName(), "Arias");
  EXPECT_EQ(item->persistentId(), 0x1234);
  EXPECT_EQ(item->totalTime(), 1000);
  EXPECT_EQ(item->hasVideo(), 1);
  EXPECT_EQ(item->artworkCount(), 2);

  // Wrong types are skipped one by one; the file's hexadecimal persistent ID is not a number;
  // no album means no album (not the name); the time is a 32-bit value widened with its sign.
  Record odd;
  odd.with("Track ID", 6)
      .with("Name", "Song")
      .with("Artist", 12)
      .with("Persistent ID", "F00000000000B301")
      .with("Total Time", -5)
      .with("Has Video", plist::Value::boolean(false));
  item = RVITunesTrackItem::initWithTrackDictInfo(odd.dict());
  ASSERT_NE(item, nullptr);
  EXPECT_EQ(item->artistName(), std::nullopt);
  EXPECT_EQ(item->albumName(), std::nullopt);
  EXPECT_EQ(item->persistentId(), 0);
  EXPECT_EQ(item->totalTime(), -5);
  EXPECT_EQ(item->hasVideo(), 0);

  Record wide;
  wide.with("Track ID", 7).with("Total Time", int64_t{0x80000000});
  item = RVITunesTrackItem::initWithTrackDictInfo(wide.dict());
  ASSERT_NE(item, nullptr);
  EXPECT_EQ(item->totalTime(), INT32_MIN);
}

TEST_F(TrackItemFromRecordTest, LocationIsSplitIntoPathNameAndType) {
  auto item = RVITunesTrackItem::initWithTrackDictInfo(
      Record().with("Track ID", 1).with("Location", "file://localhost/Music/My%20Song.MP3").dict());
  ASSERT_NE(item, nullptr);
  EXPECT_EQ(item->fileUrl(), "file://localhost/Music/My%20Song.MP3");
  EXPECT_EQ(item->filePath(), "/Music/My Song.MP3");
  EXPECT_EQ(item->fileName(), "My Song.MP3");
  EXPECT_EQ(item->fileType(), "MP3");
  EXPECT_EQ(IconsInstalled::nameOf(item->typeImage()), "iTunes_mp3");

  item = RVITunesTrackItem::initWithTrackDictInfo(
      Record().with("Track ID", 1).with("Location", "file://localhost/Music/Readme").dict());
  ASSERT_NE(item, nullptr);
  EXPECT_EQ(item->fileName(), "Readme");
  EXPECT_EQ(item->fileType(), "");
  EXPECT_EQ(IconsInstalled::nameOf(item->typeImage()), "iTunes_generic");

  // Unescaped spaces: not a URL, so no file fields, and the generic image.
  item = RVITunesTrackItem::initWithTrackDictInfo(
      Record().with("Track ID", 1).with("Location", "file://localhost/My Song.mp3").dict());
  ASSERT_NE(item, nullptr);
  EXPECT_EQ(item->fileUrl(), std::nullopt);
  EXPECT_EQ(item->filePath(), std::nullopt);
  EXPECT_EQ(item->fileType(), std::nullopt);
  EXPECT_EQ(IconsInstalled::nameOf(item->typeImage()), "iTunes_generic");
}

TEST(TrackItemWithoutIconsTest, TypeImageStaysNull) {
  setRVITunesIcons(nullptr);
  auto item = RVITunesTrackItem::initWithTrackDictInfo(
      Record().with("Track ID", 1).with("Location", "file:///a.mp3").dict());
  ASSERT_NE(item, nullptr);
  EXPECT_EQ(item->fileType(), "mp3");
  EXPECT_EQ(item->typeImage(), nullptr);
}

class TrackItemLiveTest : public ::testing::Test {
 protected:
  FilteringPlayer player_;
};

TEST_F(TrackItemLiveTest, LiveTrackGivesIdsNamesAndAlbumFallback) {
  auto item = RVITunesTrackItem::initWithTrackDictInfo(
      Record().with("Track ID", cadenza_testing::kBoleroId).dict());
  ASSERT_NE(item, nullptr);
  std::shared_ptr<CZTrack> bolero = item->czTrackPtr();
  ASSERT_NE(bolero, nullptr);

  auto live = RVITunesTrackItem::itemWithCzTrackPointer(bolero);
  ASSERT_NE(live, nullptr);
  EXPECT_EQ(live->trackId(), cadenza_testing::kBoleroId);
  EXPECT_EQ(live->persistentId(), cadenza_testing::kBoleroPid);
  EXPECT_EQ(live->trackName(), "Bolero");
  EXPECT_EQ(live->albumName(), "");  // the player answers an empty album, which is kept
  EXPECT_EQ(live->trackInfo(), nullptr);
  EXPECT_EQ(live->fileType(), std::nullopt);
  EXPECT_EQ(live->artworkCount(), 0);
  EXPECT_EQ(RVITunesTrackItem::initWithCzTrackPointer(nullptr), nullptr);
}

TEST(TrackItemLiveAlbumTest, UnreadableAlbumBecomesTheName) {
  FilteringPlayer player(
      [](const std::string& printed) { return printed.find("pAlb") != std::string::npos; });
  auto item = std::make_shared<RVITunesTrackItem>();
  item->setTrackId(cadenza_testing::kAriaId);
  auto live = RVITunesTrackItem::initWithCzTrackPointer(item->czTrackPtr());
  ASSERT_NE(live, nullptr);
  EXPECT_EQ(live->trackName(), "Aria");
  EXPECT_EQ(live->artistName(), "Ann");
  EXPECT_EQ(live->albumName(), "Aria");
}

TEST_F(TrackItemLiveTest, PlayingNeedsTheLiveTrack) {
  auto missing = std::make_shared<RVITunesTrackItem>();
  missing->setTrackId(999);
  size_t mark = player_.mark();
  EXPECT_EQ(missing->czTrackPtr(), nullptr);
  EXPECT_FALSE(missing->playCzTrack());
  EXPECT_FALSE(missing->playCzTrack(std::string("/tmp")));
  EXPECT_EQ(player_.countSince(mark, "'Play'"), 0u);

  auto aria = std::make_shared<RVITunesTrackItem>();
  aria->setTrackId(cadenza_testing::kAriaId);
  mark = player_.mark();
  EXPECT_FALSE(aria->playCzTrack(std::nullopt));
  EXPECT_TRUE(player_.eventsSince(mark).empty());  // not even the look-up

  EXPECT_TRUE(aria->playCzTrack());
  EXPECT_EQ(player_.countSince(mark, "'Play'"), 1u);
  aria->stopCzTrack();
  EXPECT_EQ(player_.countSince(mark, "'Stop'"), 1u);
}

}  // namespace
}  // namespace rvitunes
