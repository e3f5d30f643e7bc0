// Which icon pair a playlist record is shown with, and how the pair is written into it.

#include <gtest/gtest.h>

#include <memory>

#include "TestSupport.h"
#include "rvitunes/helper/IconImage.h"
#include "rvitunes/helper/PlaylistIconChoice.h"
#include "rvitunes/helper/RVITunesInfo.h"

namespace rvitunes {
namespace {

using testing::dict;
using testing::no;
using testing::num;
using testing::str;
using testing::yes;

std::string_view choiceFor(const plist::Value& record) {
  return choosePlaylistIconBase(*record.asDictionary());
}

TEST(IconChoiceTest, AMarkCountsByItsTypeNotItsValue) {
  const std::pair<std::string_view, std::string_view> marks[] = {
      {"Master", "folder"},     {"Music", "music"},
      {"Movies", "movies"},     {"TV Shows", "tv-shows"},
      {"Audiobooks", "books"},  {"Books", "books"},
      {"Podcasts", "podcasts"}, {"Purchased Music", "purchased"}};
  for (const auto& [key, base] : marks) {
    SCOPED_TRACE(key);
    EXPECT_EQ(choiceFor(dict({{key, no()}})), base);
    EXPECT_EQ(choiceFor(dict({{key, num(7)}})), base);
    EXPECT_EQ(choiceFor(dict({{key, plist::Value::real(0.0)}})), base);
    // Text is not a number, however true it reads.
    EXPECT_EQ(choiceFor(dict({{key, str("true")}})), "playlist");
  }
}

TEST(IconChoiceTest, TheFirstMarkInOrderWins) {
  // A library playlist marked false still beats a true "Music".
  EXPECT_EQ(choiceFor(dict({{"Music", yes()}, {"Master", no()}})), "folder");
  EXPECT_EQ(choiceFor(dict({{"Books", yes()}, {"TV Shows", no()}})), "tv-shows");
  EXPECT_EQ(choiceFor(dict({{"Smart Info", plist::Value::data("x")}, {"Podcasts", yes()}})),
            "podcasts");
  EXPECT_EQ(choiceFor(dict({{"All Items", yes()},
                            {"Name", str("Genius")},
                            {"Smart Info", plist::Value::data("x")}})),
            "smart-playlist");
}

TEST(IconChoiceTest, SmartInfoMustBeData) {
  EXPECT_EQ(choiceFor(dict({{"Smart Info", plist::Value::data("rules")}})), "smart-playlist");
  EXPECT_EQ(choiceFor(dict({{"Smart Info", str("rules")}})), "playlist");
  EXPECT_EQ(choiceFor(dict({{"Smart Info", plist::Value()}})), "playlist");
}

TEST(IconChoiceTest, AllItemsPicksGeniusAndDjByTheExactName) {
  EXPECT_EQ(choiceFor(dict({{"All Items", no()}, {"Name", str("Genius")}})), "genius");
  EXPECT_EQ(choiceFor(dict({{"All Items", yes()}, {"Name", str("iTunes DJ")}})), "itunes-dj");
  EXPECT_EQ(choiceFor(dict({{"All Items", yes()}, {"Name", str("genius")}})), "playlist");
  EXPECT_EQ(choiceFor(dict({{"All Items", yes()}, {"Name", str("iTunes DJ ")}})), "playlist");
  EXPECT_EQ(choiceFor(dict({{"All Items", yes()}, {"Name", str("Party")}})), "playlist");
  EXPECT_EQ(choiceFor(dict({{"All Items", yes()}})), "playlist");
  EXPECT_EQ(choiceFor(dict({{"All Items", yes()}, {"Name", num(1)}})), "playlist");
  // The name alone, or "All Items" that is not a number, chooses nothing.
  EXPECT_EQ(choiceFor(dict({{"Name", str("Genius")}})), "playlist");
  EXPECT_EQ(choiceFor(dict({{"All Items", str("1")}, {"Name", str("Genius")}})), "playlist");
  EXPECT_EQ(choiceFor(dict({})), "playlist");
}

// An icon dictionary of small images under the given keys.
plist::Ref<plist::Dictionary> iconsWith(std::initializer_list<std::string_view> keys) {
  plist::Ref<plist::Dictionary> icons = plist::Dictionary::create();
  for (std::string_view key : keys) {
    icons->set(key, IconImage::makeValue(std::make_shared<const image::Image>(2, 2), "mem"));
  }
  return icons;
}

TEST(IconChoiceTest, WritesThePairIntoTheRecordAndAnswersIt) {
  plist::Ref<plist::Dictionary> icons =
      iconsWith({"Lumo_music", "Lumo_music_dark", "Lumo_playlist"});
  plist::Value record = dict({{"Music", yes()}});
  AssignedPlaylistIcons got = assignPlaylistIcons(icons.get(), record.asDictionary());
  ASSERT_TRUE(got.normal);
  ASSERT_TRUE(got.dark);
  EXPECT_EQ(got.normal.get(), asIconImage(*icons->find("Lumo_music")));
  EXPECT_EQ(got.dark.get(), asIconImage(*icons->find("Lumo_music_dark")));
  EXPECT_EQ(asIconImage(*record.asDictionary()->find(kPlaylistIconKey)), got.normal.get());
  EXPECT_EQ(asIconImage(*record.asDictionary()->find(kPlaylistIconDarkKey)), got.dark.get());
}

TEST(IconChoiceTest, EachHalfOfThePairIsSetOnItsOwn) {
  plist::Ref<plist::Dictionary> icons = iconsWith({"Lumo_music"});
  plist::Value record = dict({{"Music", yes()}});
  AssignedPlaylistIcons got = assignPlaylistIcons(icons.get(), record.asDictionary());
  EXPECT_TRUE(got.normal);
  EXPECT_FALSE(got.dark);
  EXPECT_TRUE(record.asDictionary()->contains(kPlaylistIconKey));
  EXPECT_FALSE(record.asDictionary()->contains(kPlaylistIconDarkKey));

  icons = iconsWith({"Lumo_music_dark"});
  record = dict({{"Music", yes()}, {kPlaylistIconKey, str("left alone")}});
  got = assignPlaylistIcons(icons.get(), record.asDictionary());
  EXPECT_FALSE(got.normal);
  EXPECT_TRUE(got.dark);
  EXPECT_EQ(record.asDictionary()->find(kPlaylistIconKey)->stringView(), "left alone");
}

TEST(IconChoiceTest, EntriesThatAreNotImagesChangeNothing) {
  plist::Ref<plist::Dictionary> icons = plist::Dictionary::create();
  icons->set("Lumo_folder", str("not an image"));
  icons->set("Lumo_folder_dark",
             plist::Value(plist::Ref<plist::Object>(plist::makeRef<testing::FakeImage>("x"))));
  plist::Value record = dict({{"Master", yes()}, {kPlaylistIconDarkKey, num(1)}});
  AssignedPlaylistIcons got = assignPlaylistIcons(icons.get(), record.asDictionary());
  EXPECT_FALSE(got.normal);
  EXPECT_FALSE(got.dark);
  EXPECT_FALSE(record.asDictionary()->contains(kPlaylistIconKey));
  EXPECT_EQ(record.asDictionary()->find(kPlaylistIconDarkKey)->longLongValue(), 1);
}

TEST(IconChoiceTest, NoDictionaryOrNoRecordDoesNothing) {
  plist::Value record = dict({{"Music", yes()}});
  AssignedPlaylistIcons got = assignPlaylistIcons(nullptr, record.asDictionary());
  EXPECT_FALSE(got.normal);
  EXPECT_EQ(record.asDictionary()->size(), 1u);
  plist::Ref<plist::Dictionary> icons = iconsWith({"Lumo_music"});
  got = assignPlaylistIcons(icons.get(), nullptr);
  EXPECT_FALSE(got.normal);
  // An empty dictionary (a fill that found nothing) leaves the record as it was.
  plist::Ref<plist::Dictionary> empty = plist::Dictionary::create();
  assignPlaylistIcons(empty.get(), record.asDictionary());
  EXPECT_EQ(record.asDictionary()->size(), 1u);
}

}  // namespace
}  // namespace rvitunes
