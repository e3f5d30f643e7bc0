#include "rvitunes/base/Date.h"

#include <chrono>
#include <cmath>
#include <cstdio>
#include <limits>

namespace rvitunes {
namespace {

constexpr int64_t kSecondsPerDay = 86400;
constexpr int kFirstYear = 1;
constexpr int kLastYear = 9999;

constexpr int64_t floorDiv(int64_t a, int64_t b) {
  const int64_t q = a / b;
  return (a % b != 0 && (a < 0) != (b < 0)) ? q - 1 : q;
}

constexpr bool isLeapYear(int64_t year) {
  return (year % 4 == 0 && year % 100 != 0) || year % 400 == 0;
}

constexpr int daysInMonth(int64_t year, int month) {
  constexpr int kDays[12] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
  return month == 2 && isLeapYear(year) ? 29 : kDays[month - 1];
}

// Days before the first of `month` in a year, counting February as 28 days.
constexpr int kDaysBeforeMonth[12] = {0, 31, 59, 90, 120, 151, 181, 212, 243, 273, 304, 334};

// Days from 0001-01-01 to 1970-01-01 in the proleptic Gregorian calendar.
constexpr int64_t kOrdinalOfUnixEpoch = 719162;
// Days in one full 400-year cycle, 100-year and 4-year runs within it.
constexpr int64_t kDaysPer400Years = 146097;
constexpr int64_t kDaysPer100Years = 36524;
constexpr int64_t kDaysPer4Years = 1461;

// Days from 1970-01-01 to the given proleptic Gregorian date (negative before it).
constexpr int64_t daysFromCivil(int64_t year, int month, int day) {
  const int64_t y = year - 1;
  const int64_t daysBeforeYear = 365 * y + floorDiv(y, 4) - floorDiv(y, 100) + floorDiv(y, 400);
  int64_t dayOfYear = kDaysBeforeMonth[month - 1] + (day - 1);
  if (month > 2 && isLeapYear(year)) ++dayOfYear;
  return daysBeforeYear + dayOfYear - kOrdinalOfUnixEpoch;
}

struct CivilDate {
  int64_t year;
  int month;
  int day;
};

constexpr CivilDate civilFromDays(int64_t daysSinceUnixEpoch) {
  int64_t n = daysSinceUnixEpoch + kOrdinalOfUnixEpoch;  // days since 0001-01-01
  const int64_t cycles = floorDiv(n, kDaysPer400Years);
  n -= cycles * kDaysPer400Years;
  // The last century, 4-year run and year of a cycle are one day longer than the others; the
  // caps keep the final day of each in place.
  int64_t centuries = n / kDaysPer100Years;
  if (centuries == 4) centuries = 3;
  n -= centuries * kDaysPer100Years;
  const int64_t quads = n / kDaysPer4Years;
  n -= quads * kDaysPer4Years;
  int64_t years = n / 365;
  if (years == 4) years = 3;
  n -= years * 365;

  const int64_t year = 1 + cycles * 400 + centuries * 100 + quads * 4 + years;
  int month = 1;
  while (month < 12 && n >= daysInMonth(year, month)) {
    n -= daysInMonth(year, month);
    ++month;
  }
  return {year, month, static_cast<int>(n) + 1};
}

static_assert(daysFromCivil(1970, 1, 1) == 0);
static_assert(daysFromCivil(2001, 1, 1) * kSecondsPerDay == 978307200);
static_assert(daysFromCivil(1904, 1, 1) * kSecondsPerDay == 978307200 - 3061152000);
static_assert(civilFromDays(daysFromCivil(2000, 2, 29)).day == 29);

// Whole seconds relative to 2001 that iso8601() can show.
constexpr int64_t kFirstIsoSecond =
    daysFromCivil(kFirstYear, 1, 1) * kSecondsPerDay - static_cast<int64_t>(Date::kUnixToAbsolute);
constexpr int64_t kLastIsoSecond = (daysFromCivil(kLastYear, 12, 31) + 1) * kSecondsPerDay - 1 -
                                   static_cast<int64_t>(Date::kUnixToAbsolute);

// Reads exactly `count` decimal digits at `pos`.
bool readDigits(std::string_view text, size_t pos, size_t count, int* out) {
  if (pos + count > text.size()) return false;
  int value = 0;
  for (size_t i = pos; i < pos + count; ++i) {
    const char c = text[i];
    if (c < '0' || c > '9') return false;
    value = value * 10 + (c - '0');
  }
  *out = value;
  return true;
}

}  // namespace

Date Date::now() {
  const auto sinceEpoch = std::chrono::system_clock::now().time_since_epoch();
  const auto micros = std::chrono::duration_cast<std::chrono::microseconds>(sinceEpoch).count();
  return fromUnixTime(static_cast<double>(micros) / 1e6);
}

int64_t Date::longDateTime() const {
  if (std::isnan(seconds_)) return 0;
  // Floor before shifting the origin, so that a tiny negative fraction is not absorbed by the
  // addition.
  const double whole = std::floor(seconds_);
  constexpr double kLimit = 9223372036854775808.0;  // 2^63
  constexpr int64_t kMax = std::numeric_limits<int64_t>::max();
  constexpr int64_t kMin = std::numeric_limits<int64_t>::min();
  if (whole >= kLimit) return kMax;
  if (whole < -kLimit) return kMin;
  const auto w = static_cast<int64_t>(whole);
  if (w > kMax - kLongDateTimeToAbsolute) return kMax;
  return w + kLongDateTimeToAbsolute;
}

std::optional<Date> Date::parseIso8601(std::string_view text, bool* zoneMissing) {
  // Fixed layout: YYYY-MM-DDTHH:MM:SS, then an optional fraction and the zone.
  int year = 0, month = 0, day = 0, hour = 0, minute = 0, second = 0;
  if (!readDigits(text, 0, 4, &year) || text.size() < 19 || text[4] != '-' ||
      !readDigits(text, 5, 2, &month) || text[7] != '-' || !readDigits(text, 8, 2, &day) ||
      text[10] != 'T' || !readDigits(text, 11, 2, &hour) || text[13] != ':' ||
      !readDigits(text, 14, 2, &minute) || text[16] != ':' || !readDigits(text, 17, 2, &second)) {
    return std::nullopt;
  }
  if (year < kFirstYear || month < 1 || month > 12 || day < 1 || day > daysInMonth(year, month) ||
      hour > 23 || minute > 59 || second > 59) {
    return std::nullopt;
  }

  size_t pos = 19;
  double fraction = 0.0;
  if (pos < text.size() && text[pos] == '.') {
    ++pos;
    const size_t firstDigit = pos;
    double scale = 0.1;
    while (pos < text.size() && text[pos] >= '0' && text[pos] <= '9') {
      fraction += (text[pos] - '0') * scale;
      scale /= 10;
      ++pos;
    }
    if (pos == firstDigit) return std::nullopt;
    // Summing many nines can round up to a whole second; keep the fraction below one.
    if (fraction >= 1.0) fraction = std::nextafter(1.0, 0.0);
  }

  bool missing = true;
  if (pos < text.size() && text[pos] == 'Z') {
    missing = false;
    ++pos;
  }
  if (pos != text.size()) return std::nullopt;
  if (missing && zoneMissing == nullptr) return std::nullopt;
  if (zoneMissing != nullptr) *zoneMissing = missing;

  const int64_t unixSeconds =
      daysFromCivil(year, month, day) * kSecondsPerDay + hour * 3600 + minute * 60 + second;
  const int64_t absoluteSeconds = unixSeconds - static_cast<int64_t>(kUnixToAbsolute);
  return Date(static_cast<double>(absoluteSeconds) + fraction);
}

std::string Date::iso8601() const {
  int64_t seconds = 0;
  if (std::isnan(seconds_)) {
    seconds = 0;
  } else if (seconds_ <= static_cast<double>(kFirstIsoSecond)) {
    seconds = kFirstIsoSecond;
  } else if (seconds_ >= static_cast<double>(kLastIsoSecond)) {
    seconds = kLastIsoSecond;
  } else {
    seconds = static_cast<int64_t>(std::floor(seconds_));
  }
  const int64_t unixSeconds = seconds + static_cast<int64_t>(kUnixToAbsolute);
  const int64_t days = floorDiv(unixSeconds, kSecondsPerDay);
  const int64_t secondOfDay = unixSeconds - days * kSecondsPerDay;
  const CivilDate date = civilFromDays(days);

  char buffer[32];
  std::snprintf(buffer, sizeof buffer, "%04d-%02d-%02dT%02d:%02d:%02dZ",
                static_cast<int>(date.year), date.month, date.day,
                static_cast<int>(secondOfDay / 3600), static_cast<int>(secondOfDay / 60 % 60),
                static_cast<int>(secondOfDay % 60));
  return buffer;
}

}  // namespace rvitunes
