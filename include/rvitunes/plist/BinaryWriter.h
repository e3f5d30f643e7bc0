// Writer of the binary property-list format "bplist00". Equal strings and equal scalars are
// written once; containers are written once per occurrence.
#pragma once

#include <string>

#include "rvitunes/base/Result.h"
#include "rvitunes/plist/Value.h"

namespace rvitunes::plist {

class BinaryWriter {
 public:
  // Fails with paramErr for nil values, host objects and non-string keys.
  static Result<std::string> write(const Value& root);
};

}  // namespace rvitunes::plist
