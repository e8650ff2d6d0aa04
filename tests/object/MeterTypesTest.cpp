// The list of meter types as a host reads it, byte by byte.
#include <gtest/gtest.h>

#include <cstring>

#include "Protocol/object/MeterTypes.h"
#include "platform/text.h"

namespace ostrel {
namespace {

struct TypeRow {
  std::uint32_t id;
  const char* typeName;
  const char* displayName;  // UTF-8
};

constexpr TypeRow kRows[] = {
    {0, "SET4TM02", "СЭТ-4ТМ.02"},          {1, "SET4TM03", "СЭТ-4ТМ.03"},      {2, "SEB1TM02", "СЭБ-1ТМ.02"},
    {3, "PSCH4TM05", "ПСЧ-4ТМ.05"},         {6, "PSCH4TMM05", "ПСЧ-4ТМ.05М"},   {7, "PSCH3TMM05", "ПСЧ-3ТМ.05М"},
    {8, "SET4TMM02M03", "СЭТ-4ТМ.02М,03М"}, {11, "PSCH4TMM05", "ПСЧ-4ТМ.05МК"}, {12, "SEB1TM02", "СЭБ-1ТМ.02М"},
};

const std::string kUntouchedRecord(88, '\xCC');

/// A record that was filled with CC before.
std::string ExpectedBytes(const TypeRow& row) {
  std::string bytes = kUntouchedRecord;
  bytes.replace(0, 16, "\x5C\x0E\x59\x09\x82\x2B\x8C\x4C\xA6\xCD\x17\x56\xBA\x3A\x8D\xFF", 16);
  const std::string display = platform::Utf8ToCp1251(row.displayName) + '\0';
  bytes.replace(16, display.size(), display);
  const std::string type = std::string(row.typeName) + '\0';
  bytes.replace(46, type.size(), type);
  return bytes.replace(84, 4, std::string{static_cast<char>(row.id), 0, 0, 0});
}

TEST(MeterTypes, ListsNineTypesTwiceAndThenNoMore) {
  auto* const protocol = new CProtocol;
  protocol->AddRef();
  IEnumTypes& types = *protocol;
  const auto next = [&](HRESULT expected) {
    MeterTypeRecord record;
    std::memset(&record, 0xCC, sizeof record);
    EXPECT_EQ(expected, types.Next(&record));
    EXPECT_EQ(S_FALSE, types.Next(nullptr)) << "stays at the type that is due";
    return std::string(reinterpret_cast<const char*>(&record), sizeof record);
  };
  std::uint32_t count = 0;
  EXPECT_EQ(S_OK, types.GetCount(&count));
  EXPECT_EQ(9U, count);
  EXPECT_EQ(S_FALSE, types.GetCount(nullptr));
  for (int twice = 0; twice < 2; ++twice) {
    for (const TypeRow& row : kRows) EXPECT_EQ(ExpectedBytes(row), next(S_OK)) << row.id << " " << row.typeName;
    for (int again = 0; again < 2; ++again) EXPECT_EQ(kUntouchedRecord, next(S_FALSE));
    EXPECT_EQ(S_OK, types.Reset());
  }
  protocol->Release();
}

}  // namespace
}  // namespace ostrel
