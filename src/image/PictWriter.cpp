// The PICT encoder: one DirectBitsRect with 32-bit pixels in pack type 4.
#include <algorithm>

#include "PackBits.h"
#include "rvitunes/image/Pict.h"

namespace rvitunes::image {
namespace {

constexpr uint32_t kDpi72 = 0x00480000;  // 72.0 as Fixed

class BigEndianWriter {
 public:
  explicit BigEndianWriter(std::vector<uint8_t>& out) : out_(out) {}
  void u8(unsigned v) { out_.push_back(static_cast<uint8_t>(v)); }
  void u16(unsigned v) {
    u8(v >> 8);
    u8(v);
  }
  void u32(uint32_t v) {
    u16(v >> 16);
    u16(v & 0xFFFF);
  }
  // A rectangle from (0, 0) to (height, width): top, left, bottom, right.
  void rect(uint32_t width, uint32_t height) {
    u16(0);
    u16(0);
    u16(height);
    u16(width);
  }

 private:
  std::vector<uint8_t>& out_;
};

// The row layout of the DirectBitsRect. QuickDraw decides by rowBytes: rows under 8 bytes are
// stored unpacked, and packed rows carry a 2-byte count when rowBytes > 250, else a 1-byte one.
// Widely used readers decide by the length of the unpacked planes instead (planes × width: under
// 8 unpacked, above 200 a 2-byte count) and never look at rowBytes or the pack type. The layout
// is chosen so that both rules give the same answer:
//   - width 1: four planes and rowBytes 4, so the unpacked row A R G B is also the pixel as
//     QuickDraw keeps it in memory (pad byte first, here alpha);
//   - width 2, and widths 63-66 (3 × width <= 200 < 4 × width): four planes, so that the
//     plane length lands on the same side of both thresholds as rowBytes;
//   - four planes and widths 51-62: rowBytes padded to 252, above 250 like 4 × width > 200.
// The fourth plane of an opaque image is all 255.
struct Layout {
  uint32_t planes;
  uint32_t rowBytes;
};

Layout layoutFor(uint32_t width, bool alpha) {
  const bool fourPlanes = alpha || width <= 2 || (width >= 63 && width <= 66);
  Layout layout{fourPlanes ? 4u : 3u, 4 * width};
  if (layout.planes * width > 200 && layout.rowBytes <= 250) layout.rowBytes = 252;
  return layout;
}

}  // namespace

Result<std::vector<uint8_t>> encodePict(const Image& image, const PictWriteOptions& options) {
  if (image.empty()) return Status::error(paramErr, "PICT: the image is empty");
  const uint32_t width = image.width();
  const uint32_t height = image.height();
  if (width > kPictMaxWidth || height > 32767) {
    return Status::error(paramErr, "PICT: " + std::to_string(width) + "x" + std::to_string(height) +
                                       " exceeds " + std::to_string(kPictMaxWidth) + "x32767");
  }
  const bool alpha = options.alpha == PictAlpha::kAlways ||
                     (options.alpha == PictAlpha::kAuto && image.hasTransparency());
  const Layout layout = layoutFor(width, alpha);
  const uint32_t planes = layout.planes;
  const uint32_t rowBytes = layout.rowBytes;
  const bool wideCounts = rowBytes > 250;

  std::vector<uint8_t> out;
  out.reserve(600 + size_t{width} * height * planes);
  if (options.fileHeader) out.assign(512, 0);
  const size_t start = out.size();
  BigEndianWriter w(out);
  w.u16(0);  // picSize, patched below
  w.rect(width, height);
  w.u16(0x0011);  // VersionOp
  w.u16(0x02FF);  // version 2
  w.u16(0x0C00);  // HeaderOp, extended form
  w.u16(0xFFFE);
  w.u16(0);
  w.u32(kDpi72);
  w.u32(kDpi72);
  w.rect(width, height);
  w.u32(0);
  w.u16(0x0001);  // Clip: a rectangular region
  w.u16(10);
  w.rect(width, height);

  w.u16(0x009A);      // DirectBitsRect
  w.u32(0x000000FF);  // baseAddr
  w.u16(rowBytes | 0x8000);
  w.rect(width, height);  // bounds
  w.u16(0);               // pmVersion
  w.u16(4);               // packType: component planes, PackBits
  w.u32(0);               // packSize
  w.u32(kDpi72);
  w.u32(kDpi72);
  w.u16(16);  // pixelType: RGBDirect
  w.u16(32);  // pixelSize
  w.u16(planes);
  w.u16(8);               // cmpSize
  w.u32(0);               // planeBytes
  w.u32(0);               // pmTable
  w.u32(0);               // pmReserved
  w.rect(width, height);  // srcRect
  w.rect(width, height);  // dstRect
  w.u16(0);               // srcCopy

  std::vector<uint8_t> row(size_t{width} * planes);
  std::vector<uint8_t> packed;
  const auto pixels = image.pixels();
  for (uint32_t y = 0; y < height; ++y) {
    const uint8_t* in = &pixels[size_t{y} * width * 4];
    uint8_t* plane = row.data();
    if (planes == 4) {
      for (uint32_t x = 0; x < width; ++x)
        plane[x] = alpha ? in[4 * x + 3] : 255;
      plane += width;
    }
    for (unsigned c = 0; c < 3; ++c, plane += width) {
      for (uint32_t x = 0; x < width; ++x)
        plane[x] = in[4 * x + c];
    }
    if (rowBytes < 8) {  // one pixel: stored unpacked
      out.insert(out.end(), row.begin(), row.end());
      continue;
    }
    packed.clear();
    detail::packBits(row, packed);
    if (wideCounts) {
      w.u16(static_cast<unsigned>(packed.size()));
    } else {
      w.u8(static_cast<unsigned>(packed.size()));
    }
    out.insert(out.end(), packed.begin(), packed.end());
  }
  if ((out.size() - start) & 1) w.u8(0);
  w.u16(0x00FF);  // OpEndPic
  const size_t size = out.size() - start;
  out[start] = static_cast<uint8_t>(size >> 8);
  out[start + 1] = static_cast<uint8_t>(size);
  return out;
}

}  // namespace rvitunes::image
