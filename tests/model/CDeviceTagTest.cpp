// A tag from its making to its end.
#include <gtest/gtest.h>

#include <cstring>
#include <new>

#include "Protocol/model/CDeviceTag.h"
#include "platform/clock.h"
#include "platform/virtual_clock.h"

namespace ostrel {
namespace {

constexpr std::int64_t kStart = 1795377600000;  // 2026-11-22 20:00:00 UTC

/// A tag in memory that held other things before, as the host's allocator may give it.
class CDeviceTagTest : public testing::Test {
 protected:
  CDeviceTagTest() {
    std::memset(memory_, 0xCC, sizeof memory_);
    platform::ReplaceClock(&clock_);
    tag_ = new (memory_) CDeviceTag;
  }
  ~CDeviceTagTest() override { platform::ReplaceClock(nullptr); }

  platform::VirtualClock clock_{kStart};
  alignas(CDeviceTag) unsigned char memory_[sizeof(CDeviceTag)];
  CDeviceTag* tag_;
};

TEST_F(CDeviceTagTest, IsBornUncertainNowAndWithoutAnythingElse) {
  EXPECT_EQ(kQualityUncertain, tag_->Quality);
  // (1795377600 + 11644473600) * 10^7
  const std::uint64_t fileTime = 134398512000000000ULL;
  EXPECT_EQ(static_cast<std::uint32_t>(fileTime), std::uint32_t{tag_->Timestamp.dwLowDateTime});
  EXPECT_EQ(static_cast<std::uint32_t>(fileTime >> 32), std::uint32_t{tag_->Timestamp.dwHighDateTime});
  EXPECT_EQ(1, tag_->Word32);
  EXPECT_EQ(VT_EMPTY, tag_->Value.vt);
  EXPECT_EQ(VT_EMPTY, tag_->WriteValue.vt);
  EXPECT_EQ(0, tag_->InUse());
  const std::uint32_t fields[] = {tag_->PortNumber, tag_->DeviceAddress, tag_->TagNumber,     tag_->CanonicalType,
                                  tag_->Code,       tag_->Param,         tag_->SubParam,      tag_->RequestLength,
                                  tag_->Updated,    tag_->WritePending,  tag_->ExpectedLength};
  for (const std::uint32_t field : fields) EXPECT_EQ(0U, field) << &field - fields;
  tag_->Destroy(0);
}

TEST_F(CDeviceTagTest, FreesItsTextsAndNotItsMemoryWhenEndedInPlace) {
  tag_->Value.vt = VT_BSTR;
  tag_->Value.bstrVal = platform::AllocString(nullptr, 3);
  tag_->FirstText = platform::AllocString(nullptr, 3);
  tag_->SecondText = platform::AllocString(nullptr, 3);
  COPCTag* const host = tag_;
  host->Destroy(0);  // texts left over are reported by the leak check
  EXPECT_EQ(kQualityUncertain, (tag_ = new (memory_) CDeviceTag)->Quality);
  tag_->Destroy(0);
}

}  // namespace
}  // namespace ostrel
