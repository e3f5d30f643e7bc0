// Loading the library file, the playlist index under the show flags, and track look-ups.

#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <vector>

#include "TestSupport.h"
#include "rvitunes/helper/RVITunesIcons.h"
#include "rvitunes/helper/RVITunesInfo.h"

namespace rvitunes {
namespace {

using plist::Value;
using namespace rvitunes::testing;

TEST(LibraryLoad, FailuresLeaveNoLibraryButSayWhy) {
  ScratchFolder scratch;
  for (const std::string& path :
       {scratch / "none.xml", scratch.write("cut.xml", "<plist><dict><key>a</key></plist>"),
        scratch.write("list.xml", "<plist><array/></plist>")}) {
    RVITunesInfo info(path);
    EXPECT_FALSE(info.library()) << path;
    EXPECT_TRUE(info.loadResult().error.has_value()) << path;
    EXPECT_EQ(info.playlistsWithFlags(kShowAllPlaylists), std::nullopt);
  }
  EXPECT_GT(RVITunesInfo(scratch / "cut.xml").loadResult().error->offset, 0u);
  EXPECT_FALSE(RVITunesInfo(std::nullopt).library());
}

TEST(LibraryLoad, RepairedDefectsAreReportedNotFatal) {
  ScratchFolder scratch;
  RVITunesInfo info(
      scratch.write("lib.xml",
                    "<plist version=\"1.0\"><dict><key>Tracks</key><dict><key>12</key><dict>"
                    "<key>Name</key><string>Salt & Pepper</string></dict></dict></dict></plist>"));
  ASSERT_TRUE(info.library());
  ASSERT_FALSE(info.loadResult().warnings.empty());
  EXPECT_GT(info.loadResult().warnings[0].offset, 0u);
  EXPECT_EQ(info.trackForTracks(num(12)).asDictionary()->get("Name").stringView(), "Salt & Pepper");
}

TEST(LibraryLoad, TheIconDictionaryIsLeftAsItStands) {
  RVITunesInfo first(std::nullopt);
  EXPECT_FALSE(RVITunesIcons());
  plist::Ref<plist::Dictionary> icons = plist::Dictionary::create();
  setRVITunesIcons(icons);
  RVITunesInfo second(std::nullopt);
  EXPECT_EQ(RVITunesIcons(), icons);
  setRVITunesIcons(nullptr);
}

// Every icon in the dictionary, each a fake image named after its key.
class ShowFlags : public ::testing::Test {
 protected:
  void SetUp() override {
    plist::Ref<plist::Dictionary> icons = plist::Dictionary::create();
    for (const char* kind : {"folder", "music", "books", "movies", "tv_shows", "itunes_dj",
                             "podcasts", "purchased", "smart_playlist", "genius", "playlist"}) {
      for (std::string name :
           {"Lumo_" + std::string(kind), "Lumo_" + std::string(kind) + "_dark"}) {
        icons->set(name, Value(plist::Ref<plist::Object>(plist::makeRef<FakeImage>(name))));
      }
    }
    setRVITunesIcons(icons);
  }
  void TearDown() override { setRVITunesIcons(nullptr); }

