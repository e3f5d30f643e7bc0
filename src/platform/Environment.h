// Facts about the user and the process that several platform classes look up.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace rvitunes::platform {

class Environment {
 public:
  // The value of `name`, or nullopt when it is unset or empty.
  static std::optional<std::string> variable(const char* name);
  // $HOME, else the home folder in the password database, else "".
  static std::string homeDirectory();
  // The first executable regular file called `program` in the folders of $PATH (empty entries
  // are skipped rather than meaning the current folder); a name holding '/' is checked as it
  // is. nullopt when there is none.
  static std::optional<std::string> findExecutable(std::string_view program);
  // The file name of the running executable, or nullopt when /proc/self/exe cannot be read.
  static std::optional<std::string> executableName();
  // True when `name` can be used as a file name inside a folder: not empty, not "." or "..",
  // no '/' and no NUL byte.
  static bool isPlainFileName(std::string_view name);
};

}  // namespace rvitunes::platform
