// The subcommand groups of the rvitunes tool. Each takes the arguments after its own name and
// answers the process exit status.
#pragma once

#include <string>
#include <vector>

namespace rvitunes::cli {

int runPlist(const std::vector<std::string>& args);
int runLibrary(const std::vector<std::string>& args);
int runPlayer(const std::vector<std::string>& args);
int runAe(const std::vector<std::string>& args);
int runEvent(const std::vector<std::string>& args);
int runScript(const std::vector<std::string>& args);
int runApps(const std::vector<std::string>& args);
int runApp(const std::vector<std::string>& args);
int runIcons(const std::vector<std::string>& args);
int runDemo(const std::vector<std::string>& args);

// The applications on the event bus, as `rvitunes apps` and `rvitunes event --list` print them.
int listApplications(bool asJson);

}  // namespace rvitunes::cli
