#include "rvitunes/player/PlayerModel.h"

#include <gtest/gtest.h>

#include "PlayerTestSupport.h"
#include "rvitunes/ae/Coercion.h"
#include "rvitunes/player/ManualTimeSource.h"

namespace rvitunes::player {
namespace {

using ae::Descriptor;

class PlayerModelTest : public ::testing::Test {
 protected:
  PlayerModelTest() : time_(std::make_shared<ManualTimeSource>()), model_(makeOptions()) {}
  PlayerOptions makeOptions() {
    PlayerOptions options;
    options.time = time_;
    options.writeBack = false;
    return options;
  }
  void SetUp() override { ASSERT_TRUE(model_.load(testing::sampleLibraryPath()).ok()); }

  Descriptor app(const char (&code)[5]) {
    Result<Descriptor> value = model_.applicationProperty(fourCharCode(code));
    EXPECT_TRUE(value.ok()) << code << ": " << value.status().toString();
    return value.ok() ? std::move(value).value() : Descriptor();
  }

  std::shared_ptr<ManualTimeSource> time_;
  PlayerModel model_;
};

TEST_F(PlayerModelTest, ApplicationPropertiesReadAndWrite) {
  EXPECT_EQ(ae::textValue(app("pnam")).value(), "iTunes");
  EXPECT_EQ(ae::textValue(app("vers")).value(), "7.7.1");
  EXPECT_EQ(app("vers").type(), ae::typeVersion);
  EXPECT_EQ(ae::codeValue(app("pPlS")).value(), kStateStopped);
  EXPECT_EQ(app("pPos").type(), ae::typeSInt32);
  EXPECT_EQ(ae::integerValue(app("pVol")).value(), 100);

  EXPECT_TRUE(model_.setApplicationProperty(kPropSoundVolume, Descriptor::makeSInt32(140)).ok());
  EXPECT_EQ(model_.soundVolume(), 100);  // clamped
  EXPECT_TRUE(model_.setApplicationProperty(kPropSoundVolume, Descriptor::makeSInt32(35)).ok());
  EXPECT_EQ(ae::integerValue(app("pVol")).value(), 35);
  EXPECT_TRUE(model_.setApplicationProperty(kPropEqEnabled, Descriptor::makeSInt32(1)).ok());
  EXPECT_TRUE(ae::boolValue(app("pEQ ")).value());
  EXPECT_TRUE(
      model_.setApplicationProperty(kPropFixedIndexing, Descriptor::makeBoolean(true)).ok());
  EXPECT_TRUE(model_.fixedIndexing());
  model_.activate();
  EXPECT_TRUE(ae::boolValue(app("pisf")).value());

  EXPECT_EQ(
      model_.setApplicationProperty(kPropPlayerState, Descriptor::makeEnum(kStatePlaying)).code(),
      errAEWriteDenied);
  EXPECT_EQ(model_.setApplicationProperty(kPropName, Descriptor::makeUnicodeText("x")).code(),
            errAEWriteDenied);
  EXPECT_EQ(model_.applicationProperty(kPropCurrentTrack).status().code(), errAECantSupplyType);
  EXPECT_EQ(model_.applicationProperty(fourCharCode("zzzz")).status().code(), errAENoSuchObject);
  EXPECT_EQ(
      model_.setApplicationProperty(kPropSoundVolume, Descriptor::makeUnicodeText("loud")).code(),
      errAECoercionFail);
}

TEST_F(PlayerModelTest, SelectionDefaultsToTheFirstTrack) {
  EXPECT_EQ(model_.selection(), (std::vector<DatabaseId>{2582}));
  EXPECT_TRUE(model_.setSelection({2584, 2586}).ok());
  EXPECT_EQ(model_.setSelection({2584, 1}).code(), errAENoSuchObject);
  EXPECT_EQ(model_.selection(), (std::vector<DatabaseId>{2584, 2586}));
}

TEST_F(PlayerModelTest, PlayingCountsPlaysAndFollowsThePlaylist) {
  const Library& library = model_.library();
  EXPECT_FALSE(model_.currentTrack().has_value());
  EXPECT_EQ(model_.currentPlaylist(), library.libraryPlaylist().id());

  // Play a track of a user playlist: the playlist becomes current.
  const Playlist& focus = *library.playlistById(2968);
  const DatabaseId first = focus.trackIds()[0];
  const DatabaseId second = focus.trackIds()[1];
  ASSERT_TRUE(model_.playTrack(first, focus.id()).ok());
  EXPECT_EQ(model_.playerState(), kStatePlaying);
  EXPECT_EQ(model_.currentTrack(), first);
  EXPECT_EQ(model_.currentPlaylist(), focus.id());

  const int64_t playsBefore = library.trackById(first)->integer("Play Count").value_or(0);
  time_->advance(library.trackById(first)->durationSeconds() + 2.25);
  EXPECT_EQ(model_.currentTrack(), second);
  EXPECT_EQ(ae::integerValue(app("pPos")).value(), 2);
  EXPECT_EQ(library.trackById(first)->integer("Play Count"), playsBefore + 1);
  EXPECT_TRUE(library.trackById(first)->date("Play Date UTC").has_value());

  ASSERT_TRUE(model_.setApplicationProperty(kPropPlayerPosition, Descriptor::makeSInt32(30)).ok());
  EXPECT_DOUBLE_EQ(model_.playerPosition(), 30);
  model_.stop();
  EXPECT_EQ(model_.playerState(), kStateStopped);
  EXPECT_FALSE(model_.currentTrack().has_value());
  EXPECT_EQ(model_.currentPlaylist(), focus.id());
  model_.play();
  EXPECT_EQ(model_.currentTrack(), second);

  // A track not in the playlist asked for plays from the library playlist.
  ASSERT_TRUE(model_.playTrack(2582, 2922).ok());
  EXPECT_EQ(model_.currentPlaylist(), library.libraryPlaylist().id());
  EXPECT_EQ(model_.playTrack(1).code(), errAENoSuchObject);
  EXPECT_EQ(model_.playTrack(2582, 1).code(), errAENoSuchObject);
}

TEST_F(PlayerModelTest, PlayFileAddsItAndRepeatComesFromThePlaylist) {
  testing::ScratchFolder folder;
  Result<DatabaseId> played = model_.playFile(folder.write("New.mp3"), /*once=*/true);
  ASSERT_TRUE(played.ok()) << played.status().toString();
  EXPECT_EQ(model_.currentTrack(), *played);
  EXPECT_EQ(model_.library().tracks().size(), 31u);
  // An MP3 whose length is unknown plays for the nominal length; "once" then stops the player.
  time_->advance(PlayerModel::kUnknownLengthSeconds - 1);
  EXPECT_EQ(model_.currentTrack(), *played);
  time_->advance(2);
  EXPECT_EQ(model_.playerState(), kStateStopped);
  EXPECT_EQ(model_.library().trackById(*played)->integer("Play Count"), 1);

  Result<std::vector<DatabaseId>> added =
      model_.addFiles({folder.write("a/One.mp3"), folder / "missing.mp3"}, 2968);
  ASSERT_TRUE(added.ok());
  EXPECT_EQ(added->size(), 1u);
  EXPECT_EQ(model_.library().playlistById(2968)->trackIds().back(), added->front());
  EXPECT_EQ(model_.addFiles({folder / "missing.mp3"}).status().code(), fnfErr);
}

}  // namespace
}  // namespace rvitunes::player
