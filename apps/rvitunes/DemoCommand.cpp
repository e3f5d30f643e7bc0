// rvitunes demo: the host's start-up and a tour of the player, step by step, on the sample
// library built into the tool or on the user's own library file.

#include <cstdio>
#include <string>
#include <vector>

#include "CommandLine.h"
#include "Commands.h"

namespace rvitunes::cli {

int runDemo(const std::vector<std::string>& args) {
  (void)args;
  std::fputs("rvitunes demo: not built yet\n", stderr);
  return kExitFailure;
}

}  // namespace rvitunes::cli
