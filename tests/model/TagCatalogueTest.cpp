// The whole catalogue against the plain tables beside this file: what a host gets of every tag, byte by byte.
#include <gtest/gtest.h>

#include <algorithm>

#include "Protocol/model/TagCatalogue.h"
#include "Protocol/object/CProtocol.h"
#include "platform/resources.h"
#include "platform/text.h"
#include "tests/support/TableFile.h"

namespace ostrel {
namespace {

/// Every id of both branches, once and in order: name, description in code page 1251, and ten numbers of a current tag, or the
/// type of a history tag and its class.
TEST(TagCatalogue, NamesExplainsAndDescribesEveryTag) {
  auto* const protocol = new CProtocol;
  protocol->AddRef();
  const auto classes = MakeHistoryClassMap();
  EXPECT_EQ(kHdaTagCount, classes.size());
  const auto rows = test::ReadTable("model/expected_catalogue.tsv", 5);
  ASSERT_EQ(std::size_t{kDaTagCount + kHdaTagCount}, rows.size());
  for (std::uint32_t i = 0; i < rows.size(); ++i) {
    const bool history = i >= kDaTagCount;
    const std::uint32_t index = history ? i - kDaTagCount : i;
    const std::uint32_t id = (history ? kFirstHdaId : kFirstDaId) + index;
    ASSERT_EQ(std::to_string(id), rows[i][0]);
    char text[kNameBuffer] = "left over";
    ASSERT_TRUE(platform::LoadModuleString(id, text, sizeof text)) << id;
    EXPECT_EQ(rows[i][1], text) << id;
    if (!history) {
      EXPECT_EQ(rows[i][2].empty() ? 0U : 1U, protocol->GetTagDescription(index, 0, text)) << id;
      EXPECT_EQ(rows[i][2], platform::Cp1251ToUtf8(text)) << id;
    }
    std::vector<std::uint32_t> expected = test::Numbers(rows[i][3]);
    ASSERT_EQ(history ? 2U : 10U, expected.size()) << id;
    if (history) {
      EXPECT_EQ(expected[1], classes.at(id)) << id;
      expected.resize(1);
    }
    std::vector<std::uint32_t> numbers(12, 0xCCCCCCCC);
    expected.resize(12, 0xCCCCCCCC);
    EXPECT_EQ(1U, protocol->GetTagDescriptor(index, history ? kBranchHda : kBranchDa, 0, numbers.data()));
    EXPECT_EQ(expected, numbers) << id;
  }
  protocol->Release();
}

bool InRanges(const test::TableRow& row, std::uint32_t id) {
  return std::ranges::any_of(test::Split(row[2], ' '), [id](const std::string& range) {
    const auto ends = test::Numbers(range, '-');
    return id >= ends.front() && id <= ends.back();
  });
}

TEST(TagSupport, GivesEachMeterTypeItsTags) {
  const struct {
    const char* branch;
    bool (*supports)(std::uint32_t type, std::uint32_t id);
    std::uint32_t first, last;
  } branches[] = {{"da", SupportsDaTag, 19990, 20250}, {"hda", SupportsHdaTag, 39990, 40235}};
  const auto rows = test::ReadTable("model/expected_support.tsv", 3);
  ASSERT_EQ(18U, rows.size());
  for (const auto& branch : branches) {
    for (std::uint32_t type = 0; type <= 16; ++type) {
      const auto row = std::ranges::find_if(rows, [&](const test::TableRow& candidate) {
        return candidate[0] == branch.branch && candidate[1] == std::to_string(type);
      });
      for (std::uint32_t id = branch.first; id <= branch.last; ++id) {
        EXPECT_EQ(row != rows.end() && InRanges(*row, id), branch.supports(type, id))
            << branch.branch << " " << type << " " << id;
      }
    }
  }
}

}  // namespace
}  // namespace ostrel
