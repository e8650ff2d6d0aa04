// The plug-in's tag: the host's tag with its identity, the request that reads it, and a client's pending write.
#pragma once

#include <cstddef>
#include <cstdint>

#include "host/server/COPCTag.h"
#include "platform/layout.h"
#include "platform/variant.h"

namespace ostrel {

/// OPC DA quality words that the plug-in gives.
enum TagQuality : std::uint16_t {
  kQualityBad = 0,
  kQualityDeviceFailure = 12,
  kQualityUncertain = 64,
  kQualityGood = 192,
};

/// 128 bytes in the 32-bit build, byte offsets behind the fields.
class CDeviceTag : public COPCTag {
 public:
  CDeviceTag();
  void Destroy(std::uint32_t flags) override;

  std::uint32_t PortNumber;     // 40
  std::uint32_t DeviceAddress;  // 44
  std::uint32_t TagNumber;      // 48: id - 20000
  std::uint16_t CanonicalType;  // 52: VARIANT type of the value
  std::uint16_t padding54_;
  std::uint32_t Code;            // 56
  std::uint32_t Param;           // 60
  std::uint32_t SubParam;        // 64
  std::uint32_t RequestLength;   // 68
  std::uint32_t Updated;         // 72: has a value of this device cycle
  std::uint32_t Access;          // 76
  std::uint32_t WriteLength;     // 80
  std::uint32_t WriteParam;      // 84
  std::uint32_t Aux;             // 88
  std::uint32_t ExpectedLength;  // 92
  BSTR FirstText;                // 96: unused, null when empty
  BSTR SecondText;               // 100: unused, null when empty
  VARIANT WriteValue;            // 104
  std::uint32_t WritePending;    // 120: set by the host, atomically

 protected:
  ~CDeviceTag();
};

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Winvalid-offsetof"
/// Checks of the bytes that the host's 32-bit build shares.
class TagLayout {
  static constexpr bool kElsewhere = !platform::kHostLayout;
  static_assert(kElsewhere || (sizeof(COPCTag) == 40 && sizeof(CDeviceTag) == 128));
  static_assert(kElsewhere || (offsetof(COPCTag, HostWord) == 4 && offsetof(COPCTag, Value) == 6));
  static_assert(kElsewhere || (offsetof(COPCTag, Timestamp) == 22 && offsetof(COPCTag, Quality) == 30));
  static_assert(kElsewhere || (offsetof(COPCTag, Word32) == 32 && offsetof(COPCTag, References) == 34));
  static_assert(kElsewhere || offsetof(COPCTag, UseCount) == 36);
  static_assert(kElsewhere || (offsetof(CDeviceTag, PortNumber) == 40 && offsetof(CDeviceTag, DeviceAddress) == 44));
  static_assert(kElsewhere || (offsetof(CDeviceTag, TagNumber) == 48 && offsetof(CDeviceTag, CanonicalType) == 52));
  static_assert(kElsewhere || (offsetof(CDeviceTag, Code) == 56 && offsetof(CDeviceTag, Param) == 60));
  static_assert(kElsewhere || (offsetof(CDeviceTag, SubParam) == 64 && offsetof(CDeviceTag, RequestLength) == 68));
  static_assert(kElsewhere || (offsetof(CDeviceTag, Updated) == 72 && offsetof(CDeviceTag, Access) == 76));
  static_assert(kElsewhere || (offsetof(CDeviceTag, WriteLength) == 80 && offsetof(CDeviceTag, WriteParam) == 84));
  static_assert(kElsewhere || (offsetof(CDeviceTag, Aux) == 88 && offsetof(CDeviceTag, ExpectedLength) == 92));
  static_assert(kElsewhere || (offsetof(CDeviceTag, FirstText) == 96 && offsetof(CDeviceTag, SecondText) == 100));
  static_assert(kElsewhere || (offsetof(CDeviceTag, WriteValue) == 104 && offsetof(CDeviceTag, WritePending) == 120));
};
#pragma GCC diagnostic pop

}  // namespace ostrel
