// Four host threads list and read history of two meters while the poll thread reads their current values: every value is the
// one that stands at its time, no frame comes in between the pieces of another's answer, and polling goes on.
#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <cstring>
#include <mutex>
#include <thread>

#include "Protocol/model/SharedFlag.h"
#include "platform/clock.h"
#include "tests/history/HistoryMeter.h"

namespace ostrel::test {
namespace {

constexpr int kThreads = 4;
constexpr std::uint32_t kUntouchedQuality = 7;

/// Watches slot 22 for two things: a request while another thread's answer is still awaited, and a piece of an answer that
/// is fetched by another thread than the one that asked.
class WatchedProtocol final : public CProtocol {
 public:
  std::uint32_t STDMETHODCALLTYPE TransmitAndRecieve(const std::uint8_t* request, std::uint32_t requestLength,
                                                     std::uint8_t* answer, std::uint32_t* count, std::uint32_t offset) override {
    Enter(offset != 0);
    const std::uint32_t result = CProtocol::TransmitAndRecieve(request, requestLength, answer, count, offset);
    const std::lock_guard guard(mutex_);
    inside_ = false;
    return result;
  }
  std::uint32_t STDMETHODCALLTYPE LockExchange() override {
    CProtocol::LockExchange();
    const std::lock_guard guard(mutex_);
    owner_ = std::this_thread::get_id();
    ++depth_;
    return 1;
  }
  std::uint32_t STDMETHODCALLTYPE UnlockExchange() override {
    {
      const std::lock_guard guard(mutex_);
      if (--depth_ == 0) asked_ = {};
    }
    return CProtocol::UnlockExchange();
  }

  [[nodiscard]] int Faults() const { return faults_; }

 private:
  void Enter(bool continuation) {
    const std::lock_guard guard(mutex_);
    const auto self = std::this_thread::get_id();
    const bool foreign = asked_ != std::thread::id() && asked_ != self;
    if (inside_ || foreign || depth_ == 0 || owner_ != self || (continuation && asked_ != self)) ++faults_;
    inside_ = true;
    asked_ = self;
  }

  std::mutex mutex_;
  std::thread::id owner_;
  std::thread::id asked_;  // whose transaction runs
  int depth_ = 0;
  bool inside_ = false;
  std::atomic<int> faults_{0};
};

/// Two meters whose records say where they lie; the second one's words are 500 more.
class Storm : public ::testing::Test {
 protected:
  Storm() : watched_(new WatchedProtocol), channel_({.retries = 2, .pollPeriodSeconds = 1}, watched_) {
    for (HistoryMeter* meter : {&first_, &second_}) meter->AddHours("2026-11-22 00", "2026-11-22 23");
    for (std::uint16_t at = 0; at < 24 * 24; at = static_cast<std::uint16_t>(at + 8)) {
      const int word = at / 8 + 500;
      second_.records[at] = Bytes(8);
      for (int i = 0; i < 4; ++i) {
        second_.records[at][static_cast<std::size_t>(2 * i)] = static_cast<std::uint8_t>((word + i) >> 8);
        second_.records[at][static_cast<std::size_t>(2 * i + 1)] = static_cast<std::uint8_t>(word + i);
      }
    }
    channel_.Line().KeepRecords(false);
    channel_.Line().CutAnswers(7);
    channel_.Line().OnRequest([this](auto request) { return (request[0] == 2 ? second_ : first_).Answer(request); });
    for (const std::uint32_t address : {1U, 2U}) {
      const std::uint32_t device = channel_.AddMeter(address, 1);
      for (const std::uint32_t tag : {9U, 10U, 18U}) tags_.push_back(channel_.AddTag(device, tag));
    }
  }

  /// One host thread: lists a profile of a meter and reads what it listed, and reads energies in between.
  void Client(int thread);
  void ListAndRead(std::uint32_t device, std::uint32_t tag, int round);
  void ReadEnergy(std::uint32_t device, std::uint32_t tag);
  [[nodiscard]] HistoryValue Read(std::uint32_t device, std::uint32_t tag, const FILETIME& time);

  void RunStorm();

