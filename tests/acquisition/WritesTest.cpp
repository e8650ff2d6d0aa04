// Clients' writes as frames on the line, and what becomes of the pending flag. What a bad line costs is told with the exchange
// loop.
#include <gtest/gtest.h>

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

class Writes : public testing::Test, protected OneMeterChannel {
 protected:
  Writes() {
    Entry().MeterConstant = 5000;
    Entry().TimeSetByte = 0x01;
    Line().ReplyAlways("01 03", "01 00");
  }

  /// The frame that a write of the value in the tag's own type sends; "" when none. Whether it stays pending is kept.
  std::string Written(std::uint32_t number, float value) {
    Line().ClearRecords();
    CDeviceTag& tag = *Add(number);
    LeaveWrite(tag, value);
    result_ = WriteTag(Protocol(), tag, device);
    pending_ = LoadFlag(tag.WritePending);
    const auto requests = Line().RequestTexts();
    return requests.empty() ? "" : requests[0];
  }

  const TimeZone zone_{"UTC"};
  std::uint32_t result_ = 0;
  std::uint32_t pending_ = 0;
};

TEST_F(Writes, BecomeTheFramesOfTheMetersDocument) {
  for (const TableRow& row : ReadTable("acquisition/writes.tsv", 3)) {
    const std::string frame = Written(Numbers(row[0])[0], FloatOf(row[1]));
    EXPECT_EQ(0U, pending_) << row[0] << " = " << row[1];
    EXPECT_EQ(row[2].empty() ? 0U : 1U, Line().RequestCount());
    EXPECT_EQ(result_, Line().RequestCount());
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
  for (const TableRow& row : ReadTable("acquisition/clock_writes.tsv", 5)) {
    const TimeZone zone(row[0]);
    if (!zone.Applies()) continue;
    Clock().SetUtcMilliseconds(UtcMs(row[1]));
    EXPECT_EQ("01 " + row[4], Written(Numbers(row[2])[0], FloatOf(row[3])));
    EXPECT_EQ(0U, pending_);
  }
  Clock().SetUtcMilliseconds(UtcMs("2026-11-22 23:59:59"));
  Line().Reply("01 03 0D 59 59 23", {"", "", "01 00"});
  Written(97, 1);
  EXPECT_EQ(3U, Line().RequestCount()) << "a new try carries the time of the first";
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
  Protocol().HostContext = nullptr;
  EXPECT_EQ("", Written(99, 10)) << "nothing without a context";
  Protocol().HostContext = &Context();
}

}  // namespace
}  // namespace ostrel::test
