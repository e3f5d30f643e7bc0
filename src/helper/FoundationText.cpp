#include "helper/FoundationText.h"

#include <limits>

namespace rvitunes::helper {

namespace {

bool isBlank(char c) {
  return c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\v' || c == '\f';
}

size_t skipBlanks(std::string_view text) {
  size_t i = 0;
  while (i < text.size() && isBlank(text[i]))
    ++i;
  return i;
}

}  // namespace

int32_t textIntValue(std::string_view text) noexcept {
  size_t i = skipBlanks(text);
  bool negative = false;
  if (i < text.size() && (text[i] == '+' || text[i] == '-')) {
    negative = text[i] == '-';
    ++i;
  }
  // Accumulate as a negative number so that INT32_MIN itself fits.
  constexpr int64_t kLimit = -static_cast<int64_t>(std::numeric_limits<int32_t>::min());
  int64_t magnitude = 0;
  bool saturated = false;
  for (; i < text.size() && text[i] >= '0' && text[i] <= '9'; ++i) {
    if (saturated) continue;
    magnitude = magnitude * 10 + (text[i] - '0');
    if (magnitude > kLimit) saturated = true;
  }
  if (negative) {
    if (saturated) return std::numeric_limits<int32_t>::min();
    return static_cast<int32_t>(-magnitude);
  }
  if (saturated || magnitude > std::numeric_limits<int32_t>::max()) {
    return std::numeric_limits<int32_t>::max();
  }
  return static_cast<int32_t>(magnitude);
}

bool textBoolValue(std::string_view text) noexcept {
  size_t i = skipBlanks(text);
  if (i < text.size() && (text[i] == '+' || text[i] == '-')) ++i;
  while (i < text.size() && text[i] == '0')
    ++i;
  if (i == text.size()) return false;
  char c = text[i];
  return c == 'Y' || c == 'y' || c == 'T' || c == 't' || (c >= '1' && c <= '9');
}

int32_t keyIntValue(const plist::Value& key) noexcept {
  if (key.isString()) return textIntValue(key.stringView());
  if (key.isNumber()) return key.intValue();
  return 0;
}

}  // namespace rvitunes::helper
