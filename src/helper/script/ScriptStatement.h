// The compiled form of a script: the statements it runs, each one event to one application,
// and the syntax error a source that does not compile gives instead.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "rvitunes/ae/Descriptor.h"

namespace rvitunes::script {

enum class StatementKind : uint8_t {
  kPlay,               // play [POSIX file "PATH"] [with once | without once]
  kSetPlayerPosition,  // set player position to N
  kStop,               // stop
  kActivate,           // activate
  kQuit,               // quit
  kSetProcessVisible,  // set visible of process "NAME" to B (System Events)
};

struct Statement {
  StatementKind kind = StatementKind::kStop;
  // The application the statement is told to: the name as written in the tell ("System
  // Events" as written for kSetProcessVisible).
  std::string application;
  // kSetProcessVisible: the process named; the event goes to the application of that name.
  std::string process;
  // kPlay: the POSIX path, when a file is given; nullopt otherwise.
  std::optional<std::string> filePath;
  // kPlay: true for "with once", false for "without once", nullopt when neither is written.
  std::optional<bool> once;
  // kSetPlayerPosition: the number, as an integer when written without a fraction and within
  // 32 bits, else as a real.
  std::optional<int32_t> integerPosition;
  double realPosition = 0;
  // kSetProcessVisible.
  bool visible = false;
  // Byte range of the command in the source.
  size_t offset = 0;
  size_t length = 0;
};

struct CompileError {
  int32_t number = 0;
  std::string message;
  size_t offset = 0;
  size_t length = 0;
};

// The command's first word ("play", "set", ...), for messages.
std::string_view commandName(StatementKind kind);

// The event `statement` sends, addressed to `target` (an address descriptor). Statements of
// System Events become the event the named application itself answers.
ae::Descriptor makeStatementEvent(const Statement& statement, const ae::Descriptor& target);

}  // namespace rvitunes::script
