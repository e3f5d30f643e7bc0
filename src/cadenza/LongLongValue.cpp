// Hexadecimal identifier text to a number.
#include "rvitunes/cadenza/LongLongValue.h"

#include <cstdlib>
#include <string>

namespace rvitunes {

int64_t longlongValue(std::string_view text) {
  // strtoull needs a terminated string; a zero byte inside ends the text there, as it would
  // in the platform's C string.
  const std::string terminated(text);
  return static_cast<int64_t>(std::strtoull(terminated.c_str(), nullptr, 16));
}

}  // namespace rvitunes
