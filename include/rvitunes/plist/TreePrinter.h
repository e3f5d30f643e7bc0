// A readable, indented rendering of a property-list tree for people (not meant to be parsed).
#pragma once

#include <string>

#include "rvitunes/plist/Value.h"

namespace rvitunes::plist {

class TreePrinter {
 public:
  static std::string print(const Value& root);
};

}  // namespace rvitunes::plist
