#include "helper/script/ScriptCompiler.h"

#include <charconv>
#include <limits>
#include <optional>
#include <string>
#include <utility>

#include "helper/script/ScriptLexer.h"
#include "rvitunes/base/OSStatus.h"
#include "rvitunes/helper/AppleScript.h"

namespace rvitunes::script {

namespace {

// What a tell statement addresses.
struct Target {
  enum class Kind : uint8_t { kApplication, kSystemEvents, kProcess };
  Kind kind = Kind::kApplication;
  std::string name;         // the application, or the process for kProcess
  std::string application;  // kProcess: System Events as written
};

class Parser {
 public:
  explicit Parser(std::vector<Token> tokens) : tokens_(std::move(tokens)) {}

  std::variant<std::vector<Statement>, CompileError> run() {
    while (true) {
      skipNewlines();
      if (peek().kind == TokenKind::kEnd) break;
      if (!statement(nullptr, 0) || !endOfStatement()) return std::move(*error_);
    }
    return std::move(statements_);
  }

 private:
  const Token& peek() const { return tokens_[pos_]; }
  const Token& take() {
    const Token& token = tokens_[pos_];
    if (token.kind != TokenKind::kEnd) ++pos_;
    return token;
  }
  const Token& previous() const { return tokens_[pos_ == 0 ? 0 : pos_ - 1]; }

  static bool isWord(const Token& token, std::string_view word) {
    return token.kind == TokenKind::kWord && equalsIgnoringCase(token.text, word);
  }

  void skipNewlines() {
    while (peek().kind == TokenKind::kNewline)
      take();
  }

  // "Expected WHAT but found <the next token>."
  bool expected(std::string_view what) {
    const Token& found = peek();
    error_ = CompileError{errOSASyntaxTypeError,
                          "Expected " + std::string(what) + " but found " + describe(found) + ".",
                          found.offset, found.length};
    return false;
  }

  bool misplaced(const Token& token, std::string message) {
    error_ = CompileError{errOSASyntaxError, std::move(message), token.offset, token.length};
    return false;
  }

  bool expectWord(std::string_view word) {
    if (!isWord(peek(), word)) return expected("\"" + std::string(word) + "\"");
    take();
    return true;
  }

  bool expectString(std::string* out) {
    if (peek().kind != TokenKind::kString) return expected("string");
    *out = take().text;
    return true;
  }

  bool expectBoolean(bool* out) {
    if (isWord(peek(), "true")) {
      *out = true;
    } else if (isWord(peek(), "false")) {
      *out = false;
    } else {
      return expected("\"true\" or \"false\"");
    }
    take();
    return true;
  }

  // A statement ends at a line end or at the end of the source.
  bool endOfStatement() {
    const Token& next = peek();
    if (next.kind == TokenKind::kNewline) {
      take();
      return true;
    }
    if (next.kind == TokenKind::kEnd) return true;
    return misplaced(next,
                     "A " + describe(next) + " can't go after this " + describe(previous()) + ".");
  }

  bool statement(const Target* target, size_t depth) {
    if (isWord(peek(), "tell")) return tell(target, depth, false);
    if (target == nullptr) return expected("\"tell\"");
    return command(*target);
  }

  // tell TARGET to ... | tell TARGET <line end> ... end [tell]
  bool tell(const Target* outer, size_t depth, bool oneLineOnly) {
    const Token& tellWord = take();
    if (depth >= kMaxTellDepth) {
      return misplaced(tellWord, "The tell statements are nested too deeply.");
    }
    Target target;
    if (!tellTarget(outer, &target)) return false;
    if (isWord(peek(), "to")) {
      take();
      if (isWord(peek(), "tell")) return tell(&target, depth + 1, true);
      return command(target);
    }
    if (oneLineOnly) return expected("\"to\"");
    if (peek().kind == TokenKind::kEnd) return expected("\"end\"");
    if (peek().kind != TokenKind::kNewline) return expected("\"to\" or end of line");
    take();
    while (true) {
      skipNewlines();
      if (peek().kind == TokenKind::kEnd) return expected("\"end\"");
      if (isWord(peek(), "end")) {
        take();
        if (isWord(peek(), "tell")) take();
        return true;
      }
      if (!statement(&target, depth + 1) || !endOfStatement()) return false;
    }
  }

