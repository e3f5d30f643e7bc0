// AppleScript: a script object for the small AppleScript language this framework composes (the
// platform's NSAppleScript). A script is compiled once into the Apple Events it will send, then
// run by sending those events, in order, over the event manager to the applications it names.
//
// The language, in full (keywords ignore ASCII case; lines end with LF, CR or CR LF; blanks and
// tabs separate words; empty lines are allowed anywhere):
//
//   tell application "NAME"            a block of statements addressed to NAME, closed by
//     ...                              "end tell" (or "end")
//   end tell
//   tell application "NAME" to STMT    one line; STMT may itself be "tell ... to ..."
//   play [POSIX file "PATH"] [with once | without once]
//   set player position to N           N an integer or decimal number, optionally negative
//   stop
//   activate
//   quit
//   tell application "System Events"   built in: it turns process visibility into events to
//     set visible of process "NAME" to true|false        the application NAME itself
//     tell process "NAME" to set visible to true|false   (also as a block)
//   end tell
//
// Strings know the escapes \" \\ \n \r \t; any other backslash sequence is a syntax error, as
// is anything else outside the language: compile() then reports errOSASyntaxError (-2740, "A
// ... can't go after this ...") or errOSASyntaxTypeError (-2741, "Expected ... but found
// ..."), with the byte range of the offending text, and nothing is sent. The events each
// statement sends are listed in docs/applescript.md.
//
// Running: the statements run in source order. Each resolves its application by name among
// the running applications of the event manager (the exact name first, then the name ignoring
// ASCII case) and sends one event, waiting for the reply. An application that is not running
// is not launched: the run stops with procNotFound (-600). A delivery failure (-609, -1712, ...)
// or a reply carrying 'errn' stops the run with that number, the reply's 'errs' (or a standard
// text), the offending application and the statement's range. "System Events" answers
// errAENoSuchObject (-1728) for a process that is not running. Events sent before a failure
// stay sent.
//
// The result of a run is the '----' of the last reply, or the null descriptor when that reply
// holds none (as for every statement of this language).
//
// Threads: one AppleScript object is used by one thread at a time; separate objects may run
// on several threads at once.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "rvitunes/ae/AECodes.h"
#include "rvitunes/ae/Descriptor.h"

namespace rvitunes {

namespace ae {
class EventManager;
}

// The name of the built-in application that handles process visibility.
inline constexpr std::string_view kSystemEventsName = "System Events";

// The error information of a failed compile or run (the platform's error dictionary:
// number, message, application name and range).
struct AppleScriptError {
  int32_t number = 0;
  // For run errors "NAME got an error: TEXT"; for compile errors the syntax message.
  std::string message;
  // The application that failed ("" for syntax errors).
  std::string application;
  // Byte range in the source: the offending token (compile) or statement (run). A compile
  // error at the end of the source has the source's size as offset and length 0.
  size_t offset = 0;
  size_t length = 0;
};

class AppleScript {
 public:
  struct Options {
    // Where events go; EventManager::shared() when null. Must outlive the script.
    ae::EventManager* eventManager = nullptr;
    // The timeout of each event, in ticks (kAEDefaultTimeout: the manager's default).
    long timeoutTicks = ae::kAEDefaultTimeout;
  };

  // A script object holding `source`, not compiled yet (initWithSource:).
  explicit AppleScript(std::string source);
  AppleScript(std::string source, Options options);
  AppleScript(const AppleScript&) = delete;
  AppleScript& operator=(const AppleScript&) = delete;
  ~AppleScript();

  const std::string& source() const { return source_; }
  bool isCompiled() const { return program_ != nullptr; }

  // Compiles the source if that has not been done; true on success. On failure *error (when
  // not null) holds the syntax error. Compiling sends nothing.
  bool compile(AppleScriptError* error);

  // Compiles if needed, then runs: answers the result descriptor, or nullptr with *error (when
  // not null) filled. A script that does not compile sends nothing.
  std::shared_ptr<ae::Descriptor> executeAndReturnError(AppleScriptError* error);

  // The number of statements (events) the compiled script sends; 0 before compiling.
  size_t statementCount() const;

 private:
  struct Program;

  std::string source_;
  Options options_;
  std::unique_ptr<Program> program_;
};

}  // namespace rvitunes
