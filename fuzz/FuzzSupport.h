// Helpers shared by the property-list fuzz targets.
#pragma once

#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "rvitunes/plist/Array.h"
#include "rvitunes/plist/Dictionary.h"
#include "rvitunes/plist/Value.h"

namespace rvitunes::fuzz {

// Reports a broken property and aborts, so that libFuzzer keeps the input as a crash.
[[noreturn]] inline void fail(const char* property, const std::string& detail = {}) {
  std::fprintf(stderr, "round-trip property violated: %s%s%s\n", property,
               detail.empty() ? "" : ": ", detail.c_str());
  std::abort();
}

// What the writers will meet in a tree.
struct TreeShape {
  bool writable = true;  // no nil, no host object, every dictionary key a string
  bool small = true;     // at most the node budget, counting shared containers per occurrence
};

namespace detail {
inline void walk(const plist::Value& v, size_t& budget, TreeShape& shape) {
  if (budget == 0) {
    shape.small = false;
    return;
  }
  --budget;
  switch (v.type()) {
    case plist::Type::kNil:
    case plist::Type::kObject:
      shape.writable = false;
      break;
    case plist::Type::kArray:
      for (const plist::Value& item : *v.asArray()) {
        walk(item, budget, shape);
        if (!shape.small) return;
      }
      break;
    case plist::Type::kDictionary:
      for (const plist::Dictionary::Entry& entry : *v.asDictionary()) {
        if (!entry.key.isString()) shape.writable = false;
        walk(entry.value, budget, shape);
        if (!shape.small) return;
      }
      break;
    default:
      break;
  }
}
}  // namespace detail

// A binary plist may reference one container from many places; written out, each reference
// becomes a copy, so a small input can stand for an enormous tree. The budget keeps such inputs
// from turning a fuzz run into a memory test.
inline TreeShape inspect(const plist::Value& root, size_t nodeBudget = size_t{1} << 16) {
  TreeShape shape;
  detail::walk(root, nodeBudget, shape);
  return shape;
}

}  // namespace rvitunes::fuzz
