#include "simulator/Line.h"

#include <algorithm>
#include <iterator>
#include <limits>
#include <utility>

#include "simulator/Bytes.h"
#include "simulator/Uart.h"

namespace ostrel::sim {
namespace {

using Bytes = std::vector<std::uint8_t>;

constexpr std::int64_t kUsPerMs = 1000;
constexpr std::size_t kCheckBytes = 2;
constexpr std::uint64_t kUsPerSecond = 1'000'000;

constexpr struct {
  std::string_view name;
  FaultKind kind;
} kFaultNames[] = {
    {"lost-byte", FaultKind::LostByte},
    {"flipped-bit", FaultKind::FlippedBit},
    {"cut", FaultKind::CutAnswer},
    {"merged", FaultKind::Merged},
    {"pieces", FaultKind::Pieces},
    {"late", FaultKind::Late},
    {"doubled", FaultKind::Doubled},
    {"echo", FaultKind::Echo},
    {"noise", FaultKind::Noise},
    {"silence", FaultKind::Silence},
    {"port-failure", FaultKind::PortFailure},
    {"wrong-speed", FaultKind::WrongSpeed},
    {"foreign", FaultKind::Foreign},
    {"chatter", FaultKind::Chatter},
};

void LoseByte(Bytes& answer, std::uint64_t place) {
  if (!answer.empty()) answer.erase(answer.begin() + static_cast<std::ptrdiff_t>(place % answer.size()));
}

void FlipBit(Bytes& answer, std::uint64_t place) {
  if (answer.empty()) return;
  const std::uint64_t bit = place % (answer.size() * 8);
  answer[bit / 8] ^= static_cast<std::uint8_t>(1U << bit % 8);
}

void Garble(Bytes& answer) { answer = Receive(answer, {.baud = 9600}, {.baud = 4800}).bytes; }

void GiveOtherAddress(Bytes& answer) {
  if (answer.size() <= kCheckBytes) return;
  answer[0] ^= 0x01;
  answer.resize(answer.size() - kCheckBytes);
  AppendCheck(answer);
}

/// At least one byte stays, and at least one is missing.
void Cut(Bytes& answer, std::uint64_t place) {
  if (answer.size() > 1) answer.resize(1 + place % (answer.size() - 1));
}

}  // namespace

std::optional<FaultKind> FaultKindFromName(std::string_view name) {
  for (const auto& row : kFaultNames) {
    if (row.name == name) return row.kind;
  }
  return std::nullopt;
}

std::int64_t WireUs(Pace pace, std::size_t bytes) {
  if (pace.baud == 0) return 0;
  const std::uint64_t bits = std::uint64_t{bytes} * pace.bitsPerByte;
  return static_cast<std::int64_t>((bits * kUsPerSecond + pace.baud - 1) / pace.baud);
}

Line::Line(std::vector<Meter> meters, FaultPlan plan, Pace pace)
    : meters_(std::move(meters)),
      plan_(std::move(plan)),
      pace_(pace),
      random_(plan_.seed),
      met_(plan_.faults.size()),
      down_until_ms_(std::numeric_limits<std::int64_t>::min()),
      queued_until_us_(0) {}

std::vector<Delivery> Line::Transact(std::span<const std::uint8_t> request, std::int64_t utcMs) {
  if (request.empty() || IsDown(utcMs)) return {};
  Passing passing = Ask(request, utcMs);
  for (std::size_t i = 0; i < plan_.faults.size(); ++i) {
    if (Meets(i, request[0])) Spoil(plan_.faults[i], request, utcMs, passing);
  }
  if (IsDown(utcMs)) return {};
  std::vector<Delivery> deliveries = Schedule(passing, request.size());
  if (plan_.inOrder) Queue(utcMs, deliveries);
  return deliveries;
}

Line::Passing Line::Ask(std::span<const std::uint8_t> request, std::int64_t utcMs) {
  Passing passing;
  passing.glued = !held_back_.empty();
  passing.answer = std::exchange(held_back_, {});
  for (Meter& meter : meters_) {
    const Bytes answer = meter.Answer(request, utcMs);
    passing.answer.insert(passing.answer.end(), answer.begin(), answer.end());
  }
  return passing;
}

std::vector<std::uint8_t> Line::Chatter(std::int64_t utcMs) {
  Bytes bytes;
  for (const Fault& fault : plan_.faults) {
    if (fault.kind != FaultKind::Chatter || utcMs < chatter_at_ms_) continue;
    chatter_at_ms_ = utcMs + fault.ms;
    std::generate_n(std::back_inserter(bytes), fault.bytes, [this] { return static_cast<std::uint8_t>(random_.Next()); });
  }
  return bytes;
}

bool Line::Meets(std::size_t faultIndex, std::uint8_t address) {
  const Fault& fault = plan_.faults[faultIndex];
  if (fault.address != 0 && fault.address != address) return false;
  if (fault.every != 0) return ++met_[faultIndex] % fault.every == 0;
  return fault.chance == 0 || random_.Unit() < fault.chance;
}

void Line::AddNoise(std::uint32_t mostBytes, Bytes& bytes) {
  std::generate_n(std::back_inserter(bytes), 1 + random_.Below(std::max<std::uint32_t>(1, mostBytes)),
                  [this] { return static_cast<std::uint8_t>(random_.Next()); });
}

void Line::Spoil(const Fault& fault, std::span<const std::uint8_t> request, std::int64_t utcMs, Passing& passing) {
  switch (fault.kind) {
    case FaultKind::LostByte:
      return LoseByte(passing.answer, random_.Next());
    case FaultKind::FlippedBit:
      return FlipBit(passing.answer, random_.Next());
    case FaultKind::CutAnswer:
      return Cut(passing.answer, random_.Next());
    case FaultKind::Merged:
      if (!passing.glued) held_back_ = std::exchange(passing.answer, {});
      return;
    case FaultKind::Pieces:
      passing.shape.pieceBytes = fault.bytes;
      passing.shape.gapMs = fault.ms;
      return;
    case FaultKind::Late:
      passing.shape.lateMs += fault.ms + (fault.spread == 0 ? 0 : static_cast<std::uint32_t>(random_.Below(fault.spread + 1)));
      return;
    case FaultKind::Doubled:
      passing.shape.againMs = fault.ms;
      return;
    case FaultKind::Echo:
      passing.before.assign(request.begin(), request.end());
      return;
    case FaultKind::Noise:
      return AddNoise(fault.bytes, passing.before);
    case FaultKind::Silence:
      passing.answer.clear();
      return;
    case FaultKind::PortFailure:
      down_until_ms_ = utcMs + fault.ms;
      return;
    case FaultKind::WrongSpeed:
      return Garble(passing.answer);
    case FaultKind::Foreign:
      return GiveOtherAddress(passing.answer);
    case FaultKind::Chatter:
      return;
  }
}

std::vector<Delivery> Line::Schedule(const Passing& passing, std::size_t requestBytes) const {
  std::vector<Delivery> deliveries;
  const auto deliver = [&](const Bytes& bytes, std::size_t bytesBefore, const Shape& shape) {
    const std::size_t piece = shape.pieceBytes != 0 ? shape.pieceBytes : (pace_.baud != 0 ? 1 : bytes.size());
    std::int64_t gapsMs = shape.lateMs;
    for (std::size_t from = 0; from < bytes.size(); from += piece, gapsMs += shape.gapMs) {
      const std::size_t to = std::min(bytes.size(), from + piece);
      deliveries.push_back(
          {.afterUs = WireUs(pace_, bytesBefore + to) + gapsMs * kUsPerMs,
           .bytes = Bytes(bytes.begin() + static_cast<std::ptrdiff_t>(from), bytes.begin() + static_cast<std::ptrdiff_t>(to))});
    }
  };
  deliver(passing.before, requestBytes, {});
  deliver(passing.answer, requestBytes + passing.before.size(), passing.shape);
  if (passing.shape.againMs) {
    Shape again = passing.shape;
    again.lateMs += *again.againMs;
    deliver(passing.answer, requestBytes + passing.before.size() + passing.answer.size(), again);
  }
  return deliveries;
}

void Line::Queue(std::int64_t utcMs, std::vector<Delivery>& deliveries) {
  if (deliveries.empty()) return;
  const std::int64_t sentUs = utcMs * kUsPerMs;
  const std::int64_t waitUs = std::max<std::int64_t>(0, queued_until_us_ - (sentUs + deliveries.front().afterUs));
  for (Delivery& each : deliveries) {
    each.afterUs += waitUs;
    queued_until_us_ = std::max(queued_until_us_, sentUs + each.afterUs);
  }
}

}  // namespace ostrel::sim
