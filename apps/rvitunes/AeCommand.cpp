// rvitunes ae print: builds a descriptor from the descriptor-building language and prints it,
// a quick way to check a format before an event is built from it.

#include <cstdio>
#include <optional>
#include <string>
#include <vector>

#include "CommandLine.h"
#include "Commands.h"
#include "JsonOut.h"
#include "rvitunes/ae/Build.h"
#include "rvitunes/ae/Printer.h"
#include "rvitunes/ae/Wire.h"

namespace rvitunes::cli {

namespace {

constexpr const char* kAeUsage =
    "usage: rvitunes ae print [--display] [--wire] [--json] [--] FORMAT\n"
    "\n"
    "  print FORMAT   build one descriptor from FORMAT and print it in the form the\n"
    "                 builder reads back, e.g.\n"
    "                   rvitunes ae print \"obj { form:prop, want:type(prop), seld:type(pnam),"
    " from:null() }\"\n"
    "                 substitutions (@, @@) need values and are refused here\n"
    "  --display      show Unicode text as text ('utxt'(\"...\")) rather than as bytes\n"
    "  --wire         also print the flattened form as hex, 16 bytes per line\n"
    "  --json         one object {\"descriptor\", \"type\"} (and \"wire\", the flattened\n"
    "                 form as one hex string, with --wire)\n"
    "  -h, --help     show this help\n"
    "\n"
    "A format that starts with '-' (a negative number) needs '--' before it.\n"
    "On a syntax error the error's name, number and offset are shown with a caret under\n"
    "the format.\n"
    "\n"
    "exit status: 0 success, 1 the format did not build, 2 wrong usage.\n";

int usageError(const std::string& message) {
  return reportUsageError("ae", message);
}

// The format on one line, control characters shown as blanks, and a caret under the character
// at byte `offset` (UTF-8 aware, so that the caret lines up on a terminal).
std::string caretLine(const std::string& format, size_t offset) {
  std::string shown;
  std::string caret;
  for (size_t i = 0; i < format.size(); ++i) {
    const auto byte = static_cast<unsigned char>(format[i]);
    shown += byte < 0x20 || byte == 0x7F ? ' ' : format[i];
    const bool continuation = (byte & 0xC0) == 0x80;
    if (i < offset && !continuation) caret += ' ';
  }
  return "  " + shown + "\n  " + caret + "^\n";
}

void printWire(const std::vector<uint8_t>& bytes) {
  for (size_t i = 0; i < bytes.size(); i += 16) {
    std::printf("%08zx ", i);
    for (size_t k = i; k < i + 16 && k < bytes.size(); ++k) {
      std::printf("%s%02X", (k - i) % 4 == 0 ? " " : "", bytes[k]);
    }
    std::printf("\n");
  }
}

int print(const std::string& format, bool display, bool wire, bool asJson) {
  ae::Descriptor desc;
  ae::BuildError err;
  const OSStatus status = ae::buildDesc(&desc, &err, format);
  if (status != noErr) {
    if (status == errAEBuildSyntaxError) {
      std::fprintf(stderr, "rvitunes ae: %s (%u) at offset %u\n",
                   std::string(ae::buildErrorName(err.code)).c_str(), err.code, err.position);
    } else {
      const std::string_view name = osStatusName(status);
      std::fprintf(stderr, "rvitunes ae: %s (%d) at offset %u\n",
                   name.empty() ? "error" : std::string(name).c_str(), status, err.position);
    }
    std::fputs(caretLine(format, err.position).c_str(), stderr);
    return kExitFailure;
  }
  const std::string printed =
      ae::printDesc(desc, display ? ae::PrintStyle::kDisplay : ae::PrintStyle::kReadBack);
  std::optional<std::vector<uint8_t>> flat;
  if (wire) {
    Result<std::vector<uint8_t>> bytes = ae::flatten(desc);
    if (!bytes.ok()) {
      return reportFailure("ae", "cannot flatten " + printed + ": " + bytes.status().toString());
    }
    flat = std::move(*bytes);
  }
  if (asJson) {
    JsonOut json;
    json.beginObject().field("descriptor", printed).field("type", fourCharString(desc.type()));
    if (flat) {
      std::string hex;
      for (uint8_t byte : *flat) {
        static constexpr char kDigits[] = "0123456789ABCDEF";
        hex += kDigits[byte >> 4];
        hex += kDigits[byte & 0xF];
      }
      json.field("wire", hex);
    }
    json.endObject().print();
    return kExitOk;
  }
  std::printf("%s\n", printed.c_str());
  if (flat) printWire(*flat);
  return kExitOk;
}

}  // namespace

int runAe(const std::vector<std::string>& args) {
  CommandLine line({}, {"--help", "-h", "--display", "--wire", "--json"});
  if (!line.parse(args)) return usageError(line.error());
  if (wantsHelp(line)) return showUsage(kAeUsage);
  const std::vector<std::string>& operands = line.operands();
  if (operands.empty()) return usageError("missing subcommand");
  if (operands[0] != "print") return usageError("unknown subcommand '" + operands[0] + "'");
  if (operands.size() != 2) return usageError("print takes exactly one FORMAT");
  return print(operands[1], line.has("--display"), line.has("--wire"), line.has("--json"));
}

}  // namespace rvitunes::cli
