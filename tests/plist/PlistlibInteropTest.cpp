// Files written by Python's plistlib (tests/corpus/plist, made by make_corpus.py) must read to
// the same values plistlib reads from them, and what we write must read back the same, both
// here and in plistlib.
#include <gtest/gtest.h>

#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "rvitunes/plist/BinaryReader.h"
#include "rvitunes/plist/BinaryWriter.h"
#include "rvitunes/plist/JsonWriter.h"
#include "rvitunes/plist/PropertyList.h"
#include "rvitunes/plist/XmlReader.h"

namespace rvitunes::plist {
namespace {

const std::string kCorpus = std::string(RVITUNES_SOURCE_DIR) + "/tests/corpus/plist";

std::string slurp(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream s;
  s << in.rdbuf();
  return s.str();
}

// A parsed JSON value. Numbers keep their text: integers compare exactly by it, reals by value.
struct Json {
  enum Kind { kNull, kBool, kNumber, kString, kArray, kObject } kind = kNull;
  bool boolean = false;
  std::string text;
  std::vector<Json> items;
  std::vector<std::pair<std::string, Json>> members;
};

class JsonParser {
 public:
  explicit JsonParser(std::string_view s) : s_(s) {}

  // Fails the current test and answers null on malformed text.
  Json parse() {
    Json v = value();
    space();
    if (i_ != s_.size()) error("trailing text");
    return v;
  }

 private:
  void error(const char* what) {
    if (!failed_) ADD_FAILURE() << "JSON " << what << " at " << i_;
    failed_ = true;
    i_ = s_.size();
  }
  void space() {
    while (i_ < s_.size() && std::strchr(" \t\r\n", s_[i_]) != nullptr)
      ++i_;
  }
  bool eat(char c) {
    space();
    if (i_ < s_.size() && s_[i_] == c) return ++i_, true;
    return false;
  }
  bool word(std::string_view w) {
    if (s_.substr(i_, w.size()) != w) return false;
    i_ += w.size();
    return true;
  }
  uint32_t hex4() {
    const std::string digits(s_.substr(i_, 4));
    char* end = nullptr;
    const auto v = static_cast<uint32_t>(std::strtoul(digits.c_str(), &end, 16));
    if (digits.size() != 4 || end != digits.c_str() + 4) return error("bad \\u escape"), 0;
    i_ += 4;
    return v;
  }
  static void utf8(std::string& out, uint32_t cp) {
    if (cp < 0x80) {
      out += static_cast<char>(cp);
    } else if (cp < 0x800) {
      out += static_cast<char>(0xC0 | (cp >> 6));
      out += static_cast<char>(0x80 | (cp & 0x3F));
    } else if (cp < 0x10000) {
      out += static_cast<char>(0xE0 | (cp >> 12));
      out += static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
      out += static_cast<char>(0x80 | (cp & 0x3F));
    } else {
      out += static_cast<char>(0xF0 | (cp >> 18));
      out += static_cast<char>(0x80 | ((cp >> 12) & 0x3F));
      out += static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
      out += static_cast<char>(0x80 | (cp & 0x3F));
    }
  }
  std::string string() {
    std::string out;
    if (!eat('"')) return error("expected a string"), out;
    while (i_ < s_.size() && s_[i_] != '"') {
      if (s_[i_] != '\\') {
        out += s_[i_++];
        continue;
      }
      if (++i_ >= s_.size()) break;
      const char e = s_[i_++];
      switch (e) {
        case 'n':
          out += '\n';
          break;
        case 't':
          out += '\t';
          break;
        case 'r':
          out += '\r';
          break;
        case 'b':
          out += '\b';
          break;
        case 'f':
          out += '\f';
          break;
        case 'u': {
          uint32_t cp = hex4();
          if (cp >= 0xD800 && cp < 0xDC00 && word("\\u"))
            cp = 0x10000 + ((cp - 0xD800) << 10) + (hex4() - 0xDC00);
          utf8(out, cp);
          break;
        }
        default:
          out += e;  // '"', '\\', '/'
      }
    }
    if (!eat('"')) error("unterminated string");
    return out;
  }
  Json value() {
    Json v;
    space();
    if (i_ >= s_.size()) return error("unexpected end"), v;
    const char c = s_[i_];
    if (c == '"') {
      v.kind = Json::kString;
      v.text = string();
    } else if (c == '[') {
      v.kind = Json::kArray;
      ++i_;
      if (!eat(']')) {
        do
          v.items.push_back(value());
        while (eat(','));
        if (!eat(']')) error("expected ']'");
      }
    } else if (c == '{') {
      v.kind = Json::kObject;
      ++i_;
      if (!eat('}')) {
        do {
          std::string k = string();
          if (!eat(':')) error("expected ':'");
          v.members.emplace_back(std::move(k), value());
        } while (eat(','));
        if (!eat('}')) error("expected '}'");
      }
    } else if (word("true") || word("false")) {
      v.kind = Json::kBool;
      v.boolean = c == 't';
    } else if (word("null")) {
      v.kind = Json::kNull;
    } else {
      const size_t start = i_;
      while (i_ < s_.size() && std::strchr("+-0123456789.eE", s_[i_]) != nullptr)
        ++i_;
      if (i_ == start) error("unexpected character");
      v.kind = Json::kNumber;
      v.text = std::string(s_.substr(start, i_ - start));
    }
    return v;
  }

