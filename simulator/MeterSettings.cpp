#include "simulator/MeterSettings.h"

#include "simulator/MeterTypes.h"

namespace ostrel::sim {

MeterSettings InitialSettings(const MeterSpec& spec) {
  MeterSettings settings{.ku = spec.ku, .ki = spec.ki};
  for (std::size_t kind = 0; kind < settings.energyLimits.size(); ++kind) {
    for (std::size_t tariff = 0; tariff < settings.energyLimits[kind].size(); ++tariff) {
      settings.energyLimits[kind][tariff] = static_cast<std::uint32_t>(1000000 * (kind + 1) + 12500 * (tariff + 1));
    }
  }
  for (std::size_t day = 0; day < settings.powerLimits.size(); ++day) {
    settings.powerLimits[day] = static_cast<std::uint16_t>(5000 - 625 * day);
  }
  const MeterType* type = FindMeterType(spec.type);
  for (std::size_t profile = 0; type != nullptr && profile < type->profiles; ++profile) {
    settings.profileMinutes[profile] = spec.profileMinutes[profile];
  }
  return settings;
}

std::optional<LimitIndex> LimitOfSelector(std::uint8_t selector) {
  const std::size_t kind = selector >> 4;
  const std::size_t tariff = selector & 0x0F;
  if (kind > 3 || tariff > 4) return std::nullopt;
  return LimitIndex{kind, tariff};
}

}  // namespace ostrel::sim
