// The player daemon: what `rvitunes-player` and `rvitunes player serve` run.
//
//   rvitunes-player --library FILE [--player-version V] [--name NAME] [--verbose]
//   rvitunes-player --help | --version
//
// Loads the library, registers the player on the local bus under 'hook' and NAME ("iTunes"),
// and serves until it receives 'aevt'/'quit', SIGINT or SIGTERM; then it writes a pending
// change of the library file and unregisters. It refuses to start when a live application
// already holds 'hook' on the bus. Messages go to stderr through the system log; --verbose
// also sends the debug channel there.
//
// Exit status: 0 after a clean stop, 1 when the player could not start (unreadable library,
// 'hook' taken, bus directory unusable), 2 for wrong usage.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "rvitunes/base/Result.h"
#include "rvitunes/player/PlayerVersion.h"

namespace rvitunes::player {

struct DaemonOptions {
  std::string libraryPath;
  PlayerVersion version;
  std::string name = "iTunes";
  bool verbose = false;
  bool help = false;
  bool showVersion = false;  // --version: print the program's version and stop
};

// Reads the daemon's arguments (without the program name). paramErr with a message naming the
// offending argument for wrong usage: an unknown option, a missing value, a version that does
// not parse, no --file (or its older spelling --library).
Result<DaemonOptions> parseDaemonArguments(const std::vector<std::string>& args);

// The usage text, with `program` as the command's name.
std::string daemonUsage(std::string_view program);

// Runs the daemon with `args` (without the program name); `program` names it in messages.
// Blocks until the player stops and answers the exit status. SIGINT and SIGTERM are blocked in
// the calling thread (and so in every thread it starts) while the player runs, and consumed.
int runDaemon(const std::vector<std::string>& args, std::string_view program);

}  // namespace rvitunes::player
