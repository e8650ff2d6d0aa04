// The record times of an energy archive, newest first. The newest is the start of the day, month or year of the meter's
// clock. A day back is 86,400 seconds, so a daylight-saving change shifts all older days by an hour; months and years go
// back by the calendar.
#pragma once

#include <cstdint>
#include <optional>

#include "Protocol/history/HistoryClasses.h"
#include "Protocol/history/HistoryTime.h"
#include "Protocol/model/CalendarTime.h"

namespace ostrel {

class RecordTimes {
 public:
  /// `count` times, starting from the meter's clock as it was read.
  RecordTimes(ArchiveStep step, const SYSTEMTIME& clock, std::uint32_t count);

  /// The next older time. False at the end of the series and at the first time that could not be worked out, which
  /// Outcome then tells.
  [[nodiscard]] bool Next(FILETIME& time);
  [[nodiscard]] TimeOutcome Outcome() const { return outcome_; }

 private:
  [[nodiscard]] TimeOutcome GoBack();
  [[nodiscard]] TimeOutcome GoBackOneDay();

  ArchiveStep step_;
  SYSTEMTIME fields_;
  std::uint32_t left_;
  bool started_ = false;
  std::optional<CalendarTime> day_;
  TimeOutcome outcome_ = TimeOutcome::Done;
};

}  // namespace ostrel
