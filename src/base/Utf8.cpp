#include "rvitunes/base/Utf8.h"

#include <cstdint>

namespace rvitunes {

bool isValidUtf8(std::string_view bytes) {
  size_t i = 0;
  const size_t n = bytes.size();
  while (i < n) {
    const auto lead = static_cast<unsigned char>(bytes[i]);
    if (lead < 0x80) {
      ++i;
      continue;
    }
    size_t length = 0;
    // Bounds for the second byte; they rule out overlong forms, surrogates and code points
    // past U+10FFFF without decoding the scalar value.
    unsigned char low = 0x80, high = 0xBF;
    if (lead >= 0xC2 && lead <= 0xDF) {
      length = 2;
    } else if (lead >= 0xE0 && lead <= 0xEF) {
      length = 3;
      if (lead == 0xE0) low = 0xA0;
      if (lead == 0xED) high = 0x9F;
    } else if (lead >= 0xF0 && lead <= 0xF4) {
      length = 4;
      if (lead == 0xF0) low = 0x90;
      if (lead == 0xF4) high = 0x8F;
    } else {
      return false;
    }
    if (n - i < length) return false;
    const auto second = static_cast<unsigned char>(bytes[i + 1]);
    if (second < low || second > high) return false;
    for (size_t k = 2; k < length; ++k) {
      const auto next = static_cast<unsigned char>(bytes[i + k]);
      if (next < 0x80 || next > 0xBF) return false;
    }
    i += length;
  }
  return true;
}

void appendUtf8(std::string& out, char32_t codePoint) {
  const uint32_t cp = codePoint;
  if (cp < 0x80) {
    out.push_back(static_cast<char>(cp));
  } else if (cp < 0x800) {
    out.push_back(static_cast<char>(0xC0 | (cp >> 6)));
    out.push_back(static_cast<char>(0x80 | (cp & 0x3F)));
  } else if (cp < 0x10000) {
    out.push_back(static_cast<char>(0xE0 | (cp >> 12)));
    out.push_back(static_cast<char>(0x80 | ((cp >> 6) & 0x3F)));
    out.push_back(static_cast<char>(0x80 | (cp & 0x3F)));
  } else {
    out.push_back(static_cast<char>(0xF0 | (cp >> 18)));
    out.push_back(static_cast<char>(0x80 | ((cp >> 12) & 0x3F)));
    out.push_back(static_cast<char>(0x80 | ((cp >> 6) & 0x3F)));
    out.push_back(static_cast<char>(0x80 | (cp & 0x3F)));
  }
}

}  // namespace rvitunes
