// The XML reader: the whole format, the repaired defects and the structural errors.

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <string>
#include <vector>

#include "rvitunes/plist/Array.h"
#include "rvitunes/plist/Dictionary.h"
#include "rvitunes/plist/XmlReader.h"
#include "rvitunes/plist/XmlWriter.h"

namespace rvitunes::plist {
namespace {

const std::string kHead =
    "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
    "<!DOCTYPE plist PUBLIC \"-//Apple Computer//DTD PLIST 1.0//EN\" "
    "\"http://www.apple.com/DTDs/PropertyList-1.0.dtd\">\n"
    "<plist version=\"1.0\">\n";

std::string doc(const std::string& body) {
  return kHead + body + "\n</plist>\n";
}

Value readOk(const std::string& text) {
  ParseResult r = XmlReader::read(text);
  EXPECT_TRUE(r.ok()) << r.describe();
  return r.root;
}

Value only(const std::string& scalarXml) {
  Value root = readOk(doc("<array>" + scalarXml + "</array>"));
  if (!root.isArray() || root.asArray()->size() != 1) return Value();
  return (*root.asArray())[0];
}

TEST(XmlReaderFormat, ReadsALibraryShapedDocument) {
  Value root =
      readOk(doc("<dict>\n"
                 "\t<key>Major Version</key><integer>1</integer>\n"
                 "\t<key>Tracks</key>\n\t<dict>\n"
                 "\t\t<key>3067</key>\n\t\t<dict>\n"
                 "\t\t\t<key>Track ID</key><integer>3067</integer>\n"
                 "\t\t\t<key>Name</key><string>Caf\xC3\xA9 &#38; Bar</string>\n"
                 "\t\t\t<key>Explicit</key><true/>\n"
                 "\t\t\t<key>Date Added</key><date>2016-04-23T13:45:05Z</date>\n"
                 "\t\t</dict>\n\t</dict>\n"
                 "\t<key>Playlists</key>\n\t<array>\n\t\t<dict>\n"
                 "\t\t\t<key>Smart Info</key>\n\t\t\t<data>\n\t\t\tAQEAAw==\n\t\t\t</data>\n"
                 "\t\t</dict>\n\t</array>\n"
                 "</dict>"));
  ASSERT_TRUE(root.isDictionary());
  const Dictionary& top = *root.asDictionary();
  EXPECT_EQ(top.entryAt(0).key.stringView(), "Major Version");
  const Dictionary* track = top.find("Tracks")->asDictionary()->find("3067")->asDictionary();
  ASSERT_NE(track, nullptr);
  EXPECT_EQ(track->get("Track ID").longLongValue(), 3067);
  EXPECT_EQ(track->get("Name").stringView(), "Caf\xC3\xA9 & Bar");
  EXPECT_TRUE(track->get("Explicit").boolValue());
  EXPECT_EQ(track->get("Date Added").dateValue(), *Date::parseIso8601("2016-04-23T13:45:05Z"));
  const Value& smart = *(*top.find("Playlists")->asArray())[0].asDictionary()->find("Smart Info");
  ASSERT_TRUE(smart.isData());
  EXPECT_EQ(smart.dataView().size(), 4u);
  EXPECT_EQ(smart.dataView()[3], 3);
}

TEST(XmlReaderFormat, TextFormsEntitiesCdataAndComments) {
  EXPECT_EQ(only("<string>a&amp;b&lt;c&gt;d&quot;e&apos;f</string>").stringView(), "a&b<c>d\"e'f");
  EXPECT_EQ(only("<string>&#65;&#x42;&#X43;&#x1F600;</string>").stringView(),
            "ABC\xF0\x9F\x98\x80");
  EXPECT_EQ(only("<string>x<![CDATA[<&>]]>y</string>").stringView(), "x<&>y");
  EXPECT_EQ(only("<string>a<!-- hidden -->b</string>").stringView(), "ab");
  EXPECT_EQ(only("<string>one\r\ntwo\rthree</string>").stringView(), "one\ntwo\nthree");
  EXPECT_EQ(only("<string/>").stringView(), "");
  EXPECT_TRUE(only("<string></string>").isString());
  EXPECT_EQ(only("<dict/>").asDictionary()->size(), 0u);
  EXPECT_EQ(only("<array/>").asArray()->size(), 0u);
}

TEST(XmlReaderFormat, NumbersOverTheirWholeRange) {
  EXPECT_EQ(only("<integer>-9223372036854775808</integer>").longLongValue(),
            std::numeric_limits<int64_t>::min());
  Value big = only("<integer>18446744073709551615</integer>");
  EXPECT_TRUE(big.isUnsigned());
  EXPECT_EQ(big.unsignedLongLongValue(), std::numeric_limits<uint64_t>::max());
  EXPECT_EQ(only("<integer> +12 </integer>").longLongValue(), 12);
  EXPECT_EQ(only("<integer>0x1F</integer>").longLongValue(), 31);
  EXPECT_EQ(only("<real>0.1</real>").doubleValue(), 0.1);
  EXPECT_TRUE(std::isnan(only("<real>nan</real>").doubleValue()));
  EXPECT_EQ(only("<real>-inf</real>").doubleValue(), -INFINITY);
  EXPECT_EQ(only("<real>+1e3</real>").doubleValue(), 1000.0);
  EXPECT_EQ(only("<real>1e999</real>").doubleValue(), INFINITY);
  EXPECT_TRUE(only("<true></true>").boolValue());
  EXPECT_FALSE(only("<false/>").boolValue());
}

TEST(XmlReaderFormat, PrologVariantsAndBareRoot) {
  EXPECT_EQ(readOk("\xEF\xBB\xBF<plist><string>x</string></plist>").stringView(), "x");
  EXPECT_EQ(readOk("<!-- c --><?pi x?><!DOCTYPE plist [<!ENTITY e "
                   "\"v\">]><plist><integer>1</integer></plist><!-- end -->\n")
                .longLongValue(),
            1);
  EXPECT_EQ(readOk("<dict><key>a</key><integer>2</integer></dict>")
                .asDictionary()
                ->get("a")
                .longLongValue(),
            2);
}

// Each defect the player is known to write is repaired, with a warning at its offset.
TEST(XmlReaderFormat, OtherEncodingsAreReadThroughTheirUtf8Form) {
  const std::string utf8 =
      "<?xml version=\"1.0\" "
      "encoding=\"UTF-16\"?><plist><string>\xC3\xA9\xF0\x9F\x8E\xB5</string></plist>";
  std::u16string wide =
      u"<?xml version=\"1.0\" "
      u"encoding=\"UTF-16\"?><plist><string>\u00E9\U0001F3B5</string></plist>";
  std::string le("\xFF\xFE", 2);
  std::string be("\xFE\xFF", 2);
  for (char16_t c : wide) {
    le.push_back(static_cast<char>(c & 0xFF));
    le.push_back(static_cast<char>(c >> 8));
    be.push_back(static_cast<char>(c >> 8));
    be.push_back(static_cast<char>(c & 0xFF));
  }
  EXPECT_EQ(readOk(le).stringView(), "\xC3\xA9\xF0\x9F\x8E\xB5");
  EXPECT_EQ(readOk(be).stringView(), "\xC3\xA9\xF0\x9F\x8E\xB5");
  EXPECT_EQ(
      readOk(
          "<?xml version=\"1.0\" encoding=\"ISO-8859-1\"?><plist><string>caf\xE9</string></plist>")
          .stringView(),
      "caf\xC3\xA9");
  EXPECT_FALSE(XmlReader::read(utf8).ok());  // UTF-8 bytes that claim to be UTF-16
}

TEST(XmlReaderRepairs, EachDefectIsRepairedWithItsOffset) {
  struct Case {
    std::string body;    // inside <array>
    std::string expect;  // the repaired string
    std::string needle;  // where the warning must point
    std::string words;   // part of the message
  };
  const Case cases[] = {
      {"<string>a\x01z</string>", std::string("a\x01z"), "\x01", "control character"},
      {"<string>a&#1;z</string>", std::string("a\x01z"), "&#1;", "control character"},
      {"<string>a&#xD800;z</string>", "a\xEF\xBF\xBDz", "&#xD800;", "surrogate"},
      {"<string>a\xFFz</string>", "a\xEF\xBF\xBDz", "\xFF", "UTF-8"},
      {"<string>a\xC3z</string>", "a\xEF\xBF\xBDz", "\xC3", "UTF-8"},
      {"<string>a\xED\xA0\x80z</string>", "a\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBDz", "\xED",
       "UTF-8"},
      {"<string>a & b</string>", "a & b", "& b", "reference"},
  };
  for (const Case& c : cases) {
    std::string text = doc("<array>" + c.body + "</array>");
    ParseResult r = XmlReader::read(text);
    ASSERT_TRUE(r.ok()) << c.body << ": " << r.describe();
    EXPECT_EQ((*r.root.asArray())[0].stringView(), c.expect) << c.body;
    ASSERT_FALSE(r.warnings.empty()) << c.body;
    EXPECT_EQ(r.warnings[0].offset, text.find(c.needle)) << c.body;
    EXPECT_NE(r.warnings[0].message.find(c.words), std::string::npos) << r.warnings[0].message;
  }
}

// Found by fuzzing: the bytes after a malformed reference were once copied without their UTF-8
// check, so the repaired tree did not read back the same after writing.
TEST(XmlReaderRepairs, BytesAfterABadReferenceAreRepairedToo) {
  ParseResult r =
      XmlReader::read(doc("<string>&#\xFF"
                          "1;</string>"));
  ASSERT_TRUE(r.ok()) << r.describe();
  EXPECT_EQ(r.root.stringView(),
            "&#\xEF\xBF\xBD"
            "1;");
  EXPECT_GE(r.warnings.size(), 2u);
}

TEST(XmlReaderRepairs, DateWithoutZoneIsReadAsUtc) {
  std::string text = doc("<array><date>2019-08-11T15:10:14</date></array>");
  ParseResult r = XmlReader::read(text);
  ASSERT_TRUE(r.ok()) << r.describe();
  EXPECT_EQ((*r.root.asArray())[0].dateValue(), *Date::parseIso8601("2019-08-11T15:10:14Z"));
  ASSERT_EQ(r.warnings.size(), 1u);
  EXPECT_EQ(r.warnings[0].offset, text.find("<date>"));
}

// Found by fuzzing: a fraction of a second was kept on reading but the writer puts back whole
// seconds, so a file read, saved and read again gave a different tree.
TEST(XmlReaderRepairs, FractionalSecondsAreDroppedSoASaveReadsBackTheSame) {
  const std::string text = doc(
      "<array><date>2019-07-27T09:36:54.5Z</date><date>1999-12-31T23:59:59.999Z</date></array>");
  ParseResult r = XmlReader::read(text);
  ASSERT_TRUE(r.ok()) << r.describe();
  const Array& dates = *r.root.asArray();
  EXPECT_EQ(dates[0].dateValue(), *Date::parseIso8601("2019-07-27T09:36:54Z"));
  // Before 2001 the absolute time is negative: rounding down keeps the same calendar second.
  EXPECT_EQ(dates[1].dateValue(), *Date::parseIso8601("1999-12-31T23:59:59Z"));
  ASSERT_EQ(r.warnings.size(), 2u);
  EXPECT_EQ(r.warnings[0].offset, text.find("<date>"));
  EXPECT_NE(r.warnings[0].message.find("fractional"), std::string::npos);

  const auto written = XmlWriter::write(r.root, r.entityStyle);
  ASSERT_TRUE(written.ok());
  EXPECT_TRUE(XmlReader::read(*written).root == r.root);
}

TEST(XmlReaderRepairs, CleanInputHasNoWarningsAndTellsItsEntityStyle) {
  ParseResult numeric = XmlReader::read(doc("<string>R&#38;B</string>"));
  EXPECT_TRUE(numeric.warnings.empty());
  EXPECT_EQ(numeric.entityStyle, EntityStyle::kNumeric);
  EXPECT_EQ(XmlReader::read(doc("<string>R&amp;B</string>")).entityStyle, EntityStyle::kNamed);
  EXPECT_EQ(XmlReader::read(doc("<string>RB</string>")).entityStyle, EntityStyle::kNone);
}

// Broken structure is refused with the reason and the offset, and no tree.
TEST(XmlReaderErrors, StructuralErrorsGiveReasonAndOffset) {
  struct Case {
    std::string text;
    std::string at;      // the error points at the first occurrence of this
    std::string reason;  // part of the message
  };
  const Case cases[] = {
      {doc("<dict><key>a</key><string>x</dict>"), "</dict>", "expected </string>"},
      {doc("<dict><key>a</key></dict>"), "<key>", "key without a value"},
      {doc("<dict><key>a</key><key>b</key><true/></dict>"), "<key>", "key without a value"},
      {doc("<dict><string>x</string></dict>"), "<string>", "without a key"},
      {doc("<array><banana/></array>"), "<banana/>", "unknown element"},
      {doc("<array></dict>"), "</dict>", "does not close <array>"},
      {kHead + "<dict><key>a</key><integer>1</integer>", "<dict>", "end of input"},
      {kHead + "<array><string>abc", "<string>", "end of input"},
      {doc("<integer>12x</integer>"), "<integer>", "malformed integer"},
      {doc("<integer>18446744073709551616</integer>"), "<integer>", "out of range"},
      {doc("<integer>-9223372036854775809</integer>"), "<integer>", "out of range"},
      {doc("<integer></integer>"), "<integer>", "malformed integer"},
      {doc("<real>1.5.2</real>"), "<real>", "malformed real"},
      {doc("<date>2019-13-01T00:00:00Z</date>"), "<date>", "malformed date"},
      {doc("<string>a<b/>c</string>"), "<b/>", "unexpected element"},
      {doc("<key>k</key>"), "<key>", "outside of a <dict>"},
      {doc("<string>a</string><string>b</string>"), "<string>b", "more than one value"},
      {"", "", "empty input"},
      {kHead + "</plist>", "</plist>", "before any value"},
      {doc("<string>x</string>") + "junk", "junk", "unexpected text"},
      {doc("<!-- open <string>x</string>"), "<!--", "unterminated comment"},
      {doc("<string><![CDATA[x</string>"), "<![CDATA[", "unterminated CDATA"},
      {"<?xml version=\"1.0\" encoding=\"UTF-16\"?><plist/>", "encoding", "unsupported encoding"},
  };
  for (const Case& c : cases) {
    ParseResult r = XmlReader::read(c.text);
    ASSERT_FALSE(r.ok()) << c.text;
    EXPECT_TRUE(r.root.isNil());
    EXPECT_EQ(r.error->offset, c.at.empty() ? 0 : c.text.find(c.at)) << c.text << "\n"
                                                                     << r.describe();
    EXPECT_NE(r.error->message.find(c.reason), std::string::npos) << c.text << "\n" << r.describe();
  }
}

TEST(XmlReaderErrors, EveryTruncationOfAValidFileFailsCleanly) {
  std::string text =
      doc("<dict><key>a</key><array><integer>1</integer><string>x&#38;y</string>"
          "<data>AAEC</data><dict/></array><key>b</key><date>2001-01-01T00:00:00Z</date></dict>");
  ASSERT_TRUE(XmlReader::read(text).ok());
  const size_t closing = text.rfind("</plist>");
  for (size_t n = 0; n < closing; ++n) {
    // Each prefix in a buffer of its own exact size, so that a read past its end is caught.
    const std::vector<char> prefix(text.begin(), text.begin() + static_cast<ptrdiff_t>(n));
    ParseResult r = XmlReader::read(std::string_view(prefix.data(), prefix.size()));
    EXPECT_FALSE(r.ok()) << "prefix of " << n << " bytes was accepted";
    EXPECT_LE(r.error->offset, n);
  }
}

TEST(XmlReaderLimits, DepthAndSizeAreBoundedBeforeWork) {
  std::string deep;
  for (int i = 0; i < 300; ++i)
    deep += "<array>";
  for (int i = 0; i < 300; ++i)
    deep += "</array>";
  ReadOptions options;
  options.maxDepth = 256;
  ParseResult r = XmlReader::read(doc(deep), options);
  ASSERT_FALSE(r.ok());
  EXPECT_NE(r.error->message.find("nesting deeper than 256"), std::string::npos);

  options.maxInputBytes = 10;
  r = XmlReader::read(doc("<string>long enough</string>"), options);
  ASSERT_FALSE(r.ok());
  EXPECT_EQ(r.error->offset, 0u);

  ReadOptions few;
  few.maxWarnings = 2;
  r = XmlReader::read(doc("<string>\x01\x02\x03\x04</string>"), few);
  ASSERT_TRUE(r.ok());
  ASSERT_EQ(r.warnings.size(), 3u);
  EXPECT_NE(r.warnings[2].message.find("2 more warnings"), std::string::npos);
}

TEST(XmlReaderShape, DuplicateKeysKeepTheLastValueWithAWarning) {
  ParseResult r = XmlReader::read(
      doc("<dict><key>a</key><integer>1</integer><key>a</key><integer>2</integer></dict>"));
  ASSERT_TRUE(r.ok());
  EXPECT_EQ(r.root.asDictionary()->size(), 1u);
  EXPECT_EQ(r.root.asDictionary()->get("a").longLongValue(), 2);
  EXPECT_EQ(r.warnings.size(), 1u);
}

}  // namespace
}  // namespace rvitunes::plist
