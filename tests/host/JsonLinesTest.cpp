// The lines that programs read, byte for byte.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "host/session/Failure.h"
#include "host/show/JsonLines.h"
#include "host/show/LiveTable.h"
#include "host/show/Output.h"
#include "platform/text.h"

namespace ostrel::host {
namespace {

// 2026-11-22T20:00:00.123Z in 100 ns since 1601: 1795377600.123 s since 1970, and 11644473600 s between the two.
FILETIME SomeTime() {
  const std::uint64_t ticks = (1795377600123ULL + 11644473600000ULL) * 10000;
  return {.dwLowDateTime = static_cast<DWORD>(ticks & 0xFFFFFFFFU), .dwHighDateTime = static_cast<DWORD>(ticks >> 32U)};
}

MeterConfig SomeMeter() {
  MeterConfig meter;
  meter.name = "feeder-1";
  meter.address = 12;
  return meter;
}

TagDefinition SomeTag() {
  return {.id = 20017, .name = "A+ Tariff Sum", .description = "Сумма", .descriptor = {4, 5, 9, 0, 6, 1, 0, 0, 1, 19}};
}

struct ValueCase {
  Value value;
  const char* json;
};

TEST(JsonLines, TagWithEveryKindOfValue) {
  const ValueCase cases[] = {
      {1234.5F, "1234.5"},
      {0.1F, "0.1"},
      {2.0F, "2.0"},
      {-0.0F, "-0.0"},
      {16777216.0F, "16777216.0"},
      {std::numeric_limits<float>::infinity(), "null"},
      {std::nanf(""), "null"},
      {Value{}, "null"},
      {true, "true"},
      {std::int32_t{-25}, "-25"},
      {std::string("да \"1\""), R"("да \"1\"")"},
  };
  for (const ValueCase& row : cases) {
    const TagReading reading{.value = row.value, .quality = 192, .timestamp = SomeTime()};
    EXPECT_EQ(
        std::string(
            R"({"event":"tag","version":1,"channel":"COM1","meter":"feeder-1","address":12,"id":20017,"tag":"A+ Tariff Sum","value":)") +
            row.json + R"(,"quality":192,"quality_name":"good","timestamp":"2026-11-22T20:00:00.123Z"})",
        TagJson("COM1", SomeMeter(), SomeTag(), reading));
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
  EXPECT_EQ(R"({"event":"type","version":1,"type":1,"name":"SET4TM03","display":"СЭТ-4ТМ.03"})",
            TypeJson({.id = 1, .name = "SET4TM03", .display = "СЭТ-4ТМ.03"}));
  EXPECT_EQ(
      R"({"event":"tagdef","version":1,"branch":"da","id":20017,"name":"A+ Tariff Sum","data_type":"float","description":"Сумма","descriptor":{"data_type":4,)"
      R"("code":5,"parameter":9,"sub_parameter":0,"request_bytes":6,"access":1,"write_bytes":0,"write_parameter":0,"aux":1,"answer_bytes":19}})",
      TagDefinitionJson(kBranchDa, SomeTag()));
  EXPECT_EQ(R"({"event":"tagdef","version":1,"branch":"hda","id":40108,"name":"P+ Profile Power","data_type":"float"})",
            TagDefinitionJson(kBranchHda, {.id = 40108, .name = "P+ Profile Power", .description = {}, .descriptor = {4}}));
}

TEST(TagReading, IsNewWhenValueOrQualityAreAndNotANumberOnce) {
  const struct {
    VARTYPE type;
    float number;
    const char* text;
    std::uint16_t quality;
    bool changed;
  } rows[] = {
      {VT_R4, 1.0F, nullptr, 192, true},
      {VT_R4, 1.0F, nullptr, 192, false},
      {VT_R4, 1.0F, nullptr, 12, true},
      {VT_R4, 2.0F, nullptr, 12, false},  // what is not good is not shown
      {VT_R4, std::nanf(""), nullptr, 192, true},
      {VT_R4, std::nanf(""), nullptr, 192, false},
      {VT_BSTR, 0, "да", 192, true},
      {VT_BSTR, 0, "да", 192, false},
      {VT_BSTR, 0, "дат", 192, true},
      {VT_BSTR, 0, nullptr, 192, true},
  };
  const TagDefinition definition = SomeTag();
  PolledTag tag = MakeTag(definition, 1, 12);
  TagReading reading;
  for (const auto& row : rows) {
    tag.tag->Value.vt = row.type;
    tag.tag->Value.fltVal = row.number;
    const platform::OleString text = platform::Utf8ToOle(row.text == nullptr ? "" : row.text);
    if (row.type == VT_BSTR)
      tag.tag->Value.bstrVal = row.text == nullptr ? nullptr : platform::AllocString(text.data(), text.size());
    tag.tag->Quality = row.quality;
    Refresh(tag, reading);
    EXPECT_EQ(row.changed, reading.changed) << &row - rows;
    EXPECT_EQ(row.quality, reading.quality);
    EXPECT_EQ(row.quality != 192 || (row.text == nullptr && row.type == VT_BSTR),
              std::holds_alternative<std::monostate>(reading.value));
    if (row.type == VT_BSTR) platform::FreeString(tag.tag->Value.bstrVal);
    tag.tag->Value = {};
  }
  tag.tag->Destroy(1);
}

struct WriteValueCase {
  const char* text;
  VARTYPE type;
  Value value;
  bool valid = true;
};

TEST(TagValue, WrittenTextsBecomeTheTagsType) {
  const WriteValueCase cases[] = {
      {"10.5", VT_R4, 10.5F},
      {"-1e3", VT_R4, -1000.0F},
      {"10,5", VT_R4, {}, false},
      {"", VT_R4, {}, false},
      {"true", VT_BOOL, true},
      {"0", VT_BOOL, false},
      {"2", VT_BOOL, {}, false},
      {"255", VT_UI1, std::int32_t{255}},
      {"256", VT_UI1, {}, false},
      {"-1", VT_UI1, {}, false},
      {"-128", VT_I1, std::int32_t{-128}},
      {"128", VT_I1, {}, false},
      {"text", VT_BSTR, {}, false},
  };
  for (const WriteValueCase& row : cases) {
    SCOPED_TRACE(row.text);
    if (row.valid) {
      EXPECT_EQ(row.value, ValueOf(ParseWriteValue(row.text, row.type)));
    } else {
      EXPECT_THROW((void)ParseWriteValue(row.text, row.type), Failure);
    }
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
