// Four host threads list and read history of two meters while the poll thread reads their current values: every value is the
// one that stands at its time, no frame comes in between the pieces of another's answer, and polling goes on. Then what history
// does without the line.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <cmath>
#include <functional>
#include <future>
#include <map>
#include <mutex>
#include <thread>

#include "tests/expectation/Expectation.h"
#include "tests/expectation/HistoryExpectation.h"
#include "tests/history/HistoryChannel.h"

namespace ostrel::test {
namespace {

constexpr std::uint32_t kUnread = 7;

/// Watches slot 22 for two things: a request while another thread's answer is still awaited, and a piece of an answer that
/// is fetched by another thread than the one that asked.
class WatchedProtocol final : public CProtocol {
 public:
  std::uint32_t STDMETHODCALLTYPE TransmitAndRecieve(const std::uint8_t* request, std::uint32_t requestLength,
                                                     std::uint8_t* answer, std::uint32_t* count, std::uint32_t offset) override {
    Noting([&, self = std::this_thread::get_id()] {
      const bool foreign = asked_ != std::thread::id() && asked_ != self;
      if (inside_ || foreign || depth_ == 0 || owner_ != self || (offset != 0 && asked_ != self)) ++faults;
      inside_ = true;
      asked_ = self;
    });
    const std::uint32_t result = CProtocol::TransmitAndRecieve(request, requestLength, answer, count, offset);
    Noting([&] { inside_ = false; });
    return result;
  }
  std::uint32_t STDMETHODCALLTYPE LockExchange() override {
    CProtocol::LockExchange();
    Noting([&] { owner_ = std::this_thread::get_id(), ++depth_; });
    return 1;
  }
  std::uint32_t STDMETHODCALLTYPE UnlockExchange() override {
    Noting([&] {
      if (--depth_ == 0) asked_ = {};
    });
    return CProtocol::UnlockExchange();
  }

  std::atomic<int> faults{0};

 private:
  void Noting(const std::function<void()>& change) {
    const std::lock_guard guard(mutex_);
    change();
  }

  std::mutex mutex_;
  std::thread::id owner_, asked_;  // who holds the line, and whose transaction runs
  int depth_ = 0;
  bool inside_ = false;
};

/// Two meters that stand at one time; what they must show is known before the threads begin.
class Storm : public ::testing::Test {
 protected:
  Storm() {
    channel_.Line().keepsRecords = false;
    channel_.Line().CutAnswers(7);
    for (const std::uint32_t device : {0U, 1U}) {
      channel_.AddMeter(1 + device, 1, {.simulated = "at=2026-11-22T23:59:00:channel_timeout_s=100000"});
      const sim::MeterView view = channel_.Line().Meter(static_cast<std::uint8_t>(1 + device)).View(0);
      for (const std::uint32_t number : {9U, 10U, 18U}) {
        tags_.emplace_back(channel_.AddTag(device, number), std::get<double>(*sim::ExpectedTag(view, number)));
      }
      const sim::Period day{view.wall.TimeOf(*sim::ParseMeterTime("2026-11-22T00:00:00")), view.now};
      for (std::uint32_t tag = kMain; tag < kMain + 8; ++tag) {
        for (const sim::MeterTime end : sim::ExpectedProfileTimes(view, tag, day)) {
          expected_[{device, tag, end}] = sim::ExpectedProfile(view, tag, end)->value;
        }
      }
      expected_[{device, kFirstReading, day.from}] = *sim::ExpectedArchive(view, kFirstReading, day.from);
    }
  }

  /// True when it was served; another thread may have listed something else meanwhile.
  bool Read(std::uint32_t device, std::uint32_t tag, const FILETIME& time) {
    const HistoryItem item = ItemOf(tag, device, 1);
    HistoryValue value{};
    value.Quality = kUnread;
    EXPECT_EQ(1U, watched_->ReadHistoryValue(1, &item, &time, &value));
    if (value.Quality == kUnread) return false;
    std::string stamp = TimeText(time);
    stamp[10] = 'T';
    const double expected = expected_.at({device, tag, sim::ParseMeterTime(stamp).value()});
    EXPECT_EQ(kGood, value.Quality);
    EXPECT_NEAR(expected, tag == kFirstReading ? value.Value.dblVal : double{value.Value.fltVal},
                std::fabs(expected) * 2e-7 + 1e-9)
        << stamp << " " << device << " " << tag;
    return true;
  }
  void ListAndRead(std::uint32_t device, std::uint32_t tag, int round);
  /// One host thread: lists a profile of a meter and reads what it listed, and reads energies in between.
  void Client(int thread, int rounds);
  /// Four of them, and what else is done until they have ended.
  void Run(
      int rounds, const std::function<void()>& meanwhile = [] {});

