#include "rvitunes/platform/ZenityDialogs.h"

#include "platform/ChildProcess.h"
#include "platform/Environment.h"
#include "platform/PanelRules.h"
#include "rvitunes/base/Log.h"

namespace rvitunes::platform {
namespace {

constexpr int kPressedDefault = 0;
constexpr int kPressedOtherOrClosed = 1;

// A glob that matches `.type` in any case ("*.[xX][mM][lL]"), or "" for a type that the
// filter syntax cannot carry (zenity splits patterns at spaces and the name at '|').
std::string anyCasePattern(std::string_view type) {
  if (type.starts_with('.')) type.remove_prefix(1);
  if (type.empty()) return "";
  std::string pattern = "*.";
  for (char c : type) {
    if (c >= 'a' && c <= 'z') {
      pattern += {'[', c, static_cast<char>(c - 'a' + 'A'), ']'};
    } else if (c >= 'A' && c <= 'Z') {
      pattern += {'[', static_cast<char>(c - 'A' + 'a'), c, ']'};
    } else if (c == ' ' || c == '|' || c == '*' || c == '?' || c == '[' || c == ']' || c == '\\' ||
               c == '\t' || c == '\n') {
      return "";
    } else {
      pattern += c;
    }
  }
  return pattern;
}

std::optional<ChildProcess::Outcome> runZenity(const std::string& program,
                                               const std::vector<std::string>& arguments) {
  const std::optional<std::string> found = Environment::findExecutable(program);
  if (!found) {
    NullLog("zenity dialogs: \"%s\" is not on the PATH", program.c_str());
    return std::nullopt;
  }
  Result<ChildProcess::Outcome> outcome =
      ChildProcess::run(*found, arguments, ZenityDialogs::kMaxOutputBytes);
  if (!outcome) {
    NullLog("zenity dialogs: %s", outcome.status().message().c_str());
    return std::nullopt;
  }
  return std::move(outcome).value();
}

}  // namespace

bool ZenityDialogs::available() {
  const bool display = Environment::variable("DISPLAY") || Environment::variable("WAYLAND_DISPLAY");
  return display && Environment::findExecutable("zenity").has_value();
}

std::vector<std::string> ZenityDialogs::alertArguments(const AlertRequest& request) {
  std::string text = request.messageText;
  if (!request.informativeText.empty()) text += "\n\n" + request.informativeText;
  std::vector<std::string> arguments;
  arguments.push_back(request.alternateButton.empty() ? "--info" : "--question");
  arguments.push_back("--no-markup");
  arguments.push_back("--text=" + text);
  arguments.push_back("--ok-label=" +
                      (request.defaultButton.empty() ? std::string("OK") : request.defaultButton));
  if (!request.alternateButton.empty()) {
    arguments.push_back("--cancel-label=" + request.alternateButton);
  }
  if (!request.otherButton.empty()) arguments.push_back("--extra-button=" + request.otherButton);
  return arguments;
}

std::vector<std::string> ZenityDialogs::panelArguments(const OpenPanelRequest& request) {
  std::vector<std::string> arguments = {"--file-selection", "--title=Open"};
  if (request.allowsMultipleSelection) {
    arguments.push_back("--multiple");
    arguments.push_back("--separator=\n");
  }
  if (request.canChooseDirectories) arguments.push_back("--directory");
  std::string patterns;
  for (const std::string& type : request.allowedFileTypes) {
    const std::string pattern = anyCasePattern(type);
    if (pattern.empty()) continue;
    if (!patterns.empty()) patterns += ' ';
    patterns += pattern;
  }
  if (!patterns.empty()) {
    std::string name = PanelRules::describeTypes(request.allowedFileTypes);
    for (char& c : name) {
      if (c == '|') c = '/';
    }
    arguments.push_back("--file-filter=" + name + " | " + patterns);
  }
  return arguments;
}

int ZenityDialogs::runAlert(const AlertRequest& request) {
  const int fallback = NonInteractiveDialogs().runAlert(request);
  const std::optional<ChildProcess::Outcome> outcome = runZenity(program_, alertArguments(request));
  if (!outcome) return fallback;
  if (outcome->exitStatus == kPressedDefault) return kAlertDefaultReturn;
  if (outcome->exitStatus == kPressedOtherOrClosed && !request.otherButton.empty()) {
    std::string_view printed = outcome->output;
    if (printed.ends_with('\n')) printed.remove_suffix(1);
    if (printed == request.otherButton) return kAlertOtherReturn;
  }
  // Status 1 without the other button's title is the alternate button or a closed window;
  // anything else (a timeout, a crash) is no answer at all. Both get the cautious answer.
  return fallback;
}

std::optional<std::vector<std::string>> ZenityDialogs::runOpenPanel(
    const OpenPanelRequest& request) {
  const std::optional<ChildProcess::Outcome> outcome = runZenity(program_, panelArguments(request));
  if (!outcome || outcome->exitStatus != kPressedDefault) return std::nullopt;

  std::vector<std::string> chosen;
  std::string_view rest = outcome->output;
  while (!rest.empty()) {
    const size_t end = std::min(rest.find('\n'), rest.size());
    const std::string path(rest.substr(0, end));
    rest.remove_prefix(std::min(end + 1, rest.size()));
    if (path.empty()) continue;
    // The filter only guides the user, who can type any name into the dialog.
    if (const std::optional<std::string> refusal = PanelRules::refusal(path, request)) {
      NullLog("zenity dialogs: %s", refusal->c_str());
      continue;
    }
    chosen.push_back(PanelRules::absolute(path));
    if (!request.allowsMultipleSelection) break;
  }
  if (chosen.empty()) return std::nullopt;
  return chosen;
}

}  // namespace rvitunes::platform
