// What the station knows right now, for pages, metrics and the broker: the last reading of every tag, each meter's state, and
// the changes since a number that a reader remembers.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "host/session/TagValue.h"
#include "station/collect/LineFigures.h"

namespace ostrel::station {

struct LiveTag {
  std::uint32_t id = 0;
  std::string name;
  std::string unit;
  bool writable = false;
  host::TagReading reading;
};

/// What is left to fetch of a meter's archives.
struct FillState {
  std::size_t missing = 0;             // records, as far as they are known
  double secondsLeft = 0;              // at the speed so far, with the line's share
  std::string doing;                   // for people
  std::optional<double> completeness;  // of the last 30 days, once it was counted
};

struct LiveMeter {
  std::string channel;
  std::string name;
  std::uint32_t address = 0;
  std::string type;
  std::string serial;
  bool linked = false;
  std::vector<LiveTag> tags;  // those that are polled
  FillState fill;
  MeterFigures figures;
};

struct LiveChannel {
  std::string port;
  std::string problem;  // why its device cannot be used; empty when it can
  std::uint32_t passes = 0;
  double passSeconds = 0;
  std::uint32_t periodSeconds = 0;
};

struct LiveChange {
  std::uint64_t number = 0;
  std::string meter;
  LiveTag tag;
};

class LiveState {
 public:
  /// Adds or replaces; the readings of a known meter stay.
  void SetMeter(LiveMeter meter);
  void SetChannel(const LiveChannel& channel);
  void RemoveChannel(const std::string& port);
  /// Takes the readings that differ over, and gives their places.
  std::vector<std::size_t> Update(const std::string& meter, const std::vector<host::TagReading>& readings, bool linked,
                                  const std::string& serial, const MeterFigures& figures);
  void SetFill(const std::string& meter, const FillState& fill);

  [[nodiscard]] std::vector<std::string> MeterNames() const;
  /// Without its tags.
  [[nodiscard]] std::vector<LiveMeter> Summaries() const;
  [[nodiscard]] std::optional<LiveMeter> Meter(const std::string& name) const;
  [[nodiscard]] std::vector<LiveChannel> Channels() const;

  struct Changes {
    std::uint64_t next = 0;  // to be asked for the next time
    bool complete = true;    // false: some were forgotten meanwhile, look at everything anew
    std::vector<LiveChange> changes;
  };
  /// Waits for a change at or after a number. Numbers begin at 1; 0 asks for the present one.
  [[nodiscard]] Changes WaitForChanges(std::uint64_t from, std::uint32_t milliseconds);
  void WakeAll();

 private:
  void Note(const std::string& meter, const LiveTag& tag);

  mutable std::mutex mutex_;
  std::condition_variable changed_;
  std::map<std::string, LiveMeter> meters_;
  std::map<std::string, LiveChannel> channels_;
  std::deque<LiveChange> changes_;
  std::uint64_t next_ = 1;
};

/// "kWh" and so on by the tag's id; empty where there is none.
[[nodiscard]] std::string UnitOf(std::uint32_t tagId);
[[nodiscard]] std::int64_t UtcMs(const FILETIME& time);

}  // namespace ostrel::station
