// Clients' writes as frames on the line, and what becomes of the pending flag.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>

#include "Protocol/acquisition/TagWriter.h"
#include "Protocol/model/TagCatalogue.h"
#include "tests/acquisition/WriteRows.h"
#include "tests/support/TestChannel.h"
#include "tests/support/TimeZone.h"

namespace ostrel::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

std::int64_t UtcMs(int year, unsigned month, unsigned day, int hour, int minute, int second) {
  const std::chrono::sys_days date = std::chrono::year(year) / month / day;
  return (std::chrono::seconds(date.time_since_epoch()).count() + hour * 3600 + minute * 60 + second) * 1000;
}

class TagWriterTest : public testing::Test {
 protected:
  TagWriterTest() {
    channel_.Protocol().Running = 1;
    Entry().MeterConstant = 5000;
    Entry().TimeSetByte = 0x01;
  }
  ~TagWriterTest() override { channel_.Protocol().Running = 0; }

  DeviceEntry& Entry() { return channel_.Entry(meter_); }
  ScriptedLine& Line() { return channel_.Line(); }

  /// A pending write of the value in the tag's own type.
  CDeviceTag& Pending(std::uint32_t number, float value) {
    CDeviceTag& tag = *channel_.AddTag(meter_, number);
    if (tag.CanonicalType == VT_UI1) {
      tag.WriteValue.bVal = static_cast<BYTE>(value);
    } else if (tag.CanonicalType == VT_BOOL) {
      tag.WriteValue.boolVal = static_cast<std::int16_t>(value);
    } else {
      tag.WriteValue.fltVal = value;
    }
    StoreFlag(tag.WritePending, 1);
    return tag;
  }

  std::uint32_t Write(CDeviceTag& tag) { return WriteTag(channel_.Protocol(), tag, meter_); }

  /// The frame that a write sends to a meter that takes it; "" when none.
  std::string Written(std::uint32_t number, float value) {
    Line().ClearRecords();
    Line().OnRequest([](auto) { return Frame("01 00"); });
    CDeviceTag& tag = Pending(number, value);
    const std::uint32_t result = Write(tag);
    EXPECT_EQ(result == 0 ? 0U : 1U, Line().RequestCount()) << number << " " << value;
    pendingAfter_ = LoadFlag(tag.WritePending);
    return result == 0 ? "" : ToHex(Line().Requests().at(0).bytes);
  }

  const TimeZone zone_{"UTC"};
  TestChannel channel_;
  const std::uint32_t meter_ = channel_.AddMeter(1, 1);
  std::uint32_t pendingAfter_ = 0;
};

TEST_F(TagWriterTest, EveryCommand) {
  for (const WriteRow& row : kWholeFrames) {
    EXPECT_EQ(row.frame, Written(row.tag, row.value)) << testing::PrintToString(row);
    EXPECT_EQ(0U, pendingAfter_) << row.tag;
  }
  for (const WriteRow& row : kData) {
    EXPECT_EQ(ToHex(Frame(std::string("01 03 ") + row.frame)), Written(row.tag, row.value)) << testing::PrintToString(row);
    EXPECT_EQ(0U, pendingAfter_) << row.tag;
  }
  for (const WriteRow& row : kDropped) {
    EXPECT_EQ(row.frame, Written(row.tag, row.value)) << testing::PrintToString(row);
    EXPECT_EQ(0U, pendingAfter_) << row.tag;
  }
}

TEST_F(TagWriterTest, FramesAreAsLongAsTheCatalogueSays) {
  for (std::uint32_t number = 0; number < kDaTagCount; ++number) {
    const TagDescriptor& row = TagDescriptors()[number];
    if (row.Access != 3 || number == kTagExchange || number == kTagLogNumber) continue;
    const Bytes frame = Hex(Written(number, 1));
    const bool coefficient = number == kTagVoltageCoefficient || number == kTagCurrentCoefficient;
    ASSERT_EQ(row.WriteLength - (coefficient ? 2 : 0), frame.size()) << number;
    EXPECT_EQ(row.WriteParam, frame[2]) << number;
  }
}

