#include "JsonOut.h"

#include <cassert>
#include <charconv>
#include <cmath>
#include <cstdio>

namespace rvitunes::cli {

namespace {

// Length of the well-formed UTF-8 sequence starting at text[i] (overlong forms, surrogates
// and code points past U+10FFFF are not well-formed), or 0.
size_t utf8Length(std::string_view text, size_t i) {
  const auto lead = static_cast<unsigned char>(text[i]);
  size_t length = 0;
  uint32_t code = 0;
  uint32_t least = 0;
  if (lead >= 0xC2 && lead <= 0xDF) {
    length = 2, code = lead & 0x1Fu, least = 0x80;
  } else if ((lead & 0xF0) == 0xE0) {
    length = 3, code = lead & 0x0Fu, least = 0x800;
  } else if (lead >= 0xF0 && lead <= 0xF4) {
    length = 4, code = lead & 0x07u, least = 0x10000;
  } else {
    return 0;
  }
  if (text.size() - i < length) return 0;
  for (size_t k = 1; k < length; ++k) {
    const auto byte = static_cast<unsigned char>(text[i + k]);
    if ((byte & 0xC0) != 0x80) return 0;
    code = code << 6 | (byte & 0x3Fu);
  }
  if (code < least || code > 0x10FFFF || (code >= 0xD800 && code <= 0xDFFF)) return 0;
  return length;
}

}  // namespace

std::string jsonQuote(std::string_view text) {
  static constexpr char kHex[] = "0123456789abcdef";
  std::string out;
  out.reserve(text.size() + 2);
  out.push_back('"');
  for (size_t i = 0; i < text.size();) {
    const auto c = static_cast<unsigned char>(text[i]);
    if (c >= 0x80) {
      const size_t length = utf8Length(text, i);
      if (length == 0) {
        out.append("\xEF\xBF\xBD");
        ++i;
      } else {
        out.append(text.substr(i, length));
        i += length;
      }
      continue;
    }
    switch (c) {
      case '"':
        out.append("\\\"");
        break;
      case '\\':
        out.append("\\\\");
        break;
      case '\n':
        out.append("\\n");
        break;
      case '\r':
        out.append("\\r");
        break;
      case '\t':
        out.append("\\t");
        break;
      default:
        if (c < 0x20) {
          out.append("\\u00");
          out.push_back(kHex[c >> 4]);
          out.push_back(kHex[c & 0xF]);
        } else {
          out.push_back(static_cast<char>(c));
        }
    }
    ++i;
  }
  out.push_back('"');
  return out;
}

std::string jsonHexId(uint64_t id) {
  char digits[20];
  std::snprintf(digits, sizeof digits, "\"%016llX\"", static_cast<unsigned long long>(id));
  return digits;
}

std::string normalisedHexId(std::string_view text) {
  std::string_view digits = text;
  if (digits.size() > 2 && digits[0] == '0' && (digits[1] == 'x' || digits[1] == 'X')) {
    digits.remove_prefix(2);
  }
  uint64_t id = 0;
  const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), id, 16);
  if (digits.empty() || digits.size() > 16 || error != std::errc() ||
      end != digits.data() + digits.size()) {
    return std::string(text);
  }
  const std::string quoted = jsonHexId(id);
  return quoted.substr(1, quoted.size() - 2);
}

void JsonOut::beforeValue() {
  if (afterKey_) {
    afterKey_ = false;
    return;
  }
  if (open_.empty()) {
    assert(text_.empty() && "one document at a time");
    return;
  }
  Level& level = open_.back();
  assert(level.array && "an object member needs its key first");
  const bool topLevel = open_.size() == 1;
  if (level.empty) {
    text_ += topLevel ? "\n  " : "";
  } else {
    text_ += topLevel ? ",\n  " : ", ";
  }
  level.empty = false;
}

JsonOut& JsonOut::key(std::string_view name) {
  assert(!open_.empty() && !open_.back().array && !afterKey_);
  Level& level = open_.back();
  if (!level.empty) text_ += ", ";
  level.empty = false;
  text_ += jsonQuote(name);
  text_ += ": ";
  afterKey_ = true;
  return *this;
}

JsonOut& JsonOut::beginObject() {
  beforeValue();
  text_ += '{';
  open_.push_back({false});
  return *this;
}

JsonOut& JsonOut::beginArray() {
  beforeValue();
  text_ += '[';
  open_.push_back({true});
  return *this;
}

void JsonOut::close(bool array) {
  assert(!open_.empty() && open_.back().array == array && !afterKey_);
  const bool multiLine = array && open_.size() == 1 && !open_.back().empty;
  open_.pop_back();
  text_ += multiLine ? "\n]" : array ? "]" : "}";
}

JsonOut& JsonOut::endObject() {
  close(false);
  return *this;
}

JsonOut& JsonOut::endArray() {
  close(true);
  return *this;
}

JsonOut& JsonOut::string(std::string_view text) {
  return raw(jsonQuote(text));
}

JsonOut& JsonOut::string(const std::optional<std::string>& text) {
  return text ? string(*text) : null();
}

JsonOut& JsonOut::integer(int64_t value) {
  return raw(std::to_string(value));
}

JsonOut& JsonOut::unsignedInteger(uint64_t value) {
  return raw(std::to_string(value));
}

JsonOut& JsonOut::real(double value) {
  if (!std::isfinite(value)) return null();
  char digits[40];
  const auto result = std::to_chars(digits, digits + sizeof digits, value);
  return raw(std::string_view(digits, static_cast<size_t>(result.ptr - digits)));
}

JsonOut& JsonOut::boolean(bool value) {
  return raw(value ? "true" : "false");
}

JsonOut& JsonOut::null() {
  return raw("null");
}

JsonOut& JsonOut::hexId(uint64_t id) {
  return raw(jsonHexId(id));
}

JsonOut& JsonOut::raw(std::string_view json) {
  beforeValue();
  text_ += json;
  return *this;
}

bool JsonOut::print(std::FILE* out) {
  assert(open_.empty() && !afterKey_ && "an unfinished document");
  text_ += '\n';
  const bool written = std::fwrite(text_.data(), 1, text_.size(), out) == text_.size();
  text_.clear();
  return std::fflush(out) == 0 && written;
}

}  // namespace rvitunes::cli
