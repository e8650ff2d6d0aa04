// Tags and names by what people write.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "host/program/Frame.h"
#include "host/program/WriteLine.h"
#include "host/session/Failure.h"
#include "host/session/TagSelection.h"
#include "tests/support/Hex.h"

namespace ostrel::host {
namespace {

TEST(Wildcard, StarsAndQuestionMarks) {
  const struct {
    const char* pattern;
    const char* text;
    bool matches;
  } cases[] = {
      {"Power P *", "Power P Sum", true},
      {"Voltage Phase ?", "Voltage Phase 1", true},
      {"Voltage Phase ?", "Voltage Phase 12", false},
      {"*", "", true},
      {"?", "", false},
      {"", "x", false},
      {"*Sum", "A+ Tariff Sum", true},
      {"*a*b*", "xxaxxbaxx", true},
      {"*ab", "aab", true},
      {"a*?c", "abc", true},
      {"a*?c", "ac", false},
  };
  for (const auto& row : cases) {
    EXPECT_EQ(row.matches, WildcardMatches(row.pattern, row.text)) << row.pattern << " / " << row.text;
  }
}

std::vector<TagDefinition> SomeTags() {
  std::vector<TagDefinition> tags;
  std::uint32_t id = 20000;
  for (const char* const name : {"Serial Number", "A+ Tariff 1", "A+ Tariff Sum", "Power P Sum", "Power P Phase 1"}) {
    tags.push_back({.id = id++, .name = name, .description = {}, .descriptor = {}});
  }
  return tags;
}

TEST(TagSelection, ByNameIdAndWildcard) {
  const std::vector<TagDefinition> tags = SomeTags();
  EXPECT_EQ((std::vector<std::size_t>{2}), SelectTags(tags, "A+ Tariff Sum"));
  EXPECT_EQ((std::vector<std::size_t>{3}), SelectTags(tags, "20003"));
  EXPECT_EQ((std::vector<std::size_t>{3, 4}), SelectTags(tags, "Power P *"));
  EXPECT_EQ(1U, SelectTag(tags, "20001"));
}

TEST(TagSelection, UnknownNamesListNearOnes) {
  const std::vector<TagDefinition> tags = SomeTags();
  const auto message = [&](const std::string& text) -> std::string {
    try {
      (void)SelectTags(tags, text);
      return "accepted";
    } catch (const Failure& failure) {
      EXPECT_EQ(kExitUsage, failure.Code());
      return failure.what();
    }
  };
  EXPECT_EQ("the meter has no tag \"A+ tarif Sum\"; did you mean \"A+ Tariff Sum\" or \"A+ Tariff 1\"?", message("A+ tarif Sum"));
  EXPECT_EQ("the meter has no tag \"serial\"; did you mean \"Serial Number\"?", message("serial"));
  EXPECT_EQ("the meter has no tag \"20099\"", message("20099"));
  EXPECT_EQ("no tag fits \"Voltage*\"", message("Voltage*"));
  EXPECT_THROW((void)SelectTag(tags, "Power P *"), Failure);
}

TEST(WriteLine, WordsMayBeQuotedAndTagsNeedNotBe) {
  EXPECT_EQ((std::vector<std::string>{"a", "b c", "", "d"}), SplitWords(" a \"b c\"\t\"\" d "));
  const auto plain = ParseWriteLine("write feeder-1 Indication Period Setup 10");
  ASSERT_TRUE(plain);
  EXPECT_EQ("feeder-1", plain->meter);
  EXPECT_EQ("Indication Period Setup", plain->tag);
  EXPECT_EQ("10", plain->value);
  const auto quoted = ParseWriteLine("write \"feeder 1\" \"A+ Limit Tariff 1\" 2.5");
  ASSERT_TRUE(quoted);
  EXPECT_EQ("feeder 1", quoted->meter);
  EXPECT_EQ("A+ Limit Tariff 1", quoted->tag);
  for (const char* const text : {"", "write", "write a b", "read a b 1", "writes a b 1"})
    EXPECT_FALSE(ParseWriteLine(text)) << text;
}

TEST(Frame, HexAndCheck) {
  EXPECT_EQ(test::Hex("0C 05 00"), ParseHex({"0C", "0500"}));
  EXPECT_EQ(test::Hex("0C 05 00"), ParseHex({"0c 05 00"}));
  for (const char* const text : {"", "0", "0C 5", "0x0C", "GG", "0 C"}) EXPECT_THROW((void)ParseHex({text}), Failure) << text;
  // The answer to a test of the link, check as the meters' manual prints it.
  EXPECT_TRUE(HasRightCheck(test::Hex("01 00 00 20")));
  EXPECT_FALSE(HasRightCheck(test::Hex("01 00 20 00")));
  EXPECT_FALSE(HasRightCheck(test::Hex("00 00")));
  EXPECT_EQ("01 00 00 20", HexText(test::Hex("01000020")));
}

}  // namespace
}  // namespace ostrel::host
