// The XML writer: the player's layout, byte-for-byte write-back and lossless round trips.

#include <gtest/gtest.h>

#include <unistd.h>

#include <cmath>
#include <cstdlib>
#include <fstream>
#include <limits>
#include <sstream>
#include <string>

#include "rvitunes/plist/Array.h"
#include "rvitunes/plist/Dictionary.h"
#include "rvitunes/plist/PropertyList.h"
#include "rvitunes/plist/XmlReader.h"
#include "rvitunes/plist/XmlWriter.h"

namespace rvitunes::plist {
namespace {

std::string slurp(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::stringstream ss;
  ss << in.rdbuf();
  return ss.str();
}

// Reads and writes back; answers the written text.
std::string rewrite(const std::string& text) {
  ParseResult r = XmlReader::read(text);
  EXPECT_TRUE(r.ok()) << r.describe();
  EXPECT_TRUE(r.warnings.empty());
  auto out = XmlWriter::write(
      r.root, r.entityStyle == EntityStyle::kNamed ? EntityStyle::kNamed : EntityStyle::kNumeric);
  EXPECT_TRUE(out.ok()) << out.status().toString();
  return out.ok() ? out.value() : std::string();
}

size_t firstDifference(const std::string& a, const std::string& b) {
  size_t i = 0;
  while (i < a.size() && i < b.size() && a[i] == b[i])
    ++i;
  return i;
}

TEST(XmlWriterLayout, ScalarsShareTheKeyLineContainersAndDataDoNot) {
  auto rec = Dictionary::create();
  rec->set("Track ID", Value::integer(7));
  rec->set("Name", Value::string("R&B <live>"));
  rec->set("Smart Info", Value::data(std::string_view("\x01\x02\x03", 3)));
  auto items = Array::create();
  items->push_back(Value::boolean(true));
  rec->set("Items", Value(items));
  rec->set("Empty", Value::newDictionary());
  auto out = XmlWriter::write(Value(rec));
  ASSERT_TRUE(out.ok());
  const std::string expected =
      "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
      "<!DOCTYPE plist PUBLIC \"-//Apple Computer//DTD PLIST 1.0//EN\" "
      "\"http://www.apple.com/DTDs/PropertyList-1.0.dtd\">\n"
      "<plist version=\"1.0\">\n"
      "<dict>\n"
      "\t<key>Track ID</key><integer>7</integer>\n"
      "\t<key>Name</key><string>R&#38;B &#60;live&#62;</string>\n"
      "\t<key>Smart Info</key>\n"
      "\t<data>\n"
      "\tAQID\n"
      "\t</data>\n"
      "\t<key>Items</key>\n"
      "\t<array>\n"
      "\t\t<true/>\n"
      "\t</array>\n"
      "\t<key>Empty</key>\n"
      "\t<dict/>\n"
      "</dict>\n"
      "</plist>\n";
  EXPECT_EQ(out.value(), expected);
  auto named = XmlWriter::write(Value(rec), EntityStyle::kNamed);
  EXPECT_NE(named.value().find("R&amp;B &lt;live&gt;"), std::string::npos);
}

TEST(XmlWriterLayout, RefusesWhatXmlCannotHoldAndNamesWhere) {
  auto rec = Dictionary::create();
  auto list = Array::create();
  list->push_back(Value::integer(1));
  list->push_back(Value());
  rec->set("Playlists", Value(list));
  auto out = XmlWriter::write(Value(rec));
  ASSERT_FALSE(out.ok());
  EXPECT_EQ(out.status().code(), paramErr);
  EXPECT_NE(out.status().message().find("Playlists[1]"), std::string::npos)
      << out.status().message();

  auto numbered = Dictionary::create();
  numbered->set(Value::integer(3), Value::string("x"));
  EXPECT_FALSE(XmlWriter::write(Value(numbered)).ok());
}

TEST(XmlWriterRoundTrip, TheSampleLibraryWritesBackByteForByte) {
  const std::string path =
      std::string(RVITUNES_SOURCE_DIR) + "/examples/library/iTunes Music Library.xml";
  const std::string original = slurp(path);
  ASSERT_FALSE(original.empty()) << path;
  const std::string written = rewrite(original);
  EXPECT_EQ(written.size(), original.size());
  size_t at = firstDifference(written, original);
  EXPECT_EQ(at, original.size()) << "first difference at byte " << at << ": "
                                 << original.substr(at > 40 ? at - 40 : 0, 80);
}

TEST(XmlWriterRoundTrip, GeneratedLibrariesWriteBackByteForByteInBothEntityStyles) {
  const std::string generator =
      std::string(RVITUNES_SOURCE_DIR) + "/../shared/bench/gen_library.py";
  if (access(generator.c_str(), R_OK) != 0) GTEST_SKIP() << "generator not found at " << generator;
  char dir[] = "/tmp/rvitunes-writer-XXXXXX";
  ASSERT_NE(mkdtemp(dir), nullptr);
  for (const char* style : {"numeric", "named"}) {
    const std::string out = std::string(dir) + "/lib-" + style + ".xml";
    const std::string cmd = "python3 '" + generator +
                            "' --tracks 1500 --playlists 60 --seed 3 --entities " + style +
                            " --out '" + out + "'";
    ASSERT_EQ(std::system(cmd.c_str()), 0) << cmd;
    const std::string original = slurp(out);
    const std::string written = rewrite(original);
    size_t at = firstDifference(written, original);
    EXPECT_EQ(at, original.size()) << style << ": first difference at byte " << at;
    EXPECT_EQ(written.size(), original.size()) << style;
    std::remove(out.c_str());
  }
  rmdir(dir);
}

TEST(XmlWriterRoundTrip, EveryTypeSurvivesWriteAndRead) {
  auto root = Dictionary::create();
  root->set("int min", Value::integer(std::numeric_limits<int64_t>::min()));
  root->set("uint max", Value::unsignedInteger(std::numeric_limits<uint64_t>::max()));
  root->set("real", Value::real(0.1));
  root->set("tiny", Value::real(5e-324));
  root->set("nan", Value::real(NAN));
  root->set("inf", Value::real(-INFINITY));
  root->set("date", Value::date(Date::fromUnixTime(1565536214)));
  root->set("old date", Value::date(Date::fromUnixTime(-2208988800.0)));
  root->set("data", Value::data(std::string_view(
                        "\0\xFF\x10 long enough to need a second line of base64 text "
                        "in the output, so here are more bytes",
                        90)));
  root->set("cr", Value::string("carriage\rreturn\r\n"));  // found by fuzzing: CR read back as LF
  root->set("text",
            Value::string("tab\there, new\nline, \xE6\x9D\xB1\xE4\xBA\xAC, 'q' \"dq\" & < >"));
  root->set("", Value::string(""));
  auto nested = Array::create();
  nested->push_back(Value::newArray());
  nested->push_back(Value::newDictionary());
  nested->push_back(Value::boolean(false));
  root->set("nested", Value(nested));
  for (EntityStyle style : {EntityStyle::kNumeric, EntityStyle::kNamed}) {
    auto text = XmlWriter::write(Value(root), style);
    ASSERT_TRUE(text.ok());
    ParseResult back = XmlReader::read(text.value());
    ASSERT_TRUE(back.ok()) << back.describe();
    EXPECT_TRUE(back.warnings.empty());
    EXPECT_EQ(back.root, Value(root));
  }
}

TEST(XmlWriterFiles, WriteFileReplacesAtomicallyAndReadsBack) {
  char dir[] = "/tmp/rvitunes-writefile-XXXXXX";
  ASSERT_NE(mkdtemp(dir), nullptr);
  const std::string path = std::string(dir) + "/out.plist";
  auto root = Dictionary::create();
  root->set("k", Value::integer(1));
  ASSERT_TRUE(PropertyList::writeFile(path, Value(root), OutputFormat::kXml1).ok());
  root->set("k", Value::integer(2));
  ASSERT_TRUE(PropertyList::writeFile(path, Value(root), OutputFormat::kBinary1).ok());
  ParseResult back = PropertyList::readFile(path);
  ASSERT_TRUE(back.ok()) << back.describe();
  EXPECT_EQ(back.format, Format::kBinary);
  EXPECT_EQ(back.root.asDictionary()->get("k").longLongValue(), 2);
  EXPECT_FALSE(PropertyList::readFile(std::string(dir) + "/missing.plist").ok());
  EXPECT_FALSE(PropertyList::readFile(dir).ok());
  std::remove(path.c_str());
  rmdir(dir);
}

}  // namespace
}  // namespace rvitunes::plist
