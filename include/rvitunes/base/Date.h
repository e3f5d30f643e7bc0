// A point in time as the platform keeps it: seconds since 2001-01-01 00:00:00 UTC, as a double
// ("absolute time"). Conversions to Unix time and to the 1904-based long date-time are exact for
// whole seconds.
#pragma once

#include <compare>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace rvitunes {

class Date {
 public:
  // Seconds between 1970-01-01 and 2001-01-01.
  static constexpr double kUnixToAbsolute = 978307200.0;
  // Seconds between 1904-01-01 and 2001-01-01 (the long date-time origin and absolute time).
  static constexpr int64_t kLongDateTimeToAbsolute = 3061152000;

  // 2001-01-01 00:00:00 UTC.
  constexpr Date() = default;

  static constexpr Date fromAbsoluteTime(double seconds) { return Date(seconds); }
  static constexpr Date fromUnixTime(double seconds) { return Date(seconds - kUnixToAbsolute); }
  // `seconds` since 1904-01-01 00:00:00 UTC.
  static constexpr Date fromLongDateTime(int64_t seconds) {
    return Date(static_cast<double>(seconds - kLongDateTimeToAbsolute));
  }
  // The current time from the system clock.
  static Date now();

  constexpr double absoluteTime() const { return seconds_; }
  constexpr double unixTime() const { return seconds_ + kUnixToAbsolute; }
  // Whole seconds since 1904, rounded toward negative infinity. Dates outside the 64-bit range
  // clamp to its ends; NaN gives 0 (the 1904 origin).
  int64_t longDateTime() const;

  // Parses "YYYY-MM-DDTHH:MM:SSZ" (the property-list form). When `zoneMissing` is non-null the
  // trailing 'Z' may be absent and *zoneMissing tells whether it was; otherwise it is required.
  // Fractional seconds ".123" (one digit or more) are accepted. Answers nullopt for anything
  // else, including out-of-range fields (year 0000, month 13, February 29 of a common year,
  // hour 24, second 60 or 61). Proleptic Gregorian calendar, UTC.
  static std::optional<Date> parseIso8601(std::string_view text, bool* zoneMissing = nullptr);
  // "YYYY-MM-DDTHH:MM:SSZ" in UTC, seconds rounded toward negative infinity. Dates before
  // 0001-01-01T00:00:00Z or after 9999-12-31T23:59:59Z clamp to those ends, so the text always
  // parses back; NaN gives the 2001 origin.
  std::string iso8601() const;

  friend constexpr auto operator<=>(const Date&, const Date&) = default;
  friend constexpr bool operator==(const Date&, const Date&) = default;

 private:
  constexpr explicit Date(double seconds) : seconds_(seconds) {}
  double seconds_ = 0.0;
};

}  // namespace rvitunes
