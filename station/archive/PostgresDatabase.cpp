// The archive that many stations share: a PostgreSQL server. A lost connection is made anew by the next statement outside of
// a transaction.
#include <cstdlib>
#include <map>
#include <pqxx/pqxx>

#include "station/archive/Database.h"

namespace ostrel::station {
namespace {

/// Any number that no other program of the server uses for its own lock: "OSTR".
constexpr const char* kSchemaLock = "SELECT pg_advisory_xact_lock(1330861138)";
constexpr std::size_t kMostStatements = 256;

// Types of columns by their fixed numbers in the server's catalogue.
enum Oid : pqxx::oid { kInt8 = 20, kInt2 = 21, kInt4 = 23, kFloat4 = 700, kFloat8 = 701, kNumeric = 1700 };

Cell CellOf(const pqxx::field& field) {
  if (field.is_null()) return {};
  switch (field.type()) {
    case kInt8:
    case kInt2:
    case kInt4:
      return field.as<std::int64_t>();
    case kFloat4:
    case kFloat8:
    case kNumeric:
      return std::strtod(field.c_str(), nullptr);
    default:
      return std::string(field.c_str());
  }
}

/// The parameters as texts; a null pointer is NULL.
class Texts {
 public:
  explicit Texts(const Row& row) {
    texts_.reserve(row.size());
    for (const Cell& cell : row) {
      texts_.push_back(TextOf(cell));
      pointers_.push_back(std::holds_alternative<std::monostate>(cell) ? nullptr : texts_.back().c_str());
    }
  }
  [[nodiscard]] const std::vector<const char*>& Pointers() const { return pointers_; }

 private:
  static std::string TextOf(const Cell& cell) {
    if (const auto* const whole = std::get_if<std::int64_t>(&cell)) return std::to_string(*whole);
    if (const auto* const number = std::get_if<double>(&cell)) return pqxx::to_string(*number);
    if (const auto* const text = std::get_if<std::string>(&cell)) return *text;
    return {};
  }
  std::vector<std::string> texts_;
  std::vector<const char*> pointers_;
};

class PostgresDatabase final : public Database {
 public:
  explicit PostgresDatabase(std::string uri) : uri_(std::move(uri)) { Connect(); }

  using Database::Run;
  std::int64_t Run(const std::string& sql, const Row& parameters, const RowSink& sink) override {
    if (!connection_) Connect();
    try {
      return Answer(sql, parameters, sink);
    } catch (const pqxx::broken_connection& error) {
      connection_.reset();
      throw DatabaseAway(std::string("the database server: ") + error.what());
    } catch (const pqxx::sql_error& error) {
      // Class 53: no disk, no memory, no connection left; class 57: an operator; class 40: another transaction came first.
      const std::string state = error.sqlstate().substr(0, 2);
      if (state == "53" || state == "57" || state == "40") throw DatabaseAway(error.what());
      throw DatabaseError(error.what());
    } catch (const pqxx::failure& error) {
      connection_.reset();
      throw DatabaseAway(error.what());
    }
  }

  std::string Dialect(std::string sql) const override {
    sql = Replaced(std::move(sql), "{id}", "BIGINT GENERATED ALWAYS AS IDENTITY PRIMARY KEY");
    sql = Replaced(std::move(sql), "{byKey}", "");
    return Replaced(std::move(sql), "{begin}", "BEGIN");
  }

  void LockSchema() override { Run(kSchemaLock); }

  // The server keeps its own checksums; what can be asked here is whether it answers.
  std::string Damage() override {
    Run("SELECT 1");
    return {};
  }

  void BackupTo(const std::string&) override { throw DatabaseError("a database server is backed up with pg_dump"); }

  std::int64_t SizeBytes() override {
    std::int64_t size = 0;
    Run("SELECT pg_database_size(current_database())", {}, [&](const Row& row) { size = WholeAt(row, 0); });
    return size;
  }

 private:
  void Connect() {
    try {
      names_.clear();
      connection_ = std::make_unique<pqxx::connection>(uri_);
      // NOTICEs of "IF NOT EXISTS" are nobody's news.
      pqxx::nontransaction(*connection_).exec0("SET client_min_messages = warning");
    } catch (const pqxx::failure& error) {
      connection_.reset();
      throw DatabaseAway(std::string("the database server: ") + error.what());
    }
  }

  std::int64_t Answer(const std::string& sql, const Row& parameters, const RowSink& sink) {
    pqxx::nontransaction work(*connection_);
    const Texts texts(parameters);
    const pqxx::result result = parameters.empty()
                                    ? work.exec(sql)
                                    : work.exec_prepared(Prepared(sql), pqxx::prepare::make_dynamic_params(texts.Pointers()));
    Row row;
    if (sink) {
      for (const auto& line : result) {
        row.clear();
        for (const auto& field : line) row.push_back(CellOf(field));
        sink(row);
      }
    }
    return static_cast<std::int64_t>(result.affected_rows());
  }

  const std::string& Prepared(const std::string& sql) {
    const auto found = names_.find(sql);
    if (found != names_.end()) return found->second;
    if (names_.size() >= kMostStatements) {
      for (const auto& [text, name] : names_) connection_->unprepare(name);
      names_.clear();
    }
    const std::string name = "s" + std::to_string(++prepared_);
    connection_->prepare(name, sql);
    return names_.emplace(sql, name).first->second;
  }

  std::string uri_;
  std::unique_ptr<pqxx::connection> connection_;
  std::map<std::string, std::string> names_;
  std::uint64_t prepared_ = 0;
};

}  // namespace

std::unique_ptr<Database> OpenPostgres(const std::string& uri) { return std::make_unique<PostgresDatabase>(uri); }

}  // namespace ostrel::station
