// From the three variant bytes of a meter to its name, impulses and power scale.
#include <gtest/gtest.h>

#include <set>

#include "Protocol/model/VariantMap.h"
#include "platform/text.h"
#include "tests/support/TableFile.h"

namespace ostrel {
namespace {

TEST(VariantMap, HoldsTheFirstRowOfEveryKey) {
  const auto variants = MakeVariantMap();
  std::set<VariantKey> seen;
  const auto rows = test::ReadTable("model/expected_variants.tsv", 4);
  ASSERT_EQ(33U, rows.size());
  for (const test::TableRow& row : rows) {
    const auto key = test::Numbers(row[0]);
    const VariantKey variantKey{key.at(0), key.at(1), key.at(2), key.at(3)};
    if (!seen.insert(variantKey).second) continue;
    const auto found = variants.find(variantKey);
    ASSERT_NE(variants.end(), found) << row[0];
    EXPECT_EQ(platform::Utf8ToCp1251(row[1]), found->second.Name) << row[0];
    EXPECT_EQ(std::stoi(row[2]), found->second.PowerScale) << row[0];
    EXPECT_EQ(std::stoi(row[3]), found->second.Constant) << row[0];
  }
  EXPECT_EQ(32U, seen.size());
  EXPECT_EQ(seen.size(), variants.size());
}

TEST(VariantMap, MakesTheKeyOfTheMeterBytes) {
  const struct {
    std::uint8_t bytes[3];
    VariantKey key;
  } rows[] = {
      {{0x04, 0x00, 0x20}, {2, 0, 1, 0}},  {{0xF5, 0xFF, 0x2F}, {2, 0, 1, 1}},  // the rest of each byte says other things
      {{0x0F, 0x05, 0x10}, {1, 0, 3, 3}},                                       // 5 counts for type code 11 alone
      {{0x00, 0x00, 0x88}, {8, 1, 0, 0}},  {{0x00, 0x00, 0x87}, {8, 0, 0, 0}},  {{0x04, 0x05, 0xB0}, {11, 1, 1, 0}},
      {{0x04, 0xA5, 0xB8}, {11, 1, 1, 0}}, {{0x04, 0x07, 0xB8}, {11, 0, 1, 0}}, {{0x01, 0x00, 0xF0}, {15, 0, 0, 1}},
  };
  for (const auto& row : rows) {
    EXPECT_TRUE(row.key == MakeVariantKey(row.bytes))
        << int{row.bytes[0]} << " " << int{row.bytes[1]} << " " << int{row.bytes[2]};
  }
}

}  // namespace
}  // namespace ostrel
