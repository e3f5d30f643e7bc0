// The soak run: a private event bus, the player daemon on a library, client processes driving
// it for a while, the daemon's memory and descriptors watched meanwhile, and a verdict.
#pragma once

#include <string>

#include "SoakLibrary.h"

namespace rvitunes::soak {

struct RunOptions {
  double seconds = 300;
  int clients = 4;
  int threads = 4;
  std::string library;  // a library file to copy; empty: generate one
  GeneratorOptions generator;
  std::string player;         // the daemon; empty: the one built beside this program
  std::string playerVersion;  // what the daemon pretends to be; empty: its default
  double sampleInterval = 3;  // seconds between looks at the daemon
  // Seconds before memory and descriptors must hold still; negative: a quarter of the run, 15
  // to 60 s. It must take in the player's first write-backs of the library (a change is
  // written at the latest 5 s after it), after which the allocator keeps their buffers.
  double warmup = -1;
  int timeoutSeconds = 15;  // the clients' default event timeout
  bool keep = false;        // keep the scratch folder (it is kept anyway when the run fails)
  bool progress = false;    // print every sample as it is taken
};

// Runs the soak and prints the summary table and a last line "soak: PASS ..." or
// "soak: FAIL ..."; answers 0 or 1 (2 when it could not start at all).
int runSoak(const RunOptions& options);

}  // namespace rvitunes::soak
