// The records of a history tag within an interval: every record that the meter holds with a time from its begin on and before its
// end, once, oldest first. Where begin and end are the same, it is that one record.
#pragma once

#include <optional>

#include "host/session/HistoryClient.h"

namespace ostrel::host {

class HistoryReader {
 public:
  explicit HistoryReader(HistoryClient client) : client_(client) {}

  /// Where no end is given a profile ends now, and where no begin is, it is a day before that; an archive is read whole.
  [[nodiscard]] HistoryOutcome Read(HistoryTag& tag, const std::optional<WallTime>& from, const std::optional<WallTime>& to,
                                    const HistorySink& sink, const HistoryProgress& progress);

 private:
  [[nodiscard]] HistoryOutcome ReadProfile(HistoryTag& tag, WallInterval interval, const HistorySink& sink,
                                           const HistoryProgress& progress);
  [[nodiscard]] HistoryOutcome ReadArchive(const HistoryTag& tag, WallInterval interval, const HistorySink& sink,
                                           const HistoryProgress& progress);

  HistoryClient client_;
};

}  // namespace ostrel::host
