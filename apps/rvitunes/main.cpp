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
    "\n"
    "Reads and checks iTunes library files and other property lists.\n"
    "\n"
    "commands:\n"
    "  plist     lint, print and convert property-list files (XML, binary, JSON)\n"
    "  library   find, list, measure and watch the iTunes library file\n"
    "  player    control the running player (status, play, search, playlists, …); run one\n"
    "  ae        build and print Apple Event descriptors from their text form\n"
    "  event     send an Apple Event to a running application; list the applications\n"
    "  script    compile and run a script of the framework's AppleScript language\n"
    "  apps      list the applications running on the event bus\n"
    "  app       show, hide or quit a running application by name\n"
    "  icons     list the playlist icons the framework loads; render them as PNG\n"
    "  demo      walk a host's start-up and a player session on the sample library\n"
    "\n"
    "options:\n"
    "  -h, --help     show this help; 'rvitunes <command> --help' shows a command's own\n"
    "  --version      show the version\n"
    "\n"
    "exit status: 0 success, 1 the work failed, 2 wrong usage.\n";

}  // namespace

int main(int argc, char** argv) {
  std::vector<std::string> args(argv + 1, argv + argc);
  if (args.empty()) {
    std::fputs(kUsage, stderr);
    return rvitunes::cli::kExitUsage;
  }
  const std::string& command = args[0];
  std::vector<std::string> rest(args.begin() + 1, args.end());
  if (command == "-h" || command == "--help" || command == "help") {
    std::fputs(kUsage, stdout);
    return rvitunes::cli::kExitOk;
  }
  if (command == "--version") {
    std::printf("rvitunes %s\n", RVITUNES_VERSION);
    return rvitunes::cli::kExitOk;
  }
  if (command == "plist") return rvitunes::cli::runPlist(rest);
  if (command == "library") return rvitunes::cli::runLibrary(rest);
  if (command == "player") return rvitunes::cli::runPlayer(rest);
  if (command == "ae") return rvitunes::cli::runAe(rest);
  if (command == "event") return rvitunes::cli::runEvent(rest);
  if (command == "script") return rvitunes::cli::runScript(rest);
  if (command == "apps") return rvitunes::cli::runApps(rest);
  if (command == "app") return rvitunes::cli::runApp(rest);
  if (command == "icons") return rvitunes::cli::runIcons(rest);
  if (command == "demo") return rvitunes::cli::runDemo(rest);
  std::fprintf(stderr, "rvitunes: unknown command '%s'\n\n%s", command.c_str(), kUsage);
  return rvitunes::cli::kExitUsage;
}
