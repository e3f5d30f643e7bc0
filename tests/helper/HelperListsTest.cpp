// The main object's lists of display items, its raw views of the load and the track search.

#include <gtest/gtest.h>

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "rvitunes/helper/RVITunesHelper.h"
#include "rvitunes/helper/RVITunesIcons.h"
#include "rvitunes/helper/RVITunesInfo.h"
#include "rvitunes/helper/RVITunesPlaylist.h"
#include "rvitunes/helper/RVITunesTrackItem.h"
#include "rvitunes/plist/Array.h"

namespace rvitunes {
namespace {

using plist::Dictionary;
using plist::Ref;
using plist::Value;

Ref<Dictionary> playlist(std::optional<int64_t> id, const std::string& name,
                         std::vector<int64_t> trackIds = {}) {
  Ref<Dictionary> record = Dictionary::create();
  if (id) record->set("Playlist ID", Value::integer(*id));
  record->set("Name", Value::string(name));
  Ref<plist::Array> items = plist::Array::create();
  for (int64_t t : trackIds) {
    Ref<Dictionary> entry = Dictionary::create();
    entry->set("Track ID", Value::integer(t));
    items->push_back(Value(entry));
  }
  if (!trackIds.empty()) record->set("Playlist Items", Value(items));
  return record;
}

Ref<Dictionary> track(Value id, const std::string& name, const std::string& artist = "",
                      const std::string& album = "") {
  Ref<Dictionary> record = Dictionary::create();
  record->set("Track ID", id);
  record->set("Name", Value::string(name));
  if (!artist.empty()) record->set("Artist", Value::string(artist));
  if (!album.empty()) record->set("Album", Value::string(album));
  return record;
}

// A library with three playlists (the middle one without an ID) and, under string keys as in
// the file, tracks 5 and 7, a second record for 7 and one whose ID is text.
std::shared_ptr<RVITunesInfo> sampleInfo() {
  Ref<plist::Array> playlists = plist::Array::create();
  playlists->push_back(Value(playlist(10, "First", {7, 99, 5})));
  playlists->push_back(Value(playlist(std::nullopt, "Nameless")));
  playlists->push_back(Value(playlist(30, "Third", {5})));
  Ref<Dictionary> tracks = Dictionary::create();
  tracks->set("5", Value(track(Value::integer(5), "Five")));
  tracks->set("7", Value(track(Value::integer(7), "Seven, first")));
  tracks->set("8", Value(track(Value::integer(7), "Seven, again")));
  tracks->set("9", Value(track(Value::string("9"), "Nine")));
  Ref<Dictionary> library = Dictionary::create();
  library->set("Tracks", Value(tracks));
  library->set("Playlists", Value(playlists));
  return RVITunesInfo::infoWithLibrary(library);
}

// Restores the shared main object's load and lists when the test ends.
struct SharedHelperReset {
  ~SharedHelperReset() {
    auto shared = RVITunesHelper::sharediTunesHelper();
    shared->setItunesInfo(nullptr);
    shared->setShowFlags(0);
    shared->setPlaylistsArray({});
    shared->setTracksInfoDict({});
  }
};

TEST(HelperListsTest, PlaylistItemsGetConsecutiveSortValues) {
  setRVITunesIcons(nullptr);
  RVITunesHelper helper;
  int sender = 0;
  helper.setShowFlags(kShowAllPlaylists);
  helper.updateiTunesPlaylistsItem(&sender);  // no load yet
  EXPECT_TRUE(helper.playlistsItems().empty());

  helper.setItunesInfo(sampleInfo());
  helper.updateiTunesPlaylistsItem(nullptr);  // no sender
  EXPECT_TRUE(helper.playlistsItems().empty());

  helper.updateiTunesPlaylistsItem(&sender);
  ASSERT_EQ(helper.playlistsItems().size(), 2u);
  EXPECT_EQ(helper.playlistsItems()[0]->playlistName(), "First");
  EXPECT_EQ(helper.playlistsItems()[0]->sortID(), 0);
  EXPECT_EQ(helper.playlistsItems()[1]->playlistName(), "Third");
  EXPECT_EQ(helper.playlistsItems()[1]->sortID(), 1);  // the skipped record takes no value
  // The items share the tree's records.
  EXPECT_EQ(helper.playlistsItems()[0]->playlistInfo().get(),
            helper.itunesLibraryInfo()->get("Playlists").asArray()->at(0).asDictionary());

  // A mask that keeps nothing empties the list.
  helper.setShowFlags(kShowPodcasts);
  helper.updateiTunesPlaylistsItem(&sender);
  EXPECT_TRUE(helper.playlistsItems().empty());

  // When the index has no answer at all, the previous items stay.
  helper.setShowFlags(kShowAllPlaylists);
  helper.updateiTunesPlaylistsItem(&sender);
  Ref<Dictionary> bare = Dictionary::create();
  helper.setItunesInfo(RVITunesInfo::infoWithLibrary(bare));
  helper.updateiTunesPlaylistsItem(&sender);
  EXPECT_EQ(helper.playlistsItems().size(), 2u);
  EXPECT_FALSE(helper.refreshTunesPlaylists(&sender));
}

TEST(HelperListsTest, TrackItemsAndLookUpsOnTheSharedInstance) {
  SharedHelperReset reset;
  setRVITunesIcons(nullptr);
  auto shared = RVITunesHelper::sharediTunesHelper();
  shared->setItunesInfo(sampleInfo());
  shared->setShowFlags(kShowAllPlaylists);
  int sender = 0;
  shared->updateiTunesPlaylistsItem(&sender);
  Value tracks(shared->itunesTracksInfo());

  // The factory makes no items, so the classic refill leaves the list empty.
  shared->updateiTunesTracksItem(tracks);
  EXPECT_TRUE(shared->tracksItems().empty());
  shared->updateTrackItemsFromRecords(tracks);
  ASSERT_EQ(shared->tracksItems().size(), 2u);  // 5 and 7; the text ID is skipped
  EXPECT_EQ(shared->tracksItems().at(7)->trackName(), "Seven, again");  // the later record

  // Asked of another object, answered from the shared one.
  RVITunesHelper other;
  auto items = other.tracksItemsForPlaylistID(10);
  ASSERT_TRUE(items.has_value());
  ASSERT_EQ(items->size(), 2u);  // 7 and 5 in the playlist's order; 99 has no item
  EXPECT_EQ((*items)[0]->trackId(), 7);
  EXPECT_EQ((*items)[1]->trackId(), 5);
  EXPECT_EQ(other.tracksItemsForPlaylistID(0), std::nullopt);
  EXPECT_EQ(other.tracksItemsForPlaylistID(77), std::nullopt);

  EXPECT_EQ(other.trackItemForTrackID(5), shared->tracksItems().at(5));
  EXPECT_EQ(other.trackItemForTrackID(0), nullptr);
  EXPECT_EQ(other.trackItemForTrackID(-7), nullptr);
  EXPECT_EQ(other.trackItemForTrackID(6), nullptr);
}

// A load whose "Tracks" are keyed by the numbers `keys` holds.
std::shared_ptr<RVITunesInfo> searchInfo(const std::vector<Value>& keys) {
  Ref<Dictionary> tracks = Dictionary::create();
  tracks->set(keys[0], Value(track(Value::integer(1), "Beatles Song", "Quartet")));
  tracks->set(keys[1], Value(track(Value::integer(2), "Halo", "Beyoncé")));
  tracks->set(keys[2], Value(track(Value::integer(3), "Dessert", "Chef", "Crème Brûlée")));
  tracks->set(keys[3], Value(track(Value::integer(4), "Beat It", "BEAT Band", "Beat")));
  Ref<Dictionary> library = Dictionary::create();
  library->set("Tracks", Value(tracks));
  return RVITunesInfo::infoWithLibrary(library);
}

std::vector<int64_t> numbersOf(const std::optional<std::vector<Value>>& keys) {
  std::vector<int64_t> out;
  if (keys) {
    for (const Value& key : *keys)
      out.push_back(key.longLongValue());
  }
  return out;
}

TEST(HelperListsTest, SearchMatchesNameArtistOrAlbumIgnoringCaseAndAccents) {
  RVITunesHelper helper;
  EXPECT_EQ(helper.searchForTrackNumbersByString("beat"), std::nullopt);  // no load
  helper.setItunesInfo(searchInfo(
      {Value::integer(101), Value::integer(102), Value::integer(103), Value::integer(104)}));
  // Each matching record once, in the dictionary's order.
  EXPECT_EQ(numbersOf(helper.searchForTrackNumbersByString("BEAT")),
            (std::vector<int64_t>{101, 104}));
  EXPECT_EQ(numbersOf(helper.searchForTrackNumbersByString("beyonce")),
            (std::vector<int64_t>{102}));
  EXPECT_EQ(numbersOf(helper.searchForTrackNumbersByString("CREME BRU")),
            (std::vector<int64_t>{103}));
  EXPECT_EQ(numbersOf(helper.searchForTrackNumbersByString("crème")), (std::vector<int64_t>{103}));
  EXPECT_EQ(helper.searchForTrackNumbersByString("nothing like it"), std::nullopt);
  EXPECT_EQ(helper.searchForTrackNumbersByString(""), std::nullopt);

  // Keys as the file has them: the number-key search skips them all, the other finds them.
  helper.setItunesInfo(searchInfo(
      {Value::string("101"), Value::string("102"), Value::string("103"), Value::string("104")}));
  EXPECT_EQ(helper.searchForTrackNumbersByString("beat"), std::nullopt);
  auto keys = helper.searchTrackKeysByString("beat");
  ASSERT_TRUE(keys.has_value());
  ASSERT_EQ(keys->size(), 2u);
  EXPECT_EQ((*keys)[0].stringView(), "101");
  EXPECT_EQ((*keys)[1].stringView(), "104");
}

}  // namespace
}  // namespace rvitunes
