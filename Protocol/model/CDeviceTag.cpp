#include "Protocol/model/CDeviceTag.h"

#include "platform/clock.h"

namespace ostrel {

CDeviceTag::CDeviceTag()
    : PortNumber(0),
      DeviceAddress(0),
      TagNumber(0),
      CanonicalType(VT_EMPTY),
      padding54_(0),
      Code(0),
      Param(0),
      SubParam(0),
      RequestLength(0),
      Updated(0),
      Access(0),
      WriteLength(0),
      WriteParam(0),
      Aux(0),
      ExpectedLength(0),
      FirstText(nullptr),
      SecondText(nullptr),
      WriteValue{},
      WritePending(0) {
  Timestamp = platform::UtcFileTime();
  Quality = kQualityUncertain;
  Word32 = 1;
}

CDeviceTag::~CDeviceTag() {
  platform::FreeString(FirstText);
  platform::FreeString(SecondText);
}

void CDeviceTag::Destroy(std::uint32_t flags) {
  this->CDeviceTag::~CDeviceTag();
  if ((flags & 1) != 0) ::operator delete(this);
}

}  // namespace ostrel
