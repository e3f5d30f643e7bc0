// UTF-8 validation for text that crosses a trust boundary (decoded URLs, file contents).
#pragma once

#include <string_view>

namespace rvitunes {

// True when `bytes` is well-formed UTF-8: shortest forms only, no surrogate code points
// (U+D800..U+DFFF), nothing above U+10FFFF. The empty text is valid; NUL bytes are valid.
bool isValidUtf8(std::string_view bytes);

}  // namespace rvitunes
