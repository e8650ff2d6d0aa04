#include "host/session/LineScan.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <set>

#include "host/session/Failure.h"
#include "host/session/LineFinding.h"
#include "host/session/MeterFrames.h"
#include "platform/console.h"

namespace ostrel::host {
namespace {

struct Mode {
  std::uint32_t baud;
  const char* parity;
};

// The usual ones first.
constexpr std::uint32_t kSpeeds[] = {9600, 19200, 38400, 57600, 115200, 4800, 2400, 1200, 600, 300};
constexpr const char* kParities[] = {"none", "even", "odd"};
constexpr std::uint32_t kMostAddress = 254;
constexpr std::size_t kRequestBytes = 5;
/// A slow line's settling between two speeds, and what a system needs for an ask beyond the line's own time.
constexpr std::uint32_t kChangeMs = 100;
constexpr std::uint32_t kOwnMs = 5;

std::uint32_t WireMs(std::size_t bytes, std::uint32_t baud) {
  constexpr std::size_t kBitsPerByte = 11;
  return static_cast<std::uint32_t>((bytes * kBitsPerByte * 1000 + baud - 1) / baud);
}

std::vector<Mode> ModesOf(const ChannelConfig& channel, const ScanPlan& plan) {
  std::vector<Mode> modes = {{channel.baud, channel.parity.c_str()}};
  if (!plan.speeds) return modes;
  for (const std::uint32_t baud : kSpeeds) {
    for (const char* const parity : kParities) {
      if (baud != channel.baud || channel.parity != parity) modes.push_back({baud, parity});
    }
  }
  return modes;
}

std::uint32_t Address(std::string_view text) {
  std::uint32_t address = 0;
  const auto read = std::from_chars(text.data(), text.data() + text.size(), address);
  if (read.ec != std::errc() || read.ptr != text.data() + text.size() || address == 0 || address > kMostAddress) {
    throw Failure(kExitUsage, fmt::format("\"{}\" is no address from 1 to {}", text, kMostAddress));
  }
  return address;
}

// One meter's line, asked for what it is.
class Scanner {
 public:
  Scanner(Wire& wire, const ChannelConfig& channel) : wire_(wire), channel_(channel) {}

  void AskAll(const ScanPlan& plan, ScanResult& result, const std::function<void(const ScanProgress&)>& progress) {
    std::size_t asked = 0;
    for (const std::uint32_t address : plan.addresses) {
      result.interrupted = platform::Interrupted();
      if (result.interrupted || wire_.Failed()) return;
      const Heard heard = Ask({static_cast<std::uint8_t>(address), 0x08, 0x00});
      if (frame_.empty()) result.strayBytes += heard.bytes.size();
      if (!frame_.empty()) result.meters.push_back({.address = address, .type = {}, .password = PasswordOf(address)});
      progress({.baud = result.baud, .parity = result.parity, .asked = ++asked});
    }
  }

  // The password is sent once.
  void ReadType(FoundMeter& meter) {
    const auto address = static_cast<std::uint8_t>(meter.address);
    (void)Ask(OpeningRequest(address, meter.password));
    (void)Ask({address, 0x08, 0x12});
    if (frame_.size() == kVariantAnswer) meter.type = frame_[3] >> 4;
  }

 private:
  Heard Ask(const std::vector<std::uint8_t>& request) {
    Heard heard = wire_.Ask(request, channel_.timeoutMs);
    const std::vector<std::uint8_t> whole = WithCheck(request);
    const auto found = AnswerIn(heard, whole, true);
    frame_.assign(found.begin(), found.end());
    return heard;
  }

  std::string PasswordOf(std::uint32_t address) const {
    for (const MeterConfig& meter : channel_.meters) {
      if (meter.address == address) return meter.level1Password;
    }
    return MeterConfig().level1Password;
  }

