#include "Protocol/history/RecordTimes.h"

namespace ostrel {
namespace {

SYSTEMTIME NewestRecord(ArchiveStep step, const SYSTEMTIME& clock) {
  SYSTEMTIME fields = StartOfDay(clock);
  if (step != ArchiveStep::Day) fields.wDay = 1;
  if (step == ArchiveStep::Year) fields.wMonth = 1;
  return fields;
}

}  // namespace

RecordTimes::RecordTimes(ArchiveStep step, const SYSTEMTIME& clock, std::uint32_t count)
    : step_(step), fields_(NewestRecord(step, clock)), left_(count) {}

// The newest time is converted before any calendar is asked about it, so that a meter clock with an impossible date ends
// the series like any other failed conversion.
bool RecordTimes::Next(FILETIME& time) {
  if (left_ == 0) return false;
  if (started_) outcome_ = GoBack();
  started_ = true;
  if (outcome_ == TimeOutcome::Done && !platform::FieldsToFileTime(fields_, time)) outcome_ = TimeOutcome::NotConvertible;
  left_ = outcome_ == TimeOutcome::Done ? left_ - 1 : 0;
  return outcome_ == TimeOutcome::Done;
}

TimeOutcome RecordTimes::GoBack() {
  switch (step_) {
    case ArchiveStep::Day:
      return GoBackOneDay();
    case ArchiveStep::Month:
      if (--fields_.wMonth == 0) {
        fields_.wMonth = 12;
        --fields_.wYear;
      }
      break;
    case ArchiveStep::Year:
      --fields_.wYear;
      break;
  }
  return TimeOutcome::Done;
}

TimeOutcome RecordTimes::GoBackOneDay() {
  if (!day_) day_ = CalendarTime::FromFields(fields_);
  if (!day_) return TimeOutcome::NotConstructible;
  *day_ -= TimeSpan(1, 0, 0, 0);
  return day_->ToFields(fields_) ? TimeOutcome::Done : TimeOutcome::NotConvertible;
}

}  // namespace ostrel
