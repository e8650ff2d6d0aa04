#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

#include "platform/virtual_clock.h"

namespace ostrel::platform {
namespace {

TEST(VirtualClock, AThreadRunsUpToEachLimitAndEndsTheSleepItWasIn) {
  VirtualClock clock(0);
  std::vector<std::int64_t> wakes;
  clock.SetLimit(250);
  std::thread poller([&] {
    for (int i = 0; i < 6; ++i) {
      clock.Sleep(100);
      wakes.push_back(clock.Elapsed());
    }
  });
  clock.WaitForLimit();
  EXPECT_EQ(clock.Elapsed(), 250);
  EXPECT_EQ(wakes, (std::vector<std::int64_t>{100, 200}));

  clock.SetLimit(299);
  clock.WaitForLimit();
  EXPECT_EQ(clock.Elapsed(), 299);
  EXPECT_EQ(wakes.size(), 2u);

  clock.SetLimit(400);
  clock.WaitForLimit();
  EXPECT_EQ(clock.Elapsed(), 400);
  EXPECT_EQ(wakes.back(), 400);

  clock.Advance(150);
  clock.WaitForLimit();
  EXPECT_EQ(clock.Elapsed(), 550);
  EXPECT_EQ(wakes.back(), 550);

  clock.ClearLimit();
  poller.join();
  EXPECT_EQ(wakes, (std::vector<std::int64_t>{100, 200, 300, 400, 550, 650}));
}

TEST(VirtualClock, EverySleeperComesThroughWhenTheLimitGoes) {
  VirtualClock clock(0);
  clock.SetLimit(10);
  std::atomic<int> through{0};
  std::vector<std::thread> sleepers;
  for (int i = 0; i < 4; ++i) sleepers.emplace_back([&] { clock.Sleep(1000), ++through; });
  clock.WaitForLimit();
  EXPECT_EQ(through, 0);
  EXPECT_EQ(clock.Elapsed(), 10);
  clock.ClearLimit();
  for (std::thread& sleeper : sleepers) sleeper.join();
  EXPECT_GE(clock.Elapsed(), 1000);
}

}  // namespace
}  // namespace ostrel::platform
