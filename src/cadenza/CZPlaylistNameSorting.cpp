// The name order of playlists, for sorting a playlist's children.
#include "rvitunes/cadenza/CZPlaylistNameSorting.h"

#include <cstring>
#include <memory>
#include <optional>
#include <string>

#include "rvitunes/cadenza/CZPlaylist.h"
#include "rvitunes/cadenza/CZPlaylistCache.h"

namespace rvitunes {

namespace {

// The next code point of UTF-8 text at `*p`, advancing past it. A byte that starts no valid
// sequence is answered as itself, offset into a range no letter uses, so that it still sorts
// consistently.
char32_t nextCodePoint(const unsigned char*& p) {
  const unsigned char lead = *p;
  int length = 0;
  char32_t cp = 0;
  if (lead < 0x80) {
    ++p;
    return lead;
  } else if ((lead & 0xE0) == 0xC0) {
    length = 2;
    cp = lead & 0x1F;
  } else if ((lead & 0xF0) == 0xE0) {
    length = 3;
    cp = lead & 0x0F;
  } else if ((lead & 0xF8) == 0xF0) {
    length = 4;
    cp = lead & 0x07;
  }
  if (length == 0) {
    ++p;
    return 0x110000 + lead;
  }
  for (int i = 1; i < length; ++i) {
    if ((p[i] & 0xC0) != 0x80) {
      ++p;
      return 0x110000 + lead;
    }
    cp = (cp << 6) | (p[i] & 0x3F);
  }
  p += length;
  return cp;
}

// Simple lower-case folding of the letters of the common alphabets.
char32_t foldCase(char32_t c) {
  if (c >= 'A' && c <= 'Z') return c + 32;
  if (c < 0xC0) return c;
  if (c <= 0xDE && c != 0xD7) return c + 32;                 // Latin-1 capitals
  if (c >= 0x100 && c <= 0x137 && c != 0x130) return c | 1;  // Latin Extended-A pairs
  if (c >= 0x139 && c <= 0x148) return (c & 1) ? c + 1 : c;  // odd capitals
  if (c >= 0x14A && c <= 0x177) return c | 1;
  if (c == 0x178) return 0xFF;
  if (c >= 0x179 && c <= 0x17E) return (c & 1) ? c + 1 : c;
  if (c >= 0x391 && c <= 0x3AB && c != 0x3A2) return c + 32;  // Greek capitals
  if (c >= 0x410 && c <= 0x42F) return c + 32;                // Cyrillic capitals
  if (c >= 0x400 && c <= 0x40F) return c + 80;
  return c;
}

}  // namespace

int compareCaseInsensitive(const char* a, const char* b) {
  auto* pa = reinterpret_cast<const unsigned char*>(a);
  auto* pb = reinterpret_cast<const unsigned char*>(b);
  while (*pa != 0 && *pb != 0) {
    const char32_t ca = foldCase(nextCodePoint(pa));
    const char32_t cb = foldCase(nextCodePoint(pb));
    if (ca != cb) return ca < cb ? -1 : 1;
  }
  if (*pa == 0 && *pb == 0) return 0;
  return *pa == 0 ? -1 : 1;
}

int comparePlaylistName(int64_t persistentId, int64_t other) {
  const std::shared_ptr<CZPlaylistCache> cache = CZPlaylistCache::sharedInstance();
  const std::shared_ptr<CZPlaylist> first = cache->playlistForPersistentId(persistentId);
  const std::shared_ptr<CZPlaylist> second = cache->playlistForPersistentId(other);
  // A missing receiver compares equal to anything.
  if (!first) return 0;
  const std::optional<std::string> firstName = first->name();
  if (!firstName) return 0;
  const std::optional<std::string> secondName = second ? second->name() : std::nullopt;
  // The platform's comparison ranks any text after a missing one.
  if (!secondName) return 1;
  return compareCaseInsensitive(firstName->c_str(), secondName->c_str());
}

}  // namespace rvitunes
