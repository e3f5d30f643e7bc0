// rvitunes player: runs the reference player (the same code as the rvitunes-player daemon) or
// checks that one answers on the event bus.

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <span>
#include <string>
#include <vector>

#include "CommandLine.h"
#include "Commands.h"
#include "rvitunes/ae/Build.h"
#include "rvitunes/ae/Coercion.h"
#include "rvitunes/ae/EventManager.h"
#include "rvitunes/player/Daemon.h"
#include "rvitunes/player/PlayerCodes.h"

namespace rvitunes::cli {

namespace {

constexpr const char* kPlayerUsage =
    "usage: rvitunes player serve --library FILE [--player-version V] [--name NAME] [--verbose]\n"
    "       rvitunes player ping [--timeout SECONDS]\n"
    "\n"
    "  serve   run the reference player on the event bus under 'hook' until it is told to\n"
    "          quit (the quit event, SIGINT, SIGTERM); the same as rvitunes-player\n"
    "  ping    ask the running player for its name and version and show the round trip\n"
    "\n"
    "  --timeout SECONDS  how long ping waits for each answer (default 5)\n"
    "\n"
    "exit status: 0 success, 1 the player did not start or did not answer, 2 wrong usage.\n";

int usageError(const std::string& message) {
  std::fprintf(stderr, "rvitunes player: %s\n\n%s", message.c_str(), kPlayerUsage);
  return kExitUsage;
}

std::string statusText(OSStatus status) {
  const std::string_view name = osStatusName(status);
  return std::string(name.empty() ? "error" : name) + " (" + std::to_string(status) + ")";
}

struct Answer {
  OSStatus status = noErr;
  ae::Descriptor value;
  std::string message;
  double milliseconds = 0;
};

// Asks the player for one property of the application.
Answer askApplicationProperty(OSType property, long timeoutTicks) {
  Answer answer;
  ae::Descriptor event;
  const OSType signature = player::kPlayerSignature;
  const std::span<const uint8_t> address(reinterpret_cast<const uint8_t*>(&signature),
                                         sizeof signature);
  const std::string params = "'----':obj { form:prop, want:type(prop), seld:type(" +
                             fourCharString(property) + "), from:null() }";
  answer.status = ae::buildAppleEvent(ae::kAECoreSuite, ae::kAEGetData, ae::typeApplSignature,
                                      address, ae::kAutoGenerateReturnID, ae::kAnyTransactionID,
                                      &event, nullptr, params);
  if (answer.status != noErr) return answer;
  ae::Descriptor reply;
  const auto started = std::chrono::steady_clock::now();
  answer.status = ae::EventManager::shared().send(
      event, &reply, ae::kAEWaitReply | ae::kAENeverInteract, timeoutTicks);
  answer.milliseconds =
      std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - started).count();
  if (answer.status != noErr) return answer;
  int32_t error = noErr;
  if (reply.getParamPtr(ae::keyErrorNumber, ae::typeSInt32, nullptr, &error, sizeof error,
                        nullptr) == noErr &&
      error != noErr) {
    answer.status = error;
    ae::Descriptor text;
    if (reply.getParamDesc(ae::keyErrorString, ae::typeUTF8Text, &text) == noErr) {
      answer.message.assign(reinterpret_cast<const char*>(text.data().data()), text.dataSize());
    }
    return answer;
  }
  answer.status = reply.getParamDesc(ae::keyDirectObject, ae::typeWildCard, &answer.value);
  return answer;
}

int ping(const std::vector<std::string>& args) {
  CommandLine line({"--timeout"}, {"--help", "-h"});
  if (!line.parse(args)) return usageError(line.error());
  if (line.has("--help") || line.has("-h")) {
    std::fputs(kPlayerUsage, stdout);
    return kExitOk;
  }
  if (!line.operands().empty()) return usageError("ping takes no operands");
  double seconds = 5;
  if (auto value = line.value("--timeout")) {
    char* end = nullptr;
    seconds = std::strtod(value->c_str(), &end);
    if (end == value->c_str() || *end != '\0' || !(seconds > 0) || seconds > 86400) {
      return usageError("--timeout needs a number of seconds, not \"" + *value + "\"");
    }
  }
  const long ticks = static_cast<long>(seconds * 60 + 0.5);

  const Answer name = askApplicationProperty(player::kPropName, ticks);
  if (name.status != noErr) {
    if (name.status == procNotFound) {
      std::fprintf(stderr, "rvitunes player ping: no player answers on the bus: %s\n",
                   statusText(name.status).c_str());
    } else {
      std::fprintf(stderr, "rvitunes player ping: the player did not answer: %s%s%s\n",
                   statusText(name.status).c_str(), name.message.empty() ? "" : ": ",
                   name.message.c_str());
    }
    return kExitFailure;
  }
  const Answer version = askApplicationProperty(player::kPropVersion, ticks);
  if (version.status != noErr) {
    std::fprintf(stderr, "rvitunes player ping: the player did not tell its version: %s%s%s\n",
                 statusText(version.status).c_str(), version.message.empty() ? "" : ": ",
                 version.message.c_str());
    return kExitFailure;
  }
  auto nameText = ae::textValue(name.value);
  auto versionText = ae::textValue(version.value);
  std::printf("name: %s\n", nameText ? nameText->c_str() : "?");
  std::printf("version: %s\n", versionText ? versionText->c_str() : "?");
  std::printf("round trip: %.3f ms (first request %.3f ms)\n", version.milliseconds,
              name.milliseconds);
  return kExitOk;
}

}  // namespace

int runPlayer(const std::vector<std::string>& args) {
  if (args.empty()) return usageError("a subcommand is needed: serve or ping");
  const std::string& sub = args[0];
  std::vector<std::string> rest(args.begin() + 1, args.end());
  if (sub == "-h" || sub == "--help" || sub == "help") {
    std::fputs(kPlayerUsage, stdout);
    return kExitOk;
  }
  if (sub == "serve") return player::runDaemon(rest, "rvitunes player serve");
  if (sub == "ping") return ping(rest);
  return usageError("unknown subcommand \"" + sub + "\"");
}

}  // namespace rvitunes::cli
