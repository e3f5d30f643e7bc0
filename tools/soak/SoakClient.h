// One client process of a soak run: several host threads driving the player through the
// framework's classes, each checking every answer against the library file, until a deadline.
// The findings go to a report file the coordinator reads (SoakReport.h).
#pragma once

#include <cstdint>
#include <string>

namespace rvitunes::soak {

struct ClientOptions {
  std::string expectedLibrary;  // the library file as the player loaded it (never rewritten)
  std::string reportPath;
  int index = 0;  // this client among `clients`
  int clients = 1;
  int threads = 4;
  double seconds = 60;
  uint64_t seed = 3;
  int timeoutSeconds = 15;    // the event manager's default timeout in this process
  std::string playerVersion;  // the version text the player answers
};

// Runs the client; answers the process's exit status (0 when it could run at all, whatever it
// found: the findings are in the report).
int runClient(const ClientOptions& options);

}  // namespace rvitunes::soak
