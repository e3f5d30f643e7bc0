// unflatten on arbitrary bytes. Whatever it accepts must flatten, read back equal, and flatten
// again to the same bytes.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <span>
#include <string>

#include "rvitunes/ae/Printer.h"
#include "rvitunes/ae/Wire.h"

using namespace rvitunes;
using namespace rvitunes::ae;

namespace {
[[noreturn]] void fail(const char* property, const std::string& detail) {
  std::fprintf(stderr, "property violated: %s: %s\n", property, detail.c_str());
  std::abort();
}
}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const Result<Descriptor> first = unflatten(std::span(data, size));
  if (!first.ok()) {
    const OSStatus code = first.status().code();
    if (code != errAECorruptData && code != memFullErr)
      fail("unexpected error", first.status().toString());
    if (first.status().message().rfind("offset ", 0) != 0)
      fail("error without offset", first.status().message());
    return 0;
  }
  (void)printDesc(*first);
  const Result<std::vector<uint8_t>> flat = flatten(*first);
  if (!flat.ok()) fail("flatten refused what unflatten made", flat.status().toString());
  const Result<Descriptor> second = unflatten(*flat);
  if (!second.ok()) fail("flattened form does not read back", second.status().toString());
  if (!(*second == *first)) fail("read back differs", printDesc(*first));
  const Result<std::vector<uint8_t>> again = flatten(*second);
  if (!again.ok() || *again != *flat) fail("flattened twice differs", printDesc(*first));
  return 0;
}
