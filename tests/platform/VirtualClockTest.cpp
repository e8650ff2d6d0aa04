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
  const auto standsAt = [&](std::int64_t elapsed, std::vector<std::int64_t> woken) {
    clock.WaitForLimit();
    EXPECT_EQ(clock.Elapsed(), elapsed);
    EXPECT_EQ(wakes, woken);
  };
  standsAt(250, {100, 200});
  clock.SetLimit(299);
  standsAt(299, {100, 200});
  clock.SetLimit(400);
  standsAt(400, {100, 200, 300, 400});
  clock.Advance(150);
  standsAt(550, {100, 200, 300, 400, 550});
  clock.ClearLimit();
  poller.join();
  EXPECT_EQ(wakes.back(), 650);
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
