// Runs the rvitunes program as a user would and collects what it printed.
#pragma once

#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <fstream>
#include <sstream>
#include <string>

namespace rvitunes::testing {

struct ToolRun {
  int status = -1;  // exit status; -1 when it did not exit normally
  std::string out;  // standard output, and standard error too unless runToolSeparately
  std::string err;  // standard error, from runToolSeparately only
};

// Runs `command` through the shell and collects its standard output.
inline ToolRun runShell(const std::string& command) {
  ToolRun r;
  FILE* p = popen(command.c_str(), "r");
  if (!p) return r;
  std::array<char, 4096> buf;
  size_t n;
  while ((n = fread(buf.data(), 1, buf.size(), p)) > 0)
    r.out.append(buf.data(), n);
  int st = pclose(p);
  r.status = WIFEXITED(st) ? WEXITSTATUS(st) : -1;
  return r;
}

// `args` is appended to the program path as shell text (quote paths yourself).
inline ToolRun runTool(const std::string& args) {
  return runShell(std::string("'") + RVITUNES_CLI_PATH + "' " + args + " 2>&1");
}

// As runTool, with standard output in `out` and standard error in `err`.
inline ToolRun runToolSeparately(const std::string& args) {
  char errors[] = "/tmp/rvitunes-stderr.XXXXXX";
  const int fd = mkstemp(errors);
  if (fd < 0) return {};
  close(fd);
  ToolRun r = runShell(std::string("'") + RVITUNES_CLI_PATH + "' " + args + " 2>'" + errors + "'");
  std::stringstream text;
  text << std::ifstream(errors, std::ios::binary).rdbuf();
  r.err = text.str();
  unlink(errors);
  return r;
}

}  // namespace rvitunes::testing
