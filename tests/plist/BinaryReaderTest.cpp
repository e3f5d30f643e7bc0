#include "rvitunes/plist/BinaryReader.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <fstream>
#include <limits>
#include <map>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

#include "rvitunes/plist/Array.h"
#include "rvitunes/plist/Dictionary.h"

namespace rvitunes::plist {
namespace {

// Byte strings that may hold NULs: "\x00\x01"_b.
std::string operator""_b(const char* s, size_t n) {
  return std::string(s, n);
}

std::string corpusFile(const std::string& name) {
  std::ifstream in(std::string(RVITUNES_SOURCE_DIR) + "/tests/corpus/plist/" + name,
                   std::ios::binary);
  std::ostringstream s;
  s << in.rdbuf();
  return s.str();
}

ParseResult readBytes(const std::string& bytes, const ReadOptions& options = {}) {
  return BinaryReader::read(
      std::span<const uint8_t>(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size()),
      options);
}

// `v` as `n` big-endian bytes; bytes beyond the eighth are zero.
void putBig(std::string& out, uint64_t v, unsigned n) {
  for (unsigned i = n; i-- > 0;)
    out.push_back(i < 8 ? static_cast<char>((v >> (8 * i)) & 0xFF) : 0);
}

std::string big(uint64_t v, unsigned n) {
  std::string s;
  putBig(s, v, n);
  return s;
}

// Lays out `objects` (raw bytes, one string per object) after the header, then the offset table
// and the trailer. Any trailer field and any table entry can be overridden to break the file.
struct Crafted {
  Crafted() = default;
  explicit Crafted(std::vector<std::string> o) : objects(std::move(o)) {}

  std::vector<std::string> objects;
  unsigned offsetSize = 1;
  unsigned refSize = 1;
  std::optional<uint64_t> count;
  uint64_t top = 0;
  std::optional<uint64_t> table;
  std::map<size_t, uint64_t> offsetOf;

