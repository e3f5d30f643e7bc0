// The wire form of descriptors: the platform's flattened layout ("dle2" header, big-endian
// structure, lists and records in the long form at the top level and the short form inside),
// with our own framing for Apple events. Every byte is described in
// docs/formats/descriptors.md.
//
// Byte order: structure is big-endian; the data of the known scalar types ('shor' 'ushr'
// 'long' 'magn' 'comp' 'ucom' 'sing' 'doub' 'ldt ' 'kpid' 'psn ', the code types 'type' 'enum'
// 'keyw' 'prop' 'sign' 'abso', and 'utxt' per 16-bit unit) is turned from host order into
// big-endian when flattened and back when read; all other data travels as it is.
//
// Reading trusts nothing: every length is checked against the bytes left before anything is
// allocated, item counts against the bytes that could hold them, nesting against a depth limit.
// Thread-safe: the functions hold no state.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "rvitunes/ae/Descriptor.h"
#include "rvitunes/base/Result.h"

namespace rvitunes::ae {

// Bounds for reading.
struct WireLimits {
  size_t maxInputBytes = size_t{256} << 20;  // whole input
  uint32_t maxDepth = kMaxDescriptorDepth;   // nesting of lists, records and events
  uint32_t maxItems = uint32_t{1} << 22;     // items of all containers together
};

// Size of the flattened form of `desc` (AESizeOfFlattenedDesc).
size_t flattenedSize(const Descriptor& desc);

// The flattened form (AEFlattenDesc). memFullErr when it would be larger than
// WireLimits().maxInputBytes.
Result<std::vector<uint8_t>> flatten(const Descriptor& desc);
// Flattens into `buffer`; errAEBufferTooSmall (nothing written) when it is too small.
// *written (may be null) receives the size used.
OSStatus flattenInto(const Descriptor& desc, std::span<uint8_t> buffer, size_t* written);

// Reads one flattened descriptor occupying all of `bytes` (AEUnflattenDesc). Failures:
// errAECorruptData with "offset N: reason" naming the byte offset of the problem, memFullErr
// when a limit is exceeded.
Result<Descriptor> unflatten(std::span<const uint8_t> bytes, const WireLimits& limits = {});

}  // namespace rvitunes::ae
