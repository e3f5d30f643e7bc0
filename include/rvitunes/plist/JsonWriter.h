// Writer of a property-list tree as JSON: dictionaries as objects (keys in order), arrays as
// arrays, booleans, integers written exactly (unsigned 64-bit ones too), reals in the shortest
// form that reads back the same (nan and infinities, which JSON lacks, as the strings "nan",
// "inf", "-inf"), strings escaped as JSON requires, dates as ISO-8601 text, data as base64 text.
#pragma once

#include <string>

#include "rvitunes/base/Result.h"
#include "rvitunes/plist/Value.h"

namespace rvitunes::plist {

class JsonWriter {
 public:
  // `indent` 0 writes one line; otherwise nested lines indented by that many spaces.
  // Fails with paramErr for nil values and host objects.
  static Result<std::string> write(const Value& root, int indent = 2);
};

}  // namespace rvitunes::plist
