// Runs the rvitunes program as a user would and collects what it printed.
#pragma once

#include <sys/wait.h>

#include <array>
#include <cstdio>
#include <string>

namespace rvitunes::testing {

struct ToolRun {
  int status = -1;  // exit status; -1 when it did not exit normally
  std::string out;  // standard output and standard error together
};

// `args` is appended to the program path as shell text (quote paths yourself).
inline ToolRun runTool(const std::string& args) {
  ToolRun r;
  std::string cmd = std::string("'") + RVITUNES_CLI_PATH + "' " + args + " 2>&1";
  FILE* p = popen(cmd.c_str(), "r");
  if (!p) return r;
  std::array<char, 4096> buf;
  size_t n;
  while ((n = fread(buf.data(), 1, buf.size(), p)) > 0) r.out.append(buf.data(), n);
  int st = pclose(p);
  r.status = WIFEXITED(st) ? WEXITSTATUS(st) : -1;
  return r;
}

}  // namespace rvitunes::testing
