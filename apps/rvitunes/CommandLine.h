// A small argument reader for the subcommands: options before, between or after operands,
// "--name value", "--name=value", short aliases, and "--" ending the options.
#pragma once

#include <map>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace rvitunes::cli {

class CommandLine {
 public:
  // `valued` lists the options that take a value ("--format", "-o"); `flags` those that do
  // not ("--json", "--help", "-h"). Anything else starting with '-' is an error.
  CommandLine(std::set<std::string> valued, std::set<std::string> flags)
      : valued_(std::move(valued)), flags_(std::move(flags)) {}

  // Reads args; answers false and sets error() on an unknown option or a missing value.
  bool parse(const std::vector<std::string>& args);

  bool has(const std::string& name) const { return present_.count(name) != 0; }
  std::optional<std::string> value(const std::string& name) const;
  const std::vector<std::string>& operands() const { return operands_; }
  const std::string& error() const { return error_; }

 private:
  std::set<std::string> valued_;
  std::set<std::string> flags_;
  std::set<std::string> present_;
  std::map<std::string, std::string> values_;
  std::vector<std::string> operands_;
  std::string error_;
};

// Exit statuses of the tool.
inline constexpr int kExitOk = 0;
inline constexpr int kExitFailure = 1;  // the work failed (bad input, I/O)
inline constexpr int kExitUsage = 2;    // the command line was wrong, or nothing to work on

// The messages of every command have one shape, "rvitunes COMMAND: what", on standard error.
// `command` is the words after "rvitunes" ("library", "player tracks").

// The message and where the usage is shown; answers kExitUsage.
int reportUsageError(std::string_view command, std::string_view message);
// The message; answers kExitFailure.
int reportFailure(std::string_view command, std::string_view message);
// Writes `usage` to standard output; answers kExitOk.
int showUsage(std::string_view usage);
// Whether -h or --help was given (both must be among the parser's flags).
inline bool wantsHelp(const CommandLine& line) {
  return line.has("--help") || line.has("-h");
}

}  // namespace rvitunes::cli
