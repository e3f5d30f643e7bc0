// The playlist item: what it reads from its record, the icon pair it picks, and its binding to
// the live playlist of a reference player running in this process.

#include "rvitunes/helper/RVITunesPlaylist.h"

#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <string>
#include <vector>

#include "rvitunes/cadenza/CZPlaylist.h"
#include "rvitunes/cadenza/CZPlaylistCache.h"
#include "rvitunes/cadenza/CZTrack.h"
#include "rvitunes/cadenza/Cadenza.h"
#include "rvitunes/helper/IconImage.h"
#include "rvitunes/helper/RVITunesIcons.h"
#include "rvitunes/helper/RVITunesInfo.h"
#include "rvitunes/image/Image.h"
#include "rvitunes/player/PlayerServer.h"
#include "rvitunes/plist/Array.h"

namespace rvitunes {
namespace {

using plist::Dictionary;
using plist::Ref;
using plist::Value;

Value trackEntry(Value id) {
  Ref<Dictionary> entry = Dictionary::create();
  entry->set("Track ID", id);
  return Value(entry);
}

Value iconValue(uint8_t shade) {
  return IconImage::makeValue(
      std::make_shared<image::Image>(2, 2, image::Rgba{shade, shade, shade, 255}));
}

// An icon dictionary of our own for the life of the object.
class ScopedIcons {
 public:
  explicit ScopedIcons(std::initializer_list<const char*> names) : icons_(Dictionary::create()) {
    uint8_t shade = 10;
    for (const char* name : names)
      icons_->set(name, iconValue(shade++));
    setRVITunesIcons(icons_);
  }
  ~ScopedIcons() { setRVITunesIcons(nullptr); }
  ScopedIcons(const ScopedIcons&) = delete;
  ScopedIcons& operator=(const ScopedIcons&) = delete;
  Value operator[](const char* name) const { return icons_->get(name); }

