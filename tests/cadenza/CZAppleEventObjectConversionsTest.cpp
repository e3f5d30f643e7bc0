// CZAppleEventObject conversions, end to end through a recording player: the value read from
// each kind of reply, the presets and failure results, the log lines, and the descriptors the
// writes send.
#include <gtest/gtest.h>

#include <cmath>
#include <fstream>
#include <limits>
#include <memory>
#include <string>
#include <vector>

#include "RecordingPlayer.h"
#include "rvitunes/ae/Build.h"
#include "rvitunes/ae/Coercion.h"
#include "rvitunes/ae/FileReference.h"
#include "rvitunes/ae/Printer.h"
#include "rvitunes/base/Url.h"
#include "rvitunes/cadenza/CZAppleEventObject.h"

namespace rvitunes {
namespace {

using ae::Descriptor;
using ae::printDesc;
using cadenza_testing::bytesDesc;
using cadenza_testing::item;
using cadenza_testing::LogCapture;
using cadenza_testing::RecordingPlayer;
using cadenza_testing::ScratchDirectory;
using cadenza_testing::valueOf;
using Lines = std::vector<std::string>;

constexpr OSType kName = fourCharCode("pnam");
constexpr OSType kLocation = fourCharCode("pLoc");
constexpr OSType kModified = fourCharCode("asmo");

Descriptor trackSpecifier() {
  Descriptor out;
  EXPECT_EQ(ae::buildDesc(&out, nullptr, "obj { form:indx, want:type(cTrk), seld:3, from:null() }"),
            noErr);
  return out;
}

// A version record: 4-byte version, region 0, then the short and long strings as Pascal strings.
std::string versionRecord(std::string_view shortVersion, std::string_view longVersion) {
  std::string record("\x07\x60\x80\x00\x00\x00", 6);
  record.push_back(static_cast<char>(shortVersion.size()));
  record.append(shortVersion);
  record.push_back(static_cast<char>(longVersion.size()));
  record.append(longVersion);
  return record;
}

class ConversionsTest : public ::testing::Test {
 protected:
  // The property the last event asked for.
  std::string askedProperty() const {
    return printDesc(item(item(player_.last(), "----"), "seld"));
  }

