#include "platform/serial_device.h"

#include <fcntl.h>
#include <grp.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <limits>

namespace ostrel::platform {
namespace {

namespace fs = std::filesystem;

bool IsNumber(const std::string& text) {
  return !text.empty() && std::all_of(text.begin(), text.end(), [](char letter) { return letter >= '0' && letter <= '9'; });
}

std::string FirstLine(const fs::path& file) {
  std::ifstream stream(file);
  std::string line;
  std::getline(stream, line);
  return line;
}

bool Holds(const fs::path& process, dev_t device) {
  std::error_code failed;
  for (fs::directory_iterator file(process / "fd", failed), end; !failed && file != end; file.increment(failed)) {
    struct stat status = {};
    if (stat(file->path().c_str(), &status) == 0 && S_ISCHR(status.st_mode) && status.st_rdev == device) return true;
  }
  return false;
}

// Only the processes of this user, unless root asks.
std::vector<std::string> Holders(dev_t device) {
  std::vector<std::string> holders;
  std::error_code failed;
  for (fs::directory_iterator process("/proc", failed), end; !failed && process != end; process.increment(failed)) {
    const std::string number = process->path().filename();
    if (!IsNumber(number) || number == std::to_string(getpid()) || !Holds(process->path(), device)) continue;
    holders.push_back(number + " (" + FirstLine(process->path() / "comm") + ")");
  }
  return holders;
}

std::vector<std::string> Adapters() {
  std::vector<std::string> adapters;
  std::error_code failed;
  for (fs::directory_iterator link("/dev/serial/by-id", failed), end; !failed && link != end; link.increment(failed)) {
    adapters.push_back(link->path());
  }
  std::sort(adapters.begin(), adapters.end());
  return adapters;
}

std::optional<std::uint32_t> LatencyMs(const std::string& device) {
  std::error_code failed;
  const fs::path real = fs::canonical(device, failed);
  if (failed) return std::nullopt;
  const std::string text = FirstLine("/sys/class/tty" / real.filename() / "device/latency_timer");
  if (!IsNumber(text) || text.size() > std::numeric_limits<std::uint32_t>::digits10) return std::nullopt;
  return static_cast<std::uint32_t>(std::stoul(text));
}

}  // namespace

SerialDevice LookAtSerialDevice(const std::string& device) {
  SerialDevice seen;
  struct stat status = {};
  seen.exists = stat(device.c_str(), &status) == 0;
  seen.adapters = Adapters();
  if (!seen.exists) return seen;
  seen.permitted = access(device.c_str(), R_OK | W_OK) == 0;
  if (const group* const owner = getgrgid(status.st_gid)) seen.group = owner->gr_name;
  seen.isLine = S_ISCHR(status.st_mode);
  if (seen.isLine) seen.holders = Holders(status.st_rdev);
  seen.latencyMs = LatencyMs(device);
  return seen;
}

}  // namespace ostrel::platform
