// Walking the tag namespace as a host does; the texts and numbers of every tag are checked with the catalogue.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "Protocol/model/TagCatalogue.h"
#include "Protocol/object/CProtocol.h"
#include "platform/text.h"

namespace ostrel {
namespace {

constexpr char kUnwritten = '\xCC';
const std::string kUntouched(kNameBuffer, kUnwritten);

class TagBrowser : public testing::Test {
 protected:
  TagBrowser() { protocol_->AddRef(); }
  ~TagBrowser() override { protocol_->Release(); }

  CProtocol* const protocol_ = new CProtocol;
  IBrowser& browser_ = *protocol_;
  std::string buffer_ = kUntouched;
};

/// The buffer with a name and its terminator, and nothing behind them changed.
std::string Holding(std::string_view name) {
  std::string buffer = kUntouched;
  buffer.replace(0, name.size() + 1, std::string(name) + '\0');
  return buffer;
}

struct NameRow {
  std::uint32_t id;
  std::uint32_t type;
  std::uint32_t branch;
  std::uint32_t result;
  const char* name;  // null: the buffer stays as it was
};

constexpr NameRow kNameRows[] = {
    // Names of both branches.
    {20000, 0, 0, 1, "Serial Number"},
    {20243, 0, 0, 1, "Temperature"},
    {40120, 11, 1, 1, "A+ Cumulative Day Tariff 1"},
    // Past the end, known type or not.
    {20244, 0, 0, 0, nullptr},
    {20244, 4, 0, 0, nullptr},
    {0xFFFFFFFF, 1, 0, 0, nullptr},
    {40228, 4, 1, 0, nullptr},
    // Branches that do not exist have no end.
    {20000, 1, 2, 1, ""},
    {0xFFFFFFFF, 1, 2, 1, ""},
    {20000, 1, 0xFFFFFFFF, 1, ""},
    // Tags that the type does not have, and types that do not exist.
    {20052, 2, 0, 1, ""},
    {40116, 11, 1, 1, ""},
    {20000, 4, 0, 1, ""},
    {40227, 4, 1, 1, ""},
    // Before the branch: supported and without a name, or never supported.
    {19999, 1, 0, 0, nullptr},
    {0, 12, 0, 0, nullptr},
    {19999, 4, 0, 1, ""},
    {39999, 1, 1, 1, ""},
    {20000, 1, 1, 1, ""},
};

TEST_F(TagBrowser, NamesTagsInTheOrderOfItsTests) {
  for (const NameRow& row : kNameRows) {
    buffer_ = kUntouched;
    EXPECT_EQ(row.result, browser_.GetTagName(row.id, row.type, row.branch, buffer_.data(), 7))
        << row.id << " type " << row.type << " branch " << row.branch;
    EXPECT_EQ(row.name == nullptr ? kUntouched : Holding(row.name), buffer_)
        << row.id << " type " << row.type << " branch " << row.branch;
  }
}

TEST_F(TagBrowser, WalksABranchToItsEnd) {
  const struct {
    std::uint32_t branch;
    std::uint32_t type;
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
  constexpr std::uint32_t kFill = 0xCCCCCCCC;
  using Numbers = std::vector<std::uint32_t>;
  const Numbers untouched(11, kFill);
  const struct {
    std::uint32_t index;
    std::uint32_t branch;
    Numbers written;
  } rows[] = {
      {210, 0, {11, 0, 1, 2, 4, 1, 4, 0, 0, 0}},
      {243, 0, {16, 8, 1, 0, 5, 1, 0, 0, 1, 5}},
      {244, 0, {}},
      {0xFFFFFFFF, 0, {}},
      {119, 1, {4}},
      {227, 1, {5}},
      {228, 1, {}},
      {0, 2, {}},
  };
  for (const auto& row : rows) {
    Numbers numbers = untouched;
    EXPECT_EQ(1U, browser_.GetTagDescriptor(row.index, row.branch, 9, numbers.data())) << row.index << " " << row.branch;
    Numbers expected = untouched;
    std::ranges::copy(row.written, expected.begin());
    EXPECT_EQ(expected, numbers) << row.index << " branch " << row.branch;
  }
}

TEST_F(TagBrowser, DescribesByPlainAdditionToTheFirstText) {
  const struct {
    std::uint32_t index;
    std::uint32_t result;
    const char* text;
  } rows[] = {
      {0, 1, "Серийный номер"},
      {211, 1, "Обмен"},
      {212, 0, ""},
      {10000, 1, "A+ Day Tariff 1"},
      {0xFFFFFFFF - 9999, 1, "Serial Number"},  // 30000 - 10000
      {211 + 65536, 0, ""},
  };
  for (const auto& row : rows) {
    buffer_ = kUntouched;
    EXPECT_EQ(row.result, browser_.GetTagDescription(row.index, 0, buffer_.data())) << row.index;
    EXPECT_EQ(Holding(platform::Utf8ToCp1251(row.text)), buffer_) << row.index;
  }
}

}  // namespace
}  // namespace ostrel
