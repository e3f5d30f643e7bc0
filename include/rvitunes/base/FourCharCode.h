// Four-character codes: 32-bit tags written as four bytes, the first byte most significant
// ('hook' is 0x686F6F6B). Used for event classes, property and type codes, file types.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace rvitunes {

using OSType = uint32_t;
using FourCharCode = uint32_t;

// The code of a four-character literal: fourCharCode("hook") == 0x686F6F6B. The literal must
// have exactly four characters; anything else does not compile.
constexpr OSType fourCharCode(const char (&text)[5]) {
  return (static_cast<OSType>(static_cast<unsigned char>(text[0])) << 24) |
         (static_cast<OSType>(static_cast<unsigned char>(text[1])) << 16) |
         (static_cast<OSType>(static_cast<unsigned char>(text[2])) << 8) |
         static_cast<OSType>(static_cast<unsigned char>(text[3]));
}

// The code spelled by 1 to 4 bytes, any byte values allowed; shorter texts are padded with
// trailing blanks ("pEQ" reads as 'pEQ '). nullopt for an empty text or more than four bytes.
std::optional<OSType> parseFourCharCode(std::string_view text);

// The four bytes of `code`, most significant first, trailing blanks kept ("pEQ ").
std::string fourCharString(OSType code);

// The code for messages: the four bytes between single quotes, 'hook'. Bytes outside printable
// ASCII, the quote and the backslash are written as \xHH (upper-case hex), so 0x00000001 shows
// as '\x00\x00\x00\x01'. The result is plain ASCII.
std::string fourCharDisplay(OSType code);

}  // namespace rvitunes
