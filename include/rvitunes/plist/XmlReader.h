// Reader of the XML property-list format.
//
// Accepts everything the format allows (declaration, DOCTYPE, comments, CDATA, the five named
// entities, decimal and hexadecimal character references, base64 <data> with line breaks,
// ISO-8601 dates, integers over the whole signed and unsigned 64-bit range, reals including nan
// and inf, empty elements) and repairs, with a warning naming the byte offset, the defects of
// files the player writes: raw control characters, references to lone surrogates or to
// U+0000-U+001F, invalid UTF-8 bytes, dates without the trailing 'Z'. Structural errors
// (unclosed element, key without value, unknown element, truncated input) fail with reason and
// offset and hand out no tree.
#pragma once

#include <string_view>

#include "rvitunes/plist/ParseResult.h"

namespace rvitunes::plist {

class XmlReader {
 public:
  // Parses `text`. Never throws for bad input; std::bad_alloc passes through.
  static ParseResult read(std::string_view text, const ReadOptions& options = {});
};

}  // namespace rvitunes::plist
