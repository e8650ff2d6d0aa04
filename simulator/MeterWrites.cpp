#include "simulator/MeterWrites.h"

#include "simulator/Bytes.h"

namespace ostrel::sim {
namespace {

using Bytes = std::span<const std::uint8_t>;

Status SetCoefficient(const WriteContext& context, std::uint16_t& coefficient, Bytes data) {
  if (context.type.singlePhase) return Status::Unknown;
  coefficient = static_cast<std::uint16_t>(BigValue(data));
  return Status::Done;
}

Status SetVoltageCoefficient(const WriteContext& context, Bytes data) {
  return SetCoefficient(context, context.settings.ku, data);
}

Status SetCurrentCoefficient(const WriteContext& context, Bytes data) {
  return SetCoefficient(context, context.settings.ki, data);
}

Status SetIndicationPeriod(const WriteContext& context, Bytes data) {
  context.settings.indicationPeriodSeconds = data[0];
  return Status::Done;
}

bool IsTimeOfDay(int hour, int minute, int second) {
  return hour >= 0 && hour <= 23 && minute >= 0 && minute <= 59 && second >= 0 && second <= 59;
}

Status CorrectClock(const WriteContext& context, Bytes data) {
  const int second = BcdValue(data[0]);
  const int minute = BcdValue(data[1]);
  const int hour = BcdValue(data[2]);
  if (!IsTimeOfDay(hour, minute, second)) return Status::Unknown;
  return context.clock.Correct(hour, minute, second, context.utcMs) ? Status::Done : Status::AlreadyCorrected;
}

/// Second, minute, hour, weekday, day, month, year, season. The weekday must be that of the date.
Status SetClock(const WriteContext& context, Bytes data) {
  const CivilTime civil{.year = 2000 + BcdValue(data[6]),
                        .month = BcdValue(data[5]),
                        .day = BcdValue(data[4]),
                        .hour = BcdValue(data[2]),
                        .minute = BcdValue(data[1]),
                        .second = BcdValue(data[0])};
  if (!IsTimeOfDay(civil.hour, civil.minute, civil.second) || civil.year < 2000 || !IsDate(civil)) {
    return Status::Unknown;
  }
  const MeterTime time = FromCivil(civil);
  if (ToCivil(time).weekday != BcdValue(data[3])) return Status::Unknown;
  context.clock.Set(time, context.utcMs);
  return Status::Done;
}

Status SetFlag(const WriteContext& context, Bytes data) {
  switch (data[0]) {
    case 0:
    case 1:
      context.settings.transitionInhibited = data[0] == 1;
      context.clock.InhibitTransitions(data[0] == 1, context.utcMs);
      return Status::Done;
    case 4:
    case 5:
      context.settings.recoveryInhibited = data[0] == 4;
      return Status::Done;
    default:
      return Status::Unknown;
  }
}

/// 0 switches the load on, 1 off.
Status SwitchLoad(const WriteContext& context, Bytes data) {
  if (data[0] > 1) return Status::Unknown;
  context.settings.loadControl = data[0] == 0 ? 1 : 0;
  return Status::Done;
}

/// What is limited, a selector, and a number of four bytes.
Status SetLimit(const WriteContext& context, Bytes data) {
  const std::uint8_t selector = data[1];
  const std::uint32_t value = BigValue(data.subspan(2));
  const auto limit = LimitOfSelector(selector);
  MeterSettings& settings = context.settings;
  if (data[0] == 0x04 && limit) {
    settings.energyLimits[limit->kind][limit->tariff] = value;
  } else if (data[0] == 0x07 && selector == 0 && value >= 1 && value <= 25) {
    settings.estimatedIntervalStart = static_cast<std::uint8_t>(value);
  } else if (data[0] == 0x08 && selector < settings.powerLimits.size() && value <= 0xFFFF) {
    settings.powerLimits[selector] = static_cast<std::uint16_t>(value);
  } else {
    return Status::Unknown;
  }
  return Status::Done;
}

struct WriteRow {
  std::uint8_t number;
  std::size_t dataBytes;
  Status (*write)(const WriteContext&, Bytes);
};

constexpr WriteRow kWrites[] = {
    {.number = 0x07, .dataBytes = 1, .write = SetIndicationPeriod},
    {.number = 0x0C, .dataBytes = 8, .write = SetClock},
    {.number = 0x0D, .dataBytes = 3, .write = CorrectClock},
    {.number = 0x18, .dataBytes = 1, .write = SetFlag},
    {.number = 0x1B, .dataBytes = 2, .write = SetVoltageCoefficient},
    {.number = 0x1C, .dataBytes = 2, .write = SetCurrentCoefficient},
    {.number = 0x2F, .dataBytes = 1, .write = SwitchLoad},
    {.number = 0x2F, .dataBytes = 6, .write = SetLimit},
};

}  // namespace

Status WriteParameter(const WriteContext& context, std::span<const std::uint8_t> command) {
  if (command.empty()) return Status::Unknown;
  for (const WriteRow& row : kWrites) {
    if (row.number == command[0] && row.dataBytes == command.size() - 1) return row.write(context, command.subspan(1));
  }
  return Status::Unknown;
}

}  // namespace ostrel::sim
