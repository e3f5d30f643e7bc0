#include "rvitunes/image/Pict.h"

#include <gtest/gtest.h>

#include <string>

#include "ImageTestSupport.h"

namespace rvitunes::image {
namespace {

using test::Builder;
using test::Bytes;
using test::pattern;

Result<Image> decode(const Bytes& bytes, const DecodeLimits& limits = {}) {
  return decodePict(std::span<const uint8_t>(bytes), limits);
}

std::string errorOf(const Bytes& bytes, const DecodeLimits& limits = {}) {
  auto image = decode(bytes, limits);
  EXPECT_FALSE(image.ok());
  return image.ok() ? std::string() : image.status().message();
}

uint16_t at16(const Bytes& b, size_t i) {
  return static_cast<uint16_t>(b[i] << 8 | b[i + 1]);
}

// A version-2 picture with the given frame, up to and including HeaderOp (40 bytes).
Builder picture(int top, int left, int bottom, int right) {
  Builder b;
  b.u16(0).rect(top, left, bottom, right).u16(0x0011).u16(0x02FF);
  b.u16(0x0C00).u16(0xFFFE).u16(0).u32(0x480000).u32(0x480000).rect(top, left, bottom, right);
  b.u32(0);
  return b;
}

Bytes finish(Builder& b) {
  return b.align().u16(0x00FF).bytes();
}

// PixMap fields after bounds, 36 bytes.
void pixmapFields(Builder& b, unsigned packType, unsigned pixelSize, unsigned cmpCount) {
  b.u16(0).u16(packType).u32(0).u32(0x480000).u32(0x480000);
  b.u16(pixelSize > 8 ? 16 : 0).u16(pixelSize).u16(cmpCount).u16(pixelSize > 8 ? 8 : pixelSize);
  b.zeros(12);
}

// A packed row written with literals only (independent of our encoder) behind a count of
// `countBytes`.
void packedRow(Builder& b, std::span<const uint8_t> row, size_t countBytes) {
  Bytes packed;
  for (size_t i = 0; i < row.size(); i += 128) {
    const size_t n = std::min<size_t>(128, row.size() - i);
    packed.push_back(static_cast<uint8_t>(n - 1));
    packed.insert(packed.end(), row.begin() + static_cast<ptrdiff_t>(i),
                  row.begin() + static_cast<ptrdiff_t>(i + n));
  }
  countBytes == 2 ? b.u16(static_cast<unsigned>(packed.size()))
                  : b.u8(static_cast<unsigned>(packed.size()));
  b.append(packed);
}

// A DirectBitsRect of `image` at (0, 0), pack type 4: rowBytes, count width and plane count are
// the knobs that decide whether a reader finds the rows.
void directBits(Builder& b, const Image& image, unsigned rowBytes, size_t countBytes,
                unsigned planes = 3) {
  const unsigned w = image.width(), h = image.height();
  b.u16(0x009A).u32(0xFF).u16(rowBytes | 0x8000).rect(0, 0, h, w);
  pixmapFields(b, 4, 32, planes);
  b.rect(0, 0, h, w).rect(0, 0, h, w).u16(0);
  const unsigned order[] = {3, 0, 1, 2};  // A, R, G, B
  for (unsigned y = 0; y < h; ++y) {
    Bytes row;
    for (unsigned p = planes == 4 ? 0 : 1; p < 4; ++p)
      for (unsigned x = 0; x < w; ++x)
        row.push_back(image.pixels()[(y * w + x) * 4 + order[p]]);
    packedRow(b, row, countBytes);
  }
}

TEST(PictEncodeTest, RoundTripsExactlyAtEveryRowLayout) {
  // Around each layout change: unpacked and shortest packed rows, widths 50-67 where the two
  // count-width rules meet, 250-256, and the widest picture QuickDraw holds.
  std::vector<uint32_t> widths = {1, 2, 3, 8, 127, 128, 129, 250, 251, 256, 1000, 4095};
  for (uint32_t w = 50; w <= 67; ++w)
    widths.push_back(w);
  for (bool alpha : {false, true}) {
    for (uint32_t w : widths) {
      const Image source = pattern(w, 3, alpha);
      auto back = decode(*encodePict(source));
      ASSERT_TRUE(back.ok()) << w << " " << alpha << ": " << back.status().toString();
      EXPECT_EQ(*back, source) << "width " << w << " alpha " << alpha;
    }
  }
}

// The offsets are those of docs/formats/pict.md §2: rowBytes at 58, cmpCount at 88, rows at 122.
TEST(PictEncodeTest, LayoutFollowsQuickDrawRules) {
  // Walks the rows with `countBytes`-wide counts; true when they end at the end opcode.
  const auto rowsFit = [](const Bytes& p, unsigned height, size_t countBytes) {
    size_t at = 122;
    for (unsigned y = 0; y < height && at + countBytes <= p.size(); ++y)
      at += (countBytes == 2 ? at16(p, at) : p[at]) + countBytes;
    at += at & 1;
    return at + 2 == p.size() && at16(p, at) == 0x00FF;
  };
  const struct {
    uint32_t width;
    bool alpha;
    unsigned rowBytes, planes;
    size_t countBytes;
  } cases[] = {
      {62, false, 248, 3, 1},  // planes 186 <= 200 and rowBytes <= 250: one byte for everyone
      {63, false, 252, 4, 2},  // four planes (252) so that both rules say two bytes
      {55, true, 252, 4, 2},   // planes 220 > 200: rowBytes padded past 250
      {67, false, 268, 3, 2},
  };
  for (const auto& c : cases) {
    const Bytes p = *encodePict(pattern(c.width, 4, c.alpha));
    EXPECT_EQ(at16(p, 0), p.size() & 0xFFFF);  // picSize
    EXPECT_EQ(at16(p, 52), 0x009A);
    EXPECT_EQ(at16(p, 58), 0x8000 | c.rowBytes) << c.width;
    EXPECT_EQ(at16(p, 88), c.planes) << c.width;
    EXPECT_TRUE(rowsFit(p, 4, c.countBytes)) << c.width;
  }
  const Bytes one = *encodePict(Image(1, 2, Rgba{10, 20, 30, 255}));  // rowBytes 4: unpacked
  EXPECT_EQ(Bytes(one.begin() + 122, one.begin() + 130), (Bytes{255, 10, 20, 30, 255, 10, 20, 30}));

  const Bytes bare = *encodePict(pattern(5, 5, false));
  const Bytes file = *encodePict(pattern(5, 5, false), {.fileHeader = true});
  EXPECT_EQ(Bytes(file.begin(), file.begin() + 512), Bytes(512, 0));
  EXPECT_EQ(Bytes(file.begin() + 512, file.end()), bare);
  const Image translucent = pattern(9, 4, true);
  EXPECT_EQ(*decode(*encodePict(translucent, {.alpha = PictAlpha::kNever})),
            test::opaque(translucent));
  EXPECT_EQ(at16(*encodePict(pattern(9, 4, false), {.alpha = PictAlpha::kAlways}), 88), 4);
  EXPECT_EQ(encodePict(Image(kPictMaxWidth + 1, 1)).status().code(), paramErr);
}

TEST(PictDecodeTest, BitmapsAndIndexedPixmaps) {
  // Version 1 with a file header: a 16x2 one-bit BitMap, rows of 2 bytes (unpacked).
  Builder v1;
  v1.zeros(512).u16(0).rect(0, 0, 2, 16).u8(0x11).u8(0x01).u8(0xA0).u16(0);
  v1.u8(0x90).u16(2).rect(0, 0, 2, 16).rect(0, 0, 2, 16).rect(0, 0, 2, 16).u16(0);
  v1.u8(0x80).u8(0x01).u8(0x00).u8(0xFF).u8(0xFF);
  auto bitmap = decode(v1.bytes());
  ASSERT_TRUE(bitmap.ok()) << bitmap.status().toString();
  const Rgba black{0, 0, 0, 255}, white{255, 255, 255, 255};
  EXPECT_EQ(bitmap->pixel(0, 0), black);
  EXPECT_EQ(bitmap->pixel(1, 0), white);
  EXPECT_EQ(bitmap->pixel(15, 0), black);
  EXPECT_EQ(bitmap->pixel(8, 1), black);

  for (unsigned bits : {1u, 2u, 4u, 8u}) {
    const unsigned w = 24, h = 3, rowBytes = (w * bits + 7) / 8 + 2;  // rows padded by 2
    Builder b = picture(0, 0, h, w);
    b.u16(0x0098).u16(rowBytes | 0x8000).rect(0, 0, h, w);
    pixmapFields(b, 0, bits, 1);
    const unsigned colours = 1u << bits;
    // Entries listed backwards by value: a reader using positions gets the colours wrong.
    b.u32(0).u16(0).u16(colours - 1);
    for (unsigned i = colours; i-- > 0;)
      b.u16(i).u16(i * 1000).u16(65535 - i * 100).u16(i << 8);
    b.rect(0, 0, h, w).rect(0, 0, h, w).u16(0);
    for (unsigned y = 0; y < h; ++y) {
      Bytes row(rowBytes, 0);
      for (unsigned x = 0; x < w; ++x)
        row[x * bits / 8] |= static_cast<uint8_t>((x + y) % colours << (8 - bits - x * bits % 8));
      packedRow(b, row, 1);
    }
    auto image = decode(finish(b));
    ASSERT_TRUE(image.ok()) << bits << ": " << image.status().toString();
    for (unsigned y = 0; y < h; ++y)
      for (unsigned x = 0; x < w; ++x) {
        const unsigned i = (x + y) % colours;
        ASSERT_EQ(image->pixel(x, y), (Rgba{static_cast<uint8_t>(i * 1000 >> 8),
                                            static_cast<uint8_t>((65535 - i * 100) >> 8),
                                            static_cast<uint8_t>(i), 255}))
            << bits << " bits at " << x << "," << y;
      }
  }
}

TEST(PictDecodeTest, DirectPixelsInEveryPackType) {
  {
    // 16 bits, pack type 3: PackBits over 2-byte pixels x R5 G5 B5.
    Builder b = picture(0, 0, 1, 10);
    b.u16(0x009A).u32(0xFF).u16(20 | 0x8000).rect(0, 0, 1, 10);
    pixmapFields(b, 3, 16, 3);
    b.rect(0, 0, 1, 10).rect(0, 0, 1, 10).u16(0);
    b.u8(8).u8(1).u16(0x7C00).u16(0x001F).u8(0xF9).u16(0x7FFF);  // 2 literal, 8 repeated
    auto image = decode(finish(b));
    ASSERT_TRUE(image.ok()) << image.status().toString();
    EXPECT_EQ(image->pixel(0, 0), (Rgba{255, 0, 0, 255}));
    EXPECT_EQ(image->pixel(1, 0), (Rgba{0, 0, 255, 255}));
    EXPECT_EQ(image->pixel(9, 0), (Rgba{255, 255, 255, 255}));
  }
  const Image source = pattern(10, 2, false);
  for (unsigned packType : {1u, 2u}) {  // unpacked x R G B, and R G B without the pad
    Builder b = picture(0, 0, 2, 10);
    b.u16(0x009A).u32(0xFF).u16(40 | 0x8000).rect(0, 0, 2, 10);
    pixmapFields(b, packType, 32, 3);
    b.rect(0, 0, 2, 10).rect(0, 0, 2, 10).u16(0);
    for (size_t i = 0; i < source.pixels().size(); i += 4) {
      if (packType == 1) b.u8(0x00);
      b.u8(source.pixels()[i]).u8(source.pixels()[i + 1]).u8(source.pixels()[i + 2]);
    }
    EXPECT_EQ(*decode(finish(b)), source) << packType;
  }
  // Four planes whose A plane is zero everywhere: an unused pad, read as opaque.
  Image zeroAlpha = source;
  for (size_t i = 3; i < zeroAlpha.pixels().size(); i += 4)
    zeroAlpha.mutablePixels()[i] = 0;
  Builder b = picture(0, 0, 2, 10);
  directBits(b, zeroAlpha, 40, 1, 4);
  EXPECT_EQ(*decode(finish(b)), source);
}

TEST(PictDecodeTest, ReadsBothRowCountWidthsAndPackedShortRows) {
  // Apple's rule says one-byte counts for rowBytes 240 and two-byte ones for 300; pictures
  // written the other way round read as well. So does a one-pixel row packed although QuickDraw
  // keeps rows under 8 bytes unpacked.
  for (unsigned w : {60u, 75u, 1u}) {
    for (size_t countBytes : {size_t{1}, size_t{2}}) {
      const Image source = pattern(w, 4, false);
      Builder b = picture(0, 0, 4, w);
      directBits(b, source, 4 * w, countBytes);
      auto image = decode(finish(b));
      ASSERT_TRUE(image.ok()) << w << ": " << image.status().toString();
      EXPECT_EQ(*image, source) << w << " " << countBytes;
    }
  }
}

TEST(PictDecodeTest, PlacesScalesAndLeavesTheRestTransparent) {
  // A 2x2 pixmap (bounds at (5, 5)) drawn at twice its size into the lower right of a 6x6
  // frame at (10, 20), through a mask region that is ignored.
  const Image tile = pattern(2, 2, false);
  Builder b = picture(10, 20, 16, 26);
  b.u16(0x009B).u32(0xFF).u16(8 | 0x8000).rect(5, 5, 7, 7);
  pixmapFields(b, 1, 32, 3);
  b.rect(5, 5, 7, 7).rect(12, 22, 16, 26).u16(0).u16(10).rect(12, 22, 16, 26);
  for (size_t i = 0; i < 16; i += 4)
    b.u8(0).u8(tile.pixels()[i]).u8(tile.pixels()[i + 1]).u8(tile.pixels()[i + 2]);
  auto image = decode(finish(b));
  ASSERT_TRUE(image.ok()) << image.status().toString();
  ASSERT_EQ(image->width(), 6u);
  EXPECT_EQ(image->pixel(1, 1), Rgba{});  // nothing drawn there
  EXPECT_EQ(image->pixel(2, 2), tile.pixel(0, 0));
  EXPECT_EQ(image->pixel(3, 3), tile.pixel(0, 0));
  EXPECT_EQ(image->pixel(4, 2), tile.pixel(1, 0));
  EXPECT_EQ(image->pixel(2, 5), tile.pixel(0, 1));
  EXPECT_EQ(image->pixel(5, 5), tile.pixel(1, 1));
}

TEST(PictDecodeTest, SkipsEveryOtherOpcodeByItsLength) {
  const Image source = pattern(12, 3, true);
  Builder b = picture(0, 0, 3, 12);
  b.u16(0x0001).u16(18).rect(0, 0, 3, 12).u32(0x11111111).u32(0x22222222);   // non-rect clip
  b.u16(0x001E).u16(0x0004).u8(1).align().u16(0x001A).u16(1).u16(2).u16(3);  // odd length
  b.u16(0x00A0).u16(100).u16(0x00A1).u16(150).u16(5).text("hello").align();  // comments
  b.u16(0x0028).u16(1).u16(2).u8(3).text("abc");                             // LongText
  b.u16(0x002B).u8(1).u8(2).u8(2).text("xy").align();                        // DHDVText
  b.u16(0x002C).u16(6).u16(3).u8(3).text("Chi");                             // fontName
  b.u16(0x0030).rect(0, 0, 1, 1).u16(0x0038);                                // rect, same
  b.u16(0x0060).rect(0, 0, 1, 1).u32(90).u16(0x0068).u32(90);                // arcs
  b.u16(0x0070).u16(14).rect(0, 0, 1, 1).u32(0);                             // polygon
  b.u16(0x0081).u16(10).rect(0, 0, 1, 1);                                    // region
  b.u16(0x0012).u16(2).zeros(8).u16(1).u16(2).u16(3);                        // dither pattern
  b.u16(0x00A5).u16(3).text("abc").align().u16(0x00B3);                      // reserved
  b.u16(0x00D0).u32(5).text("12345").align().u16(0x0203).u32(0);
  b.u16(0x8000).u16(0x80FF).u16(0x8100).u32(3).text("xyz").align();
  // A full-colour 8x8 pattern, 8 bits, two colours, each row one run of 8.
  b.u16(0x0013).u16(1).zeros(8).u16(8 | 0x8000).rect(0, 0, 8, 8);
  pixmapFields(b, 0, 8, 1);
  b.u32(0).u16(0).u16(1).u16(0).zeros(6).u16(1).u16(65535).u16(65535).u16(65535);
  for (int y = 0; y < 8; ++y)
    b.u8(2).u8(0xF9).u8(y & 1);
  directBits(b.align(), source, 4 * 12, 1, 4);
  EXPECT_EQ(*decode(finish(b)), source);
}

// QuickTime opcode 0x8200 around `payload` of `codec`, moved by (dx, 0) through its matrix.
void quickTime(Builder& b, const char* codec, const Bytes& payload, uint32_t w, uint32_t h,
               int dx = 0) {
  Builder q;
  q.u16(0).u32(0x10000).u32(0).u32(0).u32(0).u32(0x10000).u32(0);
  q.u32(static_cast<uint32_t>(dx) << 16).u32(0).u32(0x40000000);
  q.u32(0).rect(0, 0, 0, 0).u16(0).rect(0, 0, h, w).u32(0x300).u32(0);  // 68 bytes
  q.u32(86).text(codec).zeros(12).text("appl").u32(0).u32(0x200).u16(w).u16(h);
  q.u32(0x480000).u32(0x480000).u32(static_cast<uint32_t>(payload.size())).u16(1);
  q.u8(4).text("test").zeros(27).u16(24).u16(0xFFFF).append(payload);  // 86-byte description
  b.u16(0x8200).u32(static_cast<uint32_t>(q.size())).append(q.bytes());
}

TEST(PictDecodeTest, QuickTimeImagesAndTheirFallback) {
  const Image source = pattern(16, 8, true);
  // PNG inside, moved 4 pixels right, then a fallback pixmap that must not paint over it.
  Builder png = picture(0, 0, 8, 20);
  quickTime(png, "png ", *source.pngRepresentation(), 16, 8, 4);
  directBits(png.align(), Image(20, 8, Rgba{1, 2, 3, 255}), 80, 1);
  auto image = decode(finish(png));
  ASSERT_TRUE(image.ok()) << image.status().toString();
  EXPECT_EQ(image->pixel(0, 0), Rgba{});
  EXPECT_EQ(image->pixel(4, 0), source.pixel(0, 0));
  EXPECT_EQ(image->pixel(19, 7), source.pixel(15, 7));

  Builder inner;  // 0x8201 wraps an ordinary pixel opcode
  inner.u16(0).zeros(36).u32(0).rect(0, 0, 0, 0);
  directBits(inner, source, 64, 1, 4);
  Builder wrapped = picture(0, 0, 8, 16);
  wrapped.u16(0x8201).u32(static_cast<uint32_t>(inner.size())).append(inner.bytes());
  EXPECT_EQ(*decode(finish(wrapped)), source);

  Builder rle = picture(0, 0, 8, 16);
  quickTime(rle, "rle ", Bytes(10, 0), 16, 8);
  EXPECT_NE(errorOf(finish(rle)).find("codec 'rle ' not decoded"), std::string::npos);
  Builder cut = picture(0, 0, 8, 16);
  const Bytes jpeg = *source.jpegRepresentation();
  quickTime(cut, "jpeg", Bytes(jpeg.begin(), jpeg.begin() + 30), 16, 8);
  EXPECT_EQ(errorOf(finish(cut)).rfind("offset 200: opcode 0x8200 (QuickTime image): JPEG: ", 0),
            0u);  // 40 + opcode and length 6 + header 68 + description 86
}

// Pictures other programs wrote (tests/corpus/image/make_corpus.sh), against the pixels
// ImageMagick reads from them; its reading drops alpha, so the alpha picture's expected pixels
// are its source's.
TEST(PictDecodeTest, ReadsOtherWritersPictures) {
  const std::pair<const char*, int> cases[] = {
      {"pict-ppmtopict", 0},
      {"pict-imagemagick", 0},
      {"pict-imagemagick-alpha", 0},
      {"pict-graphicsmagick", 0},
      {"pict-imagemagick-jpeg", 0},
      {"pict-imagemagick-palette", 1}};  // 16-bit colour entries, rounded differently
  for (const auto& [name, tolerance] : cases) {
    auto image = decode(test::readFile(test::corpus(std::string(name) + ".pict")));
    ASSERT_TRUE(image.ok()) << name << ": " << image.status().toString();
    auto expected =
        Image::create(24, 16, test::readFile(test::corpus(std::string(name) + ".rgba")));
    EXPECT_LE(test::maxDifference(*image, *expected), tolerance) << name;
  }
}

TEST(PictHostileTest, EveryTruncationFailsWithAnOffsetOrShowsTheWholePicture) {
  const Image source = pattern(20, 6, true);
  const Bytes pict = *encodePict(source);
  for (size_t n = 0; n < pict.size(); ++n) {
    auto image = decode(Bytes(pict.begin(), pict.begin() + static_cast<ptrdiff_t>(n)));
    if (image.ok()) {
      EXPECT_GE(n, pict.size() - 3);  // only the pad byte and end opcode may be missing
      EXPECT_EQ(*image, source);
    } else {
      EXPECT_EQ(image.status().message().rfind("offset ", 0), 0u) << n;
    }
  }
}

TEST(PictHostileTest, ErrorsNameTheOffsetAndTheReason) {
  EXPECT_EQ(errorOf(Bytes(40, 0)).rfind("offset 10: no picture version opcode", 0), 0u);
  Builder huge = picture(0, 0, 30000, 30000);
  EXPECT_EQ(decode(finish(huge)).status().code(), memFullErr);
  EXPECT_NE(errorOf(finish(huge)).find("offset 2: picture frame"), std::string::npos);

  Builder length = picture(0, 0, 4, 4);
  length.u16(0x00A5).u16(0xFFFF).zeros(4);
  EXPECT_EQ(errorOf(length.bytes()).rfind("offset 40: opcode 0x00A5 needs 65535 bytes", 0), 0u);
  Builder region = picture(0, 0, 4, 4);
  region.u16(0x0001).u16(4);
  EXPECT_NE(errorOf(finish(region)).find("offset 42: clip region size 4 below 10"),
            std::string::npos);
  Builder nothing = picture(0, 0, 4, 4);
  EXPECT_NE(errorOf(finish(nothing.u16(0x001E))).find("no pixel data"), std::string::npos);

  const auto pixmap = [](unsigned rowBytes, int h, int w, unsigned packType, unsigned bits) {
    Builder b = picture(0, 0, 4, 4);
    b.u16(0x009A).u32(0xFF).u16(rowBytes | 0x8000).rect(0, 0, h, w);
    pixmapFields(b, packType, bits, 3);
    b.rect(0, 0, 4, 4).rect(0, 0, 4, 4).u16(0);
    return b;
  };
  // Huge bounds with hardly any data: refused before anything is allocated.
  Builder bounds = pixmap(0x3FFC, 16000, 4095, 4, 32);
  EXPECT_NE(errorOf(finish(bounds.zeros(8)), {.maxPixelBytes = 1 << 24}).find("DirectBitsRect"),
            std::string::npos);
  Builder narrow = pixmap(12, 1, 4, 4, 32);
  EXPECT_NE(errorOf(finish(narrow)).find("rowBytes 12 too small"), std::string::npos);
  // Two runs of 128 in a row of 12 bytes: the offset is that of the first run's header.
  Builder run = pixmap(16, 1, 4, 4, 32);
  const size_t header = run.size() + 1;
  run.u8(4).u8(0x81).u8(7).u8(0x81).u8(7);
  EXPECT_EQ(errorOf(finish(run))
                .rfind("offset " + std::to_string(header) +
                           ": opcode 0x009A (DirectBitsRect) row 0: data "
                           "expands past the end of the row",
                       0),
            0u);
}

}  // namespace
}  // namespace rvitunes::image
