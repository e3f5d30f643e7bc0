// decodePict on arbitrary bytes. It must never crash or allocate past its limits, and every
// picture it accepts must survive encodePict and decode again to the same pixels.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <span>

#include "rvitunes/image/Pict.h"

using namespace rvitunes::image;

namespace {
[[noreturn]] void fail(const char* what) {
  std::fprintf(stderr, "PICT property violated: %s\n", what);
  std::abort();
}

bool transparentEverywhere(const Image& image) {
  const auto px = image.pixels();
  for (size_t i = 3; i < px.size(); i += 4)
    if (px[i] != 0) return false;
  return true;
}
}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const DecodeLimits limits{.maxDimension = 4096, .maxPixelBytes = 4 << 20};
  const auto first = decodePict(std::span(data, size), limits);
  if (!first.ok()) {
    if (first.status().message().rfind("offset ", 0) != 0) fail("error without an offset");
    return 0;
  }
  // Our encoder cannot tell "transparent everywhere" from an unused pad plane (see Pict.h).
  if (first->width() > kPictMaxWidth || transparentEverywhere(*first)) return 0;
  const auto encoded = encodePict(*first);
  if (!encoded.ok()) fail("encodePict refused a decoded picture");
  const auto second = decodePict(*encoded, limits);
  if (!second.ok()) fail("our own picture does not decode");
  if (!(*second == *first)) fail("picture changed through encode and decode");
  return 0;
}