  int rounds_ = 30;
  WatchedProtocol* watched_;
  HistoryMeter first_{1};
  HistoryMeter second_{2};
  TestChannel channel_;
  std::vector<CDeviceTag*> tags_;
  std::atomic<int> operations_{0};
  std::atomic<int> served_{0};
};

HistoryValue Storm::Read(std::uint32_t device, std::uint32_t tag, const FILETIME& time) {
  const HistoryItem item{.hostWord0_ = 0, .DeviceIndex = device, .hostWord8_ = 0, .MeterType = 1, .TagId = tag, .Tariff = 0};
  HistoryValue value{};
  value.Quality = kUntouchedQuality;
  EXPECT_EQ(1U, watched_->ReadHistoryValue(1, &item, &time, &value));
  ++operations_;
  return value;
}

void Storm::ListAndRead(std::uint32_t device, std::uint32_t tag, int round) {
  FILETIME start = TimeAt("2026-11-22 0" + std::to_string(round % 8) + ":30");
  FILETIME end = TimeAt("2026-11-22 1" + std::to_string(round % 10) + ":30");
  TimestampList list{};
  EXPECT_EQ(1U, watched_->GetHistoryTimestamps(1, tag, device, &start, &end, &list));
  ++operations_;
  EXPECT_EQ(static_cast<std::uint32_t>(2 * (10 + round % 10 - round % 8)), list.Count);
  for (const FILETIME& time : list.Times) {
    const HistoryValue value = Read(device, tag, time);
    if (value.Quality == kUntouchedQuality) continue;  // another thread has listed something else meanwhile
    SYSTEMTIME at{};
    ASSERT_TRUE(platform::FileTimeToFields(time, at));
    const int minute = at.wHour * 60 + at.wMinute - 30;  // where the interval began
    const int word =
        (minute / 60 * 24 + 8 + minute % 60 / 30 * 8) / 8 + (device == 1 ? 500 : 0) + static_cast<int>(tag - 40108) % 4;
    EXPECT_EQ(kGood, value.Quality);
    EXPECT_FLOAT_EQ(static_cast<float>(word * 60.0 / (5000 * 2 * 30)), value.Value.fltVal)
        << TimeText(time) << " " << device << " " << tag;
    ++served_;
  }
}

void Storm::ReadEnergy(std::uint32_t device, std::uint32_t tag) {
  const HistoryValue value = Read(device, tag, TimeAt("2026-11-22"));
  EXPECT_EQ(kGood, value.Quality);
  EXPECT_EQ(2.0, value.Value.dblVal);
}

void Storm::Client(int thread) {
  for (int round = 0; round < rounds_; ++round) {
    const auto device = static_cast<std::uint32_t>((thread + round) % 2);
    const auto tag = static_cast<std::uint32_t>(40108 + (thread + round) % 8);
    ListAndRead(device, tag, round);
    ReadEnergy(device, 40120);
    FILETIME time = TimeAt("2026-11-01");
    EXPECT_EQ(1U, watched_->CheckHistoryTimestamp(1, 40036, device, &time));
    ++operations_;
  }
}

void Storm::RunStorm() {
  ASSERT_EQ(1U, watched_->Start());
  std::vector<std::thread> clients;
  for (int thread = 0; thread < kThreads; ++thread) clients.emplace_back([this, thread] { Client(thread); });
  for (std::thread& client : clients) client.join();
  watched_->Stop();
  EXPECT_EQ(0, watched_->Faults());
  EXPECT_GT(operations_, kThreads * rounds_ * 3);
  for (const CDeviceTag* tag : tags_) {
    EXPECT_EQ(kQualityGood, tag->Quality) << tag->TagNumber << " was polled in between";
    EXPECT_EQ(2.0F * static_cast<float>(tag->TagNumber == 18 ? 2 : 1), tag->Value.fltVal) << tag->TagNumber;
  }
  EXPECT_TRUE(channel_.LogLines().empty());
}

TEST_F(Storm, FourHostThreadsAndThePollThread) {
  RunStorm();
  EXPECT_GT(served_, 100);
}

// The system's clock brings no order between the threads, so that a missing one shows under a sanitizer.
TEST_F(Storm, OnTheSystemsClock) {
  platform::ReplaceClock(nullptr);
  rounds_ = 3;
  RunStorm();
  EXPECT_GT(served_, 10);
}

// The host adds and removes meters, as it does when its configuration changes, while others list and read.
TEST_F(Storm, MetersComeAndGoMeanwhile) {
  ASSERT_EQ(1U, watched_->Start());
  std::atomic<bool> done{false};
  std::vector<std::thread> clients;
  for (int thread = 0; thread < 2; ++thread) clients.emplace_back([this, thread] { Client(thread); });
  clients.emplace_back([this, &done] {
    // The last meter is another one each time, or none: whatever comes back, nothing may break.
    while (!done) {
      FILETIME start = TimeAt("2026-11-22 01:30");
      FILETIME end = TimeAt("2026-11-22 03:30");
      TimestampList list{};
      watched_->GetHistoryTimestamps(1, 40108, 2, &start, &end, &list);
      HistoryValue value{};
      const HistoryItem item{.hostWord0_ = 0, .DeviceIndex = 2, .hostWord8_ = 0, .MeterType = 1, .TagId = 40120, .Tariff = 0};
      watched_->ReadHistoryValue(1, &item, &end, &value);
    }
  });
  for (int change = 0; change < 200; ++change) {
    watched_->LockPoll();
    const std::uint32_t added = channel_.AddMeter(1 + static_cast<std::uint32_t>(change % 2), 1);
    watched_->UnlockPoll();
    std::this_thread::yield();
    watched_->LockPoll();
    watched_->RemoveDevice(static_cast<std::int32_t>(added));
    watched_->UnlockPoll();
  }
  clients[0].join();
  clients[1].join();
  done = true;
  clients[2].join();
  watched_->Stop();
  EXPECT_EQ(0, watched_->Faults());
}

}  // namespace
}  // namespace ostrel::test
