// The PICT decoder: walks the opcode stream, skips what it cannot draw by each opcode's length
// rule, and copies every bitmap, pixmap and QuickTime image onto the canvas.
#include <algorithm>
#include <cmath>
#include <cstdio>

#include "ByteCursor.h"
#include "Codecs.h"
#include "PackBits.h"
#include "rvitunes/base/FourCharCode.h"
#include "rvitunes/image/Pict.h"

namespace rvitunes::image {
namespace {

using detail::ByteCursor;
using detail::errorAt;

constexpr size_t kFileHeaderBytes = 512;

std::string hex4(unsigned op) {
  char text[8];
  std::snprintf(text, sizeof text, "0x%04X", op & 0xFFFF);
  return text;
}

struct QdRect {
  int16_t top = 0, left = 0, bottom = 0, right = 0;
  int32_t width() const { return int32_t{right} - left; }
  int32_t height() const { return int32_t{bottom} - top; }
  bool empty() const { return width() <= 0 || height() <= 0; }
  std::string text() const {
    return "(" + std::to_string(top) + ", " + std::to_string(left) + ", " + std::to_string(bottom) +
           ", " + std::to_string(right) + ")";
  }
};

// A 16-bit colour component to 8 bits: its high byte, as QuickDraw takes it for 32-bit pixels.
uint8_t to8(uint16_t v) {
  return static_cast<uint8_t>(v >> 8);
}

QdRect readRect(ByteCursor& c) {
  QdRect r;
  r.top = c.s16();
  r.left = c.s16();
  r.bottom = c.s16();
  r.right = c.s16();
  return r;
}

const char* pixelOpName(unsigned op) {
  switch (op) {
    case 0x90:
      return "BitsRect";
    case 0x91:
      return "BitsRgn";
    case 0x98:
      return "PackBitsRect";
    case 0x99:
      return "PackBitsRgn";
    case 0x9A:
      return "DirectBitsRect";
    case 0x9B:
      return "DirectBitsRgn";
  }
  return "PixPat";
}

// A bitmap or pixmap as stored in the picture, before it is converted to RGBA.
struct PixMapHeader {
  uint16_t rowBytes = 0;
  bool isPixMap = false;
  QdRect bounds;
  uint16_t packType = 0;
  uint16_t pixelSize = 1;
  uint16_t cmpCount = 1;
};

// Decoded pixels in the coordinates of `bounds`.
struct Bitmap {
  QdRect bounds;
  uint32_t width = 0;
  uint32_t height = 0;
  std::vector<uint8_t> rgba;
};

// How the rows of a pixmap are stored.
enum class RowForm {
  kRaw,       // rowBytes per row, as in memory
  kRaw24,     // 3 bytes a pixel, R G B (pack type 2)
  kPacked,    // count + PackBits of bytes, unpacking to rowBytes
  kPacked16,  // count + PackBits of 2-byte pixels (pack type 3)
  kPlanar,    // count + PackBits of the component planes (pack type 4)
};

class PictDecoder {
 public:
  PictDecoder(std::span<const uint8_t> data, const DecodeLimits& limits)
      : data_(data), limits_(limits) {}

  Result<Image> run();

 private:
  Status opcode(ByteCursor& c, unsigned op, size_t at);
  Status skip(ByteCursor& c, size_t n, size_t at, unsigned op);
  Status skipLength16(ByteCursor& c, size_t at, unsigned op);
  Status skipLength32(ByteCursor& c, size_t at, unsigned op);
  Status skipShape(ByteCursor& c, size_t at, unsigned op, const char* what);
  Status skipText(ByteCursor& c, size_t at, unsigned op, size_t before);
  Status skipPixPat(ByteCursor& c, size_t at, unsigned op);
  Status pixels(ByteCursor& c, unsigned op, size_t at, bool draw);
  Status readPixMapHeader(ByteCursor& c, bool direct, const std::string& where, PixMapHeader& pm);
  Status readColorTable(ByteCursor& c, const std::string& where, std::vector<Rgba>& palette);
  Status readPixData(ByteCursor& c, const std::string& where, const PixMapHeader& pm,
                     const std::vector<Rgba>& palette, Bitmap& out);
  Status readRows(ByteCursor& c, const std::string& where, const PixMapHeader& pm, RowForm form,
                  size_t countBytes, const std::vector<Rgba>& palette, Bitmap& out);
  Status quickTime(ByteCursor& c, size_t at);
  Status quickTimeUncompressed(ByteCursor& c);
  Status blit(const Bitmap& bitmap, QdRect src, QdRect dst, size_t at);

