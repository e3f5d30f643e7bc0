#include "rvitunes/base/FourCharCode.h"

namespace rvitunes {

std::optional<OSType> parseFourCharCode(std::string_view text) {
  if (text.empty() || text.size() > 4) return std::nullopt;
  OSType code = 0;
  for (size_t i = 0; i < 4; ++i) {
    const unsigned char byte = i < text.size() ? static_cast<unsigned char>(text[i]) : ' ';
    code = (code << 8) | byte;
  }
  return code;
}

std::string fourCharString(OSType code) {
  std::string text(4, '\0');
  for (int i = 0; i < 4; ++i) {
    text[i] = static_cast<char>((code >> (24 - 8 * i)) & 0xFF);
  }
  return text;
}

std::string fourCharDisplay(OSType code) {
  static constexpr char kHex[] = "0123456789ABCDEF";
  std::string text = "'";
  for (const char c : fourCharString(code)) {
    const auto byte = static_cast<unsigned char>(c);
    if (byte >= 0x20 && byte < 0x7F && byte != '\'' && byte != '\\') {
      text += c;
    } else {
      text += "\\x";
      text += kHex[byte >> 4];
      text += kHex[byte & 0xF];
    }
  }
  text += '\'';
  return text;
}

}  // namespace rvitunes
