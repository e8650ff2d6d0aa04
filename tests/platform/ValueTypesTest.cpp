// FILETIME and BSTR.
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "platform/text.h"
#include "platform/variant.h"
#include "tests/support/OleText.h"

namespace ostrel::platform {

namespace {

struct Conversion {
  std::uint64_t ticks;
  SYSTEMTIME fields;  // year, month, day of week, day, hour, minute, second, millisecond
};

constexpr Conversion kConversions[] = {
    {0, {1601, 1, 1, 1, 0, 0, 0, 0}},
    {116'444'736'000'000'000, {1970, 1, 4, 1, 0, 0, 0, 0}},
    {116'444'736'000'000'000 + 9'516'958'471'230'000, {2000, 2, 0, 27, 23, 57, 27, 123}},
    {125'963'424'000'000'000, {2000, 3, 3, 1, 0, 0, 0, 0}},
    {0x7FFF'35F4'F06C'58F0, {30827, 12, 5, 31, 23, 59, 59, 999}},
};

TEST(FileTime, ConvertsBothWays) {
  for (const Conversion& row : kConversions) {
    SCOPED_TRACE(row.ticks);
    const FILETIME time = {static_cast<DWORD>(row.ticks), static_cast<DWORD>(row.ticks >> 32)};
    SYSTEMTIME fields{};
    ASSERT_TRUE(FileTimeToFields(time, fields));
    EXPECT_EQ(std::memcmp(&fields, &row.fields, sizeof fields), 0) << fields.wDay << " weekday " << fields.wDayOfWeek;
    FILETIME back{};
    SYSTEMTIME anyWeekday = row.fields;
    anyWeekday.wDayOfWeek = 77;
    ASSERT_TRUE(FieldsToFileTime(anyWeekday, back));
    EXPECT_EQ(std::uint64_t{back.dwHighDateTime} << 32 | back.dwLowDateTime, row.ticks);
  }
}

TEST(FileTime, RefusesWhatIsNoTimeAndLeavesTheResultAlone) {
  constexpr SYSTEMTIME kImpossible[] = {
      {1600, 12, 0, 31, 0, 0, 0, 0}, {30828, 1, 0, 1, 0, 0, 0, 0},   {2026, 0, 0, 1, 0, 0, 0, 0},
      {2026, 13, 0, 1, 0, 0, 0, 0},  {2026, 1, 0, 0, 0, 0, 0, 0},    {2026, 2, 0, 29, 0, 0, 0, 0},
      {2100, 2, 0, 29, 0, 0, 0, 0},  {2026, 4, 0, 31, 0, 0, 0, 0},   {2026, 257, 0, 1, 0, 0, 0, 0},
      {2026, 1, 0, 257, 0, 0, 0, 0}, {2026, 1, 0, 1, 24, 0, 0, 0},   {2026, 1, 0, 1, 0, 60, 0, 0},
      {2026, 1, 0, 1, 0, 0, 60, 0},  {2026, 1, 0, 1, 0, 0, 0, 1000}, {65535, 65535, 0, 65535, 0, 0, 0, 0},
  };
  for (const SYSTEMTIME& fields : kImpossible) {
    FILETIME time = {1, 2};
    EXPECT_FALSE(FieldsToFileTime(fields, time)) << fields.wYear << "-" << fields.wMonth << "-" << fields.wDay;
    EXPECT_EQ(time.dwLowDateTime, 1u);
  }
  for (const DWORD high : {0x7FFF'35F5U, 0x8000'0000U, 0xFFFF'FFFFU}) {  // past the year 30827
    SYSTEMTIME fields{};
    EXPECT_FALSE(FileTimeToFields({0, high}, fields)) << std::hex << high;
  }
}

TEST(Bstr, CarriesItsLengthInBytesBeforeTheText) {
  const OleString text = test::Ole({u"a\0Ж", 3});
  const BSTR string = AllocString(text.data(), text.size());
  ASSERT_NE(string, nullptr);
  std::uint32_t bytes = 0;
  std::memcpy(&bytes, reinterpret_cast<const char*>(string) - 4, 4);
  EXPECT_EQ(bytes, 6u);
  EXPECT_EQ(OleString(string, StringLength(string)), text);
  EXPECT_EQ(string[3], u'\0');
  FreeString(string);

  EXPECT_EQ(StringLength(nullptr), 0u);
  for (const std::size_t tooLong : {std::size_t{SIZE_MAX}, std::size_t{0x8000'0000}})
    EXPECT_EQ(AllocString(nullptr, tooLong), nullptr);
}

}  // namespace
}  // namespace ostrel::platform
