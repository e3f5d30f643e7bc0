// Image::fromData on TIFF input (other formats are left to their own targets). It must never
// crash or allocate past its limits, and every image it decodes must survive our TIFF writer,
// plain and deflated, and decode again to the same pixels.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <span>

#include "rvitunes/image/Image.h"

using namespace rvitunes::image;

namespace {
[[noreturn]] void fail(const char* what) {
  std::fprintf(stderr, "TIFF property violated: %s\n", what);
  std::abort();
}
}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::span<const uint8_t> bytes(data, size);
  if (detectImageFormat(bytes) != ImageFormat::kTiff) return 0;
  const DecodeLimits limits{.maxDimension = 4096, .maxPixelBytes = 4 << 20};
  const auto first = Image::fromData(bytes, limits);
  if (!first.ok()) return 0;
  for (bool deflate : {false, true}) {
    const auto tiff = first->tiffRepresentation(deflate);
    if (!tiff.ok()) fail("tiffRepresentation refused a decoded image");
    const auto second = Image::fromData(std::span<const uint8_t>(*tiff), limits);
    if (!second.ok()) fail("our own TIFF does not decode");
    if (!(*second == *first)) fail("image changed through our TIFF");
  }
  return 0;
}
