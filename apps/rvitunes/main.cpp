// rvitunes: the command-line face of the framework.

#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "CommandLine.h"
#include "Commands.h"

namespace {

constexpr const char* kUsage =
    "usage: rvitunes <command> [options]\n"
    "       rvitunes help [command]\n"
    "\n"
    "Reads the iTunes library file, drives the player through Apple Events, and checks the\n"
    "files and events in between.\n"
    "\n"
    "commands:\n"
    "  plist     lint, print and convert property-list files (XML, binary, JSON)\n"
    "  library   find, list, measure and watch the iTunes library file; its display items\n"
    "  player    control the running player (status, play, search, playlists, ...); run one\n"
    "  ae        build and print Apple Event descriptors from their text form\n"
    "  event     send an Apple Event to a running application; list the applications\n"
    "  script    compile and run a script of the framework's AppleScript language\n"
    "  apps      list the applications running on the event bus\n"
    "  app       show, hide or quit a running application by name\n"
    "  icons     list the playlist icons the framework loads; save them as PNG\n"
    "  demo      walk a host's start-up and a player session on the sample library\n"
    "\n"
    "options:\n"
    "  -h, --help     show this help; 'rvitunes <command> --help' shows a command's own\n"
    "  --version      show the version\n"
    "\n"
    "The same option means the same thing in every command: --file FILE is the library file\n"
    "(to read, to serve, or to start a player on inside the tool), --json prints one JSON\n"
    "document instead of text, --timeout SECONDS bounds each wait for an answer.\n"
    "Results go to standard output, messages to standard error.\n"
    "\n"
    "exit status: 0 success, 1 the work failed, 2 wrong usage or nothing to work on.\n";

using Runner = int (*)(const std::vector<std::string>&);

struct Command {
  const char* name;
  Runner run;
};

constexpr Command kCommands[] = {
    {"plist", rvitunes::cli::runPlist},   {"library", rvitunes::cli::runLibrary},
    {"player", rvitunes::cli::runPlayer}, {"ae", rvitunes::cli::runAe},
    {"event", rvitunes::cli::runEvent},   {"script", rvitunes::cli::runScript},
    {"apps", rvitunes::cli::runApps},     {"app", rvitunes::cli::runApp},
    {"icons", rvitunes::cli::runIcons},   {"demo", rvitunes::cli::runDemo},
};

Runner find(const std::string& name) {
  for (const Command& command : kCommands) {
    if (name == command.name) return command.run;
  }
  return nullptr;
}

int unknownCommand(const std::string& name) {
  std::fprintf(stderr, "rvitunes: unknown command '%s'\n(rvitunes --help lists the commands)\n",
               name.c_str());
  return rvitunes::cli::kExitUsage;
}

}  // namespace

int main(int argc, char** argv) {
  std::vector<std::string> args(argv + 1, argv + argc);
  if (args.empty()) {
    std::fputs(kUsage, stderr);
    return rvitunes::cli::kExitUsage;
  }
  const std::string& command = args[0];
  std::vector<std::string> rest(args.begin() + 1, args.end());
  if (command == "-h" || command == "--help") {
    std::fputs(kUsage, stdout);
    return rvitunes::cli::kExitOk;
  }
  if (command == "help") {
    if (rest.empty()) {
      std::fputs(kUsage, stdout);
      return rvitunes::cli::kExitOk;
    }
    // "help COMMAND" is "COMMAND --help".
    Runner run = find(rest[0]);
    return run ? run({"--help"}) : unknownCommand(rest[0]);
  }
  if (command == "--version") {
    std::printf("rvitunes %s\n", RVITUNES_VERSION);
    return rvitunes::cli::kExitOk;
  }
  Runner run = find(command);
  return run ? run(rest) : unknownCommand(command);
}
