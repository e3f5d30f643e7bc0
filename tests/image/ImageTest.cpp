#include "rvitunes/image/Image.h"

#include <gtest/gtest.h>
#include <zlib.h>

#include <string>

#include "ImageTestSupport.h"

namespace rvitunes::image {
namespace {

using test::Builder;
using test::Bytes;
using test::pattern;

Result<Image> decode(const Bytes& bytes, const DecodeLimits& limits = {}) {
  return Image::fromData(std::span<const uint8_t>(bytes), limits);
}

Bytes prefix(const Bytes& bytes, size_t n) {
  return Bytes(bytes.begin(), bytes.begin() + static_cast<ptrdiff_t>(n));
}

TEST(ImageTest, DetectsFormatsAndRefusesTheRest) {
  const auto detect = [](Bytes b) { return detectImageFormat(b); };
  EXPECT_EQ(detect(*pattern(2, 2, false).jpegRepresentation()), ImageFormat::kJpeg);
  EXPECT_EQ(detect({'M', 'M', 0, 42}), ImageFormat::kTiff);
  EXPECT_EQ(detect({'I', 'I', 43, 0}), ImageFormat::kTiff);  // BigTIFF
  Bytes picture(14, 0);
  picture[11] = 0x11, picture[12] = 0x02, picture[13] = 0xFF;
  EXPECT_EQ(detect(picture), ImageFormat::kPict);
  picture.insert(picture.begin(), 512, 0);  // the same with a file header
  EXPECT_EQ(detect(picture), ImageFormat::kPict);
  EXPECT_EQ(detect({0x89, 'P', 'N'}), ImageFormat::kUnknown);
  auto gif = decode({'G', 'I', 'F', '8', '9', 'a'});
  EXPECT_EQ(gif.status().code(), paramErr);
  EXPECT_EQ(gif.status().message().rfind("offset 0: not an image format", 0), 0u);

  EXPECT_EQ(Image::create(3, 2, Bytes(23)).status().code(), paramErr);
  const DecodeLimits small{.maxDimension = 100, .maxPixelBytes = 1000};
  EXPECT_EQ(Image::create(101, 1, Bytes(404), small).status().code(), memFullErr);
  EXPECT_EQ(Image::create(20, 20, Bytes(1600), small).status().code(), memFullErr);
}

TEST(ImageTest, ResizedAveragesInPremultipliedSpace) {
  Image image(4, 2);
  // Left: two red pixels and two transparent green ones, which must not tint the average.
  image.setPixel(0, 0, Rgba{200, 0, 0, 255});
  image.setPixel(1, 1, Rgba{200, 0, 0, 255});
  image.setPixel(1, 0, Rgba{0, 255, 0, 0});
  image.setPixel(0, 1, Rgba{0, 255, 0, 0});
  // Right: an opaque grey ramp averaging to 100.
  const uint8_t greys[] = {0, 100, 200, 100};
  for (int i = 0; i < 4; ++i)
    image.setPixel(2 + i % 2, i / 2, Rgba{greys[i], greys[i], greys[i], 255});
  const Image half = image.resized(2, 1);
  EXPECT_EQ(half.pixel(0, 0), (Rgba{200, 0, 0, 128}));
  EXPECT_EQ(half.pixel(1, 0), (Rgba{100, 100, 100, 255}));
  EXPECT_EQ(pattern(5, 3, true).resized(5, 3), pattern(5, 3, true));
  EXPECT_EQ(pattern(2, 2, false).resized(4, 4).pixel(3, 3), pattern(2, 2, false).pixel(1, 1));
}

TEST(ImageTest, PngRoundTripsAndRefusesBrokenOrHugeData) {
  const Image source = pattern(37, 29, true);
  const Bytes png = *source.pngRepresentation();
  EXPECT_EQ(*decode(png), source);
  for (size_t cut : {size_t{8}, size_t{20}, png.size() / 2, png.size() - 13}) {
    auto image = decode(prefix(png, cut));
    EXPECT_EQ(image.status().message().rfind("PNG: ", 0), 0u) << cut << image.status().message();
  }
  // IHDR claiming 100000 x 100000, with its CRC fixed: refused from the header alone.
  Bytes huge = *pattern(1, 1, false).pngRepresentation();
  for (size_t at : {16, 20})
    huge[at + 1] = 0x01, huge[at + 2] = 0x86, huge[at + 3] = 0xA0;
  const uint32_t crc = static_cast<uint32_t>(crc32(0, &huge[12], 17));
  for (int i = 0; i < 4; ++i)
    huge[29 + i] = static_cast<uint8_t>(crc >> (24 - 8 * i));
  EXPECT_EQ(decode(huge).status().code(), memFullErr) << decode(huge).status().message();
}

TEST(ImageTest, JpegRoundTripsWithinItsLossAndFailsCleanly) {
  Image smooth(40, 24);
  for (uint32_t y = 0; y < 24; ++y)
    for (uint32_t x = 0; x < 40; ++x)
      smooth.setPixel(x, y,
                      Rgba{static_cast<uint8_t>(x * 6), static_cast<uint8_t>(y * 10), 128, 80});
  const Bytes jpeg = *smooth.jpegRepresentation(95);
  auto back = decode(jpeg);
  ASSERT_TRUE(back.ok()) << back.status().toString();
  EXPECT_LE(test::maxDifference(*back, smooth, false), 8);
  EXPECT_FALSE(back->hasTransparency());
  for (size_t cut : {size_t{3}, size_t{40}, size_t{200}}) {
    auto image = decode(prefix(jpeg, cut));
    EXPECT_EQ(image.status().message().rfind("JPEG: ", 0), 0u) << cut << image.status().message();
  }
  // The frame header (SOF0) made to claim 60000 x 60000.
  Bytes huge = jpeg;
  for (size_t i = 2; i + 8 < huge.size(); ++i) {
    if (huge[i] != 0xFF || huge[i + 1] != 0xC0) continue;
    huge[i + 5] = 0xEA, huge[i + 6] = 0x60, huge[i + 7] = 0xEA, huge[i + 8] = 0x60;
    break;
  }
  EXPECT_EQ(decode(huge).status().code(), memFullErr);
}

TEST(ImageTest, TiffRoundTripsStraightAlpha) {
  const Image source = pattern(33, 21, true);
  for (bool deflate : {false, true})
    EXPECT_EQ(*decode(*source.tiffRepresentation(deflate)), source);
  EXPECT_LT(source.tiffRepresentation(true)->size(), source.tiffRepresentation(false)->size());
}

// Layouts written by ImageMagick (tests/corpus/image/make_corpus.sh), against ImageMagick's own
// reading of each file.
TEST(ImageTest, TiffReadsOtherWritersLayouts) {
  const std::pair<const char*, int> cases[] = {
      {"tiff-rgba-plain", 0},    {"tiff-rgba-associated", 1},  // un-premultiplying rounds
      {"tiff-rgb16-deflate", 0}, {"tiff-palette", 1},          // 16-bit colour map
      {"tiff-grey", 0},          {"tiff-tiled-msb", 0},       {"tiff-ycbcr-jpeg", 0}};
  for (const auto& [name, tolerance] : cases) {
    const Image image = test::decodeFile(test::corpus(std::string(name) + ".tif"));
    auto expected =
        Image::create(24, 16, test::readFile(test::corpus(std::string(name) + ".rgba")));
    EXPECT_LE(test::maxDifference(image, *expected), tolerance) << name;
  }
}

TEST(ImageTest, TiffHostileHeadersFailCleanly) {
  const Bytes tiff = *pattern(8, 8, false).tiffRepresentation();
  for (size_t cut : {size_t{4}, size_t{8}, size_t{100}, tiff.size() - 1})
    EXPECT_FALSE(decode(prefix(tiff, cut)).ok()) << cut;
  // One directory that libtiff accepts: 70000 x 70000 in one strip of 16 bytes.
  Builder b;
  b.text("II").u8(42).u8(0).u8(8).zeros(3).u8(4).u8(0);
  const std::pair<uint16_t, uint32_t> entries[] = {{256, 70000}, {257, 70000}, {273, 8}, {279, 16}};
  for (const auto& [tag, value] : entries) {
    b.u8(tag & 0xFF).u8(tag >> 8).u8(4).u8(0).u8(1).zeros(3);  // LONG, count 1
    b.u8(value & 0xFF).u8(value >> 8 & 0xFF).u8(value >> 16 & 0xFF).u8(value >> 24);
  }
  b.zeros(4);
  EXPECT_EQ(decode(b.bytes()).status().code(), memFullErr) << decode(b.bytes()).status().message();
}

TEST(ImageTest, FromFileNamesTheFile) {
  EXPECT_EQ(Image::fromFile("/nonexistent/cover.png").status().code(), fnfErr);
  test::ScratchDir dir;
  test::writeFile(dir / "cover.png", *pattern(3, 3, true).pngRepresentation());
  EXPECT_EQ(*Image::fromFile((dir / "cover.png").string()), pattern(3, 3, true));
  test::writeFile(dir / "junk.png", Bytes{'j', 'u', 'n', 'k'});
  EXPECT_NE(Image::fromFile((dir / "junk.png").string()).status().message().find("junk.png"),
            std::string::npos);
}

}  // namespace
}  // namespace rvitunes::image
