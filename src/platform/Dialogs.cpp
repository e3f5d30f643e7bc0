#include "rvitunes/platform/Dialogs.h"

#include <unistd.h>

#include <cstdio>
#include <deque>
#include <mutex>
#include <utility>

#include "rvitunes/platform/TerminalDialogs.h"
#include "rvitunes/platform/ZenityDialogs.h"

namespace rvitunes::platform {
namespace {

struct Installed {
  std::mutex mutex;
  std::shared_ptr<Dialogs> dialogs;
};

Installed& installed() {
  static Installed state;
  return state;
}

}  // namespace

std::shared_ptr<Dialogs> Dialogs::current() {
  {
    Installed& state = installed();
    std::lock_guard lock(state.mutex);
    if (state.dialogs) return state.dialogs;
  }
  return automatic();
}

void Dialogs::install(std::shared_ptr<Dialogs> dialogs) {
  Installed& state = installed();
  std::shared_ptr<Dialogs> previous;
  {
    std::lock_guard lock(state.mutex);
    previous = std::exchange(state.dialogs, std::move(dialogs));
  }
  // `previous` may be the last reference; it goes away outside the lock.
}

std::shared_ptr<Dialogs> Dialogs::automatic() {
  // Prompts go to standard error so that they stay visible when the host's output is piped.
  if (::isatty(STDIN_FILENO)) return std::make_shared<TerminalDialogs>(stdin, stderr);
  if (ZenityDialogs::available()) return std::make_shared<ZenityDialogs>();
  return std::make_shared<NonInteractiveDialogs>();
}

std::shared_ptr<Dialogs> Dialogs::named(const std::string& name) {
  if (name == "terminal") return std::make_shared<TerminalDialogs>(stdin, stderr);
  if (name == "desktop") return std::make_shared<ZenityDialogs>();
  if (name == "none") return std::make_shared<NonInteractiveDialogs>();
  return nullptr;
}

int NonInteractiveDialogs::runAlert(const AlertRequest& request) {
  return request.alternateButton.empty() ? kAlertDefaultReturn : kAlertAlternateReturn;
}

std::optional<std::vector<std::string>> NonInteractiveDialogs::runOpenPanel(
    const OpenPanelRequest&) {
  return std::nullopt;
}

struct ScriptedDialogs::State {
  std::mutex mutex;
  std::deque<int> alertAnswers;
  std::deque<std::optional<std::vector<std::string>>> panelAnswers;
  std::vector<AlertRequest> alerts;
  std::vector<OpenPanelRequest> panels;
};

std::shared_ptr<ScriptedDialogs::State> ScriptedDialogs::makeState() {
  return std::make_shared<State>();
}

void ScriptedDialogs::pushAlertAnswer(int code) {
  std::lock_guard lock(state_->mutex);
  state_->alertAnswers.push_back(code);
}

void ScriptedDialogs::pushPanelAnswer(std::optional<std::vector<std::string>> paths) {
  std::lock_guard lock(state_->mutex);
  state_->panelAnswers.push_back(std::move(paths));
}

int ScriptedDialogs::runAlert(const AlertRequest& request) {
  std::lock_guard lock(state_->mutex);
  state_->alerts.push_back(request);
  if (state_->alertAnswers.empty()) return NonInteractiveDialogs().runAlert(request);
  const int answer = state_->alertAnswers.front();
  state_->alertAnswers.pop_front();
  return answer;
}

std::optional<std::vector<std::string>> ScriptedDialogs::runOpenPanel(
    const OpenPanelRequest& request) {
  std::lock_guard lock(state_->mutex);
  state_->panels.push_back(request);
  std::optional<std::vector<std::string>> answer;
  if (!state_->panelAnswers.empty()) {
    answer.swap(state_->panelAnswers.front());
    state_->panelAnswers.pop_front();
  }
  return answer;
}

std::vector<AlertRequest> ScriptedDialogs::alerts() const {
  std::lock_guard lock(state_->mutex);
  return state_->alerts;
}

std::vector<OpenPanelRequest> ScriptedDialogs::panels() const {
  std::lock_guard lock(state_->mutex);
  return state_->panels;
}

}  // namespace rvitunes::platform
