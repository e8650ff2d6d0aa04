// The tables of the archive, made and changed by numbered steps that are the same for both engines.
#pragma once

#include <cstdint>

#include "station/archive/Database.h"

namespace ostrel::station {

/// Brings the database to this program's schema, one step a transaction. Throws DatabaseError when it is newer than this
/// program.
void Migrate(Database& database);
[[nodiscard]] std::int64_t SchemaVersion(Database& database);
/// What Migrate brings a database to.
[[nodiscard]] std::int64_t NewestSchema();

}  // namespace ostrel::station
