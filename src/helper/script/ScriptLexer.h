// The tokens of the script language: words, strings, numbers, line ends and single symbols.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "helper/script/ScriptStatement.h"

namespace rvitunes::script {

enum class TokenKind : uint8_t {
  kWord,     // a letter or '_' followed by letters, digits and '_'
  kString,   // "..." with the escapes \" \\ \n \r \t
  kNumber,   // digits, optionally '.' and more digits
  kNewline,  // LF, CR or CR LF
  kSymbol,   // any other character (one whole UTF-8 sequence)
  kEnd,      // the end of the source (always the last token)
};

struct Token {
  TokenKind kind = TokenKind::kEnd;
  size_t offset = 0;  // byte range in the source
  size_t length = 0;
  // Words and numbers as written, strings decoded, symbols as written.
  std::string text;
};

// The tokens of `source`, ending with kEnd; or the error of a string that is not closed or
// holds an unknown escape.
std::variant<std::vector<Token>, CompileError> tokenize(std::string_view source);

// How messages name a token: "\"word\"", "string", "number", "end of line", "end of script".
std::string describe(const Token& token);

// ASCII case-insensitive equality.
bool equalsIgnoringCase(std::string_view a, std::string_view b);

}  // namespace rvitunes::script