 private:
  Ref<Dictionary> icons_;
};

TEST(RVITunesPlaylistTest, ReadsItsRecordAndSharesIt) {
  setRVITunesIcons(nullptr);
  Ref<plist::Array> items = plist::Array::create();
  for (Value id : {Value::integer(5), Value::integer(7), Value::integer(5), Value::real(7.0),
                   Value::string("9")})
    items->push_back(trackEntry(id));
  items->push_back(Value::newDictionary());  // no "Track ID"
  Ref<Dictionary> record = Dictionary::create();
  record->set("Name", Value::string("Road Trip"));
  record->set("Master", Value::boolean(true));
  record->set("Music", Value::boolean(false));
  record->set("Playlist ID", Value::integer(42));
  record->set("Visible", Value::integer(0));
  record->set("Playlist Persistent ID", Value::string("227EE409289B8BA9"));  // as in the file
  record->set("Playlist Items", Value(items));

  auto item = RVITunesPlaylist::itemWithPlaylistInfoSort(record, 3);
  ASSERT_NE(item, nullptr);
  EXPECT_EQ(item->playlistId(), 42);
  EXPECT_EQ(item->libPersistentId(), 0);
  EXPECT_EQ(item->playlistName(), "Road Trip");
  EXPECT_EQ(item->sortID(), 3);
  EXPECT_EQ(item->showFlags(), 1u);
  // Integers count as true keys beside the flags; a false flag and a zero do not.
  EXPECT_EQ(item->strTrueKeys(), (std::vector<std::string>{"Master", "Playlist ID"}));
  // Track IDs once each, by numeric value, in first-occurrence order.
  const Dictionary& tarcks = *item->tarcks();
  ASSERT_EQ(tarcks.size(), 2u);
  EXPECT_EQ(tarcks.entryAt(0).key.longLongValue(), 5);
  EXPECT_EQ(tarcks.entryAt(1).key.longLongValue(), 7);
  EXPECT_EQ(tarcks.entryAt(1).value.stringView(), "Track ID");
  // The record itself, not a copy.
  EXPECT_EQ(item->playlistInfo().get(), record.get());

  // The persistent ID as a number is taken; a "Name" that is a number is not a name.
  record->set("Playlist Persistent ID", Value::integer(-5));
  record->set("Name", Value::integer(0));
  item = RVITunesPlaylist::itemWithPlaylistInfoSort(record, 0);
  EXPECT_EQ(item->libPersistentId(), -5);
  EXPECT_EQ(item->playlistName(), std::nullopt);
  EXPECT_FALSE(item->updateTracksListInfo());

  EXPECT_EQ(RVITunesPlaylist::itemWithPlaylistInfoSort(nullptr, 0), nullptr);
}

TEST(RVITunesPlaylistTest, IconPairFollowsTheChoiceRules) {
  ScopedIcons icons(
      {"Lumo_folder", "Lumo_folder_dark", "Lumo_music", "Lumo_music_dark", "Lumo_playlist"});

  // A false "Master" still counts: the folder pair, although the index would show music here.
  Ref<Dictionary> music = Dictionary::create();
  music->set("Master", Value::boolean(false));
  music->set("Music", Value::boolean(true));
  music->set(kPlaylistIconKey, icons["Lumo_music"]);
  auto item = RVITunesPlaylist::itemWithPlaylistInfoSort(music, 0);
  ASSERT_NE(item, nullptr);
  EXPECT_EQ(Value(Ref<plist::Object>(item->listImage())), icons["Lumo_folder"]);
  EXPECT_EQ(Value(Ref<plist::Object>(item->listDarkImage())), icons["Lumo_folder_dark"]);
  EXPECT_EQ(music->get(kPlaylistIconKey), icons["Lumo_folder"]);
  EXPECT_EQ(music->get(kPlaylistIconDarkKey), icons["Lumo_folder_dark"]);

  // Only the normal image of the plain pair is there: the dark side stays untouched.
  Ref<Dictionary> plain = Dictionary::create();
  plain->set("Name", Value::string("Mine"));
  item = RVITunesPlaylist::itemWithPlaylistInfoSort(plain, 0);
  EXPECT_EQ(Value(Ref<plist::Object>(item->listImage())), icons["Lumo_playlist"]);
  EXPECT_EQ(item->listDarkImage(), nullptr);
  EXPECT_TRUE(plain->contains(kPlaylistIconKey));
  EXPECT_FALSE(plain->contains(kPlaylistIconDarkKey));
}

// The sample library's "Music" playlist and one of its tracks.
constexpr int64_t kMusicPid = 0x227EE409289B8BA9;
constexpr int64_t kSenoritaPid = 0x12BD4ACEFAECBD38;

void forgetController() {
  Cadenza::unSharedInstance();
  CZPlaylistCache::releaseSharedInstance();
  Cadenza::resetCachedVersion();
}

TEST(RVITunesPlaylistTest, BindsToTheLivePlaylistAndKeepsItWhenTheAnswerIsNil) {
  setRVITunesIcons(nullptr);
  forgetController();
  Ref<Dictionary> record = Dictionary::create();
  record->set("Playlist ID", Value::integer(2918));
  record->set("Playlist Persistent ID", Value::integer(kMusicPid));
  auto item = RVITunesPlaylist::itemWithPlaylistInfoSort(record, 0);
  ASSERT_NE(item, nullptr);

  // No player yet.
  EXPECT_EQ(item->czPlaylist(), nullptr);
  EXPECT_EQ(item->czTracks(), std::nullopt);
  EXPECT_EQ(item->tarckWithPersistentId(kSenoritaPid), nullptr);
  EXPECT_EQ(item->boundPlaylist(), nullptr);

  player::PlayerServerOptions options;
  options.writeBack = false;
  options.tickInterval = std::chrono::milliseconds(0);
  auto server = player::PlayerServer::startInProcess(
      std::string(RVITUNES_SOURCE_DIR) + "/examples/library/iTunes Music Library.xml",
      std::move(options));
  ASSERT_TRUE(server.ok()) << server.status().toString();
  forgetController();

  std::shared_ptr<CZPlaylist> live = item->czPlaylist();
  ASSERT_NE(live, nullptr);
  EXPECT_EQ(live->name(), "Music");
  EXPECT_EQ(item->boundPlaylist(), live);
  auto tracks = item->czTracks();
  ASSERT_TRUE(tracks.has_value());
  EXPECT_FALSE(tracks->empty());
  std::shared_ptr<CZTrack> track = item->tarckWithPersistentId(kSenoritaPid);
  ASSERT_NE(track, nullptr);
  EXPECT_EQ(track->name(), "Señorita");

  // Every call asks again and binds what it got.
  std::shared_ptr<CZPlaylist> last = item->boundPlaylist();
  EXPECT_NE(last, live);

  // An ID the player does not know: nil, and the earlier binding stays.
  item->setLibPersistentId(0x1234);
  EXPECT_EQ(item->czPlaylist(), nullptr);
  EXPECT_EQ(item->czTracks(), std::nullopt);
  EXPECT_EQ(item->boundPlaylist(), last);
  forgetController();
}

}  // namespace
}  // namespace rvitunes
