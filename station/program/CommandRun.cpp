// ostrel-station run: the daemon. Ready when every channel polls; the watchdog is fed only while all of them go on.
#include <fmt/format.h>
#include <systemd/sd-daemon.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <thread>

#include "station/archive/Schema.h"
#include "station/program/Commands.h"
#include "station/program/Journal.h"
#include "station/program/Station.h"

namespace ostrel::station {
namespace {

using namespace std::chrono_literals;

/// Whatever the lines do, the program has ended within five seconds.
constexpr auto kStopTime = 4000ms;
constexpr std::uint32_t kLastFlushMs = 700;
constexpr std::uint32_t kFlushMs = 2000;

// Blocked in every thread and taken by one: nothing happens between two instructions of anybody.
sigset_t TakenSignals() {
  sigset_t set;
  sigemptyset(&set);
  for (const int number : {SIGTERM, SIGINT, SIGHUP}) sigaddset(&set, number);
  return set;
}

std::string StateFolder(const ArchiveSettings& settings) {
  if (const char* const folder = std::getenv("STATE_DIRECTORY")) return folder;
  if (IsServer(settings.database)) return std::filesystem::temp_directory_path().string();
  const std::filesystem::path folder = std::filesystem::absolute(settings.database).parent_path();
  return folder.string();
}

/// What is wrong with the archive is said before anything is asked of a meter. A server that is away is waited for.
void CheckArchive(const ArchiveSettings& settings) {
  try {
    const auto database = OpenDatabase(settings.database);
    Migrate(*database);
    const std::string damage = database->Damage();
    if (!damage.empty()) throw host::Failure(host::kExitUsage, settings.database + ": is damaged: " + damage);
  } catch (const DatabaseAway& away) {
    if (!IsServer(settings.database)) throw host::Failure(host::kExitUsage, away.what());
    Say(Priority::Warning, std::string(away.what()) + "; what comes is kept in memory until it is back");
  } catch (const DatabaseError& wrong) {
    throw host::Failure(host::kExitUsage, wrong.what());
  }
}

void Reload(Station& station, const std::string& file) {
  const auto now = std::chrono::duration_cast<std::chrono::microseconds>(std::chrono::steady_clock::now().time_since_epoch());
  sd_notifyf(0, "RELOADING=1\nMONOTONIC_USEC=%lld", static_cast<long long>(now.count()));
  try {
    station.Apply(ReadSettings(file));
    Say(Priority::Notice, "the new configuration is in force");
  } catch (const host::Failure& failure) {
    Say(Priority::Error, std::string("the new configuration is refused, the old one stays: ") + failure.what());
  }
  sd_notify(0, "READY=1");
}

/// Ends the process when the orderly way takes too long.
class Deadline {
 public:
  explicit Deadline(Station& station)
      : thread_([this, &station] {
          const auto end = std::chrono::steady_clock::now() + kStopTime;
          while (!over_ && std::chrono::steady_clock::now() < end) std::this_thread::sleep_for(10ms);
          if (over_) return;
          (void)station.Flush(kLastFlushMs);
          Say(Priority::Warning, "a line did not let go in time");
          _exit(0);
        }) {}
  ~Deadline() {
    over_ = true;
    thread_.join();
  }

 private:
  std::atomic<bool> over_{false};
  std::thread thread_;
};

void Serve(Station& station, const std::string& file) {
  const sigset_t signals = TakenSignals();
  for (;;) {
    const timespec second{.tv_sec = 1, .tv_nsec = 0};
    const int number = sigtimedwait(&signals, nullptr, &second);
    if (number == SIGHUP) Reload(station, file);
    if (number == SIGTERM || number == SIGINT) return;
    station.Tick();
    if (station.Alive()) sd_notify(0, "WATCHDOG=1");
  }
}

}  // namespace

host::ExitCode CommandRun(const CommonOptions& options) {
  const sigset_t signals = TakenSignals();
  pthread_sigmask(SIG_BLOCK, &signals, nullptr);
  const StationSettings settings = ReadSettings(options.config);
  const host::Plugin plugin = host::Plugin::Load(options.module);
  CheckArchive(settings.archive);
  auto station = std::make_unique<Station>(plugin, settings, StateFolder(settings.archive));
  sd_notify(0, "READY=1");
  Say(Priority::Notice, fmt::format("station {} polls {} channels", settings.archive.station, settings.lines.channels.size()));
  Serve(*station, options.config);
  sd_notify(0, "STOPPING=1");
  {
    const Deadline deadline(*station);
    station->SignalStop();
    (void)station->Flush(kFlushMs);
    station->StopAll();
    (void)station->Flush(kFlushMs);
  }
  station.reset();
  return host::kExitDone;
}

}  // namespace ostrel::station
