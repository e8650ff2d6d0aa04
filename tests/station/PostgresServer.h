// A PostgreSQL server of the tests' own, on a socket in a temporary folder.
#pragma once

#include <filesystem>
#include <string>

namespace ostrel::station {

class PostgresServer {
 public:
  PostgresServer();
  ~PostgresServer();
  PostgresServer(const PostgresServer&) = delete;
  PostgresServer& operator=(const PostgresServer&) = delete;

  void Start();
  void Stop();
  /// An empty database's address.
  [[nodiscard]] std::string NewDatabase();

 private:
  void Run(const std::string& command) const;

  std::filesystem::path folder_;
  std::string binaries_;
  int databases_ = 0;
};

}  // namespace ostrel::station
