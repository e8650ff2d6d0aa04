#include "simulator/Uart.h"

#include <bit>
#include <cstddef>

namespace ostrel::sim {
namespace {

constexpr int kDataBits = 8;

bool ParityBit(std::uint8_t byte, Parity parity) { return (std::popcount(byte) % 2 != 0) == (parity == Parity::Even); }

/// The levels of a line, a bit of the sender each.
std::vector<bool> Levels(std::span<const std::uint8_t> bytes, Parity parity) {
  std::vector<bool> levels;
  for (const std::uint8_t byte : bytes) {
    levels.push_back(false);
    for (int bit = 0; bit < kDataBits; ++bit) levels.push_back((byte >> bit & 1) != 0);
    if (parity != Parity::None) levels.push_back(ParityBit(byte, parity));
    levels.push_back(true);
  }
  return levels;
}

/// Time is counted in the sender's bits.
class Sampler {
 public:
  Sampler(std::vector<bool> levels, double bitsPerSample) : levels_(std::move(levels)), step_(bitsPerSample) {}

  /// To the next falling edge; false when there is none.
  bool FindStart() {
    auto bit = static_cast<std::size_t>(now_);
    while (bit < levels_.size() && !levels_[bit]) ++bit;  // a line that is still low has no edge
    while (bit < levels_.size() && levels_[bit]) ++bit;
    now_ = static_cast<double>(bit) - step_ / 2;
    return bit < levels_.size();
  }

  bool Next() {
    now_ += step_;
    const auto bit = static_cast<std::size_t>(now_);
    return bit >= levels_.size() || levels_[bit];
  }

  /// The beginning of a line is an edge like any other.
  void Begin() { now_ = -step_ / 2; }

 private:
  std::vector<bool> levels_;
  double step_;
  double now_ = 0;
};

}  // namespace

Received Receive(std::span<const std::uint8_t> sent, SerialMode sender, SerialMode receiver) {
  Received received;
  if (sent.empty()) return received;
  Sampler sampler(Levels(sent, sender.parity), static_cast<double>(sender.baud) / receiver.baud);
  sampler.Begin();
  do {
    if (sampler.Next()) continue;  // too short for a start bit
    std::uint8_t byte = 0;
    for (int bit = 0; bit < kDataBits; ++bit) byte |= static_cast<std::uint8_t>(sampler.Next() ? 1 << bit : 0);
    const bool parityRight = receiver.parity == Parity::None || sampler.Next() == ParityBit(byte, receiver.parity);
    const bool stopped = sampler.Next();
    received.bytes.push_back(stopped ? byte : 0);
    received.clean = received.clean && parityRight && stopped;
  } while (sampler.FindStart());
  return received;
}

}  // namespace ostrel::sim
