// Dialogs as desktop windows, drawn by the zenity program.
//
// An alert runs `zenity --question --no-markup --text=TEXT --ok-label=DEFAULT
// --cancel-label=ALTERNATE [--extra-button=OTHER]` (`--info` when there is no alternate
// button); TEXT is the message, then a blank line and the informative text when there is one.
// Exit status 0 answers the default button; status 1 answers the other button when zenity
// printed its title, else the alternate one (the window was closed or the alternate pressed;
// the default when there is no alternate). The open panel runs `zenity --file-selection` with
// a --file-filter for allowedFileTypes (patterns that match any case), --multiple and
// --directory as the request allows; it reads the chosen paths from zenity's output and keeps
// those the request allows (see TerminalDialogs.h for the rule), cancelling when none is left.
//
// Arguments are passed to the program directly (no shell) and --no-markup keeps the texts
// literal. When zenity cannot be started, is killed or answers anything else, the alert gets
// NonInteractiveDialogs' answer and the panel is cancelled. Calls block the caller until the
// window is closed; several may run at once.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "rvitunes/platform/Dialogs.h"

namespace rvitunes::platform {

class ZenityDialogs : public Dialogs {
 public:
  // Bytes of zenity's output kept; the rest is read and dropped.
  static constexpr size_t kMaxOutputBytes = 1 << 20;

  // `program` is looked up on $PATH at each call (a name holding '/' is used as it is).
  explicit ZenityDialogs(std::string program = "zenity") : program_(std::move(program)) {}

  // True when a display is present (DISPLAY or WAYLAND_DISPLAY set) and zenity is on $PATH.
  static bool available();

  int runAlert(const AlertRequest& request) override;
  std::optional<std::vector<std::string>> runOpenPanel(const OpenPanelRequest& request) override;

  // The arguments (after the program name) of each dialog; public for tests and logging.
  static std::vector<std::string> alertArguments(const AlertRequest& request);
  static std::vector<std::string> panelArguments(const OpenPanelRequest& request);

 private:
  std::string program_;
};

}  // namespace rvitunes::platform
