// What a property-list reader answers: the tree, or the reason and byte offset of the first
// structural error; plus the defects it repaired on the way, each with its offset.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "rvitunes/plist/Value.h"

namespace rvitunes::plist {

enum class Format { kXml, kBinary };

// How "&", "<" and ">" were escaped in an XML file: "&#38;" (the player's numeric style) or
// "&amp;" (the named style). kNone when the file held none of them.
enum class EntityStyle { kNone, kNumeric, kNamed };

struct Diagnostic {
  uint64_t offset = 0;  // byte offset in the input
  std::string message;
};

struct ParseResult {
  Value root;                        // nil unless ok()
  std::optional<Diagnostic> error;   // the first structural error; the tree is then withheld
  std::vector<Diagnostic> warnings;  // repaired defects, in input order
  Format format = Format::kXml;
  EntityStyle entityStyle = EntityStyle::kNone;

  bool ok() const { return !error.has_value(); }
  // "offset N: message" of the error, or "OK".
  std::string describe() const;
};

// Limits applied to input before anything is allocated for it.
struct ReadOptions {
  uint64_t maxInputBytes = uint64_t{4} << 30;  // whole input
  uint32_t maxDepth = 256;                     // nesting of arrays and dictionaries
  uint64_t maxObjects = uint64_t{1} << 28;     // binary: object count in the trailer
  size_t maxWarnings = 1000;                   // repairs recorded; later ones are counted only
  // Called now and then with (bytes done, bytes total) while a large input is read.
  std::function<void(uint64_t, uint64_t)> progress;
};

}  // namespace rvitunes::plist
