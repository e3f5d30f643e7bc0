// Reader of the binary property-list format "bplist00", with the format's checks: the trailer's
// sizes and offsets, every object reference in range, offsets inside the object area, no object
// that contains itself, and lengths bounded by the input before anything is allocated.
#pragma once

#include <cstdint>
#include <span>

#include "rvitunes/plist/ParseResult.h"

namespace rvitunes::plist {

class BinaryReader {
 public:
  // True when `bytes` begin with the "bplist00" magic.
  static bool looksBinary(std::span<const uint8_t> bytes) noexcept;
  // Parses `bytes`; errors carry the byte offset of the offending object or table.
  static ParseResult read(std::span<const uint8_t> bytes, const ReadOptions& options = {});
};

}  // namespace rvitunes::plist
