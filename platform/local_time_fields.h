// Between the fields of the run-time's calendar record and ours, for the systems' halves of local time.
#pragma once

#include <time.h>

#include "platform/local_time.h"

namespace ostrel::platform {

inline constexpr int kFirstYear = 1970;
inline constexpr int kLastYear = 3000;
/// The end of year 3000 UTC, where the 64-bit time functions of Windows end.
inline constexpr std::int64_t kLastSecond = 32'535'215'999;

[[nodiscard]] inline tm ToRuntime(const LocalFields& fields) {
  tm record{};
  record.tm_year = fields.year - 1900;
  record.tm_mon = fields.month - 1;
  record.tm_mday = fields.day;
  record.tm_hour = fields.hour;
  record.tm_min = fields.minute;
  record.tm_sec = fields.second;
  return record;
}

[[nodiscard]] inline LocalFields FromRuntime(const tm& record) {
  return {.year = record.tm_year + 1900,
          .month = record.tm_mon + 1,
          .day = record.tm_mday,
          .hour = record.tm_hour,
          .minute = record.tm_min,
          .second = record.tm_sec,
          .day_of_week = record.tm_wday};
}

}  // namespace ostrel::platform
