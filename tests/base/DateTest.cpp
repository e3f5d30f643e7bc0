#include "rvitunes/base/Date.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

namespace rvitunes {
namespace {

std::optional<double> absoluteOf(std::string_view text, bool* zoneMissing = nullptr) {
  auto date = Date::parseIso8601(text, zoneMissing);
  if (!date) return std::nullopt;
  return date->absoluteTime();
}

TEST(DateTest, OriginsConvertExactly) {
  EXPECT_EQ(Date::fromLongDateTime(3061152000).absoluteTime(), 0.0);
  EXPECT_EQ(Date::fromUnixTime(0).absoluteTime(), -978307200.0);
  EXPECT_EQ(Date::fromAbsoluteTime(-978307200).unixTime(), 0.0);
  EXPECT_EQ(Date::fromLongDateTime(0).iso8601(), "1904-01-01T00:00:00Z");
  for (int64_t seconds : {int64_t{0}, int64_t{1}, int64_t{3061152000}, int64_t{3786825600}}) {
    EXPECT_EQ(Date::fromLongDateTime(seconds).longDateTime(), seconds);
  }
}

TEST(DateTest, LongDateTimeFloorsAndClamps) {
  EXPECT_EQ(Date::fromAbsoluteTime(0.999).longDateTime(), 3061152000);
  // A fraction far below the precision of the shifted value must still round down.
  EXPECT_EQ(Date::fromAbsoluteTime(-1e-20).longDateTime(), 3061151999);
  EXPECT_EQ(Date::fromAbsoluteTime(-3061152000.5).longDateTime(), -1);
  EXPECT_EQ(Date::fromAbsoluteTime(1e300).longDateTime(), std::numeric_limits<int64_t>::max());
  EXPECT_EQ(Date::fromAbsoluteTime(-1e300).longDateTime(), std::numeric_limits<int64_t>::min());
  EXPECT_EQ(Date::fromAbsoluteTime(-INFINITY).longDateTime(), std::numeric_limits<int64_t>::min());
  EXPECT_EQ(Date::fromAbsoluteTime(NAN).longDateTime(), 0);
}

TEST(DateTest, FormatsAcrossTheCalendar) {
  EXPECT_EQ(Date::fromAbsoluteTime(-0.5).iso8601(), "2000-12-31T23:59:59Z");
  EXPECT_EQ(Date::fromUnixTime(951782400).iso8601(), "2000-02-29T00:00:00Z");
  EXPECT_EQ(Date::fromUnixTime(-1).iso8601(), "1969-12-31T23:59:59Z");
  EXPECT_EQ(Date::fromUnixTime(-62135596800).iso8601(), "0001-01-01T00:00:00Z");
  EXPECT_EQ(Date::fromUnixTime(253402300799).iso8601(), "9999-12-31T23:59:59Z");
  // Out of range and NaN stay parseable.
  EXPECT_EQ(Date::fromAbsoluteTime(-1e18).iso8601(), "0001-01-01T00:00:00Z");
  EXPECT_EQ(Date::fromAbsoluteTime(1e18).iso8601(), "9999-12-31T23:59:59Z");
  EXPECT_EQ(Date::fromAbsoluteTime(NAN).iso8601(), "2001-01-01T00:00:00Z");
}

TEST(DateTest, RoundTripsEveryFewDaysOverTenThousandYears) {
  // A step that is not a whole number of days visits every time of day and every month.
  constexpr int64_t kFirst = -62135596800 - 978307200;
  constexpr int64_t kLast = 253402300799 - 978307200;
  for (int64_t s = kFirst; s <= kLast; s += 86400 * 7 + 3601) {
    const Date date = Date::fromAbsoluteTime(static_cast<double>(s));
    const std::string text = date.iso8601();
    ASSERT_EQ(Date::parseIso8601(text), date) << text;
  }
}

TEST(DateTest, ParsesTheAcceptedForms) {
  EXPECT_EQ(absoluteOf("1970-01-01T00:00:00Z"), -978307200.0);
  EXPECT_EQ(absoluteOf("2020-02-29T12:00:00Z"), 604670400.0);
  EXPECT_EQ(absoluteOf("2000-02-29T00:00:00Z"), Date::fromUnixTime(951782400).absoluteTime());
  EXPECT_EQ(absoluteOf("2001-01-01T00:00:01.5Z"), 1.5);
  EXPECT_EQ(absoluteOf("2000-12-31T23:59:59.25Z"), -0.75);
  const auto almostOne = Date::parseIso8601("2001-01-01T00:00:00.99999999999999999999Z");
  ASSERT_TRUE(almostOne.has_value());
  EXPECT_EQ(almostOne->iso8601(), "2001-01-01T00:00:00Z");
  EXPECT_EQ(absoluteOf("0001-01-01T00:00:00Z"), -62135596800.0 - 978307200.0);

  bool zoneMissing = false;
  EXPECT_EQ(absoluteOf("2001-01-01T00:00:00", &zoneMissing), 0.0);
  EXPECT_TRUE(zoneMissing);
  EXPECT_EQ(absoluteOf("2001-01-01T00:00:00Z", &zoneMissing), 0.0);
  EXPECT_FALSE(zoneMissing);
}

TEST(DateTest, RejectsEverythingElse) {
  // The first has no zone and no out-parameter to accept that.
  for (const char* text : {"2001-01-01T00:00:00",       "",
                           "2019-02-29T00:00:00Z",      "1900-02-29T00:00:00Z",
                           "2001-04-31T00:00:00Z",      "0000-01-01T00:00:00Z",
                           "2001-13-01T00:00:00Z",      "2001-00-01T00:00:00Z",
                           "2001-01-00T00:00:00Z",      "2001-01-01T24:00:00Z",
                           "2001-01-01T00:60:00Z",      "2001-01-01T00:00:60Z",
                           "2001-01-01T00:00:61Z",      "2001-01-01 00:00:00Z",
                           "2001-1-01T00:00:00Z",       "+001-01-01T00:00:00Z",
                           "2001-01-01T00:00:00.Z",     "2001-01-01T00:00:00ZZ",
                           "2001-01-01T00:00:00+01:00", "2001-01-01T00:00:00z",
                           "2001-01-01T00:00:00Z ",     "2001-01-01T00:00",
                           "20010-01-01T00:00:00Z"}) {
    EXPECT_FALSE(Date::parseIso8601(text).has_value()) << text;
  }
  bool zoneMissing = false;
  EXPECT_FALSE(Date::parseIso8601("2019-02-29T00:00:00", &zoneMissing).has_value());
  EXPECT_FALSE(Date::parseIso8601("2001-01-01T00:00:00 ", &zoneMissing).has_value());
}

}  // namespace
}  // namespace rvitunes
