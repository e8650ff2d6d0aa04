#include <gtest/gtest.h>
#include <sched.h>

#include <atomic>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include "platform/critical_section.h"
#include "platform/thread.h"

namespace ostrel::platform {
namespace {

/// A thread that enters the section once, notes its number and leaves.
class Contender {
 public:
  Contender(CriticalSection& section, std::vector<int>& served, int number)
      : thread_([this, &section, &served, number] {
          id_ = CurrentThreadId();
          const CriticalSectionGuard guard(section);
          served.push_back(number);
          done_ = true;
        }) {}
  ~Contender() { thread_.join(); }

  /// True once the system has put the thread to sleep, which only the section can; false when it came through instead.
  bool StandsAtTheSection() const {
    while (!done_) {
      if (id_ != 0 && StateOf(id_) == 'S') return true;
      sched_yield();
    }
    return false;
  }

 private:
  static char StateOf(std::uint32_t id) {
    std::ifstream file("/proc/self/task/" + std::to_string(id) + "/stat");
    std::string line;
    std::getline(file, line);
    const std::size_t nameEnd = line.rfind(") ");
    return nameEnd == std::string::npos ? '?' : line[nameEnd + 2];
  }

  std::atomic<std::uint32_t> id_{0};
  std::atomic<bool> done_{false};
  std::thread thread_;
};

TEST(CriticalSection, WaitersAreServedInOrderBeforeTheHolderComesAgain) {
  CriticalSection section;
  std::vector<int> served;
  section.Enter();
  Contender first(section, served, 1);
  ASSERT_TRUE(first.StandsAtTheSection());
  Contender second(section, served, 2);
  ASSERT_TRUE(second.StandsAtTheSection());
  Contender third(section, served, 3);
  ASSERT_TRUE(third.StandsAtTheSection());

  section.Leave();
  section.Enter();
  EXPECT_EQ(served, (std::vector{1, 2, 3}));
  section.Leave();
}

TEST(CriticalSection, StaysHeldUntilLeftAsOftenAsEntered) {
  CriticalSection section;
  std::vector<int> served;
  section.Enter();
  section.Enter();
  section.Leave();
  Contender other(section, served, 1);
  EXPECT_TRUE(other.StandsAtTheSection());
  EXPECT_TRUE(served.empty());
  section.Leave();
}

TEST(CriticalSection, LeavingByAThreadThatDoesNotHoldItChangesNothing) {
  CriticalSection section;
  std::vector<int> served;
  section.Leave();
  section.Enter();
  std::thread([&] { section.Leave(); }).join();
  Contender other(section, served, 1);
  EXPECT_TRUE(other.StandsAtTheSection());
  section.Leave();
}

}  // namespace
}  // namespace ostrel::platform
