// Reading and writing property-list files in any supported format.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

#include "rvitunes/base/Result.h"
#include "rvitunes/plist/ParseResult.h"
#include "rvitunes/plist/Value.h"

namespace rvitunes::plist {

enum class OutputFormat { kXml1, kBinary1, kJson };

class PropertyList {
 public:
  // Parses `bytes`, choosing the binary or the XML reader by the leading magic.
  static ParseResult read(std::span<const uint8_t> bytes, const ReadOptions& options = {});
  // Reads the file at `path` (mapped, not copied, where the system allows) and parses it.
  // A file that cannot be opened or is larger than options.maxInputBytes gives an error at
  // offset 0 naming the cause.
  static ParseResult readFile(const std::string& path, const ReadOptions& options = {});

  // Encodes `root` in `format`. Fails (paramErr) for trees that the format cannot hold: nil
  // values and host objects anywhere, non-string keys, and for json a date or data is written
  // as text (ISO-8601, base64) so nothing fails there but nil and objects.
  static Result<std::string> encode(const Value& root, OutputFormat format,
                                    EntityStyle entities = EntityStyle::kNumeric);
  // Encodes `root` and replaces the file at `path` atomically: the old file stays whole until
  // the new one is complete and flushed.
  static Status writeFile(const std::string& path, const Value& root, OutputFormat format,
                          EntityStyle entities = EntityStyle::kNumeric);
};

}  // namespace rvitunes::plist
