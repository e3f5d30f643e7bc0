#include "PackBits.h"

#include <algorithm>
#include <cstring>

namespace rvitunes::image::detail {

const char* UnpackOutcome::what() const {
  switch (kind) {
    case kOk:
      return "ok";
    case kLiteralPastInput:
      return "literal runs past the end of the packed row";
    case kRunPastInput:
      return "repeat header without its value";
    case kPastOutput:
      return "data expands past the end of the row";
  }
  return "?";
}

UnpackOutcome unpackBits(std::span<const uint8_t> packed, std::span<uint8_t> out, size_t unit) {
  UnpackOutcome r;
  size_t in = 0;
  while (in < packed.size()) {
    r.at = in;
    const auto n = static_cast<int8_t>(packed[in++]);
    if (n == -128) continue;
    if (n >= 0) {
      const size_t bytes = (static_cast<size_t>(n) + 1) * unit;
      if (bytes > packed.size() - in) return r.kind = UnpackOutcome::kLiteralPastInput, r;
      if (bytes > out.size() - r.produced) return r.kind = UnpackOutcome::kPastOutput, r;
      std::memcpy(out.data() + r.produced, packed.data() + in, bytes);
      in += bytes;
      r.produced += bytes;
    } else {
      const size_t count = static_cast<size_t>(1 - n);
      if (unit > packed.size() - in) return r.kind = UnpackOutcome::kRunPastInput, r;
      if (count * unit > out.size() - r.produced) return r.kind = UnpackOutcome::kPastOutput, r;
      for (size_t i = 0; i < count; ++i) {
        std::memcpy(out.data() + r.produced, packed.data() + in, unit);
        r.produced += unit;
      }
      in += unit;
    }
  }
  r.at = in;
  return r;
}

void packBits(std::span<const uint8_t> row, std::vector<uint8_t>& out) {
  const size_t n = row.size();
  size_t i = 0;
  while (i < n) {
    size_t j = i + 1;
    while (j < n && row[j] == row[i] && j - i < 128)
      ++j;
    if (j - i >= 3) {
      out.push_back(static_cast<uint8_t>(257 - (j - i)));
      out.push_back(row[i]);
      i = j;
      continue;
    }
    const size_t start = i;
    while (i < n && i - start < 128) {
      if (i + 2 < n && row[i] == row[i + 1] && row[i] == row[i + 2]) break;
      ++i;
    }
    out.push_back(static_cast<uint8_t>(i - start - 1));
    out.insert(out.end(), row.begin() + static_cast<ptrdiff_t>(start),
               row.begin() + static_cast<ptrdiff_t>(i));
  }
}

}  // namespace rvitunes::image::detail
