// Instants and spans in seconds with calendar construction in local time.
#pragma once

#include <compare>
#include <cstdint>
#include <optional>

#include "platform/variant.h"

namespace ostrel {

class TimeSpan {
 public:
  constexpr explicit TimeSpan(std::int64_t seconds) : seconds_(seconds) {}
  constexpr TimeSpan(std::int64_t days, std::int64_t hours, std::int64_t minutes, std::int64_t seconds)
      : seconds_(((days * 24 + hours) * 60 + minutes) * 60 + seconds) {}
  [[nodiscard]] constexpr std::int64_t Seconds() const { return seconds_; }
  constexpr auto operator<=>(const TimeSpan&) const = default;

 private:
  std::int64_t seconds_;
};

/// An instant, read back through the computer's time zone. Construction from fields can fail, so it is a function that
/// may give nothing: a field out of range (COM 0x80004005) or a time the run-time cannot represent (COM 0x80070057).
class CalendarTime {
 public:
  constexpr explicit CalendarTime(std::int64_t seconds) : seconds_(seconds) {}

  /// `failure`, if given, takes the COM result of a construction that failed.
  [[nodiscard]] static std::optional<CalendarTime> Make(int year, int month, int day, int hour, int minute, int second,
                                                        HRESULT* failure = nullptr);
  [[nodiscard]] static std::optional<CalendarTime> FromFields(const SYSTEMTIME& fields, HRESULT* failure = nullptr);
  /// The computer's current time.
  [[nodiscard]] static CalendarTime Now();

  /// False, with nothing written, when the run-time cannot convert.
  [[nodiscard]] bool ToFields(SYSTEMTIME& fields) const;
  [[nodiscard]] constexpr std::int64_t Seconds() const { return seconds_; }

  [[nodiscard]] int GetSecond() const;     // -1 on failure
  [[nodiscard]] int GetMinute() const;     // -1 on failure
  [[nodiscard]] int GetHour() const;       // -1 on failure
  [[nodiscard]] int GetDay() const;        // 0 on failure
  [[nodiscard]] int GetMonth() const;      // 1..12, 0 on failure
  [[nodiscard]] int GetYear() const;       // 0 on failure
  [[nodiscard]] int GetDayOfWeek() const;  // 1 = Sunday, 0 on failure

  CalendarTime& operator+=(TimeSpan span) {
    seconds_ += span.Seconds();
    return *this;
  }
  CalendarTime& operator-=(TimeSpan span) {
    seconds_ -= span.Seconds();
    return *this;
  }
  friend CalendarTime operator+(CalendarTime time, TimeSpan span) { return time += span; }
  friend CalendarTime operator-(CalendarTime time, TimeSpan span) { return time -= span; }
  friend TimeSpan operator-(CalendarTime left, CalendarTime right) { return TimeSpan(left.seconds_ - right.seconds_); }
  constexpr auto operator<=>(const CalendarTime&) const = default;

 private:
  std::int64_t seconds_;
};

}  // namespace ostrel
