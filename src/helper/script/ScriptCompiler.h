// The compiler of the script language: source text to the statements it runs, or the first
// syntax error.
#pragma once

#include <string_view>
#include <variant>
#include <vector>

#include "helper/script/ScriptStatement.h"

namespace rvitunes::script {

// Deepest nesting of tell statements (blocks and one-line chains together).
inline constexpr size_t kMaxTellDepth = 32;

std::variant<std::vector<Statement>, CompileError> compileScript(std::string_view source);

}  // namespace rvitunes::script
