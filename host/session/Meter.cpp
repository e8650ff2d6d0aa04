#include "host/session/Meter.h"

#include <algorithm>
#include <charconv>
#include <string_view>

#include "Protocol/model/TagCatalogue.h"
#include "host/session/RecordText.h"
#include "host/session/TagSelection.h"

namespace ostrel::host {
namespace {

/// Last byte of the clock-setting command: winter time, as the meters' clocks are kept.
constexpr std::uint8_t kWinterTime = 1;

constexpr std::size_t kPortPrefix = 3;

void FillDescriptor(CDeviceTag& tag, const std::array<std::uint32_t, 10>& descriptor) {
  tag.CanonicalType = static_cast<std::uint16_t>(descriptor[kColumnDataType]);
  tag.Code = descriptor[kColumnCode];
  tag.Param = descriptor[kColumnParam];
  tag.SubParam = descriptor[kColumnSubParam];
  tag.RequestLength = descriptor[kColumnRequestLength];
  tag.Access = descriptor[kColumnAccess];
  tag.WriteLength = descriptor[kColumnWriteLength];
  tag.WriteParam = descriptor[kColumnWriteParam];
  tag.Aux = descriptor[kColumnAux];
  tag.ExpectedLength = descriptor[kColumnExpectedLength];
}

}  // namespace

std::size_t Meter::FindTag(const std::string& text) const { return SelectTag(*definitions, text); }

const PolledTag* Meter::TagById(std::uint32_t id) const {
  const auto found = std::find_if(tags.begin(), tags.end(), [id](const PolledTag& tag) { return tag.definition.id == id; });
  return found == tags.end() ? nullptr : &*found;
}

DeviceConfig MakeDeviceConfig(const MeterConfig& config, std::uint32_t typeId) {
  DeviceConfig record{};
  record.Address = config.address;
  record.TypeId = typeId;
  StoreText(record.Level1Password, config.level1Password);
  StoreText(record.Level2Password, config.level2Password);
  record.KU = config.voltageCoefficient;
  record.KI = config.currentCoefficient;
  record.LogRequest = config.eventLog;
  record.TimeSetByte = kWinterTime;
  record.FailHoldTimer.SetPeriod(false, config.failHoldSeconds * 1000);
  record.ExchangeOn = config.exchange ? 1 : 0;
  return record;
}

void FillTag(CDeviceTag& tag, std::uint32_t number, const std::array<std::uint32_t, 10>& descriptor, std::uint32_t portNumber,
             std::uint32_t address) {
  tag.PortNumber = portNumber;
  tag.DeviceAddress = address;
  tag.TagNumber = number;
  FillDescriptor(tag, descriptor);
  // The plug-in goes by the type word, and expects a null text where there is none yet.
  tag.Value.vt = static_cast<VARTYPE>(descriptor[kColumnDataType]);
}

PolledTag MakeTag(const TagDefinition& definition, std::uint32_t portNumber, std::uint32_t address) {
  auto* const tag = new CDeviceTag;
  FillTag(*tag, definition.id - kFirstDaId, definition.descriptor, portNumber, address);
  return {.definition = definition, .tag = tag};
}

// The plug-in zeroes the floats of a meter that it lost; somebody would take that for a measurement.
void Refresh(PolledTag& tag, TagReading& reading) {
  const std::uint16_t before = reading.quality;
  reading.quality = tag.tag->Quality;
  reading.timestamp = tag.tag->Timestamp;
  const bool good = reading.quality == kQualityGood;
  if (good) tag.lastGood = reading.timestamp;
  reading.lastGood = tag.lastGood;
  const VARIANT shown = good ? tag.tag->Value : VARIANT{};
  const bool same = IsValueOf(reading.value, shown);
  if (!same) reading.value = ValueOf(shown);
  reading.changed = !same || reading.quality != before;
}

TagReading ReadTag(PolledTag& tag) {
  TagReading reading;
  Refresh(tag, reading);
  return reading;
}

std::uint32_t PortNumberOf(const std::string& port) {
  const std::string_view digits = std::string_view(port).substr(std::min(port.size(), kPortPrefix));
  std::uint32_t number = 0;
  std::from_chars(digits.data(), digits.data() + digits.size(), number);
  return number;
}

}  // namespace ostrel::host