TEST_F(TagWriterTest, ClockCommands) {
  const struct {
    std::int64_t now;
    std::uint32_t tag;
    float value;
    const char* body;
  } rows[] = {
      {UtcMs(2026, 11, 22, 23, 59, 59), 97, 1, "01 03 0D 59 59 23"},
      {UtcMs(2026, 11, 22, 0, 0, 0), 97, -1, "01 03 0D 00 00 00"},
      {UtcMs(2026, 11, 22, 1, 2, 3), 97, 127, "01 03 0D 03 02 01"},
      {UtcMs(2026, 3, 8, 14, 7, 42), 98, 0, "01 03 0C 42 07 14 07 08 03 26 01"},   // a Sunday
      {UtcMs(2024, 3, 5, 0, 0, 0), 98, kNan, "01 03 0C 00 00 00 02 05 03 24 01"},  // a Tuesday
      {UtcMs(2026, 3, 9, 0, 0, 0), 98, 1, "01 03 0C 00 00 00 01 09 03 26 01"},     // a Monday
      {UtcMs(1999, 12, 31, 23, 0, 0), 98, 1, "01 03 0C 00 00 23 05 31 12 00 01"},  // a Friday
  };
  for (const auto& row : rows) {
    channel_.Clock().SetUtcMilliseconds(row.now);
    EXPECT_EQ(ToHex(Frame(row.body)), Written(row.tag, row.value)) << row.body;
    EXPECT_EQ(0U, pendingAfter_);
  }
  EXPECT_EQ("01 03 0C 42 07 14 07 08 03 26 01 CB 2A", ToHex(Frame(rows[3].body)));
}

TEST_F(TagWriterTest, ClockCommandsCarryTheComputersZone) {
  const TimeZone zone("Europe/Berlin");
  if (!zone.Applies()) GTEST_SKIP() << kInAnotherZone;
  channel_.Clock().SetUtcMilliseconds(UtcMs(2026, 7, 31, 22, 30, 0));
  EXPECT_EQ(ToHex(Frame("01 03 0C 00 30 00 06 01 08 26 01")), Written(98, 1));
}

TEST_F(TagWriterTest, ATimeCorrectionOfNothingStaysPending) {
  for (const float value : {0.0F, 0.5F, -0.9F, 256.0F, kNan, kInf}) {
    EXPECT_EQ("", Written(kTagTimeCorrection, value)) << value;
    EXPECT_EQ(1U, pendingAfter_) << value;
  }
}

TEST_F(TagWriterTest, EnergyLimitsOfAnUnknownMeterAreZero) {
  Entry().MeterConstant = 0;
  EXPECT_EQ(ToHex(Frame("01 03 2F 04 01 00 00 00 00")), Written(214, 100));
  EXPECT_EQ("", Written(214, kInf));
}

TEST_F(TagWriterTest, ExchangeIsASwitchOfThePlugIn) {
  for (const float value : {0.0F, 1.0F, 0.0F, -1.0F}) {
    CDeviceTag& tag = Pending(kTagExchange, value);
    EXPECT_EQ(1U, Write(tag));
    EXPECT_EQ(value != 0 ? 1U : 0U, Entry().ExchangeOn);
    EXPECT_EQ(0U, LoadFlag(tag.WritePending));
  }
  EXPECT_EQ(0U, Line().RequestCount());
}

TEST_F(TagWriterTest, AnyOrdinaryStatusIsAcceptance) {
  for (const char* status : {"01 00", "01 01", "01 04", "01 0E"}) {
    Line().Expect("01 03 07 0A").Answer(status);
    EXPECT_EQ(1U, Write(Pending(99, 10))) << status;
  }
  EXPECT_EQ(1U, Entry().LinkUp);
  EXPECT_THAT(channel_.LogLines(), IsEmpty());
}

