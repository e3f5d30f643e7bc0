#include "plist/StringInterner.h"

#include <cstring>

namespace rvitunes::plist {

namespace {

// A cheap slot choice from the length and the outer bytes. Equal texts always meet in the same
// slot; the full hash is left for when a dictionary needs it.
inline uint64_t tagOf(std::string_view text) noexcept {
  uint64_t a = 0;
  uint64_t b = 0;
  const size_t n = text.size();
  if (n >= 8) {
    std::memcpy(&a, text.data(), 8);
    std::memcpy(&b, text.data() + n - 8, 8);
  } else {
    for (size_t i = 0; i < n; ++i)
      a = (a << 8) | static_cast<unsigned char>(text[i]);
  }
  uint64_t h =
      (a * 0x9E3779B97F4A7C15ULL) ^ (b * 0xC2B2AE3D27D4EB4FULL) ^ (n * 0x165667B19E3779F9ULL);
  return h | 1;  // never 0, the tag of an empty slot
}

}  // namespace

Value StringInterner::make(std::string_view text) {
  if (text.size() > kMaxLength) return Value::string(text);
  const uint64_t tag = tagOf(text);
  Slot& slot = slots_[(tag >> 40) & (kSlots - 1)];
  if (slot.tag == tag && slot.value.stringView() == text) {
    if (slot.hits < 4) ++slot.hits;
    return slot.value;
  }
  // Unique texts (names, identifiers) would otherwise push the recurring ones out, and each
  // eviction costs a visit to a string long out of the cache.
  if (slot.hits > 0) {
    --slot.hits;
    return Value::string(text);
  }
  slot.tag = tag;
  slot.value = Value::string(text);
  return slot.value;
}

}  // namespace rvitunes::plist
