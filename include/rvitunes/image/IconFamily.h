// Icon families (.icns files): a container of the same icon at several sizes.
// Byte layouts as implemented: docs/formats/icns.md.
#pragma once

#include <cstdint>
#include <map>
#include <span>
#include <string>
#include <vector>

#include "rvitunes/base/Result.h"
#include "rvitunes/image/Image.h"

namespace rvitunes::image {

// The images of one icon family, keyed by width. Value type; thread-compatible.
class IconFamily {
 public:
  // The sizes write() accepts, smallest first.
  static constexpr uint32_t kWritableSizes[] = {16, 32, 48, 64, 128, 256, 512, 1024};

  // Reads an icon family. Decodes the run-length RGB elements with their 8-bit masks
  // ('is32'+'s8mk', 'il32'+'l8mk', 'ih32'+'h8mk', 'it32'+'t8mk'; an RGB element without its
  // mask is opaque), the run-length ARGB elements ('ic04', 'ic05', 'icsb') and the PNG elements
  // ('icp4'-'icp6', 'ic07'-'ic14', 'icsB'; also PNG found in an ARGB slot). JPEG 2000 payloads,
  // the 1-, 4- and 8-bit legacy elements, nested families and metadata ('TOC ', 'icnV', 'name',
  // 'info') are skipped with a note. When several elements give the same width, PNG and ARGB
  // win over RGB with a mask; among equals the first one wins.
  //
  // Errors: paramErr when the data is not an icon family or an element's length leaves the
  // container, eofErr when the declared length runs past the data, each with "offset N: ";
  // paramErr also when no element could be decoded (the message lists why). An element that
  // fails to decode is skipped with a note, not an error.
  static Result<IconFamily> read(std::span<const uint8_t> data, const DecodeLimits& limits = {});

  // Writes `images` as an icon family. Each image must be square with a side from
  // kWritableSizes, no two of the same size (paramErr naming the image otherwise; an empty list
  // is paramErr too). Elements by size: 16 → 'is32'+'s8mk' and 'icp4'; 32 → 'il32'+'l8mk' and
  // 'icp5'; 48 → 'ih32'+'h8mk'; 64 → 'icp6'; 128 → 'it32'+'t8mk' and 'ic07'; 256 → 'ic08';
  // 512 → 'ic09'; 1024 → 'ic10'. Elements appear smallest size first, run-length before PNG.
  // The run-length elements are what readers that predate the PNG slots (icnsutils) extract;
  // the 64-pixel size has no such element and only newer readers see it.
  static Result<std::vector<uint8_t>> write(const std::vector<Image>& images);

  // The decoded images, by width (images are square in every element type read).
  const std::map<uint32_t, Image>& images() const { return images_; }
  // The largest image; the family is never empty after a successful read.
  const Image& largest() const { return images_.rbegin()->second; }
  // One line per element skipped or not decoded, by offset: "offset 8: skipped 'TOC ' (table
  // of contents)", "offset 1204: 'ic08' holds JPEG 2000, not decoded".
  const std::vector<std::string>& notes() const { return notes_; }

 private:
  std::map<uint32_t, Image> images_;
  std::vector<std::string> notes_;
};

}  // namespace rvitunes::image
