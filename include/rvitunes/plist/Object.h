// An opaque host object stored inside a property-list tree (for example an icon image written
// into a playlist record). Writers refuse trees that hold one; readers never make one.
#pragma once

#include <string_view>

#include "rvitunes/plist/Ref.h"

namespace rvitunes::plist {

class Object : public RefCounted {
 public:
  // A short name of the object's kind, for printing ("image").
  virtual std::string_view typeName() const = 0;
};

}  // namespace rvitunes::plist
