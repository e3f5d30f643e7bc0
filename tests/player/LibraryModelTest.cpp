#include <gtest/gtest.h>

#include <set>

#include "PlayerTestSupport.h"
#include "rvitunes/player/Library.h"
#include "rvitunes/player/PersistentIdText.h"
#include "rvitunes/plist/Array.h"
#include "rvitunes/plist/Dictionary.h"
#include "rvitunes/plist/PropertyList.h"

namespace rvitunes::player {
namespace {

using testing::sampleLibraryPath;

class SampleLibraryTest : public ::testing::Test {
 protected:
  void SetUp() override { ASSERT_TRUE(library_.load(sampleLibraryPath()).ok()); }

  const Playlist& named(std::string_view name) {
    for (const auto& playlist : library_.playlists()) {
      if (playlist->name() == name) return *playlist;
    }
    ADD_FAILURE() << "no playlist " << name;
    return library_.libraryPlaylist();
  }

  Library library_;
};

TEST_F(SampleLibraryTest, CountsAndFileOrder) {
  EXPECT_EQ(library_.tracks().size(), 30u);
  ASSERT_EQ(library_.playlists().size(), 21u);
  EXPECT_EQ(library_.playlists()[0]->name(), "Library");
  EXPECT_EQ(library_.playlists()[20]->name(), "Top 25 Most Played");
  EXPECT_EQ(library_.libraryPlaylist().id(), 2916);
  EXPECT_EQ(library_.libraryPlaylist().trackIds().size(), 30u);
  EXPECT_EQ(library_.tracks().front()->id(), 2582);
  EXPECT_EQ(named("Purchased Music").trackIds().size(), 11u);
}

TEST_F(SampleLibraryTest, SpecialKindsAndClasses) {
  const struct {
    const char* name;
    OSType kind;
    OSType classCode;
  } expected[] = {
      {"Library", kSpecialNone, kClassLibraryPlaylist},
      {"Music", kSpecialMusic, kClassUserPlaylist},
      {"Movies", kSpecialMovies, kClassUserPlaylist},
      {"TV Shows", kSpecialTvShows, kClassUserPlaylist},
      {"Podcasts", kSpecialPodcasts, kClassUserPlaylist},
      {"Audiobooks", kSpecialAudiobooks, kClassUserPlaylist},
      {"Purchased Music", kSpecialPurchasedMusic, kClassUserPlaylist},
      {"Genius", kSpecialNone, kClassUserPlaylist},  // 7.x has no Genius kind
      {"Years", kSpecialFolder, kClassFolderPlaylist},
      {"Never Played", kSpecialNone, kClassUserPlaylist},
      {"Focus", kSpecialNone, kClassUserPlaylist},
  };
  for (const auto& row : expected) {
    SCOPED_TRACE(row.name);
    const Playlist& playlist = named(row.name);
    EXPECT_EQ(playlist.specialKind(), row.kind);
    EXPECT_EQ(playlist.classCode(), row.classCode);
  }
  EXPECT_TRUE(named("Never Played").isSmart());
  EXPECT_FALSE(named("Focus").isSmart());
  EXPECT_FALSE(library_.libraryPlaylist().isVisible());

  Library later(*PlayerVersion::parse("8.0"));
  ASSERT_TRUE(later.load(sampleLibraryPath()).ok());
  for (const auto& playlist : later.playlists()) {
    if (playlist->name() == "Genius") {
      EXPECT_EQ(playlist->specialKind(), kSpecialGenius);
    }
  }
}

TEST_F(SampleLibraryTest, ElementsOfTheApplicationByClass) {
  EXPECT_EQ(library_.playlistsOfClass(kClassPlaylist).size(), 21u);
  ASSERT_EQ(library_.playlistsOfClass(kClassLibraryPlaylist).size(), 1u);
  EXPECT_EQ(library_.playlistsOfClass(kClassLibraryPlaylist)[0]->name(), "Library");
  // Every other playlist is a user playlist; the folder is one too.
  EXPECT_EQ(library_.playlistsOfClass(kClassUserPlaylist).size(), 20u);
  EXPECT_EQ(library_.playlistsOfClass(kClassFolderPlaylist).size(), 1u);
  EXPECT_EQ(library_.playlistsOfClass(kClassTrack).size(), 0u);
  EXPECT_EQ(library_.tracksOf(library_.libraryPlaylist(), kClassFileTrack).size(), 30u);
  EXPECT_EQ(library_.tracksOf(library_.libraryPlaylist(), kClassUrlTrack).size(), 0u);
  EXPECT_EQ(library_.indexOf(named("Music")), 2);
}

TEST_F(SampleLibraryTest, FoldersParentsAndPersistentIds) {
  const Playlist& years = named("Years");
  EXPECT_EQ(years.persistentId(), 0x823209B52CB52C32u);
  const std::set<std::string> children = [&] {
    std::set<std::string> names;
    for (PersistentId id : years.childPersistentIds()) {
      names.insert(library_.playlistByPersistentId(id)->name());
    }
    return names;
  }();
  EXPECT_EQ(children, (std::set<std::string>{"Chill 2009", "Night", "Bear", "Classics",
                                             "日本のうた 2008", "Jazz Club"}));
  EXPECT_EQ(library_.parentOf(named("Night")), &years);
  EXPECT_EQ(library_.parentOf(years), nullptr);
  EXPECT_EQ(library_.parentOf(named("Focus")), nullptr);

  const Track* track = library_.trackByPersistentId(0x12BD4ACEFAECBD38u);
  ASSERT_NE(track, nullptr);
  EXPECT_EQ(track->id(), 2582);
  EXPECT_EQ(library_.trackById(2582), track);
  EXPECT_EQ(library_.trackById(1), nullptr);
  EXPECT_EQ(library_.playlistById(2944)->persistentId(), 0x3BDC2EFDB980EA1Eu);
  // The source takes an ID nobody else has.
  EXPECT_EQ(library_.trackById(library_.source().id), nullptr);
  EXPECT_EQ(library_.playlistById(library_.source().id), nullptr);
}

TEST(PersistentIdTextTest, FormatsAndParses) {
  EXPECT_EQ(formatPersistentId(0xABCDE), "00000000000ABCDE");
  EXPECT_EQ(formatPersistentId(~0ULL), "FFFFFFFFFFFFFFFF");
  EXPECT_EQ(parsePersistentId("12bd4aceFAECBD38"), 0x12BD4ACEFAECBD38u);
  EXPECT_FALSE(parsePersistentId("").has_value());
  EXPECT_FALSE(parsePersistentId("12345678901234567").has_value());
  EXPECT_FALSE(parsePersistentId("0x12").has_value());
}

TEST(LibraryLoadingTest, ReportsUnreadableFilesAndFillsGaps) {
  testing::ScratchFolder folder;
  Library broken;
  const Status status = broken.load(folder.write("broken.xml", "<plist><dict><key>"));
  EXPECT_EQ(status.code(), ioErr);

  // A file without a library playlist gets one holding every track; tracks without a
  // persistent ID get distinct new ones.
  plist::Ref<plist::Dictionary> root = plist::Dictionary::create();
  plist::Ref<plist::Dictionary> tracks = plist::Dictionary::create();
  for (int id : {7, 9}) {
    plist::Ref<plist::Dictionary> record = plist::Dictionary::create();
    record->set("Track ID", plist::Value::integer(id));
    record->set("Name", plist::Value::string("t" + std::to_string(id)));
    tracks->set(std::to_string(id), plist::Value(record));
  }
  root->set("Tracks", plist::Value(tracks));
  Library library;
  ASSERT_TRUE(library.loadTree(plist::Value(root), "").ok());
  ASSERT_EQ(library.playlists().size(), 1u);
  EXPECT_TRUE(library.libraryPlaylist().isLibrary());
  EXPECT_EQ(library.libraryPlaylist().trackIds(), (std::vector<DatabaseId>{7, 9}));
  EXPECT_NE(library.trackById(7)->persistentId(), library.trackById(9)->persistentId());
  EXPECT_FALSE(library.loadTree(plist::Value(root), "").ok());  // loads once only
}

TEST(LibraryLoadingTest, GeneratedLibrary) {
  testing::ScratchFolder folder;
  const std::string path = testing::generateLibrary(folder, 300, 40);
  if (path.empty()) GTEST_SKIP() << "library generator not available";
  Library library;
  ASSERT_TRUE(library.load(path).ok());
  EXPECT_EQ(library.tracks().size(), 300u);
  EXPECT_EQ(library.playlists().size(), 40u);

  // Cross-check against the file itself: kinds from flags, parents, persistent IDs.
  plist::ParseResult parsed = plist::PropertyList::readFile(path);
  ASSERT_TRUE(parsed.ok());
  const plist::Array& records = *parsed.root.asDictionary()->find("Playlists")->asArray();
  ASSERT_EQ(records.size(), library.playlists().size());
  std::set<PersistentId> ids;
  for (size_t i = 0; i < records.size(); ++i) {
    const plist::Dictionary& record = *records[i].asDictionary();
    const Playlist& playlist = *library.playlists()[i];
    SCOPED_TRACE(playlist.name());
    EXPECT_EQ(formatPersistentId(playlist.persistentId()),
              record.find("Playlist Persistent ID")->stringView());
    ids.insert(playlist.persistentId());
    if (record.contains("Folder")) {
      EXPECT_EQ(playlist.specialKind(), kSpecialFolder);
    }
    if (record.contains("Music")) {
      EXPECT_EQ(playlist.specialKind(), kSpecialMusic);
    }
    if (record.contains("Podcasts")) {
      EXPECT_EQ(playlist.specialKind(), kSpecialPodcasts);
    }
    if (const plist::Value* parent = record.find("Parent Persistent ID")) {
      ASSERT_NE(library.parentOf(playlist), nullptr);
      EXPECT_EQ(formatPersistentId(library.parentOf(playlist)->persistentId()),
                parent->stringView());
      EXPECT_TRUE(library.parentOf(playlist)->isFolder());
    } else {
      EXPECT_EQ(library.parentOf(playlist), nullptr);
    }
  }
  EXPECT_EQ(ids.size(), records.size());
}

}  // namespace
}  // namespace rvitunes::player
