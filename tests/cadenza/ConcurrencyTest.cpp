// The controller's process-wide state under several threads at once: the shared controller and
// playlist cache replaced while other threads use them, the cached version forgotten while it
// is read, children added to a playlist while others sort them, and the name localizer swapped
// while synthetic names are read. Run under ThreadSanitizer by the tsan preset.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "CadenzaTestSupport.h"

namespace rvitunes {
namespace {

using namespace cadenza_testing;

// Collects what went wrong on any thread; the first few descriptions are kept.
class Findings {
 public:
  void check(bool right, const std::string& what) {
    if (right) return;
    std::lock_guard lock(mutex_);
    if (texts_.size() < 10) texts_.push_back(what);
    ++count_;
  }
  size_t count() const {
    std::lock_guard lock(mutex_);
    return count_;
  }
  std::string text() const {
    std::lock_guard lock(mutex_);
    std::string out;
    for (const std::string& t : texts_)
      out += t + "\n";
    return out;
  }

 private:
  mutable std::mutex mutex_;
  std::vector<std::string> texts_;
  size_t count_ = 0;
};

std::vector<int64_t> sortedChildren(const std::shared_ptr<CZPlaylist>& playlist) {
  std::vector<int64_t> ids = playlist ? playlist->childPlaylistIds() : std::vector<int64_t>{-1};
  std::sort(ids.begin(), ids.end());
  return ids;
}

class SharedStateRaceTest : public ::testing::TestWithParam<const char*> {
 protected:
  CleanControllerState clean_;
  LogCapture log_;
};

// Seven threads for a while: two replace the controller and cache and read the new tree, one
// drops both without replacing them, two forget and re-read the version, two look playlists up
// through whatever controller is shared at the moment. Every answer must be the one the tree
// library gives; on 7.2.1 the cache's playlists also cache their IDs as they are read.
TEST_P(SharedStateRaceTest, ControllerCacheAndVersionReplacedWhileInUse) {
  const std::string version = GetParam();
  auto player = startTreePlayer(version);
  ASSERT_NE(player, nullptr);
  const uint32_t packed = Cadenza::packVersion(version);
  const std::vector<int64_t> rockChildren = [] {
    std::vector<int64_t> ids{kClassicsPid, kDeepPid};
    std::sort(ids.begin(), ids.end());
    return ids;
  }();
  // The user tree's top differs between versions (Genius is ordinary before 8.0); it is read
  // once here, alone.
  const std::vector<int64_t> userTop =
      sortedChildren(Cadenza::sharedInstance()->rootUserPlaylist());
  ASSERT_GE(userTop.size(), 4u);
  constexpr int kRounds = 6;
  std::atomic<int> replacing{2};
  Findings findings;
  {
    std::vector<std::jthread> threads;
    for (int t = 0; t < 2; ++t) {
      threads.emplace_back([&] {
        for (int i = 0; i < kRounds; ++i) {
          const std::shared_ptr<Cadenza> controller = Cadenza::reSharedInstance();
          const std::shared_ptr<CZPlaylist> root = controller->rootPlaylist();
          findings.check(root && root->name() == "iTunes", "root of a new cache");
          const auto cache = CZPlaylistCache::sharedInstance();
          findings.check(
              sortedChildren(cache->playlistForPersistentId(0)) == std::vector<int64_t>({1, 2, 3}),
              "children of the root");
          findings.check(sortedChildren(cache->playlistForPersistentId(kRockPid)) == rockChildren,
                         "children of Rock");
          const auto cuts = cache->userPlaylistForPersistentId(kCutsPid);
          findings.check(cuts && cuts->persistentId() == kCutsPid &&
                             cuts->parentPlaylistId() == static_cast<uint64_t>(kDeepPid),
                         "Cuts in the user tree");
        }
        replacing.fetch_sub(1);
      });
    }
    threads.emplace_back([&] {
      while (replacing.load() > 0) {
        Cadenza::unSharedInstance();
        CZPlaylistCache::releaseSharedInstance();
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
      }
    });
    for (int t = 0; t < 2; ++t) {
      threads.emplace_back([&] {
        while (replacing.load() > 0) {
          Cadenza::resetCachedVersion();
          findings.check(Cadenza::sharedInstance()->versionNumber() == packed,
                         "the packed version");
          findings.check(Cadenza::sharedInstance()->versionString() == version, "the version");
          std::this_thread::sleep_for(std::chrono::microseconds(200));
        }
      });
    }
    for (int t = 0; t < 2; ++t) {
      threads.emplace_back([&] {
        while (replacing.load() > 0) {
          const auto classics = Cadenza::sharedInstance()->playlistWithPersistentId(
              static_cast<uint64_t>(kClassicsPid));
          findings.check(classics && classics->name() == "Classics", "Classics by its ID");
          const auto root = Cadenza::sharedInstance()->rootUserPlaylist();
          findings.check(sortedChildren(root) == userTop, "the user tree's top");
          std::this_thread::sleep_for(std::chrono::microseconds(200));
        }
      });
    }
  }
  EXPECT_EQ(findings.count(), 0u) << findings.text();
  EXPECT_TRUE(frameworkLines(log_).empty());
}

INSTANTIATE_TEST_SUITE_P(Versions, SharedStateRaceTest, ::testing::Values("7.7.1", "7.2.1"));

TEST(PlaylistChildrenRaceTest, AddsDuringSortsAreNeverLost) {
  // Sorting asks the shared cache for names and runs without the playlist's lock; an add that
  // lands meanwhile must survive the sorted list being stored.
  CleanControllerState clean;
  RecordingPlayer player;
  player.respondWith([](const ae::Descriptor& event, ae::Descriptor& reply) {
    return isCount(event) ? answerWith(reply, ae::Descriptor::makeSInt32(0)) : noErr;
  });
  (void)CZPlaylistCache::sharedInstance();  // the empty player's synthetic top
  auto parent = std::make_shared<CZPlaylist>();
  constexpr int kAdders = 3;
  constexpr int kAdds = 300;
  std::atomic<int> adding{kAdders};
  {
    std::vector<std::jthread> threads;
    for (int t = 0; t < kAdders; ++t) {
      threads.emplace_back([&, t] {
        for (int i = 0; i < kAdds; ++i)
          parent->addChildPlaylistId(1000 + t * kAdds + i);
        adding.fetch_sub(1);
      });
    }
    for (int t = 0; t < 2; ++t) {
      threads.emplace_back([&] {
        while (adding.load() > 0)
          (void)parent->childPlaylistIds();
      });
    }
  }
  std::vector<int64_t> ids = parent->childPlaylistIds();
  ASSERT_EQ(ids.size(), static_cast<size_t>(kAdders * kAdds));
  std::sort(ids.begin(), ids.end());
  for (int i = 0; i < kAdders * kAdds; ++i)
    EXPECT_EQ(ids[static_cast<size_t>(i)], 1000 + i);
}

TEST(NameLocalizerRaceTest, SyntheticNamesFollowTheLocalizerSwappedMeanwhile) {
  auto root = std::make_shared<CZPlaylist>();
  std::atomic<bool> done{false};
  Findings findings;
  {
    std::vector<std::jthread> readers;
    for (int t = 0; t < 3; ++t) {
      readers.emplace_back([&] {
        while (!done.load()) {
          const std::optional<std::string> name = root->name();
          findings.check(name == "iTunes" || name == "Musique",
                         "the root's name: " + name.value_or("(none)"));
        }
      });
    }
    for (int i = 0; i < 200; ++i) {
      CZPlaylist::setNameLocalizer([](std::string_view key) -> std::optional<std::string> {
        if (key == "iTunes") return "Musique";
        return std::nullopt;
      });
      CZPlaylist::setNameLocalizer({});
    }
    done.store(true);
  }
  EXPECT_EQ(findings.count(), 0u) << findings.text();
  EXPECT_EQ(root->name(), "iTunes");
}

}  // namespace
}  // namespace rvitunes
