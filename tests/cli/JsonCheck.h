// A strict JSON reader for the tests of the tool's --json output: it accepts exactly one
// document as RFC 8259 defines it (no trailing commas, no raw control characters in strings,
// well-formed UTF-8, paired surrogate escapes, no duplicate keys) and gives back a small tree.
// Numbers keep their text so that 64-bit integers compare exactly.
#pragma once

#include <charconv>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace rvitunes::testing {

struct Json {
  enum class Kind { kNull, kBoolean, kNumber, kString, kArray, kObject };

  Kind kind = Kind::kNull;
  bool boolean = false;
  std::string text;  // a string's value, or a number as written
  std::vector<Json> items;
  std::vector<std::pair<std::string, Json>> members;

  bool isNull() const { return kind == Kind::kNull; }
  bool isString() const { return kind == Kind::kString; }
  bool isNumber() const { return kind == Kind::kNumber; }
  bool isBoolean() const { return kind == Kind::kBoolean; }
  bool isArray() const { return kind == Kind::kArray; }
  bool isObject() const { return kind == Kind::kObject; }

  size_t size() const { return isArray() ? items.size() : members.size(); }
  bool has(std::string_view key) const {
    for (const auto& [name, value] : members) {
      if (name == key) return true;
    }
    return false;
  }
  // The member, or a null value when there is none.
  const Json& operator[](std::string_view key) const {
    for (const auto& [name, value] : members) {
      if (name == key) return value;
    }
    return none();
  }
  const Json& operator[](size_t index) const {
    return index < items.size() ? items[index] : none();
  }
  // The number as a whole number; nullopt for a fraction, an exponent or another kind.
  std::optional<int64_t> integer() const {
    int64_t value = 0;
    if (!isNumber()) return std::nullopt;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc() || end != text.data() + text.size()) return std::nullopt;
    return value;
  }
  std::vector<std::string> keys() const {
    std::vector<std::string> out;
    for (const auto& member : members)
      out.push_back(member.first);
    return out;
  }

 private:
  static const Json& none() {
    static const Json kNone;
    return kNone;
  }
};

struct JsonResult {
  std::optional<Json> value;
  std::string error;  // what is wrong, and at which byte offset
};

namespace detail {

class JsonReader {
 public:
  explicit JsonReader(std::string_view text) : text_(text) {}

  JsonResult document() {
    JsonResult result;
    Json value;
    skipSpace();
    if (!this->value(value, 0)) {
      result.error = error_ + " at offset " + std::to_string(at_);
      return result;
    }
    skipSpace();
    if (at_ != text_.size()) {
      result.error = "more text after the document at offset " + std::to_string(at_);
      return result;
    }
    result.value = std::move(value);
    return result;
  }

 private:
  bool fail(std::string why) {
    error_ = std::move(why);
    return false;
  }
  bool more() const { return at_ < text_.size(); }
  char peek() const { return more() ? text_[at_] : '\0'; }
  void skipSpace() {
    while (more() && (peek() == ' ' || peek() == '\t' || peek() == '\n' || peek() == '\r'))
      ++at_;
  }
  bool literal(std::string_view word) {
    if (text_.substr(at_, word.size()) != word) return fail("unknown word");
    at_ += word.size();
    return true;
  }

  bool value(Json& out, int depth) {
    if (depth > 256) return fail("nesting too deep");
    switch (peek()) {
      case '{':
        return object(out, depth);
      case '[':
        return array(out, depth);
      case '"':
        out.kind = Json::Kind::kString;
        return string(out.text);
      case 't':
        out.kind = Json::Kind::kBoolean;
        out.boolean = true;
        return literal("true");
      case 'f':
        out.kind = Json::Kind::kBoolean;
        return literal("false");
      case 'n':
        return literal("null");
      default:
        out.kind = Json::Kind::kNumber;
        return number(out.text);
    }
  }

  bool digits() {
    const size_t start = at_;
    while (more() && peek() >= '0' && peek() <= '9')
      ++at_;
    return at_ > start;
  }

  bool number(std::string& out) {
    const size_t start = at_;
    if (peek() == '-') ++at_;
    if (peek() == '0') {
      ++at_;
    } else if (!(peek() >= '1' && peek() <= '9') || !digits()) {
      return fail("not a value");
    }
    if (peek() == '.') {
      ++at_;
      if (!digits()) return fail("no digits after the decimal point");
    }
    if (peek() == 'e' || peek() == 'E') {
      ++at_;
      if (peek() == '+' || peek() == '-') ++at_;
      if (!digits()) return fail("no digits in the exponent");
    }
    out.assign(text_.substr(start, at_ - start));
    return true;
  }

  static void appendUtf8(std::string& out, uint32_t code) {
    if (code < 0x80) {
      out += static_cast<char>(code);
    } else if (code < 0x800) {
      out += static_cast<char>(0xC0 | code >> 6);
      out += static_cast<char>(0x80 | (code & 0x3F));
    } else if (code < 0x10000) {
      out += static_cast<char>(0xE0 | code >> 12);
      out += static_cast<char>(0x80 | (code >> 6 & 0x3F));
      out += static_cast<char>(0x80 | (code & 0x3F));
    } else {
      out += static_cast<char>(0xF0 | code >> 18);
      out += static_cast<char>(0x80 | (code >> 12 & 0x3F));
      out += static_cast<char>(0x80 | (code >> 6 & 0x3F));
      out += static_cast<char>(0x80 | (code & 0x3F));
    }
  }

