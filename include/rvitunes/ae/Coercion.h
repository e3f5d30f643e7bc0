// The default coercions between descriptor types, and typed readers built on them.
//
// Supported (everything else fails with errAECoercionFail, -1700):
//   - any type to the same type or to '****': an unchanged copy;
//   - numbers 'shor' 'ushr' 'long' 'magn' 'comp' 'ucom' 'sing' 'doub' among themselves; a value
//     outside the target's range fails, a fraction going to an integer rounds to nearest (ties
//     to even); NaN and infinities fail for integers;
//   - numbers to text ('TEXT', 'utxt', 'utf8', 'ut16'): decimal, floats as the shortest text
//     that reads back; text to numbers when the whole text (spaces around allowed) is a decimal
//     number that fits;
//   - text among 'TEXT' (UTF-8 on this system), 'utf8', 'utxt' (UTF-16 in host order; a
//     leading byte-order mark is honoured and dropped when read) and 'ut16' (big-endian unless
//     a mark says otherwise); invalid input fails, a 'utxt' of odd size fails;
//   - 4-byte codes 'enum' 'type' 'keyw' 'prop' among themselves; codes to text (the four
//     characters) and text of exactly four bytes to codes;
//   - 'true' / 'fals' (no data), 'enum' 'true' / 'fals', integers 1 / 0, and 'bool' (one byte)
//     among themselves; 'bool' to integers 1 / 0;
//   - 'vers' to text: its short version string;
//   - records of any record type to any other record type (the items are kept);
//   - any descriptor to 'list' as a one-item list; a one-item list to its item's type (or any
//     type the item coerces to);
//   - files: 'furl' (file URL text), 'alis' (our alias record) and 'fsrf' (our 80-byte file
//     reference) among themselves and to text (the path's URL); making an 'alis' or 'fsrf'
//     needs the file to exist, and resolving one needs it to be the same file still.
//
// Thread-safe (file-reference coercions may touch the per-user reference registry).
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "rvitunes/ae/Descriptor.h"
#include "rvitunes/base/Result.h"

namespace rvitunes::ae {

// `in` coerced to `toType` (AECoerceDesc). *out is the result, or null on failure.
OSStatus coerceDesc(const Descriptor& in, DescType toType, Descriptor* out);
// Bytes of `type` coerced to `toType` (AECoercePtr).
OSStatus coercePtr(DescType type, const void* data, size_t size, DescType toType, Descriptor* out);

// Typed readers: the descriptor coerced to the value's natural type. The Status carries the
// coercion's error number.
Result<int64_t> integerValue(const Descriptor& desc);   // via 'comp'
Result<int32_t> int32Value(const Descriptor& desc);     // via 'long'
Result<double> doubleValue(const Descriptor& desc);     // via 'doub'
Result<bool> boolValue(const Descriptor& desc);         // via 'bool'
Result<OSType> codeValue(const Descriptor& desc);       // via 'type'
Result<std::string> textValue(const Descriptor& desc);  // UTF-8, via 'utf8'

// UTF-16 helpers for 'utxt' (host byte order, no byte-order mark written). The encoder turns
// invalid UTF-8 into U+FFFD; the decoder answers nullopt for an odd size or unpaired surrogates
// and drops a leading byte-order mark (either order).
std::vector<uint8_t> utf8ToUtf16Host(std::string_view utf8);
std::optional<std::string> utf16HostToUtf8(std::span<const uint8_t> bytes);

}  // namespace rvitunes::ae
