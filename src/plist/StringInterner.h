// Shares one string value between equal short texts while a file is read: a library repeats
// the same keys on every record and the same kinds, genres and artists on many, so equal texts
// cost one allocation instead of thousands.
//
// The table is a small direct-mapped cache rather than a full set: it stays in the processor's
// cache, the texts that recur often stay in it, and unique texts (names, identifiers) pass
// through without growing anything.
#pragma once

#include <array>
#include <cstdint>
#include <string_view>

#include "plist/Blob.h"
#include "rvitunes/plist/Value.h"

namespace rvitunes::plist {

class StringInterner {
 public:
  // Texts longer than this are rarely repeated and are not looked up.
  static constexpr size_t kMaxLength = 48;
  static constexpr size_t kSlots = 4096;

  // A string value holding `text`, shared with an earlier equal text when one is still cached.
  Value make(std::string_view text);

 private:
  struct Slot {
    uint64_t tag = 0;   // the text's cheap hash, so that a mismatch never touches the string
    uint32_t hits = 0;  // recent hits; a slot in use is not given up to the first newcomer
    Value value;
  };
  std::array<Slot, kSlots> slots_;
};

}  // namespace rvitunes::plist
