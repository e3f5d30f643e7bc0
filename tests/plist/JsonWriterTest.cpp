// The two text renderings of a tree: JSON for programs and the tree printer for people.
#include "rvitunes/plist/JsonWriter.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <string>

#include "rvitunes/plist/Array.h"
#include "rvitunes/plist/Dictionary.h"
#include "rvitunes/plist/Object.h"
#include "rvitunes/plist/TreePrinter.h"

namespace rvitunes::plist {
namespace {

std::string json(const Value& v, int indent = 0) {
  Result<std::string> r = JsonWriter::write(v, indent);
  EXPECT_TRUE(r.ok()) << r.status().toString();
  return r.ok() ? r.value() : std::string();
}

Value list(std::initializer_list<Value> items) {
  return Value(Array::create(items));
}

TEST(JsonWriter, WritesIntegersExactly) {
  EXPECT_EQ(json(list({Value::integer(std::numeric_limits<int64_t>::min()),
                       Value::integer(std::numeric_limits<int64_t>::max()),
                       Value::unsignedInteger(uint64_t{1} << 63),
                       Value::unsignedInteger(std::numeric_limits<uint64_t>::max()),
                       Value::integer(0), Value::boolean(true), Value::boolean(false)})),
            "[-9223372036854775808,9223372036854775807,9223372036854775808,"
            "18446744073709551615,0,true,false]");
}

TEST(JsonWriter, WritesRealsInTheShortestFormThatReadsBack) {
  EXPECT_EQ(json(list({Value::real(0.1), Value::real(1e300), Value::real(3.0), Value::real(-0.0),
                       Value::real(5e-324), Value::real(123456789.125)})),
            "[0.1,1e+300,3.0,-0.0,5e-324,123456789.125]");
  EXPECT_EQ(
      json(list({Value::real(std::nan("")), Value::real(std::numeric_limits<double>::infinity()),
                 Value::real(-std::numeric_limits<double>::infinity())})),
      "[\"nan\",\"inf\",\"-inf\"]");
}

TEST(JsonWriter, EscapesStringsAsJsonRequires) {
  EXPECT_EQ(json(Value::string("quote \" backslash \\ slash / tab\t nl\n")),
            "\"quote \\\" backslash \\\\ slash / tab\\u0009 nl\\u000a\"");
  EXPECT_EQ(json(Value::string(std::string_view("\x01\x1f\x7f\0", 4))),
            "\"\\u0001\\u001f\x7f\\u0000\"");
  // Well-formed UTF-8 stays as it is, astral characters included.
  EXPECT_EQ(json(Value::string("caf\xC3\xA9 \xF0\x9F\x98\x80 e\xCC\x81")),
            "\"caf\xC3\xA9 \xF0\x9F\x98\x80 e\xCC\x81\"");
  // Bytes that are not UTF-8 (a lone continuation, a cut sequence, an encoded surrogate)
  // become U+FFFD, so the output is always valid JSON text.
  EXPECT_EQ(json(Value::string("a\x80"
                               "b\xE2\x82")),
            "\"a\xEF\xBF\xBD"
            "b\xEF\xBF\xBD\xEF\xBF\xBD\"");
  EXPECT_EQ(json(Value::string("\xED\xA0\x80")), "\"\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD\"");
}

TEST(JsonWriter, WritesDatesAndDataAsText) {
  EXPECT_EQ(json(list({Value::date(Date()), Value::date(Date::fromUnixTime(-0.5)),
                       Value::data(std::string_view("hello")), Value::data(std::string_view())})),
            "[\"2001-01-01T00:00:00Z\",\"1969-12-31T23:59:59Z\",\"aGVsbG8=\",\"\"]");
}

TEST(JsonWriter, LaysOutContainersWithTheRequestedIndent) {
  Ref<Dictionary> d = Dictionary::create();
  d->set("name", Value::string("x"));
  d->set("items", list({Value::integer(1), Value::newArray(), Value::newDictionary()}));
  d->set(Value::integer(7), Value::boolean(true));  // numeric keys become their text
  EXPECT_EQ(json(Value(d)), "{\"name\":\"x\",\"items\":[1,[],{}],\"7\":true}");
  EXPECT_EQ(json(Value(d), 2),
            "{\n"
            "  \"name\": \"x\",\n"
            "  \"items\": [\n"
            "    1,\n"
            "    [],\n"
            "    {}\n"
            "  ],\n"
            "  \"7\": true\n"
            "}");
}

class Picture : public Object {
 public:
  std::string_view typeName() const override { return "image"; }
};

TEST(JsonWriter, RefusesNilObjectsAndCyclesNamingThePath) {
  Ref<Dictionary> d = Dictionary::create();
  d->set("Tracks", list({Value::integer(1), Value()}));
  Result<std::string> nil = JsonWriter::write(Value(d));
  ASSERT_FALSE(nil.ok());
  EXPECT_EQ(nil.status().code(), paramErr);
  EXPECT_NE(nil.status().message().find("Tracks[1]"), std::string::npos) << nil.status().message();

  d->set("Tracks", Value(Ref<Object>(makeRef<Picture>())));
  EXPECT_FALSE(JsonWriter::write(Value(d)).ok());

  Ref<Array> loop = Array::create();
  loop->push_back(Value(loop));
  Result<std::string> cycle = JsonWriter::write(Value(loop));
  ASSERT_FALSE(cycle.ok());
  EXPECT_NE(cycle.status().message().find("contains itself"), std::string::npos);
  loop->clear();
}

TEST(TreePrinter, PrintsAReadableDeterministicTree) {
  Ref<Dictionary> d = Dictionary::create();
  d->set("Name", Value::string("Say \"hi\"\n"));
  d->set("Count", Value::integer(-3));
  d->set("Rating", Value::real(0.1));
  d->set("Loved", Value::boolean(true));
  d->set("Added", Value::date(Date::fromUnixTime(0)));
  d->set("Art", Value::data(std::string_view("\x01\xAB", 2)));
  d->set("Items", list({Value::string("a"), Value::newDictionary()}));
  d->set("Empty", Value::newArray());
  EXPECT_EQ(TreePrinter::print(Value(d)),
            "{\n"
            "  \"Name\" => \"Say \\\"hi\\\"\\n\"\n"
            "  \"Count\" => -3\n"
            "  \"Rating\" => 0.1\n"
            "  \"Loved\" => true\n"
            "  \"Added\" => 1970-01-01T00:00:00Z\n"
            "  \"Art\" => {length = 2, bytes = 0x01ab}\n"
            "  \"Items\" => [\n"
            "    0 => \"a\"\n"
            "    1 => {}\n"
            "  ]\n"
            "  \"Empty\" => []\n"
            "}\n");
}

TEST(TreePrinter, ShortensLongDataAndSurvivesCycles) {
  const std::string bytes(100, '\x11');
  EXPECT_EQ(TreePrinter::print(Value::data(bytes)),
            "{length = 100, bytes = 0x" + std::string(48, '1') + "...}\n");
  Ref<Array> loop = Array::create();
  loop->push_back(Value(loop));
  loop->push_back(Value(Ref<Object>(makeRef<Picture>())));
  EXPECT_EQ(TreePrinter::print(Value(loop)),
            "[\n  0 => [ (contains itself) ]\n  1 => <image>\n]\n");
  loop->clear();
}

}  // namespace
}  // namespace rvitunes::plist
