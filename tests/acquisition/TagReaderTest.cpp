// One tag's reading on the line: tries, pieces, refusals, and what it leaves in the channel's state.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Protocol/acquisition/TagReader.h"
#include "Protocol/model/TagCatalogue.h"
#include "tests/support/TestChannel.h"

namespace ostrel::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr char kEnergyRequest[] = "0C 05 00 00";
constexpr char kEnergyAnswer[] = "0C 00 00 0F A0 00 00 27 10 00 00 00 00 00 00 00 00";
constexpr char kNoAnswer[] = "COM3 ПРИБОР:12 Нет ответа от устройства";
constexpr char kBadPacket[] = "COM3 ПРИБОР:12 Принят ошибочный пакет";
constexpr std::uint32_t kEnergySum = 17;

class TagReaderTest : public testing::Test {
 protected:
  TagReaderTest() {
    channel_.Protocol().Running = 1;
    Entry().MeterConstant = 1000;
    Entry().VoltageFactor = Entry().CurrentFactor = 1;
  }
  ~TagReaderTest() override { channel_.Protocol().Running = 0; }

  DeviceEntry& Entry() { return channel_.Entry(meter_); }
  ScriptedLine& Line() { return channel_.Line(); }
  CProtocol& Protocol() { return channel_.Protocol(); }
  CDeviceTag& Tag(std::uint32_t number) { return *channel_.AddTag(meter_, number); }
  std::uint32_t Read(CDeviceTag& tag, Send send = Send::Request) { return ReadTag(Protocol(), &tag, send, meter_); }

  TestChannel channel_;
  const std::uint32_t meter_ = channel_.AddMeter(12, 1);
};

TEST_F(TagReaderTest, AnswersSomeTagsFromItsOwnStateAlsoWithExchangeOff) {
  const struct {
    std::uint32_t tag;
    std::uint32_t exchangeOn;
    VARTYPE type;
    float value;
  } rows[] = {{kTagLogNumber, 1, VT_R4, 7},
              {98, 1, VT_R4, 0},
              {99, 1, VT_R4, 0},
              {100, 1, VT_R4, 0},
              {185, 1, VT_R4, 0},
              {kTagExchange, 1, VT_BOOL, 1},
              {kTagLogNumber, 0, VT_R4, 7},
              {98, 0, VT_R4, 0},
              {185, 0, VT_R4, 0},
              {kTagExchange, 0, VT_BOOL, 0},
              {kTagExchange, 5, VT_BOOL, 1}};
  for (const auto& row : rows) {
    SCOPED_TRACE(std::to_string(row.tag) + " exchange " + std::to_string(row.exchangeOn));
    Entry().LogNumber = 7;
    Entry().ExchangeOn = row.exchangeOn;
    CDeviceTag& tag = Tag(row.tag);
    tag.Timestamp = {1, 2};
    EXPECT_EQ(1U, Read(tag));
    EXPECT_EQ(kQualityGood, tag.Quality);
    EXPECT_EQ(row.type, tag.Value.vt);
    EXPECT_EQ(row.value, row.type == VT_BOOL ? static_cast<float>(tag.Value.boolVal) : tag.Value.fltVal);
    EXPECT_EQ(0U, tag.Updated);
    EXPECT_EQ(1U, tag.Timestamp.dwLowDateTime);
  }
  EXPECT_EQ(0U, Line().RequestCount());
}

TEST_F(TagReaderTest, LeavesOtherTagsAloneWithExchangeOff) {
  Entry().ExchangeOn = 0;
  for (const std::uint32_t number : {0U, 9U, 103U, 188U, 210U, 243U}) {
    CDeviceTag& tag = Tag(number);
    EXPECT_EQ(1U, Read(tag));
    EXPECT_EQ(1U, Read(tag, Send::DecodeOnly));
    EXPECT_EQ(kQualityUncertain, tag.Quality) << number;
    EXPECT_EQ(0U, tag.Updated) << number;
  }
  EXPECT_EQ(0U, Line().RequestCount());
}