TEST_F(TagWriterTest, ABusyMeterGetsAllTriesAndNoMessage) {
  Line().Expect("01 03 07 0A").Answer("01 06").Times(3);
  CDeviceTag& tag = Pending(99, 10);
  EXPECT_EQ(0U, Write(tag));
  EXPECT_EQ(0U, LoadFlag(tag.WritePending));
  EXPECT_EQ(1U, Entry().LinkDown);
  EXPECT_EQ(0, channel_.Clock().Elapsed());
  EXPECT_THAT(channel_.LogLines(), IsEmpty());
}

TEST_F(TagWriterTest, SilenceBeforeBusyIsStillReported) {
  Line().Expect("01 03 07 0A").Silence();
  Line().Expect("01 03 07 0A").Answer("01 06").Times(2);
  EXPECT_EQ(0U, Write(Pending(99, 10)));
  EXPECT_THAT(channel_.LogLines(), ElementsAre("COM3 ПРИБОР:1 Нет ответа от устройства"));
}

TEST_F(TagWriterTest, ARefusalIsPausedTriedAgainAndDropped) {
  channel_.Protocol().PauseAfterError = 30;
  Line().Expect("01 03 07 0A").Answer("01 0F").Times(3);
  CDeviceTag& tag = Pending(99, 10);
  EXPECT_EQ(0U, Write(tag));
  EXPECT_EQ(0U, LoadFlag(tag.WritePending));
  EXPECT_EQ(3 * 30, channel_.Clock().Elapsed());
  EXPECT_THAT(channel_.LogLines(), ElementsAre("COM3 ПРИБОР:1 Нет ответа от устройства"));
}

TEST_F(TagWriterTest, OpensAClosedChannelWithoutCountingATry) {
  channel_.Protocol().Channel.RetryCount = 1;
  Line().Expect("01 03 07 0A").Answer("01 05");
  Line().Expect("01 01 30 30 30 30 30 30").Answer("01 00");
  Line().Expect("01 03 07 0A").AnswerInPieces({"01", "00"});
  EXPECT_EQ(1U, Write(Pending(99, 10)));
}

TEST_F(TagWriterTest, RetriesSendTheTimeOfTheFirst) {
  channel_.Clock().SetUtcMilliseconds(UtcMs(2026, 11, 22, 12, 0, 0));
  Line().Expect("01 03 0D 00 00 12").Silence().Times(2);
  Line().Expect("01 03 0D 00 00 12").Answer("01 00");
  EXPECT_EQ(1U, Write(Pending(kTagTimeCorrection, 1)));
  EXPECT_EQ(1000, channel_.Clock().Elapsed());
}

TEST_F(TagWriterTest, AWriteThatComesWhileTheCommandIsOnTheLineStaysPending) {
  CDeviceTag& tag = Pending(99, 10);
  const auto written = [&](float value) {
    Line().OnRequest([&tag, value](auto) {
      tag.WriteValue.fltVal = value;
      StoreFlag(tag.WritePending, 1);
      return Frame("01 00");
    });
    EXPECT_EQ(1U, Write(tag));
    return LoadFlag(tag.WritePending);
  };
  EXPECT_EQ(1U, written(20)) << "another value";
  EXPECT_EQ(0U, written(20)) << "the one that was sent";
  EXPECT_THAT(Line().RequestTexts(), ElementsAre("01 03 07 0A", "01 03 07 14"));
}

TEST_F(TagWriterTest, RefusesWhatIsNotThere) {
  CDeviceTag& tag = Pending(99, 10);
  EXPECT_EQ(0U, WriteTag(channel_.Protocol(), tag, meter_ + 1));
  channel_.Protocol().HostContext = nullptr;
  EXPECT_EQ(0U, Write(tag));
  channel_.Protocol().HostContext = &channel_.Context();
  EXPECT_EQ(0U, Line().RequestCount());
}

}  // namespace
}  // namespace ostrel::test
