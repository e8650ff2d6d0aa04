// What is read once after each connection: the factors and the constant that scale everything else.
#include "Protocol/acquisition/DeviceInfo.h"

#include "Protocol/acquisition/TagReader.h"
#include "Protocol/link/LineGuard.h"
#include "Protocol/model/Guarded.h"
#include "Protocol/model/TagCatalogue.h"
#include "Protocol/object/CProtocol.h"

namespace ostrel {
namespace {

/// Coefficients first, since the variant's reading scales with them. Meters of types 2 and 12 have none.
constexpr std::uint32_t kInfoTags[] = {kTagVoltageCoefficient, kTagCurrentCoefficient, kTagMeterType};

bool HasCoefficients(std::uint32_t typeId) { return typeId != 2 && typeId != 12; }

/// The number behind the three letters of a port name: 12 for COM12.
std::uint32_t PortNumber(const char* name) {
  std::uint32_t number = 0;
  for (int i = 0; name[i] != 0; ++i) {
    if (i < 3) continue;
    if (name[i] < '0' || name[i] > '9') break;
    number = number * 10 + static_cast<std::uint32_t>(name[i] - '0');
  }
  return number;
}

void FillInfoTag(CProtocol& protocol, CDeviceTag& tag, std::uint32_t number, std::uint32_t address) {
  TagDescriptor row{};
  static_cast<IBrowser&>(protocol).GetTagDescriptor(number, kBranchDa, 0, &row.DataType);
  tag.PortNumber = PortNumber(protocol.Channel.PortName);
  tag.DeviceAddress = address;
  tag.TagNumber = number;
  tag.CanonicalType = static_cast<std::uint16_t>(row.DataType);
  tag.Value.vt = static_cast<VARTYPE>(row.DataType);
  tag.Code = row.Code;
  tag.Param = row.Param;
  tag.SubParam = row.SubParam;
  tag.RequestLength = row.RequestLength;
  tag.WriteLength = row.WriteLength;
  tag.WriteParam = row.WriteParam;
  tag.ExpectedLength = row.ExpectedLength;
}

/// A short-lived tag on the stack of the one-time reading.
class InfoTag final : public CDeviceTag {};

/// The caller holds the line.
bool ReadInfoTag(CProtocol& protocol, std::uint32_t device, std::uint32_t number) {
  const DeviceEntry* const entry = protocol.Device(device);
  if (entry == nullptr) return false;
  InfoTag tag;
  FillInfoTag(protocol, tag, number, entry->Address);
  return ReadTag(protocol, &tag, Send::Request, device) != 0;
}

/// Neutral factors, so that nothing is scaled by what another connection read.
void ForgetScaling(DeviceEntry& entry) {
  entry.VoltageFactor = 1.0F;
  entry.CurrentFactor = 1.0F;
  entry.VariantBytes[2] &= 0x0F;
  entry.VariantBytes[0] &= 0xF0;
}

}  // namespace

std::uint32_t ReadDeviceInfo(CProtocol& protocol, std::uint32_t device) {
  const LineGuard guard(protocol);
  DeviceEntry* const entry = protocol.Device(device);
  if (entry == nullptr) return 0;
  const bool coefficients = HasCoefficients(entry->TypeId);
  ForgetScaling(*entry);
  for (const std::uint32_t number : kInfoTags) {
    if (number != kTagMeterType && !coefficients) continue;
    if (!ReadInfoTag(protocol, device, number)) return 0;
  }
  return 1;
}

std::uint32_t ReadInfoOnce(CProtocol& protocol, std::uint32_t device) {
  const LineGuard guard(protocol);
  DeviceEntry* const entry = protocol.Device(device);
  if (entry == nullptr) return 0;
  if (LoadFlag(entry->InfoRead) != 0) return 1;
  if (LoadFlag(entry->ExchangeOn) == 0) return 0;
  if (Guarded(0U, [&] { return ReadDeviceInfo(protocol, device); }) == 0) return 0;
  StoreFlag(protocol.Device(device)->InfoRead, 1);  // in the same hold nobody has changed the table
  return 1;
}

}  // namespace ostrel
