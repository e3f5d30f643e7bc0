#include "helper/script/ScriptLexer.h"

#include "rvitunes/base/OSStatus.h"

namespace rvitunes::script {

namespace {

bool isLetter(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_';
}

bool isDigit(char c) {
  return c >= '0' && c <= '9';
}

char lower(char c) {
  return (c >= 'A' && c <= 'Z') ? static_cast<char>(c - 'A' + 'a') : c;
}

// The length of the UTF-8 sequence starting at `i`, at least 1 and never past the end.
size_t sequenceLength(std::string_view source, size_t i) {
  const auto lead = static_cast<unsigned char>(source[i]);
  size_t length = 1;
  if (lead >= 0xF0 && lead < 0xF8) {
    length = 4;
  } else if (lead >= 0xE0) {
    length = lead < 0xF0 ? 3 : 1;
  } else if (lead >= 0xC0) {
    length = 2;
  }
  size_t n = 1;
  while (n < length && i + n < source.size() &&
         (static_cast<unsigned char>(source[i + n]) & 0xC0) == 0x80) {
    ++n;
  }
  return n;
}

}  // namespace

bool equalsIgnoringCase(std::string_view a, std::string_view b) {
  if (a.size() != b.size()) return false;
  for (size_t i = 0; i < a.size(); ++i) {
    if (lower(a[i]) != lower(b[i])) return false;
  }
  return true;
}

std::string describe(const Token& token) {
  switch (token.kind) {
    case TokenKind::kWord:
    case TokenKind::kSymbol:
      return "\"" + token.text + "\"";
    case TokenKind::kString:
      return "string";
    case TokenKind::kNumber:
      return "number";
    case TokenKind::kNewline:
      return "end of line";
    case TokenKind::kEnd:
      break;
  }
  return "end of script";
}

std::variant<std::vector<Token>, CompileError> tokenize(std::string_view source) {
  std::vector<Token> tokens;
  size_t i = 0;
  while (i < source.size()) {
    const char c = source[i];
    if (c == ' ' || c == '\t') {
      ++i;
      continue;
    }
    Token token;
    token.offset = i;
    if (c == '\n' || c == '\r') {
      token.kind = TokenKind::kNewline;
      i += (c == '\r' && i + 1 < source.size() && source[i + 1] == '\n') ? 2 : 1;
    } else if (isLetter(c)) {
      token.kind = TokenKind::kWord;
      while (i < source.size() && (isLetter(source[i]) || isDigit(source[i])))
        ++i;
      token.text.assign(source.substr(token.offset, i - token.offset));
    } else if (isDigit(c)) {
      token.kind = TokenKind::kNumber;
      while (i < source.size() && isDigit(source[i]))
        ++i;
      if (i + 1 < source.size() && source[i] == '.' && isDigit(source[i + 1])) {
        ++i;
        while (i < source.size() && isDigit(source[i]))
          ++i;
      }
      token.text.assign(source.substr(token.offset, i - token.offset));
    } else if (c == '"') {
      token.kind = TokenKind::kString;
      ++i;
      bool closed = false;
      while (i < source.size()) {
        const char s = source[i];
        if (s == '"') {
          ++i;
          closed = true;
          break;
        }
        if (s != '\\') {
          token.text.push_back(s);
          ++i;
          continue;
        }
        if (i + 1 >= source.size()) break;
        const char e = source[i + 1];
        const char decoded = e == '"'    ? '"'
                             : e == '\\' ? '\\'
                             : e == 'n'  ? '\n'
                             : e == 'r'  ? '\r'
                             : e == 't'  ? '\t'
                                         : '\0';
        if (decoded == '\0') {
          const size_t length = 1 + sequenceLength(source, i + 1);
          return CompileError{errOSASyntaxTypeError,
                              "Expected one of \\\" \\\\ \\n \\r \\t but found \"" +
                                  std::string(source.substr(i, length)) + "\".",
                              i, length};
        }
        token.text.push_back(decoded);
        i += 2;
      }
      if (!closed) {
        return CompileError{errOSASyntaxTypeError, "Expected \"\"\" but found end of script.",
                            source.size(), 0};
      }
    } else {
      token.kind = TokenKind::kSymbol;
      i += sequenceLength(source, i);
      token.text.assign(source.substr(token.offset, i - token.offset));
    }
    token.length = i - token.offset;
    tokens.push_back(std::move(token));
  }
  Token end;
  end.offset = source.size();
  tokens.push_back(std::move(end));
  return tokens;
}

}  // namespace rvitunes::script
