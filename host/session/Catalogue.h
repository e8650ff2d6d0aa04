// What the plug-in says of itself: its meter types and the tags of each. Texts are UTF-8.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <variant>
#include <vector>

#include "Protocol/object/Interfaces.h"

namespace ostrel::host {

struct MeterType {
  std::uint32_t id = 0;
  std::string name;
  std::string display;
};

/// Columns of a current-data tag's descriptor that a host looks at.
enum DescriptorColumn : std::size_t {
  kColumnDataType = 0,
  kColumnCode = 1,
  kColumnParam = 2,
  kColumnSubParam = 3,
  kColumnRequestLength = 4,
  kColumnAccess = 5,
  kColumnWriteLength = 6,
  kColumnWriteParam = 7,
  kColumnAux = 8,
  kColumnExpectedLength = 9,
};

inline constexpr std::uint32_t kAccessReadWrite = 3;

struct TagDefinition {
  std::uint32_t id = 0;
  std::string name;
  std::string description;                     // empty where there is none, as for all history tags
  std::array<std::uint32_t, 10> descriptor{};  // of a history tag the data type alone

  [[nodiscard]] std::uint32_t DataType() const { return descriptor[kColumnDataType]; }
  [[nodiscard]] bool Writable() const { return descriptor[kColumnAccess] == kAccessReadWrite; }
};

/// "float", "double", "text", "truth", "i8" or "u8"; another type's number.
[[nodiscard]] std::string DataTypeText(std::uint32_t type);

[[nodiscard]] std::vector<MeterType> ReadMeterTypes(IProtocol& protocol);
/// Tags that the meter type has, in the order of their ids. The branch is kBranchDa or kBranchHda.
[[nodiscard]] std::vector<TagDefinition> ReadTagDefinitions(IProtocol& protocol, std::uint32_t meterType, std::uint32_t branch);

/// By type id or display name. Throws Failure (usage) with the names there are.
[[nodiscard]] const MeterType& FindMeterType(const std::vector<MeterType>& types,
                                             const std::variant<std::uint32_t, std::string>& wanted);

}  // namespace ostrel::host
