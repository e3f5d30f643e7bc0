// Writer of the XML property-list format in the player's own layout: tab indentation, a key
// and its scalar value on one line ("<key>Track ID</key><integer>7</integer>"), containers
// opening on the next line, data as base64 in lines of 72 characters at the element's
// indentation. A file the player wrote reads and writes back byte for byte.
#pragma once

#include <string>

#include "rvitunes/base/Result.h"
#include "rvitunes/plist/ParseResult.h"
#include "rvitunes/plist/Value.h"

namespace rvitunes::plist {

class XmlWriter {
 public:
  // `entities` picks "&#38;" (kNumeric, the player's style; also used for kNone) or "&amp;".
  // Fails with paramErr for nil values, host objects and non-string keys.
  static Result<std::string> write(const Value& root, EntityStyle entities = EntityStyle::kNumeric);
};

}  // namespace rvitunes::plist
