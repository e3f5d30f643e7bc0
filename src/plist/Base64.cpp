#include "plist/Base64.h"

#include <array>

namespace rvitunes::plist {

namespace {

constexpr char kAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

constexpr std::array<int8_t, 256> makeTable() {
  std::array<int8_t, 256> t{};
  for (auto& v : t)
    v = -1;
  for (int i = 0; i < 64; ++i)
    t[static_cast<unsigned char>(kAlphabet[i])] = static_cast<int8_t>(i);
  return t;
}
constexpr std::array<int8_t, 256> kTable = makeTable();

}  // namespace

bool base64Decode(std::string_view text, std::string* out, uint64_t* ignored) {
  out->clear();
  out->reserve(text.size() / 4 * 3);
  uint32_t acc = 0;
  int bits = 0;
  uint64_t count = 0;  // alphabet characters seen
  bool padded = false;
  for (char ch : text) {
    unsigned char c = static_cast<unsigned char>(ch);
    if (c == ' ' || c == '\t' || c == '\n' || c == '\r') continue;
    if (c == '=') {
      padded = true;
      continue;
    }
    int8_t v = kTable[c];
    if (v < 0) {
      ++*ignored;
      continue;
    }
    if (padded) return false;  // data after the padding
    acc = (acc << 6) | static_cast<uint32_t>(v);
    bits += 6;
    ++count;
    if (bits >= 8) {
      bits -= 8;
      out->push_back(static_cast<char>((acc >> bits) & 0xFF));
    }
  }
  // One character left over carries fewer than 8 bits: not base64.
  return count % 4 != 1;
}

std::string base64Encode(std::span<const uint8_t> bytes) {
  std::string out;
  out.reserve((bytes.size() + 2) / 3 * 4);
  size_t i = 0;
  for (; i + 3 <= bytes.size(); i += 3) {
    uint32_t v = (uint32_t{bytes[i]} << 16) | (uint32_t{bytes[i + 1]} << 8) | bytes[i + 2];
    out.push_back(kAlphabet[(v >> 18) & 63]);
    out.push_back(kAlphabet[(v >> 12) & 63]);
    out.push_back(kAlphabet[(v >> 6) & 63]);
    out.push_back(kAlphabet[v & 63]);
  }
  if (i < bytes.size()) {
    uint32_t v = uint32_t{bytes[i]} << 16;
    if (i + 1 < bytes.size()) v |= uint32_t{bytes[i + 1]} << 8;
    out.push_back(kAlphabet[(v >> 18) & 63]);
    out.push_back(kAlphabet[(v >> 12) & 63]);
    out.push_back(i + 1 < bytes.size() ? kAlphabet[(v >> 6) & 63] : '=');
    out.push_back('=');
  }
  return out;
}

}  // namespace rvitunes::plist
