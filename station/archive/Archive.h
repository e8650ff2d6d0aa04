// What the station keeps, as operations on either engine. A record is known by meter, tag and the time that the meter's own
// clock gives it: delivered again it changes nothing, except that what was bad or thought lost is replaced by what is good.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "station/archive/Database.h"

namespace ostrel::station {

using MeterKey = std::int64_t;

/// What became of a record that a meter should hold.
enum class RecordState : std::uint8_t {
  Lost = 0,    // the meter no longer has it: never asked for again
  Absent = 1,  // the meter was without power: there never was one
  Bad = 2,     // not measured whole; may become good
  Good = 3,
};

struct MeterPlaceKey {
  std::string station;
  std::string channel;
  std::string name;
};

struct MeterRow {
  MeterKey key = 0;
  MeterPlaceKey place;
  std::uint32_t address = 0;
  std::uint32_t type = 0;
  std::string serial;                 // empty as long as it is not known
  std::int64_t since = 0;             // UTC seconds
  std::optional<std::int64_t> until;  // UTC seconds; none: it is there now
  std::optional<double> constant;     // impulses per kWh
};

struct StoredRecord {
  std::int64_t time = 0;  // seconds, as the meter's clock shows it
  std::int64_t utc = 0;
  std::optional<double> value;
  RecordState state = RecordState::Bad;
};

/// The value of a current tag; nothing unless the quality is good.
struct CurrentValue {
  std::int64_t utcMs = 0;
  std::optional<double> number;
  std::optional<std::string> text;
  std::uint16_t quality = 0;
};

/// From when on a tag's records are expected, and how often.
struct Expectation {
  std::int64_t since = 0;
  std::int64_t period = 0;  // seconds, or one of the calendar steps
};

enum CalendarStep : std::int64_t { kEveryDay = -1, kEveryMonth = -2, kEveryYear = -3 };

struct EventRow {
  std::int64_t utc = 0;
  std::string channel;
  std::string text;
};

struct WriteRow {
  MeterKey meter = 0;
  std::int64_t tag = 0;
  std::int64_t utc = 0;
  std::string source, sent, before, after, outcome;
};

struct LinkRow {
  MeterKey meter = 0;
  std::int64_t utc = 0;
  std::int64_t requests = 0, answers = 0, silent = 0, spoiled = 0;
};

struct OutboxRow {
  std::int64_t number = 0;
  std::string topic;
  std::string payload;
};

class Archive {
 public:
  explicit Archive(Database& database) : database_(database) {}
  [[nodiscard]] Database& Base() { return database_; }

  /// The meter that stands at a place now; nothing when none was ever seen there.
  [[nodiscard]] std::optional<MeterRow> MeterAt(const MeterPlaceKey& place);
  /// Enters a meter, ends the one that stood there before, and gives its key. A known one comes back as it was.
  MeterKey Enter(const MeterRow& meter);
  void SetConstant(MeterKey meter, double constant);
  [[nodiscard]] std::vector<MeterRow> Meters();
  void NameTag(MeterKey meter, std::int64_t tag, const std::string& name, const std::string& unit);

  /// True when it was new or better than what stood there.
  bool Put(MeterKey meter, std::int64_t tag, const StoredRecord& record);
  void Put(MeterKey meter, std::int64_t tag, const CurrentValue& value);
  void Put(const std::string& station, const EventRow& event);
  void Put(const WriteRow& write);
  void Put(const LinkRow& link);
  void Expect(MeterKey meter, std::int64_t tag, const Expectation& expectation);

  /// Oldest first; [from, to) over the meter's clock.
  [[nodiscard]] std::vector<StoredRecord> Records(MeterKey meter, std::int64_t tag, std::int64_t from, std::int64_t to);
  [[nodiscard]] std::vector<Expectation> Expectations(MeterKey meter, std::int64_t tag);

  /// Adds to what waits for the broker; the number says the order and is never given twice.
  void Post(const std::string& station, const std::string& topic, const std::string& payload);
  [[nodiscard]] std::vector<OutboxRow> Waiting(const std::string& station, std::int64_t after, std::int64_t most);
  [[nodiscard]] std::int64_t CountWaiting(const std::string& station);
  void Delivered(const std::string& station, std::int64_t number);

  /// Forgets current values and link figures older than this, and records, when a time is given.
  void Forget(std::int64_t currentBeforeUtc, std::int64_t recordsBeforeUtc);
  /// Forgets the oldest tenth of the current values.
  void ForgetOldestCurrent();

 private:
  Database& database_;
};

}  // namespace ostrel::station
