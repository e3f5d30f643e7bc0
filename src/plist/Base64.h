// Base64 as property lists use it: the standard alphabet with '=' padding.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

namespace rvitunes::plist {

// Decodes `text`, skipping white space. Characters outside the alphabet are skipped and
// counted in *ignored. Answers false when the remaining characters cannot be base64 (a single
// dangling character, or data after the padding).
bool base64Decode(std::string_view text, std::string* out, uint64_t* ignored);

// Encodes `bytes` in one line without breaks.
std::string base64Encode(std::span<const uint8_t> bytes);

}  // namespace rvitunes::plist
