// The list of meter types as a host reads it, byte by byte.
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "Protocol/object/MeterTypes.h"
#include "platform/text.h"

namespace ostrel {
namespace {

class MeterTypes : public testing::Test {
 protected:
  MeterTypes() {
    protocol_->AddRef();
    std::memset(&record_, 0xCC, sizeof record_);
  }
  ~MeterTypes() override { protocol_->Release(); }

  /// The record as it lies in memory.
  std::string Bytes() const { return {reinterpret_cast<const char*>(&record_), sizeof record_}; }

  CProtocol* const protocol_ = new CProtocol;
  IEnumTypes& types_ = *protocol_;
  MeterTypeRecord record_;
};

struct TypeRow {
  std::uint32_t id;
  const char* typeName;
  const char* displayName;  // UTF-8
};

constexpr TypeRow kRows[] = {
    {0, "SET4TM02", "СЭТ-4ТМ.02"},          {1, "SET4TM03", "СЭТ-4ТМ.03"},      {2, "SEB1TM02", "СЭБ-1ТМ.02"},
    {3, "PSCH4TM05", "ПСЧ-4ТМ.05"},         {6, "PSCH4TMM05", "ПСЧ-4ТМ.05М"},   {7, "PSCH3TMM05", "ПСЧ-3ТМ.05М"},
    {8, "SET4TMM02M03", "СЭТ-4ТМ.02М,03М"}, {11, "PSCH4TMM05", "ПСЧ-4ТМ.05МК"}, {12, "SEB1TM02", "СЭБ-1ТМ.02М"},
};

/// A record that was filled with CC before.
std::string ExpectedBytes(const TypeRow& row) {
  std::string bytes(88, '\xCC');
  bytes.replace(0, 16, "\x5C\x0E\x59\x09\x82\x2B\x8C\x4C\xA6\xCD\x17\x56\xBA\x3A\x8D\xFF", 16);
  const std::string display = platform::Utf8ToCp1251(row.displayName) + '\0';
  bytes.replace(16, display.size(), display);
  const std::string type = std::string(row.typeName) + '\0';
  bytes.replace(46, type.size(), type);
  bytes.replace(84, 4, std::string{static_cast<char>(row.id), 0, 0, 0});
  return bytes;
}

TEST_F(MeterTypes, ListsNineTypesAndThenNoMore) {
  types_.Reset();
  for (const TypeRow& row : kRows) {
    std::memset(&record_, 0xCC, sizeof record_);
    ASSERT_EQ(S_OK, types_.Next(&record_)) << row.typeName;
    EXPECT_EQ(ExpectedBytes(row), Bytes()) << row.id << " " << row.typeName;
  }
  std::memset(&record_, 0xCC, sizeof record_);
  for (int again = 0; again < 2; ++again) {
    EXPECT_EQ(S_FALSE, types_.Next(&record_));
    EXPECT_EQ(S_FALSE, types_.Next(nullptr));
  }
  EXPECT_EQ(std::string(88, '\xCC'), Bytes());
}

TEST_F(MeterTypes, StaysAtTheTypeThatIsDueWithoutARecordAndCountsThem) {
  std::uint32_t count = 0;
  EXPECT_EQ(S_OK, types_.GetCount(&count));
  EXPECT_EQ(9U, count);
  EXPECT_EQ(S_FALSE, types_.GetCount(nullptr));
  ASSERT_EQ(S_OK, types_.Next(&record_));
  EXPECT_EQ(S_FALSE, types_.Next(nullptr));
  ASSERT_EQ(S_OK, types_.Next(&record_));
  EXPECT_EQ(1U, record_.TypeId);
  EXPECT_EQ(S_OK, types_.Reset());
  ASSERT_EQ(S_OK, types_.Next(&record_));
  EXPECT_EQ(0U, record_.TypeId);
}

}  // namespace
}  // namespace ostrel
