// The one interface to a database of values: statements with numbered parameters. What is kept, and how, is written once
// above it; below it are SQLite in a file of this computer and a PostgreSQL server that many stations share.
//
// A connection belongs to one thread. What can pass by itself (a server that is away, a full disk, a lock) is thrown as
// DatabaseAway, so that its user keeps what it has and comes again; everything else is DatabaseError.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <variant>
#include <vector>

namespace ostrel::station {

class DatabaseError : public std::runtime_error {
  using std::runtime_error::runtime_error;
};

class DatabaseAway : public DatabaseError {
  using DatabaseError::DatabaseError;
};

/// Nothing (NULL), a whole number, a number, or UTF-8 text.
using Cell = std::variant<std::monostate, std::int64_t, double, std::string>;
using Row = std::vector<Cell>;
using RowSink = std::function<void(const Row&)>;

class Database {
 public:
  Database() = default;
  virtual ~Database() = default;
  Database(const Database&) = delete;
  Database& operator=(const Database&) = delete;

  /// One statement; its parameters $1, $2, ... appear in it in this order. Gives the number of rows that it changed.
  virtual std::int64_t Run(const std::string& sql, const Row& parameters, const RowSink& sink) = 0;
  std::int64_t Run(const std::string& sql, const Row& parameters = {}) { return Run(sql, parameters, {}); }

  /// The text with this engine's word for what the two write differently: {id} is a number that counts itself and is never
  /// given twice, {byKey} ends a table that is kept in the order of its key.
  [[nodiscard]] virtual std::string Dialect(std::string sql) const = 0;
  /// Keeps other stations from changing the schema until the end of the transaction.
  virtual void LockSchema() = 0;
  /// What is damaged; empty when nothing is.
  [[nodiscard]] virtual std::string Damage() = 0;
  /// A whole copy into a new file while the database is in use.
  virtual void BackupTo(const std::string& file) = 0;
  [[nodiscard]] virtual std::int64_t SizeBytes() = 0;
};

/// By its text: "postgresql://..." or the path of a file, which is made when it is missing.
[[nodiscard]] std::unique_ptr<Database> OpenDatabase(const std::string& where);
[[nodiscard]] bool IsServer(const std::string& where);
[[nodiscard]] std::unique_ptr<Database> OpenSqlite(const std::string& file);
[[nodiscard]] std::unique_ptr<Database> OpenPostgres(const std::string& uri);

/// Everything until Commit is kept together, or, without it, not at all.
class Transaction {
 public:
  explicit Transaction(Database& database);
  ~Transaction();
  Transaction(const Transaction&) = delete;
  Transaction& operator=(const Transaction&) = delete;
  void Commit();

 private:
  Database& database_;
  bool open_ = true;
};

[[nodiscard]] std::int64_t WholeAt(const Row& row, std::size_t column);
[[nodiscard]] double NumberAt(const Row& row, std::size_t column);
[[nodiscard]] std::string TextAt(const Row& row, std::size_t column);
[[nodiscard]] bool EmptyAt(const Row& row, std::size_t column);
[[nodiscard]] std::string Replaced(std::string text, const std::string& what, const std::string& by);

}  // namespace ostrel::station
