// PackBits, the run-length scheme of QuickDraw pixel rows: a signed header byte n, then n + 1
// literal units for n >= 0, or one unit repeated 1 - n times for n in -127..-1; -128 does
// nothing. A unit is one byte, or two for 16-bit pixels (pack type 3).
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace rvitunes::image::detail {

// Why unpacking stopped, with the position in the packed input where it did.
struct UnpackOutcome {
  enum Kind { kOk, kLiteralPastInput, kRunPastInput, kPastOutput } kind = kOk;
  size_t produced = 0;  // bytes written to the output
  size_t at = 0;        // input position of the failing header byte
  const char* what() const;
};

// Unpacks all of `packed` into `out`; never writes beyond out.size(). kPastOutput when the data
// would expand beyond it. `unit` is 1 or 2.
UnpackOutcome unpackBits(std::span<const uint8_t> packed, std::span<uint8_t> out, size_t unit);

// Appends the PackBits form of `row` (byte units): runs of three or more equal bytes become
// repeat headers, everything else literals of at most 128 bytes.
void packBits(std::span<const uint8_t> row, std::vector<uint8_t>& out);

}  // namespace rvitunes::image::detail
