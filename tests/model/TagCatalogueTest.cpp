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

constexpr std::uint32_t kUnwritten = 0xCCCCCCCC;

struct ExpectedTag {
  std::uint32_t id;
  std::string name;
  std::string description;
  std::vector<std::uint32_t> numbers;
};

std::vector<ExpectedTag> ExpectedTags() {
  std::vector<ExpectedTag> tags;
  for (const test::TableRow& row : test::ReadTable("model/expected_catalogue.tsv", 5)) {
    tags.push_back({test::Numbers(row[0]).front(), row[1], row[2], test::Numbers(row[3])});
  }
  return tags;
}

/// Every id of both branches, once and in order.
bool IsWhole(const std::vector<ExpectedTag>& tags) {
  if (tags.size() != kDaTagCount + kHdaTagCount) return false;
  for (std::uint32_t i = 0; i < tags.size(); ++i) {
    const std::uint32_t id = i < kDaTagCount ? kFirstDaId + i : kFirstHdaId + i - kDaTagCount;
    if (tags[i].id != id) return false;
  }
  return true;
}

class TagCatalogueTest : public testing::Test {
 protected:
  void SetUp() override { ASSERT_TRUE(IsWhole(tags_)); }
  TagCatalogueTest() { protocol_->AddRef(); }
  ~TagCatalogueTest() override { protocol_->Release(); }

  /// What GetTagDescriptor leaves in a record of twelve numbers.
  std::vector<std::uint32_t> Descriptor(std::uint32_t index, std::uint32_t branch) {
    std::vector<std::uint32_t> numbers(12, kUnwritten);
    EXPECT_EQ(1U, protocol_->GetTagDescriptor(index, branch, 0, numbers.data()));
    return numbers;
  }

  const std::vector<ExpectedTag> tags_ = ExpectedTags();
  CProtocol* const protocol_ = new CProtocol;
};

TEST_F(TagCatalogueTest, NamesEveryTag) {
  for (const ExpectedTag& tag : tags_) {
    char name[kNameBuffer] = {};
    ASSERT_TRUE(platform::LoadModuleString(tag.id, name, sizeof name)) << tag.id;
    EXPECT_EQ(tag.name, name) << tag.id;
  }
}

/// Ten numbers of a current tag; the type of a history tag, and its class.
TEST_F(TagCatalogueTest, DescribesEveryTagByItsNumbers) {
  const auto classes = MakeHistoryClassMap();
  EXPECT_EQ(kHdaTagCount, classes.size());
  for (const ExpectedTag& tag : tags_) {
    const bool history = tag.id >= kFirstHdaId;
    std::vector<std::uint32_t> numbers = tag.numbers;
    ASSERT_EQ(history ? 2U : 10U, numbers.size()) << tag.id;
    if (history) {
      EXPECT_EQ(numbers[1], classes.at(tag.id)) << tag.id;
      numbers.resize(1);
    }
    numbers.resize(12, kUnwritten);
    EXPECT_EQ(numbers, Descriptor(tag.id - (history ? kFirstHdaId : kFirstDaId), history ? kBranchHda : kBranchDa)) << tag.id;
  }
}

TEST_F(TagCatalogueTest, ExplainsTheTagsThatHaveATextInCodePage1251) {
  for (std::uint32_t index = 0; index < kDaTagCount; ++index) {
    const std::string& expected = tags_[index].description;
    char text[kNameBuffer] = "left over";
    EXPECT_EQ(expected.empty() ? 0U : 1U, protocol_->GetTagDescription(index, 0, text)) << index;
    EXPECT_EQ(expected, platform::Cp1251ToUtf8(text)) << index;
  }
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
    bool (*supports)(std::uint32_t meterType, std::uint32_t id);
    std::uint32_t first;
    std::uint32_t last;
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
