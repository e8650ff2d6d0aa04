// What must hold whatever a line, a meter, a clock and a host's threads do. Whoever sees that it does not ends the run of the
// seed there: the process says what it saw in the memory that it shares with the one that started it (Runs.h).
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace ostrel::campaign {

enum class Invariant : std::uint8_t {
  None,
  NoCrash,       // and no report of a sanitizer
  RightValue,    // every good value is what the meter held in the exchange's window
  NotStale,      // after a failed read the quality is not good within one period
  NoHang,        // every call of a host ends within its bound, and there always is a next event
  Accounted,     // a request is sent when the one before was answered or given up
  WriteOnce,     // every write ends once, and what was confirmed stands in the meter
  TagOnce,       // every tag is destroyed once, and nothing of it is called after
  NoShortLock,   // the host is not called under the plug-in's short locks
  NoLeak,        // memory, descriptors and threads are as they were
  Recovers,      // after the last fault all is good again
  RightRecords,  // listed records are the meter's: none wrong, twice, in another order, or left out unsaid
  NotTooEarly,   // no request while an answer may still be coming, none without the ordered pauses
  FairShare,     // a dead meter and a long history read hold the others up by no more than their share
  LogOnce,       // each loss and each restoration stands in the log once
  SameTrace,     // the same seed does the same
  Count,
};

[[nodiscard]] std::string_view NameOf(Invariant invariant);

[[noreturn]] void Violate(Invariant invariant, const std::string& what);

}  // namespace ostrel::campaign