  RecordingPlayer player_;
  LogCapture log_;
  std::shared_ptr<CZAppleEventObject> track_ =
      std::make_shared<CZAppleEventObject>(trackSpecifier(), iTunesSignature);
  std::shared_ptr<CZAppleEventObject> nowhere_ =
      std::make_shared<CZAppleEventObject>(Descriptor(), fourCharCode("zzQ9"));
};

TEST_F(ConversionsTest, NumbersAndCodesWithTheirPresets) {
  player_.answer(Descriptor::makeEnum(fourCharCode("kPSP")));
  EXPECT_EQ(track_->getPropertyAsEnumForDesc(fourCharCode("pPlS")), fourCharCode("kPSP"));
  EXPECT_EQ(player_.printed().back(),
            "'core'\\'getd'{ '----':'obj '{ 'form':'prop', 'want':type('prop'), "
            "'seld':type('pPlS'), 'from':'obj '{ 'form':'indx', 'want':type('cTrk'), 'seld':3, "
            "'from':null() } } }");
  player_.answer(Descriptor::makeSInt32(-7));
  EXPECT_EQ(track_->getPropertyAsIntegerForDesc(fourCharCode("pDur")), -7);
  player_.answer(Descriptor::makeSInt64(int64_t{1} << 40));
  EXPECT_EQ(track_->getPropertyAsLongIntegerForDesc(fourCharCode("pSiz")), int64_t{1} << 40);
  EXPECT_TRUE(log_.lines().empty());

  // A reply without a value: the enumeration's preset is the stopped state.
  player_.fail(errAENoSuchObject);
  EXPECT_EQ(track_->getPropertyAsEnumForDesc(fourCharCode("pPlS")), fourCharCode("kPSS"));
  EXPECT_EQ(track_->getPropertyAsIntegerForDesc(fourCharCode("pDur")), -1);
  EXPECT_EQ(track_->getPropertyAsLongIntegerForDesc(fourCharCode("pSiz")), -1);
  EXPECT_EQ(log_.lines(), Lines(3, "Error extracting parameters from reply: -1701"));

  // No reply at all.
  EXPECT_EQ(nowhere_->getPropertyAsEnumForDesc(fourCharCode("pPlS")), 0xFFFFFFFFu);
  EXPECT_EQ(nowhere_->getPropertyAsIntegerForDesc(fourCharCode("pDur")), -1);
  EXPECT_EQ(nowhere_->getPropertyAsLongIntegerForDesc(fourCharCode("pSiz")), -1);
}

TEST_F(ConversionsTest, StringsFromEachReplyType) {
  struct Case {
    const char* name;
    Descriptor reply;
    std::optional<std::string> expected;
  };
  // UTF-16 in host order with one stray byte at the end: the unit pairs are read, the byte is
  // not.
  const std::string oddUnicode("A\0B\0C", 5);
  Case cases[] = {
      {"TEXT", bytesDesc(ae::typeChar, "Kind of Blue"), "Kind of Blue"},
      {"empty TEXT", bytesDesc(ae::typeChar, ""), ""},
      {"TEXT outside ASCII", bytesDesc(ae::typeChar, "Caf\xC3\xA9"), std::nullopt},
      {"utxt",
       Descriptor::makeUnicodeText("Gr\xC3\xBC\xC3\x9F"
                                   "e \xF0\x9F\x8E\xB5"),
       "Gr\xC3\xBC\xC3\x9F"
       "e \xF0\x9F\x8E\xB5"},
      {"empty utxt", bytesDesc(ae::typeUnicodeText, ""), ""},
      {"utxt of odd size", bytesDesc(ae::typeUnicodeText, oddUnicode), "AB"},
      {"utxt with an unpaired surrogate",
       bytesDesc(ae::typeUnicodeText, std::string("\x00\xD8x\0", 4)), "\xEF\xBF\xBDx"},
      {"vers, read as utxt", bytesDesc(ae::typeVersion, versionRecord("7.6", "7.6, Apple")), "7.6"},
      {"any other type", Descriptor::makeSInt32(5), std::nullopt},
  };
  for (Case& c : cases) {
    SCOPED_TRACE(c.name);
    player_.answer(std::move(c.reply));
    EXPECT_EQ(track_->getPropertyAsStringForDesc(kName), c.expected);
  }
  EXPECT_EQ(askedProperty(), "type('pnam')");
  EXPECT_TRUE(log_.lines().empty());

  player_.fail(errAENoSuchObject);
  EXPECT_EQ(track_->getPropertyAsStringForDesc(kName), std::nullopt);
  // A version record too short to hold its short string cannot be read as text.
  player_.answer(bytesDesc(ae::typeVersion, "\x07\x60"));
  EXPECT_EQ(track_->getPropertyAsStringForDesc(kName), std::nullopt);
  EXPECT_EQ(log_.lines(), (Lines{"Unable to find length of reply string: -1701",
                                 "Unable to get coerce type of reply: -1700"}));
  EXPECT_EQ(nowhere_->getPropertyAsStringForDesc(kName), std::nullopt);
}

TEST_F(ConversionsTest, VersionReadsTheShortStringOfTheVersProperty) {
  // Whatever is asked for, 'vers' is read; the text runs to the first zero byte, so without one
  // the long string comes along behind its length byte.
  player_.answer(bytesDesc(ae::typeVersion, versionRecord("7.6", "7.6, Apple")));
  EXPECT_EQ(track_->getPropertyAsVersionForDesc(kName), "7.6\n7.6, Apple");
  EXPECT_EQ(askedProperty(), "type('vers')");

  player_.answer(bytesDesc(ae::typeVersion, versionRecord("10.1", "")));
  EXPECT_EQ(track_->getPropertyAsVersionForDesc(kName), "10.1");
  player_.answer(bytesDesc(ae::typeVersion, std::string("\x07\x60\x80\x00\x00\x00\x00", 7)));
  EXPECT_EQ(track_->getPropertyAsVersionForDesc(kName), "");
  EXPECT_TRUE(log_.lines().empty());

  player_.answer(bytesDesc(ae::typeChar, "7.6"));
  EXPECT_EQ(track_->getPropertyAsVersionForDesc(kName), std::nullopt);
  player_.fail(errAENoSuchObject);
  EXPECT_EQ(track_->getPropertyAsVersionForDesc(kName), std::nullopt);
  EXPECT_EQ(log_.lines(), (Lines{"Unable to get parameter of reply: -1700",
                                 "Unable to find length of reply string: -1701"}));
  EXPECT_EQ(nowhere_->getPropertyAsVersionForDesc(kName), std::nullopt);
}

// An object whose location URL is fixed, to see how the path is taken from it.
class FixedLocation : public CZAppleEventObject {
 public:
  explicit FixedLocation(std::optional<std::string> url) : url_(std::move(url)) {}
  std::optional<std::string> getPropertyAsPathURLForDesc(OSType) override { return url_; }

