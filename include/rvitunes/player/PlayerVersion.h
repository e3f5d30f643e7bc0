// The player version the reference player pretends to be, and what that version changes.
//
// Versions are compared packed, as clients pack them: the leading decimal number of each of the
// first three dot-separated components, reduced to 8 bits, shifted left by 8, 4 and 0 and ORed
// ("7.2.1" is 0x721, "6.0" is 0x600). The behaviour each version shows:
//
//   version        persistent ID 'pPID'   'pPIS'   'pLyr'   'pLds'   7.0 properties, real times
//   below 6.0      absent                 -        -        -        -
//   6.0.0          'comp'                 -        -        -        -
//   6.0.1          'comp'                 -        yes      -        -
//   6.0.2 - 6.x    'comp'                 -        yes      yes      -
//   7.0 - 7.1.x    'comp'                 -        yes      yes      yes
//   7.2.0, 7.2.1   16-digit hex text      -        yes      yes      yes
//   7.2.2 - 7.2.15 'comp'                 -        yes      yes      yes
//   7.3 and later  'comp'                 hex text yes      yes      yes
//
// Value type: copyable, immutable, thread-safe.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "rvitunes/ae/Descriptor.h"

namespace rvitunes::player {

class PlayerVersion {
 public:
  // The version a player answers unless told otherwise.
  static constexpr std::string_view kDefaultText = "7.7.1";

  // The default version, 7.7.1.
  PlayerVersion();

  // Parses "X", "X.Y" or "X.Y.Z" (more components are kept in the text but ignored): each
  // component must be a decimal number from 0 to 255. nullopt for anything else. Components
  // from 16 up overlap the next one in packed(), as they do for clients.
  static std::optional<PlayerVersion> parse(std::string_view text);
  // The version of a packed number (0x721 is 7.2.1).
  static PlayerVersion fromPacked(uint32_t packed);

  // The text the player reports as its short version string ("7.2.1").
  const std::string& text() const { return text_; }
  // The packed number (see above).
  uint32_t packed() const { return packed_; }
  // The first three components as parsed (0 when absent).
  int major() const { return major_; }
  int minor() const { return minor_; }
  int bugFix() const { return bugFix_; }

  // 6.0.0 and later: tracks and playlists have a persistent ID ('pPID').
  bool hasPersistentIds() const { return packed_ >= 0x600; }
  // 7.2.0 and 7.2.1: 'pPID' is answered as 16 upper-case hexadecimal digits ('utxt'), and a
  // look-up by persistent ID compares against that text. Elsewhere it is a 'comp'.
  bool persistentIdAsText() const { return packed_ >= 0x720 && packed_ <= 0x721; }
  // 7.3 and later: 'pPIS', the persistent ID as hexadecimal text.
  bool hasPPIS() const { return packed_ >= 0x730; }
  // 6.0.1 and later: lyrics ('pLyr').
  bool hasLyrics() const { return packed_ >= 0x601; }
  // 6.0.2 and later: long description ('pLds').
  bool hasPLds() const { return packed_ >= 0x602; }
  // 7.0 and later: the properties new in 7.0 (album artist, gapless, skipped count and date,
  // episode ID and number, season number, show, video kind) and fractional seconds ('doub')
  // for duration, start, finish and bookmark; earlier players answer whole seconds ('long').
  bool hasSevenProperties() const { return packed_ >= 0x700; }
  // 8.0 and later: the Genius playlist reports its own special kind 'kSpG'.
  bool hasGeniusKind() const { return packed_ >= 0x800; }

  // The 'vers' record: BCD major, BCD minor and bug-fix digits, stage 0x80 (final), non-release
  // 0, region 0 (2 bytes), the short version string as a Pascal string, and an empty long
  // version string, so that a reader that stops at the first zero byte after the short string
  // sees the version text alone.
  std::vector<uint8_t> versRecord() const;
  // The record as a 'vers' descriptor, the reply to the application's 'vers' property.
  ae::Descriptor versDescriptor() const;

  friend bool operator==(const PlayerVersion& a, const PlayerVersion& b) {
    return a.packed_ == b.packed_;
  }

 private:
  PlayerVersion(std::string text, int major, int minor, int bugFix);
  std::string text_;
  uint32_t packed_ = 0;
  int major_ = 0;
  int minor_ = 0;
  int bugFix_ = 0;
};

}  // namespace rvitunes::player
