#include "rvitunes/image/IconFamily.h"

#include <gtest/gtest.h>

#include <string>

#include "ImageTestSupport.h"

namespace rvitunes::image {
namespace {

using test::Builder;
using test::Bytes;
using test::pattern;

Result<IconFamily> read(const Bytes& bytes) {
  return IconFamily::read(std::span<const uint8_t>(bytes));
}

struct Element {
  std::string type;
  Bytes payload;
};

// The elements of a family, checking the container's lengths on the way.
std::vector<Element> elements(const Bytes& family) {
  const auto u32 = [&](size_t at) {
    return uint32_t{family[at]} << 24 | uint32_t{family[at + 1]} << 16 |
           uint32_t{family[at + 2]} << 8 | family[at + 3];
  };
  EXPECT_EQ(std::string(family.begin(), family.begin() + 4), "icns");
  EXPECT_EQ(u32(4), family.size());
  std::vector<Element> out;
  for (size_t at = 8; at + 8 <= family.size(); at += u32(at + 4)) {
    const auto begin = family.begin() + static_cast<ptrdiff_t>(at);
    EXPECT_LE(at + u32(at + 4), family.size());
    out.push_back({std::string(begin, begin + 4), Bytes(begin + 8, begin + u32(at + 4))});
  }
  return out;
}

Bytes family(const std::vector<Element>& elements) {
  size_t total = 8;
  for (const auto& e : elements)
    total += 8 + e.payload.size();
  Builder b;
  b.text("icns").u32(static_cast<uint32_t>(total));
  for (const auto& e : elements)
    b.text(e.type).u32(static_cast<uint32_t>(8 + e.payload.size())).append(e.payload);
  return b.bytes();
}

// One channel of `image` in the icon run-length form, written without our encoder: literals of
// 128 up to `runFrom`, then runs of up to 130 (the channel must be constant from there).
Bytes iconRle(const Image& image, int channel, size_t runFrom) {
  Bytes values, out;
  for (size_t i = static_cast<size_t>(channel); i < image.pixels().size(); i += 4)
    values.push_back(image.pixels()[i]);
  for (size_t i = 0; i < runFrom; i += 128) {
    out.push_back(127);
    out.insert(out.end(), values.begin() + static_cast<ptrdiff_t>(i),
               values.begin() + static_cast<ptrdiff_t>(i + 128));
  }
  for (size_t i = runFrom; i < values.size(); i += 128)
    out.push_back(128 + 125), out.push_back(values[i]);
  return out;
}

// 16x16, patterned above and one colour below, so that run-length data has both chunk kinds.
Image halfPlain() {
  Image image = pattern(16, 16, true);
  for (uint32_t y = 8; y < 16; ++y)
    for (uint32_t x = 0; x < 16; ++x)
      image.setPixel(x, y, Rgba{10, 20, 30, 200});
  return image;
}

TEST(IconFamilyTest, WritesEverySizeAndReadsItBackExactly) {
  std::vector<Image> images;
  for (uint32_t size : IconFamily::kWritableSizes)
    images.push_back(pattern(size, size, true));
  std::swap(images[0], images[5]);  // the order given does not matter
  const Bytes bytes = *IconFamily::write(images);
  std::string types;
  for (const auto& e : elements(bytes))
    types += e.type + " ";
  EXPECT_EQ(types, "is32 s8mk icp4 il32 l8mk icp5 ih32 h8mk icp6 it32 t8mk ic07 ic08 ic09 ic10 ");
  auto back = read(bytes);
  ASSERT_TRUE(back.ok()) << back.status().toString();
  EXPECT_TRUE(back->notes().empty());
  ASSERT_EQ(back->images().size(), 8u);
  for (uint32_t size : IconFamily::kWritableSizes)
    EXPECT_EQ(back->images().at(size), pattern(size, size, true)) << size;
  EXPECT_EQ(Image::fromData(std::span<const uint8_t>(bytes))->width(), 1024u);  // the largest
}

TEST(IconFamilyTest, RunLengthElementsAloneCarryTheIcon) {
  // Without the PNG elements, sizes 16, 32, 48 and 128 come from RGB runs and raw masks; the
  // 128-pixel RGB element starts with four zero bytes.
  const std::vector<Image> images = {halfPlain(), pattern(32, 32, true), pattern(48, 48, false),
                                     pattern(128, 128, true)};
  std::vector<Element> runLength;
  for (auto& e : elements(*IconFamily::write(images)))
    if (e.type.ends_with("32") || e.type.ends_with("8mk")) runLength.push_back(e);
  ASSERT_EQ(runLength.size(), 8u);
  EXPECT_EQ(Bytes(runLength[6].payload.begin(), runLength[6].payload.begin() + 4), Bytes(4, 0));
  EXPECT_EQ(runLength[1].payload.size(), 256u);
  auto back = read(family(runLength));
  ASSERT_TRUE(back.ok()) << back.status().toString();
  for (const Image& image : images)
    EXPECT_EQ(back->images().at(image.width()), image);
}

TEST(IconFamilyTest, ReadsArgbRawRgbAndMasklessElements) {
  const Image icon = halfPlain();
  Bytes argb = {'A', 'R', 'G', 'B'}, rgb;
  for (int c : {3, 0, 1, 2}) {
    const Bytes packed = iconRle(icon, c, 128);
    argb.insert(argb.end(), packed.begin(), packed.end());
    if (c != 3) rgb.insert(rgb.end(), packed.begin(), packed.end());
  }
  EXPECT_EQ(read(family({{"ic04", argb}}))->images().at(16), icon);

  // RGB with a mask too short to use: noted, and the icon is opaque.
  auto shortMask = read(family({{"is32", rgb}, {"s8mk", Bytes(100, 0)}}));
  EXPECT_EQ(shortMask->images().at(16), test::opaque(icon));
  ASSERT_EQ(shortMask->notes().size(), 1u);
  EXPECT_NE(shortMask->notes()[0].find("100 of 256 mask bytes"), std::string::npos);

  // Exactly 16 x 16 x 3 bytes that are not run-length data (the third run crosses the end of
  // the first channel): interleaved R G B.
  Bytes raw;
  for (size_t i = 0; i < 256; ++i)
    raw.insert(raw.end(), {0xFF, 0xFF, static_cast<uint8_t>(i)});
  EXPECT_EQ(read(family({{"is32", raw}}))->images().at(16).pixel(5, 1), (Rgba{255, 255, 21, 255}));
}

TEST(IconFamilyTest, PrefersPngAndNotesWhatItSkips) {
  const Image red(32, 32, Rgba{255, 0, 0, 255}), blue(32, 32, Rgba{0, 0, 255, 255});
  const auto redElements = elements(*IconFamily::write({red}));  // il32, l8mk, icp5
  const Bytes jpeg2000 = {0x00, 0x00, 0x00, 0x0C, 'j', 'P', 0x20, 0x20, 0x0D, 0x0A, 0x87, 0x0A};
  const std::vector<Element> list = {
      {"TOC ", Bytes(16, 0)},  elements(*IconFamily::write({blue}))[2],
      redElements[0],          redElements[1],
      {"ic08", jpeg2000},      {"zzzz", Bytes(3, 1)},
      {"ICN#", Bytes(256, 0)}, {"slct", Bytes(8, 0)}};
  auto back = read(family(list));
  ASSERT_TRUE(back.ok()) << back.status().toString();
  EXPECT_EQ(back->images().at(32), blue);  // the PNG, though the RGB element comes later
  const auto at = [&](size_t index) {
    size_t offset = 8;
    for (size_t i = 0; i < index; ++i)
      offset += 8 + list[i].payload.size();
    return "offset " + std::to_string(offset) + ": ";
  };
  std::string notes;
  for (const auto& note : back->notes())
    notes += note + "\n";
  EXPECT_EQ(notes, at(0) + "skipped 'TOC ' (table of contents)\n" + at(4) +
                       "'ic08' holds JPEG 2000, not decoded\n" + at(5) +
                       "skipped unknown element 'zzzz'\n" + at(6) +
                       "skipped 'ICN#' (1-bit icon and mask)\n" + at(7) +
                       "skipped 'slct' (nested selected family)\n");
}

TEST(IconFamilyTest, WriteRefusesSizesIconsDoNotHave) {
  EXPECT_EQ(IconFamily::write({}).status().code(), paramErr);
  EXPECT_EQ(IconFamily::write({Image(16, 32)}).status().code(), paramErr);
  EXPECT_EQ(IconFamily::write({Image(20, 20)}).status().code(), paramErr);
  EXPECT_EQ(IconFamily::write({Image(16, 16), Image(16, 16)}).status().code(), paramErr);
}

TEST(IconFamilyHostileTest, ErrorsNameTheOffset) {
  const auto error = [](const Bytes& bytes) { return read(bytes).status().message(); };
  EXPECT_EQ(error({'i', 'c', 'o', 'n'}).rfind("offset 0: not an icon family", 0), 0u);
  EXPECT_EQ(error({'i', 'c', 'n', 's', 0, 0, 0, 4}).rfind("offset 4: family length 4", 0), 0u);
  const Bytes whole = *IconFamily::write({pattern(16, 16, true)});
  for (size_t cut : {size_t{6}, size_t{20}, whole.size() - 1}) {
    auto truncated = read(Bytes(whole.begin(), whole.begin() + static_cast<ptrdiff_t>(cut)));
    EXPECT_EQ(truncated.status().code(), eofErr) << cut;
  }
  Bytes longElement = family({{"is32", Bytes(20, 0)}});
  longElement[15] = 200;
  EXPECT_EQ(error(longElement).rfind("offset 8: element 'is32' length 200 leaves the family", 0),
            0u);
  // Two runs of 130 in a channel of 256: the only element, so the family fails with its note.
  EXPECT_NE(error(family({{"is32", {0xFF, 1, 0xFF, 1}}}))
                .find("offset 8: 'is32' not decoded: offset 18: channel 0 at byte 130 of 256: "
                      "repeat runs past the channel"),
            std::string::npos);
  // A literal of 128 with two bytes, beside a good PNG: noted, the PNG still read.
  auto partly =
      read(family({{"il32", {0x7F, 1, 2}}, {"icp4", *pattern(16, 16, false).pngRepresentation()}}));
  ASSERT_TRUE(partly.ok());
  EXPECT_NE(partly->notes().at(0).find("literal runs past the data"), std::string::npos);
}

}  // namespace
}  // namespace rvitunes::image
