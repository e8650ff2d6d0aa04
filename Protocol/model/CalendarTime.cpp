#include "Protocol/model/CalendarTime.h"

#include "platform/clock.h"
#include "platform/local_time.h"

namespace ostrel {
namespace {

constexpr bool InRange(int value, int lowest, int highest) { return value >= lowest && value <= highest; }

/// The day is not held against its month: 31 February runs over into March, as the run-time has it.
bool FieldsInRange(const platform::LocalFields& fields) {
  return fields.year >= 1900 && InRange(fields.month, 1, 12) && InRange(fields.day, 1, 31) && InRange(fields.hour, 0, 23) &&
         InRange(fields.minute, 0, 59) && InRange(fields.second, 0, 59);
}

std::nullopt_t Failed(HRESULT* failure, HRESULT result) {
  if (failure != nullptr) *failure = result;
  return std::nullopt;
}

constexpr WORD Word(int value) { return static_cast<WORD>(value); }

}  // namespace

std::optional<CalendarTime> CalendarTime::Make(int year, int month, int day, int hour, int minute, int second, HRESULT* failure) {
  const platform::LocalFields fields{
      .year = year, .month = month, .day = day, .hour = hour, .minute = minute, .second = second, .day_of_week = 0};
  if (!FieldsInRange(fields)) return Failed(failure, E_FAIL);
  const std::optional<std::int64_t> seconds = platform::SecondsFromLocal(fields);
  if (!seconds) return Failed(failure, E_INVALIDARG);
  return CalendarTime(*seconds);
}

std::optional<CalendarTime> CalendarTime::FromFields(const SYSTEMTIME& fields, HRESULT* failure) {
  return Make(fields.wYear, fields.wMonth, fields.wDay, fields.wHour, fields.wMinute, fields.wSecond, failure);
}

CalendarTime CalendarTime::Now() { return CalendarTime(platform::UtcSeconds()); }

bool CalendarTime::ToFields(SYSTEMTIME& fields) const {
  const std::optional<platform::LocalFields> local = platform::LocalFromSeconds(seconds_);
  if (!local) return false;
  fields.wYear = Word(local->year);
  fields.wMonth = Word(local->month);
  fields.wDayOfWeek = Word(local->day_of_week);
  fields.wDay = Word(local->day);
  fields.wHour = Word(local->hour);
  fields.wMinute = Word(local->minute);
  fields.wSecond = Word(local->second);
  fields.wMilliseconds = 0;
  return true;
}

int CalendarTime::GetSecond() const {
  const auto local = platform::LocalFromSeconds(seconds_);
  return local ? local->second : -1;
}

int CalendarTime::GetMinute() const {
  const auto local = platform::LocalFromSeconds(seconds_);
  return local ? local->minute : -1;
}

int CalendarTime::GetHour() const {
  const auto local = platform::LocalFromSeconds(seconds_);
  return local ? local->hour : -1;
}

int CalendarTime::GetDay() const {
  const auto local = platform::LocalFromSeconds(seconds_);
  return local ? local->day : 0;
}

int CalendarTime::GetMonth() const {
  const auto local = platform::LocalFromSeconds(seconds_);
  return local ? local->month : 0;
}

int CalendarTime::GetYear() const {
  const auto local = platform::LocalFromSeconds(seconds_);
  return local ? local->year : 0;
}

int CalendarTime::GetDayOfWeek() const {
  const auto local = platform::LocalFromSeconds(seconds_);
  return local ? local->day_of_week + 1 : 0;
}

}  // namespace ostrel
