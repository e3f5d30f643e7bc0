#include "rvitunes/image/IconFamily.h"

#include <algorithm>
#include <array>
#include <cstring>

#include "ByteCursor.h"
#include "Codecs.h"
#include "rvitunes/base/FourCharCode.h"

namespace rvitunes::image {
namespace {

using detail::ByteCursor;
using detail::errorAt;

constexpr uint8_t kJpeg2000File[] = {0x00, 0x00, 0x00, 0x0C, 'j', 'P', 0x20, 0x20};
constexpr uint8_t kJpeg2000Stream[] = {0xFF, 0x4F, 0xFF, 0x51};
constexpr uint8_t kArgbTag[] = {'A', 'R', 'G', 'B'};

enum class Kind { kRgb, kMask, kArgb, kPng, kMeta, kLegacy, kNested, kUnknown };

struct ElementType {
  OSType type;
  Kind kind;
  uint32_t size;  // pixels a side
  const char* about;
};

constexpr ElementType kElementTypes[] = {
    {fourCharCode("is32"), Kind::kRgb, 16, ""},
    {fourCharCode("il32"), Kind::kRgb, 32, ""},
    {fourCharCode("ih32"), Kind::kRgb, 48, ""},
    {fourCharCode("it32"), Kind::kRgb, 128, ""},
    {fourCharCode("s8mk"), Kind::kMask, 16, ""},
    {fourCharCode("l8mk"), Kind::kMask, 32, ""},
    {fourCharCode("h8mk"), Kind::kMask, 48, ""},
    {fourCharCode("t8mk"), Kind::kMask, 128, ""},
    {fourCharCode("ic04"), Kind::kArgb, 16, ""},
    {fourCharCode("ic05"), Kind::kArgb, 32, ""},
    {fourCharCode("icsb"), Kind::kArgb, 18, ""},
    {fourCharCode("icp4"), Kind::kPng, 16, ""},
    {fourCharCode("icp5"), Kind::kPng, 32, ""},
    {fourCharCode("icp6"), Kind::kPng, 64, ""},
    {fourCharCode("ic07"), Kind::kPng, 128, ""},
    {fourCharCode("ic08"), Kind::kPng, 256, ""},
    {fourCharCode("ic09"), Kind::kPng, 512, ""},
    {fourCharCode("ic10"), Kind::kPng, 1024, ""},
    {fourCharCode("ic11"), Kind::kPng, 32, ""},
    {fourCharCode("ic12"), Kind::kPng, 64, ""},
    {fourCharCode("ic13"), Kind::kPng, 256, ""},
    {fourCharCode("ic14"), Kind::kPng, 512, ""},
    {fourCharCode("icsB"), Kind::kPng, 36, ""},
    {fourCharCode("TOC "), Kind::kMeta, 0, "table of contents"},
    {fourCharCode("icnV"), Kind::kMeta, 0, "Icon Composer version"},
    {fourCharCode("name"), Kind::kMeta, 0, "name"},
    {fourCharCode("info"), Kind::kMeta, 0, "archived info dictionary"},
    {fourCharCode("ICON"), Kind::kLegacy, 32, "1-bit icon"},
    {fourCharCode("ICN#"), Kind::kLegacy, 32, "1-bit icon and mask"},
    {fourCharCode("ics#"), Kind::kLegacy, 16, "1-bit icon and mask"},
    {fourCharCode("icm#"), Kind::kLegacy, 16, "1-bit icon and mask"},
    {fourCharCode("ich#"), Kind::kLegacy, 48, "1-bit icon and mask"},
    {fourCharCode("icl4"), Kind::kLegacy, 32, "4-bit icon"},
    {fourCharCode("ics4"), Kind::kLegacy, 16, "4-bit icon"},
    {fourCharCode("icm4"), Kind::kLegacy, 16, "4-bit icon"},
    {fourCharCode("ich4"), Kind::kLegacy, 48, "4-bit icon"},
    {fourCharCode("icl8"), Kind::kLegacy, 32, "8-bit icon"},
    {fourCharCode("ics8"), Kind::kLegacy, 16, "8-bit icon"},
    {fourCharCode("icm8"), Kind::kLegacy, 16, "8-bit icon"},
    {fourCharCode("ich8"), Kind::kLegacy, 48, "8-bit icon"},
    {fourCharCode("tile"), Kind::kNested, 0, "nested family"},
    {fourCharCode("over"), Kind::kNested, 0, "nested family"},
    {fourCharCode("drop"), Kind::kNested, 0, "nested family"},
    {fourCharCode("open"), Kind::kNested, 0, "nested family"},
    {fourCharCode("odrp"), Kind::kNested, 0, "nested family"},
    {fourCharCode("sbpp"), Kind::kNested, 0, "nested family"},
    {fourCharCode("sbtp"), Kind::kNested, 0, "nested template family"},
    {fourCharCode("slct"), Kind::kNested, 0, "nested selected family"},
    {0xFDD92FA8, Kind::kNested, 0, "nested dark-mode family"},
};

const ElementType* elementType(OSType type) {
  for (const auto& t : kElementTypes) {
    if (t.type == type) return &t;
  }
  return nullptr;
}

// Unpacks `channels` channels of `n` bytes each from the icon run-length scheme: a tag byte
// below 0x80 copies tag + 1 literal bytes, one at or above repeats the next byte tag - 125
// times. A chunk never spans two channels. Bytes after the last channel are ignored.
Status unpackChannels(std::span<const uint8_t> in, size_t inAt, size_t channels, size_t n,
                      std::vector<uint8_t>& out) {
  out.assign(channels * n, 0);
  size_t pos = 0;
  for (size_t ch = 0; ch < channels; ++ch) {
    uint8_t* dst = out.data() + ch * n;
    size_t produced = 0;
    while (produced < n) {
      const auto where = [&] {
        return "channel " + std::to_string(ch) + " at byte " + std::to_string(produced) + " of " +
               std::to_string(n);
      };
      if (pos >= in.size()) return errorAt(inAt + pos, where() + ": data ends", eofErr);
      const size_t tagAt = pos;
      const uint8_t tag = in[pos++];
      if (tag < 0x80) {
        const size_t count = size_t{tag} + 1;
        if (count > in.size() - pos) {
          return errorAt(inAt + tagAt, where() + ": literal runs past the data", eofErr);
        }
        if (count > n - produced) {
          return errorAt(inAt + tagAt, where() + ": literal runs past the channel");
        }
        std::memcpy(dst + produced, in.data() + pos, count);
        pos += count;
        produced += count;
      } else {
        const size_t count = size_t{tag} - 125;
        if (pos >= in.size()) {
          return errorAt(inAt + tagAt, where() + ": repeat without its value", eofErr);
        }
        if (count > n - produced) {
          return errorAt(inAt + tagAt, where() + ": repeat runs past the channel");
        }
        std::memset(dst + produced, in[pos++], count);
        produced += count;
      }
    }
  }
  return Status();
}

void packChannel(std::span<const uint8_t> in, std::vector<uint8_t>& out) {
  const size_t n = in.size();
  size_t i = 0;
  while (i < n) {
    size_t j = i + 1;
    while (j < n && in[j] == in[i] && j - i < 130)
      ++j;
    if (j - i >= 3) {
      out.push_back(static_cast<uint8_t>(j - i + 125));
      out.push_back(in[i]);
      i = j;
      continue;
    }
    const size_t start = i;
    while (i < n && i - start < 128) {
      if (i + 2 < n && in[i] == in[i + 1] && in[i] == in[i + 2]) break;
      ++i;
    }
    out.push_back(static_cast<uint8_t>(i - start - 1));
    out.insert(out.end(), in.begin() + static_cast<ptrdiff_t>(start),
               in.begin() + static_cast<ptrdiff_t>(i));
  }
}

struct Element {
  const ElementType* type;
  OSType code;
  size_t at;  // offset of the element header
  std::span<const uint8_t> payload;
  size_t payloadAt() const { return at + 8; }
};

std::string label(const Element& e) {
  return fourCharDisplay(e.code);
}

// Planes (A,) R, G, B of side × side pixels, as unpacked, into an image; alpha from `alpha`
// (side × side bytes) when given, else opaque.
Result<Image> fromPlanes(const std::vector<uint8_t>& planes, bool withAlpha, uint32_t side,
                         std::span<const uint8_t> alpha) {
  const size_t n = size_t{side} * side;
  std::vector<uint8_t> rgba(n * 4);
  const size_t colour = withAlpha ? n : 0;
  for (size_t i = 0; i < n; ++i) {
    rgba[i * 4] = planes[colour + i];
    rgba[i * 4 + 1] = planes[colour + n + i];
    rgba[i * 4 + 2] = planes[colour + 2 * n + i];
    rgba[i * 4 + 3] = withAlpha ? planes[i] : (alpha.empty() ? 255 : alpha[i]);
  }
  return Image::create(side, side, std::move(rgba));
}

}  // namespace

Result<IconFamily> IconFamily::read(std::span<const uint8_t> data, const DecodeLimits& limits) {
  static constexpr uint8_t kTag[] = {'i', 'c', 'n', 's'};
  if (!detail::startsWith(data, kTag)) return errorAt(0, "not an icon family (no 'icns' tag)");
  ByteCursor header(data);
  if (Status s = header.need(8, "icon family header"); !s.ok()) return s;
  header.skip(4);
  const uint32_t total = header.u32();
  if (total < 8) return errorAt(4, "family length " + std::to_string(total) + " below 8");
  if (total > data.size()) {
    return errorAt(4,
                   "family length " + std::to_string(total) + " runs past the data (" +
                       std::to_string(data.size()) + " bytes)",
                   eofErr);
  }

  IconFamily family;
  std::vector<Element> elements;
  std::vector<std::pair<size_t, std::string>> notes;  // by offset once sorted
  const auto addNote = [&notes](size_t at, std::string text) {
    notes.emplace_back(at, "offset " + std::to_string(at) + ": " + std::move(text));
  };
  ByteCursor c(data, 8, total);
  while (c.left() > 0) {
    const size_t at = c.offset();
    if (!c.has(8)) return errorAt(at, "element header cut short by the family length", eofErr);
    const OSType code = c.u32();
    const uint32_t length = c.u32();
    if (length < 8 || length - 8 > c.left()) {
      return errorAt(at, "element " + fourCharDisplay(code) + " length " + std::to_string(length) +
                             " leaves the family (" + std::to_string(c.left() + 8) +
                             " bytes left)");
    }
    const Element e{elementType(code), code, at, c.bytes(length - 8)};
    if (!e.type || e.type->kind == Kind::kUnknown) {
      addNote(at, "skipped unknown element " + label(e));
    } else if (e.type->kind == Kind::kMeta || e.type->kind == Kind::kLegacy ||
               e.type->kind == Kind::kNested) {
      addNote(at, "skipped " + label(e) + " (" + e.type->about + ")");
    } else {
      elements.push_back(e);
    }
  }

  // Masks by size, the first of each.
  std::map<uint32_t, const Element*> masks;
  for (const Element& e : elements) {
    if (e.type->kind == Kind::kMask) masks.emplace(e.type->size, &e);
  }
  std::map<uint32_t, int> rankOf;  // 2 for PNG and ARGB, 1 for RGB with mask
  const auto keep = [&](Image image, int rank) {
    const uint32_t width = image.width();
    auto [it, fresh] = rankOf.emplace(width, rank);
    if (!fresh && it->second >= rank) return;
    it->second = rank;
    family.images_[width] = std::move(image);
  };
  const auto note = [&](const Element& e, const std::string& text) {
    addNote(e.at, label(e) + " " + text);
  };

  for (const Element& e : elements) {
    const uint32_t side = e.type->size;
    const size_t n = size_t{side} * side;
    std::span<const uint8_t> payload = e.payload;
    size_t payloadAt = e.payloadAt();
    if (e.type->kind == Kind::kMask) continue;
    if (e.type->kind == Kind::kPng || e.type->kind == Kind::kArgb) {
      if (detail::startsWith(payload, detail::kPngSignature)) {
        auto image = detail::decodePng(payload, limits);
        if (!image) {
          note(e, "not decoded: " + image.status().message());
          continue;
        }
        keep(std::move(image).value(), 2);
        continue;
      }
      if (detail::startsWith(payload, kJpeg2000File) ||
          detail::startsWith(payload, kJpeg2000Stream)) {
        note(e, "holds JPEG 2000, not decoded");
        continue;
      }
      if (e.type->kind == Kind::kPng || !detail::startsWith(payload, kArgbTag)) {
        note(e, "holds data of an unknown format, not decoded");
        continue;
      }
      std::vector<uint8_t> planes;
      if (Status s = unpackChannels(payload.subspan(4), payloadAt + 4, 4, n, planes); !s.ok()) {
        note(e, "not decoded: " + s.message());
        continue;
      }
      auto image = fromPlanes(planes, true, side, {});
      if (image) keep(std::move(image).value(), 2);
      continue;
    }
    // Run-length RGB; 'it32' data starts with four zero bytes.
    if (e.code == fourCharCode("it32") && payload.size() >= 4 && payload[0] == 0 &&
        payload[1] == 0 && payload[2] == 0 && payload[3] == 0) {
      payload = payload.subspan(4);
      payloadAt += 4;
    }
    std::vector<uint8_t> planes;
    Status unpacked = unpackChannels(payload, payloadAt, 3, n, planes);
    if (!unpacked.ok()) {
      if (payload.size() != 3 * n) {
        note(e, "not decoded: " + unpacked.message());
        continue;
      }
      // Some writers store the pixels uncompressed, interleaved R, G, B.
      planes.assign(3 * n, 0);
      for (size_t i = 0; i < n; ++i) {
        for (size_t ch = 0; ch < 3; ++ch)
          planes[ch * n + i] = payload[i * 3 + ch];
      }
    }
    std::span<const uint8_t> alpha;
    if (auto m = masks.find(side); m != masks.end()) {
      if (m->second->payload.size() >= n) {
        alpha = m->second->payload.first(n);
      } else {
        addNote(m->second->at, label(*m->second) + " holds " +
                                   std::to_string(m->second->payload.size()) + " of " +
                                   std::to_string(n) + " mask bytes; icon left opaque");
      }
    }
    auto image = fromPlanes(planes, false, side, alpha);
    if (image) keep(std::move(image).value(), 1);
  }

  std::stable_sort(notes.begin(), notes.end(),
                   [](const auto& a, const auto& b) { return a.first < b.first; });
  for (auto& note : notes)
    family.notes_.push_back(std::move(note.second));
  if (family.images_.empty()) {
    std::string why = "no icon image we can decode";
    for (const auto& text : family.notes_)
      why += "; " + text;
    return errorAt(8, why);
  }
  return family;
}

Result<std::vector<uint8_t>> IconFamily::write(const std::vector<Image>& images) {
  if (images.empty()) return Status::error(paramErr, "icon family: no images");
  std::vector<const Image*> sorted;
  for (size_t i = 0; i < images.size(); ++i) {
    const Image& image = images[i];
    const auto& sizes = kWritableSizes;
    const bool square = image.width() == image.height();
    if (!square ||
        std::find(std::begin(sizes), std::end(sizes), image.width()) == std::end(sizes)) {
      return Status::error(paramErr, "icon family: image " + std::to_string(i) + " is " +
                                         std::to_string(image.width()) + "x" +
                                         std::to_string(image.height()) +
                                         "; icons are square, 16 to 1024 pixels "
                                         "(16, 32, 48, 64, 128, 256, 512, 1024)");
    }
    for (const Image* other : sorted) {
      if (other->width() == image.width()) {
        return Status::error(paramErr, "icon family: image " + std::to_string(i) +
                                           " repeats the size " + std::to_string(image.width()));
      }
    }
    sorted.push_back(&image);
  }
  std::sort(sorted.begin(), sorted.end(),
            [](const Image* a, const Image* b) { return a->width() < b->width(); });

  std::vector<uint8_t> out = {'i', 'c', 'n', 's', 0, 0, 0, 0};
  const auto put32 = [&out](size_t at, uint32_t v) {
    out[at] = static_cast<uint8_t>(v >> 24);
    out[at + 1] = static_cast<uint8_t>(v >> 16);
    out[at + 2] = static_cast<uint8_t>(v >> 8);
    out[at + 3] = static_cast<uint8_t>(v);
  };
  const auto element = [&](OSType type, std::span<const uint8_t> payload) {
    const size_t at = out.size();
    out.resize(at + 8);
    put32(at, type);
    put32(at + 4, static_cast<uint32_t>(payload.size() + 8));
    out.insert(out.end(), payload.begin(), payload.end());
  };
  const auto runLength = [&](const Image& image, OSType rgbType, OSType maskType) {
    const size_t n = size_t{image.width()} * image.height();
    const auto pixels = image.pixels();
    std::vector<uint8_t> channel(n), packed;
    if (rgbType == fourCharCode("it32")) packed.assign(4, 0);
    for (size_t ch = 0; ch < 3; ++ch) {
      for (size_t i = 0; i < n; ++i)
        channel[i] = pixels[i * 4 + ch];
      packChannel(channel, packed);
    }
    element(rgbType, packed);
    for (size_t i = 0; i < n; ++i)
      channel[i] = pixels[i * 4 + 3];
    element(maskType, channel);
  };
  for (const Image* image : sorted) {
    OSType pngType = 0;
    switch (image->width()) {
      case 16:
        runLength(*image, fourCharCode("is32"), fourCharCode("s8mk"));
        pngType = fourCharCode("icp4");
        break;
      case 32:
        runLength(*image, fourCharCode("il32"), fourCharCode("l8mk"));
        pngType = fourCharCode("icp5");
        break;
      case 48:
        runLength(*image, fourCharCode("ih32"), fourCharCode("h8mk"));
        break;
      case 64:
        pngType = fourCharCode("icp6");
        break;
      case 128:
        runLength(*image, fourCharCode("it32"), fourCharCode("t8mk"));
        pngType = fourCharCode("ic07");
        break;
      case 256:
        pngType = fourCharCode("ic08");
        break;
      case 512:
        pngType = fourCharCode("ic09");
        break;
      default:
        pngType = fourCharCode("ic10");
        break;
    }
    if (pngType == 0) continue;
    auto png = image->pngRepresentation();
    if (!png) return png.status();
    element(pngType, *png);
  }
  put32(4, static_cast<uint32_t>(out.size()));
  return out;
}

}  // namespace rvitunes::image
