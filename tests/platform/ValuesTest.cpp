// Texts, times and strings as the host's records carry them.
#include <gtest/gtest.h>

#include <cstring>
#include <set>

#include "platform/text.h"
#include "platform/variant.h"
#include "tests/support/OleText.h"

namespace ostrel::platform {
namespace {

using test::Ole;

TEST(Text, KnownRowsConvertInEveryDirection) {
  const struct {
    std::string bytes, utf8;
    std::u16string_view characters;
  } rows[] = {{"A~\r\n", "A~\r\n", u"A~\r\n"},
              {"\xC0\xC1\xDF\xE0\xE1\xFF", "АБЯабя", u"АБЯабя"},
              {"\xA8\xB8", "Ёё", u"Ёё"},
              {"\xB9\xAB\xBB\x97\x96\x85", "№«»—–…", u"№«»—–…"},
              {"\x88", "€", u"€"},
              {"\x98", "\xC2\x98", u"\u0098"},
              {"\xAF\xBF\xB2\xB3\xAA\xBA\xA5\xB4", "ЇїІіЄєҐґ", u"ЇїІіЄєҐґ"},
              {"\x80\x90\x8F\x9F\xA1\xA2", "ЂђЏџЎў", u"ЂђЏџЎў"},
              {"\xA0\xA4\xB0\xB1\xB5\x99", "\u00A0¤°±µ™", u"\u00A0¤°±µ™"}};
  for (const auto& [bytes, utf8, characters] : rows) {
    SCOPED_TRACE(utf8);
    const OleString wide = Ole(characters);
    EXPECT_EQ(Cp1251ToOle(bytes), wide);
    EXPECT_EQ(OleToCp1251(wide), bytes);
    EXPECT_EQ(Cp1251ToUtf8(bytes), utf8);
    EXPECT_EQ(Utf8ToCp1251(utf8), bytes);
    EXPECT_EQ(OleToUtf8(wide), utf8);
    EXPECT_EQ(Utf8ToOle(utf8), wide);
  }
}

TEST(Text, EveryByteHasItsOwnCharacterAndComesBack) {
  std::set<OLECHAR> characters;
  for (int value = 0; value < 256; ++value) {
    const std::string byte(1, static_cast<char>(value));
    SCOPED_TRACE(value);
    characters.insert(Cp1251ToOle(byte).at(0));
    EXPECT_EQ(OleToCp1251(Cp1251ToOle(byte)), byte);
    EXPECT_EQ(Utf8ToCp1251(Cp1251ToUtf8(byte)), byte);
  }
  EXPECT_EQ(characters.size(), 256u);
}

TEST(Text, CharactersWithoutAPlaceBecomeQuestionMarks) {
  EXPECT_EQ(Utf8ToCp1251("a日é😀b"), "a???b");
  EXPECT_EQ(OleToCp1251(Ole(u"a😀b")), "a?b");
  EXPECT_EQ(OleToCp1251(Ole(u"\u0099")), "?");
  EXPECT_EQ(Utf8ToOle("😀"), Ole(u"\xD83D\xDE00"));
  EXPECT_EQ(OleToUtf8(Ole(u"😀")), "😀");
}

TEST(Text, DamagedInputNeverRunsPastItsEnd) {
  const OLECHAR loneHigh[] = {u'a', 0xD83D, u'b', 0xD83D};
  EXPECT_EQ(OleToUtf8({loneHigh, 4}), "a?b?");
  const OLECHAR loneLow[] = {0xDE00, u'b'};
  EXPECT_EQ(OleToUtf8({loneLow, 2}), "?b");

  const std::pair<std::string, std::u16string_view> damaged[] = {
      {"\xD0", u"?"},         {"\xD0z", u"?z"},       {"\xE2\x82", u"?"},         {"\x80z", u"?z"}, {"\xC0\xAF", u"??"},
      {"\xE0\x80\xAF", u"?"}, {"\xED\xA0\x80", u"?"}, {"\xF4\x90\x80\x80", u"?"}, {"\xF8z", u"?z"}};
  for (const auto& [bytes, expected] : damaged) EXPECT_EQ(Utf8ToOle(bytes), Ole(expected)) << testing::PrintToString(bytes);
}

struct Conversion {
  std::uint64_t ticks;
  SYSTEMTIME fields;  // year, month, day of week, day, hour, minute, second, millisecond
};

TEST(FileTime, ConvertsBothWays) {
  constexpr Conversion kRows[] = {{0, {1601, 1, 1, 1, 0, 0, 0, 0}},
                                  {116'444'736'000'000'000, {1970, 1, 4, 1, 0, 0, 0, 0}},
                                  {116'444'736'000'000'000 + 9'516'958'471'230'000, {2000, 2, 0, 27, 23, 57, 27, 123}},
                                  {125'963'424'000'000'000, {2000, 3, 3, 1, 0, 0, 0, 0}},
                                  {0x7FFF'35F4'F06C'58F0, {30827, 12, 5, 31, 23, 59, 59, 999}}};
  for (const Conversion& row : kRows) {
    SCOPED_TRACE(row.ticks);
    SYSTEMTIME fields{};
    ASSERT_TRUE(FileTimeToFields({static_cast<DWORD>(row.ticks), static_cast<DWORD>(row.ticks >> 32)}, fields));
    EXPECT_EQ(std::memcmp(&fields, &row.fields, sizeof fields), 0) << fields.wDay << " weekday " << fields.wDayOfWeek;
    FILETIME back{};
    fields.wDayOfWeek = 77;
    ASSERT_TRUE(FieldsToFileTime(fields, back));
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
  const OleString text = Ole({u"a\0Ж", 3});
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
