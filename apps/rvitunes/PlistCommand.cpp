// rvitunes plist lint|print|convert, modelled on the macOS plutil tool.

#include <sys/stat.h>

#include <cstdio>
#include <string>
#include <vector>

#include "CommandLine.h"
#include "Commands.h"
#include "JsonOut.h"
#include "ProgressBar.h"
#include "rvitunes/plist/JsonWriter.h"
#include "rvitunes/plist/PropertyList.h"
#include "rvitunes/plist/TreePrinter.h"

namespace rvitunes::cli {

namespace {

constexpr const char* kPlistUsage =
    "usage: rvitunes plist <lint|print|convert> [options] FILE...\n"
    "\n"
    "  lint [--json] FILE...\n"
    "                      check each file; prints 'FILE: OK' or the first error with its\n"
    "                      byte offset; repaired defects are reported as warnings. --json:\n"
    "                      one array of {\"file\", \"ok\", \"error\", \"warnings\"}, errors and\n"
    "                      warnings as {\"offset\", \"message\"}\n"
    "  print [--json] FILE show the tree in a readable form (--json: as JSON)\n"
    "  convert --format xml1|binary1|json [-o|--output OUT] FILE\n"
    "                      rewrite FILE in another format; without -o the file is replaced\n"
    "                      (atomically: the old file stays whole until the new one is\n"
    "                      complete); '-o -' writes to standard output\n"
    "\n"
    "XML is read with the defects that iTunes is known to write repaired, each named with\n"
    "its offset; JSON shows dates as ISO-8601 text and data as base64 text.\n"
    "\n"
    "  -h, --help          show this help\n"
    "\n"
    "exit status: 0 success, 1 a file was unreadable or invalid, 2 wrong usage.\n";

int usageError(const std::string& message) {
  return reportUsageError("plist", message);
}

uint64_t fileSize(const std::string& path) {
  struct stat st;
  return stat(path.c_str(), &st) == 0 ? static_cast<uint64_t>(st.st_size) : 0;
}

// Reads `path` with a progress bar, printing warnings to stderr when asked; a failure is told
// through the result.
plist::ParseResult load(const std::string& path, bool showWarnings) {
  ProgressBar bar("reading " + path, fileSize(path));
  plist::ReadOptions options;
  options.progress = [&bar](uint64_t done, uint64_t) { bar.update(done); };
  plist::ParseResult r = plist::PropertyList::readFile(path, options);
  if (showWarnings) {
    for (const auto& w : r.warnings) {
      std::fprintf(stderr, "%s: warning at offset %llu: %s\n", path.c_str(),
                   static_cast<unsigned long long>(w.offset), w.message.c_str());
    }
  }
  return r;
}

void reportError(const std::string& path, const plist::ParseResult& r) {
  std::fprintf(stderr, "%s: error at offset %llu: %s\n", path.c_str(),
               static_cast<unsigned long long>(r.error->offset), r.error->message.c_str());
}

// {"offset": N, "message": "..."}
void problem(JsonOut& json, uint64_t offset, const std::string& message) {
  json.beginObject().integerField("offset", static_cast<int64_t>(offset));
  json.field("message", message).endObject();
}

int lint(const std::vector<std::string>& files, bool asJson) {
  if (files.empty()) return usageError("lint needs at least one FILE");
  int status = kExitOk;
  JsonOut json;
  json.beginArray();
  for (const auto& path : files) {
    // With --json the warnings are part of the result; errors still go to stderr too.
    plist::ParseResult r = load(path, !asJson);
    if (!r.ok()) {
      reportError(path, r);
      status = kExitFailure;
    } else if (!asJson) {
      std::printf("%s: OK\n", path.c_str());
    }
    if (!asJson) continue;
    json.beginObject().field("file", path).booleanField("ok", r.ok()).key("error");
    if (r.ok()) {
      json.null();
    } else {
      problem(json, r.error->offset, r.error->message);
    }
    json.key("warnings").beginArray();
    for (const auto& w : r.warnings)
      problem(json, w.offset, w.message);
    json.endArray().endObject();
  }
  json.endArray();
  if (asJson && !json.print()) return reportFailure("plist lint", "cannot write the result");
  return status;
}

int print(const std::vector<std::string>& files, bool asJson) {
  if (files.size() != 1) return usageError("print takes exactly one FILE");
  plist::ParseResult r = load(files[0], true);
  if (!r.ok()) {
    reportError(files[0], r);
    return kExitFailure;
  }
  if (asJson) {
    auto text = plist::JsonWriter::write(r.root, 2);
    if (!text.ok()) {
      std::fprintf(stderr, "%s: cannot show as JSON: %s\n", files[0].c_str(),
                   text.status().message().c_str());
      return kExitFailure;
    }
    std::printf("%s\n", text->c_str());
    return kExitOk;
  }
  std::string text = plist::TreePrinter::print(r.root);
  std::fwrite(text.data(), 1, text.size(), stdout);
  if (!text.empty() && text.back() != '\n') std::fputc('\n', stdout);
  return kExitOk;
}

int convert(const CommandLine& cl) {
  auto format = cl.value("--format");
  if (!format) return usageError("convert needs --format xml1|binary1|json");
  plist::OutputFormat out;
  if (*format == "xml1") {
    out = plist::OutputFormat::kXml1;
  } else if (*format == "binary1") {
    out = plist::OutputFormat::kBinary1;
  } else if (*format == "json") {
    out = plist::OutputFormat::kJson;
  } else {
    return usageError("unknown format '" + *format + "' (xml1, binary1 or json)");
  }
  if (cl.operands().size() != 2) return usageError("convert takes exactly one FILE");
  const std::string& path = cl.operands()[1];
  plist::ParseResult r = load(path, true);
  if (!r.ok()) {
    reportError(path, r);
    return kExitFailure;
  }
  // Keep the input's way of escaping '&', '<' and '>' so that a file converts to itself.
  plist::EntityStyle entities = r.entityStyle == plist::EntityStyle::kNamed
                                    ? plist::EntityStyle::kNamed
                                    : plist::EntityStyle::kNumeric;
  std::string target = cl.value("--output").value_or(cl.value("-o").value_or(path));
  if (target == "-") {
    auto bytes = plist::PropertyList::encode(r.root, out, entities);
    if (!bytes.ok()) {
      std::fprintf(stderr, "%s: cannot convert: %s\n", path.c_str(),
                   bytes.status().message().c_str());
      return kExitFailure;
    }
    std::fwrite(bytes->data(), 1, bytes->size(), stdout);
    return kExitOk;
  }
  Status s = plist::PropertyList::writeFile(target, r.root, out, entities);
  if (!s.ok()) {
    std::fprintf(stderr, "%s: cannot write %s: %s\n", path.c_str(), target.c_str(),
                 s.message().c_str());
    return kExitFailure;
  }
  return kExitOk;
}

}  // namespace

int runPlist(const std::vector<std::string>& args) {
  CommandLine cl({"--format", "-o", "--output"}, {"--json", "--help", "-h"});
  if (!cl.parse(args)) return usageError(cl.error());
  if (wantsHelp(cl)) return showUsage(kPlistUsage);
  if (cl.operands().empty()) return usageError("missing subcommand (lint, print or convert)");
  const std::string& sub = cl.operands()[0];
  std::vector<std::string> files(cl.operands().begin() + 1, cl.operands().end());
  if (sub != "convert" && (cl.has("--format") || cl.has("-o") || cl.has("--output"))) {
    return usageError("--format and -o go with convert only");
  }
  if (sub == "convert" && cl.has("--json")) {
    return usageError("convert writes JSON with --format json, not --json");
  }
  if (sub == "lint") return lint(files, cl.has("--json"));
  if (sub == "print") return print(files, cl.has("--json"));
  if (sub == "convert") return convert(cl);
  return usageError("unknown subcommand '" + sub + "'");
}

}  // namespace rvitunes::cli
