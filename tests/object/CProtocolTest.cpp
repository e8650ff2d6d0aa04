// The object as its host sees it: lifetime, device table, depths.
#include <gtest/gtest.h>

#include <cstring>
#include <limits>
#include <thread>
#include <vector>

#include "Protocol/object/CProtocol.h"
#include "tests/support/TableFile.h"

namespace ostrel {
namespace {

/// Says its number when it is ended.
class NamedTag final : public CDeviceTag {
 public:
  NamedTag(int number, std::vector<int>& ended) : number_(number), ended_(ended) {}
  void Destroy(std::uint32_t flags) override {
    ended_.push_back(number_);
    if ((flags & 1) != 0) delete this;
  }

 private:
  int number_;
  std::vector<int>& ended_;
};

DeviceConfig Config(std::uint32_t address) {
  DeviceConfig config{};
  config.Address = address;
  config.TypeId = 1;
  std::memcpy(config.Level2Password, "222222", 6);
  config.NextClockCheck = 0x123456789ABLL + address;
  config.LogCache[299] = static_cast<std::uint8_t>(address);
  config.FailHoldTimer.period = address * 1000;
  config.ReservedText[99] = 'x';
  return config;
}

class ObjectTest : public testing::Test {
 protected:
  ObjectTest() { protocol_->AddRef(); }

  CDeviceTag* NewTag(int number) { return new NamedTag(number, ended_); }
  /// A record as `Config` made it.
  static void ExpectWhole(const DeviceEntry& entry, std::uint32_t address) {
    EXPECT_EQ(address, entry.Address);
    EXPECT_EQ(0x123456789ABLL + address, std::int64_t{entry.NextClockCheck});
    EXPECT_EQ(address, entry.LogCache[299]);
    EXPECT_EQ(address * 1000, entry.FailHoldTimer.period);
    EXPECT_STREQ("222222", entry.Level2Password);
    EXPECT_EQ('x', entry.ReservedText[99]);
  }

  std::vector<int> ended_;
  IProtocol* const protocol_ = new CProtocol;
  const HostVector<DeviceEntry>& devices_ = protocol_->GetChannel()->Devices;  // a host keeps the address
};

TEST_F(ObjectTest, EndsEveryTagOnceInTheOrderOfMetersAndLists) {
  std::vector<CDeviceTag*> tags;
  for (int number = 0; number < 5; ++number) tags.push_back(NewTag(number));
  DeviceConfig config = Config(1);
  // The list as a host may have filled it: with a hole.
  for (CDeviceTag* tag : {tags[3], static_cast<CDeviceTag*>(nullptr), tags[1]}) config.Tags.Append(tag);
  auto* const record = static_cast<AuxRecord*>(platform::TaskAlloc(sizeof(AuxRecord)));
  *record = {.First = 1, .Second = 2, .Third = 3, .Text = nullptr};
  for (AuxRecord* aux : {record, static_cast<AuxRecord*>(nullptr), record}) config.AuxList.Append(aux);
  protocol_->AddDevice(&config);
  config = Config(2);
  for (int meter = 1; meter < 3; ++meter) protocol_->AddDevice(&config);
  for (const int number : {2, 3, 2, 4}) protocol_->AddTag(1, tags[static_cast<std::size_t>(number)]);
  protocol_->AddTag(2, tags[4]);
  protocol_->AddTag(2, tags[0]);
  protocol_->RemoveDevice(1);
  EXPECT_TRUE(ended_.empty()) << "a removed meter's tags live on";
  protocol_->Release();
  EXPECT_EQ((std::vector<int>{3, 1, 4, 0, 2}), ended_) << "the removed meter's own come last";
}

/// Another destructor, and nothing else of its own. It does something, or a compiler may enter the base's in its place.
class Derived final : public CProtocol {
 public:
  static inline int ended = 0;

