// The embedded archive: one file, readers beside one writer (WAL), every commit on the disk before it counts.
#include <SQLiteCpp/SQLiteCpp.h>
#include <sqlite3.h>

#include <filesystem>
#include <map>

#include "station/archive/Database.h"

namespace ostrel::station {
namespace {

/// Says in the file's head whose it is ("OSTR"), so that a foreign database is not taken for an archive.
constexpr std::int64_t kApplicationId = 0x4F535452;
constexpr int kBusyMs = 10000;
/// A program asks the same few dozen statements; what is built anew each time would fill this.
constexpr std::size_t kMostStatements = 256;

bool PassesByItself(int code) {
  switch (code & 0xFF) {
    case SQLITE_BUSY:
    case SQLITE_LOCKED:
    case SQLITE_FULL:
    case SQLITE_IOERR:
    case SQLITE_CANTOPEN:
      return true;
    default:
      return false;
  }
}

class SqliteDatabase final : public Database {
 public:
  explicit SqliteDatabase(const std::string& file) : file_(file) {
    Translated([&] {
      base_ = std::make_unique<SQLite::Database>(file, SQLite::OPEN_READWRITE | SQLite::OPEN_CREATE, kBusyMs);
      RefuseForeign();
      base_->exec("PRAGMA journal_mode = WAL");
      base_->exec("PRAGMA synchronous = FULL");
      base_->exec("PRAGMA application_id = " + std::to_string(kApplicationId));
    });
  }

  using Database::Run;
  std::int64_t Run(const std::string& sql, const Row& parameters, const RowSink& sink) override {
    std::int64_t changed = 0;
    Translated([&] {
      SQLite::Statement& statement = Prepared(sql);
      const Reset reset{statement};
      for (std::size_t i = 0; i < parameters.size(); ++i) Bind(statement, static_cast<int>(i + 1), parameters[i]);
      Row row(static_cast<std::size_t>(statement.getColumnCount()));
      while (statement.executeStep()) {
        for (std::size_t i = 0; i < row.size(); ++i) row[i] = CellOf(statement.getColumn(static_cast<int>(i)));
        if (sink) sink(row);
      }
      changed = sqlite3_changes(base_->getHandle());
    });
    return changed;
  }

  std::string Dialect(std::string sql) const override {
    sql = Replaced(std::move(sql), "{id}", "INTEGER PRIMARY KEY AUTOINCREMENT");
    sql = Replaced(std::move(sql), "{byKey}", "WITHOUT ROWID");
    return Replaced(std::move(sql), "{begin}", "BEGIN IMMEDIATE");
  }

  void LockSchema() override {}  // a transaction is the only writer already

  std::string Damage() override {
    std::string damage;
    Run("PRAGMA quick_check(5)", {}, [&](const Row& row) {
      if (TextAt(row, 0) != "ok") damage += (damage.empty() ? "" : "; ") + TextAt(row, 0);
    });
    return damage;
  }

  void BackupTo(const std::string& file) override {
    if (std::filesystem::exists(file)) throw DatabaseError(file + ": is there already");
    Run("VACUUM INTO $1", {file});
  }

  std::int64_t SizeBytes() override {
    std::int64_t size = 0;
    Run("SELECT (page_count - freelist_count) * page_size FROM pragma_page_count, pragma_freelist_count, pragma_page_size", {},
        [&](const Row& row) { size = WholeAt(row, 0); });
    return size;
  }

 private:
  struct Reset {
    SQLite::Statement& statement;
    ~Reset() { statement.tryReset(); }
  };

  template <class Work>
  void Translated(const Work& work) {
    try {
      work();
    } catch (const SQLite::Exception& error) {
      const std::string text = file_ + ": " + error.what();
      if (PassesByItself(error.getErrorCode())) throw DatabaseAway(text);
      throw DatabaseError(text);
    }
  }

  void RefuseForeign() {
    const std::int64_t id = base_->execAndGet("PRAGMA application_id").getInt64();
    const std::int64_t tables = base_->execAndGet("SELECT count(*) FROM sqlite_master").getInt64();
    if (tables != 0 && id != kApplicationId) throw DatabaseError(file_ + ": is a database of another program");
  }

  SQLite::Statement& Prepared(const std::string& sql) {
    const auto found = statements_.find(sql);
    if (found != statements_.end()) return found->second;
    if (statements_.size() >= kMostStatements) statements_.clear();
    return statements_.try_emplace(sql, *base_, sql).first->second;
  }

  static void Bind(SQLite::Statement& statement, int index, const Cell& cell) {
    if (const auto* const whole = std::get_if<std::int64_t>(&cell)) return statement.bind(index, *whole);
    if (const auto* const number = std::get_if<double>(&cell)) return statement.bind(index, *number);
    if (const auto* const text = std::get_if<std::string>(&cell)) return statement.bind(index, *text);
    statement.bind(index);
  }

  static Cell CellOf(const SQLite::Column& column) {
    if (column.isInteger()) return column.getInt64();
    if (column.isFloat()) return column.getDouble();
    if (column.isNull()) return {};
    return column.getString();
  }

  std::string file_;
  std::unique_ptr<SQLite::Database> base_;
  std::map<std::string, SQLite::Statement> statements_;
};

}  // namespace

std::unique_ptr<Database> OpenSqlite(const std::string& file) { return std::make_unique<SqliteDatabase>(file); }

}  // namespace ostrel::station
