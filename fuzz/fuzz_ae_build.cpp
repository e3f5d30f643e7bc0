// buildDesc on arbitrary format text, without arguments. Whatever builds must print as text
// that builds again and prints the same, and must cross the wire form unchanged.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>

#include "rvitunes/ae/Build.h"
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
  const std::string_view format(reinterpret_cast<const char*>(data), size);
  Descriptor desc;
  BuildError err;
  const OSStatus status = buildDesc(&desc, &err, format);

  // The parameter grammar on the same text.
  Descriptor event;
  const uint8_t sign[] = {'k', 'o', 'o', 'h'};
  const OSStatus eventStatus = buildAppleEvent(kAECoreSuite, kAEGetData, typeApplSignature, sign, 1,
                                               0, &event, nullptr, format, {});
  if (eventStatus != noErr && !event.isNull()) fail("failed event build left an event", "");
  if (eventStatus == noErr) (void)printDesc(event);

  if (status != noErr) {
    if (!desc.isNull()) fail("failed build left a descriptor", std::string(format));
    if (err.position > size) fail("error position past the end", std::to_string(err.position));
    return 0;
  }
  const std::string text = printDesc(desc);
  Descriptor again;
  BuildError againErr;
  if (buildDesc(&again, &againErr, text) != noErr) {
    fail("printed text does not build", text + " error " + std::to_string(againErr.code) + " at " +
                                            std::to_string(againErr.position));
  }
  if (printDesc(again) != text) fail("printed text is not stable", text + " / " + printDesc(again));

  const Result<std::vector<uint8_t>> flat = flatten(desc);
  if (!flat.ok()) fail("flatten failed", flat.status().toString());
  const Result<Descriptor> back = unflatten(*flat);
  if (!back.ok()) fail("flattened form does not read back", back.status().toString());
  if (!(*back == desc)) fail("wire round trip differs", text);
  return 0;
}
