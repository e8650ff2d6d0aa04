#include "station/archive/Archive.h"

namespace ostrel::station {
namespace {

constexpr const char* kMeterColumns =
    "SELECT id, station, channel, name, address, type, serial, since, until, constant FROM meter ";

MeterRow ReadMeter(const Row& row) {
  MeterRow meter;
  meter.key = WholeAt(row, 0);
  meter.place = {.station = TextAt(row, 1), .channel = TextAt(row, 2), .name = TextAt(row, 3)};
  meter.address = static_cast<std::uint32_t>(WholeAt(row, 4));
  meter.type = static_cast<std::uint32_t>(WholeAt(row, 5));
  meter.serial = TextAt(row, 6);
  meter.since = WholeAt(row, 7);
  if (!EmptyAt(row, 8)) meter.until = WholeAt(row, 8);
  if (!EmptyAt(row, 9)) meter.constant = NumberAt(row, 9);
  return meter;
}

Cell CellOf(const std::optional<double>& number) { return number ? Cell(*number) : Cell(); }
Cell CellOf(const std::optional<std::string>& text) { return text ? Cell(*text) : Cell(); }

}  // namespace

std::optional<MeterRow> Archive::MeterAt(const MeterPlaceKey& place) {
  std::optional<MeterRow> meter;
  database_.Run(std::string(kMeterColumns) + "WHERE station = $1 AND channel = $2 AND name = $3 AND until IS NULL",
                {place.station, place.channel, place.name}, [&](const Row& row) { meter = ReadMeter(row); });
  return meter;
}

MeterKey Archive::Enter(const MeterRow& meter) {
  const Row key = {meter.place.station, meter.place.channel, meter.place.name, meter.serial};
  // Silent since the first start, it was entered without a number; that is the one it has.
  database_.Run(
      "UPDATE meter SET serial = $1 WHERE station = $2 AND channel = $3 AND name = $4 AND serial = '' AND NOT EXISTS (SELECT 1 "
      "FROM meter m WHERE m.station = $5 AND m.channel = $6 AND m.name = $7 AND m.serial = $8)",
      {meter.serial, key[0], key[1], key[2], key[0], key[1], key[2], key[3]});
  database_.Run(
      "UPDATE meter SET until = $1 WHERE station = $2 AND channel = $3 AND name = $4 AND serial <> $5 AND until IS NULL",
      {meter.since, key[0], key[1], key[2], key[3]});
  database_.Run(
      "INSERT INTO meter (station, channel, name, serial, address, type, since) VALUES ($1, $2, $3, $4, $5, $6, $7) ON CONFLICT "
      "(station, channel, name, serial) DO UPDATE SET until = NULL, address = excluded.address, type = excluded.type",
      {key[0], key[1], key[2], key[3], std::int64_t{meter.address}, std::int64_t{meter.type}, meter.since});
  return MeterAt(meter.place)->key;
}

void Archive::SetConstant(MeterKey meter, double constant) {
  database_.Run("UPDATE meter SET constant = $1 WHERE id = $2", {constant, meter});
}

std::vector<MeterRow> Archive::Meters() {
  std::vector<MeterRow> meters;
  database_.Run(std::string(kMeterColumns) + "ORDER BY station, channel, name, since, id", {},
                [&](const Row& row) { meters.push_back(ReadMeter(row)); });
  return meters;
}

void Archive::NameTag(MeterKey meter, std::int64_t tag, const std::string& name, const std::string& unit) {
  database_.Run(
      "INSERT INTO tag VALUES ($1, $2, $3, $4) ON CONFLICT (meter, tag) DO UPDATE SET name = excluded.name, unit = excluded.unit",
      {meter, tag, name, unit});
}

bool Archive::Put(MeterKey meter, std::int64_t tag, const StoredRecord& record) {
  return database_.Run(
             "INSERT INTO record VALUES ($1, $2, $3, $4, $5, $6) ON CONFLICT (meter, tag, time) DO UPDATE SET value = "
             "excluded.value, state = excluded.state, utc = excluded.utc WHERE record.state < excluded.state",
             {meter, tag, record.time, record.utc, CellOf(record.value), static_cast<std::int64_t>(record.state)}) != 0;
}

void Archive::Put(MeterKey meter, std::int64_t tag, const CurrentValue& value) {
  database_.Run("INSERT INTO current VALUES ($1, $2, $3, $4, $5, $6) ON CONFLICT (meter, tag, utc) DO NOTHING",
                {meter, tag, value.utcMs, CellOf(value.number), CellOf(value.text), std::int64_t{value.quality}});
}

void Archive::Put(const std::string& station, const EventRow& event) {
  database_.Run(
      "INSERT INTO event (station, channel, utc, text) VALUES ($1, $2, $3, $4) ON CONFLICT (station, channel, text, utc) DO "
      "NOTHING",
      {station, event.channel, event.utc, event.text});
}

void Archive::Put(const WriteRow& write) {
  database_.Run(
      "INSERT INTO written (meter, tag, utc, source, sent, before, after, outcome) VALUES ($1, $2, $3, $4, $5, $6, $7, $8)",
      {write.meter, write.tag, write.utc, write.source, write.sent, write.before, write.after, write.outcome});
}

void Archive::Put(const LinkRow& link) {
  database_.Run("INSERT INTO link VALUES ($1, $2, $3, $4, $5, $6) ON CONFLICT (meter, utc) DO NOTHING",
                {link.meter, link.utc, link.requests, link.answers, link.silent, link.spoiled});
}

void Archive::Expect(MeterKey meter, std::int64_t tag, const Expectation& expectation) {
  database_.Run(
      "INSERT INTO expected VALUES ($1, $2, $3, $4) ON CONFLICT (meter, tag, since) DO UPDATE SET period = excluded.period",
      {meter, tag, expectation.since, expectation.period});
}

std::vector<StoredRecord> Archive::Records(MeterKey meter, std::int64_t tag, std::int64_t from, std::int64_t to) {
  std::vector<StoredRecord> records;
  database_.Run(
      "SELECT time, utc, value, state FROM record WHERE meter = $1 AND tag = $2 AND time >= $3 AND time < $4 ORDER BY time",
      {meter, tag, from, to}, [&](const Row& row) {
        StoredRecord& record = records.emplace_back();
        record.time = WholeAt(row, 0);
        record.utc = WholeAt(row, 1);
        if (!EmptyAt(row, 2)) record.value = NumberAt(row, 2);
        record.state = static_cast<RecordState>(WholeAt(row, 3));
      });
  return records;
}

std::vector<Expectation> Archive::Expectations(MeterKey meter, std::int64_t tag) {
  std::vector<Expectation> expectations;
  database_.Run("SELECT since, period FROM expected WHERE meter = $1 AND tag = $2 ORDER BY since", {meter, tag},
                [&](const Row& row) { expectations.push_back({.since = WholeAt(row, 0), .period = WholeAt(row, 1)}); });
  return expectations;
}

void Archive::Post(const std::string& station, const std::string& topic, const std::string& payload) {
  database_.Run("INSERT INTO outbox (station, topic, payload) VALUES ($1, $2, $3)", {station, topic, payload});
}

std::vector<OutboxRow> Archive::Waiting(const std::string& station, std::int64_t after, std::int64_t most) {
  std::vector<OutboxRow> rows;
  database_.Run(
      "SELECT id, topic, payload FROM outbox WHERE station = $1 AND id > $2 ORDER BY id LIMIT $3", {station, after, most},
      [&](const Row& row) { rows.push_back({.number = WholeAt(row, 0), .topic = TextAt(row, 1), .payload = TextAt(row, 2)}); });
  return rows;
}

std::int64_t Archive::CountWaiting(const std::string& station) {
  std::int64_t count = 0;
  database_.Run("SELECT count(*) FROM outbox WHERE station = $1", {station}, [&](const Row& row) { count = WholeAt(row, 0); });
  return count;
}

void Archive::Delivered(const std::string& station, std::int64_t number) {
  database_.Run("DELETE FROM outbox WHERE station = $1 AND id = $2", {station, number});
}

void Archive::Forget(std::int64_t currentBeforeUtc, std::int64_t recordsBeforeUtc) {
  database_.Run("DELETE FROM current WHERE utc < $1", {currentBeforeUtc * 1000});
  database_.Run("DELETE FROM link WHERE utc < $1", {currentBeforeUtc});
  database_.Run("DELETE FROM event WHERE utc < $1", {currentBeforeUtc});
  if (recordsBeforeUtc > 0) database_.Run("DELETE FROM record WHERE utc < $1", {recordsBeforeUtc});
}

void Archive::ForgetOldestCurrent() {
  database_.Run("DELETE FROM current WHERE utc < (SELECT min(utc) + (max(utc) - min(utc)) / 10 + 1 FROM current)");
}

}  // namespace ostrel::station
