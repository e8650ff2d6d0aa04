// Clients' writes as frames on the line, and what becomes of the pending flag. What a bad line costs is told with the exchange
// loop.
#include <gtest/gtest.h>

#include <chrono>
#include <limits>

#include "Protocol/acquisition/TagWriter.h"
#include "Protocol/model/TagCatalogue.h"
#include "tests/support/SimulatedChannel.h"
#include "tests/support/TableFile.h"
#include "tests/support/TimeZone.h"

namespace ostrel::test {
namespace {

constexpr float kInf = std::numeric_limits<float>::infinity();
constexpr float kNan = std::numeric_limits<float>::quiet_NaN();

std::int64_t UtcMs(int year, unsigned month, unsigned day, int hour, int minute, int second) {
  const std::chrono::sys_days date = std::chrono::year(year) / month / day;
  return (std::chrono::seconds(date.time_since_epoch()).count() + hour * 3600 + minute * 60 + second) * 1000;
}

class Writes : public testing::Test {
 protected:
  Writes() {
    Entry().MeterConstant = 5000;
    Entry().TimeSetByte = 0x01;
    channel_.Line().ReplyAlways("01 03", "01 00");
    channel_.Protocol().Running = 1;
  }
  ~Writes() override { channel_.Protocol().Running = 0; }

  DeviceEntry& Entry() { return channel_.Entry(meter_); }

  /// The frame that a write of the value in the tag's own type sends; "" when none. Whether it stays pending is kept.
  std::string Written(std::uint32_t number, float value) {
    channel_.Line().ClearRecords();
    CDeviceTag& tag = *channel_.AddTag(meter_, number);
    LeaveWrite(tag, value);
    result_ = WriteTag(channel_.Protocol(), tag, meter_);
    pending_ = LoadFlag(tag.WritePending);
    const auto requests = channel_.Line().RequestTexts();
    return requests.empty() ? "" : requests[0];
  }

  const TimeZone zone_{"UTC"};
  SimulatedChannel channel_;
  const std::uint32_t meter_ = channel_.AddMeter(1, 1);
  std::uint32_t result_ = 0;
  std::uint32_t pending_ = 0;
};

TEST_F(Writes, BecomeTheFramesOfTheMetersDocument) {
  for (const TableRow& row : ReadTable("acquisition/writes.tsv", 3)) {
    const std::string frame = Written(Numbers(row[0])[0], FloatOf(row[1]));
    EXPECT_EQ(0U, pending_) << row[0] << " = " << row[1];
    EXPECT_EQ(row[2].empty() ? 0U : 1U, channel_.Line().RequestCount());
    EXPECT_EQ(result_, channel_.Line().RequestCount());
    if (row[2].starts_with('!')) {
      EXPECT_EQ(row[2].substr(1), ToHex(Frame(frame))) << row[0] << " = " << row[1];
    } else {
      EXPECT_EQ(row[2].empty() ? "" : "01 03 " + row[2], frame) << row[0] << " = " << row[1];
    }
  }
}

TEST_F(Writes, AreAsLongAsTheCatalogueSays) {
  for (std::uint32_t number = 0; number < kDaTagCount; ++number) {
    const TagDescriptor& row = TagDescriptors()[number];
    if (row.Access != 3 || number == kTagExchange || number == kTagLogNumber) continue;
    const Bytes frame = Frame(Written(number, 1));
    const bool coefficient = number == kTagVoltageCoefficient || number == kTagCurrentCoefficient;
    ASSERT_EQ(row.WriteLength - (coefficient ? 2 : 0), frame.size()) << number;
    EXPECT_EQ(row.WriteParam, frame[2]) << number;
  }
}

TEST_F(Writes, OfTheClockCarryTheComputersTime) {
  const struct {
    const char* zone;
    std::int64_t now;
    std::uint32_t tag;
    float value;
    const char* frame;
  } rows[] = {
      {"UTC", UtcMs(2026, 11, 22, 23, 59, 59), 97, 1, "01 03 0D 59 59 23"},
      {"UTC", UtcMs(2026, 11, 22, 0, 0, 0), 97, -1, "01 03 0D 00 00 00"},
      {"UTC", UtcMs(2026, 11, 22, 1, 2, 3), 97, 127, "01 03 0D 03 02 01"},
      {"UTC", UtcMs(2026, 3, 8, 14, 7, 42), 98, 0, "01 03 0C 42 07 14 07 08 03 26 01"},   // a Sunday
      {"UTC", UtcMs(2024, 3, 5, 0, 0, 0), 98, kNan, "01 03 0C 00 00 00 02 05 03 24 01"},  // a Tuesday
      {"UTC", UtcMs(2026, 3, 9, 0, 0, 0), 98, 1, "01 03 0C 00 00 00 01 09 03 26 01"},     // a Monday
      {"UTC", UtcMs(1999, 12, 31, 23, 0, 0), 98, 1, "01 03 0C 00 00 23 05 31 12 00 01"},  // a Friday
      {"Europe/Berlin", UtcMs(2026, 7, 31, 22, 30, 0), 98, 1, "01 03 0C 00 30 00 06 01 08 26 01"},
  };
  for (const auto& row : rows) {
    const TimeZone zone(row.zone);
    if (!zone.Applies()) continue;
    channel_.Clock().SetUtcMilliseconds(row.now);
    EXPECT_EQ(row.frame, Written(row.tag, row.value));
    EXPECT_EQ(0U, pending_);
  }
  channel_.Clock().SetUtcMilliseconds(rows[0].now);
  channel_.Line().Reply("01 03 0D 59 59 23", {"", "", "01 00"});
  Written(97, 1);
  EXPECT_EQ(3U, channel_.Line().RequestCount()) << "a new try carries the time of the first";
}

TEST_F(Writes, OfNoTimeCorrectionStayPending) {
  for (const float value : {0.0F, 0.5F, -0.9F, 256.0F, kNan, kInf}) {
    EXPECT_EQ("", Written(kTagTimeCorrection, value)) << value;
    EXPECT_EQ(1U, pending_) << value;
  }
}

TEST_F(Writes, OfEnergyLimitsNeedTheMetersConstant) {
  Entry().MeterConstant = 0;
  EXPECT_EQ("01 03 2F 04 01 00 00 00 00", Written(214, 100));
  EXPECT_EQ("", Written(214, kInf));
}

TEST_F(Writes, OfTheExchangeAreASwitchOfThePlugIn) {
  for (const float value : {0.0F, 1.0F, 0.0F, -1.0F}) {
    EXPECT_EQ("", Written(kTagExchange, value));
    EXPECT_EQ(1U, result_);
    EXPECT_EQ(value != 0 ? 1U : 0U, Entry().ExchangeOn);
    EXPECT_EQ(0U, pending_);
  }
  channel_.Protocol().HostContext = nullptr;
  EXPECT_EQ("", Written(99, 10)) << "nothing without a context";
  channel_.Protocol().HostContext = &channel_.Context();
}

}  // namespace
}  // namespace ostrel::test
