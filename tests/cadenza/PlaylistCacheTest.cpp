// The playlist cache: the two trees built from the reference player's playlists (folders,
// nested playlists, every special kind, a kind nobody places), the synthetic top on an empty
// player, and the name order of children.
#include <gtest/gtest.h>

#include <atomic>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include "CadenzaTestSupport.h"
#include "rvitunes/cadenza/CZPlaylistNameSorting.h"

namespace rvitunes {
namespace {

using namespace cadenza_testing;

enum class Tree { kWhole, kUser };

std::shared_ptr<CZPlaylist> lookUp(const CZPlaylistCache& cache, Tree tree, int64_t id) {
  return tree == Tree::kWhole ? cache.playlistForPersistentId(id)
                              : cache.userPlaylistForPersistentId(id);
}

// The names of the children of `id`, in the order the playlist answers them (by name).
std::vector<std::string> childNames(const CZPlaylistCache& cache, Tree tree, int64_t id) {
  const auto parent = lookUp(cache, tree, id);
  if (!parent) return {"<no playlist " + std::to_string(id) + ">"};
  std::vector<std::string> names;
  for (int64_t child : parent->childPlaylistIds()) {
    const auto playlist = lookUp(cache, tree, child);
    names.push_back(playlist ? playlist->name().value_or("<no name>")
                             : "<unknown " + std::to_string(child) + ">");
  }
  return names;
}

using Names = std::vector<std::string>;

// An empty player: only the synthetic top, whose groups sort by name.
TEST(PlaylistCacheEmptyTest, TheSyntheticTopAlone) {
  CleanControllerState clean;
  RecordingPlayer player;
  player.respondWith([](const ae::Descriptor& event, ae::Descriptor& reply) {
    return isCount(event) ? answerWith(reply, ae::Descriptor::makeSInt32(0)) : noErr;
  });
  const auto cache = CZPlaylistCache::sharedInstance();
  EXPECT_EQ(cache->persistentIds(), (std::vector<int64_t>{0, 1, 2, 3}));
  EXPECT_EQ(cache->playlistForPersistentId(0)->childPlaylistIds(), (std::vector<int64_t>{1, 3, 2}));
  EXPECT_EQ(childNames(*cache, Tree::kWhole, 0), (Names{"LIBRARY", "PLAYLISTS", "STORE"}));
  EXPECT_EQ(cache->playlistForPersistentId(0)->name(), "iTunes");
  EXPECT_EQ(cache->userPersistentIds(), (std::vector<int64_t>{0}));
  EXPECT_EQ(cache->userPlaylistForPersistentId(0)->name(), "iTunes");
  EXPECT_TRUE(cache->userPlaylistForPersistentId(0)->childPlaylistIds().empty());
  EXPECT_EQ(cache->playlistForPersistentId(4), nullptr);
  // Two counts of the player's playlists and nothing else: the synthetic playlists ask nothing.
  EXPECT_EQ(player.printed(),
            std::vector<std::string>(2, "'core'\\'cnte'{ 'kocl':type('cPly'), '----':null() }"));
}

TEST(PlaylistCacheEmptyTest, ThreadsAskingAtOnceWaitForOneFilling) {
  CleanControllerState clean;
  RecordingPlayer player;
  player.respondWith([](const ae::Descriptor& event, ae::Descriptor& reply) {
    if (!isCount(event)) return noErr;
    std::this_thread::sleep_for(std::chrono::milliseconds(20));  // a slow player
    return answerWith(reply, ae::Descriptor::makeSInt32(0));
  });
  std::vector<std::shared_ptr<CZPlaylistCache>> seen(4);
  std::vector<std::vector<int64_t>> ids(seen.size());
  std::vector<std::thread> threads;
  for (size_t i = 0; i < seen.size(); ++i) {
    threads.emplace_back([&, i] {
      seen[i] = CZPlaylistCache::sharedInstance();
      ids[i] = seen[i]->persistentIds();
    });
  }
  for (std::thread& t : threads)
    t.join();
  for (size_t i = 0; i < seen.size(); ++i) {
    EXPECT_EQ(seen[i], seen.front());
    EXPECT_EQ(ids[i], (std::vector<int64_t>{0, 1, 2, 3}));  // never a half-built tree
  }
  EXPECT_EQ(player.count(), 2u);
}

class PlaylistCacheTreeTest : public ::testing::Test {
 protected:
  CleanControllerState clean_;
  LogCapture log_;
};

// 8.1: the Genius playlist has a kind of its own, which no rule places.
TEST_F(PlaylistCacheTreeTest, BothTreesOfALibraryWithEveryKind) {
  auto player = startTreePlayer("8.1");
  ASSERT_NE(player, nullptr);
  const auto controller = Cadenza::sharedInstance();
  const auto root = controller->rootPlaylist();
  ASSERT_NE(root, nullptr);
  const auto cache = CZPlaylistCache::sharedInstance();
  EXPECT_EQ(root, cache->playlistForPersistentId(0));
  EXPECT_EQ(cache->persistentIds().size(), 20u);  // 16 of the player and the synthetic 0 to 3

  EXPECT_EQ(childNames(*cache, Tree::kWhole, 0),
            (Names{"Genius", "LIBRARY", "PLAYLISTS", "STORE"}));
  EXPECT_EQ(childNames(*cache, Tree::kWhole, 1),
            (Names{"Audiobooks", "Movies", "Music", "Podcasts", "TV Shows", "Videos"}));
  EXPECT_EQ(childNames(*cache, Tree::kWhole, 2), (Names{"Purchased Music"}));
  EXPECT_EQ(childNames(*cache, Tree::kWhole, 3),
            (Names{"alpha", "Library", "Party Shuffle", "Rock", "Zebra"}));
  EXPECT_EQ(childNames(*cache, Tree::kWhole, kRockPid), (Names{"Classics", "Deep"}));
  EXPECT_EQ(childNames(*cache, Tree::kWhole, kDeepPid), (Names{"Cuts"}));
  EXPECT_TRUE(childNames(*cache, Tree::kWhole, kCutsPid).empty());
  EXPECT_EQ(cache->playlistForPersistentId(kGeniusPid)->parentPlaylistId(), 0u);
  EXPECT_EQ(cache->playlistForPersistentId(kZebraPid)->parentPlaylistId(), 3u);

  const auto userRoot = controller->rootUserPlaylist();
  ASSERT_NE(userRoot, nullptr);
  EXPECT_NE(userRoot, root);
  EXPECT_EQ(userRoot->name(), "iTunes");
  EXPECT_EQ(cache->userPersistentIds(),
            (std::vector<int64_t>{kZebraPid, 0, kLibraryPid, kRockPid, kDeepPid, kCutsPid,
                                  kAlphaPid, kClassicsPid}));
  EXPECT_EQ(childNames(*cache, Tree::kUser, 0), (Names{"alpha", "Library", "Rock", "Zebra"}));
  EXPECT_EQ(childNames(*cache, Tree::kUser, kRockPid), (Names{"Classics", "Deep"}));
  EXPECT_EQ(childNames(*cache, Tree::kUser, kDeepPid), (Names{"Cuts"}));
  EXPECT_EQ(cache->userPlaylistForPersistentId(kZebraPid)->parentPlaylistId(), 0u);
  // Each tree has objects of its own for the same player playlist.
  EXPECT_NE(cache->userPlaylistForPersistentId(kRockPid), cache->playlistForPersistentId(kRockPid));

  // Reloading reads a new tree of new objects.
  const auto reloaded = controller->reloadRootPlaylist();
  ASSERT_NE(reloaded, nullptr);
  EXPECT_NE(reloaded, root);
  EXPECT_NE(CZPlaylistCache::sharedInstance(), cache);
  EXPECT_EQ(childNames(*CZPlaylistCache::sharedInstance(), Tree::kWhole, 0),
            (Names{"Genius", "LIBRARY", "PLAYLISTS", "STORE"}));
  EXPECT_TRUE(frameworkLines(log_).empty());
}

// Before 8.0 the Genius playlist is an ordinary one; the integer and the text forms of the
// persistent ID build the same trees.
TEST_F(PlaylistCacheTreeTest, TheSameTreesWhateverTheFormOfPersistentIds) {
  for (const char* version : {"6.0", "7.2", "7.2.1", "7.2.2", "7.3"}) {
    SCOPED_TRACE(version);
    CleanControllerState clean;
    auto player = startTreePlayer(version);
    ASSERT_NE(player, nullptr);
    const auto cache = CZPlaylistCache::sharedInstance();
    EXPECT_EQ(childNames(*cache, Tree::kWhole, 0), (Names{"LIBRARY", "PLAYLISTS", "STORE"}));
    EXPECT_EQ(childNames(*cache, Tree::kWhole, 3),
              (Names{"alpha", "Genius", "Library", "Party Shuffle", "Rock", "Zebra"}));
    EXPECT_EQ(childNames(*cache, Tree::kWhole, kRockPid), (Names{"Classics", "Deep"}));
    EXPECT_EQ(childNames(*cache, Tree::kUser, 0),
              (Names{"alpha", "Genius", "Library", "Rock", "Zebra"}));
    EXPECT_EQ(childNames(*cache, Tree::kUser, kDeepPid), (Names{"Cuts"}));
  }
}

// A player playlist whose persistent ID is one of the synthetic ones replaces it: it keeps the
// place (and, answered by its ID, the name) of that group and takes in what the group would
// have held; in the user tree it is an ordinary top-level playlist.
TEST_F(PlaylistCacheTreeTest, APlayerPlaylistWithASyntheticIdReplacesIt) {
  ScratchDirectory folder;
  std::string xml;
  {
    std::ifstream in(treeLibraryPath());
    xml.assign(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
  }
  const std::string record =
      "\t\t<dict><key>Name</key><string>Impostor</string>"
      "<key>Playlist ID</key><integer>2100</integer>"
      "<key>Playlist Persistent ID</key><string>0000000000000002</string>"
      "<key>Playlist Items</key><array/></dict>\n";
  xml.insert(xml.rfind("\t</array>"), record);
  const std::string path = folder.path() + "/library.xml";
  std::ofstream(path) << xml;

  auto player = startTreePlayer("7.7.1", path);
  ASSERT_NE(player, nullptr);
  const auto cache = CZPlaylistCache::sharedInstance();
  const auto impostor = cache->playlistForPersistentId(2);
  EXPECT_FALSE(impostor->descriptor().isNull());
  EXPECT_EQ(impostor->name(), "STORE");
  EXPECT_EQ(childNames(*cache, Tree::kWhole, 0), (Names{"LIBRARY", "PLAYLISTS", "STORE"}));
  EXPECT_EQ(childNames(*cache, Tree::kWhole, 2), (Names{"Purchased Music"}));
  EXPECT_FALSE(cache->userPlaylistForPersistentId(2)->descriptor().isNull());
  EXPECT_EQ(childNames(*cache, Tree::kUser, 0),
            (Names{"alpha", "Genius", "Library", "Rock", "STORE", "Zebra"}));
}

TEST_F(PlaylistCacheTreeTest, NamesCompareThroughTheSharedCache) {
  auto player = startTreePlayer("7.3");
  ASSERT_NE(player, nullptr);
  EXPECT_EQ(comparePlaylistName(kAlphaPid, kLibraryPid), -1);
  EXPECT_EQ(comparePlaylistName(kZebraPid, kAlphaPid), 1);
  EXPECT_EQ(comparePlaylistName(1, 1), 0);
  EXPECT_EQ(comparePlaylistName(3, 2), -1);  // "PLAYLISTS" before "STORE"
  // Missing on the left: equal to anything. Missing on the right only: after it.
  EXPECT_EQ(comparePlaylistName(0x7777, kAlphaPid), 0);
  EXPECT_EQ(comparePlaylistName(kAlphaPid, 0x7777), 1);
}

}  // namespace
}  // namespace rvitunes
