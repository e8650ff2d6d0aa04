#include "host/session/Wire.h"

#include <algorithm>
#include <array>

#include "host/server/HostServices.h"
#include "host/session/MeterFrames.h"
#include "platform/clock.h"

namespace ostrel::host {
namespace {

constexpr struct {
  const char* word;
  Parity parity;
} kParities[] = {
    {"none", Parity::None}, {"even", Parity::Even}, {"odd", Parity::Odd}, {"mark", Parity::Mark}, {"space", Parity::Space}};

// Longer than any adapter keeps bytes back, so that what belongs together stays together.
constexpr std::uint32_t kQuietMs = 60;
constexpr std::size_t kRoom = 4096;
constexpr std::uint32_t kBitsPerByte = 11;
constexpr int kDropTimes = 8;

PortDevice DeviceOf(const ChannelConfig& channel) {
  PortDevice device{.port = channel.port, .device = channel.device, .line = {}, .meters = {}};
  for (const MeterConfig& meter : channel.meters) {
    const auto* const type = std::get_if<std::uint32_t>(&meter.type);
    device.meters.push_back({.address = meter.address,
                             .type = type != nullptr ? *type : 1,
                             .level1Password = meter.level1Password,
                             .level2Password = meter.level2Password});
  }
  return device;
}

}  // namespace

std::unique_ptr<Wire> Wire::Open(const ChannelConfig& channel, std::string& error) {
  std::unique_ptr<ByteStream> stream = OpenDevice(DeviceOf(channel), error);
  if (stream == nullptr) return nullptr;
  std::unique_ptr<Wire> wire(new Wire(std::move(stream), channel));
  if (wire->SetMode(channel.baud, channel.parity)) return wire;
  error = channel.device + ": does not take " + std::to_string(channel.baud) + " baud with parity " + channel.parity;
  return nullptr;
}

bool Wire::SetMode(std::uint32_t baud, const std::string& parity) {
  baud_ = baud;
  for (const auto& row : kParities) {
    if (parity == row.word) return stream_->SetMode({.baud = baud, .parity = row.parity});
  }
  return false;
}

std::uint32_t Wire::BytesMs(std::size_t bytes) const {
  return static_cast<std::uint32_t>((bytes * kBitsPerByte * 1000 + baud_ - 1) / baud_);
}

Heard Wire::Listen(std::uint32_t ms) {
  Heard heard;
  std::array<std::uint8_t, kRoom> buffer;
  const std::uint32_t start = platform::TickCount();
  for (std::uint32_t passed = 0; passed < ms && !Failed(); passed = platform::TickCount() - start) {
    const std::size_t count = stream_->Receive(buffer.data(), buffer.size(), ms - passed);
    heard.bytes.insert(heard.bytes.end(), buffer.begin(), buffer.begin() + static_cast<std::ptrdiff_t>(count));
  }
  return heard;
}

Heard Wire::Ask(std::span<const std::uint8_t> request, std::uint32_t waitMs, std::size_t wanted) {
  Heard heard;
  std::array<std::uint8_t, kRoom> buffer;
  // A line that never ends to talk is not waited for.
  for (int times = 0; times < kDropTimes && stream_->Receive(buffer.data(), buffer.size(), 0) != 0; ++times) continue;
  const std::vector<std::uint8_t> frame = WithCheck(request);
  if (!stream_->Send(frame.data(), frame.size())) return heard;
  const std::size_t echoed = echo_ ? frame.size() : 0;
  const std::uint32_t sent = platform::TickCount();
  std::uint32_t last = sent;
  while (heard.bytes.size() < std::min(wanted, kRoom)) {
    const std::uint32_t wait = heard.bytes.size() <= echoed ? waitMs : std::max(kQuietMs, BytesMs(4));
    const std::size_t count = stream_->Receive(buffer.data(), buffer.size(), wait);
    const std::uint32_t now = platform::TickCount();
    if (count == 0) break;
    if (heard.bytes.size() <= echoed) heard.firstMs = now - sent;
    // Quiet is what the bytes of this piece did not take.
    const std::uint32_t quiet = now - last - std::min(now - last, BytesMs(count));
    if (heard.bytes.size() > echoed) heard.longestGapMs = std::max(heard.longestGapMs, quiet);
    last = now;
    heard.bytes.insert(heard.bytes.end(), buffer.begin(), buffer.begin() + static_cast<std::ptrdiff_t>(count));
  }
  return heard;
}

}  // namespace ostrel::host
