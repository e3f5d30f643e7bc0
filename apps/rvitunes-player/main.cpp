// rvitunes-player: the reference player as a process of its own on the local event bus.

#include <string>
#include <vector>

#include "rvitunes/player/Daemon.h"

int main(int argc, char** argv) {
  std::vector<std::string> args(argv + 1, argv + argc);
  return rvitunes::player::runDaemon(args, "rvitunes-player");
}
