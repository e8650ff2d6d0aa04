// One tag's reading: the request, the value that an answer stands for, and what it leaves in the meter's and the channel's
// state. What a bad line costs is told with the exchange loop.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <set>

#include "Protocol/acquisition/Decoder.h"
#include "Protocol/acquisition/TagReader.h"
#include "Protocol/model/TagCatalogue.h"
#include "platform/text.h"
#include "tests/support/SimulatedChannel.h"
#include "tests/support/TableFile.h"

namespace ostrel::test {
namespace {

using ::testing::ElementsAre;

constexpr char kEnergies[] = "!01 00 00 0F A0 00 00 27 10 FF FF FF FF 00 00 00 01 52 EE";
constexpr char kCoefficients[] = "!01 00 64 00 0A 00 00 00 00 00 00 32 DA";
constexpr char kVariant[] = "!01 01 40 13 20 15";
constexpr char kUnknownVariant[] = "!01 00 00 10 00 14";
constexpr char kStatus1[] = "!01 01 C1 E0";  // valid, and too short for a value

class Readings : public testing::Test, protected OneMeterChannel {
 protected:
  Readings() : OneMeterChannel({}, {.logRequest = 1}) { SetScale("5000 1 1 1"); }

  void SetScale(const std::string& text) {
    const auto numbers = Numbers(text);
    Entry().MeterConstant = numbers[0];
    Entry().VoltageFactor = static_cast<float>(numbers[1]);
    Entry().CurrentFactor = static_cast<float>(numbers[2]);
    Entry().PowerScale = static_cast<float>(numbers[3]);
  }
  /// The tag read from a meter that answers this, whatever it is asked.
  CDeviceTag& Read(std::uint32_t number, const std::string& answer) { return ReadAgain(*Add(number), answer); }
  CDeviceTag& ReadAgain(CDeviceTag& tag, const std::string& answer) {
    Line().ReplyAlways("", answer);
    EXPECT_EQ(1U, ReadTag(Protocol(), &tag, Send::Request, device)) << tag.TagNumber << ": " << answer;
    return tag;
  }
  std::uint32_t Read(CDeviceTag& tag, Send send = Send::Request) { return ReadTag(Protocol(), &tag, send, device); }
};

TEST_F(Readings, AskAsTheMetersDocumentSays) {
  Configure({.retries = 1});
  const auto meter = AddMeter(0x10C, 1, {.logRequest = 0x1A});  // only the low byte of an address goes out
  Line().ReplyAlways("0C", "");
  Line().ReplyAlways("0C 04", "0C 30 15 10 03 21 06 12 00");
  for (const TableRow& row : ReadTable("model/expected_catalogue.tsv", 5)) {
    const std::uint32_t number = Numbers(row[0])[0] - kFirstDaId;
    if (number >= kDaTagCount || row[4] == "never") continue;
    Line().ClearRecords();
    EXPECT_EQ(row[4].empty() ? 1U : 0U, ReadTag(Protocol(), AddTag(meter, number), Send::Request, meter)) << row[0];
    std::string sent;
    for (const std::string& text : Line().RequestTexts()) sent += (sent.empty() ? "" : " > ") + text.substr(3);
    EXPECT_EQ(row[4], sent) << row[0];
  }
}

TEST_F(Readings, TakeTheMonthFromTheMetersClock) {
  constexpr std::uint32_t kCurrent = 188;
  constexpr std::uint32_t kPrevious = 207;
  const struct {
    std::uint32_t tag;
    const char *clock, *request;
  } rows[] = {{kCurrent, "01 00 00 00 04 01 01 26 01", "01 05 31 00"},
              {kPrevious, "01 00 00 00 04 01 01 26 01", "01 05 3C 00"},
              {kCurrent, "01 59 59 23 04 31 12 26 01", "01 05 3C 00"},
              {kPrevious, "01 59 59 23 04 31 12 26 01", "01 05 3B 00"},
              {kPrevious, "01 00 00 00 07 01 02 26 00", "01 05 31 00"},
              {kCurrent, "01 00 00 00 07 01 10 26 00", "01 05 3A 00"},
              {kCurrent, "", "01 05 30 00"},
              {kPrevious, "", "01 05 31 00"}};
  Configure({.retries = 1});
  for (const auto& row : rows) {
    Line().ClearRecords();
    Line().ReplyAlways("01 05", kEnergies);
    CDeviceTag& tag = *Add(row.tag);
    Line().Reply("01 04 00", {row.clock});
    EXPECT_EQ(1U, Read(tag)) << row.request;
    EXPECT_THAT(Line().RequestTexts(), ElementsAre("01 04 00", row.request));
    EXPECT_EQ(kQualityGood, tag.Quality);
  }
}

TEST_F(Readings, ShowWhatTheAnswersMean) {
  for (const TableRow& row : ReadTable("acquisition/readings.tsv", 5)) {
    SCOPED_TRACE(row[0] + ": " + row[1]);
    SetScale(row[2].empty() ? "5000 1 1 1" : row[2]);
    const CDeviceTag& tag = Read(Numbers(row[0])[0], row[1]);
    EXPECT_EQ(tag.CanonicalType, tag.Value.vt);
    EXPECT_EQ(row[4], std::to_string(tag.Quality));
    EXPECT_EQ(1U, tag.Updated);
    if (tag.CanonicalType == VT_BSTR) {
      EXPECT_EQ(row[3], TextOf(tag));
      continue;
    }
    const float expected = FloatOf(row[3]);
    const float shown = NumberOf(tag);
    EXPECT_TRUE(expected == shown || (std::isnan(expected) && std::isnan(shown))) << shown << " for " << expected;
    EXPECT_EQ(std::signbit(expected), std::signbit(shown) && !std::isnan(shown));
  }
}

TEST_F(Readings, ShowLogRecordsWithAsManyStampsAsTheirLogHas) {
  for (const TableRow& row : ReadTable("acquisition/log_readings.tsv", 8)) {
    Entry().LogRequest = static_cast<std::uint8_t>(Numbers(row[0])[0]);
    for (std::uint32_t i = 0; i < 4; ++i) {
      const CDeviceTag& tag = Read(107 + i, row[1]);
      EXPECT_EQ(row[2 + i], TextOf(tag)) << "log " << row[0] << ", " << row[1] << ", tag " << i;
      EXPECT_EQ(row[6 + i / 2], std::to_string(tag.Quality)) << "log " << row[0];
      EXPECT_EQ(1U, tag.Updated);
    }
  }
}

TEST_F(Readings, OfSmallIntegersChangeTheirByteAlone) {
  for (const auto& [number, answer] : {std::pair(212U, "!01 00 01 E1 C0"), {243U, "!01 00 E7 60 4A"}, {212U, kStatus1}}) {
    CDeviceTag& tag = *Add(number);
    tag.Value.ullVal = 0x1122334455667788;
    ReadAgain(tag, answer);
    EXPECT_EQ(0x11223344556677U, tag.Value.ullVal >> 8) << number;
    const bool readable = answer != kStatus1;
    EXPECT_EQ(readable, tag.Quality == kQualityGood);
    EXPECT_EQ(readable, tag.Value.bVal != 0x88);
  }
}

TEST_F(Readings, LearnTheMetersVariantAndCoefficients) {
  Read(183, "!01 04 05 B0 42 FD");
  EXPECT_EQ(250U, Entry().MeterConstant);
  EXPECT_EQ(20.0F, Entry().PowerScale);
  EXPECT_THAT(Entry().VariantBytes, ElementsAre(0x04, 0x05, 0xB0));
  Read(4, kVariant);
  EXPECT_EQ(5000U, Entry().MeterConstant);
  EXPECT_EQ(1.0F, Entry().PowerScale);
  const std::size_t known = Protocol().VariantMap.size();
  for (int twice = 0; twice < 2; ++twice) Read(183, kUnknownVariant);
  EXPECT_EQ(known + 1, Protocol().VariantMap.size());
  EXPECT_EQ(0U, Entry().MeterConstant) << "values show infinity then, no plausible number";
  Read(8, kCoefficients);
  EXPECT_EQ(1.0F, Entry().VoltageFactor) << "the product is shown, not learnt";
  Read(6, kCoefficients);
  EXPECT_EQ(100.0F, Entry().VoltageFactor);
  EXPECT_EQ(1.0F, Entry().CurrentFactor);
  Read(7, kCoefficients);
  EXPECT_EQ(10.0F, Entry().CurrentFactor);
  EXPECT_THAT(Entry().CoefficientBytes, ElementsAre(0x00, 0x64, 0x00, 0x0A, 0x00));
}

TEST_F(Readings, StampTheMomentAndReplaceTexts) {
  CDeviceTag& tag = Read(3, "!01 03 02 0A 70 BF");
  Clock().Advance(1500);
  for (int i = 0; i < 3; ++i) ReadAgain(tag, "!01 03 02 0A 70 BF");
  EXPECT_EQ("3.2.a", TextOf(tag));
  EXPECT_EQ(platform::UtcFileTime().dwLowDateTime, tag.Timestamp.dwLowDateTime);
}

TEST_F(Readings, OfEveryTagHaveADecodingOfItsType) {
  Entry().LogCacheLength = 17;
  Protocol().AnswerLength = 19;
  const std::set<std::uint32_t> undecoded = {53, 60, 67, 97, 101, kDaTagCount};
  const std::set<std::uint32_t> ownState = {98, 99, 100, 102, 185, 211};
  for (std::uint32_t number = 0; number <= kDaTagCount; ++number) {
    if (ownState.count(number) != 0) continue;
    CDeviceTag& tag = *Add(number % kDaTagCount);
    tag.TagNumber = number;
    tag.Value.vt = VT_EMPTY;
    EXPECT_EQ(1U, DecodeTag(Protocol(), tag, device));
    const bool decoded = undecoded.count(number) == 0;
    EXPECT_EQ(decoded ? kQualityGood : kQualityDeviceFailure, tag.Quality) << number;
    EXPECT_EQ(decoded ? tag.CanonicalType : VARTYPE{VT_EMPTY}, tag.Value.vt) << number;
  }
}

TEST_F(Readings, OfThePlugInsOwnStateAskNothing) {
  const struct {
    std::uint32_t tag;
    float off, on;  // by the exchange
  } rows[] = {{kTagLogNumber, 7, 7}, {98, 0, 0}, {99, 0, 0}, {100, 0, 0}, {185, 0, 0}, {kTagExchange, 0, 1}};
  Entry().LogNumber = 7;
  for (const auto& row : rows) {
    for (const std::uint32_t exchangeOn : {0U, 1U, 5U}) {
      SCOPED_TRACE(std::to_string(row.tag) + " exchange " + std::to_string(exchangeOn));
      Entry().ExchangeOn = exchangeOn;
      CDeviceTag& tag = *Add(row.tag);
      tag.Timestamp = {1, 2};
      EXPECT_EQ(1U, Read(tag));
      EXPECT_EQ(kQualityGood, tag.Quality);
      EXPECT_EQ(row.tag == kTagExchange ? VT_BOOL : VT_R4, tag.Value.vt);
      EXPECT_EQ(exchangeOn == 0 ? row.off : row.on, NumberOf(tag));
      EXPECT_EQ(0U, tag.Updated);
      EXPECT_EQ(1U, tag.Timestamp.dwLowDateTime);
    }
  }
  Entry().ExchangeOn = 0;
  for (const std::uint32_t number : {0U, 9U, 103U, 188U, 210U, 243U}) {
    CDeviceTag& tag = *Add(number);
    for (const Send send : {Send::Request, Send::DecodeOnly}) EXPECT_EQ(1U, Read(tag, send));
    EXPECT_EQ(kQualityUncertain, tag.Quality) << number;
    EXPECT_EQ(0U, tag.Updated) << number;
  }
  Entry().ExchangeOn = 1;
  Entry().LogRequest = 0;
  Entry().LogCacheLength = 17;
  CDeviceTag& noLog = *Add(182);
  EXPECT_EQ(1U, Read(noLog));
  EXPECT_EQ("", TextOf(noLog));
  EXPECT_EQ(kQualityGood, noLog.Quality);
  EXPECT_EQ(0U, Line().RequestCount());
}

TEST_F(Readings, RefuseWithoutATagOrAContext) {
  EXPECT_EQ(0U, ReadTag(Protocol(), nullptr, Send::Request, device));
  Protocol().HostContext = nullptr;
  for (const Send send : {Send::Request, Send::DecodeOnly}) EXPECT_EQ(0U, Read(*Add(17), send));
  Protocol().HostContext = &Context();
}

TEST_F(Readings, ShareTheLastAnswerWhichIsNumbered) {
  const std::uint64_t before = Protocol().AnswerSerial;
  Line().Reply("01 05 00 00", {"", "01 05", kEnergies});
  Read(*Add(17));
  EXPECT_EQ(before + 1, Protocol().AnswerSerial);
  EXPECT_EQ(19U, Protocol().AnswerLength) << "the channel's own answer does not count";
  CDeviceTag& shared = *Add(26);
  EXPECT_EQ(1U, Read(shared, Send::DecodeOnly));
  EXPECT_EQ(1.0F, shared.Value.fltVal);
  EXPECT_EQ(1U, shared.Updated);
  Read(*Add(kTagLogNumber));
  EXPECT_EQ(before + 1, Protocol().AnswerSerial);
}

TEST_F(Readings, KeepALogAnswerAndThePreviousOneAfterAFailure) {
  Protocol().Channel.RetryCount = 1;
  Entry().LogNumber = 1;
  std::fill(std::begin(Entry().LogCache), std::end(Entry().LogCache), std::uint8_t{0xEE});
  Line().Reply("01 09 01 13", {"", "!01 30 15 08 03 19 11 24 59 59 23 07 31 12 25 E2 4B"});
  CDeviceTag& tag = *Add(kTagLastLog);
  EXPECT_EQ(0U, Read(tag));
  EXPECT_EQ(0xEE, Entry().LogCache[0]);
  EXPECT_EQ(1, Entry().LogNumber);
  EXPECT_EQ(1U, Read(tag));
  EXPECT_EQ(17U, Entry().LogCacheLength);
  EXPECT_EQ(0, Entry().LogNumber);
  EXPECT_EQ(0x01, Entry().LogCache[0]);
  EXPECT_EQ(0x25, Entry().LogCache[14]);
  EXPECT_EQ(0x00, Entry().LogCache[299]);
}

}  // namespace
}  // namespace ostrel::test
