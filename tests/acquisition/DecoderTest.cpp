// Answers as meters send them, checks included, and the values they stand for.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <set>

#include "Protocol/acquisition/Decoder.h"
#include "Protocol/model/TagCatalogue.h"
#include "tests/acquisition/DecoderFixture.h"

namespace ostrel::test {
namespace {

constexpr char kEnergies[] = "01 00 00 0F A0 00 00 27 10 FF FF FF FF 00 00 00 01 52 EE";
constexpr char kCoefficients[] = "01 00 64 00 0A 00 00 00 00 00 00 32 DA";
constexpr char kVariant[] = "01 01 40 13 20 15";

TEST_F(DecoderTest, Numbers) {
  const struct {
    std::uint32_t tag;
    const char* answer;
    float value;
    Scale scale = {};
  } rows[] = {
      {2, "01 00 0C 20 05", 12},
      {4, kVariant, 5000},
      {5, kVariant, -40},
      {94, kVariant, 3},
      {6, kCoefficients, 100},
      {7, kCoefficients, 10},
      {8, kCoefficients, 1000},
      // Energies by tariff, by the current tariff, by day, month and year; the four kinds stand one after the other.
      {9, kEnergies, 0.4F},
      {17, kEnergies, 2, {.constant = 1000}},
      {18, kEnergies, 1},
      {26, kEnergies, 1000, {.voltage = 100, .current = 10}},
      {27, kEnergies, 429496.7295F},
      {35, kEnergies, 429496.7295F},
      {36, kEnergies, 0.0001F},
      {44, kEnergies, 0.0001F},
      {45, kEnergies, 0.4F},
      {46, kEnergies, 1},
      {47, kEnergies, 429496.7295F},
      {48, kEnergies, 0.0001F},
      {186, kEnergies, 0.4F},
      {191, kEnergies, 0.4F},
      {192, kEnergies, 1},
      {197, kEnergies, 1},
      {198, kEnergies, 429496.7295F},
      {203, kEnergies, 429496.7295F},
      {204, kEnergies, 0.0001F},
      {209, kEnergies, 0.0001F},
      // P takes bit 7 for its sign, Q bit 6, S and everything else none.
      {49, "01 80 30 39 D4 22", -12.345F},
      {50, "01 80 30 39 D4 22", 12.345F},
      {51, "01 80 30 39 D4 22", 12.345F},
      {56, "01 C0 30 39 D5 F6", -12.345F},
      {57, "01 C0 30 39 D5 F6", -12.345F},
      {58, "01 C0 30 39 D5 F6", 12.345F},
      {70, "01 3F FF FF 30 64", 4194.303F},
      {71, "01 80 30 39 D4 22", 24690, {.voltage = 100, .current = 10, .power = 2}},
      {54, "01 00 55 F0 3E CC", 220},
      {61, "01 00 55 F0 3E CC", 22000, {.voltage = 100, .current = 10, .power = 2}},
      {55, "01 00 C3 50 51 14", 5},
      {69, "01 00 C3 50 51 14", 50, {.voltage = 100, .current = 10, .power = 2}},
      {52, "01 C0 00 62 80 0D", 0.98F},
      {73, "01 C0 00 62 80 0D", 0.98F, {.voltage = 100, .current = 10, .power = 2}},
      {75, "01 00 13 88 0C 8E", 50},
      {93, "01 00 13 88 0C 8E", 50, {.voltage = 100, .current = 10, .power = 2}},
      // Limits are those of the meter's own terminals.
      {214, "01 00 00 27 10 03 FC", 1, {.voltage = 100, .current = 10}},
      {242, "01 00 00 27 10 03 FC", 1, {.voltage = 100, .current = 10}},
      {219, "01 C3 50 70 CC", 5000},
      {222, "01 C3 50 70 CC", 5000, {.voltage = 100, .current = 10}},
  };
  for (const auto& row : rows) {
    SetScale(row.scale);
    const CDeviceTag& tag = Read(row.tag, row.answer);
    EXPECT_EQ(VT_R4, tag.Value.vt) << row.tag;
    EXPECT_EQ(row.value, tag.Value.fltVal) << row.tag << ": " << row.answer;
    EXPECT_EQ(kQualityGood, tag.Quality) << row.tag;
    EXPECT_EQ(1U, tag.Updated) << row.tag;
  }
}

TEST_F(DecoderTest, Texts) {
  const struct {
    std::uint32_t tag;
    const char* answer;
    const char* text;
  } rows[] = {
      {0, "01 00 BC 61 4E 05 03 24 21 31", "N 12345678"},
      {1, "01 00 BC 61 4E 05 03 24 21 31", "05/03/24"},
      {3, "01 03 02 0A 70 BF", "3.2.a"},
      {95, "01 00 01 E1 C0", "да"},
      {184, "01 00 01 E1 C0", "нет"},
      {95, "01 00 04 21 C3", "нет"},
      {184, "01 00 04 21 C3", "да"},
      {96, "01 CF D1 2D 31 00 41 42 BE 11", "ПС-1"},
      {96, "01 41 42 43 20 9D", "ABC \xD1\x9C"},  // the check is read along: 0x9D is Cyrillic kje
      {183, kVariant, "СЭТ-4ТМ.03"},
      {183, "01 00 00 88 01 BE", "СЭТ-4ТМ.02М"},
      {183, "01 04 05 B0 42 FD", "ПСЧ-4ТМ.05МК"},
      {183, "01 00 00 10 00 14", ""},
  };
  for (const auto& row : rows) {
    const CDeviceTag& tag = Read(row.tag, row.answer);
    EXPECT_EQ(row.text, Text(tag)) << row.tag << ": " << row.answer;
    EXPECT_EQ(kQualityGood, tag.Quality) << row.tag;
  }
  EXPECT_EQ("N -0000001", Text(ReadAgain(*channel_.AddTag(meter_, 0), ToHex(Frame("01 FF FF FF FF 05 03 24")))));
  EXPECT_EQ("ABCDEFGHIJKLMNOP", Text(ReadAgain(*channel_.AddTag(meter_, 96),
                                               ToHex(Frame("01 41 42 43 44 45 46 47 48 49 4A 4B 4C 4D 4E 4F 50 51 52")))));
}

TEST_F(DecoderTest, SmallIntegersChangeTheirByteAlone) {
  const struct {
    std::uint32_t tag;
    const char* answer;
    VARTYPE type;
    int value;
  } rows[] = {
      {212, "01 00 01 E1 C0", VT_UI1, 1},
      {213, "01 00 19 E1 CA", VT_UI1, 25},
      {243, "01 00 E7 60 4A", VT_I1, -25},
  };
  for (const auto& row : rows) {
    CDeviceTag& tag = *channel_.AddTag(meter_, row.tag);
    tag.Value.ullVal = 0x1122334455667788;
    ReadAgain(tag, row.answer);
    EXPECT_EQ(row.type, tag.Value.vt);
    EXPECT_EQ(0x11223344556677U, tag.Value.ullVal >> 8) << row.tag;
    EXPECT_EQ(row.value, row.type == VT_I1 ? static_cast<signed char>(tag.Value.cVal) : tag.Value.bVal) << row.tag;
    EXPECT_EQ(kQualityGood, tag.Quality);
  }
}

TEST_F(DecoderTest, ConnectionStateIsGoodEitherWay) {
  const CDeviceTag& linked = Read(kTagConnectionState, "01 00 00 20");
  EXPECT_EQ(VT_BOOL, linked.Value.vt);
  EXPECT_EQ(1, linked.Value.boolVal);
  EXPECT_EQ(kQualityGood, linked.Quality);
  const CDeviceTag& refused = Read(kTagConnectionState, kStatus1);
  EXPECT_EQ(0, refused.Value.boolVal);
  EXPECT_EQ(kQualityGood, refused.Quality);
}

TEST_F(DecoderTest, LearnsTheMetersVariantAndCoefficients) {
  Read(183, "01 04 05 B0 42 FD");
  EXPECT_EQ(250U, Entry().MeterConstant);
  EXPECT_EQ(20.0F, Entry().PowerScale);
  EXPECT_THAT(Entry().VariantBytes, testing::ElementsAre(0x04, 0x05, 0xB0));
  Read(4, kVariant);
  EXPECT_EQ(5000U, Entry().MeterConstant);
  EXPECT_EQ(1.0F, Entry().PowerScale);
  SetScale({.voltage = 1, .current = 1});
  Read(8, kCoefficients);
  EXPECT_EQ(1.0F, Entry().VoltageFactor) << "the product is shown, not learnt";
  Read(6, kCoefficients);
  EXPECT_EQ(100.0F, Entry().VoltageFactor);
  EXPECT_EQ(1.0F, Entry().CurrentFactor);
  Read(7, kCoefficients);
  EXPECT_EQ(10.0F, Entry().CurrentFactor);
  EXPECT_THAT(Entry().CoefficientBytes, testing::ElementsAre(0x00, 0x64, 0x00, 0x0A, 0x00));
}

TEST_F(DecoderTest, AnUnknownVariantShowsInfinityNotAPlausibleNumber) {
  const std::size_t known = channel_.Protocol().VariantMap.size();
  SetScale({});
  EXPECT_EQ(0.0F, Read(4, "01 00 00 10 00 14").Value.fltVal);
  Read(183, "01 00 00 10 00 14");
  EXPECT_EQ(known + 1, channel_.Protocol().VariantMap.size());
  EXPECT_EQ(0U, Entry().MeterConstant);
  EXPECT_EQ(std::numeric_limits<float>::infinity(), Read(9, kEnergies).Value.fltVal);
  const CDeviceTag& none = Read(214, ToHex(Frame("01 00 00 00 00")));
  EXPECT_TRUE(std::isnan(none.Value.fltVal));
  EXPECT_EQ(kQualityGood, none.Quality);
  EXPECT_EQ(0.0F, Read(49, "01 80 30 39 D4 22").Value.fltVal) << "scaled by 0";
}

TEST_F(DecoderTest, EdgesOfNumbers) {
  SetScale({});
  EXPECT_EQ(4294836224.0F, Read(8, ToHex(Frame("01 FF FF FF FF 00 00 00 00 00 00"))).Value.fltVal);
  const float zero = Read(49, ToHex(Frame("01 80 00 00"))).Value.fltVal;
  EXPECT_EQ(0.0F, zero);
  EXPECT_TRUE(std::signbit(zero));
}

TEST_F(DecoderTest, AnAnswerTooShortForAValueIsBad) {
  SetScale({});
  CDeviceTag& number = *channel_.AddTag(meter_, 214);
  number.Value.fltVal = 5;
  ReadAgain(number, kStatus1);
  EXPECT_EQ(0.0F, number.Value.fltVal);
  EXPECT_EQ(kQualityDeviceFailure, number.Quality);
  EXPECT_EQ(1U, number.Updated);
  const CDeviceTag& text = Read(95, kStatus1);
  EXPECT_EQ("", Text(text));
  EXPECT_EQ(kQualityDeviceFailure, text.Quality);
  CDeviceTag& byte = *channel_.AddTag(meter_, 212);
  byte.Value.bVal = 1;
  ReadAgain(byte, kStatus1);
  EXPECT_EQ(1, byte.Value.bVal);
  EXPECT_EQ(kQualityDeviceFailure, byte.Quality);
}

TEST_F(DecoderTest, AnAnswerOfTheWrongLengthIsNeverDecoded) {
  const CDeviceTag& tag = Read(9, kStatus1, 0);
  EXPECT_EQ(kQualityUncertain, tag.Quality);
  EXPECT_EQ(0U, tag.Updated);
  EXPECT_THAT(channel_.LogLines(), testing::ElementsAre("COM3 ПРИБОР:1 Принят ошибочный пакет"));
}

TEST_F(DecoderTest, StampsTheMomentAndReplacesTexts) {
  CDeviceTag& tag = Read(3, "01 03 02 0A 70 BF");
  channel_.Clock().Advance(1500);
  for (int i = 0; i < 3; ++i) ReadAgain(tag, "01 03 02 0A 70 BF");
  EXPECT_EQ("3.2.a", Text(tag));
  const FILETIME now = platform::UtcFileTime();
  EXPECT_EQ(now.dwLowDateTime, tag.Timestamp.dwLowDateTime);
  EXPECT_EQ(now.dwHighDateTime, tag.Timestamp.dwHighDateTime);
}

TEST_F(DecoderTest, EveryTagThatIsReadHasADecodingOfItsType) {
  SetScale({});
  Entry().LogRequest = 1;
  Entry().LogCacheLength = 17;
  channel_.Protocol().AnswerLength = 19;
  const std::set<std::uint32_t> undecoded = {53, 60, 67, 97, 101};
  const std::set<std::uint32_t> ownState = {98, 99, 100, 102, 185, 211};
  for (std::uint32_t number = 0; number < kDaTagCount; ++number) {
    if (ownState.count(number) != 0) continue;
    CDeviceTag& tag = *channel_.AddTag(meter_, number);
    tag.Value.vt = VT_EMPTY;
    EXPECT_EQ(1U, DecodeTag(channel_.Protocol(), tag, meter_));
    const bool decoded = undecoded.count(number) == 0;
    EXPECT_EQ(decoded ? kQualityGood : kQualityDeviceFailure, tag.Quality) << number;
    EXPECT_EQ(decoded ? tag.CanonicalType : VARTYPE{VT_EMPTY}, tag.Value.vt) << number;
  }
  CDeviceTag& unknown = *channel_.AddTag(meter_, 9);
  unknown.TagNumber = kDaTagCount;
  DecodeTag(channel_.Protocol(), unknown, meter_);
  EXPECT_EQ(kQualityDeviceFailure, unknown.Quality);
}

}  // namespace
}  // namespace ostrel::test