  bool tellTarget(const Target* outer, Target* target) {
    const bool inSystemEvents = outer != nullptr && outer->kind == Target::Kind::kSystemEvents;
    if (isWord(peek(), "application")) {
      take();
      if (!expectString(&target->name)) return false;
      target->kind = equalsIgnoringCase(target->name, kSystemEventsName)
                         ? Target::Kind::kSystemEvents
                         : Target::Kind::kApplication;
      return true;
    }
    if (inSystemEvents && isWord(peek(), "process")) {
      take();
      target->kind = Target::Kind::kProcess;
      target->application = outer->name;
      return expectString(&target->name);
    }
    return expected(inSystemEvents ? "\"application\" or \"process\"" : "\"application\"");
  }

  // The commands an application of ours answers may not go to System Events or its processes.
  bool requireApplication(const Target& target, const Token& word) {
    if (target.kind == Target::Kind::kApplication) return true;
    const std::string where = target.kind == Target::Kind::kProcess
                                  ? "tell process \"" + target.name + "\""
                                  : "tell application \"" + target.name + "\"";
    return misplaced(word, "A " + describe(word) + " can't go inside " + where + ".");
  }

  bool command(const Target& target) {
    const Token& word = peek();
    const size_t start = word.offset;
    Statement statement;
    statement.application =
        target.kind == Target::Kind::kProcess ? target.application : target.name;
    if (isWord(word, "play")) {
      if (!requireApplication(target, word)) return false;
      take();
      statement.kind = StatementKind::kPlay;
      if (isWord(peek(), "POSIX")) {
        take();
        std::string path;
        if (!expectWord("file") || !expectString(&path)) return false;
        statement.filePath = std::move(path);
      }
      if (isWord(peek(), "with") || isWord(peek(), "without")) {
        statement.once = isWord(take(), "with");
        if (!expectWord("once")) return false;
      }
    } else if (isWord(word, "set")) {
      take();
      if (target.kind == Target::Kind::kApplication) {
        statement.kind = StatementKind::kSetPlayerPosition;
        if (!expectWord("player") || !expectWord("position") || !expectWord("to") ||
            !position(&statement)) {
          return false;
        }
      } else {
        statement.kind = StatementKind::kSetProcessVisible;
        if (!expectWord("visible")) return false;
        if (target.kind == Target::Kind::kSystemEvents) {
          if (!expectWord("of") || !expectWord("process") || !expectString(&statement.process)) {
            return false;
          }
        } else {
          statement.process = target.name;
        }
        if (!expectWord("to") || !expectBoolean(&statement.visible)) return false;
      }
    } else if (isWord(word, "stop") || isWord(word, "activate") || isWord(word, "quit")) {
      if (!requireApplication(target, word)) return false;
      statement.kind = isWord(word, "stop")       ? StatementKind::kStop
                       : isWord(word, "activate") ? StatementKind::kActivate
                                                  : StatementKind::kQuit;
      take();
    } else {
      return expected("a command");
    }
    const Token& last = previous();
    statement.offset = start;
    statement.length = last.offset + last.length - start;
    statements_.push_back(std::move(statement));
    return true;
  }

  // [-] NUMBER
  bool position(Statement* statement) {
    bool negative = false;
    if (peek().kind == TokenKind::kSymbol && peek().text == "-") {
      take();
      negative = true;
    }
    if (peek().kind != TokenKind::kNumber) return expected("number");
    const std::string text = (negative ? "-" : "") + take().text;
    const char* first = text.data();
    const char* last = text.data() + text.size();
    if (text.find('.') == std::string::npos) {
      int64_t value = 0;
      const auto parsed = std::from_chars(first, last, value);
      if (parsed.ec == std::errc() && parsed.ptr == last &&
          value >= std::numeric_limits<int32_t>::min() &&
          value <= std::numeric_limits<int32_t>::max()) {
        statement->integerPosition = static_cast<int32_t>(value);
        return true;
      }
    }
    double real = 0;
    const auto parsed = std::from_chars(first, last, real);
    if (parsed.ec != std::errc() || parsed.ptr != last) {
      // Only a number too large for a double gets here.
      return misplaced(previous(), "The number " + text + " is too large.");
    }
    statement->realPosition = real;
    return true;
  }

  std::vector<Token> tokens_;
  size_t pos_ = 0;
  std::vector<Statement> statements_;
  std::optional<CompileError> error_;
};

}  // namespace

std::variant<std::vector<Statement>, CompileError> compileScript(std::string_view source) {
  auto tokens = tokenize(source);
  if (auto* error = std::get_if<CompileError>(&tokens)) return std::move(*error);
  return Parser(std::move(std::get<std::vector<Token>>(tokens))).run();
}

}  // namespace rvitunes::script
