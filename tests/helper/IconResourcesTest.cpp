// The icon files the framework ships: complete, small, and readable by other icon tools.

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

#include "IconTestSupport.h"
#include "rvitunes/helper/PlaylistIconChoice.h"
#include "rvitunes/image/IconFamily.h"

namespace rvitunes {
namespace {

std::vector<uint8_t> readAll(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

TEST(IconResourcesTest, EveryIconIsThereAtEverySizeAndTheSetIsSmall) {
  uintmax_t total = 0;
  for (std::string_view base : playlistIconBaseNames()) {
    for (bool dark : {false, true}) {
      const std::string path =
          testing::sourceIconFolder() + "/" + playlistIconResourceName(base, dark) + ".icns";
      SCOPED_TRACE(path);
      std::vector<uint8_t> bytes = readAll(path);
      ASSERT_FALSE(bytes.empty());
      total += bytes.size();
      Result<image::IconFamily> family = image::IconFamily::read(bytes);
      ASSERT_TRUE(family) << family.status().toString();
      std::vector<uint32_t> sizes;
      for (const auto& [size, img] : family->images())
        sizes.push_back(size);
      EXPECT_EQ(sizes, (std::vector<uint32_t>{16, 32, 128, 256}));
      // Drawn inside a margin: the corners are clear, the middle is not empty.
      for (const auto& [size, img] : family->images()) {
        EXPECT_EQ(img.pixel(0, 0).a, 0);
        EXPECT_EQ(img.pixel(size - 1, size - 1).a, 0);
      }
    }
  }
  EXPECT_LT(total, uintmax_t{2} << 20);
}

TEST(IconResourcesTest, IcnsutilsExtractsOurIconsAsWeDrewThem) {
  if (std::system("command -v icns2png >/dev/null 2>&1") != 0) GTEST_SKIP() << "no icns2png";
  testing::ScratchFolder folder;
  const std::string icon = testing::sourceIconFolder() + "/lumo-podcasts-dark.icns";
  const std::string command =
      "icns2png -x -o '" + folder.path() + "' '" + icon + "' >/dev/null 2>&1";
  ASSERT_EQ(std::system(command.c_str()), 0);
  const std::string png = folder / "lumo-podcasts-dark_128x128x32.png";
  Result<image::Image> theirs = image::Image::fromFile(png);
  ASSERT_TRUE(theirs) << theirs.status().toString();
  Result<image::IconFamily> ours = image::IconFamily::read(readAll(icon));
  ASSERT_TRUE(ours);
  const image::Image& mine = ours->images().at(128);
  ASSERT_EQ(theirs->width(), 128u);
  // Their run-length decoding of the 128-pixel element matches ours wherever a pixel shows.
  for (uint32_t y = 0; y < 128; ++y) {
    for (uint32_t x = 0; x < 128; ++x) {
      const image::Rgba a = theirs->pixel(x, y), b = mine.pixel(x, y);
      ASSERT_EQ(a.a, b.a) << x << "," << y;
      if (a.a != 0) {
        ASSERT_EQ(a, b) << x << "," << y;
      }
    }
  }
}

}  // namespace
}  // namespace rvitunes