 private:
  ~Derived() override { ++ended; }
};

// Hosts that end the object by its table find the entry (or the two, as this compiler has them) directly behind slot 23.
TEST_F(ObjectTest, TheDestructorStandsBehindTheLastSlot) {
  IProtocol* const derived = new Derived;
  derived->AddRef();
  const auto table = [](IProtocol* object) { return *reinterpret_cast<void***>(object); };
  constexpr std::size_t kLastOfIProtocol = 23;
  for (std::size_t slot = 0; slot <= kLastOfIProtocol + 8; ++slot) {
    const bool destructor = slot == kLastOfIProtocol + 1 || slot == kLastOfIProtocol + 2;
    EXPECT_EQ(destructor, table(protocol_)[slot] != table(derived)[slot]) << slot;
  }
  protocol_->Release();
  derived->Release();
  EXPECT_EQ(1, Derived::ended);
}

TEST_F(ObjectTest, CopiesRecordsWithTheirContainersAlsoThoseOfItsOwnTable) {
  DeviceConfig config = Config(7);
  config.ExchangeOn = 1;
  ProfileRecord record{};
  record.Address = 0x1234;
  config.ProfileStore2.Append(record);
  protocol_->AddDevice(&config);
  for (std::uint32_t i = 1; i < 40; ++i) ASSERT_EQ(static_cast<std::int32_t>(i), protocol_->AddDevice(&devices_[i - 1]));
  ExpectWhole(devices_[39], 7);
  EXPECT_EQ(1U, devices_[39].ExchangeOn);
  ASSERT_EQ(1U, devices_[0].ProfileStore2.Size());
  EXPECT_EQ(0x1234, devices_[0].ProfileStore2[0].Address);
  EXPECT_NE(config.ProfileStore2.begin(), devices_[0].ProfileStore2.begin());
  EXPECT_EQ(1U, config.ProfileStore2.Size());
  protocol_->Release();
}

TEST_F(ObjectTest, KeepsLaterMetersWholeWhenOneIsRemoved) {
  for (std::uint32_t address = 10; address < 60; ++address) {
    const DeviceConfig config = Config(address);
    EXPECT_EQ(address - 10, protocol_->AddDevice(&config));
    protocol_->AddTag(address - 10, NewTag(static_cast<int>(address)));
  }
  CDeviceTag* const tag = devices_[1].Tags[0];
  protocol_->RemoveDevice(0);
  ASSERT_EQ(49U, devices_.Size());
  ExpectWhole(devices_[0], 11);
  ASSERT_EQ(1U, devices_[0].Tags.Size());
  EXPECT_EQ(tag, devices_[0].Tags[0]);
  protocol_->Release();
  EXPECT_EQ(50U, ended_.size());
}

TEST_F(ObjectTest, RefusesWhatIsNotThereWithoutWaitingForTheLine) {
  const DeviceConfig config = Config(1);
  protocol_->AddDevice(&config);
  protocol_->LockExchange();
  std::thread([this] {
    NamedTag tag(1, ended_);
    EXPECT_EQ(-1, protocol_->AddDevice(nullptr));
    for (const std::int32_t index : {-1, 1, std::numeric_limits<std::int32_t>::min()}) {
      protocol_->RemoveDevice(index);
      protocol_->AddTag(static_cast<std::uint32_t>(index), &tag);
    }
    protocol_->AddTag(0, nullptr);
  }).join();
  protocol_->UnlockExchange();
  for (const std::uint32_t index : {0xFFFFFFFFU, 1U, 0x80000000U}) EXPECT_EQ(0U, protocol_->CanPollDevice(index)) << index;
  EXPECT_EQ(1U, devices_.Size());
  EXPECT_TRUE(devices_[0].Tags.Empty());
  protocol_->Release();
  EXPECT_TRUE(ended_.empty());
}

TEST_F(ObjectTest, KnowsTheDepthOfEveryArchive) {
  constexpr std::uint32_t kFirstIds[] = {40000, 40036, 40072, 40108, 40112, 40116, 40120, 40156, 40192};
  for (const test::TableRow& row : test::ReadTable("object/depths.tsv", 2)) {
    std::vector<std::uint32_t> depths;
    for (const std::uint32_t id : kFirstIds) depths.push_back(protocol_->GetHistoryDepth(test::Numbers(row[0])[0], id));
    EXPECT_EQ(test::Numbers(row[1]), depths) << row[0];
  }
  for (const std::uint32_t id : {0U, 39999U, 40228U}) {
    EXPECT_EQ(0U, protocol_->GetHistoryDepth(1, id));
    std::uint32_t period = 77;
    EXPECT_EQ(-1, protocol_->GetHistoryInterval(id, 0, &period));
    EXPECT_EQ(77U, period);
  }
  protocol_->Release();
}

}  // namespace
}  // namespace ostrel
