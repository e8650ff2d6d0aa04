// The records of a load profile within an interval, in short listings, so that a request to end is soon heard and little is
// lost when the meter falls silent.
//
// A listing of the plug-in goes from record to record, an hour on where the meter has none, and ends at a blank record. So
// each one here begins with the first record of an hour (after an hour that is missing, one that began in mid-hour would miss the
// first records of the next) and goes on behind a blank record by itself. Where the computer's clock changes, times of two
// hours fall together: there every hour has a listing of its own, and no time is given that is not later than the last one.
//
// An interval that is wider than the meter's memory is read from its end, until the memory cannot hold any more: the memory is
// counted in hours with power, so only reading tells how far back it goes.
#pragma once

#include <algorithm>
#include <vector>

#include "host/session/HistoryClient.h"

namespace ostrel::host {

class ProfileReader {
 public:
  /// `tag` with its period. Records are taken whose time is not before the interval's begin and before its end.
  ProfileReader(HistoryClient& client, const HistoryTag& tag, WallInterval interval, const HistorySink& sink,
                const HistoryProgress& progress);

  [[nodiscard]] HistoryOutcome Read();

 private:
  using Records = std::vector<HistoryRecord>;

  [[nodiscard]] HistoryOutcome ReadBack(WallTime first);
  /// Records of a stretch that begins with the first one of an hour.
  [[nodiscard]] HistoryOutcome ReadStretch(WallInterval stretch, const HistorySink& sink);
  [[nodiscard]] bool SearchFromBefore();
  [[nodiscard]] WallTime HoursOfListing(WallTime first, WallTime last) const;
  [[nodiscard]] WallInterval Piece(WallTime at, WallTime end) const;
  [[nodiscard]] WallTime Next(const WallInterval& piece, const HistoryListing& listing);
  void Give(const HistoryListing& listing, const HistorySink& sink);
  void Tell(WallTime done);
  [[nodiscard]] WallTime HoursOfMemory();
  [[nodiscard]] WallTime RecordsOfHour() const { return std::max<WallTime>(kHourSeconds / period_, 1); }

  /// The hour block that keeps a record: a time is the end of its interval.
  [[nodiscard]] static WallTime HourOf(WallTime time);
  [[nodiscard]] WallTime FirstRecordOf(WallTime hour) const { return hour + period_; }
  [[nodiscard]] std::size_t RecordsIn(WallTime span) const {
    return static_cast<std::size_t>(std::max<WallTime>(span, 0) / period_);
  }
  [[nodiscard]] bool IsFirstOfHour(WallTime time) const { return time == FirstRecordOf(HourOf(time)); }
  /// The time of a record that is not before a time.
  [[nodiscard]] WallTime RecordFrom(WallTime time) const;

  HistoryClient& client_;
  const HistoryTag& tag_;
  const WallInterval interval_;
  const HistorySink& sink_;
  const HistoryProgress& progress_;
  const WallTime period_;  // seconds
  WallTime end_;           // of what is worth asking for
  WallTime given_;         // the last record, or the second before the interval
  WallTime latest_;        // of all records
  WallTime done_ = 0;      // seconds of the interval
  bool oneHour_ = false;   // the next listing is to tell whether its hour is there
};

}  // namespace ostrel::host
