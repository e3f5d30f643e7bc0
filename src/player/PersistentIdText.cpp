#include "rvitunes/player/PersistentIdText.h"

namespace rvitunes::player {

std::string formatPersistentId(PersistentId id) {
  static constexpr char kDigits[] = "0123456789ABCDEF";
  std::string out(16, '0');
  for (int i = 15; i >= 0; --i) {
    out[static_cast<size_t>(i)] = kDigits[id & 0xF];
    id >>= 4;
  }
  return out;
}

std::optional<PersistentId> parsePersistentId(std::string_view text) {
  if (text.empty() || text.size() > 16) return std::nullopt;
  PersistentId value = 0;
  for (const char c : text) {
    int digit;
    if (c >= '0' && c <= '9') {
      digit = c - '0';
    } else if (c >= 'A' && c <= 'F') {
      digit = c - 'A' + 10;
    } else if (c >= 'a' && c <= 'f') {
      digit = c - 'a' + 10;
    } else {
      return std::nullopt;
    }
    value = (value << 4) | static_cast<PersistentId>(digit);
  }
  return value;
}

}  // namespace rvitunes::player
