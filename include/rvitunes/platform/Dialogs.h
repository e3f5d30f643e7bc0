// The modal questions the framework may have to ask: an alert with two or three buttons and a
// panel that picks one file. Implementations: terminal prompts, desktop dialogs through zenity,
// a scripted one for tests, a non-interactive one, and whatever the host installs.
//
// Calls block the caller until answered. Installing and reading the current implementation is
// thread-safe; an implementation itself is called on the caller's thread.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace rvitunes::platform {

struct AlertRequest {
  std::string messageText;
  std::string informativeText;
  std::string defaultButton;    // answers kAlertDefaultReturn
  std::string alternateButton;  // empty: none; answers kAlertAlternateReturn
  std::string otherButton;      // empty: none; answers kAlertOtherReturn
};

// The platform's alert return codes.
inline constexpr int kAlertDefaultReturn = 1;
inline constexpr int kAlertAlternateReturn = 0;
inline constexpr int kAlertOtherReturn = -1;

struct OpenPanelRequest {
  bool allowsMultipleSelection = false;
  bool canChooseDirectories = false;
  std::vector<std::string> allowedFileTypes;  // extensions without the dot; empty: any
};

class Dialogs {
 public:
  virtual ~Dialogs() = default;
  // Shows the alert and answers the code of the pressed button.
  virtual int runAlert(const AlertRequest& request) = 0;
  // Answers the chosen paths, or nullopt when the panel was cancelled.
  virtual std::optional<std::vector<std::string>> runOpenPanel(const OpenPanelRequest& request) = 0;

  // The implementation in use: the installed one, else automatic(). Never null. Thread-safe.
  static std::shared_ptr<Dialogs> current();
  // Installs `dialogs` for the whole process; nullptr returns to automatic(). A call already
  // running keeps the implementation it started with. Thread-safe.
  static void install(std::shared_ptr<Dialogs> dialogs);
  // Chosen afresh on each call: TerminalDialogs on standard input and standard error when
  // standard input is a terminal; else ZenityDialogs when ZenityDialogs::available(); otherwise
  // NonInteractiveDialogs. Never null.
  static std::shared_ptr<Dialogs> automatic();
  // By name, for command-line switches: "terminal" (standard input and standard error),
  // "desktop" (zenity, whether or not it is available now: without it every question gets the
  // non-interactive answer), "none". nullptr for other names.
  static std::shared_ptr<Dialogs> named(const std::string& name);
};

// Answers the alternate button (or the default when there is none) and cancels every panel.
class NonInteractiveDialogs : public Dialogs {
 public:
  int runAlert(const AlertRequest& request) override;
  std::optional<std::vector<std::string>> runOpenPanel(const OpenPanelRequest& request) override;
};

// Answers from queues the test filled, and records every request it was asked. An empty queue
// answers like NonInteractiveDialogs. Thread-safe; copies share their queues and records.
class ScriptedDialogs : public Dialogs {
 public:
  void pushAlertAnswer(int code);
  void pushPanelAnswer(std::optional<std::vector<std::string>> paths);
  int runAlert(const AlertRequest& request) override;
  std::optional<std::vector<std::string>> runOpenPanel(const OpenPanelRequest& request) override;
  std::vector<AlertRequest> alerts() const;
  std::vector<OpenPanelRequest> panels() const;

 private:
  struct State;
  std::shared_ptr<State> state_ = makeState();
  static std::shared_ptr<State> makeState();
};

}  // namespace rvitunes::platform
