#include "simulator/MeterCalendar.h"

#include <array>

namespace ostrel::sim {
namespace {

constexpr int kDaysIn400Years = 146097;

std::int64_t FloorDiv(std::int64_t value, std::int64_t divisor) {
  const std::int64_t quotient = value / divisor;
  return value % divisor < 0 ? quotient - 1 : quotient;
}

/// Days since 1970-01-01. Years are counted from March, so that the leap day is the last of its year.
std::int64_t DayNumber(std::int64_t year, std::int64_t month, int day) {
  year += FloorDiv(month - 1, 12);
  month = month - 1 - FloorDiv(month - 1, 12) * 12 + 1;
  if (month <= 2) --year;
  const std::int64_t era = FloorDiv(year, 400);
  const std::int64_t yearOfEra = year - era * 400;
  const std::int64_t dayOfYear = (153 * (month + (month > 2 ? -3 : 9)) + 2) / 5 + day - 1;
  const std::int64_t dayOfEra = yearOfEra * 365 + yearOfEra / 4 - yearOfEra / 100 + dayOfYear;
  return era * kDaysIn400Years + dayOfEra - 719468;
}

void SetDate(std::int64_t dayNumber, CivilTime& civil) {
  const std::int64_t shifted = dayNumber + 719468;
  const std::int64_t era = FloorDiv(shifted, kDaysIn400Years);
  const std::int64_t dayOfEra = shifted - era * kDaysIn400Years;
  const std::int64_t yearOfEra = (dayOfEra - dayOfEra / 1460 + dayOfEra / 36524 - dayOfEra / 146096) / 365;
  const std::int64_t dayOfYear = dayOfEra - (365 * yearOfEra + yearOfEra / 4 - yearOfEra / 100);
  const std::int64_t marchMonth = (5 * dayOfYear + 2) / 153;
  civil.day = static_cast<int>(dayOfYear - (153 * marchMonth + 2) / 5 + 1);
  civil.month = static_cast<int>(marchMonth < 10 ? marchMonth + 3 : marchMonth - 9);
  civil.year = static_cast<int>(yearOfEra + era * 400 + (civil.month <= 2 ? 1 : 0));
  civil.weekday = static_cast<int>(dayNumber + 3 - FloorDiv(dayNumber + 3, 7) * 7) + 1;
}

bool InRange(const CivilTime& civil) { return IsDate(civil) && civil.hour <= 23 && civil.minute <= 59 && civil.second <= 59; }

}  // namespace

MeterTime FromCivil(const CivilTime& civil) {
  return DayNumber(civil.year, civil.month, civil.day) * kDay + civil.hour * 3600 + civil.minute * 60 + civil.second;
}

CivilTime ToCivil(MeterTime time) {
  const std::int64_t dayNumber = FloorDiv(time, kDay);
  const int rest = static_cast<int>(time - dayNumber * kDay);
  CivilTime civil{.hour = rest / 3600, .minute = rest / 60 % 60, .second = rest % 60};
  SetDate(dayNumber, civil);
  return civil;
}

bool IsDate(const CivilTime& civil) {
  return civil.month >= 1 && civil.month <= 12 && civil.day >= 1 && civil.day <= DaysInMonth(civil.year, civil.month);
}

int DaysInMonth(int year, int month) { return static_cast<int>(DayNumber(year, month + 1, 1) - DayNumber(year, month, 1)); }

MeterTime StartOfDay(MeterTime time) { return FloorDiv(time, kDay) * kDay; }

MeterTime StartOfMonth(MeterTime time, int offset) {
  const CivilTime civil = ToCivil(time);
  return FromCivil({.year = civil.year, .month = civil.month + offset});
}

MeterTime StartOfYear(MeterTime time, int offset) { return FromCivil({.year = ToCivil(time).year + offset}); }

std::optional<MeterTime> ParseMeterTime(std::string_view text) {
  constexpr std::string_view kPattern = "0000-00-00T00:00:00";
  if (text.size() != kPattern.size()) return std::nullopt;
  std::array<int, 6> fields{};
  std::size_t field = 0;
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (kPattern[i] == '0') {
      if (text[i] < '0' || text[i] > '9') return std::nullopt;
      fields[field] = fields[field] * 10 + (text[i] - '0');
    } else if (text[i] != kPattern[i]) {
      return std::nullopt;
    } else {
      ++field;
    }
  }
  const CivilTime civil{fields[0], fields[1], fields[2], fields[3], fields[4], fields[5]};
  if (!InRange(civil)) return std::nullopt;
  return FromCivil(civil);
}

}  // namespace ostrel::sim
