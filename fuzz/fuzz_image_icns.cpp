// IconFamily::read on arbitrary bytes. It must never crash, and the square images it finds at
// the sizes the writer supports must survive IconFamily::write and read again unchanged.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <span>
#include <vector>

#include "rvitunes/image/IconFamily.h"

using namespace rvitunes::image;

namespace {
[[noreturn]] void fail(const char* what) {
  std::fprintf(stderr, "ICNS property violated: %s\n", what);
  std::abort();
}
}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const DecodeLimits limits{.maxDimension = 1024, .maxPixelBytes = 4 << 20};
  const auto first = IconFamily::read(std::span(data, size), limits);
  if (!first.ok()) return 0;
  if (first->images().empty()) fail("a family read without images");
  std::vector<Image> writable;
  for (const auto& [width, image] : first->images()) {
    const auto& sizes = IconFamily::kWritableSizes;
    if (image.width() == image.height() &&
        std::find(std::begin(sizes), std::end(sizes), width) != std::end(sizes))
      writable.push_back(image);
  }
  if (writable.empty()) return 0;
  const auto written = IconFamily::write(writable);
  if (!written.ok()) fail("IconFamily::write refused images it read");
  const auto second = IconFamily::read(*written, limits);
  if (!second.ok()) fail("our own family does not read");
  if (!second->notes().empty()) fail("our own family has elements the reader skips");
  for (const Image& image : writable) {
    const auto it = second->images().find(image.width());
    if (it == second->images().end() || !(it->second == image)) fail("icon changed");
  }
  return 0;
}
