#include <gtest/gtest.h>

#include <thread>
#include <vector>

#include "platform/critical_section.h"

namespace ostrel::platform {
namespace {

/// A thread that enters the section once, notes its number and leaves; it stands in the queue when this returns.
std::jthread Contend(FairSection& section, std::vector<int>& served, int number) {
  std::jthread thread([&section, &served, number] {
    const CriticalSectionGuard guard(section);
    served.push_back(number);
  });
  while (section.Waiters() < static_cast<std::uint64_t>(number)) std::this_thread::yield();
  return thread;
}

TEST(FairSection, WaitersAreServedInOrderBeforeTheHolderComesAgain) {
  FairSection section;
  std::vector<int> served;
  section.Enter();
  const std::jthread first = Contend(section, served, 1);
  const std::jthread second = Contend(section, served, 2);
  const std::jthread third = Contend(section, served, 3);
  section.Leave();
  section.Enter();
  EXPECT_EQ(served, (std::vector{1, 2, 3}));
  section.Leave();
}

TEST(FairSection, StaysHeldUntilItsHolderHasLeftAsOftenAsEntered) {
  FairSection section;
  std::vector<int> served;
  section.Leave();
  section.Enter();
  section.Enter();
  section.Leave();
  std::thread([&] { section.Leave(); }).join();
  {
    const std::jthread other = Contend(section, served, 1);
    EXPECT_TRUE(served.empty());
    section.Leave();
  }
  EXPECT_EQ(served, std::vector{1});
}

}  // namespace
}  // namespace ostrel::platform
