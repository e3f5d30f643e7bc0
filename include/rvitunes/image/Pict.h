// QuickDraw pictures (PICT), the form in which the player hands over and accepts artwork.
// Byte layouts as implemented: docs/formats/pict.md.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "rvitunes/base/Result.h"
#include "rvitunes/image/Image.h"

namespace rvitunes::image {

// Whether the encoder writes an alpha plane (cmpCount 4) or only R, G, B (cmpCount 3).
enum class PictAlpha {
  kAuto,    // an alpha plane only when some pixel is not opaque
  kAlways,  // always four planes
  kNever,   // three planes; alpha is dropped, colour kept as is
};

struct PictWriteOptions {
  PictAlpha alpha = PictAlpha::kAuto;
  // Prepend the 512 zero bytes of a PICT file. Off: a bare picture, the form an Apple event,
  // a picture resource and the pasteboard carry.
  bool fileHeader = false;
};

// The widest image a 32-bit picture can hold: QuickDraw keeps rowBytes below 0x4000.
inline constexpr uint32_t kPictMaxWidth = 4095;

// Decodes a picture, with or without the 512-byte file header, version 1 or 2. Draws BitsRect,
// BitsRgn, PackBitsRect, PackBitsRgn (1, 2, 4, 8 bits through the colour table, 16 and 32 bits
// direct), DirectBitsRect and DirectBitsRgn (pack types 0-4), and QuickTime images (0x8200
// carrying JPEG, PNG or TIFF; 0x8201 wrapping a pixel opcode) onto a canvas the size of the
// picture frame, scaling nearest-neighbour when source and destination rectangles differ.
// Every other opcode is skipped by its length; masks, clip regions and transfer modes are
// ignored (every copy is srcCopy).
//
// The canvas starts transparent; pixels copied from 1-16 bit sources and 32-bit sources with
// three components are opaque, a 32-bit source with four components keeps its alpha plane
// (unless that plane is zero everywhere, which is read as an unused pad byte: opaque).
// Packed rows use one-byte counts when rowBytes <= 250 and two-byte counts above, by Apple's
// rule; when the rows do not fit that way the other width is tried before giving up. Rows
// under 8 bytes, unpacked for Apple, are read packed when every row fits that way (some writers
// pack them), else unpacked.
//
// Errors (see Image) name the absolute byte offset: "offset 534: PackBitsRect row 3: run
// past the end of the row". A picture without any pixel opcode we can draw is paramErr.
Result<Image> decodePict(std::span<const uint8_t> data, const DecodeLimits& limits = {});

// Encodes `image` as an extended version-2 picture holding one DirectBitsRect: 32-bit pixels,
// pack type 4 (per-row component planes, PackBits), 72 dpi, srcCopy, row counts of two bytes
// when rowBytes > 250 and one byte otherwise. The frame is (0, 0, height, width). Readers that
// decide the count width by the plane length (> 200) instead of rowBytes read it too: for the
// few widths where the two rules differ, a fourth (opaque) plane is added or rowBytes padded,
// see docs/formats/pict.md. An image transparent everywhere reads back opaque (its alpha plane
// is all zeros, which the decoder takes for padding). paramErr for an empty image and for one
// wider than kPictMaxWidth or taller than 32767.
Result<std::vector<uint8_t>> encodePict(const Image& image, const PictWriteOptions& options = {});

}  // namespace rvitunes::image