  static std::string iconOf(const Value& record, const char* key) {
    auto* image = dynamic_cast<FakeImage*>(record.asDictionary()->get(key).asObject());
    return image != nullptr ? image->name() : "";
  }
  // The icon `record` is kept with under `flags`, "" when it is dropped.
  static std::string keptAs(const Value& record, uint32_t flags) {
    std::optional<std::vector<Value>> kept =
        libraryWith(Value(), array({record}))->playlistsWithFlags(flags);
    EXPECT_TRUE(kept.has_value());
    return kept && !kept->empty() ? iconOf((*kept)[0], kPlaylistIconKey) : "";
  }
};

TEST_F(ShowFlags, EveryRuleOfTheMask) {
  const Value smart = Value::data(std::string_view("\x01\x00", 2));
  const Value genius = dict({{"All Items", yes()}, {"Name", str("Genius")}});
  const Value dj = dict({{"All Items", yes()}, {"Name", str("iTunes DJ")}});
  const Value plain = dict({{"Name", str("Road Trip")}});
  const struct {
    const char* what;
    Value record;
    uint32_t mask;
    const char* icon;
  } cases[] = {
      {"visible", dict({{"Master", yes()}, {"Visible", yes()}}), 0x1, ""},
      {"not visible", dict({{"Master", yes()}, {"Visible", no()}}), 0x1, "Lumo_folder"},
      {"visible as text", dict({{"Visible", str(" +007")}}), 0xFFFF, ""},
      {"hidden as text", dict({{"Visible", str("NO")}}), 0xFFFF, "Lumo_playlist"},
      {"kind false", dict({{"Music", no()}}), 0xFFFF, "Lumo_playlist"},
      {"kind as text", dict({{"Music", str("1")}}), 0xFFFF, "Lumo_playlist"},
      {"master decides", dict({{"Master", yes()}, {"Smart Info", smart}}), 0x100, ""},
      {"music decides", dict({{"Music", yes()}, {"Smart Info", smart}}), 0x1FF & ~0x2u, ""},
      {"movies first", dict({{"Audiobooks", yes()}, {"Movies", yes()}}), 0x4, ""},
      {"genius 0x1FF", genius, 0x1FF, ""},
      {"genius 0xFFFF", genius, 0xFFFF, "Lumo_genius"},
      {"smart genius", dict({{"All Items", yes()}, {"Name", str("Genius")}, {"Smart Info", smart}}),
       0x100, "Lumo_smart_playlist"},
      {"genius alone", dict({{"Name", str("Genius")}}), 0xFFFF, "Lumo_playlist"},
      {"dj 0x20", dj, 0x20, "Lumo_itunes_dj"},
      {"dj 0x100", dj, 0x100, "Lumo_itunes_dj"},
      {"dj 0xFFFF", dj, 0xFFFF, "Lumo_itunes_dj"},
      {"dj other bits", dj, 0xFF & ~0x20u, ""},
      {"dj alone", dict({{"Name", str("iTunes DJ")}}), 0x20, ""},
      {"smart", dict({{"Smart Info", smart}}), 0x100, "Lumo_smart_playlist"},
      {"smart no bit", dict({{"Smart Info", smart}}), 0xFF, ""},
      {"smart as text", dict({{"Smart Info", str("AQA=")}}), 0x100, ""},
      {"plain 0xFFFF", plain, 0xFFFF, "Lumo_playlist"},
      {"plain 0x1FF", plain, 0x1FF, ""},
      {"plain 0x1FFFF", plain, 0x1FFFF, ""},
      {"plain all ones", plain, 0xFFFFFFFF, ""},
  };
  for (const auto& c : cases)
    EXPECT_EQ(keptAs(c.record, c.mask), c.icon) << c.what;

  const struct {
    const char* key;
    uint32_t bit;
    const char* icon;
  } kinds[] = {{"Master", 0x1, "Lumo_folder"},      {"Music", 0x2, "Lumo_music"},
               {"Audiobooks", 0x4, "Lumo_books"},   {"Books", 0x4, "Lumo_books"},
               {"Movies", 0x8, "Lumo_movies"},      {"TV Shows", 0x10, "Lumo_tv_shows"},
               {"Podcasts", 0x40, "Lumo_podcasts"}, {"Purchased Music", 0x80, "Lumo_purchased"}};
  for (const auto& k : kinds) {
    Value record = dict({{k.key, yes()}});
    EXPECT_EQ(keptAs(record, k.bit), k.icon) << k.key;
    EXPECT_EQ(iconOf(record, kPlaylistIconDarkKey), std::string(k.icon) + "_dark") << k.key;
    EXPECT_EQ(keptAs(record, 0xFFFF), k.icon) << k.key;
    EXPECT_EQ(keptAs(dict({{k.key, yes()}}), 0x1FF & ~k.bit), "") << k.key;
  }
}

TEST_F(ShowFlags, TheFilesOwnRecordsInFileOrder) {
  Value a = dict({{"Name", str("a")}}), b = dict({{"Music", yes()}});
  auto info = libraryWith(Value(), array({a, str("no record"), dict({{"Visible", yes()}}), b}));
  std::optional<std::vector<Value>> kept = info->playlistsWithFlags(0xFFFF);
  ASSERT_EQ(kept->size(), 2u);
  EXPECT_EQ((*kept)[0].asDictionary(), a.asDictionary());
  EXPECT_EQ((*kept)[1].asDictionary(), b.asDictionary());
  EXPECT_EQ(info->playlistsWithFlags(0), std::vector<Value>{});  // a list, not nil

  for (Value playlists : {Value(), array({}), dict({})}) {
    EXPECT_EQ(libraryWith(Value(), playlists)->playlistsWithFlags(0xFFFF), std::nullopt);
  }
  EXPECT_EQ(RVITunesInfo::infoWithLibrary(nullptr)->playlistsWithFlags(0xFFFF), std::nullopt);
}

TEST_F(ShowFlags, AVisibleWithoutATruthValueSpoilsTheWholeAnswer) {
  Value first = dict({{"Name", str("first")}});
  auto info = libraryWith(Value(), array({first, dict({{"Visible", Value::date(Date())}})}));
  EXPECT_EQ(info->playlistsWithFlags(0xFFFF), std::nullopt);
  EXPECT_EQ(iconOf(first, kPlaylistIconKey), "Lumo_playlist");  // written before, kept
}

TEST_F(ShowFlags, MissingImagesLeaveTheRecordAsItIs) {
  Value music = dict({{"Music", yes()}});
  EXPECT_EQ(keptAs(music, kShowMusic), "Lumo_music");
  plist::Ref<plist::Dictionary> partial = plist::Dictionary::create();
  partial->set("Lumo_music", Value(plist::Ref<plist::Object>(plist::makeRef<FakeImage>("new"))));
  setRVITunesIcons(partial);
  EXPECT_EQ(keptAs(music, kShowMusic), "new");
  EXPECT_EQ(iconOf(music, kPlaylistIconDarkKey), "Lumo_music_dark");

  setRVITunesIcons(nullptr);
  Value movies = dict({{"Movies", yes()}});
  EXPECT_EQ(libraryWith(Value(), array({movies}))->playlistsWithFlags(kShowMovies)->size(), 1u);
  EXPECT_EQ(movies.asDictionary()->size(), 1u);
}

TEST(TrackLookup, TracksByDecimalTextAndPlaylistItems) {
  Value tracks = dict({{"12", dict({{"Track ID", num(12)}})},
                       {"14", dict({{"Track ID", num(14)}})},
                       {"1", dict({})},
                       {"18446744073709551615", dict({})}});
  auto info = libraryWith(tracks, Value());
  EXPECT_EQ(info->trackForTracks(num(12)).asDictionary(),
            tracks.asDictionary()->get("12").asDictionary());
  EXPECT_FALSE(info->trackForTracks(Value::real(12.0)).isNil());
  EXPECT_FALSE(info->trackForTracks(yes()).isNil());  // a true number reads "1"
  EXPECT_FALSE(info->trackForTracks(Value::unsignedInteger(UINT64_MAX)).isNil());
  for (Value id : {num(13), Value(), str("12")})
    EXPECT_TRUE(info->trackForTracks(id).isNil());
  EXPECT_TRUE(libraryWith(array({}), Value())->trackForTracks(num(12)).isNil());

  // Missing tracks are left out of the list but counted; duplicates stay.
  Value list = items({12, 99, 14, 12});
  list.asArray()->push_back(str("not an item"));
  Value playlist = dict({{"Playlist Items", list}});
  std::optional<std::vector<Value>> found = info->tracksForPlaylist(playlist);
  ASSERT_EQ(found->size(), 3u);
  EXPECT_EQ((*found)[1].asDictionary()->get("Track ID").longLongValue(), 14);
  EXPECT_EQ((*found)[2].asDictionary(), (*found)[0].asDictionary());
  EXPECT_EQ(info->trackCountForPlaylist(playlist), 5u);

  for (Value bad : {Value(), str("x"), dict({}), dict({{"Playlist Items", array({})}})}) {
    EXPECT_EQ(info->tracksForPlaylist(bad), std::nullopt);
    EXPECT_EQ(info->trackCountForPlaylist(bad), 0u);
  }
  Value odd = dict({{"Playlist Items", dict({{"a", num(12)}, {"b", num(14)}})}});
  EXPECT_EQ(info->tracksForPlaylist(odd), std::nullopt);
  EXPECT_EQ(info->trackCountForPlaylist(odd), 2u);
}

}  // namespace
}  // namespace rvitunes
