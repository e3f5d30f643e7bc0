#include "CommandLine.h"

#include <cstdio>

namespace rvitunes::cli {

bool CommandLine::parse(const std::vector<std::string>& args) {
  bool optionsEnded = false;
  for (size_t i = 0; i < args.size(); ++i) {
    const std::string& a = args[i];
    if (optionsEnded || a.size() < 2 || a[0] != '-') {
      operands_.push_back(a);
      continue;
    }
    if (a == "--") {
      optionsEnded = true;
      continue;
    }
    std::string name = a;
    std::optional<std::string> inlineValue;
    if (size_t eq = a.find('='); a.rfind("--", 0) == 0 && eq != std::string::npos) {
      name = a.substr(0, eq);
      inlineValue = a.substr(eq + 1);
    }
    if (flags_.count(name)) {
      if (inlineValue) {
        error_ = "option " + name + " takes no value";
        return false;
      }
      present_.insert(name);
      continue;
    }
    if (valued_.count(name)) {
      if (!inlineValue) {
        if (i + 1 >= args.size()) {
          error_ = "option " + name + " needs a value";
          return false;
        }
        inlineValue = args[++i];
      }
      present_.insert(name);
      values_[name] = *inlineValue;
      continue;
    }
    error_ = "unknown option " + name;
    return false;
  }
  return true;
}

std::optional<std::string> CommandLine::value(const std::string& name) const {
  auto it = values_.find(name);
  if (it == values_.end()) return std::nullopt;
  return it->second;
}

int reportUsageError(std::string_view command, std::string_view message) {
  std::fflush(stdout);
  std::fprintf(stderr, "rvitunes %.*s: %.*s\n(rvitunes %.*s --help shows the usage)\n",
               static_cast<int>(command.size()), command.data(), static_cast<int>(message.size()),
               message.data(), static_cast<int>(command.size()), command.data());
  return kExitUsage;
}

int reportFailure(std::string_view command, std::string_view message) {
  std::fflush(stdout);
  std::fprintf(stderr, "rvitunes %.*s: %.*s\n", static_cast<int>(command.size()), command.data(),
               static_cast<int>(message.size()), message.data());
  return kExitFailure;
}

int showUsage(std::string_view usage) {
  std::fwrite(usage.data(), 1, usage.size(), stdout);
  return kExitOk;
}

}  // namespace rvitunes::cli
