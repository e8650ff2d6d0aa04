// Fetches what a meter's archives hold and ours does not, a small portion at a time: what the meter will overwrite first
// comes first.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "host/session/HistoryReader.h"
#include "station/archive/Archive.h"
#include "station/collect/GapPlan.h"

namespace ostrel::station {

/// What to ask for in one go: at most so many records of a profile that others wait no longer than a few passes.
inline constexpr std::int64_t kPortionRecords = 48;

enum class PortionKind : std::uint8_t {
  Fetch,   // what is missing
  Search,  // on until the tag's first record comes
  Probe,   // one record, to learn whether the meter remembers that time
};

struct Portion {
  std::size_t tag = 0;
  PortionKind kind = PortionKind::Fetch;
  std::int64_t from = 0;  // [from, to)
  std::int64_t to = 0;
  std::int64_t deadline = 0;  // by then the meter may have overwritten the first of it; by the meter's clock
  std::size_t missing = 0;    // of the tag, this portion included
  bool idle = false;          // can wait for everything else
};

struct FillResult {
  std::int64_t tag = 0;
  std::string name;
  std::string unit;
  bool answered = false;
  std::vector<StoredRecord> records;       // also those to be marked absent or lost
  std::optional<Expectation> expectation;  // found out by this portion
  Portion portion;
};

class MeterFill {
 public:
  MeterFill(host::Channel& channel, const host::Meter& meter, std::vector<host::HistoryTag> tags);

  /// Begins a look at all tags: learns the meter's periods, and what is stored. False when the meter does not answer.
  bool BeginCheck(Archive& archive, MeterKey key, std::int64_t now);
  /// What is most urgent of what is missing; nothing when nothing is. `now` is the meter's clock.
  [[nodiscard]] std::optional<Portion> Next(Archive& archive, MeterKey key, std::int64_t now);
  [[nodiscard]] FillResult Read(const Portion& portion, std::int64_t now);
  /// After the result was kept (at once when there is nothing to keep); until then its tag is left alone.
  void Kept(const FillResult& result);
  void Dropped(const FillResult& result);
  [[nodiscard]] bool Busy() const;

  [[nodiscard]] const host::Meter& Meter() const { return meter_; }

 private:
  enum class Phase : std::uint8_t { Halve, Search, Fetch };
  struct TagFill {
    host::HistoryTag tag;
    std::uint32_t depth = 0;
    std::int64_t period = 0;         // as the meter has it now
    std::vector<Expectation> known;  // by their beginning; the last one is of that period, unless it is searched
    Phase phase = Phase::Fetch;
    std::int64_t low = 0, high = 0;  // while halving: the memory begins in between
    std::int64_t cursor = 0;         // everything before is settled, or searched
    std::int64_t behind = 0;         // the next time to probe before the first known record; 0: none any more
    std::int64_t newestKnown = 0;
    // Asked for in this look and answered with nothing: what becomes of it is known when something later comes.
    std::int64_t emptyFrom = 0, emptyTo = 0;
    bool busy = false;     // what was read is not kept yet
    bool badToo = false;   // bad records of the last day are asked for once more
    bool stalled = false;  // the last portion brought nothing: not before the next look
  };

  bool LearnPeriod(TagFill& fill);
  void Begin(TagFill& fill, std::int64_t now);
  [[nodiscard]] std::optional<Portion> Plan(Archive& archive, MeterKey key, TagFill& fill, std::int64_t now);
  [[nodiscard]] std::optional<Portion> PlanFetch(TagFill& fill, const std::vector<StoredRecord>& stored, std::int64_t start,
                                                 std::int64_t end) const;
  [[nodiscard]] std::optional<Portion> PlanSearch(TagFill& fill, std::int64_t now) const;
  [[nodiscard]] std::optional<Portion> PlanBehind(const TagFill& fill) const;
  [[nodiscard]] const TagFill& Leader(const TagFill& fill) const;
  void FollowLeader(TagFill& fill) const;
  void KeptProbe(TagFill& fill, const FillResult& result) const;
  void Collect(const TagFill& fill, std::int64_t now, FillResult& result) const;
  void MarkRest(const TagFill& fill, std::int64_t now, FillResult& result) const;

  host::Channel& channel_;
  const host::Meter& meter_;
  std::vector<TagFill> tags_;
};

/// Writes a result; `news` is told each record that is new or better. May run again after it was rolled back.
void Keep(Archive& archive, MeterKey key, const FillResult& result, const std::function<void(const StoredRecord&)>& news);

}  // namespace ostrel::station
