// What people write and read as text: tags, names, writes, frames, traces.
#include <gtest/gtest.h>

#include "host/program/Frame.h"
#include "host/program/TraceCopy.h"
#include "host/program/WriteLine.h"
#include "host/session/TagSelection.h"
#include "tests/host/FailureOf.h"
#include "tests/support/Hex.h"
#include "tests/support/TableFile.h"

namespace ostrel::host {
namespace {

TEST(Wildcard, StarsAndQuestionMarks) {
  using Row = std::tuple<const char*, const char*, bool>;  // pattern, text, whether it fits
  for (const auto& [pattern, text, fits] : {Row{"Power P *", "Power P Sum", true},
                                            {"Voltage Phase ?", "Voltage Phase 1", true},
                                            {"Voltage Phase ?", "Voltage Phase 12", false},
                                            {"*", "", true},
                                            {"?", "", false},
                                            {"", "x", false},
                                            {"*Sum", "A+ Tariff Sum", true},
                                            {"*a*b*", "xxaxxbaxx", true},
                                            {"*ab", "aab", true},
                                            {"a*?c", "abc", true},
                                            {"a*?c", "ac", false}}) {
    EXPECT_EQ(fits, WildcardMatches(pattern, text)) << pattern << " / " << text;
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

TEST(TagSelection, ByNameIdAndWildcardAndNearOnesAreNamed) {
  const std::vector<TagDefinition> tags = SomeTags();
  using Places = std::vector<std::size_t>;
  EXPECT_EQ((Places{2}), SelectTags(tags, "A+ Tariff Sum"));
  EXPECT_EQ((Places{3}), SelectTags(tags, "20003"));
  EXPECT_EQ((Places{3, 4}), SelectTags(tags, "Power P *"));
  EXPECT_EQ(1U, SelectTag(tags, "20001"));
  EXPECT_THROW((void)SelectTag(tags, "Power P *"), Failure);
  const std::pair<const char*, const char*> mistakes[] = {
      {"A+ tarif Sum", "the meter has no tag \"A+ tarif Sum\"; did you mean \"A+ Tariff Sum\" or \"A+ Tariff 1\"?"},
      {"serial", "the meter has no tag \"serial\"; did you mean \"Serial Number\"?"},
      {"20099", "the meter has no tag \"20099\""},
      {"Voltage*", "no tag fits \"Voltage*\""}};
  for (const auto& [text, message] : mistakes) EXPECT_EQ(message, FailureOf([&, text = text] { (void)SelectTags(tags, text); }));
}

TEST(WriteLine, WordsMayBeQuotedAndTagsNeedNotBe) {
  EXPECT_EQ((std::vector<std::string>{"a", "b c", "", "d"}), SplitWords(" a \"b c\"\t\"\" d "));
  const auto parts = [](const std::string& line) {
    const auto parsed = ParseWriteLine(line);
    return parsed ? parsed->meter + "|" + parsed->tag + "|" + parsed->value : "";
  };
  EXPECT_EQ("feeder-1|Indication Period Setup|10", parts("write feeder-1 Indication Period Setup 10"));
  EXPECT_EQ("feeder 1|A+ Limit Tariff 1|2.5", parts("write \"feeder 1\" \"A+ Limit Tariff 1\" 2.5"));
  for (const char* const text : {"", "write", "write a b", "read a b 1", "writes a b 1"}) EXPECT_EQ("", parts(text)) << text;
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

TEST(TraceCopy, HidesPasswordsWhereverTheyStand) {
  TraceCopy copy;
  const std::string prefix = "PID=1 TID=2 [ 22/11/2026 20:00:01.204 ] ";
  for (const test::TableRow& row : test::ReadTable("host/trace_copy.tsv", 2)) {
    EXPECT_EQ(prefix + (row[1] == "=" ? row[0] : row[1]) + '\r', copy.Line(prefix + row[0] + '\r'));
    // Another thread's lines come in between.
    const std::string other = "PID=1 TID=3 [ 22/11/2026 20:00:01.204 ] Write<5> 0D 08 00 B7 D3\r";
    EXPECT_EQ(other, copy.Line(other));
  }
}

}  // namespace
}  // namespace ostrel::host
