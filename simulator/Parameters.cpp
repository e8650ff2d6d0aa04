#include "simulator/Parameters.h"

#include "platform/text.h"
#include "simulator/Bytes.h"
#include "simulator/Quantities.h"

namespace ostrel::sim {
namespace {

using Data = std::vector<std::uint8_t>;
using Selectors = std::span<const std::uint8_t>;

Data SerialAndDate(const MeterView& view, Selectors) {
  Data data;
  AppendBig(data, view.model.Serial(), 4);
  const CivilTime released = ReleaseDate(view.model);
  for (const int part : {released.day, released.month, released.year % 100}) data.push_back(Bcd(part));
  return data;
}

Data Temperature(const MeterView& view, Selectors) { return {0, static_cast<std::uint8_t>(view.model.Temperature(view.now))}; }

Data Coefficients(const MeterView& view, Selectors) {
  Data data;
  AppendBig(data, view.settings.ku, 2);
  AppendBig(data, view.settings.ki, 2);
  data.resize(10);
  return data;
}

Data Version(const MeterView& view, Selectors) {
  const auto version = ProgramVersion(view.model);
  return {version.begin(), version.end()};
}

Data Address(const MeterView& view, Selectors) { return {0, static_cast<std::uint8_t>(view.spec.address)}; }

Data ProfilePeriod(const MeterView& view, Selectors selectors) {
  const std::size_t profile = selectors.empty() ? 0 : selectors[0];
  if (profile >= view.settings.profileMinutes.size()) return {};
  return {0, view.settings.profileMinutes[profile]};
}

Data Flags(const MeterView& view, Selectors) {
  const int inhibited = view.settings.transitionInhibited ? 1 : 0;
  const int recovery = view.settings.recoveryInhibited ? 4 : 0;
  return {0, static_cast<std::uint8_t>(inhibited | recovery)};
}

Data Location(const MeterView& view, Selectors) {
  const std::string text = platform::Utf8ToCp1251(LocationText(view.spec));
  Data data(text.begin(), text.end());
  data.resize(16);
  return data;
}

Data CurrentTariffEnergies(const MeterView& view, Selectors) {
  Data data;
  for (const std::uint32_t pulses : view.model.Energy().At(view.model.TariffAt(view.now), view.now)) {
    AppendBig(data, pulses, 4);
  }
  return data;
}

Data Variant(const MeterView& view, Selectors) {
  const auto& bytes = view.model.Variant().bytes;
  return {bytes.begin(), bytes.end()};
}

/// The two highest bits are the directions of active and reactive power.
Data QuantityAnswer(const MeterView& view, Selectors selectors) {
  const auto quantity = ReadQuantity(view.model, selectors[0], view.now);
  if (!quantity) return {};
  Data data;
  AppendBig(data, quantity->number | (quantity->exporting ? 0x800000U : 0U) | (quantity->capacitive ? 0x400000U : 0U), 3);
  return data;
}

Data Limits(const MeterView& view, Selectors selectors) {
  const std::uint8_t selector = selectors[1];
  const auto limit = LimitOfSelector(selector);
  Data data;
  if (selectors[0] == 0x00 && selector == 0) {
    data = {0, view.settings.loadControl};
  } else if (selectors[0] == 0x08 && selector == 0) {
    data = {0, view.settings.estimatedIntervalStart};
  } else if (selectors[0] == 0x04 && limit) {
    AppendBig(data, view.settings.energyLimits[limit->kind][limit->tariff], 4);
  } else if (selectors[0] == 0x09 && selector < view.settings.powerLimits.size()) {
    AppendBig(data, view.settings.powerLimits[selector], 2);
  }
  return data;
}

/// A parameter's number, the selector bytes that follow it, and what reads it; no data means no such selector.
struct ParameterRow {
  std::uint8_t number;
  std::size_t selectorBytes;
  Data (*read)(const MeterView&, Selectors);
};

constexpr ParameterRow kParameters[] = {
    {.number = 0x00, .selectorBytes = 0, .read = SerialAndDate},
    {.number = 0x01, .selectorBytes = 0, .read = Temperature},
    {.number = 0x02, .selectorBytes = 0, .read = Coefficients},
    {.number = 0x03, .selectorBytes = 0, .read = Version},
    {.number = 0x05, .selectorBytes = 0, .read = Address},
    {.number = 0x06, .selectorBytes = 0, .read = ProfilePeriod},
    {.number = 0x06, .selectorBytes = 1, .read = ProfilePeriod},
    {.number = 0x09, .selectorBytes = 0, .read = Flags},
    {.number = 0x0B, .selectorBytes = 0, .read = Location},
    {.number = 0x0D, .selectorBytes = 0, .read = CurrentTariffEnergies},
    {.number = 0x11, .selectorBytes = 1, .read = QuantityAnswer},
    {.number = 0x12, .selectorBytes = 0, .read = Variant},
    {.number = 0x20, .selectorBytes = 2, .read = Limits},
};

}  // namespace

std::optional<Data> ReadParameter(const MeterView& view, std::span<const std::uint8_t> parameters) {
  if (parameters.empty()) return std::nullopt;
  for (const ParameterRow& row : kParameters) {
    if (row.number != parameters[0] || row.selectorBytes != parameters.size() - 1) continue;
    Data data = row.read(view, parameters.subspan(1));
    if (data.empty()) return std::nullopt;
    return data;
  }
  return std::nullopt;
}

}  // namespace ostrel::sim
