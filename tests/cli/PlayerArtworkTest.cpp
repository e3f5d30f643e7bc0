// rvitunes player artwork against an embedded player: a picture set from a PNG file is read
// back and saved; wrong usage and unreadable files.

#include <gtest/gtest.h>
#include <stdlib.h>

#include <filesystem>
#include <string>

#include "ToolRunner.h"

namespace rvitunes::testing {
namespace {

class PlayerArtworkTest : public ::testing::Test {
 protected:
  void SetUp() override {
    std::string pattern = std::filesystem::temp_directory_path() / "rvitunes-artwork.XXXXXX";
    ASSERT_NE(::mkdtemp(pattern.data()), nullptr);
    dir_ = pattern;
    // Embedded players write their changes back: work on a copy.
    std::filesystem::copy_file(
        std::string(RVITUNES_SOURCE_DIR) + "/tests/cadenza/data/PlaylistTree.xml", library());
    // Pictures to set: the framework's own icons as PNG (256 x 256).
    std::filesystem::create_directory(dir_ + "/png");
    ASSERT_EQ(runTool("icons --render '" + dir_ + "/png'").status, 0);
  }
  void TearDown() override {
    std::error_code ignored;
    std::filesystem::remove_all(dir_, ignored);
  }
  std::string library() const { return dir_ + "/lib.xml"; }
  ToolRun artwork(const std::string& args) {
    return runTool("player artwork 000000000000A001 " + args + " --file '" + library() + "'");
  }

  std::string dir_;
};

TEST_F(PlayerArtworkTest, SetsAPictureAndReadsItBack) {
  ToolRun r = artwork("--set '" + dir_ + "/png/Lumo_music.png'");
  EXPECT_EQ(r.status, 0) << r.out;
  EXPECT_EQ(r.out, "artwork 0 set (256x256)\n");
  // Index 1 on a track with no artwork is past the end: sent, but the player does not take it.
  r = artwork("--set '" + dir_ + "/png/Lumo_cd.png' --index 1");
  EXPECT_EQ(r.status, 1) << r.out;
  EXPECT_NE(r.out.find("does not show the picture as artwork 1"), std::string::npos) << r.out;

  r = artwork("--save '" + dir_ + "'");
  EXPECT_EQ(r.status, 0) << r.out;
  EXPECT_EQ(r.out, "0 artworks\n");  // artwork lives in the player's memory only

  r = artwork("--set '" + dir_ + "/png/Lumo_music.png' --json");
  EXPECT_EQ(r.status, 0) << r.out;
  EXPECT_EQ(r.out, "{\"index\": 0, \"width\": 256, \"height\": 256}\n");
  r = artwork("--json");
  EXPECT_EQ(r.out, "[]\n");
}

TEST_F(PlayerArtworkTest, WrongUsageAndUnreadablePictures) {
  EXPECT_EQ(artwork("--index 1").status, 2);
  EXPECT_EQ(artwork("--set x.png --delete").status, 2);
  EXPECT_EQ(artwork("--delete --index -1").status, 2);
  EXPECT_EQ(artwork("--save /tmp --delete").status, 2);
  ToolRun r = artwork("--set '" + dir_ + "/missing.png'");
  EXPECT_EQ(r.status, 1);
  EXPECT_NE(r.out.find("cannot read"), std::string::npos) << r.out;
  r = artwork("--set '" + library() + "'");  // not a picture
  EXPECT_EQ(r.status, 1);
  r = artwork("--delete");
  EXPECT_EQ(r.status, 0) << r.out;
  EXPECT_EQ(r.out, "0 artworks left\n");
  EXPECT_EQ(artwork("--delete --json").out, "{\"left\": 0}\n");
}

}  // namespace
}  // namespace rvitunes::testing
