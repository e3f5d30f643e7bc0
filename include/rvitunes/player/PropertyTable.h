// The properties the player offers on each class of its object model: code, value type,
// access, the versions that have it and, for tracks and playlists, the library-file key it is
// kept under. The getters and setters of Library and PlayerModel follow this table; a handler
// may consult it to describe or check a property without asking for its value.
//
// Static data; thread-safe.
#pragma once

#include <cstdint>
#include <span>
#include <string_view>

#include "rvitunes/base/FourCharCode.h"
#include "rvitunes/player/PlayerVersion.h"

namespace rvitunes::player {

// How a property's value travels in an event.
enum class ValueType : uint8_t {
  kText,          // 'utxt'
  kInteger,       // 'long' ('comp' when the value does not fit 32 bits)
  kLongInteger,   // 'comp'
  kBoolean,       // 'bool'
  kDate,          // 'ldt ', seconds since 1904 (UTC)
  kEnum,          // 'enum', a four-character code
  kType,          // 'type', a four-character code (class, artwork format)
  kReal,          // 'doub'
  kSeconds,       // 'doub' from 7.0 on, whole seconds as 'long' before
  kFileLocation,  // 'fsrf' of an existing file; missing value ('msng') when the file is gone
  kPersistentId,  // 'comp', or 16-digit hexadecimal 'utxt' on 7.2.0 and 7.2.1
  kPicture,       // the artwork's own descriptor type ('PICT', 'JPEG', 'PNG ', ...)
  kData,          // 'tdta', raw bytes
  kVersion,       // 'vers' record
  kObject,        // an object specifier, built by the resolver (not by the model)
};

enum class Access : uint8_t { kReadOnly, kReadWrite };

struct PropertyInfo {
  OSType code = 0;
  std::string_view name;  // the dictionary's term ("played count")
  ValueType type = ValueType::kText;
  Access access = Access::kReadOnly;
  uint32_t minVersion = 0;           // packed; offered from this version on
  uint32_t maxVersion = 0xFFFFFFFF;  // packed; offered up to this version
  std::string_view fileKey;          // library-file key, "" when not kept in the file

  bool writable() const { return access == Access::kReadWrite; }
  bool offeredBy(const PlayerVersion& version) const {
    return version.packed() >= minVersion && version.packed() <= maxVersion;
  }
};

class PropertyTable {
 public:
  static std::span<const PropertyInfo> applicationProperties();
  static std::span<const PropertyInfo> sourceProperties();
  static std::span<const PropertyInfo> playlistProperties();
  static std::span<const PropertyInfo> trackProperties();
  static std::span<const PropertyInfo> artworkProperties();

  // The row for `code` in `table`, or null when the table has none or `version` does not offer
  // it.
  static const PropertyInfo* find(std::span<const PropertyInfo> table, OSType code,
                                  const PlayerVersion& version);
  // The table of an object class ('capp', 'cSrc', 'cPly' and its subclasses, 'cTrk' and its
  // subclasses, 'cArt'); empty for any other class.
  static std::span<const PropertyInfo> forClass(OSType classCode);
};

}  // namespace rvitunes::player
