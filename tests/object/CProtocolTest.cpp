// The object as its host sees it: faces, lifetime, device table, locks.
#include <gtest/gtest.h>

#include <thread>
#include <vector>

#include "Protocol/object/CProtocol.h"

namespace ostrel {
namespace {

/// Says when it is ended.
class CountedTag final : public CDeviceTag {
 public:
  explicit CountedTag(int& ended) : ended_(ended) {}
  void Destroy(std::uint32_t flags) override {
    ++ended_;
    if ((flags & 1) != 0) delete this;
  }

 private:
  int& ended_;
};

IProtocol* NewProtocol() {
  auto* const protocol = new CProtocol;
  protocol->AddRef();
  return protocol;
}

DeviceConfig Config(std::uint32_t address) {
  DeviceConfig config{};
  config.Address = address;
  config.TypeId = 1;
  std::memcpy(config.Level1Password, "000000", 6);
  std::memcpy(config.Level2Password, "222222", 6);
  return config;
}

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

TEST(CProtocol, EndsEveryTagOnceInTheOrderOfMetersAndLists) {
  std::vector<int> ended;
  std::vector<CDeviceTag*> tags;
  for (int number = 0; number < 5; ++number) tags.push_back(new NamedTag(number, ended));
  IProtocol* const protocol = NewProtocol();
  DeviceConfig config = Config(1);
  // The list as a host may have filled it: with a hole.
  for (CDeviceTag* tag : {tags[3], static_cast<CDeviceTag*>(nullptr), tags[1]}) config.Tags.Append(tag);
  auto* const record = static_cast<AuxRecord*>(platform::TaskAlloc(sizeof(AuxRecord)));
  *record = {.First = 1, .Second = 2, .Third = 3, .Text = nullptr};
  for (AuxRecord* aux : {record, static_cast<AuxRecord*>(nullptr), record}) config.AuxList.Append(aux);
  protocol->AddDevice(&config);
  config = Config(2);
  for (int meter = 1; meter < 3; ++meter) protocol->AddDevice(&config);
  for (const int number : {2, 3, 2, 4}) protocol->AddTag(1, tags[static_cast<std::size_t>(number)]);
  protocol->AddTag(2, tags[4]);
  protocol->AddTag(2, tags[0]);
  protocol->RemoveDevice(1);
  EXPECT_TRUE(ended.empty()) << "a removed meter's tags live on";
  protocol->Release();
  EXPECT_EQ((std::vector<int>{3, 1, 4, 0, 2}), ended) << "the removed meter's own come last";
}

/// Another destructor, and nothing else of its own. It does something, or a compiler may enter the base's in its place.
class Derived final : public CProtocol {
 public:
  static inline int ended = 0;

