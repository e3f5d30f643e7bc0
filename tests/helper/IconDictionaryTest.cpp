// The icon dictionary: its one fill from the framework's resource folder, what a missing probe
// or icon file leaves, and the images the library index writes into records.

#include <gtest/gtest.h>

#include <fstream>
#include <string>

#include "IconTestSupport.h"
#include "rvitunes/helper/IconImage.h"
#include "rvitunes/helper/PlaylistIconChoice.h"
#include "rvitunes/helper/RVITunesInfo.h"

namespace rvitunes {
namespace {

using testing::ScopedEnv;
using testing::ScratchFolder;

class IconDictionaryTest : public ::testing::Test {
 protected:
  testing::ResetIcons reset_;
};

// Mean brightness (0-255) of the clearly opaque pixels.
double meanOpaqueLuma(const image::Image& img) {
  double sum = 0;
  size_t n = 0;
  for (uint32_t y = 0; y < img.height(); ++y) {
    for (uint32_t x = 0; x < img.width(); ++x) {
      const image::Rgba p = img.pixel(x, y);
      if (p.a < 200) continue;
      sum += 0.2126 * p.r + 0.7152 * p.g + 0.0722 * p.b;
      ++n;
    }
  }
  return n == 0 ? 0 : sum / n;
}

TEST_F(IconDictionaryTest, FillsFortyIconsDarkFirstFromTheBuildTree) {
  testing::ScopedUnsetEnv unset(kResourceDirVariable);
  plist::Ref<plist::Dictionary> icons = RVITunesInfo::playlistsDisplayIcons();
  ASSERT_TRUE(icons);
  EXPECT_EQ(icons, RVITunesIcons());
  ASSERT_EQ(icons->size(), 40u);

  size_t i = 0;
  for (std::string_view base : playlistIconBaseNames()) {
    for (bool dark : {true, false}) {
      SCOPED_TRACE(playlistIconKey(base, dark));
      const plist::Dictionary::Entry& entry = icons->entryAt(i++);
      EXPECT_EQ(entry.key.stringView(), playlistIconKey(base, dark));
      const IconImage* icon = asIconImage(entry.value);
      ASSERT_NE(icon, nullptr);
      EXPECT_EQ(icon->source(),
                testing::sourceIconFolder() + "/" + playlistIconResourceName(base, dark) + ".icns");
      EXPECT_EQ(icon->image()->width(), 256u);
      EXPECT_TRUE(icon->image()->hasTransparency());
    }
    // The dark variant is drawn for a dark list: its shapes are clearly lighter.
    const IconImage* normal = asIconImage(*icons->find(playlistIconKey(base, false)));
    const IconImage* dark = asIconImage(*icons->find(playlistIconKey(base, true)));
    EXPECT_GT(meanOpaqueLuma(*dark->image()), meanOpaqueLuma(*normal->image()) + 25) << base;
  }
}

TEST_F(IconDictionaryTest, LaterCallsAnswerTheSameDictionaryWithoutLoading) {
  ScratchFolder folder;
  testing::copyIcons(folder);
  ScopedEnv env(kResourceDirVariable, folder.path());
  plist::Ref<plist::Dictionary> first = RVITunesInfo::playlistsDisplayIcons();
  ASSERT_EQ(first->size(), 40u);
  first->set("iTunes_mp3", plist::Value::string("the host's own"));

  std::filesystem::remove_all(folder.path());  // nothing left to load from
  plist::Ref<plist::Dictionary> second = RVITunesInfo::playlistsDisplayIcons();
  EXPECT_EQ(second, first);
  EXPECT_EQ(second->size(), 41u);
}

TEST_F(IconDictionaryTest, AMissingProbeFileLeavesItEmptyForTheProcess) {
  ScratchFolder folder;
  testing::copyIcons(folder, {"lumo-books.icns"});  // every other icon is there
  {
    ScopedEnv env(kResourceDirVariable, folder.path());
    plist::Ref<plist::Dictionary> icons = RVITunesInfo::playlistsDisplayIcons();
    ASSERT_TRUE(icons);
    EXPECT_EQ(icons->size(), 0u);
  }
  // Even with the full set in reach, the empty dictionary stays.
  ScopedEnv full(kResourceDirVariable, testing::sourceIconFolder());
  plist::Ref<plist::Dictionary> again = RVITunesInfo::playlistsDisplayIcons();
  EXPECT_EQ(again, RVITunesIcons());
  EXPECT_EQ(again->size(), 0u);
}

TEST_F(IconDictionaryTest, AFolderThatDoesNotExistGivesAnEmptyDictionary) {
  ScopedEnv env(kResourceDirVariable, "/nonexistent/rvitunes-icons");
  plist::Ref<plist::Dictionary> icons = RVITunesInfo::playlistsDisplayIcons();
  ASSERT_TRUE(icons);
  EXPECT_EQ(icons->size(), 0u);
}

TEST_F(IconDictionaryTest, AMissingOrUnreadableIconLeavesOnlyItsKeyOut) {
  ScratchFolder folder;
  testing::copyIcons(folder, {"lumo-radio-dark.icns", "lumo-cd.icns"});
  folder.write("lumo-cd.icns", "icns but not really");
  ScopedEnv env(kResourceDirVariable, folder.path());
  plist::Ref<plist::Dictionary> icons = RVITunesInfo::playlistsDisplayIcons();
  EXPECT_EQ(icons->size(), 38u);
  EXPECT_FALSE(icons->contains("Lumo_radio_dark"));
  EXPECT_FALSE(icons->contains("Lumo_cd"));
  EXPECT_TRUE(icons->contains("Lumo_radio"));
  EXPECT_TRUE(icons->contains("Lumo_cd_dark"));
  // Loading went on past the gaps, to the last icon.
  EXPECT_TRUE(icons->contains("Lumo_tv_shows"));
}

TEST_F(IconDictionaryTest, OnlyTheRadioDarkMissingGivesThirtyNine) {
  ScratchFolder folder;
  testing::copyIcons(folder, {"lumo-radio-dark.icns"});
  ScopedEnv env(kResourceDirVariable, folder.path());
  plist::Ref<plist::Dictionary> icons = RVITunesInfo::playlistsDisplayIcons();
  EXPECT_EQ(icons->size(), 39u);
  EXPECT_FALSE(icons->contains("Lumo_radio_dark"));
}

TEST_F(IconDictionaryTest, TheIndexWritesTheLoadedImagesIntoItsRecords) {
  ScopedEnv env(kResourceDirVariable, testing::sourceIconFolder());
  plist::Ref<plist::Dictionary> icons = RVITunesInfo::playlistsDisplayIcons();
  using testing::dict;
  auto info = testing::libraryWith(
      dict({}), testing::array({dict({{"Name", testing::str("Music")}, {"Music", testing::yes()}}),
                                dict({{"Name", testing::str("Mine")}})}));
  std::optional<std::vector<plist::Value>> kept = info->playlistsWithFlags(kShowAllPlaylists);
  ASSERT_TRUE(kept);
  ASSERT_EQ(kept->size(), 2u);
  const plist::Dictionary& music = *(*kept)[0].asDictionary();
  EXPECT_EQ(asIconImage(*music.find(kPlaylistIconKey)), asIconImage(*icons->find("Lumo_music")));
  EXPECT_EQ(asIconImage(*music.find(kPlaylistIconDarkKey)),
            asIconImage(*icons->find("Lumo_music_dark")));
  const plist::Dictionary& mine = *(*kept)[1].asDictionary();
  EXPECT_EQ(asIconImage(*mine.find(kPlaylistIconKey)), asIconImage(*icons->find("Lumo_playlist")));
}

TEST(FrameworkBundleTest, FollowsTheHostBundleLayoutAndTheOverride) {
  EXPECT_EQ(FrameworkBundle::frameworkBundlePath(),
            FrameworkBundle::mainBundlePath() + "/Contents/Frameworks/RVITunesHelper.framework");
  EXPECT_TRUE(FrameworkBundle::mainBundlePath().ends_with("/share/rvitunes"));
  {
    // The test program runs from the build tree, where nothing is installed.
    testing::ScopedUnsetEnv unset(kResourceDirVariable);
    EXPECT_EQ(FrameworkBundle::resourceDirectory(), testing::sourceIconFolder());
  }
  ScratchFolder folder;
  folder.write("lumo-books.icns");
  std::filesystem::create_directories(folder / "lumo-cd.icns");
  ScopedEnv env(kResourceDirVariable, folder.path());
  EXPECT_EQ(FrameworkBundle::pathForResource("lumo-books", "icns"), folder / "lumo-books.icns");
  EXPECT_EQ(FrameworkBundle::pathForResource("lumo-cd", "icns"), std::nullopt);  // a folder
  EXPECT_EQ(FrameworkBundle::pathForResource("../lumo-books", "icns"), std::nullopt);
}

}  // namespace
}  // namespace rvitunes
