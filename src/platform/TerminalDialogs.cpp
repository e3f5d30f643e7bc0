#include "rvitunes/platform/TerminalDialogs.h"

#include <cerrno>

#include "platform/Environment.h"
#include "platform/PanelRules.h"

namespace rvitunes::platform {
namespace {

struct Choice {
  std::string title;
  int code;
};

std::string lowered(std::string_view text) {
  std::string result(text);
  for (char& c : result) {
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
  }
  return result;
}

std::string_view trimmed(std::string_view text) {
  const size_t first = text.find_first_not_of(" \t");
  if (first == std::string_view::npos) return {};
  const size_t last = text.find_last_not_of(" \t");
  return text.substr(first, last - first + 1);
}

// The 1-based position `text` names among `count` choices, or 0.
size_t choiceNumber(std::string_view text, size_t count) {
  if (text.empty() || text.size() > 3) return 0;
  size_t number = 0;
  for (char c : text) {
    if (c < '0' || c > '9') return 0;
    number = number * 10 + static_cast<size_t>(c - '0');
  }
  return number <= count ? number : 0;
}

// "~/" at the start of a typed path is the home folder, as in a shell.
std::string typedPath(const std::string& line) {
  if (line == "~" || line.starts_with("~/")) return Environment::homeDirectory() + line.substr(1);
  return line;
}

}  // namespace

int TerminalDialogs::runAlert(const AlertRequest& request) {
  std::lock_guard lock(mutex_);
  std::vector<Choice> choices;
  choices.push_back(
      {request.defaultButton.empty() ? "OK" : request.defaultButton, kAlertDefaultReturn});
  if (!request.alternateButton.empty()) {
    choices.push_back({request.alternateButton, kAlertAlternateReturn});
  }
  if (!request.otherButton.empty()) choices.push_back({request.otherButton, kAlertOtherReturn});
  const int fallback = NonInteractiveDialogs().runAlert(request);
  const std::string count = std::to_string(choices.size());

  std::string text = "\n" + request.messageText + "\n";
  if (!request.informativeText.empty()) text += request.informativeText + "\n";
  for (size_t i = 0; i < choices.size(); ++i) {
    text += "  " + std::to_string(i + 1) + ") " + choices[i].title + "\n";
  }
  print(text);
  // A terminal user may have ended an earlier answer with end-of-file and can type again.
  std::clearerr(in_);

  for (int attempt = 0; attempt <= kMaxRetries; ++attempt) {
    print(choices.size() == 1 ? "Press Return to continue: " : "Choose 1-" + count + " [1]: ");
    const std::optional<std::string> line = readLine();
    if (!line) {
      print("\n");
      return fallback;
    }
    const std::string_view answer = trimmed(*line);
    if (answer.empty() || choices.size() == 1) return kAlertDefaultReturn;
    if (const size_t number = choiceNumber(answer, choices.size())) {
      return choices[number - 1].code;
    }
    for (const Choice& choice : choices) {
      if (lowered(answer) == lowered(choice.title)) return choice.code;
    }
    print("Please answer with a number from 1 to " + count + ", or press Return for \"" +
          choices.front().title + "\".\n");
  }
  for (const Choice& choice : choices) {
    if (choice.code == fallback) print("No valid answer; taking \"" + choice.title + "\".\n");
  }
  return fallback;
}

std::optional<std::vector<std::string>> TerminalDialogs::runOpenPanel(
    const OpenPanelRequest& request) {
  std::lock_guard lock(mutex_);
  std::string intro =
      request.canChooseDirectories ? "\nChoose a file or folder" : "\nChoose a file";
  if (!request.allowedFileTypes.empty()) {
    intro += " (" + PanelRules::describeTypes(request.allowedFileTypes) + ")";
  }
  print(intro + "; an empty line cancels.\n");
  std::clearerr(in_);

  for (int attempt = 0; attempt <= kMaxRetries; ++attempt) {
    print("Path: ");
    const std::optional<std::string> line = readLine();
    if (!line) {
      print("\n");
      return std::nullopt;
    }
    if (line->empty()) return std::nullopt;
    const std::string path = typedPath(*line);
    const std::optional<std::string> refusal = PanelRules::refusal(path, request);
    if (!refusal) return std::vector<std::string>{PanelRules::absolute(path)};
    print(*refusal + "\n");
  }
  print("No file chosen after " + std::to_string(kMaxRetries + 1) + " attempts.\n");
  return std::nullopt;
}

std::optional<std::string> TerminalDialogs::readLine() {
  std::string line;
  bool readAnything = false;
  while (true) {
    const int c = std::fgetc(in_);
    if (c == EOF) {
      if (std::ferror(in_) && errno == EINTR) {
        std::clearerr(in_);
        continue;
      }
      if (!readAnything) return std::nullopt;
      break;
    }
    readAnything = true;
    if (c == '\n') break;
    if (line.size() < kMaxLineBytes) line.push_back(static_cast<char>(c));
  }
  if (!line.empty() && line.back() == '\r') line.pop_back();
  return line;
}

void TerminalDialogs::print(const std::string& text) {
  std::fputs(text.c_str(), out_);
  std::fflush(out_);
}

}  // namespace rvitunes::platform
