// The track item's images: the file-type image from the icon dictionary, and the artwork from
// the reference player — the fallback walk, the retries with a fresh controller, the cache and
// the one-fetch-at-a-time lock.
#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "TrackItemTestSupport.h"
#include "rvitunes/cadenza/CZTrack.h"
#include "rvitunes/cadenza/Cadenza.h"
#include "rvitunes/helper/RVITunesTrackItem.h"

namespace rvitunes {
namespace {

using track_item_testing::FilteringPlayer;
using track_item_testing::IconsInstalled;

std::string typeImageFor(const std::optional<std::string>& type) {
  RVITunesTrackItem item;
  item.assignFileTypeImage(type);
  return IconsInstalled::nameOf(item.typeImage());
}

TEST(FileTypeImageTest, TypeWordsChooseTheirImagesInAnyCase) {
  IconsInstalled icons(
      {"iTunes_generic", "iTunes_mp3", "iTunes_mpeg4", "iTunes_mpeg4p", "iTunes_movie"});
  EXPECT_EQ(typeImageFor("MP3"), "iTunes_mp3");
  EXPECT_EQ(typeImageFor("m4a"), "iTunes_mpeg4");
  EXPECT_EQ(typeImageFor("Mpeg4"), "iTunes_mpeg4p");  // not iTunes_mpeg4
  EXPECT_EQ(typeImageFor("AVI"), "iTunes_movie");
  EXPECT_EQ(typeImageFor("flac"), "iTunes_generic");
  EXPECT_EQ(typeImageFor(""), "iTunes_generic");
  EXPECT_EQ(typeImageFor(std::nullopt), "iTunes_generic");
  EXPECT_EQ(typeImageFor("mp3 "), "iTunes_generic");  // exact words only
}

TEST(FileTypeImageTest, MissingImageOrDictionary) {
  {
    IconsInstalled icons({"iTunes_generic"});
    EXPECT_EQ(typeImageFor("aac"), "");  // known type, image absent: no generic fallback
  }
  IconsInstalled icons({"iTunes_generic"});
  RVITunesTrackItem item;
  item.assignFileTypeImage("flac");
  const plist::Ref<IconImage> before = item.typeImage();
  ASSERT_NE(before, nullptr);
  setRVITunesIcons(nullptr);
  item.assignFileTypeImage("mp3");
  EXPECT_EQ(item.typeImage(), before);  // no dictionary: left as it was
}

std::shared_ptr<RVITunesTrackItem> itemFor(int32_t trackId, int32_t artworkCount) {
  auto item = std::make_shared<RVITunesTrackItem>();
  item->setTrackId(trackId);
  item->setArtworkCount(artworkCount);
  return item;
}

// A picture the player's conversion takes: read back from PNG, 37 × 23.
image::Image picture(uint8_t red) {
  image::Image img(37, 23);
  for (uint32_t y = 0; y < 23; ++y) {
    for (uint32_t x = 0; x < 37; ++x) {
      img.setPixel(x, y, {red, static_cast<uint8_t>(x * 5), static_cast<uint8_t>(y * 9), 255});
    }
  }
  auto png = img.pngRepresentation();
  EXPECT_TRUE(png.ok());
  if (!png.ok()) return img;
  auto back = image::Image::fromData(std::span<const uint8_t>(*png));
  return back.ok() ? std::move(*back) : img;
}

TEST(ArtworkTest, FetchedOnceThenServedFromTheItem) {
  FilteringPlayer player;
  auto item = itemFor(cadenza_testing::kBoleroId, 1);
  std::shared_ptr<CZTrack> bolero = item->czTrackPtr();
  ASSERT_NE(bolero, nullptr);
  const image::Image art = picture(200);
  ASSERT_TRUE(bolero->setArtworkAtIndex(&art, 0));

  const auto first = item->metaImage();
  ASSERT_NE(first, nullptr);
  EXPECT_EQ(*first, art);
  const size_t mark = player.mark();
  EXPECT_EQ(item->metaImage(), first);
  EXPECT_TRUE(player.eventsSince(mark).empty());
}

TEST(ArtworkTest, NoArtworkAndNoneExpectedAsksOnce) {
  FilteringPlayer player;
  auto item = itemFor(cadenza_testing::kBoleroId, 0);
  const auto controller = Cadenza::sharedInstance();
  const size_t mark = player.mark();
  EXPECT_EQ(item->metaImage(), nullptr);
  EXPECT_EQ(player.countSince(mark, "cArt"), 1u);
  EXPECT_EQ(Cadenza::sharedInstance(), controller);
}

TEST(ArtworkTest, ExpectedArtworkReplacesTheControllerAndRetriesFourTimes) {
  FilteringPlayer player;
  auto item = itemFor(cadenza_testing::kBoleroId, 2);
  const auto controller = Cadenza::sharedInstance();
  size_t mark = player.mark();
  EXPECT_EQ(item->metaImage(), nullptr);
  EXPECT_EQ(player.countSince(mark, "cArt"), 5u);  // the first request and four more
  EXPECT_NE(Cadenza::sharedInstance(), controller);

  // Nothing was kept, so the next call asks again.
  mark = player.mark();
  EXPECT_EQ(item->metaImage(), nullptr);
  EXPECT_EQ(player.countSince(mark, "cArt"), 5u);
}

TEST(ArtworkTest, FallbackWalkTakesTheLastPlaylistsMatch) {
  // Refusing the look-ups by key sends the item to the walk of every playlist's tracks. Aria is
  // in Library (400), Music (401) and Chill (411); the artwork must be read from Chill's track.
  FilteringPlayer player([](const std::string& printed) {
    return printed.find("'form':'test'") != std::string::npos;
  });
  auto item = itemFor(cadenza_testing::kAriaId, 0);
  EXPECT_EQ(item->czTrackPtr(), nullptr);
  const size_t mark = player.mark();
  EXPECT_EQ(item->metaImage(), nullptr);
  std::vector<std::string> artworkReads;
  for (const std::string& e : player.eventsSince(mark)) {
    if (e.find("cArt") != std::string::npos) artworkReads.push_back(e);
  }
  ASSERT_EQ(artworkReads.size(), 1u);
  EXPECT_NE(artworkReads[0].find("'seld':411"), std::string::npos) << artworkReads[0];
}

TEST(ArtworkTest, FetchesOfAllItemsRunOneAtATime) {
  // Each fetch here asks for the playlists once and for the artwork once. Run one at a time,
  // those requests alternate; fetches running side by side (held up by the player's delay)
  // would put several playlist requests before the first artwork request.
  FilteringPlayer player(nullptr, std::chrono::milliseconds(2));
  std::vector<std::shared_ptr<RVITunesTrackItem>> items;
  for (int32_t id : {cadenza_testing::kAriaId, cadenza_testing::kBoleroId, cadenza_testing::kCodaId,
                     cadenza_testing::kBoleroId}) {
    items.push_back(itemFor(id, 0));
  }
  (void)Cadenza::sharedInstance()->versionString();
  const size_t mark = player.mark();
  std::vector<std::thread> threads;
  for (auto& item : items) {
    threads.emplace_back([item] { (void)item->metaImage(); });
  }
  for (std::thread& t : threads)
    t.join();

  std::string order;
  for (const std::string& e : player.eventsSince(mark)) {
    if (e.find("'cnte'") != std::string::npos && e.find("type('cPly')") != std::string::npos) {
      order += 'P';
    } else if (e.find("cArt") != std::string::npos) {
      order += 'A';
    }
  }
  EXPECT_EQ(order, "PAPAPAPA");
}

}  // namespace
}  // namespace rvitunes
