#include "rvitunes/plist/TreePrinter.h"

#include <string_view>
#include <vector>

#include "rvitunes/plist/Array.h"
#include "rvitunes/plist/Dictionary.h"
#include "rvitunes/plist/Object.h"

namespace rvitunes::plist {

namespace {

// Data longer than this shows its first bytes and "...".
constexpr size_t kDataBytesShown = 24;
// Deeper levels are summarised rather than risk the stack.
constexpr size_t kMaxDepth = 512;

class Printer {
 public:
  void value(const Value& v);
  std::string take() { return std::move(out_); }

 private:
  void indent() { out_.append(2 * open_.size(), ' '); }
  void quoted(std::string_view s);
  void data(std::span<const uint8_t> bytes);
  void key(const Value& k);

  std::string out_;
  std::vector<const void*> open_;
};

// Quotes `s`, escaping what would break the one-line layout.
void Printer::quoted(std::string_view s) {
  static constexpr char kHex[] = "0123456789abcdef";
  out_.push_back('"');
  for (char ch : s) {
    const auto c = static_cast<unsigned char>(ch);
    switch (c) {
      case '"':
        out_.append("\\\"");
        break;
      case '\\':
        out_.append("\\\\");
        break;
      case '\n':
        out_.append("\\n");
        break;
      case '\r':
        out_.append("\\r");
        break;
      case '\t':
        out_.append("\\t");
        break;
      default:
        if (c < 0x20 || c == 0x7F) {
          out_.append("\\x");
          out_.push_back(kHex[c >> 4]);
          out_.push_back(kHex[c & 0xF]);
        } else {
          out_.push_back(ch);
        }
    }
  }
  out_.push_back('"');
}

void Printer::data(std::span<const uint8_t> bytes) {
  static constexpr char kHex[] = "0123456789abcdef";
  out_.append("{length = " + std::to_string(bytes.size()) + ", bytes = 0x");
  const size_t shown = bytes.size() < kDataBytesShown ? bytes.size() : kDataBytesShown;
  for (size_t i = 0; i < shown; ++i) {
    out_.push_back(kHex[bytes[i] >> 4]);
    out_.push_back(kHex[bytes[i] & 0xF]);
  }
  if (shown < bytes.size()) out_.append("...");
  out_.push_back('}');
}

void Printer::key(const Value& k) {
  if (k.isString()) {
    quoted(k.stringView());
  } else {
    value(k);
  }
}

void Printer::value(const Value& v) {
  switch (v.type()) {
    case Type::kNil:
      out_.append("nil");
      return;
    case Type::kBoolean:
      out_.append(v.boolValue() ? "true" : "false");
      return;
    case Type::kInteger:
    case Type::kReal:
      out_.append(v.stringValue());
      return;
    case Type::kString:
      quoted(v.stringView());
      return;
    case Type::kDate:
      out_.append(v.dateValue().iso8601());
      return;
    case Type::kData:
      data(v.dataView());
      return;
    case Type::kObject:
      out_.push_back('<');
      out_.append(v.asObject()->typeName());
      out_.push_back('>');
      return;
    case Type::kArray:
    case Type::kDictionary:
      break;
  }
  const bool isArray = v.isArray();
  const void* identity =
      isArray ? static_cast<const void*>(v.asArray()) : static_cast<const void*>(v.asDictionary());
  for (const void* o : open_) {
    if (o == identity) {
      out_.append(isArray ? "[ (contains itself) ]" : "{ (contains itself) }");
      return;
    }
  }
  const size_t n = isArray ? v.asArray()->size() : v.asDictionary()->size();
  if (n == 0) {
    out_.append(isArray ? "[]" : "{}");
    return;
  }
  if (open_.size() >= kMaxDepth) {
    out_.append(isArray ? "[ ... ]" : "{ ... }");
    return;
  }
  out_.append(isArray ? "[\n" : "{\n");
  open_.push_back(identity);
  for (size_t i = 0; i < n; ++i) {
    indent();
    if (isArray) {
      out_.append(std::to_string(i));
      out_.append(" => ");
      value((*v.asArray())[i]);
    } else {
      const Dictionary::Entry& e = v.asDictionary()->entryAt(i);
      key(e.key);
      out_.append(" => ");
      value(e.value);
    }
    out_.push_back('\n');
  }
  open_.pop_back();
  indent();
  out_.push_back(isArray ? ']' : '}');
}

}  // namespace

std::string TreePrinter::print(const Value& root) {
  Printer p;
  p.value(root);
  std::string out = p.take();
  out.push_back('\n');
  return out;
}

}  // namespace rvitunes::plist