 private:
  ~Derived() override { ++ended; }
};

// Hosts that end the object by its table find the entry (or the two, as this compiler has them) directly behind slot 23.
TEST(CProtocol, TheDestructorStandsBehindTheLastSlot) {
  IProtocol* const base = NewProtocol();
  IProtocol* const derived = new Derived;
  derived->AddRef();
  const auto table = [](IProtocol* object) { return *reinterpret_cast<void***>(object); };
  constexpr std::size_t kLastOfIProtocol = 23;
  for (std::size_t slot = 0; slot <= kLastOfIProtocol + 8; ++slot) {
    const bool destructor = slot == kLastOfIProtocol + 1 || slot == kLastOfIProtocol + 2;
    EXPECT_EQ(destructor, table(base)[slot] != table(derived)[slot]) << slot;
  }
  base->Release();
  derived->Release();
  EXPECT_EQ(1, Derived::ended);
}

TEST(CProtocol, CopiesARecordOfItsOwnTable) {
  IProtocol* const protocol = NewProtocol();
  DeviceConfig config = Config(7);
  config.ReservedText[99] = 'x';
  protocol->AddDevice(&config);
  auto& devices = protocol->GetChannel()->Devices;
  for (std::uint32_t i = 1; i < 40; ++i) ASSERT_EQ(static_cast<std::int32_t>(i), protocol->AddDevice(&devices[i - 1]));
  EXPECT_EQ(7U, devices[39].Address);
  EXPECT_STREQ("222222", devices[39].Level2Password);
  EXPECT_EQ('x', devices[39].ReservedText[99]);
  protocol->Release();
}

TEST(CProtocol, WhatItRefusesDoesNotWaitForTheLine) {
  IProtocol* const protocol = NewProtocol();
  protocol->LockExchange();
  std::thread([protocol] {
    EXPECT_EQ(-1, protocol->AddDevice(nullptr));
    protocol->RemoveDevice(-1);
    protocol->RemoveDevice(0);
    protocol->AddTag(0, nullptr);
  }).join();
  protocol->UnlockExchange();
  protocol->Release();
}

TEST(CProtocol, KeepsLaterMetersWholeWhenOneIsRemoved) {
  int ended = 0;
  IProtocol* const protocol = NewProtocol();
  const auto& devices = protocol->GetChannel()->Devices;  // a host keeps the address
  EXPECT_EQ(-1, protocol->AddDevice(nullptr));
  for (std::uint32_t address = 10; address < 60; ++address) {
    DeviceConfig config = Config(address);
    config.NextClockCheck = 0x123456789ABLL + address;
    config.LogCache[299] = static_cast<std::uint8_t>(address);
    config.FailHoldTimer.period = address * 1000;
    EXPECT_EQ(address - 10, protocol->AddDevice(&config));
    protocol->AddTag(address - 10, new CountedTag(ended));
  }
  CDeviceTag* const tag = devices[1].Tags[0];
  protocol->RemoveDevice(0);
  ASSERT_EQ(49U, devices.Size());
  const DeviceEntry& first = devices[0];
  EXPECT_EQ(11U, first.Address);
  EXPECT_EQ(0x123456789ABLL + 11, std::int64_t{first.NextClockCheck});
  EXPECT_EQ(11, first.LogCache[299]);
  EXPECT_EQ(11000U, first.FailHoldTimer.period);
  EXPECT_STREQ("222222", first.Level2Password);
  ASSERT_EQ(1U, first.Tags.Size());
  EXPECT_EQ(tag, first.Tags[0]);
  protocol->Release();
  EXPECT_EQ(50, ended);
}

TEST(CProtocol, RejectsIndexesOutsideTheTable) {
  int ended = 0;
  IProtocol* const protocol = NewProtocol();
  const DeviceConfig config = Config(1);
  protocol->AddDevice(&config);
  protocol->RemoveDevice(-1);
  protocol->RemoveDevice(1);
  CountedTag tag(ended);
  for (const std::uint32_t index : {1U, 0xFFFFFFFFU, 0x80000000U}) {
    protocol->AddTag(index, &tag);
    EXPECT_EQ(0U, protocol->CanPollDevice(index)) << index;
  }
  protocol->AddTag(0, nullptr);
  EXPECT_EQ(1U, protocol->GetChannel()->Devices.Size());
  EXPECT_TRUE(protocol->GetChannel()->Devices[0].Tags.Empty());
  protocol->Release();
  EXPECT_EQ(0, ended);
}

TEST(CProtocol, CopiesTheHostsRecordWithItsContainers) {
  IProtocol* const protocol = NewProtocol();
  DeviceConfig config = Config(7);
  config.ExchangeOn = 1;
  config.ProfileStore2.Append(
      ProfileRecord{.Time = {}, .Address = 0x1234, .padding_ = {}, .Value = {}, .Quality = 0, .TagId = 40112});
  protocol->AddDevice(&config);
  const DeviceEntry& entry = protocol->GetChannel()->Devices[0];
  EXPECT_EQ(1U, entry.ExchangeOn);
  ASSERT_EQ(1U, entry.ProfileStore2.Size());
  EXPECT_EQ(0x1234, entry.ProfileStore2[0].Address);
  EXPECT_NE(config.ProfileStore2.begin(), entry.ProfileStore2.begin());
  EXPECT_EQ(40112U, config.ProfileStore2[0].TagId);
  protocol->Release();
}

TEST(CProtocol, KnowsTheDepthOfEveryArchive) {
  IProtocol* const protocol = NewProtocol();
  // By class: day, month, year, main, additional and third profile, cumulative day, month and year.
  constexpr std::uint32_t kFirstIds[] = {40000, 40036, 40072, 40108, 40112, 40116, 40120, 40156, 40192};
  const struct {
    std::uint32_t type;
    std::uint32_t depth[9];
  } rows[] = {
      {0, {1, 11, 1, 8192, 0, 0, 0, 0, 0}},
      {1, {30, 11, 1, 8192, 8192, 0, 31, 12, 2}},
      {2, {1, 11, 1, 4096, 4096, 0, 2, 12, 2}},
      {7, {1, 12, 1, 8192, 8192, 0, 2, 13, 2}},
      {8, {30, 12, 1, 8192, 8192, 8192, 0, 0, 0}},
      {12, {1, 11, 1, 8192, 0, 0, 2, 12, 2}},
      {4, {}},
      {13, {}},
  };
  for (const auto& row : rows) {
    for (int i = 0; i < 9; ++i)
      EXPECT_EQ(row.depth[i], protocol->GetHistoryDepth(row.type, kFirstIds[i])) << row.type << " " << i;
  }
  for (const std::uint32_t id : {0U, 39999U, 40228U}) {
    EXPECT_EQ(0U, protocol->GetHistoryDepth(1, id));
    std::uint32_t period = 77;
    EXPECT_EQ(-1, protocol->GetHistoryInterval(id, 0, &period));
    EXPECT_EQ(77U, period);
  }
  protocol->Release();
}

}  // namespace
}  // namespace ostrel
