#include <gtest/gtest.h>

#include "Protocol/history/ProfileStoreIndex.h"
#include "tests/history/HistoryMeter.h"

namespace ostrel::test {
namespace {

ProfileRecord Record(const char* time, std::uint16_t address, std::uint32_t tag) {
  ProfileRecord record{};
  record.Time = TimeAt(time);
  record.Address = address;
  record.TagId = tag;
  return record;
}

class ProfileStoreIndexTest : public ::testing::Test {
 protected:
  void SetUp() override {
    store_.Append(Record("2026-11-22 10:30", 0x08, 40108));
    store_.Append(Record("2026-11-22 10:30", 0x08, 40109));
    store_.Append(Record("2026-11-22 11:00", 0x10, 40108));
    store_.Append(Record("2026-11-22 10:30", 0x10, 40108));
    store_.Append(Record("2026-11-22 11:00", 0x10, 40109));
  }

  HostVector<ProfileRecord> store_;
};

using Position = std::optional<std::uint32_t>;

TEST_F(ProfileStoreIndexTest, FindsTheFirstInStoreOrder) {
  ProfileStoreIndex index(store_, 40108);
  EXPECT_EQ(Position(0), index.FindTime(TimeAt("2026-11-22 10:30")));
  EXPECT_EQ(Position(2), index.FindTime(TimeAt("2026-11-22 11:00")));
  EXPECT_EQ(std::nullopt, index.FindTime(TimeAt("2026-11-22 11:30")));
  EXPECT_EQ(Position(2), index.FindAddress(store_, 0x10, 40108));
  EXPECT_EQ(Position(4), index.FindAddress(store_, 0x10, 40109));
  EXPECT_EQ(std::nullopt, index.FindAddress(store_, 0x10, 40110));
  EXPECT_EQ(Position(1), ProfileStoreIndex(store_, 40109).FindTime(TimeAt("2026-11-22 10:30")));
}

TEST_F(ProfileStoreIndexTest, RecordsAddedSinceDoNotCount) {
  ProfileStoreIndex index(store_, 40108);
  store_.Append(Record("2026-11-22 12:00", 0x20, 40108));
  EXPECT_EQ(std::nullopt, index.FindTime(TimeAt("2026-11-22 12:00")));
  EXPECT_EQ(std::nullopt, index.FindAddress(store_, 0x20, 40108)) << "also when the addresses are learned only now";
}

}  // namespace
}  // namespace ostrel::test