  Wire& wire_;
  const ChannelConfig& channel_;
  std::vector<std::uint8_t> frame_;
};

std::string Quoted(const std::string& text) {
  std::string quoted = "\"";
  for (const char letter : text) quoted += letter == '"' || letter == '\\' ? std::string("\\") + letter : std::string(1, letter);
  return quoted + '"';
}

std::string NameOf(const ChannelConfig& channel, std::uint32_t address) {
  for (const MeterConfig& meter : channel.meters) {
    if (meter.address == address) return meter.name;
  }
  return fmt::format("meter-{}", address);
}

std::string MeterText(const ChannelConfig& channel, const FoundMeter& meter, const std::vector<MeterType>& types) {
  const auto known = std::find_if(types.begin(), types.end(), [&meter](const MeterType& type) { return type.id == meter.type; });
  std::string text =
      fmt::format("\n  [[channel.meter]]\n  name = {}\n  address = {}\n", Quoted(NameOf(channel, meter.address)), meter.address);
  if (meter.password != MeterConfig().level1Password) text += fmt::format("  level1_password = {}\n", Quoted(meter.password));
  if (known != types.end()) return text + fmt::format("  type = {}  # {}\n", known->id, known->display);
  return text + "  type = 1  # not read: give level1_password, and the type of the meter's passport\n";
}

}  // namespace

std::vector<std::uint32_t> ParseAddresses(const std::string& text) {
  std::set<std::uint32_t> addresses;
  for (std::size_t from = 0; from <= text.size();) {
    const std::size_t comma = std::min(text.find(',', from), text.size());
    const std::string_view part = std::string_view(text).substr(from, comma - from);
    const std::size_t dash = part.find('-');
    const std::uint32_t first = Address(part.substr(0, dash));
    const std::uint32_t last = dash == std::string_view::npos ? first : Address(part.substr(dash + 1));
    if (first > last) throw Failure(kExitUsage, fmt::format("\"{}\": the first address is above the last", part));
    for (std::uint32_t address = first; address <= last; ++address) addresses.insert(address);
    from = comma + 1;
  }
  return {addresses.begin(), addresses.end()};
}

std::chrono::milliseconds LongestScan(const ChannelConfig& channel, const ScanPlan& plan) {
  std::uint64_t total = 0;
  for (const Mode& mode : ModesOf(channel, plan)) {
    const std::uint64_t ask = channel.timeoutMs + WireMs(kRequestBytes + kSerialAnswer, mode.baud) + kOwnMs;
    total += kChangeMs + plan.addresses.size() * ask;
  }
  return std::chrono::milliseconds(total);
}

ScanResult Scan(const ChannelConfig& channel, const ScanPlan& plan, const std::function<void(const ScanProgress&)>& progress) {
  std::string reason;
  const std::unique_ptr<Wire> wire = Wire::Open(channel, reason);
  if (wire == nullptr) throw Failure(kExitPort, channel.port + ": " + reason);
  ScanResult result;
  Scanner scanner(*wire, channel);
  for (const Mode& mode : ModesOf(channel, plan)) {
    if (!wire->SetMode(mode.baud, mode.parity)) continue;
    progress({.baud = mode.baud, .parity = mode.parity});
    result.baud = mode.baud;
    result.parity = mode.parity;
    (void)wire->Listen(kChangeMs);
    scanner.AskAll(plan, result, progress);
    if (wire->Failed()) throw Failure(kExitPort, channel.port + ": the device has gone");
    if (!result.meters.empty() || result.interrupted) break;
  }
  for (FoundMeter& meter : result.meters) scanner.ReadType(meter);
  return result;
}

std::string ChannelText(const ChannelConfig& channel, const ScanResult& result, const std::vector<MeterType>& types) {
  std::string text =
      fmt::format("[[channel]]\nport = {}\ndevice = {}\nbaud = {}\nparity = {}\ntimeout_ms = {}\n", Quoted(channel.port),
                  Quoted(channel.device), result.baud, Quoted(result.parity), channel.timeoutMs);
  if (channel.echo) text += "echo = true\n";
  for (const FoundMeter& meter : result.meters) text += MeterText(channel, meter, types);
  return text;
}

}  // namespace ostrel::host
