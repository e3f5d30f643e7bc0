// rvitunes script, apps and app: runs a script of the framework's AppleScript language, lists
// the applications running on the event bus, and shows, hides or quits one by name through
// RVITunesHelper's script operations.

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "CommandLine.h"
#include "Commands.h"
#include "JsonOut.h"
#include "rvitunes/ae/EventManager.h"
#include "rvitunes/ae/Printer.h"
#include "rvitunes/helper/AppleScript.h"
#include "rvitunes/helper/ApplicationInfo.h"
#include "rvitunes/helper/RVITunesHelper.h"
#include "rvitunes/plist/Array.h"
#include "rvitunes/plist/JsonWriter.h"

namespace rvitunes::cli {

namespace {

// Longest script read from standard input.
constexpr size_t kMaxScriptSize = size_t{1} << 20;

constexpr const char* kScriptUsage =
    "usage: rvitunes script [--back] [--json] [--timeout SECONDS] SOURCE|-\n"
    "\n"
    "Compiles the script SOURCE (or standard input for -) and runs it once, sending its\n"
    "Apple Events to the applications it names. The language is the one the framework\n"
    "composes (docs/applescript.md), e.g.\n"
    "  rvitunes script 'tell application \"iTunes\" to stop'\n"
    "\n"
    "  --back             print the result descriptor in descriptor notation (\"null()\" for\n"
    "                     none); without it a result is printed only when there is one\n"
    "  --json             print {\"result\": DESCRIPTOR} with the result in descriptor\n"
    "                     notation, or {\"result\": null} for none\n"
    "  --timeout SECONDS  how long each event waits for its reply (default 60)\n"
    "  -h, --help         show this help\n"
    "\n"
    "exit status: 0 success, 1 the script did not compile or failed, 2 wrong usage.\n";

constexpr const char* kAppsUsage =
    "usage: rvitunes apps [--json]\n"
    "\n"
    "Lists the applications running on the event bus (and in this process): name, signature\n"
    "and process id.\n"
    "\n"
    "  --json         one array of the applications' information dictionaries\n"
    "                 (NSApplicationName, NSApplicationProcessIdentifier, ...)\n"
    "  -h, --help     show this help\n"
    "\n"
    "exit status: 0 success, 2 wrong usage.\n";

constexpr const char* kAppUsage =
    "usage: rvitunes app show|hide|quit [NAME]\n"
    "\n"
    "Shows (activates and makes visible), hides or quits the running application NAME\n"
    "(default iTunes) with the framework's scripts. Prints nothing on success.\n"
    "\n"
    "  -h, --help     show this help\n"
    "\n"
    "exit status: 0 success, 1 not running or the script failed, 2 wrong usage.\n";

int usageError(const char* command, const std::string& message) {
  return reportUsageError(command, message);
}

std::string numberText(int32_t number) {
  const std::string_view name = osStatusName(number);
  return std::to_string(number) + (name.empty() ? "" : " (" + std::string(name) + ")");
}

// "line L, column C" of a byte offset, and the line itself with a marker under the range.
std::string locate(const std::string& source, size_t offset, size_t length) {
  offset = std::min(offset, source.size());
  size_t lineStart = 0;
  size_t lineNumber = 1;
  for (size_t i = 0; i < offset; ++i) {
    if (source[i] == '\n' ||
        (source[i] == '\r' && (i + 1 >= source.size() || source[i + 1] != '\n'))) {
      ++lineNumber;
      lineStart = i + 1;
    }
  }
  size_t lineEnd = source.find_first_of("\r\n", lineStart);
  if (lineEnd == std::string::npos) lineEnd = source.size();
  const size_t column = offset - lineStart;
  const size_t marked = std::max<size_t>(1, std::min(length, lineEnd - std::min(lineEnd, offset)));
  return "line " + std::to_string(lineNumber) + ", column " + std::to_string(column + 1) + ":\n  " +
         source.substr(lineStart, lineEnd - lineStart) + "\n  " + std::string(column, ' ') +
         std::string(marked, '^') + "\n";
}

std::optional<std::string> readStandardInput() {
  std::string text;
  char buffer[4096];
  size_t n = 0;
  while ((n = std::fread(buffer, 1, sizeof buffer, stdin)) > 0) {
    text.append(buffer, n);
    if (text.size() > kMaxScriptSize) return std::nullopt;
  }
  return text;
}

}  // namespace

int runScript(const std::vector<std::string>& args) {
  CommandLine line({"--timeout"}, {"--back", "--json", "--help", "-h"});
  if (!line.parse(args)) return usageError("script", line.error());
  if (wantsHelp(line)) return showUsage(kScriptUsage);
  if (line.operands().size() != 1) {
    return usageError("script", "give one SOURCE, or - for standard input");
  }
  AppleScript::Options options;
  if (auto text = line.value("--timeout")) {
    char* end = nullptr;
    const double seconds = std::strtod(text->c_str(), &end);
    if (text->empty() || *end != '\0' || !std::isfinite(seconds) || seconds < 0 || seconds > 1e7) {
      return usageError("script", "--timeout needs a number of seconds, not \"" + *text + "\"");
    }
    options.timeoutTicks = std::lround(seconds * 60);
  }
  std::string source = line.operands()[0];
  if (source == "-") {
    auto input = readStandardInput();
    if (!input) {
      std::fprintf(stderr,
                   "rvitunes script: the script on standard input is longer than %zu bytes\n",
                   kMaxScriptSize);
      return kExitFailure;
    }
    source = std::move(*input);
  }

  AppleScript script(source, options);
  AppleScriptError error;
  const bool compiled = script.compile(&error);
  const std::shared_ptr<ae::Descriptor> result =
      compiled ? script.executeAndReturnError(&error) : nullptr;
  if (result == nullptr) {
    const std::string where = locate(source, error.offset, error.length);
    if (!compiled) {
      std::fprintf(stderr, "rvitunes script: syntax error %s: %s\nat %s",
                   numberText(error.number).c_str(), error.message.c_str(), where.c_str());
    } else {
      std::fprintf(stderr, "rvitunes script: error %s from \"%s\": %s\nat %s",
                   numberText(error.number).c_str(), error.application.c_str(),
                   error.message.c_str(), where.c_str());
    }
    return kExitFailure;
  }
  if (line.has("--json")) {
    JsonOut json;
    json.beginObject().key("result");
    if (result->isNull()) {
      json.null();
    } else {
      json.string(ae::printDesc(*result));
    }
    json.endObject().print();
  } else if (line.has("--back")) {
    std::printf("%s\n", ae::printDesc(*result).c_str());
  } else if (!result->isNull()) {
    std::printf("%s\n", ae::printDesc(*result, ae::PrintStyle::kDisplay).c_str());
  }
  return kExitOk;
}

int runApps(const std::vector<std::string>& args) {
  CommandLine line({}, {"--json", "--help", "-h"});
  if (!line.parse(args)) return usageError("apps", line.error());
  if (wantsHelp(line)) return showUsage(kAppsUsage);
  if (!line.operands().empty()) return usageError("apps", "no operands are taken");
  return listApplications(line.has("--json"));
}

int listApplications(bool asJson) {
  std::vector<ApplicationInfo> apps;
  for (const ae::RunningApplication& app : ae::EventManager::shared().runningApplications())
    apps.push_back(ApplicationInfo{app.name, app.pid, app.signature, app.inProcess});
  if (asJson) {
    plist::Value list = plist::Value::newArray();
    for (const ApplicationInfo& app : apps)
      list.asArray()->push_back(app.dictionary());
    auto json = plist::JsonWriter::write(list);
    if (!json) {
      std::fprintf(stderr, "rvitunes apps: %s\n", json.status().toString().c_str());
      return kExitFailure;
    }
    std::printf("%s\n", json->c_str());
    return kExitOk;
  }
  size_t width = 4;
  for (const ApplicationInfo& app : apps)
    width = std::max(width, app.name.size());
  std::printf("%-*s  SIGNATURE  PID\n", static_cast<int>(width), "NAME");
  for (const ApplicationInfo& app : apps) {
    std::printf("%-*s  %-9s  %d\n", static_cast<int>(width), app.name.c_str(),
                fourCharDisplay(app.signature).c_str(), static_cast<int>(app.processIdentifier));
  }
  return kExitOk;
}

int runApp(const std::vector<std::string>& args) {
  CommandLine line({}, {"--help", "-h"});
  if (!line.parse(args)) return usageError("app", line.error());
  if (wantsHelp(line)) return showUsage(kAppUsage);
  const auto& operands = line.operands();
  if (operands.empty() || operands.size() > 2) {
    return usageError("app", "give show, hide or quit, and optionally a NAME");
  }
  using Operation = int32_t (*)(std::optional<std::string_view>);
  Operation operation = nullptr;
  if (operands[0] == "show") {
    operation = &RVITunesHelper::showApplicationByAppleScript;
  } else if (operands[0] == "hide") {
    operation = &RVITunesHelper::hideApplicationByAppleScript;
  } else if (operands[0] == "quit") {
    operation = &RVITunesHelper::quitApplicationByAppleScript;
  } else {
    return usageError("app", "unknown action \"" + operands[0] + "\"");
  }
  const std::string name = operands.size() == 2 ? operands[1] : "iTunes";
  if (!RVITunesHelper::applicationInfoByName(name)) {
    std::fprintf(stderr, "rvitunes app: \"%s\" is not running (names are case-sensitive)\n",
                 name.c_str());
    return kExitFailure;
  }

  // The built-in runner, keeping the last error to explain a failure.
  struct LastError {
    std::mutex mutex;
    std::optional<AppleScriptError> error;
  };
  auto last = std::make_shared<LastError>();
  RVITunesHelper::AppleScriptExecutor previous = RVITunesHelper::setAppleScriptExecutor(
      [last](const std::string& source, AppleScriptError* error) {
        AppleScript script(source);
        auto result = script.executeAndReturnError(error);
        if (result == nullptr && error != nullptr) {
          std::lock_guard lock(last->mutex);
          last->error = *error;
        }
        return result;
      });
  const int32_t result = operation(name);
  RVITunesHelper::setAppleScriptExecutor(std::move(previous));
  if (result == 0) return kExitOk;
  std::lock_guard lock(last->mutex);
  if (last->error) {
    std::fprintf(stderr, "rvitunes app: %s \"%s\" failed: error %s: %s\n", operands[0].c_str(),
                 name.c_str(), numberText(last->error->number).c_str(),
                 last->error->message.c_str());
  } else {
    std::fprintf(stderr, "rvitunes app: %s \"%s\" failed\n", operands[0].c_str(), name.c_str());
  }
  return kExitFailure;
}

}  // namespace rvitunes::cli
