// UTF-8 validation for text that crosses a trust boundary (decoded URLs, file contents), and
// the one UTF-8 encoder the readers and converters share.
#pragma once

#include <string>
#include <string_view>

namespace rvitunes {

// True when `bytes` is well-formed UTF-8: shortest forms only, no surrogate code points
// (U+D800..U+DFFF), nothing above U+10FFFF. The empty text is valid; NUL bytes are valid.
bool isValidUtf8(std::string_view bytes);

// Appends the UTF-8 form of `codePoint` (at most U+10FFFF; callers replace surrogates first).
void appendUtf8(std::string& out, char32_t codePoint);

}  // namespace rvitunes