TEST_F(TagReaderTest, RefusesWhatIsNotThere) {
  EXPECT_EQ(0U, ReadTag(Protocol(), nullptr, Send::Request, meter_));
  CDeviceTag& tag = Tag(kEnergySum);
  EXPECT_EQ(0U, ReadTag(Protocol(), &tag, Send::Request, meter_ + 1));
  Protocol().HostContext = nullptr;
  EXPECT_EQ(0U, ReadTag(Protocol(), &tag, Send::Request, meter_));
  EXPECT_EQ(0U, ReadTag(Protocol(), &tag, Send::DecodeOnly, meter_));
  Protocol().HostContext = &channel_.Context();
}

TEST_F(TagReaderTest, GathersAnAnswerInPiecesWithinOneTry) {
  Protocol().Channel.RetryCount = 1;
  Line().Expect(kEnergyRequest).AnswerInPieces({"0C 00", "00 0F A0 00 00 27 10 00 00 00 00", "00 00 00 00"});
  CDeviceTag& tag = Tag(kEnergySum);
  EXPECT_EQ(1U, Read(tag));
  EXPECT_EQ(2.0F, tag.Value.fltVal);
  EXPECT_EQ(19U, Protocol().AnswerLength);
  EXPECT_THAT(channel_.LogLines(), IsEmpty());
}

TEST_F(TagReaderTest, CountsEveryRequestThatGoesOut) {
  const std::uint64_t before = Protocol().AnswerSerial;
  Line().Expect(kEnergyRequest).Answer(kEnergyAnswer);
  Read(Tag(kEnergySum));
  EXPECT_EQ(before + 1, Protocol().AnswerSerial);
  Read(Tag(26), Send::DecodeOnly);
  Read(Tag(kTagLogNumber));
  Read(Tag(kTagFirstLog));  // no log is asked for
  EXPECT_EQ(before + 1, Protocol().AnswerSerial);
}

TEST_F(TagReaderTest, DecodesASharedAnswerWithoutARequest) {
  Line().Expect(kEnergyRequest).Answer(kEnergyAnswer);
  Read(Tag(kEnergySum));
  CDeviceTag& shared = Tag(26);
  EXPECT_EQ(1U, Read(shared, Send::DecodeOnly));
  EXPECT_EQ(5.0F, shared.Value.fltVal);
  EXPECT_EQ(1U, shared.Updated);
}

TEST_F(TagReaderTest, SilenceIsTriedAgainAndEndsWithOneMessage) {
  Line().Expect(kEnergyRequest).Silence().Times(3);
  CDeviceTag& tag = Tag(kEnergySum);
  EXPECT_EQ(0U, Read(tag));
  EXPECT_EQ(kQualityUncertain, tag.Quality);
  EXPECT_EQ(0U, tag.Updated);
  EXPECT_EQ(1U, Entry().LinkDown);
  EXPECT_EQ(1U, Entry().FailHold);
  EXPECT_THAT(channel_.LogLines(), ElementsAre(kNoAnswer));
  EXPECT_EQ(3 * 500, channel_.Clock().Elapsed()) << "no pause but the answer time-outs";
}

TEST_F(TagReaderTest, RejectedAnswersArePausedAndReported) {
  Protocol().PauseAfterError = 30;
  Line().Expect(kEnergyRequest).Answer("0C 0F").Times(2);
  Line().Expect(kEnergyRequest).Answer("0C 01");
  EXPECT_EQ(0U, Read(Tag(kEnergySum)));
  EXPECT_EQ(3 * 30, channel_.Clock().Elapsed());
  EXPECT_EQ(0U, Protocol().AnswerLength);
  EXPECT_THAT(channel_.LogLines(), ElementsAre(kBadPacket)) << "the last outcome counts";
}

TEST_F(TagReaderTest, BusyAnswersAreTriesWithoutAPauseOrAMessage) {
  Line().Expect("0C 08 09").Answer("0C 06").Times(3);
  CDeviceTag& tag = Tag(95);
  EXPECT_EQ(0U, Read(tag));
  EXPECT_EQ(0, channel_.Clock().Elapsed());
  EXPECT_EQ(1U, Entry().LinkDown);
  EXPECT_THAT(channel_.LogLines(), IsEmpty());
  Line().Expect("0C 08 09").Answer("0C 06");
  Line().Expect("0C 08 09").Answer("0C 00 01");
  EXPECT_EQ(1U, Read(tag));
  EXPECT_EQ(kQualityGood, tag.Quality);
  EXPECT_EQ(0U, Entry().LinkDown);
}

