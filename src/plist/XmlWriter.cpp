#include "rvitunes/plist/XmlWriter.h"

#include <string_view>

#include "plist/Base64.h"
#include "plist/TreePath.h"
#include "rvitunes/plist/Array.h"
#include "rvitunes/plist/Dictionary.h"

namespace rvitunes::plist {

namespace {

// The player wraps base64 at this many characters.
constexpr size_t kBase64Line = 72;

class Writer {
 public:
  explicit Writer(EntityStyle entities) : named_(entities == EntityStyle::kNamed) {}

  Status value(const Value& v, int indent, TreePath& path);
  std::string take() { return std::move(out_); }
  void raw(std::string_view s) { out_.append(s); }

 private:
  void tabs(int n) { out_.append(static_cast<size_t>(n), '\t'); }
  void escaped(std::string_view s);
  // Writes `v` inline after whatever is on the line (a key, or the indentation).
  Status inlineValue(const Value& v, int indent, TreePath& path);
  static bool isBlock(const Value& v) { return v.isArray() || v.isDictionary() || v.isData(); }

  bool named_;
  std::string out_;
};

void Writer::escaped(std::string_view s) {
  size_t run = 0;
  for (size_t i = 0; i < s.size(); ++i) {
    const char* rep = nullptr;
    switch (s[i]) {
      case '&':
        rep = named_ ? "&amp;" : "&#38;";
        break;
      case '<':
        rep = named_ ? "&lt;" : "&#60;";
        break;
      case '>':
        rep = named_ ? "&gt;" : "&#62;";
        break;
      case '\r':
        // A raw CR would read back as a line feed; only a reference keeps it.
        rep = "&#13;";
        break;
      default:
        continue;
    }
    out_.append(s.substr(run, i - run));
    out_.append(rep);
    run = i + 1;
  }
  out_.append(s.substr(run));
}

Status Writer::inlineValue(const Value& v, int indent, TreePath& path) {
  switch (v.type()) {
    case Type::kBoolean:
      out_.append(v.boolValue() ? "<true/>" : "<false/>");
      break;
    case Type::kInteger:
      out_.append("<integer>");
      out_.append(v.stringValue());
      out_.append("</integer>");
      break;
    case Type::kReal:
      out_.append("<real>");
      out_.append(v.stringValue());
      out_.append("</real>");
      break;
    case Type::kString:
      out_.append("<string>");
      escaped(v.stringView());
      out_.append("</string>");
      break;
    case Type::kDate:
      out_.append("<date>");
      out_.append(v.dateValue().iso8601());
      out_.append("</date>");
      break;
    case Type::kData: {
      out_.append("<data>\n");
      std::string b64 = base64Encode(v.dataView());
      for (size_t i = 0; i < b64.size(); i += kBase64Line) {
        tabs(indent);
        out_.append(std::string_view(b64).substr(i, kBase64Line));
        out_.push_back('\n');
      }
      tabs(indent);
      out_.append("</data>");
      break;
    }
    case Type::kArray: {
      const Array& a = *v.asArray();
      if (a.empty()) {
        out_.append("<array/>");
        break;
      }
      out_.append("<array>\n");
      for (size_t i = 0; i < a.size(); ++i) {
        path.pushIndex(i);
        Status s = value(a[i], indent + 1, path);
        path.pop();
        if (!s.ok()) return s;
      }
      tabs(indent);
      out_.append("</array>");
      break;
    }
    case Type::kDictionary: {
      const Dictionary& d = *v.asDictionary();
      if (d.empty()) {
        out_.append("<dict/>");
        break;
      }
      out_.append("<dict>\n");
      for (const auto& e : d) {
        if (!e.key.isString()) {
          return Status::error(paramErr, "a key that is not a string at " + path.text());
        }
        path.pushKey(e.key.stringView());
        tabs(indent + 1);
        out_.append("<key>");
        escaped(e.key.stringView());
        out_.append("</key>");
        Status s;
        if (isBlock(e.value)) {
          out_.push_back('\n');
          s = value(e.value, indent + 1, path);
        } else {
          s = inlineValue(e.value, indent + 1, path);
          out_.push_back('\n');
        }
        path.pop();
        if (!s.ok()) return s;
      }
      tabs(indent);
      out_.append("</dict>");
      break;
    }
    case Type::kNil:
    case Type::kObject:
      return Status::error(paramErr, std::string("a ") + std::string(typeName(v.type())) +
                                         " value cannot be written, at " + path.text());
  }
  return Status();
}

// A value on a line of its own.
Status Writer::value(const Value& v, int indent, TreePath& path) {
  tabs(indent);
  Status s = inlineValue(v, indent, path);
  out_.push_back('\n');
  return s;
}

}  // namespace

Result<std::string> XmlWriter::write(const Value& root, EntityStyle entities) {
  Writer w(entities);
  w.raw(
      "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
      "<!DOCTYPE plist PUBLIC \"-//Apple Computer//DTD PLIST 1.0//EN\" "
      "\"http://www.apple.com/DTDs/PropertyList-1.0.dtd\">\n"
      "<plist version=\"1.0\">\n");
  TreePath path;
  Status s = w.value(root, 0, path);
  if (!s.ok()) return s;
  w.raw("</plist>\n");
  return w.take();
}

}  // namespace rvitunes::plist