  bool hex4(uint32_t& code) {
    if (text_.size() - at_ < 4) return fail("a \\u escape needs four hexadecimal digits");
    code = 0;
    for (int i = 0; i < 4; ++i) {
      const char c = text_[at_++];
      code <<= 4;
      if (c >= '0' && c <= '9') {
        code |= static_cast<uint32_t>(c - '0');
      } else if (c >= 'a' && c <= 'f') {
        code |= static_cast<uint32_t>(c - 'a' + 10);
      } else if (c >= 'A' && c <= 'F') {
        code |= static_cast<uint32_t>(c - 'A' + 10);
      } else {
        return fail("a \\u escape needs four hexadecimal digits");
      }
    }
    return true;
  }

  // A well-formed UTF-8 sequence copied to `out`.
  bool utf8(std::string& out) {
    const auto lead = static_cast<unsigned char>(text_[at_]);
    size_t length = 0;
    uint32_t code = 0, least = 0;
    if (lead >= 0xC2 && lead <= 0xDF) {
      length = 2, code = lead & 0x1Fu, least = 0x80;
    } else if ((lead & 0xF0) == 0xE0) {
      length = 3, code = lead & 0x0Fu, least = 0x800;
    } else if (lead >= 0xF0 && lead <= 0xF4) {
      length = 4, code = lead & 0x07u, least = 0x10000;
    } else {
      return fail("a byte that is not UTF-8");
    }
    if (text_.size() - at_ < length) return fail("a cut UTF-8 sequence");
    for (size_t k = 1; k < length; ++k) {
      const auto byte = static_cast<unsigned char>(text_[at_ + k]);
      if ((byte & 0xC0) != 0x80) return fail("a cut UTF-8 sequence");
      code = code << 6 | (byte & 0x3Fu);
    }
    if (code < least || code > 0x10FFFF || (code >= 0xD800 && code <= 0xDFFF)) {
      return fail("an ill-formed UTF-8 sequence");
    }
    out.append(text_.substr(at_, length));
    at_ += length;
    return true;
  }

  bool string(std::string& out) {
    ++at_;  // the opening quote
    while (true) {
      if (!more()) return fail("an unterminated string");
      const auto c = static_cast<unsigned char>(peek());
      if (c == '"') {
        ++at_;
        return true;
      }
      if (c < 0x20) return fail("a raw control character in a string");
      if (c >= 0x80) {
        if (!utf8(out)) return false;
        continue;
      }
      ++at_;
      if (c != '\\') {
        out += static_cast<char>(c);
        continue;
      }
      const char e = more() ? text_[at_++] : '\0';
      switch (e) {
        case '"':
        case '\\':
        case '/':
          out += e;
          break;
        case 'b':
          out += '\b';
          break;
        case 'f':
          out += '\f';
          break;
        case 'n':
          out += '\n';
          break;
        case 'r':
          out += '\r';
          break;
        case 't':
          out += '\t';
          break;
        case 'u': {
          uint32_t code = 0;
          if (!hex4(code)) return false;
          if (code >= 0xDC00 && code <= 0xDFFF) return fail("a lone low surrogate");
          if (code >= 0xD800 && code <= 0xDBFF) {
            uint32_t low = 0;
            if (text_.substr(at_, 2) != "\\u") return fail("a lone high surrogate");
            at_ += 2;
            if (!hex4(low)) return false;
            if (low < 0xDC00 || low > 0xDFFF) return fail("a lone high surrogate");
            code = 0x10000 + ((code - 0xD800) << 10) + (low - 0xDC00);
          }
          appendUtf8(out, code);
          break;
        }
        default:
          return fail("an unknown escape");
      }
    }
  }

  bool array(Json& out, int depth) {
    out.kind = Json::Kind::kArray;
    ++at_;
    skipSpace();
    if (peek() == ']') {
      ++at_;
      return true;
    }
    while (true) {
      Json item;
      skipSpace();
      if (!value(item, depth + 1)) return false;
      out.items.push_back(std::move(item));
      skipSpace();
      if (peek() == ']') {
        ++at_;
        return true;
      }
      if (peek() != ',') return fail("',' or ']' expected");
      ++at_;
    }
  }

  bool object(Json& out, int depth) {
    out.kind = Json::Kind::kObject;
    ++at_;
    skipSpace();
    if (peek() == '}') {
      ++at_;
      return true;
    }
    while (true) {
      skipSpace();
      if (peek() != '"') return fail("a key expected");
      std::string key;
      if (!string(key)) return false;
      if (out.has(key)) return fail("the key \"" + key + "\" twice");
      skipSpace();
      if (peek() != ':') return fail("':' expected");
      ++at_;
      skipSpace();
      Json member;
      if (!value(member, depth + 1)) return false;
      out.members.emplace_back(std::move(key), std::move(member));
      skipSpace();
      if (peek() == '}') {
        ++at_;
        return true;
      }
      if (peek() != ',') return fail("',' or '}' expected");
      ++at_;
    }
  }

  std::string_view text_;
  size_t at_ = 0;
  std::string error_;
};

}  // namespace detail

// Exactly one JSON document, with white space around it allowed.
inline JsonResult parseJson(std::string_view text) {
  return detail::JsonReader(text).document();
}

// One document on each non-empty line, as streams print them.
inline std::vector<JsonResult> parseJsonLines(std::string_view text) {
  std::vector<JsonResult> out;
  size_t start = 0;
  while (start < text.size()) {
    size_t end = text.find('\n', start);
    if (end == std::string_view::npos) end = text.size();
    if (end > start) out.push_back(parseJson(text.substr(start, end - start)));
    start = end + 1;
  }
  return out;
}

}  // namespace rvitunes::testing
