#include "station/archive/Schema.h"

#include <vector>

namespace ostrel::station {
namespace {

using Step = std::vector<const char*>;

// Times are whole seconds since 1970 (`time` as the meter's own clock shows it, `utc` of the computer), current values' in
// milliseconds. A step that was ever shipped is never changed: what follows is a new step.
const std::vector<Step>& Steps() {
  static const std::vector<Step> steps = {
      {
          // A device at a place. Another serial number at the same address is another meter: its row ends the earlier one's.
          "CREATE TABLE meter (id {id}, station TEXT NOT NULL, channel TEXT NOT NULL, name TEXT NOT NULL, address BIGINT NOT "
          "NULL, "
          "type BIGINT NOT NULL, serial TEXT NOT NULL, since BIGINT NOT NULL, until BIGINT, constant DOUBLE PRECISION, "
          "UNIQUE (station, channel, name, serial))",
          "CREATE TABLE tag (meter BIGINT NOT NULL, tag BIGINT NOT NULL, name TEXT NOT NULL, unit TEXT NOT NULL, PRIMARY KEY "
          "(meter, "
          "tag)) {byKey}",
          // From `since` on a record every `period` seconds is expected; -1, -2, -3: every day, month, year.
          "CREATE TABLE expected (meter BIGINT NOT NULL, tag BIGINT NOT NULL, since BIGINT NOT NULL, period BIGINT NOT NULL, "
          "PRIMARY "
          "KEY (meter, tag, since)) {byKey}",
          "CREATE TABLE record (meter BIGINT NOT NULL, tag BIGINT NOT NULL, time BIGINT NOT NULL, utc BIGINT NOT NULL, value "
          "DOUBLE "
          "PRECISION, state BIGINT NOT NULL, PRIMARY KEY (meter, tag, time)) {byKey}",
          "CREATE TABLE current (meter BIGINT NOT NULL, tag BIGINT NOT NULL, utc BIGINT NOT NULL, value DOUBLE PRECISION, text "
          "TEXT, "
          "quality BIGINT NOT NULL, PRIMARY KEY (meter, tag, utc)) {byKey}",
          "CREATE TABLE event (id {id}, station TEXT NOT NULL, channel TEXT NOT NULL, utc BIGINT NOT NULL, text TEXT NOT NULL, "
          "UNIQUE "
          "(station, channel, text, utc))",
          "CREATE INDEX event_utc ON event (station, utc)",
          "CREATE TABLE written (id {id}, meter BIGINT NOT NULL, tag BIGINT NOT NULL, utc BIGINT NOT NULL, source TEXT NOT NULL, "
          "sent "
          "TEXT NOT NULL, before TEXT NOT NULL, after TEXT NOT NULL, outcome TEXT NOT NULL)",
          "CREATE TABLE link (meter BIGINT NOT NULL, utc BIGINT NOT NULL, requests BIGINT NOT NULL, answers BIGINT NOT NULL, "
          "silent "
          "BIGINT NOT NULL, spoiled BIGINT NOT NULL, PRIMARY KEY (meter, utc)) {byKey}",
          "CREATE TABLE outbox (id {id}, station TEXT NOT NULL, topic TEXT NOT NULL, payload TEXT NOT NULL)",
          "CREATE INDEX outbox_station ON outbox (station, id)",
      },
  };
  return steps;
}

}  // namespace

std::int64_t NewestSchema() { return static_cast<std::int64_t>(Steps().size()); }

std::int64_t SchemaVersion(Database& database) {
  std::int64_t version = 0;
  database.Run("SELECT max(version) FROM schema_version", {}, [&](const Row& row) { version = WholeAt(row, 0); });
  return version;
}

void Migrate(Database& database) {
  for (;;) {
    Transaction transaction(database);
    database.LockSchema();
    database.Run("CREATE TABLE IF NOT EXISTS schema_version (version BIGINT NOT NULL)");
    const std::int64_t version = SchemaVersion(database);
    if (version > NewestSchema()) {
      throw DatabaseError("the archive has schema " + std::to_string(version) + ", this program knows " +
                          std::to_string(NewestSchema()) + ": it was written by a newer one");
    }
    if (version < NewestSchema()) {
      for (const char* const statement : Steps()[static_cast<std::size_t>(version)]) database.Run(database.Dialect(statement));
      database.Run("INSERT INTO schema_version VALUES ($1)", {version + 1});
    }
    transaction.Commit();
    if (version + 1 >= NewestSchema()) return;
  }
}

}  // namespace ostrel::station
