// Cadenza: the player's version, read once per process and packed into one number.
#include <cctype>
#include <climits>
#include <mutex>
#include <utility>

#include "rvitunes/cadenza/Cadenza.h"

namespace rvitunes {

namespace {

struct VersionSlots {
  std::mutex mutex;
  std::optional<std::string> text;  // the player's short version, once read
  uint32_t number = 0;              // packed; 0 = not known (or packs to 0)
};
VersionSlots& versionSlots() {
  static VersionSlots slots;
  return slots;
}

// The leading decimal integer of `text` as the platform's intValue reads it: leading white
// space, an optional sign, the digits up to the first other byte; saturating at the 32-bit
// range; 0 when there is no digit.
int32_t leadingInteger(std::string_view text) {
  size_t i = 0;
  while (i < text.size() && std::isspace(static_cast<unsigned char>(text[i])))
    ++i;
  bool negative = false;
  if (i < text.size() && (text[i] == '+' || text[i] == '-')) negative = text[i++] == '-';
  int64_t value = 0;
  for (; i < text.size() && text[i] >= '0' && text[i] <= '9'; ++i) {
    value = value * 10 + (text[i] - '0');
    if (value > int64_t{INT32_MAX} + 1) value = int64_t{INT32_MAX} + 1;
  }
  if (negative) value = -value;
  if (value > INT32_MAX) value = INT32_MAX;
  return static_cast<int32_t>(value);
}

}  // namespace

uint32_t Cadenza::packVersion(std::string_view version) {
  uint32_t packed = 0;
  size_t start = 0;
  for (int position = 0; position < 3; ++position) {
    const size_t dot = version.find('.', start);
    const std::string_view component =
        version.substr(start, dot == std::string_view::npos ? std::string_view::npos : dot - start);
    const uint32_t lowBits = static_cast<uint32_t>(leadingInteger(component)) & 0xFFu;
    packed |= lowBits << (8 - 4 * position);
    if (dot == std::string_view::npos) break;
    start = dot + 1;
  }
  return packed;
}

std::optional<std::string> Cadenza::versionString() {
  VersionSlots& slots = versionSlots();
  {
    std::lock_guard lock(slots.mutex);
    if (slots.text) return slots.text;
  }
  // Asked without the lock, so that a slow player holds up no other thread's cached answer.
  std::optional<std::string> read = getPropertyAsVersionForDesc(fourCharCode("vers"));
  if (!read) return std::nullopt;
  std::lock_guard lock(slots.mutex);
  if (!slots.text) slots.text = std::move(read);
  return slots.text;
}

uint32_t Cadenza::versionNumber() {
  VersionSlots& slots = versionSlots();
  {
    std::lock_guard lock(slots.mutex);
    if (slots.number != 0) return slots.number;
  }
  const std::optional<std::string> text = versionString();
  const uint32_t packed = text ? packVersion(*text) : 0;
  std::lock_guard lock(slots.mutex);
  if (slots.number == 0) slots.number = packed;
  return slots.number;
}

bool Cadenza::versionGreaterThan(uint32_t version) {
  return versionNumber() > version;
}

bool Cadenza::versionLessThan(uint32_t version) {
  return versionNumber() < version;
}

void Cadenza::resetCachedVersion() {
  VersionSlots& slots = versionSlots();
  std::lock_guard lock(slots.mutex);
  slots.text.reset();
  slots.number = 0;
}

}  // namespace rvitunes