  std::string_view s_;
  size_t i_ = 0;
  bool failed_ = false;
};

bool isIntegerText(const std::string& t) {
  return t.find_first_of(".eE") == std::string::npos;
}

// Adds a failure naming `where` for the first difference between `a` and `b`.
bool sameJson(const Json& a, const Json& b, const std::string& where) {
  if (a.kind != b.kind) {
    ADD_FAILURE() << where << ": kinds differ";
    return false;
  }
  switch (a.kind) {
    case Json::kNull:
      return true;
    case Json::kBool:
      if (a.boolean == b.boolean) return true;
      break;
    case Json::kString:
      if (a.text == b.text) return true;
      break;
    case Json::kNumber:
      if (isIntegerText(a.text) != isIntegerText(b.text)) break;
      if (isIntegerText(a.text)
              ? a.text == b.text
              : std::strtod(a.text.c_str(), nullptr) == std::strtod(b.text.c_str(), nullptr)) {
        return true;
      }
      break;
    case Json::kArray:
      if (a.items.size() != b.items.size()) break;
      for (size_t i = 0; i < a.items.size(); ++i) {
        if (!sameJson(a.items[i], b.items[i], where + "[" + std::to_string(i) + "]")) return false;
      }
      return true;
    case Json::kObject:
      if (a.members.size() != b.members.size()) break;
      for (size_t i = 0; i < a.members.size(); ++i) {
        if (a.members[i].first != b.members[i].first) {
          ADD_FAILURE() << where << ": key " << i << " is \"" << a.members[i].first
                        << "\", expected \"" << b.members[i].first << "\"";
          return false;
        }
        if (!sameJson(a.members[i].second, b.members[i].second, where + "." + a.members[i].first)) {
          return false;
        }
      }
      return true;
  }
  ADD_FAILURE() << where << ": \"" << a.text << "\" differs from expected \"" << b.text << "\"";
  return false;
}

// The corpus cases: every NAME.json with the NAME.bplist and, where it exists, NAME.xml.
std::vector<std::string> caseNames() {
  std::vector<std::string> names;
  for (const auto& entry : std::filesystem::directory_iterator(kCorpus)) {
    if (entry.path().extension() == ".json") names.push_back(entry.path().stem().string());
  }
  std::sort(names.begin(), names.end());
  return names;
}

void expectSameValuesAsPlistlib(const ParseResult& r, const std::string& name) {
  ASSERT_TRUE(r.ok()) << r.describe();
  EXPECT_TRUE(r.warnings.empty()) << r.warnings.front().message;
  Result<std::string> ours = JsonWriter::write(r.root, 2);
  ASSERT_TRUE(ours.ok()) << ours.status().toString();
  const Json actual = JsonParser(ours.value()).parse();
  const Json expected = JsonParser(slurp(kCorpus + "/" + name + ".json")).parse();
  sameJson(actual, expected, name);
}

TEST(PlistlibInterop, BinaryFilesReadToPlistlibsValues) {
  const std::vector<std::string> names = caseNames();
  EXPECT_GE(names.size(), 8u);
  for (const auto& name : names) {
    SCOPED_TRACE(name);
    ParseResult r = PropertyList::readFile(kCorpus + "/" + name + ".bplist");
    EXPECT_EQ(r.format, Format::kBinary);
    expectSameValuesAsPlistlib(r, name);
  }
}

TEST(PlistlibInterop, XmlFilesReadToPlistlibsValues) {
  for (const auto& name : caseNames()) {
    const std::string path = kCorpus + "/" + name + ".xml";
    if (!std::filesystem::exists(path)) continue;  // binary-only cases
    SCOPED_TRACE(name);
    ParseResult r = PropertyList::readFile(path);
    EXPECT_EQ(r.format, Format::kXml);
    expectSameValuesAsPlistlib(r, name);
  }
}

TEST(PlistlibInterop, XmlAndBinaryRoundTripsKeepTheTree) {
  for (const auto& name : caseNames()) {
    const std::string path = kCorpus + "/" + name + ".xml";
    if (!std::filesystem::exists(path)) continue;
    SCOPED_TRACE(name);
    ParseResult fromXml = PropertyList::readFile(path);
    ASSERT_TRUE(fromXml.ok()) << fromXml.describe();
    ParseResult fromPython = PropertyList::readFile(kCorpus + "/" + name + ".bplist");
    ASSERT_TRUE(fromPython.ok()) << fromPython.describe();
    EXPECT_EQ(fromXml.root, fromPython.root);

    Result<std::string> binary = BinaryWriter::write(fromXml.root);
    ASSERT_TRUE(binary.ok()) << binary.status().toString();
    ParseResult back = BinaryReader::read(std::span<const uint8_t>(
        reinterpret_cast<const uint8_t*>(binary.value().data()), binary.value().size()));
    ASSERT_TRUE(back.ok()) << back.describe();
    EXPECT_EQ(back.root, fromXml.root);

    Result<std::string> xml = PropertyList::encode(back.root, OutputFormat::kXml1);
    ASSERT_TRUE(xml.ok()) << xml.status().toString();
    ParseResult again = XmlReader::read(xml.value());
    ASSERT_TRUE(again.ok()) << again.describe();
    EXPECT_EQ(again.root, fromXml.root);
  }
}

// plistlib reads what our writer makes to the values it reads from its own files. Skipped where
// python3 is missing.
TEST(PlistlibInterop, PlistlibReadsOurBinaryFiles) {
  if (std::system("python3 -c 'import plistlib' >/dev/null 2>&1") != 0) {
    GTEST_SKIP() << "python3 with plistlib is not available";
  }
  char dir[] = "/tmp/plist-interop-XXXXXX";
  ASSERT_NE(mkdtemp(dir), nullptr);
  struct Cleanup {
    std::string path;
    ~Cleanup() { std::filesystem::remove_all(path); }
  } cleanup{dir};

  // Our files first, then one python run that converts each NAME.bplist to NAME.bplist.json.
  const std::vector<std::string> names = caseNames();
  std::string command = "cd '" + kCorpus +
                        "' && PYTHONDONTWRITEBYTECODE=1 python3 -c 'import sys, json, plistlib, "
                        "make_corpus as m\n"
                        "for f in sys.argv[1:]:\n"
                        "    v = plistlib.load(open(f, \"rb\"))\n"
                        "    open(f + \".json\", \"w\").write(json.dumps(m.to_json_value(v)))'";
  for (const auto& name : names) {
    ParseResult r = PropertyList::readFile(kCorpus + "/" + name + ".bplist");
    ASSERT_TRUE(r.ok()) << name << ": " << r.describe();
    Result<std::string> binary = BinaryWriter::write(r.root);
    ASSERT_TRUE(binary.ok()) << name << ": " << binary.status().toString();
    const std::string ours = cleanup.path + "/" + name + ".bplist";
    std::ofstream(ours, std::ios::binary) << binary.value();
    command += " '" + ours + "'";
  }
  ASSERT_EQ(std::system(command.c_str()), 0) << command;
  for (const auto& name : names) {
    SCOPED_TRACE(name);
    const Json actual = JsonParser(slurp(cleanup.path + "/" + name + ".bplist.json")).parse();
    const Json expected = JsonParser(slurp(kCorpus + "/" + name + ".json")).parse();
    sameJson(actual, expected, name);
  }
}

}  // namespace
}  // namespace rvitunes::plist
