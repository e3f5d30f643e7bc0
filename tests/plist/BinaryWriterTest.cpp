#include "rvitunes/plist/BinaryWriter.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <string>

#include "rvitunes/plist/Array.h"
#include "rvitunes/plist/BinaryReader.h"
#include "rvitunes/plist/Dictionary.h"
#include "rvitunes/plist/Object.h"

namespace rvitunes::plist {
namespace {

ParseResult readBack(const std::string& bytes) {
  return BinaryReader::read(
      std::span<const uint8_t>(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size()));
}

std::string writeOk(const Value& v) {
  Result<std::string> r = BinaryWriter::write(v);
  EXPECT_TRUE(r.ok()) << r.status().toString();
  return r.ok() ? r.value() : std::string();
}

// The trailer's field at `from` (offset size 6, reference size 7) of a written file.
unsigned trailerByte(const std::string& bytes, size_t from) {
  return static_cast<uint8_t>(bytes[bytes.size() - 32 + from]);
}

Value richTree() {
  Ref<Dictionary> root = Dictionary::create();
  Ref<Array> ints = Array::create();
  for (int64_t i :
       {int64_t{0}, int64_t{1}, int64_t{255}, int64_t{256}, int64_t{65535}, int64_t{65536},
        int64_t{4294967295}, int64_t{4294967296}, int64_t{-1}, int64_t{-256},
        std::numeric_limits<int64_t>::min(), std::numeric_limits<int64_t>::max()}) {
    ints->push_back(Value::integer(i));
  }
  ints->push_back(Value::unsignedInteger(uint64_t{1} << 63));
  ints->push_back(Value::unsignedInteger(std::numeric_limits<uint64_t>::max()));
  root->set("integers", Value(ints));

  Ref<Array> reals = Array::create();
  for (double d : {0.1, -0.0, 1e300, -2.5, 5e-324, std::numeric_limits<double>::infinity(),
                   -std::numeric_limits<double>::infinity(), std::nan("")}) {
    reals->push_back(Value::real(d));
  }
  root->set("reals", Value(reals));

  Ref<Dictionary> text = Dictionary::create();
  text->set("empty", Value::string(""));
  text->set("astral", Value::string("\xF0\x9F\x98\x80 and \xF0\x9D\x84\x9E"));
  text->set("combining", Value::string("e\xCC\x81"));
  text->set("nul inside", Value::string(std::string_view("a\0b", 3)));
  text->set("long", Value::string(std::string(70000, 'x')));
  text->set("long unicode", Value::string([] {
              std::string s;
              for (int i = 0; i < 300; ++i)
                s += "\xC3\xBC";
              return s;
            }()));
  text->set("\xE6\x9D\xB1\xE4\xBA\xAC", Value::string("key is not ASCII"));
  root->set("strings", Value(text));

  Ref<Array> other = Array::create();
  other->push_back(Value::boolean(true));
  other->push_back(Value::boolean(false));
  other->push_back(Value::date(Date::fromAbsoluteTime(-3061152000.0)));
  other->push_back(Value::date(Date::fromAbsoluteTime(12.25)));
  other->push_back(Value::data(std::string_view()));
  other->push_back(Value::data(std::string(300, '\xAB')));
  other->push_back(Value::newArray());
  other->push_back(Value::newDictionary());
  root->set("other", Value(other));

  // Deep enough and wide enough for 2-byte references and 4-byte offsets.
  Value nested = Value::string("bottom");
  for (int level = 0; level < 20; ++level) {
    Ref<Array> a = Array::create();
    a->push_back(nested);
    a->push_back(Value::integer(level));
    nested = Value(a);
  }
  root->set("nested", nested);
  Ref<Array> wide = Array::create();
  for (int i = 0; i < 1000; ++i)
    wide->push_back(Value::string("item " + std::to_string(i)));
  root->set("wide", Value(wide));
  return Value(root);
}

TEST(BinaryWriter, RoundTripsRichTrees) {
  const Value tree = richTree();
  const std::string bytes = writeOk(tree);
  ASSERT_TRUE(BinaryReader::looksBinary(
      std::span<const uint8_t>(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size())));
  ParseResult r = readBack(bytes);
  ASSERT_TRUE(r.ok()) << r.describe();
  EXPECT_TRUE(r.warnings.empty());
  EXPECT_EQ(r.root, tree);
  // Sizes and signs that equality alone would not tell apart.
  const Array& ints = *r.root.asDictionary()->get("integers").asArray();
  EXPECT_TRUE(ints[13].isUnsigned());
  EXPECT_EQ(ints[13].unsignedLongLongValue(), std::numeric_limits<uint64_t>::max());
  EXPECT_FALSE(ints[11].isUnsigned());
  EXPECT_TRUE(std::signbit(r.root.asDictionary()->get("reals").asArray()->at(1).doubleValue()));
  EXPECT_EQ(trailerByte(bytes, 6), 4u);  // over 64 KiB of objects
  EXPECT_EQ(trailerByte(bytes, 7), 2u);  // over 256 objects
}

TEST(BinaryWriter, RoundTripsScalarRootsWithMinimalSizes) {
  for (const Value& v : {Value::string("alone"), Value::integer(-7), Value::boolean(false),
                         Value::real(0.5), Value::date(Date()), Value::newArray()}) {
    const std::string bytes = writeOk(v);
    ParseResult r = readBack(bytes);
    ASSERT_TRUE(r.ok()) << r.describe();
    EXPECT_EQ(r.root, v);
    EXPECT_EQ(trailerByte(bytes, 6), 1u);
    EXPECT_EQ(trailerByte(bytes, 7), 1u);
  }
}

TEST(BinaryWriter, ChoosesTheSmallestIntegerEncoding) {
  // One-element arrays: header, array marker, reference, then the integer object.
  auto integerObject = [](const Value& v) {
    std::string bytes = writeOk(Value(Array::create({v})));
    return bytes.substr(10, bytes.size() - 10 - 32 - 2);
  };
  EXPECT_EQ(integerObject(Value::integer(255)), std::string("\x10\xFF", 2));
  EXPECT_EQ(integerObject(Value::integer(256)), std::string("\x11\x01\x00", 3));
  EXPECT_EQ(integerObject(Value::integer(65536)).size(), 5u);
  EXPECT_EQ(integerObject(Value::integer(int64_t{1} << 32)).size(), 9u);
  EXPECT_EQ(integerObject(Value::integer(-1)), "\x13" + std::string(8, '\xFF'));
  EXPECT_EQ(integerObject(Value::unsignedInteger(uint64_t{1} << 63)),
            "\x14" + std::string(8, '\0') + "\x80" + std::string(7, '\0'));
}

TEST(BinaryWriter, WritesEqualStringsAndScalarsOnce) {
  const std::string text = "a string long enough to notice when repeated";
  Ref<Array> same = Array::create();
  Ref<Array> distinct = Array::create();
  for (int i = 0; i < 100; ++i) {
    same->push_back(Value::string(text));
    same->push_back(Value::real(2.5));
    distinct->push_back(Value::string(text + std::to_string(i)));
    distinct->push_back(Value::real(2.5 + i));
  }
  const std::string shared = writeOk(Value(same));
  const std::string unshared = writeOk(Value(distinct));
  EXPECT_LT(shared.size(), 400u);
  EXPECT_GT(unshared.size(), 100 * text.size());
  EXPECT_EQ(shared.find(text), shared.rfind(text));

  // Keys share with equal values; an integer never shares with an equal real or boolean.
  Ref<Dictionary> d = Dictionary::create();
  d->set("Name", Value::string("Name"));
  d->set("one", Value::integer(1));
  d->set("true", Value::boolean(true));
  d->set("real", Value::real(1.0));
  const std::string bytes = writeOk(Value(d));
  EXPECT_EQ(bytes.find("Name"), bytes.rfind("Name"));
  ParseResult r = readBack(bytes);
  ASSERT_TRUE(r.ok());
  EXPECT_EQ(r.root, Value(d));
  EXPECT_TRUE(r.root.asDictionary()->get("true").isBoolean());
  EXPECT_TRUE(r.root.asDictionary()->get("real").isReal());
}

TEST(BinaryWriter, WritesAContainerOncePerOccurrence) {
  Ref<Array> inner = Array::create({Value::integer(1)});
  Ref<Array> outer = Array::create({Value(inner), Value(inner)});
  ParseResult r = readBack(writeOk(Value(outer)));
  ASSERT_TRUE(r.ok());
  EXPECT_EQ(r.root, Value(outer));
  EXPECT_NE(r.root.asArray()->at(0).asArray(), r.root.asArray()->at(1).asArray());
}

class Picture : public Object {
 public:
  std::string_view typeName() const override { return "image"; }
};

TEST(BinaryWriter, RefusesWhatTheFormatCannotHoldNamingThePath) {
  auto library = [](Value name) {
    Ref<Dictionary> root = Dictionary::create();
    Ref<Array> playlists = Array::create();
    for (int i = 0; i < 4; ++i) {
      Ref<Dictionary> p = Dictionary::create();
      p->set("Name", i == 3 ? name : Value::string("ok"));
      playlists->push_back(Value(p));
    }
    root->set("Playlists", Value(playlists));
    return Value(root);
  };
  Result<std::string> nil = BinaryWriter::write(library(Value()));
  ASSERT_FALSE(nil.ok());
  EXPECT_EQ(nil.status().code(), paramErr);
  EXPECT_NE(nil.status().message().find("nil"), std::string::npos);
  EXPECT_NE(nil.status().message().find("Playlists[3].Name"), std::string::npos)
      << nil.status().message();

  Result<std::string> object = BinaryWriter::write(library(Value(Ref<Object>(makeRef<Picture>()))));
  ASSERT_FALSE(object.ok());
  EXPECT_NE(object.status().message().find("Playlists[3].Name"), std::string::npos);

  Ref<Dictionary> numericKey = Dictionary::create();
  numericKey->set(Value::integer(12), Value::string("twelve"));
  Result<std::string> key = BinaryWriter::write(Value(Array::create({Value(numericKey)})));
  ASSERT_FALSE(key.ok());
  EXPECT_EQ(key.status().code(), paramErr);
  EXPECT_NE(key.status().message().find("[0]"), std::string::npos) << key.status().message();

  EXPECT_FALSE(BinaryWriter::write(Value()).ok());
}

TEST(BinaryWriter, RefusesTreesThatContainThemselves) {
  Ref<Array> loop = Array::create();
  Ref<Dictionary> d = Dictionary::create();
  d->set("back", Value(loop));
  loop->push_back(Value(d));
  Result<std::string> r = BinaryWriter::write(Value(loop));
  ASSERT_FALSE(r.ok());
  EXPECT_NE(r.status().message().find("[0].back"), std::string::npos) << r.status().message();
  d->remove("back");  // break the cycle so both are freed
}

}  // namespace
}  // namespace rvitunes::plist
