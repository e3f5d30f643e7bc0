// Our codecs against other programs, run live: ImageMagick (convert) and GraphicsMagick (gm)
// read our pictures, our decoder reads theirs and netpbm's, icns2png (icnsutils) extracts our
// icon families. A test skips with a message when its program is missing (./do setup).
#include <gtest/gtest.h>

#include <string>

#include "ImageTestSupport.h"
#include "rvitunes/image/IconFamily.h"
#include "rvitunes/image/Pict.h"

namespace rvitunes::image {
namespace {

using test::Bytes;
using test::pattern;

std::string quoted(const std::filesystem::path& path) {
  return "'" + path.string() + "'";
}

// Runs `command`, expecting success; the log on failure.
void mustRun(const std::string& command) {
  std::string log;
  EXPECT_EQ(test::run(command, &log), 0) << command << "\n" << log;
}

// The peers need the file header, and they keep a picture's colours but drop its alpha plane,
// so alpha pictures are compared by colour. The widths cover each change of our row layout
// and of the peers' own count-width rule (planes > 200 bytes).
TEST(PeerInteropTest, MagickReadersSeeOurPictures) {
  std::vector<uint32_t> widths = {1, 2, 3, 8, 40, 67, 83, 84, 120, 250, 251, 300, 1000};
  for (uint32_t w = 50; w <= 66; ++w)
    widths.push_back(w);
  for (const std::string tool : {"convert", "gm convert"}) {
    if (!test::havePeer(tool.substr(0, tool.find(' ')))) {
      std::printf("skipping %s: not installed (./do setup)\n", tool.c_str());
      continue;
    }
    test::ScratchDir dir;
    for (bool alpha : {false, true})
      for (uint32_t w : widths) {
        const Image source = pattern(w, 5, alpha);
        test::writeFile(dir / "in.pict", *encodePict(source, {.fileHeader = true}));
        mustRun(tool + " " + quoted(dir / "in.pict") + " " + quoted(dir / "out.png"));
        const Image seen = test::decodeFile(dir / "out.png");
        EXPECT_EQ(test::maxDifference(seen, source, false), 0)
            << tool << " width " << w << " alpha " << alpha;
      }
  }
}

TEST(PeerInteropTest, WeReadPeersPictures) {
  const std::pair<const char*, const char*> writers[] = {
      {"ppmtopict", "ppmtopict %s > %s"},  // indexed, at most 256 colours
      {"convert", "convert %s PICT:%s"},
      {"gm", "gm convert %s PICT:%s"}};
  for (const auto& [program, format] : writers) {
    if (!test::havePeer(program)) {
      std::printf("skipping %s: not installed (./do setup)\n", program);
      continue;
    }
    test::ScratchDir dir;
    for (uint32_t w : {8u, 24u, 63u, 67u, 251u, 300u}) {
      Image source(w, 6);  // few colours, so that ppmtopict keeps every pixel
      for (uint32_t y = 0; y < 6; ++y)
        for (uint32_t x = 0; x < w; ++x)
          source.setPixel(x, y,
                          Rgba{static_cast<uint8_t>(x % 7 * 40), static_cast<uint8_t>(y * 50),
                               static_cast<uint8_t>(x / 9 % 4 * 80), 255});
      const std::string header = "P6\n" + std::to_string(w) + " 6\n255\n";
      Bytes ppm(header.begin(), header.end());
      for (size_t i = 0; i < source.pixels().size(); ++i)
        if (i % 4 != 3) ppm.push_back(source.pixels()[i]);
      test::writeFile(dir / "in.ppm", ppm);
      char command[1024];
      std::snprintf(command, sizeof command, format, quoted(dir / "in.ppm").c_str(),
                    quoted(dir / "out.pict").c_str());
      mustRun(command);
      auto image = decodePict(std::span<const uint8_t>(test::readFile(dir / "out.pict")));
      ASSERT_TRUE(image.ok()) << program << " " << w << ": " << image.status().toString();
      EXPECT_EQ(*image, source) << program << " width " << w;
    }
  }
}

TEST(PeerInteropTest, QuickTimeJpegPictureReadsAsImageMagickReadsIt) {
  if (!test::havePeer("convert")) GTEST_SKIP() << "convert is not installed; ./do setup";
  test::ScratchDir dir;
  test::writeFile(dir / "in.png", *pattern(40, 30, false).pngRepresentation());
  mustRun("convert " + quoted(dir / "in.png") + " -compress JPEG " + quoted(dir / "out.pict"));
  mustRun("convert " + quoted(dir / "out.pict") + " " + quoted(dir / "theirs.png"));
  auto ours = decodePict(std::span<const uint8_t>(test::readFile(dir / "out.pict")));
  ASSERT_TRUE(ours.ok()) << ours.status().toString();
  EXPECT_EQ(test::maxDifference(*ours, test::decodeFile(dir / "theirs.png")), 0);
}

// icns2png extracts the run-length elements (16, 32, 48, 128) and the PNG ones it knows (256,
// 512, 1024). Both sides keep alpha straight, so every channel must match.
TEST(PeerInteropTest, Icns2pngExtractsThePixelsWeDrew) {
  if (!test::havePeer("icns2png")) GTEST_SKIP() << "icns2png is not installed; ./do setup";
  test::ScratchDir dir;
  std::vector<Image> images;
  for (uint32_t size : IconFamily::kWritableSizes)
    images.push_back(pattern(size, size, true));
  test::writeFile(dir / "icon.icns", *IconFamily::write(images));
  mustRun("cd " + quoted(dir.path()) + " && icns2png -x icon.icns");
  for (uint32_t size : {16u, 32u, 48u, 128u, 256u, 512u, 1024u}) {
    const std::string side = std::to_string(size);
    const auto file = dir / ("icon_" + side + "x" + side + "x32.png");
    ASSERT_TRUE(std::filesystem::exists(file)) << file;
    EXPECT_EQ(test::maxDifference(test::decodeFile(file), pattern(size, size, true)), 0) << size;
  }
}

}  // namespace
}  // namespace rvitunes::image