 private:
  std::optional<std::string> url_;
};

TEST_F(ConversionsTest, PathsAndUrlsFromFileReferences) {
  ScratchDirectory dir;
  const std::string file = dir.path() + "/So What.mp3";
  std::ofstream(file) << "ID3";

  auto reference = ae::makeFileReferenceDesc(file);
  ASSERT_TRUE(reference.ok()) << reference.status().toString();
  player_.answer(std::move(*reference));
  EXPECT_EQ(track_->getPropertyAsPathURLForDesc(kLocation),
            "file://" + dir.path() + "/So%20What.mp3");
  EXPECT_EQ(track_->getPropertyAsPathForDesc(kLocation), file);
  EXPECT_EQ(askedProperty(), "type('pLoc')");

  // A directory's URL ends with a slash, its path does not; a file URL reply is converted.
  player_.answer(ae::makeFileReferenceDesc(dir.path()).value());
  EXPECT_EQ(track_->getPropertyAsPathURLForDesc(kLocation), "file://" + dir.path() + "/");
  player_.answer(ae::makeFileURLDesc(file));
  EXPECT_EQ(track_->getPropertyAsPathForDesc(kLocation), file);
  EXPECT_TRUE(log_.lines().empty());

  // A reference to a file that is gone, and a reply without one.
  player_.answer(ae::makeFileReferenceDesc(file).value());
  std::filesystem::remove(file);
  EXPECT_EQ(track_->getPropertyAsPathURLForDesc(kLocation), std::nullopt);
  EXPECT_EQ(track_->getPropertyAsPathForDesc(kLocation), std::nullopt);
  player_.fail(errAENoSuchObject);
  EXPECT_EQ(track_->getPropertyAsPathURLForDesc(kLocation), std::nullopt);
  EXPECT_EQ(log_.lines(), Lines{"Error extracting parameters from reply: -1701"});
  EXPECT_EQ(nowhere_->getPropertyAsPathForDesc(kLocation), std::nullopt);

  // Only a file URL has a path.
  FixedLocation web(std::string("http://example.com/So%20What.mp3"));
  EXPECT_EQ(web.getPropertyAsPathURLForDesc(kLocation), "http://example.com/So%20What.mp3");
  EXPECT_EQ(web.getPropertyAsPathForDesc(kLocation), std::nullopt);
  EXPECT_EQ(FixedLocation(std::string("not a url")).getPropertyAsPathForDesc(kLocation),
            std::nullopt);
}

TEST_F(ConversionsTest, DatesCountFrom1904) {
  player_.answer(Descriptor::makeLongDateTime(Date::kLongDateTimeToAbsolute + 90));
  EXPECT_EQ(track_->getPropertyAsDateForDesc(kModified), Date::fromAbsoluteTime(90));
  player_.answer(Descriptor::makeLongDateTime(0));
  EXPECT_EQ(track_->getPropertyAsDateForDesc(kModified)->iso8601(), "1904-01-01T00:00:00Z");
  EXPECT_EQ(askedProperty(), "type('asmo')");

  // Without a date in the reply the read still answers, from the 1904 origin.
  player_.fail(errAENoSuchObject);
  EXPECT_EQ(track_->getPropertyAsDateForDesc(kModified),
            Date::fromAbsoluteTime(-static_cast<double>(Date::kLongDateTimeToAbsolute)));
  EXPECT_EQ(log_.lines(), Lines{"Error extracting parameters from reply: -1701"});
  EXPECT_EQ(nowhere_->getPropertyAsDateForDesc(kModified), std::nullopt);
}

TEST_F(ConversionsTest, WritesSendTheirValueDescriptor) {
  auto sentValue = [&] { return item(player_.last(), "data").duplicate(); };

  EXPECT_TRUE(track_->setPropertyWithIntegerForDesc(-5, fourCharCode("pVol")));
  EXPECT_FALSE(player_.lastWantedReply());
  EXPECT_EQ(player_.printed().back(),
            "'core'\\'setd'{ 'data':-5, '----':'obj '{ 'form':'prop', 'want':type('prop'), "
            "'seld':type('pVol'), 'from':'obj '{ 'form':'indx', 'want':type('cTrk'), 'seld':3, "
            "'from':null() } } }");
  EXPECT_EQ(sentValue().type(), ae::typeSInt32);

  EXPECT_TRUE(track_->setPropertyWithLongIntegerForDesc(int64_t{-1} << 40, fourCharCode("pSiz")));
  EXPECT_EQ(sentValue().type(), ae::typeSInt64);
  EXPECT_EQ(valueOf<int64_t>(sentValue()), int64_t{-1} << 40);

  EXPECT_TRUE(track_->setPropertyWithStringForDesc("Fl\xC3\xA4mingo \xF0\x9F\x8E\xB5", kName));
  EXPECT_EQ(sentValue().type(), ae::typeUnicodeText);
  EXPECT_EQ(ae::utf16HostToUtf8(sentValue().data()), "Fl\xC3\xA4mingo \xF0\x9F\x8E\xB5");
  EXPECT_EQ(sentValue().dataSize(), 22u);  // nine units and a surrogate pair

  EXPECT_TRUE(track_->setPropertyWithStringForDesc("", kName));
  EXPECT_EQ(printDesc(sentValue()), "'utxt'()");

  // Seconds before the 2001 origin round down to whole seconds since 1904.
  EXPECT_TRUE(track_->setPropertyWithDateForDesc(Date::fromAbsoluteTime(-0.5), kModified));
  EXPECT_EQ(sentValue().type(), ae::typeLongDateTime);
  EXPECT_EQ(valueOf<int64_t>(sentValue()), Date::kLongDateTimeToAbsolute - 1);
  EXPECT_TRUE(log_.lines().empty());
  EXPECT_EQ(player_.count(), 5u);

  // A date without a long date-time is not sent; an unreachable player fails the write.
  EXPECT_FALSE(track_->setPropertyWithDateForDesc(
      Date::fromAbsoluteTime(std::numeric_limits<double>::quiet_NaN()), kModified));
  EXPECT_EQ(log_.lines(), Lines{"Error converting Date: -50"});
  EXPECT_EQ(player_.count(), 5u);
  EXPECT_FALSE(nowhere_->setPropertyWithIntegerForDesc(1, fourCharCode("pVol")));
  EXPECT_FALSE(nowhere_->setPropertyWithLongIntegerForDesc(1, fourCharCode("pSiz")));
  EXPECT_FALSE(nowhere_->setPropertyWithStringForDesc("x", kName));
  EXPECT_FALSE(nowhere_->setPropertyWithDateForDesc(Date(), kModified));
  EXPECT_TRUE(log_.contains("Error sending Apple Event: -600"));
}

}  // namespace
}  // namespace rvitunes
