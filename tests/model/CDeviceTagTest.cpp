// A tag from its making to its end.
#include <gtest/gtest.h>

#include <cstring>
#include <new>

#include "Protocol/model/CDeviceTag.h"
#include "platform/clock.h"
#include "platform/virtual_clock.h"

namespace ostrel {
namespace {

/// In memory that held other things before, as the host's allocator may give it.
TEST(CDeviceTag, IsBornUncertainNowWithoutAnythingElseAndFreesItsTextsInPlace) {
  platform::VirtualClock clock(1795377600000);  // 2026-11-22 20:00:00 UTC
  platform::ReplaceClock(&clock);
  alignas(CDeviceTag) unsigned char memory[sizeof(CDeviceTag)];
  std::memset(memory, 0xCC, sizeof memory);
  CDeviceTag* const tag = new (memory) CDeviceTag;
  EXPECT_EQ(kQualityUncertain, tag->Quality);
  // (1795377600 + 11644473600) * 10^7
  const std::uint64_t fileTime = 134398512000000000ULL;
  EXPECT_EQ(static_cast<std::uint32_t>(fileTime), std::uint32_t{tag->Timestamp.dwLowDateTime});
  EXPECT_EQ(static_cast<std::uint32_t>(fileTime >> 32), std::uint32_t{tag->Timestamp.dwHighDateTime});
  EXPECT_EQ(1, tag->Word32);
  EXPECT_EQ(VT_EMPTY, tag->Value.vt);
  EXPECT_EQ(VT_EMPTY, tag->WriteValue.vt);
  EXPECT_EQ(0, tag->InUse());
  const std::uint32_t fields[] = {tag->PortNumber, tag->DeviceAddress, tag->TagNumber,     tag->CanonicalType,
                                  tag->Code,       tag->Param,         tag->SubParam,      tag->RequestLength,
                                  tag->Updated,    tag->WritePending,  tag->ExpectedLength};
  for (const std::uint32_t field : fields) EXPECT_EQ(0U, field) << &field - fields;
  tag->Value.vt = VT_BSTR;
  tag->Value.bstrVal = platform::AllocString(nullptr, 3);
  tag->FirstText = platform::AllocString(nullptr, 3);
  tag->SecondText = platform::AllocString(nullptr, 3);
  COPCTag* const host = tag;
  host->Destroy(0);  // texts left over are reported by the leak check
  platform::ReplaceClock(nullptr);
}

}  // namespace
}  // namespace ostrel
