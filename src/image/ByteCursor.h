// A bounded big-endian reader over a window of an input buffer. Offsets are absolute (from the
// start of the whole input) so that error messages point at the byte in the caller's data.
#pragma once

#include <cassert>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>

#include "Codecs.h"

namespace rvitunes::image::detail {

class ByteCursor {
 public:
  // The window [begin, end) of `data`; begin <= end <= data.size() (asserted).
  ByteCursor(std::span<const uint8_t> data, size_t begin, size_t end)
      : data_(data), pos_(begin), end_(end) {
    assert(begin <= end && end <= data.size());
  }
  explicit ByteCursor(std::span<const uint8_t> data) : ByteCursor(data, 0, data.size()) {}

  size_t offset() const { return pos_; }
  size_t end() const { return end_; }
  size_t left() const { return end_ - pos_; }
  bool has(size_t n) const { return n <= left(); }

  // eofErr "offset N: <what> needs B bytes, L left" unless `n` bytes are left.
  Status need(size_t n, const char* what) const {
    if (has(n)) return Status();
    return errorAt(pos_,
                   std::string(what) + " needs " + std::to_string(n) + " bytes, " +
                       std::to_string(left()) + " left",
                   eofErr);
  }

  // Unchecked reads: call need() first (asserted).
  uint8_t u8() {
    assert(has(1));
    return data_[pos_++];
  }
  uint16_t u16() {
    assert(has(2));
    const uint16_t v = static_cast<uint16_t>(data_[pos_] << 8 | data_[pos_ + 1]);
    pos_ += 2;
    return v;
  }
  int16_t s16() { return static_cast<int16_t>(u16()); }
  uint32_t u32() {
    assert(has(4));
    const uint32_t v = uint32_t{data_[pos_]} << 24 | uint32_t{data_[pos_ + 1]} << 16 |
                       uint32_t{data_[pos_ + 2]} << 8 | uint32_t{data_[pos_ + 3]};
    pos_ += 4;
    return v;
  }
  int32_t s32() { return static_cast<int32_t>(u32()); }
  std::span<const uint8_t> bytes(size_t n) {
    assert(has(n));
    const auto out = data_.subspan(pos_, n);
    pos_ += n;
    return out;
  }
  void skip(size_t n) {
    assert(has(n));
    pos_ += n;
  }
  // Moves to absolute offset `to`, which must lie within the window (asserted).
  void seek(size_t to) {
    assert(to <= end_);
    pos_ = to;
  }
  // A cursor over the next `n` bytes; this one moves past them.
  ByteCursor take(size_t n) {
    assert(has(n));
    ByteCursor sub(data_, pos_, pos_ + n);
    pos_ += n;
    return sub;
  }

 private:
  std::span<const uint8_t> data_;
  size_t pos_;
  size_t end_;
};

}  // namespace rvitunes::image::detail