  std::string bytes() const {
    std::string out = "bplist00";
    std::vector<uint64_t> offsets;
    for (const auto& o : objects) {
      offsets.push_back(out.size());
      out += o;
    }
    const uint64_t tableAt = out.size();
    for (size_t i = 0; i < offsets.size(); ++i) {
      auto it = offsetOf.find(i);
      putBig(out, it != offsetOf.end() ? it->second : offsets[i], offsetSize);
    }
    out.append(6, '\0');
    out.push_back(static_cast<char>(offsetSize));
    out.push_back(static_cast<char>(refSize));
    putBig(out, count.value_or(objects.size()), 8);
    putBig(out, top, 8);
    putBig(out, table.value_or(tableAt), 8);
    return out;
  }
};

// Values are compared with plistlib's in PlistlibInteropTest; here what JSON cannot show.
TEST(BinaryReader, ReadsIntegersWrittenByPlistlib) {
  const std::string bytes = corpusFile("integers.bplist");
  ReadOptions options;
  uint64_t done = 0;
  uint64_t total = 0;
  options.progress = [&](uint64_t d, uint64_t t) { done = d, total = t; };
  ParseResult r = readBytes(bytes, options);
  ASSERT_TRUE(r.ok()) << r.describe();
  EXPECT_EQ(r.format, Format::kBinary);
  EXPECT_EQ(done, bytes.size());  // the last report is "all done"
  EXPECT_EQ(total, bytes.size());
  const Dictionary& d = *r.root.asDictionary();
  EXPECT_EQ(d.get("one byte").longLongValue(), 255);
  EXPECT_EQ(d.get("two bytes").longLongValue(), 256);
  EXPECT_EQ(d.get("four bytes max").longLongValue(), 4294967295);
  EXPECT_EQ(d.get("int64 max").longLongValue(), std::numeric_limits<int64_t>::max());
  EXPECT_EQ(d.get("int64 min").longLongValue(), std::numeric_limits<int64_t>::min());
  EXPECT_EQ(d.get("minus one").longLongValue(), -1);
  EXPECT_TRUE(d.get("above int64").isUnsigned());
  EXPECT_EQ(d.get("above int64").unsignedLongLongValue(), uint64_t{1} << 63);
  EXPECT_EQ(d.get("uint64 max").unsignedLongLongValue(), std::numeric_limits<uint64_t>::max());
  EXPECT_EQ(d.get("true"), Value::boolean(true));
  EXPECT_EQ(d.get("false"), Value::boolean(false));
}

TEST(BinaryReader, SharedContainersAreReadAsSeparateCopies) {
  ParseResult r = readBytes(corpusFile("shared.bplist"));
  ASSERT_TRUE(r.ok()) << r.describe();
  const Dictionary& d = *r.root.asDictionary();
  EXPECT_EQ(d.get("first"), d.get("second"));
  EXPECT_NE(d.get("first").asArray(), d.get("second").asArray());
}

TEST(BinaryReader, ReadsEveryMarkerKind) {
  Crafted c;
  c.objects = {
      "\xCC\x01\x02\x03\x04\x05\x06\x07\x08\x09\x0A\x0B\x0C",  // 0: a set, read as an array
      "\x14" + big(~uint64_t{0}, 8) + big(static_cast<uint64_t>(-5), 8),  // 1: 16-byte -5
      "\x22" + big(0x3FC00000, 4),                                        // 2: float 1.5
      "\x33" + big(0x41D0000000000000, 8),                  // 3: date 2^30 seconds after 2001
      std::string("\x5F\x10\x10", 3) + "sixteen chars!!!",  // 4: long ASCII string
      "\x62\xD8\x3D\xDE\x00"_b,                             // 5: U+1F600 as a surrogate pair
      "\x43\x00\xFF\x10"_b,                                 // 6: data
      "\x82\x01\x00\x00"_b,                                 // 7: 3-byte UID 65536
      "\x09",                                               // 8: true
      std::string("\xD1\x0A\x0B", 3),                       // 9: {"k": "v"}
      "\x51k",                                              // 10
      "\x51v",                                              // 11
      "\x11\x01\x00"_b,                                     // 12: 2-byte 256
  };
  ParseResult r = readBytes(c.bytes());
  ASSERT_TRUE(r.ok()) << r.describe();
  const Array& a = *r.root.asArray();
  ASSERT_EQ(a.size(), 12u);
  EXPECT_EQ(a[0].longLongValue(), -5);
  EXPECT_FALSE(a[0].isUnsigned());
  EXPECT_EQ(a[1], Value::real(1.5));
  EXPECT_EQ(a[2].dateValue().absoluteTime(), 1073741824.0);
  EXPECT_EQ(a[3].stringView(), "sixteen chars!!!");
  EXPECT_EQ(a[4].stringView(), "\xF0\x9F\x98\x80");
  EXPECT_EQ(a[5].dataView().size(), 3u);
  EXPECT_EQ(a[6].longLongValue(), 65536);
  EXPECT_EQ(a[7], Value::boolean(true));
  EXPECT_EQ(a[8].asDictionary()->get("k").stringView(), "v");
  EXPECT_EQ(a[11].longLongValue(), 256);
}

TEST(BinaryReader, RepairsTextAndDuplicateKeysWithWarnings) {
  Crafted c;
  c.objects = {
      "\xA4\x01\x02\x03\x04",
      "\x63\x00\x41\xD8\x00\x00\x42"_b,        // "A", lone high surrogate, "B"
      "\x62\xDC\x00\xD8\x00"_b,                // low before high: two lone halves
      "\x53\x61\xE9\x62",                      // "a", 0xE9, "b" in an ASCII string
      std::string("\xD2\x05\x05\x06\x07", 5),  // {"k": 1, "k": 2}
      "\x51k",
      "\x10\x01",
      "\x10\x02",
  };
  const std::string bytes = c.bytes();
  ParseResult r = readBytes(bytes);
  ASSERT_TRUE(r.ok()) << r.describe();
  const Array& a = *r.root.asArray();
  EXPECT_EQ(a[0].stringView(),
            "A\xEF\xBF\xBD"
            "B");
  EXPECT_EQ(a[1].stringView(), "\xEF\xBF\xBD\xEF\xBF\xBD");
  EXPECT_EQ(a[2].stringView(),
            "a\xEF\xBF\xBD"
            "b");
  ASSERT_EQ(a[3].asDictionary()->size(), 1u);
  EXPECT_EQ(a[3].asDictionary()->get("k").longLongValue(), 2);
  ASSERT_EQ(r.warnings.size(), 5u);
  EXPECT_EQ(r.warnings[0].offset, bytes.find("\xD8\x00\x00\x42"_b));
  EXPECT_NE(r.warnings[0].message.find("0xd800"), std::string::npos) << r.warnings[0].message;
  EXPECT_NE(r.warnings[3].message.find("ASCII"), std::string::npos);
  EXPECT_NE(r.warnings[4].message.find("duplicate"), std::string::npos);

  ReadOptions quiet;
  quiet.maxWarnings = 1;
  ParseResult capped = readBytes(bytes, quiet);
  ASSERT_EQ(capped.warnings.size(), 2u);
  EXPECT_NE(capped.warnings[1].message.find("4 more"), std::string::npos);
}

struct Hostile {
  const char* name;
  std::string bytes;
  uint64_t offset;      // where the error must point
  const char* message;  // a fragment of the error text
  ReadOptions options = {};
};

std::vector<Hostile> hostileInputs() {
  std::vector<Hostile> cases;
  auto add = [&](const char* name, const Crafted& c, uint64_t offset, const char* message) {
    cases.push_back(Hostile{name, c.bytes(), offset, message});
  };
  auto trailer = [](const Crafted& c) { return c.bytes().size() - 32; };

  const Crafted ok{{"\xA1\x01", "\x08"}};
  {
    std::string bytes = ok.bytes();
    bytes[6] = '1';
    cases.push_back(Hostile{"bad magic", bytes, 0, "bplist00"});
    cases.push_back(Hostile{"truncated trailer", ok.bytes().substr(0, 30), 30, "too short"});
    cases.push_back(Hostile{"empty", "", 0, "bplist00"});
  }
  Crafted c = ok;
  c.offsetSize = 0;
  add("offset size 0", c, trailer(c) + 6, "offset size 0");
  c = ok;
  c.offsetSize = 9;
  add("offset size 9", c, trailer(c) + 6, "offset size 9");
  c = ok;
  c.refSize = 0;
  add("ref size 0", c, trailer(c) + 7, "reference size 0");
  c = ok;
  c.count = 0;
  add("no objects", c, trailer(c) + 8, "no objects");
  c = ok;
  c.count = 1000;
  add("more objects than bytes", c, trailer(c) + 8, "cannot fit");
  c = ok;
  c.objects = {"\xA1\x01", "\x08", "\x08", "\x08"};
  c.count = 5;  // the table then reaches into the trailer
  add("table runs into the trailer", c, trailer(c) + 8, "does not fit");
  c = ok;
  c.top = 2;
  add("top object out of range", c, trailer(c) + 16, "top object 2");
  c = ok;
  c.table = 4000;
  add("table outside the file", c, trailer(c) + 24, "outside the file");
  c = ok;
  c.table = 8;
  add("table over the header", c, trailer(c) + 24, "after the header");
  c = ok;
  c.offsetOf[1] = 3;
  add("object offset inside the header", c, 11 + 1, "outside the object area");
  c = ok;
  c.offsetOf[1] = 11;
  add("object offset at the table", c, 11 + 1, "outside the object area");
  c = ok;
  c.objects[0] = "\xA1\x07";
  add("reference out of range", c, 9, "reference 7 is out of range");
  c.objects = std::vector<std::string>(300, "\x08");
  c.objects[0] = "\xA1\x01";
  add("references too narrow for the count", c, trailer(c) + 7, "cannot name 300");
  c = Crafted{{"\xA1\x00"_b}};
  add("array contains itself", c, 8, "object 0 contains itself");
  c = Crafted{{"\xA1\x01", "\xA1\x00"_b}};
  add("two-level cycle", c, 8, "object 0 contains itself");
  c = Crafted{{"\xD1\x01\x00"_b, "\x51k"}};
  add("dictionary is its own value", c, 8, "object 0 contains itself");
  c = Crafted{{"\x4F\x13" + big(uint64_t{1} << 62, 8)}};
  add("huge data length", c, 8, "runs past");
  c = Crafted{{"\x6F\x14" + big(0, 8) + big(~uint64_t{0}, 8)}};
  add("huge string length", c, 8, "runs past");
  c = Crafted{{"\xAF\x13" + big(uint64_t{1} << 40, 8)}};
  add("huge array count", c, 8, "runs past");
  c = Crafted{{"\xDF\x12" + big(1000, 4), "\x08"}};
  add("dictionary count beyond the data", c, 8, "runs past");
  c = Crafted{{"\x4F\x13" + big(~uint64_t{0}, 8)}};
  add("negative length", c, 9, "negative length");
  c = Crafted{{"\x4F\x51", "\x08"}};
  add("length is not an integer", c, 9, "not an integer");
  c = Crafted{{"\xA1\x01", "\x14" + big(1, 8) + big(0, 8)}};
  add("16-byte integer beyond 64 bits", c, 10, "does not fit");
  c = Crafted{{"\xA1\x01", "\x15" + big(1, 8)}};
  add("32-byte integer", c, 10, "unsupported size");
  c = Crafted{{"\xA1\x01", "\x13\x01\x02"}};
  add("integer cut short", c, 10, "runs past");
  c = Crafted{{"\xA1\x01", "\x24" + big(0, 8)}};
  add("real of 16 bytes", c, 10, "unsupported size");
  c = Crafted{{"\xA1\x01", "\x00"_b}};
  add("null object", c, 10, "null");
  c = Crafted{{"\xA1\x01", "\x70"}};
  add("unknown marker", c, 10, "unknown object marker 0x70");
  c = Crafted{{std::string("\xD1\x01\x02", 3), "\x10\x05", "\x08"}};
  add("integer key", c, 11, "dictionary key (object 1) is of type integer");
  c = Crafted{{"\xA1\x01", "\x89" + big(1, 2) + big(0, 8)}};
  add("UID beyond 64 bits", c, 10, "UID does not fit");

  Hostile over{"object count over the limit", ok.bytes(), trailer(ok) + 8, "exceed the limit of 1"};
  over.options.maxObjects = 1;
  cases.push_back(over);
  Hostile large{"input over the size limit", ok.bytes(), 0, "exceeds the limit"};
  large.options.maxInputBytes = 20;
  cases.push_back(large);

  // Six nested arrays under a limit of four: the fifth is refused.
  Crafted deep{{"\xA1\x01", "\xA1\x02", "\xA1\x03", "\xA1\x04", "\xA1\x05", "\xA0"}};
  Hostile tooDeep{"depth over the limit", deep.bytes(), 8 + 4 * 2, "nesting deeper than 4"};
  tooDeep.options.maxDepth = 4;
  cases.push_back(tooDeep);

  // Ten levels of arrays that each name the next level 14 times: 14^10 values from 160 bytes.
  Crafted bomb;
  for (int level = 0; level < 10; ++level) {
    bomb.objects.push_back("\xAE" + std::string(14, static_cast<char>(level + 1)));
  }
  bomb.objects.push_back("\x08");
  cases.push_back(Hostile{"shared containers unfold without bound", bomb.bytes(), 0, "unfold"});
  return cases;
}

TEST(BinaryReader, RejectsHostileInputWithTheOffendingOffset) {
  for (const Hostile& h : hostileInputs()) {
    SCOPED_TRACE(h.name);
    ParseResult r = readBytes(h.bytes, h.options);
    ASSERT_FALSE(r.ok());
    EXPECT_TRUE(r.root.isNil());
    EXPECT_NE(r.error->message.find(h.message), std::string::npos) << r.error->message;
    if (std::string(h.message) != "unfold") {
      EXPECT_EQ(r.error->offset, h.offset) << r.error->message;
    }
  }
}

TEST(BinaryReader, DepthLimitCountsNestedContainers) {
  Crafted deep{{"\xA1\x01", "\xA1\x02", "\xA1\x03", "\xA0"}};
  ReadOptions options;
  options.maxDepth = 4;
  EXPECT_TRUE(readBytes(deep.bytes(), options).ok());
  options.maxDepth = 3;
  EXPECT_FALSE(readBytes(deep.bytes(), options).ok());
}

// Every truncation and many single-byte corruptions of a real file must end in a tree or an
// error, never a crash, a hang or an error that points outside the input.
TEST(BinaryReader, SurvivesTruncationAndCorruption) {
  const std::string good = corpusFile("library.bplist");
  ASSERT_FALSE(good.empty());
  int failures = 0;
  for (size_t n = 0; n < good.size(); ++n) {
    ParseResult r = readBytes(good.substr(0, n));
    ASSERT_FALSE(r.ok()) << n;
    ASSERT_LE(r.error->offset, n);
  }
  const uint8_t replacements[] = {0x00, 0x0F, 0x5F, 0xAF, 0xDF, 0xFF};
  for (size_t i = 8; i < good.size(); ++i) {
    for (uint8_t b : replacements) {
      std::string bad = good;
      bad[i] = static_cast<char>(b);
      ParseResult r = readBytes(bad);
      if (!r.ok()) {
        ++failures;
        ASSERT_LT(r.error->offset, bad.size()) << i << " " << r.error->message;
      }
    }
  }
  EXPECT_GT(failures, 0);
}

}  // namespace
}  // namespace rvitunes::plist