  std::span<const uint8_t> data_;
  const DecodeLimits& limits_;
  size_t start_ = 0;
  bool v2_ = false;
  QdRect frame_;
  uint32_t canvasWidth_ = 0;
  uint32_t canvasHeight_ = 0;
  std::vector<uint8_t> canvas_;  // allocated by the first copy
  uint64_t blitBudget_ = 0;      // pixels all copies together may write
  bool drew_ = false;
  bool quickTimeDrew_ = false;
  std::vector<std::string> undrawn_;
};

bool versionAt(std::span<const uint8_t> data, size_t at, bool& v2) {
  if (data.size() >= at + 4 && data[at] == 0x00 && data[at + 1] == 0x11 && data[at + 2] == 0x02 &&
      data[at + 3] == 0xFF) {
    v2 = true;
    return true;
  }
  if (data.size() >= at + 2 && data[at] == 0x11 && data[at + 1] == 0x01) {
    v2 = false;
    return true;
  }
  return false;
}

Result<Image> PictDecoder::run() {
  if (versionAt(data_, 10, v2_)) {
    start_ = 0;
  } else if (versionAt(data_, kFileHeaderBytes + 10, v2_)) {
    start_ = kFileHeaderBytes;
  } else {
    return errorAt(10, "no picture version opcode at offset 10 or 522");
  }
  ByteCursor c(data_, start_, data_.size());
  c.skip(2);  // picSize: only the low 16 bits of the length, not used
  frame_ = readRect(c);
  if (frame_.empty()) return errorAt(start_ + 2, "empty picture frame " + frame_.text());
  if (Status s = limits_.check(static_cast<uint64_t>(frame_.width()),
                               static_cast<uint64_t>(frame_.height()),
                               "offset " + std::to_string(start_ + 2) + ": picture frame");
      !s.ok())
    return s;
  canvasWidth_ = static_cast<uint32_t>(frame_.width());
  canvasHeight_ = static_cast<uint32_t>(frame_.height());
  blitBudget_ = uint64_t{canvasWidth_} * canvasHeight_ * 4 + (uint64_t{1} << 22);

  while (true) {
    if (v2_ && ((c.offset() - start_) & 1) && c.left() > 0) c.skip(1);
    const size_t at = c.offset();
    if (!c.has(v2_ ? 2 : 1)) {
      // A picture cut just before its end opcode still shows what it drew.
      if (drew_) break;
      return errorAt(at, "picture ends without an end opcode", eofErr);
    }
    const unsigned op = v2_ ? c.u16() : c.u8();
    if (op == 0x00FF) break;
    if (Status s = opcode(c, op, at); !s.ok()) return s;
  }
  if (!drew_) {
    std::string why = "picture holds no pixel data we can draw";
    for (const auto& note : undrawn_)
      why += "; " + note;
    return errorAt(c.offset(), why);
  }
  // Everything drawn may have fallen outside the frame.
  if (canvas_.empty()) canvas_.assign(size_t{canvasWidth_} * canvasHeight_ * 4, 0);
  return Image::create(canvasWidth_, canvasHeight_, std::move(canvas_), limits_);
}

Status PictDecoder::skip(ByteCursor& c, size_t n, size_t at, unsigned op) {
  if (!c.has(n)) {
    return errorAt(at,
                   "opcode " + hex4(op) + " needs " + std::to_string(n) + " bytes of data, " +
                       std::to_string(c.left()) + " left",
                   eofErr);
  }
  c.skip(n);
  return Status();
}

Status PictDecoder::skipLength16(ByteCursor& c, size_t at, unsigned op) {
  if (!c.has(2)) return skip(c, 2, at, op);
  return skip(c, c.u16(), at, op);
}

Status PictDecoder::skipLength32(ByteCursor& c, size_t at, unsigned op) {
  if (!c.has(4)) return skip(c, 4, at, op);
  return skip(c, c.u32(), at, op);
}

// Regions and polygons: a 16-bit size that counts itself and the 8-byte bounding box.
Status PictDecoder::skipShape(ByteCursor& c, size_t at, unsigned op, const char* what) {
  if (!c.has(2)) return skip(c, 2, at, op);
  const size_t sizeAt = c.offset();
  const uint16_t size = c.u16();
  if (size < 10) {
    return errorAt(sizeAt, std::string(what) + " size " + std::to_string(size) + " below 10");
  }
  return skip(c, size - 2u, at, op);
}

// Text opcodes: `before` bytes of position, then a count byte and that many characters.
Status PictDecoder::skipText(ByteCursor& c, size_t at, unsigned op, size_t before) {
  if (!c.has(before + 1)) return skip(c, before + 1, at, op);
  c.skip(before);
  return skip(c, c.u8(), at, op);
}

Status PictDecoder::opcode(ByteCursor& c, unsigned op, size_t at) {
  // Version 2 opcodes above the first page.
  if (op >= 0x0100) {
    if (op == 0x8200) return quickTime(c, at);
    if (op == 0x8201) return quickTimeUncompressed(c);
    if (op <= 0x7FFF) return skip(c, 2 * (op >> 8), at, op);
    if (op <= 0x80FF) return Status();
    return skipLength32(c, at, op);
  }
  switch (op) {
    case 0x00:  // NOP
    case 0x17:
    case 0x18:
    case 0x19:
    case 0x1C:  // HiliteMode
    case 0x1E:  // DefHilite
      return Status();
    case 0x01:  // Clip
      return skipShape(c, at, op, "clip region");
    case 0x04:  // TxFace
      return skip(c, 1, at, op);
    case 0x03:
    case 0x05:
    case 0x08:
    case 0x0D:
    case 0x15:
    case 0x16:
    case 0x23:
    case 0xA0:  // ShortComment
      return skip(c, 2, at, op);
    case 0x06:
    case 0x07:
    case 0x0B:
    case 0x0C:
    case 0x0E:
    case 0x0F:
    case 0x21:
      return skip(c, 4, at, op);
    case 0x1A:
    case 0x1B:
    case 0x1D:
    case 0x1F:
    case 0x22:
      return skip(c, 6, at, op);
    case 0x02:
    case 0x09:
    case 0x0A:
    case 0x10:
    case 0x20:
      return skip(c, 8, at, op);
    case 0x11:  // VersionOp: 0x01 in version 1, 0x02FF in version 2
      return skip(c, v2_ ? 2 : 1, at, op);
    case 0x12:
    case 0x13:
    case 0x14:
      return skipPixPat(c, at, op);
    case 0x28:  // LongText: point, then the text
      return skipText(c, at, op, 4);
    case 0x29:  // DHText
    case 0x2A:  // DVText
      return skipText(c, at, op, 1);
    case 0x2B:  // DHDVText
      return skipText(c, at, op, 2);
    case 0x90:
    case 0x91:
    case 0x98:
    case 0x99:
    case 0x9A:
    case 0x9B:
      // After a QuickTime image, pixel opcodes are the fallback for readers without QuickTime.
      return pixels(c, op, at, !quickTimeDrew_);
    case 0xA1: {  // LongComment: kind, then a 16-bit length
      if (!c.has(4)) return skip(c, 4, at, op);
      c.skip(2);
      return skip(c, c.u16(), at, op);
    }
    default:
      break;
  }
  if (op >= 0x30 && op <= 0x6F) {  // rect, rrect, oval (8 or 0), arc (12 or 4)
    const bool same = (op & 0x08) != 0;
    if (op >= 0x60) return skip(c, same ? 4 : 12, at, op);
    return skip(c, same ? 0 : 8, at, op);
  }
  if (op >= 0x70 && op <= 0x8F) {  // polygons and regions, or their "same" forms
    if (op & 0x08) return Status();
    return skipShape(c, at, op, op < 0x80 ? "polygon" : "region");
  }
  if ((op >= 0x24 && op <= 0x27) || (op >= 0x2C && op <= 0x2F) || (op >= 0x92 && op <= 0x97) ||
      (op >= 0x9C && op <= 0x9F) || (op >= 0xA2 && op <= 0xAF))
    return skipLength16(c, at, op);
  if (op >= 0xB0 && op <= 0xCF) return Status();
  return skipLength32(c, at, op);  // 0xD0-0xFE
}

Status PictDecoder::readPixMapHeader(ByteCursor& c, bool direct, const std::string& where,
                                     PixMapHeader& pm) {
  if (Status s = c.need(10, (where + ": rowBytes and bounds").c_str()); !s.ok()) return s;
  const uint16_t raw = c.u16();
  pm.isPixMap = direct || (raw & 0x8000) != 0;
  pm.rowBytes = raw & 0x3FFF;
  pm.bounds = readRect(c);
  if (!pm.isPixMap) return Status();
  if (Status s = c.need(36, (where + ": pixmap fields").c_str()); !s.ok()) return s;
  c.skip(2);  // pmVersion
  pm.packType = c.u16();
  c.skip(4 + 8 + 2);  // packSize, hRes, vRes, pixelType
  pm.pixelSize = c.u16();
  pm.cmpCount = c.u16();
  c.skip(2 + 12);  // cmpSize, planeBytes, pmTable, pmReserved
  return Status();
}

Status PictDecoder::readColorTable(ByteCursor& c, const std::string& where,
                                   std::vector<Rgba>& palette) {
  if (Status s = c.need(8, (where + ": colour table header").c_str()); !s.ok()) return s;
  c.skip(4);  // ctSeed
  const uint16_t flags = c.u16();
  const auto last = static_cast<int16_t>(c.u16());  // count - 1; -1 for an empty table
  const size_t count = last < 0 ? 0 : static_cast<size_t>(last) + 1;
  if (Status s = c.need(count * 8, (where + ": colour table").c_str()); !s.ok()) return s;
  palette.assign(256, Rgba{0, 0, 0, 255});
  for (size_t i = 0; i < count; ++i) {
    const uint16_t value = c.u16();
    const uint16_t r = c.u16(), g = c.u16(), b = c.u16();
    const size_t index = (flags & 0x8000) ? i : value;
    if (index < palette.size()) {
      palette[index] = Rgba{to8(r), to8(g), to8(b), 255};
    }
  }
  return Status();
}

Status PictDecoder::readPixData(ByteCursor& c, const std::string& where, const PixMapHeader& pm,
                                const std::vector<Rgba>& palette, Bitmap& out) {
  const int32_t width = pm.bounds.width();
  const int32_t height = pm.bounds.height();
  if (width <= 0 || height <= 0) {
    return errorAt(c.offset(), where + ": empty bounds " + pm.bounds.text());
  }
  const std::string sizeWhat = "offset " + std::to_string(c.offset()) + ": " + where;
  if (Status s =
          limits_.check(static_cast<uint64_t>(width), static_cast<uint64_t>(height), sizeWhat);
      !s.ok())
    return s;
  const uint16_t bits = pm.pixelSize;
  if (bits != 1 && bits != 2 && bits != 4 && bits != 8 && bits != 16 && bits != 32) {
    return errorAt(c.offset(), where + ": " + std::to_string(bits) + "-bit pixels not supported");
  }
  const uint64_t minRowBytes = (uint64_t{static_cast<uint32_t>(width)} * bits + 7) / 8;
  if (pm.rowBytes < minRowBytes) {
    return errorAt(c.offset(), where + ": rowBytes " + std::to_string(pm.rowBytes) +
                                   " too small for " + std::to_string(width) + " pixels of " +
                                   std::to_string(bits) + " bits");
  }
  RowForm form = RowForm::kPacked;
  if (bits <= 8) {
    form = pm.packType == 1 ? RowForm::kRaw : RowForm::kPacked;
  } else if (bits == 16) {
    if (pm.packType == 1) {
      form = RowForm::kRaw;
    } else if (pm.packType == 0 || pm.packType == 3) {
      form = RowForm::kPacked16;
    } else {
      return errorAt(c.offset(), where + ": pack type " + std::to_string(pm.packType) +
                                     " not defined for 16-bit pixels");
    }
  } else {
    if (pm.packType == 1) {
      form = RowForm::kRaw;
    } else if (pm.packType == 2) {
      form = RowForm::kRaw24;
    } else if (pm.packType == 0 || pm.packType == 4) {
      form = RowForm::kPlanar;
    } else {
      return errorAt(c.offset(), where + ": pack type " + std::to_string(pm.packType) +
                                     " not defined for 32-bit pixels");
    }
  }
  out.bounds = pm.bounds;
  out.width = static_cast<uint32_t>(width);
  out.height = static_cast<uint32_t>(height);
  if (form == RowForm::kRaw || form == RowForm::kRaw24) {
    return readRows(c, where, pm, form, 0, palette, out);
  }
  // Packed rows: Apple's rule for the width of each row's byte count first, then the other
  // width when the rows do not fit that way (writers disagree for some row lengths). Rows under
  // 8 bytes are stored unpacked by QuickDraw, but some writers pack them all the same: they are
  // read packed when every row fits that way, else unpacked. (Unpacked data practically never
  // passes as packed rows, while packed rows read as unpacked always "fit".)
  const size_t rule = pm.rowBytes > 250 ? 2 : 1;
  const size_t begin = c.offset();
  Status first = readRows(c, where, pm, form, rule, palette, out);
  if (first.ok()) return first;
  c.seek(begin);
  if (readRows(c, where, pm, form, 3 - rule, palette, out).ok()) return Status();
  if (pm.rowBytes >= 8) return first;
  c.seek(begin);
  return readRows(c, where, pm, RowForm::kRaw, 0, palette, out);
}

Status PictDecoder::readRows(ByteCursor& c, const std::string& where, const PixMapHeader& pm,
                             RowForm form, size_t countBytes, const std::vector<Rgba>& palette,
                             Bitmap& out) {
  const uint32_t width = out.width;
  const uint16_t bits = pm.pixelSize;
  const size_t rowBytes = pm.rowBytes;
  size_t rawBytes = rowBytes;
  if (form == RowForm::kRaw24) rawBytes = size_t{width} * 3;
  // Room for one unpacked row: the planes of pack type 4 may take four bytes a pixel even when
  // rowBytes is smaller (a padded row never is).
  std::vector<uint8_t> row(std::max<size_t>(rowBytes, size_t{width} * 4));
  out.rgba.clear();
  bool alphaPlane = false;
  for (uint32_t y = 0; y < out.height; ++y) {
    const std::string rowWhere = where + " row " + std::to_string(y);
    size_t produced = 0;
    if (countBytes == 0) {
      if (Status s = c.need(rawBytes, rowWhere.c_str()); !s.ok()) return s;
      const auto raw = c.bytes(rawBytes);
      std::copy(raw.begin(), raw.end(), row.begin());
      produced = rawBytes;
    } else {
      if (Status s = c.need(countBytes, (rowWhere + " byte count").c_str()); !s.ok()) return s;
      const size_t count = countBytes == 2 ? c.u16() : c.u8();
      const size_t packedAt = c.offset();
      if (Status s = c.need(count, rowWhere.c_str()); !s.ok()) return s;
      const auto packed = c.bytes(count);
      const size_t capacity = form == RowForm::kPlanar ? size_t{width} * 4 : rowBytes;
      const auto outcome = detail::unpackBits(packed, std::span<uint8_t>(row).first(capacity),
                                              form == RowForm::kPacked16 ? 2 : 1);
      if (outcome.kind != detail::UnpackOutcome::kOk) {
        return errorAt(packedAt + outcome.at, rowWhere + ": " + outcome.what());
      }
      produced = outcome.produced;
      bool fits = false;
      if (form == RowForm::kPlanar) {
        fits = produced == size_t{width} * 3 || produced == size_t{width} * 4;
      } else {
        fits = produced >= (size_t{width} * bits + 7) / 8 && produced <= rowBytes;
      }
      if (!fits) {
        return errorAt(packedAt, rowWhere + ": unpacks to " + std::to_string(produced) +
                                     " bytes, which does not fit " + std::to_string(width) +
                                     " pixels");
      }
    }
    const size_t base = out.rgba.size();
    out.rgba.resize(base + size_t{width} * 4);
    uint8_t* dst = out.rgba.data() + base;
    for (uint32_t x = 0; x < width; ++x, dst += 4) {
      if (bits <= 8) {
        const size_t bit = size_t{x} * bits;
        const unsigned shift = 8 - bits - (bit & 7);
        const unsigned index = (row[bit >> 3] >> shift) & ((1u << bits) - 1);
        const Rgba colour = palette[index];
        dst[0] = colour.r, dst[1] = colour.g, dst[2] = colour.b, dst[3] = 255;
      } else if (bits == 16) {
        const unsigned v = unsigned{row[2 * x]} << 8 | row[2 * x + 1];
        const auto expand = [](unsigned five) {
          return static_cast<uint8_t>(five << 3 | five >> 2);
        };
        dst[0] = expand((v >> 10) & 31), dst[1] = expand((v >> 5) & 31), dst[2] = expand(v & 31);
        dst[3] = 255;
      } else if (form == RowForm::kPlanar) {
        const bool four = produced == size_t{width} * 4;
        const uint8_t* plane = row.data() + (four ? width : 0);
        dst[0] = plane[x], dst[1] = plane[width + x], dst[2] = plane[2 * width + x];
        dst[3] = four ? row[x] : 255;
        alphaPlane = four;
      } else if (form == RowForm::kRaw24) {
        dst[0] = row[3 * x], dst[1] = row[3 * x + 1], dst[2] = row[3 * x + 2], dst[3] = 255;
      } else {  // 32-bit, as in memory: x/alpha, R, G, B
        dst[0] = row[4 * x + 1], dst[1] = row[4 * x + 2], dst[2] = row[4 * x + 3];
        dst[3] = row[4 * x];
        alphaPlane = true;
      }
    }
  }
  if (alphaPlane) {
    // Alpha counts only for four components; a plane of zeros is an unused pad byte.
    bool allZero = true;
    for (size_t i = 3; i < out.rgba.size() && allZero; i += 4)
      allZero = out.rgba[i] == 0;
    if (pm.cmpCount != 4 || allZero) {
      for (size_t i = 3; i < out.rgba.size(); i += 4)
        out.rgba[i] = 255;
    }
  }
  return Status();
}

Status PictDecoder::pixels(ByteCursor& c, unsigned op, size_t at, bool draw) {
  const std::string where = "opcode " + hex4(op) + " (" + pixelOpName(op) + ")";
  const bool direct = op == 0x9A || op == 0x9B;
  if (direct) {
    if (Status s = c.need(4, (where + ": baseAddr").c_str()); !s.ok()) return s;
    c.skip(4);
  }
  PixMapHeader pm;
  if (Status s = readPixMapHeader(c, direct, where, pm); !s.ok()) return s;
  std::vector<Rgba> palette;
  if (pm.isPixMap && !direct) {
    if (Status s = readColorTable(c, where, palette); !s.ok()) return s;
  } else if (!pm.isPixMap) {
    palette.assign(256, Rgba{0, 0, 0, 255});
    palette[0] = Rgba{255, 255, 255, 255};
  } else {
    palette.assign(256, Rgba{0, 0, 0, 255});
  }
  if (Status s = c.need(18, (where + ": rectangles and mode").c_str()); !s.ok()) return s;
  const QdRect src = readRect(c);
  const QdRect dst = readRect(c);
  c.skip(2);  // transfer mode: every copy is srcCopy
  if (op & 1) {
    if (Status s = skipShape(c, at, op, "mask region"); !s.ok()) return s;
  }
  Bitmap bitmap;
  if (Status s = readPixData(c, where, pm, palette, bitmap); !s.ok()) return s;
  if (!draw) return Status();
  return blit(bitmap, src, dst, at);
}

Status PictDecoder::skipPixPat(ByteCursor& c, size_t at, unsigned op) {
  const std::string where = "opcode " + hex4(op) + " (pixel pattern)";
  if (Status s = c.need(10, where.c_str()); !s.ok()) return s;
  const uint16_t type = c.u16();
  c.skip(8);                                 // the 1-bit pattern
  if (type == 2) return skip(c, 6, at, op);  // dither pattern: an RGB colour
  if (type != 1) return Status();
  PixMapHeader pm;
  if (Status s = readPixMapHeader(c, false, where, pm); !s.ok()) return s;
  std::vector<Rgba> palette(256, Rgba{0, 0, 0, 255});
  if (pm.isPixMap) {
    if (Status s = readColorTable(c, where, palette); !s.ok()) return s;
  }
  Bitmap ignored;
  return readPixData(c, where, pm, palette, ignored);
}

Status PictDecoder::quickTime(ByteCursor& outer, size_t at) {
  const std::string where = "opcode 0x8200 (QuickTime image)";
  if (Status s = outer.need(4, (where + ": length").c_str()); !s.ok()) return s;
  const uint32_t length = outer.u32();
  if (Status s = outer.need(length, where.c_str()); !s.ok()) return s;
  ByteCursor c = outer.take(length);
  if (Status s = c.need(68, (where + ": header").c_str()); !s.ok()) return s;
  c.skip(2);  // version
  int32_t matrix[9];
  for (int32_t& m : matrix)
    m = c.s32();
  const uint32_t matteSize = c.u32();
  c.skip(8 + 2);  // matte rectangle, transfer mode
  QdRect src = readRect(c);
  c.skip(4);  // accuracy
  const uint32_t maskSize = c.u32();
  if (Status s = c.need(matteSize, (where + ": matte").c_str()); !s.ok()) return s;
  c.skip(matteSize);
  if (Status s = c.need(maskSize, (where + ": mask region").c_str()); !s.ok()) return s;
  c.skip(maskSize);

  const size_t descriptionAt = c.offset();
  if (Status s = c.need(86, (where + ": image description").c_str()); !s.ok()) return s;
  const uint32_t descriptionSize = c.u32();
  const OSType codec = c.u32();
  c.skip(24 + 4 + 8);  // reserved, data reference, version, vendor, qualities, size, resolution
  uint32_t dataSize = c.u32();
  if (descriptionSize < 86 || descriptionSize > c.end() - descriptionAt) {
    return errorAt(descriptionAt, where + ": image description size " +
                                      std::to_string(descriptionSize) + " outside 86.." +
                                      std::to_string(c.end() - descriptionAt));
  }
  c.seek(descriptionAt + descriptionSize);
  // The data runs to the end of the opcode; a dataSize of 0 or past it is not trusted.
  if (dataSize == 0 || dataSize > c.left()) dataSize = static_cast<uint32_t>(c.left());
  const size_t payloadAt = c.offset();
  const auto payload = c.bytes(dataSize);

  Result<Image> image = Status::error(paramErr, "");
  if (codec == fourCharCode("jpeg")) {
    image = detail::decodeJpeg(payload, limits_);
  } else if (codec == fourCharCode("png ")) {
    image = detail::decodePng(payload, limits_);
  } else if (codec == fourCharCode("tiff")) {
    image = detail::decodeTiff(payload, limits_);
  } else {
    undrawn_.push_back("offset " + std::to_string(at) + ": QuickTime image with codec " +
                       fourCharDisplay(codec) + " not decoded");
    return Status();
  }
  if (!image) {
    return errorAt(payloadAt, where + ": " + image.status().message(), image.status().code());
  }
  Bitmap bitmap;
  bitmap.width = image->width();
  bitmap.height = image->height();
  bitmap.bounds = QdRect{0, 0, static_cast<int16_t>(std::min<uint32_t>(bitmap.height, 32767)),
                         static_cast<int16_t>(std::min<uint32_t>(bitmap.width, 32767))};
  if (src.empty()) src = bitmap.bounds;
  // Only scale and translation of the matrix are honoured; the last column (2.30) is ignored.
  const double scaleX = matrix[0] > 0 ? matrix[0] / 65536.0 : 1.0;
  const double scaleY = matrix[4] > 0 ? matrix[4] / 65536.0 : 1.0;
  const double moveX = matrix[6] / 65536.0;
  const double moveY = matrix[7] / 65536.0;
  const auto coordinate = [](double v) {
    return static_cast<int16_t>(std::clamp(std::lround(v), -32768L, 32767L));
  };
  QdRect dst{coordinate(src.top * scaleY + moveY), coordinate(src.left * scaleX + moveX),
             coordinate(src.bottom * scaleY + moveY), coordinate(src.right * scaleX + moveX)};
  const auto pixelBytes = image->pixels();
  bitmap.rgba.assign(pixelBytes.begin(), pixelBytes.end());
  if (Status s = blit(bitmap, src, dst, at); !s.ok()) return s;
  quickTimeDrew_ = true;
  return Status();
}

Status PictDecoder::quickTimeUncompressed(ByteCursor& outer) {
  const std::string where = "opcode 0x8201 (QuickTime uncompressed)";
  if (Status s = outer.need(4, (where + ": length").c_str()); !s.ok()) return s;
  const uint32_t length = outer.u32();
  if (Status s = outer.need(length, where.c_str()); !s.ok()) return s;
  ByteCursor c = outer.take(length);
  if (Status s = c.need(50, (where + ": header").c_str()); !s.ok()) return s;
  c.skip(2 + 36);  // version, matrix
  const uint32_t matteSize = c.u32();
  c.skip(8);
  if (Status s = c.need(matteSize, (where + ": matte").c_str()); !s.ok()) return s;
  c.skip(matteSize);
  if (Status s = c.need(2, (where + ": pixel opcode").c_str()); !s.ok()) return s;
  const size_t subAt = c.offset();
  const unsigned sub = c.u16();
  if (sub != 0x98 && sub != 0x99 && sub != 0x9A && sub != 0x9B) {
    return errorAt(subAt, where + ": " + hex4(sub) + " is not a pixel opcode");
  }
  return pixels(c, sub, subAt, true);
}

Status PictDecoder::blit(const Bitmap& bitmap, QdRect src, QdRect dst, size_t at) {
  if (src.empty() || dst.empty()) return Status();
  const int64_t left = int64_t{dst.left} - frame_.left;
  const int64_t top = int64_t{dst.top} - frame_.top;
  const int64_t dstWidth = dst.width(), dstHeight = dst.height();
  const int64_t x0 = std::max<int64_t>(left, 0);
  const int64_t x1 = std::min<int64_t>(left + dstWidth, canvasWidth_);
  const int64_t y0 = std::max<int64_t>(top, 0);
  const int64_t y1 = std::min<int64_t>(top + dstHeight, canvasHeight_);
  drew_ = true;
  if (x0 >= x1 || y0 >= y1) return Status();
  const uint64_t area = static_cast<uint64_t>((x1 - x0) * (y1 - y0));
  if (area > blitBudget_) {
    return errorAt(at, "more drawing than four times the picture's area");
  }
  blitBudget_ -= area;
  if (canvas_.empty()) canvas_.assign(size_t{canvasWidth_} * canvasHeight_ * 4, 0);
  for (int64_t y = y0; y < y1; ++y) {
    const int64_t sy = src.top + (y - top) * src.height() / dstHeight - bitmap.bounds.top;
    if (sy < 0 || sy >= bitmap.height) continue;
    for (int64_t x = x0; x < x1; ++x) {
      const int64_t sx = src.left + (x - left) * src.width() / dstWidth - bitmap.bounds.left;
      if (sx < 0 || sx >= bitmap.width) continue;
      const uint8_t* from = &bitmap.rgba[(static_cast<size_t>(sy) * bitmap.width + sx) * 4];
      uint8_t* to = &canvas_[(static_cast<size_t>(y) * canvasWidth_ + x) * 4];
      std::copy(from, from + 4, to);
    }
  }
  return Status();
}

}  // namespace

Result<Image> decodePict(std::span<const uint8_t> data, const DecodeLimits& limits) {
  PictDecoder decoder(data, limits);
  return decoder.run();
}

}  // namespace rvitunes::image
