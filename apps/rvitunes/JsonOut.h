// The one JSON writer of the tool. Every command that prints data with --json builds its
// document here, so that all of them escape, number and lay out their output the same way:
// objects on one line ({"a": 1, "b": "x"}), a top-level array with one element per line, and
// one document per invocation (or one object per line for streams, each ended by print()).
#pragma once

#include <cstdint>
#include <cstdio>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace rvitunes::cli {

// `text` as a JSON string: quotes, backslashes and control characters escaped, well-formed
// UTF-8 passed through, every byte that is not part of a UTF-8 sequence replaced by U+FFFD.
std::string jsonQuote(std::string_view text);

// A persistent ID as JSON: 16 upper-case hexadecimal digits in a string.
std::string jsonHexId(uint64_t id);

// Persistent-ID text as the files and players give it ("A7", "0x00a7", "00000000000000A7")
// normalised to 16 upper-case digits; text that is not 1 to 16 hexadecimal digits is kept as
// it is, so that nothing is lost.
std::string normalisedHexId(std::string_view text);

class JsonOut {
 public:
  JsonOut& beginObject();
  JsonOut& endObject();
  JsonOut& beginArray();
  JsonOut& endArray();

  // The name of the next member of the open object.
  JsonOut& key(std::string_view name);

  JsonOut& string(std::string_view text);
  JsonOut& string(const std::string& text) { return string(std::string_view(text)); }
  JsonOut& string(const char* text) { return string(std::string_view(text)); }
  JsonOut& string(const std::optional<std::string>& text);  // null when absent
  JsonOut& integer(int64_t value);
  JsonOut& unsignedInteger(uint64_t value);
  JsonOut& real(double value);  // null for nan and the infinities, which JSON lacks
  JsonOut& boolean(bool value);
  JsonOut& null();
  JsonOut& hexId(uint64_t id);
  // Text that is already one JSON value (from plist::JsonWriter, say).
  JsonOut& raw(std::string_view json);

  // Members: key and value in one call.
  JsonOut& field(std::string_view name, std::string_view text) { return key(name).string(text); }
  JsonOut& field(std::string_view name, const std::string& text) { return key(name).string(text); }
  JsonOut& field(std::string_view name, const char* text) { return key(name).string(text); }
  JsonOut& field(std::string_view name, const std::optional<std::string>& text) {
    return key(name).string(text);
  }
  JsonOut& integerField(std::string_view name, int64_t value) { return key(name).integer(value); }
  JsonOut& booleanField(std::string_view name, bool value) { return key(name).boolean(value); }
  JsonOut& nullField(std::string_view name) { return key(name).null(); }

  // The document so far, without a final newline.
  const std::string& text() const { return text_; }
  // Writes the document and a newline to `out` and starts a new, empty one; false when the
  // write failed (a closed pipe, a full disk).
  bool print(std::FILE* out = stdout);

 private:
  struct Level {
    bool array;
    bool empty = true;
  };
  void beforeValue();
  void close(bool array);

  std::string text_;
  std::vector<Level> open_;
  bool afterKey_ = false;
};

}  // namespace rvitunes::cli
