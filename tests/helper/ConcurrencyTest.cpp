// The helper's process-wide objects and its one lock under several threads: the main object,
// the script lock and the icon dictionary made by whichever thread comes first (and never seen
// half filled), and artwork fetches of one item or many, one at a time, while other threads
// use and replace the shared controller. Run under ThreadSanitizer by the tsan preset.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "IconTestSupport.h"
#include "TrackItemTestSupport.h"
#include "rvitunes/cadenza/CZTrack.h"
#include "rvitunes/cadenza/Cadenza.h"
#include "rvitunes/helper/RVITunesHelper.h"
#include "rvitunes/helper/RVITunesInfo.h"
#include "rvitunes/helper/RVITunesTrackItem.h"
#include "rvitunes/helper/RvExecuteLock.h"

namespace rvitunes {
namespace {

using namespace std::chrono_literals;
using track_item_testing::FilteringPlayer;

constexpr size_t kIconCount = 40;

TEST(FirstUseRaceTest, ThreadsStartingTogetherShareOneObjectEach) {
  testing::ResetIcons resetIcons;
  testing::ScopedUnsetEnv bundle(kResourceDirVariable);
  const auto previous = RVITunesHelper::setAppleScriptExecutor(
      [](const std::string&, AppleScriptError*) { return std::make_shared<ae::Descriptor>(); });
  constexpr size_t kThreads = 6;
  std::vector<std::shared_ptr<RVITunesHelper>> helpers(kThreads);
  std::vector<plist::Ref<plist::Dictionary>> icons(kThreads);
  std::vector<std::mutex*> locks(kThreads);
  std::vector<int32_t> scripts(kThreads, -2);
  std::atomic<size_t> waiting{kThreads};
  {
    std::vector<std::jthread> threads;
    for (size_t i = 0; i < kThreads; ++i) {
      threads.emplace_back([&, i] {
        // All start at once, so that the first calls meet.
        waiting.fetch_sub(1);
        while (waiting.load() > 0)
          std::this_thread::yield();
        helpers[i] = RVITunesHelper::sharediTunesHelper();
        icons[i] = RVITunesInfo::playlistsDisplayIcons();
        scripts[i] = RVITunesHelper::executeAppleScriptWithThreadLock("tell app \"iTunes\"");
        locks[i] = Rv_ExecuteLock();
      });
    }
  }
  RVITunesHelper::setAppleScriptExecutor(previous);
  for (size_t i = 0; i < kThreads; ++i) {
    SCOPED_TRACE(i);
    EXPECT_EQ(helpers[i], helpers[0]);
    EXPECT_EQ(icons[i], icons[0]);
    EXPECT_EQ(scripts[i], 0);
    EXPECT_NE(locks[i], nullptr);
    EXPECT_EQ(locks[i], locks[0]);
  }
  ASSERT_TRUE(icons[0]);
  EXPECT_EQ(icons[0]->size(), kIconCount);
}

TEST(IconDictionaryRaceTest, ReadersNeverMeetAHalfFilledDictionary) {
  // Item creation and the library index read the dictionary through RVITunesIcons() without
  // waiting for a fill; what they get must be nothing yet (null or empty), or all of it.
  testing::ResetIcons resetIcons;
  testing::ScopedUnsetEnv bundle(kResourceDirVariable);
  std::atomic<bool> filled{false};
  std::atomic<size_t> partial{0}, seenWhole{0};
  {
    std::vector<std::jthread> readers;
    for (int t = 0; t < 3; ++t) {
      readers.emplace_back([&] {
        do {
          if (plist::Ref<plist::Dictionary> icons = RVITunesIcons(); icons && !icons->empty()) {
            const bool whole = icons->size() == kIconCount && icons->find("Lumo_music") != nullptr;
            (whole ? seenWhole : partial).fetch_add(1);
          }
        } while (!filled.load());
      });
    }
    std::this_thread::sleep_for(1ms);
    const plist::Ref<plist::Dictionary> icons = RVITunesInfo::playlistsDisplayIcons();
    filled.store(true);
    ASSERT_TRUE(icons);
    EXPECT_EQ(icons->size(), kIconCount);
  }
  EXPECT_EQ(partial.load(), 0u);
  EXPECT_GT(seenWhole.load(), 0u);
}

std::shared_ptr<RVITunesTrackItem> itemFor(int32_t trackId, int32_t artworkCount) {
  auto item = std::make_shared<RVITunesTrackItem>();
  item->setTrackId(trackId);
  item->setArtworkCount(artworkCount);
  return item;
}

image::Image opaquePicture() {
  image::Image img(29, 17);
  for (uint32_t y = 0; y < img.height(); ++y) {
    for (uint32_t x = 0; x < img.width(); ++x)
      img.setPixel(x, y, {static_cast<uint8_t>(x * 8), static_cast<uint8_t>(y * 14), 90, 255});
  }
  return img;
}

TEST(ArtworkLockRaceTest, OneItemAskedFromManyThreadsIsFetchedOnce) {
  FilteringPlayer player(nullptr, 1ms);
  std::shared_ptr<CZTrack> bolero = itemFor(cadenza_testing::kBoleroId, 1)->czTrackPtr();
  ASSERT_NE(bolero, nullptr);
  const image::Image art = opaquePicture();
  ASSERT_TRUE(bolero->setArtworkAtIndex(&art, 0));

  // What one fetch of this artwork asks, alone.
  size_t mark = player.mark();
  ASSERT_NE(itemFor(cadenza_testing::kBoleroId, 1)->metaImage(), nullptr);
  const size_t oneFetch = player.countSince(mark, "cArt");
  ASSERT_GT(oneFetch, 0u);

  const auto item = itemFor(cadenza_testing::kBoleroId, 1);
  std::vector<std::shared_ptr<const image::Image>> seen(6);
  mark = player.mark();
  {
    std::vector<std::jthread> threads;
    for (auto& slot : seen)
      threads.emplace_back([&item, &slot] { slot = item->metaImage(); });
  }
  EXPECT_EQ(player.countSince(mark, "cArt"), oneFetch);
  for (const auto& image : seen) {
    ASSERT_NE(image, nullptr);
    EXPECT_EQ(image, seen.front());
  }
  EXPECT_EQ(*seen.front(), art);
}

TEST(ArtworkLockRaceTest, RetriesReplaceTheControllerWhileOthersUseIt) {
  // Items whose library record promises artwork the player lacks make each fetch replace the
  // shared controller and retry, under the artwork lock, while other threads read through the
  // controller and the playlist cache of the moment. Nothing may block for good, and every
  // answer stays right.
  FilteringPlayer player;
  const int32_t playlistCount = Cadenza::sharedInstance()->playlistCount();
  ASSERT_GT(playlistCount, 0);
  std::atomic<int> fetching{3};
  std::atomic<int> wrong{0};
  {
    std::vector<std::jthread> threads;
    for (int32_t id :
         {cadenza_testing::kAriaId, cadenza_testing::kBoleroId, cadenza_testing::kCodaId}) {
      threads.emplace_back([&, id] {
        for (int round = 0; round < 3; ++round) {
          if (itemFor(id, 2)->metaImage() != nullptr) wrong.fetch_add(1);
        }
        fetching.fetch_sub(1);
      });
    }
    for (int t = 0; t < 3; ++t) {
      threads.emplace_back([&] {
        while (fetching.load() > 0) {
          if (Cadenza::sharedInstance()->playlistCount() != playlistCount) wrong.fetch_add(1);
          const auto root = Cadenza::sharedInstance()->rootPlaylist();
          if (!root || root->name() != "iTunes") wrong.fetch_add(1);
        }
      });
    }
  }
  EXPECT_EQ(wrong.load(), 0);
}

}  // namespace
}  // namespace rvitunes
