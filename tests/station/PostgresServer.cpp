#include "tests/station/PostgresServer.h"

#include <unistd.h>

#include <array>
#include <cstdlib>
#include <stdexcept>

namespace ostrel::station {
namespace {

/// The server refuses to run as root; Debian's package has a user for it.
std::string AsServer(const std::string& command) { return geteuid() == 0 ? "runuser -u postgres -- " + command : command; }

}  // namespace

PostgresServer::PostgresServer() {
  std::array<char, 32> name{"/tmp/ostrel-postgres-XXXXXX"};
  folder_ = mkdtemp(name.data());
  for (const auto& version : std::filesystem::directory_iterator("/usr/lib/postgresql"))
    binaries_ = (version.path() / "bin").string();
  if (geteuid() == 0) Run("chown postgres " + folder_.string());
  Run(AsServer(binaries_ + "/initdb -D " + folder_.string() + "/data -A trust -E UTF8 --no-sync"));
  Start();
}

PostgresServer::~PostgresServer() {
  try {
    Stop();
  } catch (const std::runtime_error&) {
    // It was stopped by the test.
  }
  std::filesystem::remove_all(folder_);
}

void PostgresServer::Start() {
  const std::string options = "-c listen_addresses= -c fsync=off -k " + folder_.string();
  Run(AsServer(binaries_ + "/pg_ctl -D " + folder_.string() + "/data -w -l " + folder_.string() + "/data/log -o '" + options +
               "' start"));
}

void PostgresServer::Stop() { Run(AsServer(binaries_ + "/pg_ctl -D " + folder_.string() + "/data -w -m immediate stop")); }

std::string PostgresServer::NewDatabase() {
  const std::string name = "t" + std::to_string(++databases_);
  Run(AsServer(binaries_ + "/createdb -h " + folder_.string() + " -U " + (geteuid() == 0 ? "postgres" : std::getenv("USER")) +
               " " + name));
  return "postgresql:///" + name + "?host=" + folder_.string() + "&user=" + (geteuid() == 0 ? "postgres" : std::getenv("USER"));
}

void PostgresServer::Run(const std::string& command) const {
  if (std::system((command + " >/dev/null 2>&1").c_str()) != 0) throw std::runtime_error("failed: " + command);
}

}  // namespace ostrel::station
