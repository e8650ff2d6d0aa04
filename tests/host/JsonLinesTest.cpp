// The lines that programs read, byte for byte.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "host/session/Failure.h"
#include "host/show/JsonLines.h"
#include "host/show/LiveTable.h"
#include "host/show/Output.h"

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
            R"({"event":"tag","channel":"COM1","meter":"feeder-1","address":12,"id":20017,"tag":"A+ Tariff Sum","value":)") +
            row.json + R"(,"quality":192,"quality_name":"good","timestamp":"2026-11-22T20:00:00.123Z"})",
        TagJson("COM1", SomeMeter(), SomeTag(), reading));
  }
}

TEST(JsonLines, OtherEvents) {
  EXPECT_EQ(R"({"event":"pass","channel":"COM1","pass":1,"seconds":1.204,"period_s":5})",
            PassJson("COM1", {.pass = 1, .seconds = 1.204, .periodSeconds = 5, .meters = {}}));
  EXPECT_EQ(R"({"event":"log","channel":"COM1","text":"[ 22/11/2026 20:00:01.204 ] COM1 ПРИБОР:12 Нет ответа от устройства"})",
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
      R"({"event":"write","channel":"COM1","meter":"feeder-1","address":12,"id":20219,"tag":"LimitPowerWeekDay","before":10.0,)"
      R"("sent":5000.0,"after":5000.0,"outcome":"accepted","reason":""})",
      WriteJson(report));
  EXPECT_EQ(R"({"event":"type","type":1,"name":"SET4TM03","display":"СЭТ-4ТМ.03"})",
            TypeJson({.id = 1, .name = "SET4TM03", .display = "СЭТ-4ТМ.03"}));
  EXPECT_EQ(
      R"({"event":"tagdef","branch":"da","id":20017,"name":"A+ Tariff Sum","description":"Сумма","descriptor":[4,5,9,0,6,1,0,0,1,19]})",
      TagDefinitionJson(kBranchDa, SomeTag()));
  EXPECT_EQ(R"({"event":"tagdef","branch":"hda","id":40108,"name":"P+ Profile Power","data_type":4})",
            TagDefinitionJson(kBranchHda, {.id = 40108, .name = "P+ Profile Power", .description = {}, .descriptor = {4}}));
}

TEST(ChangeFilter, LetsChangesThroughAndNotANumberOnce) {
  ChangeFilter filter(false);
  const TagReading first{.value = 1.0F, .quality = 192, .timestamp = {}};
  const TagReading later{.value = 1.0F, .quality = 192, .timestamp = SomeTime()};
  const TagReading bad{.value = 1.0F, .quality = 12, .timestamp = {}};
  const TagReading noNumber{.value = std::nanf(""), .quality = 192, .timestamp = {}};
  EXPECT_TRUE(filter.Passes("a", 1, first));
  EXPECT_FALSE(filter.Passes("a", 1, later)) << "the time alone is no change";
  EXPECT_TRUE(filter.Passes("b", 1, first)) << "another meter";
  EXPECT_TRUE(filter.Passes("a", 1, bad));
  EXPECT_TRUE(filter.Passes("a", 1, noNumber));
  EXPECT_FALSE(filter.Passes("a", 1, noNumber));
  EXPECT_TRUE(ChangeFilter(true).Passes("a", 1, first));
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
