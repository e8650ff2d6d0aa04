// What keeping costs beside polling: processor time of ostrel-station and of ostrel-host on the same simulated channels.
// bench_station_cpu [CHANNELS [SECONDS]]
#include <fmt/format.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <thread>

namespace {

constexpr double kBound = 1.3;

void WriteConfig(const std::filesystem::path& file, const std::string& folder, int channels) {
  std::ofstream out(file);
  out << fmt::format("log = {{ file = \"{0}/log\" }}\n[archive]\ndatabase = \"{0}/archive.db\"\nhistory = []\n", folder);
  for (int channel = 1; channel <= channels; ++channel) {
    out << fmt::format("[[channel]]\nport = \"COM{}\"\ndevice = \"simulated\"\npoll_period_s = 1\n", channel);
    for (int meter = 1; meter <= 16; ++meter) {
      out << fmt::format(
          "[[channel.meter]]\nname = \"m{}-{}\"\naddress = {}\ntype = 1\ntags = [\"?? Tariff Sum\", \"Power P *\", \"Voltage "
          "Phase ?\"]\n",
          channel, meter, meter);
    }
  }
}

/// User and system time of a program that runs so long.
double Seconds(const std::string& program, const std::string& config, int seconds) {
  const pid_t child = fork();
  if (child == 0) {
    if (std::freopen("/dev/null", "w", stdout) == nullptr) _exit(1);
    execl(program.c_str(), program.c_str(), "run", "--config", config.c_str(), nullptr);
    _exit(127);
  }
  std::this_thread::sleep_for(std::chrono::seconds(seconds));
  kill(child, SIGTERM);
  rusage usage{};
  int status = 0;
  wait4(child, &status, 0, &usage);
  return static_cast<double>(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) +
         static_cast<double>(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1e6;
}

}  // namespace

int main(int count, char** arguments) {
  const int channels = count > 1 ? std::atoi(arguments[1]) : 8;
  const int seconds = count > 2 ? std::atoi(arguments[2]) : 20;
  const auto folder = std::filesystem::temp_directory_path() / "ostrel-bench-cpu";
  std::filesystem::remove_all(folder);
  std::filesystem::create_directory(folder);
  const std::string config = (folder / "station.toml").string();
  WriteConfig(config, folder.string(), channels);
  const std::string programs = std::filesystem::path(arguments[0]).parent_path().string();
  const double polling = Seconds(programs + "/ostrel-host", config, seconds);
  const double keeping = Seconds(programs + "/ostrel-station", config, seconds);
  fmt::print(
      "{} channels of 16 meters for {} s: polling alone {:.2f} s of processor, the station {:.2f} s, ratio {:.2f} (bound {})\n",
      channels, seconds, polling, keeping, keeping / polling, kBound);
  std::filesystem::remove_all(folder);
  return keeping / polling <= kBound ? 0 : 1;
}
