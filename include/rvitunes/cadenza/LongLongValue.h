// The one reader of hexadecimal identifier text.
#pragma once

#include <cstdint>
#include <string_view>

namespace rvitunes {

// `text` read as an unsigned 64-bit number in base 16, as strtoull does, and answered as a
// signed 64-bit value: leading white space, a sign and a "0x" are accepted, reading stops at
// the first byte that is no hexadecimal digit (and at a zero byte), text without a digit gives
// 0 and a value beyond 64 bits gives all ones (-1). "0x1F" and "1f" both give 31, "zz" gives
// 0, "F00000000000A101" a negative value. Pure and thread-safe.
int64_t longlongValue(std::string_view text);

}  // namespace rvitunes
