// Merging a newer load into an older one, and the readings of text it relies on.

#include <gtest/gtest.h>

#include <climits>
#include <string>
#include <vector>

#include "TestSupport.h"
#include "helper/FoundationText.h"
#include "rvitunes/helper/RVITunesInfo.h"

namespace rvitunes {
namespace {

using plist::Value;
using namespace rvitunes::testing;
using Names = std::vector<std::string>;

TEST(FoundationText, IntegerAndTruthValues) {
  const std::pair<const char*, int32_t> ints[] = {{"0012", 12},
                                                  {" \t\n12", 12},
                                                  {"+12", 12},
                                                  {"-12", -12},
                                                  {"12abc", 12},
                                                  {"abc", 0},
                                                  {"", 0},
                                                  {"- 5", 0},
                                                  {"2147483648", INT_MAX},
                                                  {"-2147483648", INT_MIN},
                                                  {"-2147483649", INT_MIN},
                                                  {"99999999999999999999", INT_MAX}};
  for (const auto& [text, value] : ints)
    EXPECT_EQ(helper::textIntValue(text), value) << text;
  EXPECT_EQ(helper::keyIntValue(num(0x100000005LL)), 5);  // numbers wrap to 32 bits

  for (const char* t : {"YES", "y", "true", "T", "9", "007", "  +1", "-3"}) {
    EXPECT_TRUE(helper::textBoolValue(t)) << t;
  }
  for (const char* t : {"NO", "false", "0", "000", "", "x", "-0", "+"}) {
    EXPECT_FALSE(helper::textBoolValue(t)) << t;
  }
}

Value track(std::string_view name) {
  return dict({{"Name", str(name)}});
}
Value playlist(std::string_view pid, std::string_view name) {
  return dict({{"Playlist Persistent ID", str(pid)}, {"Name", str(name)}});
}
Names keysOf(const Value& tracks) {
  Names keys;
  for (const auto& entry : *tracks.asDictionary())
    keys.emplace_back(entry.key.stringView());
  return keys;
}
Names namesOf(const Value& playlists) {
  Names names;
  for (const Value& p : *playlists.asArray())
    names.emplace_back(p.asDictionary()->get("Name").stringView());
  return names;
}

TEST(LibraryMerge, TracksAreKnownByTheIntegerValueOfTheirKeys) {
  Value oldTracks = dict({{"12", track("old twelve")}, {"20", track("only old")}});
  Value newTracks = dict({{"0012", track("new twelve")},
                          {" 20", track("new twenty")},
                          {"13", track("thirteen")},
                          {"14", track("fourteen")},
                          {"014", track("fourteen again")}});
  libraryWith(oldTracks, array({}))->updateListLibrary(libraryWith(newTracks, array({})));
  EXPECT_EQ(keysOf(oldTracks), (Names{"12", "20", "13", "14"}));
  EXPECT_EQ(oldTracks.asDictionary()->get("12").asDictionary()->get("Name").stringView(),
            "old twelve");  // known tracks keep their old record
  EXPECT_EQ(oldTracks.asDictionary()->get("13").asDictionary(),
            newTracks.asDictionary()->get("13").asDictionary());  // new ones are shared

  // Many more new keys than old ones, and the extremes of the 32-bit range.
  Value few = dict({{"-2147483648", track("min")}});
  Value many = dict({{"-99999999999", track("min again")}, {"2147483647", track("max")}});
  for (int i = 0; i < 200; ++i)
    many.asDictionary()->set(std::to_string(i), track("n"));
  libraryWith(few, array({}))->updateListLibrary(libraryWith(many, array({})));
  EXPECT_EQ(few.asDictionary()->size(), 202u);
}

TEST(LibraryMerge, PlaylistsAreKnownByPersistentIdentifier) {
  Value oldLists = array({playlist("00000000000000AA", "A"), dict({{"Name", str("no id")}}),
                          dict({{"Playlist Persistent ID", num(7)}, {"Name", str("seven")}})});
  Value fresh = playlist("00000000000000BB", "B");
  libraryWith(dict({}), oldLists)
      ->updateListLibrary(libraryWith(
          dict({}),
          array({playlist("00000000000000AA", "A renamed"), str("skipped"), fresh,
                 dict({{"Name", str("anonymous")}}), playlist("00000000000000bb", "b"),
                 playlist("00000000000000BB", "B twice"), playlist("07", "text 07"),
                 dict({{"Playlist Persistent ID", num(7)}, {"Name", str("number 7")}})})));
  EXPECT_EQ(namesOf(oldLists), (Names{"A", "no id", "seven", "B", "b", "text 07"}));
  EXPECT_EQ(oldLists.asArray()->at(3).asDictionary(), fresh.asDictionary());
}

TEST(LibraryMerge, ARecordWithoutIdentifierIsAddedOnlyToAListWithoutRecords) {
  Value empty = array({str("not a record")});
  libraryWith(dict({}), empty)
      ->updateListLibrary(libraryWith(
          dict({}), array({dict({{"Name", str("first")}}), dict({{"Name", str("second")}})})));
  ASSERT_EQ(empty.asArray()->size(), 2u);
  EXPECT_EQ(empty.asArray()->at(1).asDictionary()->get("Name").stringView(), "first");
}

TEST(LibraryMerge, NothingHappensUnlessBothSidesHaveTheirContainers) {
  Value oldTracks = dict({{"1", track("one")}});
  Value oldLists = array({playlist("01", "one")});
  auto older = libraryWith(oldTracks, oldLists);
  Value newLists = array({playlist("02", "two")});
  older->updateListLibrary(nullptr);
  older->updateListLibrary(RVITunesInfo::infoWithLibrary(nullptr));
  older->updateListLibrary(libraryWith(Value(), newLists));    // no "Tracks": stops early
  older->updateListLibrary(libraryWith(array({}), newLists));  // "Tracks" of the wrong kind
  older->updateListLibrary(libraryWith(dict({{"2", track("two")}}), dict({})));
  EXPECT_EQ(keysOf(oldTracks), (Names{"1", "2"}));
  EXPECT_EQ(namesOf(oldLists), Names{"one"});

  auto noList = libraryWith(dict({}), Value());
  noList->updateListLibrary(libraryWith(dict({}), newLists));
  EXPECT_FALSE(noList->library()->contains("Playlists"));
}

TEST(LibraryMerge, MergingALibraryIntoItselfOrASecondLoadChangesNothing) {
  Value tracks = dict({{"1", track("one")}, {"01", track("one again")}});
  Value lists = array({playlist("01", "one"),
                       dict({{"Playlist Persistent ID", Value::data(std::string_view("x"))}})});
  auto info = libraryWith(tracks, lists);
  info->updateListLibrary(info);
  EXPECT_EQ(tracks.asDictionary()->size(), 2u);
  EXPECT_EQ(lists.asArray()->size(), 2u);

  ScratchFolder scratch;
  std::string path = scratch.write(
      "lib.xml",
      "<plist version=\"1.0\"><dict><key>Tracks</key><dict><key>5</key><dict/></dict>"
      "<key>Playlists</key><array><dict><key>Playlist Persistent ID</key><string>0A</string>"
      "</dict><dict><key>Data ID</key><data>AQ==</data><key>Playlist Persistent ID</key>"
      "<data>AQ==</data></dict></array></dict></plist>");
  auto older = std::make_shared<RVITunesInfo>(path);
  older->updateListLibrary(std::make_shared<RVITunesInfo>(path));
  EXPECT_EQ(older->library()->get("Tracks").asDictionary()->size(), 1u);
  EXPECT_EQ(older->library()->get("Playlists").asArray()->size(), 2u);
}

}  // namespace
}  // namespace rvitunes
