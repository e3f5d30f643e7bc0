// rvitunes plist lint|print|convert, modelled on the macOS plutil tool.

#include <sys/stat.h>

#include <cstdio>
#include <string>
#include <vector>

#include "CommandLine.h"
#include "Commands.h"
#include "ProgressBar.h"
#include "rvitunes/plist/PropertyList.h"
#include "rvitunes/plist/TreePrinter.h"

namespace rvitunes::cli {

namespace {

constexpr const char* kPlistUsage =
    "usage: rvitunes plist <lint|print|convert> [options] FILE...\n"
    "\n"
    "  lint FILE...        check each file; prints 'FILE: OK' or the first error with its\n"
    "                      byte offset; repaired defects are reported as warnings\n"
    "  print FILE          show the tree in a readable form\n"
    "  convert --format xml1|binary1|json [-o OUT] FILE\n"
    "                      rewrite FILE in another format; without -o the file is replaced\n"
    "                      (atomically: the old file stays whole until the new one is\n"
    "                      complete); '-o -' writes to standard output\n"
    "\n"
    "XML is read with the defects that iTunes is known to write repaired, each named with\n"
    "its offset; JSON shows dates as ISO-8601 text and data as base64 text.\n"
    "\n"
    "exit status: 0 success, 1 a file was unreadable or invalid, 2 wrong usage.\n";

int usageError(const std::string& message) {
  std::fprintf(stderr, "rvitunes plist: %s\n\n%s", message.c_str(), kPlistUsage);
  return kExitUsage;
}

uint64_t fileSize(const std::string& path) {
  struct stat st;
  return stat(path.c_str(), &st) == 0 ? static_cast<uint64_t>(st.st_size) : 0;
}

// Reads `path` with a progress bar, printing warnings to stderr; nullopt-like failure is told
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

int lint(const std::vector<std::string>& files) {
  if (files.empty()) return usageError("lint needs at least one FILE");
  int status = kExitOk;
  for (const auto& path : files) {
    plist::ParseResult r = load(path, true);
    if (!r.ok()) {
      reportError(path, r);
      status = kExitFailure;
      continue;
    }
    std::printf("%s: OK\n", path.c_str());
  }
  return status;
}

int print(const std::vector<std::string>& files) {
  if (files.size() != 1) return usageError("print takes exactly one FILE");
  plist::ParseResult r = load(files[0], true);
  if (!r.ok()) {
    reportError(files[0], r);
    return kExitFailure;
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
  std::string target = cl.value("-o").value_or(path);
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
  CommandLine cl({"--format", "-o"}, {"--help", "-h"});
  if (!cl.parse(args)) return usageError(cl.error());
  if (cl.has("--help") || cl.has("-h")) {
    std::fputs(kPlistUsage, stdout);
    return kExitOk;
  }
  if (cl.operands().empty()) return usageError("missing subcommand");
  const std::string& sub = cl.operands()[0];
  std::vector<std::string> files(cl.operands().begin() + 1, cl.operands().end());
  if (sub == "lint") return lint(files);
  if (sub == "print") return print(files);
  if (sub == "convert") return convert(cl);
  return usageError("unknown subcommand '" + sub + "'");
}

}  // namespace rvitunes::cli
