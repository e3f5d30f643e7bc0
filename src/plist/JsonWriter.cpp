#include "rvitunes/plist/JsonWriter.h"

#include <charconv>
#include <cmath>
#include <string_view>
#include <vector>

#include "plist/Base64.h"
#include "plist/TreePath.h"
#include "rvitunes/plist/Array.h"
#include "rvitunes/plist/Dictionary.h"

namespace rvitunes::plist {

namespace {

// Deeper trees are refused rather than risk the stack.
constexpr size_t kMaxDepth = 1024;

// Length of the well-formed UTF-8 sequence at s[i], or 0 when the bytes there are not one.
size_t sequenceLength(std::string_view s, size_t i) {
  const auto c = static_cast<unsigned char>(s[i]);
  size_t n = 0;
  uint32_t cp = 0;
  uint32_t min = 0;
  if (c < 0x80) return 1;
  if ((c & 0xE0) == 0xC0) {
    n = 2, cp = c & 0x1F, min = 0x80;
  } else if ((c & 0xF0) == 0xE0) {
    n = 3, cp = c & 0x0F, min = 0x800;
  } else if ((c & 0xF8) == 0xF0) {
    n = 4, cp = c & 0x07, min = 0x10000;
  } else {
    return 0;
  }
  if (s.size() - i < n) return 0;
  for (size_t k = 1; k < n; ++k) {
    const auto b = static_cast<unsigned char>(s[i + k]);
    if ((b & 0xC0) != 0x80) return 0;
    cp = (cp << 6) | (b & 0x3F);
  }
  if (cp < min || cp > 0x10FFFF || (cp >= 0xD800 && cp <= 0xDFFF)) return 0;
  return n;
}

class Writer {
 public:
  explicit Writer(int indent) : indent_(indent > 0 ? indent : 0) {}

  Status value(const Value& v, TreePath& path);
  std::string take() { return std::move(out_); }

 private:
  void newline() {
    if (indent_ == 0) return;
    out_.push_back('\n');
    out_.append(static_cast<size_t>(indent_) * open_.size(), ' ');
  }
  void string(std::string_view s);
  void real(double d);
  Status key(const Value& k, const TreePath& path);

  int indent_;
  std::string out_;
  std::vector<const void*> open_;  // containers on the current path
};

void Writer::string(std::string_view s) {
  static constexpr char kHex[] = "0123456789abcdef";
  out_.push_back('"');
  size_t run = 0;
  for (size_t i = 0; i < s.size();) {
    const auto c = static_cast<unsigned char>(s[i]);
    if (c >= 0x20 && c != '"' && c != '\\' && c < 0x80) {
      ++i;
      continue;
    }
    size_t n = c < 0x80 ? 1 : sequenceLength(s, i);
    if (n > 1) {
      i += n;  // well-formed UTF-8 passes through
      continue;
    }
    out_.append(s.substr(run, i - run));
    if (c == '"' || c == '\\') {
      out_.push_back('\\');
      out_.push_back(static_cast<char>(c));
    } else if (c < 0x20) {
      out_.append("\\u00");
      out_.push_back(kHex[c >> 4]);
      out_.push_back(kHex[c & 0xF]);
    } else {
      out_.append("\xEF\xBF\xBD");  // a byte that is not UTF-8 becomes U+FFFD
    }
    run = ++i;
  }
  out_.append(s.substr(run));
  out_.push_back('"');
}

void Writer::real(double d) {
  if (std::isnan(d)) {
    out_.append("\"nan\"");
    return;
  }
  if (std::isinf(d)) {
    out_.append(d > 0 ? "\"inf\"" : "\"-inf\"");
    return;
  }
  char buf[40];
  const auto r = std::to_chars(buf, buf + sizeof buf, d);
  const std::string_view text(buf, static_cast<size_t>(r.ptr - buf));
  out_.append(text);
  // Keep integral reals recognisable as reals: "3.0", not "3".
  if (text.find_first_of(".e") == std::string_view::npos) out_.append(".0");
}

// JSON keys are strings: numeric keys are written as their decimal text.
Status Writer::key(const Value& k, const TreePath& path) {
  if (k.isString()) {
    string(k.stringView());
  } else if (k.isNumber()) {
    string(k.isBoolean() ? (k.boolValue() ? "true" : "false") : k.stringValue());
  } else {
    return Status::error(paramErr, std::string("a key of type ") + std::string(typeName(k.type())) +
                                       " cannot be written as JSON, at " + path.text());
  }
  return Status();
}

Status Writer::value(const Value& v, TreePath& path) {
  switch (v.type()) {
    case Type::kBoolean:
      out_.append(v.boolValue() ? "true" : "false");
      return Status();
    case Type::kInteger:
      out_.append(v.stringValue());
      return Status();
    case Type::kReal:
      real(v.doubleValue());
      return Status();
    case Type::kString:
      string(v.stringView());
      return Status();
    case Type::kDate:
      out_.push_back('"');
      out_.append(v.dateValue().iso8601());
      out_.push_back('"');
      return Status();
    case Type::kData:
      out_.push_back('"');
      out_.append(base64Encode(v.dataView()));
      out_.push_back('"');
      return Status();
    case Type::kArray:
    case Type::kDictionary: {
      const void* identity = v.isArray() ? static_cast<const void*>(v.asArray())
                                         : static_cast<const void*>(v.asDictionary());
      for (const void* o : open_) {
        if (o == identity) {
          return Status::error(
              paramErr, "a container that contains itself cannot be written, at " + path.text());
        }
      }
      if (open_.size() >= kMaxDepth) {
        return Status::error(paramErr, "nesting deeper than " + std::to_string(kMaxDepth) +
                                           " levels cannot be written, at " + path.text());
      }
      const bool isArray = v.isArray();
      const size_t n = isArray ? v.asArray()->size() : v.asDictionary()->size();
      out_.push_back(isArray ? '[' : '{');
      if (n == 0) {
        out_.push_back(isArray ? ']' : '}');
        return Status();
      }
      open_.push_back(identity);
      Status s;
      for (size_t i = 0; i < n && s.ok(); ++i) {
        if (i > 0) out_.push_back(',');
        newline();
        if (isArray) {
          path.pushIndex(i);
          s = value((*v.asArray())[i], path);
        } else {
          const Dictionary::Entry& e = v.asDictionary()->entryAt(i);
          if (s = key(e.key, path); !s.ok()) break;
          out_.append(indent_ > 0 ? ": " : ":");
          path.pushKey(e.key.isString() ? e.key.stringView() : e.key.stringValue());
          s = value(e.value, path);
        }
        path.pop();
      }
      open_.pop_back();
      if (!s.ok()) return s;
      newline();
      out_.push_back(isArray ? ']' : '}');
      return Status();
    }
    case Type::kNil:
    case Type::kObject:
      break;
  }
  return Status::error(paramErr, std::string("a ") + std::string(typeName(v.type())) +
                                     " value cannot be written, at " + path.text());
}

}  // namespace

Result<std::string> JsonWriter::write(const Value& root, int indent) {
  Writer w(indent);
  TreePath path;
  if (Status s = w.value(root, path); !s.ok()) return s;
  return w.take();
}

}  // namespace rvitunes::plist
