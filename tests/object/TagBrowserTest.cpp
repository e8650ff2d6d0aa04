// Walking the tag namespace as a host does; the texts and numbers of every tag are checked with the catalogue.
#include <gtest/gtest.h>

#include <algorithm>

#include "Protocol/model/TagCatalogue.h"
#include "Protocol/object/CProtocol.h"
#include "platform/text.h"
#include "tests/support/TableFile.h"

namespace ostrel {
namespace {

const std::string kUntouched(kNameBuffer, '\xCC');

class TagBrowser : public testing::Test {
 protected:
  TagBrowser() { protocol_->AddRef(); }
  ~TagBrowser() override { protocol_->Release(); }

  CProtocol* const protocol_ = new CProtocol;
  IBrowser& browser_ = *protocol_;
  std::string buffer_ = kUntouched;
};

/// The buffer with a name and its terminator, and nothing behind them changed.
std::string Holding(std::string_view name) { return std::string(name) + '\0' + kUntouched.substr(name.size() + 1); }

TEST_F(TagBrowser, NamesTagsInTheOrderOfItsTests) {
  for (const test::TableRow& row : test::ReadTable("object/tag_names.tsv", 5)) {
    const auto number = [&](std::size_t i) { return test::Numbers(row[i])[0]; };
    buffer_ = kUntouched;
    EXPECT_EQ(number(3), browser_.GetTagName(number(0), number(1), number(2), buffer_.data(), 7)) << testing::PrintToString(row);
    EXPECT_EQ(row[4] == "-" ? kUntouched : Holding(row[4]), buffer_) << testing::PrintToString(row);
  }
}

TEST_F(TagBrowser, WalksABranchToItsEnd) {
  const struct {
    std::uint32_t branch, type;
    int named;
    std::uint32_t end;
  } rows[] = {{kBranchDa, 8, 244, 20244}, {kBranchHda, 2, 16, 40228}, {kBranchHda, 8, 120, 40228}};
  for (const auto& row : rows) {
    std::uint32_t id = browser_.GetFirstTagId(row.branch);
    int named = 0;
    while (browser_.GetTagName(id, row.type, row.branch, buffer_.data(), 0) == 1 && id <= row.end) {
      named += buffer_[0] != '\0' ? 1 : 0;
      ++id;
    }
    EXPECT_EQ(row.end, id) << row.type;
    EXPECT_EQ(row.named, named) << row.type;
  }
  EXPECT_EQ(0U, browser_.GetFirstTagId(2));
  EXPECT_EQ(0U, browser_.GetTagName(20000, 1, 0, nullptr, 0));
  EXPECT_EQ(0U, browser_.GetTagDescription(0, 0, nullptr));
  EXPECT_EQ(1U, browser_.GetTagDescriptor(0, 0, 0, nullptr));
}

TEST_F(TagBrowser, WritesNoMoreThanTheBranchHas) {
  const struct {
    std::uint32_t index, branch;
    std::vector<std::uint32_t> written;
  } rows[] = {{210, 0, {11, 0, 1, 2, 4, 1, 4, 0, 0, 0}},
              {243, 0, {16, 8, 1, 0, 5, 1, 0, 0, 1, 5}},
              {244, 0, {}},
              {0xFFFFFFFF, 0, {}},
              {119, 1, {4}},
              {227, 1, {5}},
              {228, 1, {}},
              {0, 2, {}}};
  for (const auto& row : rows) {
    std::vector<std::uint32_t> numbers(11, 0xCCCCCCCC);
    std::vector<std::uint32_t> expected = numbers;
    std::ranges::copy(row.written, expected.begin());
    EXPECT_EQ(1U, browser_.GetTagDescriptor(row.index, row.branch, 9, numbers.data())) << row.index << " " << row.branch;
    EXPECT_EQ(expected, numbers) << row.index << " branch " << row.branch;
  }
}

TEST_F(TagBrowser, DescribesByPlainAdditionToTheFirstText) {
  const struct {
    std::uint32_t index, result;
    const char* text;
  } rows[] = {{0, 1, "Серийный номер"},
              {211, 1, "Обмен"},
              {212, 0, ""},
              {10000, 1, "A+ Day Tariff 1"},
              {0xFFFFFFFF - 9999, 1, "Serial Number"},  // 30000 - 10000
              {211 + 65536, 0, ""}};
  for (const auto& row : rows) {
    buffer_ = kUntouched;
    EXPECT_EQ(row.result, browser_.GetTagDescription(row.index, 0, buffer_.data())) << row.index;
    EXPECT_EQ(Holding(platform::Utf8ToCp1251(row.text)), buffer_) << row.index;
  }
}

}  // namespace
}  // namespace ostrel
