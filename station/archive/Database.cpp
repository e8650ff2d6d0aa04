#include "station/archive/Database.h"

namespace ostrel::station {

bool IsServer(const std::string& where) { return where.starts_with("postgresql://") || where.starts_with("postgres://"); }

std::unique_ptr<Database> OpenDatabase(const std::string& where) {
  return IsServer(where) ? OpenPostgres(where) : OpenSqlite(where);
}

// A writer of SQLite takes its lock at once: two that begin by reading would each wait for the other.
Transaction::Transaction(Database& database) : database_(database) { database_.Run(database_.Dialect("{begin}")); }

Transaction::~Transaction() {
  if (!open_) return;
  try {
    database_.Run("ROLLBACK");
  } catch (const DatabaseError&) {
    // A lost connection has rolled back by itself.
  }
}

void Transaction::Commit() {
  database_.Run("COMMIT");
  open_ = false;
}

std::int64_t WholeAt(const Row& row, std::size_t column) {
  if (const auto* const number = std::get_if<double>(&row.at(column))) return static_cast<std::int64_t>(*number);
  const auto* const whole = std::get_if<std::int64_t>(&row.at(column));
  return whole == nullptr ? 0 : *whole;
}

double NumberAt(const Row& row, std::size_t column) {
  if (const auto* const number = std::get_if<double>(&row.at(column))) return *number;
  return static_cast<double>(WholeAt(row, column));
}

std::string TextAt(const Row& row, std::size_t column) {
  const auto* const text = std::get_if<std::string>(&row.at(column));
  return text == nullptr ? std::string() : *text;
}

bool EmptyAt(const Row& row, std::size_t column) { return std::holds_alternative<std::monostate>(row.at(column)); }

std::string Replaced(std::string text, const std::string& what, const std::string& by) {
  for (std::size_t at = text.find(what); at != std::string::npos; at = text.find(what, at + by.size()))
    text.replace(at, what.size(), by);
  return text;
}

}  // namespace ostrel::station
