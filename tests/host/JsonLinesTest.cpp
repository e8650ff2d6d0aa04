// The lines that programs read, byte for byte.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "host/show/JsonLines.h"
#include "host/show/LiveTable.h"
#include "host/show/Output.h"
#include "platform/text.h"
#include "tests/host/FailureOf.h"

namespace ostrel::host {
namespace {

// 2026-11-22T20:00:00.123Z in 100 ns since 1601: 1795377600.123 s since 1970, and 11644473600 s between the two.
FILETIME SomeTime() {
  const std::uint64_t ticks = (1795377600123ULL + 11644473600000ULL) * 10000;
  return {.dwLowDateTime = static_cast<DWORD>(ticks & 0xFFFFFFFFU), .dwHighDateTime = static_cast<DWORD>(ticks >> 32U)};
}

TagDefinition SomeTag() {
  return {.id = 20017, .name = "A+ Tariff Sum", .description = "Сумма", .descriptor = {4, 5, 9, 0, 6, 1, 0, 0, 1, 19}};
}

TEST(JsonLines, TagWithEveryKindOfValue) {
  const std::pair<Value, std::string> rows[] = {{1234.5F, "1234.5"},
                                                {0.1F, "0.1"},
                                                {2.0F, "2.0"},
                                                {-0.0F, "-0.0"},
                                                {16777216.0F, "16777216.0"},
                                                {std::numeric_limits<float>::infinity(), "null"},
                                                {std::nanf(""), "null"},
                                                {Value{}, "null"},
                                                {true, "true"},
                                                {std::int32_t{-25}, "-25"},
                                                {std::string("да \"1\""), R"("да \"1\"")"}};
  MeterConfig meter;
  meter.name = "feeder-1";
  meter.address = 12;
  for (const auto& [value, json] : rows) {
    EXPECT_EQ(
        R"({"event":"tag","version":1,"channel":"COM1","meter":"feeder-1","address":12,"id":20017,"tag":"A+ Tariff Sum","value":)" +
            json + R"(,"quality":192,"quality_name":"good","timestamp":"2026-11-22T20:00:00.123Z"})",
        TagJson("COM1", meter, SomeTag(), {.value = value, .quality = 192, .timestamp = SomeTime()}));
  }
}

TEST(JsonLines, OtherEvents) {
  std::string pass;
  AppendPassJson(pass, "COM1", {.pass = 1, .seconds = 1.204, .periodSeconds = 5, .meters = {}});
  EXPECT_EQ(R"({"event":"pass","version":1,"channel":"COM1","pass":1,"seconds":1.204,"period_s":5})", pass);
  AppendPassJson(pass = "", "\"К1\"", {.pass = 12, .seconds = 60, .periodSeconds = 0, .meters = {}});
  EXPECT_EQ(R"({"event":"pass","version":1,"channel":"\"К1\"","pass":12,"seconds":60.0,"period_s":0})", pass);
  EXPECT_EQ(
      R"({"event":"log","version":1,"channel":"COM1","text":"[ 22/11/2026 20:00:01.204 ] COM1 ПРИБОР:12 Нет ответа от устройства"})",
      LogJson({.channel = "COM1", .text = "[ 22/11/2026 20:00:01.204 ] COM1 ПРИБОР:12 Нет ответа от устройства"}));
  WriteReport report{.channel = "COM1",
                     .meter = "feeder-1",
                     .address = 12,
                     .tag = SomeTag(),
                     .before = 10.0F,
                     .sent = 5000.0F,
                     .after = 5000.0F,
                     .outcome = WriteOutcome::Accepted,
                     .reason = {}};
  report.tag.id = 20219;
  report.tag.name = "LimitPowerWeekDay";
  EXPECT_EQ(
      R"({"event":"write","version":1,"channel":"COM1","meter":"feeder-1","address":12,"id":20219,"tag":"LimitPowerWeekDay","before":10.0,)"
      R"("sent":5000.0,"after":5000.0,"outcome":"accepted","reason":""})",
      WriteJson(report));
}

TEST(TagReading, IsNewWhenValueOrQualityAreAndNotANumberOnce) {
  const struct {
    float number;
    const char* text;  // the tag has texts when there is one; "" is none at all
    std::uint16_t quality;
    bool changed;
  } rows[] = {
      {1.0F, nullptr, 192, true},
      {1.0F, nullptr, 192, false},
      {1.0F, nullptr, 12, true},
      {2.0F, nullptr, 12, false},  // what is not good is not shown
      {std::nanf(""), nullptr, 192, true},
      {std::nanf(""), nullptr, 192, false},
      {0, "да", 192, true},
      {0, "да", 192, false},
      {0, "дат", 192, true},
      {0, "", 192, true},
  };
  const TagDefinition definition = SomeTag();
  PolledTag tag = MakeTag(definition, 1, 12);
  TagReading reading;
  for (const auto& row : rows) {
    const bool none = row.text != nullptr && *row.text == '\0';
    const platform::OleString text = platform::Utf8ToOle(row.text == nullptr ? "" : row.text);
    VARIANT& value = tag.tag->Value;
    value.vt = row.text == nullptr ? VT_R4 : VT_BSTR;
    value.fltVal = row.number;
    if (row.text != nullptr) value.bstrVal = none ? nullptr : platform::AllocString(text.data(), text.size());
    tag.tag->Quality = row.quality;
    Refresh(tag, reading);
    EXPECT_EQ(row.changed, reading.changed) << &row - rows;
    EXPECT_EQ(row.quality, reading.quality);
    EXPECT_EQ(row.quality != 192 || none, std::holds_alternative<std::monostate>(reading.value));
    if (row.text != nullptr) platform::FreeString(value.bstrVal);
    value = {};
  }
  tag.tag->Destroy(1);
}

TEST(TagValue, WrittenTextsBecomeTheTagsType) {
  using Row = std::tuple<const char*, VARTYPE, Value>;  // no value: it is none of the type
  for (const auto& [text, type, value] : {Row{"10.5", VT_R4, 10.5F},
                                          {"-1e3", VT_R4, -1000.0F},
                                          {"10,5", VT_R4, {}},
                                          {"", VT_R4, {}},
                                          {"true", VT_BOOL, true},
                                          {"0", VT_BOOL, false},
                                          {"2", VT_BOOL, {}},
                                          {"255", VT_UI1, std::int32_t{255}},
                                          {"256", VT_UI1, {}},
                                          {"-1", VT_UI1, {}},
                                          {"-128", VT_I1, std::int32_t{-128}},
                                          {"128", VT_I1, {}},
                                          {"text", VT_BSTR, {}}}) {
    Value written;
    EXPECT_EQ(value == Value{},
              FailureOf([&, text = text, type = type] { written = ValueOf(ParseWriteValue(text, type)); }) != "accepted");
    EXPECT_EQ(value, written) << text;
  }
}

TEST(LiveTable, WidthsCountCharactersNotBytes) {
  EXPECT_EQ(5U, DisplayWidth("Обмен"));
  EXPECT_EQ("Обмен  ", Padded("Обмен", 7));
  EXPECT_EQ("Обм", Padded("Обмен", 3));
  EXPECT_EQ("", Padded("Обмен", 0));
}

}  // namespace
}  // namespace ostrel::host
