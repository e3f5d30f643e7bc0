// The number readings of text that the library file's consumers have always relied on: the
// integer value of a decimal key ("0012" is 12) and the truth value of a string ("YES", "1").
#pragma once

#include <cstdint>
#include <string_view>

#include "rvitunes/plist/Value.h"

namespace rvitunes::helper {

// The leading decimal integer of `text`: leading white space (space, tab, line breaks) is
// skipped, then an optional '+' or '-', then digits up to the first non-digit. Saturates at
// INT32_MIN / INT32_MAX; text without a leading number gives 0.
int32_t textIntValue(std::string_view text) noexcept;

// The truth of `text`: after leading white space, an optional sign and leading zeros, true
// when the next character is 'Y', 'y', 'T', 't' or a digit 1-9; false otherwise.
bool textBoolValue(std::string_view text) noexcept;

// intValue of a dictionary key: textIntValue for strings, the 32-bit value for numbers, 0 for
// anything else.
int32_t keyIntValue(const plist::Value& key) noexcept;

}  // namespace rvitunes::helper
