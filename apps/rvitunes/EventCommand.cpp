// rvitunes event: sends one Apple Event to an application on the event bus and prints the
// reply, or lists the applications registered on the bus.

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "CommandLine.h"
#include "Commands.h"
#include "JsonOut.h"
#include "rvitunes/ae/Build.h"
#include "rvitunes/ae/EventManager.h"
#include "rvitunes/ae/Printer.h"

namespace rvitunes::cli {

namespace {

constexpr const char* kEventUsage =
    "usage: rvitunes event [--app NAME | --to SIGNATURE] [--no-reply] [--timeout SECONDS]\n"
    "                      [--json] CLASS ID [PARAMS]\n"
    "       rvitunes event --list [--json]\n"
    "\n"
    "Sends the event CLASS/ID (four-character codes, e.g. core getd) to a running\n"
    "application and prints its reply. PARAMS are the event's parameters in the\n"
    "descriptor-building language, e.g.\n"
    "  rvitunes event core getd \"'----':obj { form:prop, want:type(prop), seld:type(pVol),\n"
    "                            from:null() }\"\n"
    "\n"
    "  --to SIGNATURE     the application's signature (default hook, the player)\n"
    "  --app NAME         the application registered under NAME\n"
    "  --no-reply         send without waiting for a reply\n"
    "  --timeout SECONDS  how long to wait for the reply (default 60)\n"
    "  --list             list the registered applications: name, signature, process id\n"
    "                     (the same as rvitunes apps)\n"
    "  --json             print {\"reply\", \"errorNumber\", \"errorString\"}: the reply in\n"
    "                     descriptor notation (null with --no-reply) and the error it\n"
    "                     reports (0 and null for none); with --list, as rvitunes apps --json\n"
    "  -h, --help         show this help\n"
    "\n"
    "Applications are found in $XDG_RUNTIME_DIR/rvitunes (or /tmp/rvitunes-UID).\n"
    "\n"
    "exit status: 0 success, 1 the send failed or the reply reports an error, 2 wrong usage.\n";

int usageError(const std::string& message) {
  return reportUsageError("event", message);
}

std::string statusText(OSStatus status) {
  const std::string_view name = osStatusName(status);
  return std::to_string(status) + (name.empty() ? "" : " (" + std::string(name) + ")");
}

// The text of the reply's 'errs', or "".
std::string errorText(const ae::Descriptor& reply) {
  ae::Descriptor text;
  if (reply.getParamDesc(ae::keyErrorString, ae::typeUTF8Text, &text) != noErr) return "";
  return std::string(reinterpret_cast<const char*>(text.data().data()), text.dataSize());
}

}  // namespace

int runEvent(const std::vector<std::string>& args) {
  CommandLine line({"--app", "--to", "--timeout"},
                   {"--no-reply", "--list", "--json", "--help", "-h"});
  if (!line.parse(args)) return usageError(line.error());
  if (wantsHelp(line)) return showUsage(kEventUsage);
  const bool asJson = line.has("--json");
  if (line.has("--list")) {
    if (!line.operands().empty() || line.has("--app") || line.has("--to") ||
        line.has("--no-reply") || line.has("--timeout")) {
      return usageError("--list takes no other arguments");
    }
    return listApplications(asJson);
  }
  if (line.has("--app") && line.has("--to")) return usageError("give --app or --to, not both");
  const auto& operands = line.operands();
  if (operands.size() < 2) return usageError("CLASS and ID are needed");
  const auto eventClass = parseFourCharCode(operands[0]);
  const auto eventID = parseFourCharCode(operands[1]);
  if (!eventClass || !eventID) return usageError("CLASS and ID are codes of 1 to 4 characters");
  std::string params;
  for (size_t i = 2; i < operands.size(); ++i)
    params += (i > 2 ? " " : "") + operands[i];

  long timeoutTicks = ae::kAEDefaultTimeout;
  if (auto text = line.value("--timeout")) {
    char* end = nullptr;
    const double seconds = std::strtod(text->c_str(), &end);
    if (text->empty() || *end != '\0' || !std::isfinite(seconds) || seconds < 0 || seconds > 1e7) {
      return usageError("--timeout needs a number of seconds, not \"" + *text + "\"");
    }
    timeoutTicks = std::lround(seconds * 60);
  }

  ae::EventManager& manager = ae::EventManager::shared();
  OSType target = fourCharCode("hook");
  if (auto name = line.value("--app")) {
    bool found = false;
    for (const auto& app : manager.runningApplications()) {
      if (app.name == *name) {
        target = app.signature;
        found = true;
        break;
      }
    }
    if (!found) {
      std::fprintf(stderr, "rvitunes event: no application named \"%s\" is running: %s\n",
                   name->c_str(), statusText(procNotFound).c_str());
      return kExitFailure;
    }
  } else if (auto signature = line.value("--to")) {
    auto code = parseFourCharCode(*signature);
    if (!code) return usageError("--to needs a signature of 1 to 4 characters");
    target = *code;
  }

  ae::Descriptor event;
  ae::BuildError buildError;
  const OSStatus built = ae::buildAppleEvent(
      *eventClass, *eventID, ae::typeApplSignature,
      std::span(reinterpret_cast<const uint8_t*>(&target), sizeof target),
      ae::kAutoGenerateReturnID, ae::kAnyTransactionID, &event, &buildError, params);
  if (built != noErr) {
    const std::string_view syntax = ae::buildErrorName(buildError.code);
    return usageError("cannot build the event: " + statusText(built) +
                      (syntax.empty() ? "" : ", " + std::string(syntax)) + " at character " +
                      std::to_string(buildError.position) + " of PARAMS");
  }

  const bool noReply = line.has("--no-reply");
  ae::Descriptor reply;
  const OSStatus sent = manager.send(
      event, noReply ? nullptr : &reply,
      (noReply ? ae::kAENoReply : ae::kAEWaitReply) | ae::kAENeverInteract, timeoutTicks);
  if (sent != noErr) {
    std::fprintf(stderr, "rvitunes event: sending %s to %s failed: %s\n", printDesc(event).c_str(),
                 fourCharDisplay(target).c_str(), statusText(sent).c_str());
    return kExitFailure;
  }
  int32_t number = 0;
  if (!noReply && reply.getParamPtr(ae::keyErrorNumber, ae::typeSInt32, nullptr, &number,
                                    sizeof number, nullptr) != noErr) {
    number = 0;
  }
  const std::string text = noReply ? "" : errorText(reply);
  if (asJson) {
    JsonOut json;
    json.beginObject().key("reply");
    if (noReply) {
      json.null();
    } else {
      json.string(printDesc(reply, ae::PrintStyle::kDisplay));
    }
    json.integerField("errorNumber", number).key("errorString");
    if (number != 0 && !text.empty()) {
      json.string(text);
    } else {
      json.null();
    }
    json.endObject().print();
  } else if (!noReply) {
    std::printf("%s\n", printDesc(reply, ae::PrintStyle::kDisplay).c_str());
  }
  if (number != 0) {
    std::fprintf(stderr, "rvitunes event: the application answered error %s%s%s\n",
                 statusText(number).c_str(), text.empty() ? "" : ": ", text.c_str());
    return kExitFailure;
  }
  return kExitOk;
}

}  // namespace rvitunes::cli