TEST_F(TagReaderTest, OpensAClosedChannelAndAsksAgain) {
  Line().Expect(kEnergyRequest).Silence();
  Line().Expect(kEnergyRequest).AnswerRaw("0C 05 00 00");  // its check does not matter
  Line().Expect("0C 01 30 30 30 30 30 30").Answer("0C 00");
  Line().Expect(kEnergyRequest).Answer(kEnergyAnswer);
  CDeviceTag& tag = Tag(kEnergySum);
  EXPECT_EQ(1U, Read(tag));
  EXPECT_EQ(2.0F, tag.Value.fltVal);
  EXPECT_EQ(19U, Protocol().AnswerLength) << "the channel's own answer does not count";
}

TEST_F(TagReaderTest, FailsWhenTheChannelCannotBeOpened) {
  Line().Expect(kEnergyRequest).Answer("0C 05");
  Line().Expect("0C 01 30 30 30 30 30 30").Answer("0C 01");
  EXPECT_EQ(0U, Read(Tag(kEnergySum)));
  EXPECT_EQ(1U, Entry().LinkDown);
  EXPECT_THAT(channel_.LogLines(), IsEmpty());
}

TEST_F(TagReaderTest, ADataByteOfFiveInAContinuationIsNoClosedChannel) {
  Line().Expect(kEnergyRequest).AnswerInPieces({"0C 05 00 0F A0 00 00 27 10 00 00 00 00 00 00", "00 00"});
  CDeviceTag& tag = Tag(kEnergySum);
  EXPECT_EQ(1U, Read(tag));
  EXPECT_EQ(0x05000FA0 / 2000.0F, tag.Value.fltVal);
}

TEST_F(TagReaderTest, NoiseFillsTheRoomAndNothingMoreIsAskedFor) {
  Line().OnRequest([](auto) { return Bytes(400, 0x7E); });
  EXPECT_EQ(0U, Read(Tag(kEnergySum)));
  EXPECT_EQ(3U, Line().RequestCount());
  EXPECT_THAT(Line().Calls(), testing::Contains("Read 0 -> 0").Times(3));
}

TEST_F(TagReaderTest, MakesOneTryWhileStoppingAndForGood) {
  Protocol().Running = 0;
  Line().Expect(kEnergyRequest).Silence();
  EXPECT_EQ(0U, Read(Tag(kEnergySum)));
  EXPECT_EQ(1, Protocol().Channel.RetryCount);
}

TEST_F(TagReaderTest, KeepsALogAnswerInTheMetersCache) {
  Entry().LogRequest = 1;
  Entry().LogNumber = 1;
  std::fill(std::begin(Entry().LogCache), std::end(Entry().LogCache), std::uint8_t{0xEE});
  Line().Expect("0C 09 01 13").Answer("0C 30 15 08 03 19 11 24 59 59 23 07 31 12 25");
  EXPECT_EQ(1U, Read(Tag(kTagLastLog)));
  EXPECT_EQ(17U, Entry().LogCacheLength);
  EXPECT_EQ(0, Entry().LogNumber);
  EXPECT_EQ(0x25, Entry().LogCache[14]);
  EXPECT_EQ(0x00, Entry().LogCache[299]);
  EXPECT_EQ(0x0C, Entry().LogCache[0]);
}

TEST_F(TagReaderTest, AFailedLogReadLeavesTheCache) {
  Entry().LogRequest = 1;
  Entry().LogNumber = 1;
  Entry().LogCacheLength = 17;
  Entry().LogCache[1] = 0x30;
  Protocol().Channel.RetryCount = 1;
  Line().Expect("0C 09 01 00").Silence();
  EXPECT_EQ(0U, Read(Tag(kTagFirstLog)));
  EXPECT_EQ(17U, Entry().LogCacheLength);
  EXPECT_EQ(0x30, Entry().LogCache[1]);
  EXPECT_EQ(1, Entry().LogNumber);
}

}  // namespace
}  // namespace ostrel::test