  WatchedProtocol* watched_ = new WatchedProtocol;
  // A patient line: while one thread gathers its answer, the waits of the others may take the virtual clock on by hours.
  SimulatedChannel channel_{{.retries = 2, .pollPeriodSeconds = 1, .portTimeoutMs = 100'000'000, .protocol = watched_}};
  std::vector<std::pair<const CDeviceTag*, double>> tags_;
  std::map<std::tuple<std::uint32_t, std::uint32_t, sim::MeterTime>, double> expected_;
  std::atomic<int> served_{0};
};

void Storm::ListAndRead(std::uint32_t device, std::uint32_t tag, int round) {
  TimestampList list{};
  EXPECT_EQ(1U, ListTimes(*watched_, tag, device, "2026-11-22 0" + std::to_string(round % 8) + ":30",
                          "2026-11-22 1" + std::to_string(round % 10) + ":30", list));
  const int hours = 10 + round % 10 - round % 8;
  EXPECT_EQ(static_cast<std::uint32_t>((tag < kMain + 4 ? 2 : 20) * hours), list.Count);
  for (const FILETIME& time : list.Times) served_ += Read(device, tag, time) ? 1 : 0;
}

void Storm::Client(int thread, int rounds) {
  for (int round = 0; round < rounds; ++round) {
    const auto device = static_cast<std::uint32_t>((thread + round) % 2);
    ListAndRead(device, kMain + static_cast<std::uint32_t>(thread + round) % 8, round);
    EXPECT_TRUE(Read(device, kFirstReading, TimeAt("2026-11-22")));
    FILETIME time = TimeAt("2026-11-01");
    EXPECT_EQ(1U, watched_->CheckHistoryTimestamp(1, 40036, device, &time));
  }
}

void Storm::Run(int rounds, const std::function<void()>& meanwhile) {
  ASSERT_EQ(1U, watched_->Start());
  std::vector<std::thread> clients;
  for (int thread = 0; thread < 4; ++thread) clients.emplace_back([=, this] { Client(thread, rounds); });
  meanwhile();
  for (std::thread& client : clients) client.join();
  watched_->LockPoll();  // between two passes: a stop ends the gathering of an answer
  for (const auto& [tag, expected] : tags_) {
    EXPECT_EQ(kQualityGood, tag->Quality) << tag->TagNumber << " was polled in between";
    EXPECT_FLOAT_EQ(static_cast<float>(expected), tag->Value.fltVal) << tag->TagNumber;
  }
  EXPECT_EQ(Texts(), channel_.LogLines());
  watched_->UnlockPoll();
  watched_->Stop();
  EXPECT_EQ(0, watched_->faults);
  EXPECT_GT(served_, 3 * rounds);
}

TEST_F(Storm, FourHostThreadsAndThePollThread) { Run(15); }

// The system's clock brings no order between the threads, so that a missing one shows under a sanitizer.
TEST_F(Storm, OnTheSystemsClock) {
  platform::ReplaceClock(nullptr);
  Run(2);
}

// The host adds and removes meters, as it does when its configuration changes, while others list and read.
TEST_F(Storm, MetersComeAndGoMeanwhile) {
  std::atomic<bool> done{false};
  std::thread asking([this, &done] {
    // The last meter is another one each time, or none: whatever comes back, nothing may break.
    while (!done) {
      TimestampList list{};
      ListTimes(*watched_, kMain, 2, "2026-11-22 01:30", "2026-11-22 03:30", list);
      HistoryValue value{};
      const HistoryItem item = ItemOf(kFirstReading, 2);
      const FILETIME time = TimeAt("2026-11-22 03:30");
      watched_->ReadHistoryValue(1, &item, &time, &value);
    }
  });
  Run(8, [this] {
    for (std::uint32_t change = 0; change < 200; ++change) {
      watched_->LockPoll();
      DeviceConfig config{};
      config.Address = 1 + change % 2;
      config.TypeId = 1;
      const std::int32_t added = watched_->AddDevice(&config);
      watched_->UnlockPoll();
      std::this_thread::yield();
      watched_->LockPoll();
      watched_->RemoveDevice(added);
      watched_->UnlockPoll();
    }
  });
  done = true;
  asking.join();
}

// --- without the line

TEST(FreeLine, WhatNeedsNoMeterDoesNotWaitForTheLine) {
  HistoryChannel history(1);
  ASSERT_EQ(1U, history.List(kMain, "2026-11-22 10:30", "2026-11-22 11:00").count);
  history.Protocol().LockExchange();
  auto asked = std::async(std::launch::async, [&history] {
    std::uint32_t period = 0;
    EXPECT_EQ(kGood, history.Read(kMain, "2026-11-22 10:30").value.Quality);
    EXPECT_EQ(2, history.Protocol().GetHistoryInterval(40000, 0, &period));
    history.Entry().ExchangeOn = 0;
    EXPECT_EQ(0U, history.List(kMain, "2026-11-22 10:30", "2026-11-22 11:00").result);
    EXPECT_EQ(0U, history.Check(40000, "2026-11-22"));
  });
  EXPECT_EQ(std::future_status::ready, asked.wait_for(std::chrono::seconds(20)));
  history.Protocol().UnlockExchange();
}

/// The order at an exchange's end: link state, then the line's freedom, then the message.
TEST(FreeLine, AFailureIsWrittenWhenTheLineIsFree) {
  struct Noting final : CProtocol {
    std::uint32_t STDMETHODCALLTYPE UnlockExchange() override {
      if (channel != nullptr) seen.push_back({Device(0)->LinkDown, channel->LogLines().size()});
      return CProtocol::UnlockExchange();
    }
    SimulatedChannel* channel = nullptr;
    std::vector<std::pair<std::uint32_t, std::size_t>> seen;  // link down, lines of the event log
  };
  auto* const protocol = new Noting;
  HistoryChannel history(1, "", {.retries = 1, .protocol = protocol});
  history.Silence("");
  protocol->channel = &history;
  EXPECT_EQ(0U, history.List(kMain, "2026-11-22", "2026-11-23").result);
  EXPECT_EQ(0U, history.Read(40000, "2026-11-22").result);
  EXPECT_THAT(protocol->seen, testing::ElementsAre(std::pair(1U, 0U), std::pair(1U, 1U)))
      << "each message follows its own request's line";
  protocol->channel = nullptr;
}

}  // namespace
}  // namespace ostrel::test
