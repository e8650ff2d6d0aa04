#include <gtest/gtest.h>

#include <set>

#include "platform/text.h"
#include "tests/support/OleText.h"

namespace ostrel::platform {
namespace {

using test::Ole;

struct TextRow {
  std::string bytes;
  OleString wide;
  std::string utf8;
};

const TextRow kTextRows[] = {
    {"A~\r\n", Ole(u"A~\r\n"), "A~\r\n"},
    {"\xC0\xC1\xDF\xE0\xE1\xFF", Ole(u"АБЯабя"), "АБЯабя"},
    {"\xA8\xB8", Ole(u"Ёё"), "Ёё"},
    {"\xB9\xAB\xBB\x97\x96\x85", Ole(u"№«»—–…"), "№«»—–…"},
    {"\x88", Ole(u"€"), "€"},
    {"\x98", Ole(u"\u0098"), "\xC2\x98"},
    {"\xAF\xBF\xB2\xB3\xAA\xBA\xA5\xB4", Ole(u"ЇїІіЄєҐґ"), "ЇїІіЄєҐґ"},
    {"\x80\x90\x8F\x9F\xA1\xA2", Ole(u"ЂђЏџЎў"), "ЂђЏџЎў"},
    {"\xA0\xA4\xB0\xB1\xB5\x99", Ole(u"\u00A0¤°±µ™"), "\u00A0¤°±µ™"},
};

TEST(Text, KnownRowsConvertInEveryDirection) {
  for (const TextRow& row : kTextRows) {
    SCOPED_TRACE(row.utf8);
    EXPECT_EQ(Cp1251ToOle(row.bytes), row.wide);
    EXPECT_EQ(OleToCp1251(row.wide), row.bytes);
    EXPECT_EQ(Cp1251ToUtf8(row.bytes), row.utf8);
    EXPECT_EQ(Utf8ToCp1251(row.utf8), row.bytes);
    EXPECT_EQ(OleToUtf8(row.wide), row.utf8);
    EXPECT_EQ(Utf8ToOle(row.utf8), row.wide);
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

  const std::pair<std::string, OleString> kDamaged[] = {
      {"\xD0", Ole(u"?")},         {"\xD0z", Ole(u"?z")},           {"\xE2\x82", Ole(u"?")},
      {"\x80z", Ole(u"?z")},       {"\xC0\xAF", Ole(u"??")},        {"\xE0\x80\xAF", Ole(u"?")},
      {"\xED\xA0\x80", Ole(u"?")}, {"\xF4\x90\x80\x80", Ole(u"?")}, {"\xF8z", Ole(u"?z")},
  };
  for (const auto& [bytes, expected] : kDamaged) EXPECT_EQ(Utf8ToOle(bytes), expected) << testing::PrintToString(bytes);
}

}  // namespace
}  // namespace ostrel::platform
