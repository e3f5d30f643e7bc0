// The script compiler on arbitrary source text. Scripts are compiled only, never run: nothing
// is sent. A source either compiles or fails with one of the two syntax numbers and a range
// inside the source, and a second compile of the same text gives the same answer.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "rvitunes/base/OSStatus.h"
#include "rvitunes/helper/AppleScript.h"

using namespace rvitunes;

namespace {
[[noreturn]] void fail(const char* property, const std::string& detail) {
  std::fprintf(stderr, "property violated: %s: %s\n", property, detail.c_str());
  std::abort();
}
}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string source(reinterpret_cast<const char*>(data), size);
  AppleScript script(source);
  AppleScriptError error;
  const bool compiled = script.compile(&error);

  AppleScript again(source);
  AppleScriptError againError;
  if (again.compile(&againError) != compiled) fail("compiling twice differs", source);

  if (compiled) {
    if (!script.isCompiled()) fail("compiled script not marked compiled", source);
    // Every statement takes at least one word of four letters or more.
    if (script.statementCount() > size / 4) {
      fail("more statements than the text can hold", std::to_string(script.statementCount()));
    }
    return 0;
  }
  if (error.number != errOSASyntaxError && error.number != errOSASyntaxTypeError) {
    fail("compile error is no syntax error", std::to_string(error.number));
  }
  if (error.offset > size || error.length > size - error.offset) {
    fail("error range outside the source",
         std::to_string(error.offset) + "+" + std::to_string(error.length));
  }
  if (error.message.empty() || !error.application.empty()) fail("error fields", error.message);
  if (error.number != againError.number || error.offset != againError.offset ||
      error.message != againError.message) {
    fail("compiling twice gives another error", error.message + " / " + againError.message);
  }
  return 0;
}
