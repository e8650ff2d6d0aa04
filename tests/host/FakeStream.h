// A byte stream whose other end is a script, on the virtual clock.
#pragma once

#include <algorithm>
#include <functional>
#include <map>

#include "host/ports/ByteStream.h"
#include "tests/support/SimulatedChannel.h"

namespace ostrel::host {

using test::Bytes;
using test::ClockInPlace;

/// What the other end does; shared, so that a test can look at it while a port owns the stream.
struct FakeLine {
  platform::VirtualClock& clock;
  std::multimap<std::int64_t, Bytes> arrivals{};  // by elapsed ms
  std::function<void(const Bytes&)> onSend{};
  std::vector<Bytes> sent{};
  std::vector<LineMode> modes{};
  bool failed = false;
  bool takesMode = true;
  std::uint32_t gapMs = 0;

  void Arrive(std::int64_t afterMs, const Bytes& bytes) { arrivals.emplace(clock.Elapsed() + afterMs, bytes); }
};

class FakeStream final : public ByteStream {
 public:
  explicit FakeStream(FakeLine& line) : line_(line) {}

  bool SetMode(const LineMode& mode) override {
    line_.modes.push_back(mode);
    return line_.takesMode;
  }
  bool Send(const std::uint8_t* bytes, std::size_t size) override {
    line_.sent.emplace_back(bytes, bytes + size);
    if (line_.onSend) line_.onSend(line_.sent.back());
    return !line_.failed;
  }
  bool Failed() const override { return line_.failed; }
  std::uint32_t OwnGapMs() const override { return line_.gapMs; }

  std::size_t Receive(std::uint8_t* buffer, std::size_t size, std::uint32_t waitMs) override {
    const std::int64_t deadline = line_.clock.Elapsed() + waitMs;
    for (;;) {
      const std::size_t count = TakeDue(buffer, size);
      const std::int64_t now = line_.clock.Elapsed();
      if (count != 0 || now >= deadline || line_.failed) return count;
      const std::int64_t next = line_.arrivals.empty() ? deadline : std::min(deadline, line_.arrivals.begin()->first);
      line_.clock.Sleep(static_cast<std::uint32_t>(next - now));
    }
  }

 private:
  std::size_t TakeDue(std::uint8_t* buffer, std::size_t size) {
    std::size_t count = 0;
    while (count < size && !line_.arrivals.empty() && line_.arrivals.begin()->first <= line_.clock.Elapsed()) {
      Bytes& bytes = line_.arrivals.begin()->second;
      const std::size_t taken = std::min(size - count, bytes.size());
      std::copy_n(bytes.begin(), taken, buffer + count);
      bytes.erase(bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(taken));
      count += taken;
      if (bytes.empty()) line_.arrivals.erase(line_.arrivals.begin());
    }
    return count;
  }

  FakeLine& line_;
};

}  // namespace ostrel::host
