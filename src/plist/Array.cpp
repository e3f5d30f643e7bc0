#include "rvitunes/plist/Array.h"

namespace rvitunes::plist {

bool Array::insert(size_t i, Value v) {
  if (i > items_.size()) return false;
  items_.insert(items_.begin() + static_cast<ptrdiff_t>(i), std::move(v));
  return true;
}

bool Array::erase(size_t i) {
  if (i >= items_.size()) return false;
  items_.erase(items_.begin() + static_cast<ptrdiff_t>(i));
  return true;
}

}  // namespace rvitunes::plist
