// Dialogs as prompts on a text terminal.
//
// An alert prints its message, its informative text and its buttons numbered from 1 (default,
// alternate, other, leaving out the absent ones), then reads one line: a button's number or its
// title (any case) chooses it, an empty line chooses the default. Anything else is refused
// with a message naming the valid answers and asked again, at most kMaxRetries more times;
// after that, or at the end of input, the answer is NonInteractiveDialogs' (the alternate
// button, else the default).
//
// The open panel asks for a path ("~/" means the home folder). It accepts an existing regular
// file (a link to one counts) whose extension is one of allowedFileTypes, compared without
// regard to case, or any file when that list is empty; a folder only when canChooseDirectories.
// A refused path is explained and asked again, at most kMaxRetries more times. An empty line,
// the end of input or the last refusal cancel. One path is chosen even when several are
// allowed; it is answered absolute.
//
// The streams are not owned and must outlive the instance. One question at a time per
// instance (calls are serialised).
#pragma once

#include <cstdio>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "rvitunes/platform/Dialogs.h"

namespace rvitunes::platform {

class TerminalDialogs : public Dialogs {
 public:
  static constexpr int kMaxRetries = 3;
  // Longer lines are cut to this many bytes.
  static constexpr size_t kMaxLineBytes = 4096;

  // Reads answers from `in` and writes the prompts to `out`.
  TerminalDialogs(FILE* in, FILE* out) : in_(in), out_(out) {}

  int runAlert(const AlertRequest& request) override;
  std::optional<std::vector<std::string>> runOpenPanel(const OpenPanelRequest& request) override;

 private:
  // One line without its ending, or nullopt at the end of input.
  std::optional<std::string> readLine();
  void print(const std::string& text);

  FILE* in_;
  FILE* out_;
  std::mutex mutex_;
};

}  // namespace rvitunes::platform
