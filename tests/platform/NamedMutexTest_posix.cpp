#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <functional>
#include <string>
#include <thread>

#include "platform/named_mutex.h"
#include "platform/text.h"

namespace ostrel::platform {
namespace {

OleString NameOf(const std::string& text) { return Utf8ToOle(std::to_string(getpid()) + text); }

class OpenMutex {
 public:
  explicit OpenMutex(const OleString& name) : handle_(OpenNamedMutex(name.c_str())) {}
  ~OpenMutex() { CloseNamedMutex(handle_); }
  OpenMutex(const OpenMutex&) = delete;
  OpenMutex& operator=(const OpenMutex&) = delete;
  operator NamedMutexHandle() const { return handle_; }

 private:
  NamedMutexHandle handle_;
};

/// A counter that processes share. Its steps are lost as soon as two of them interleave.
class SharedCounter {
 public:
  static constexpr int kSteps = 2000;

  SharedCounter()
      : value_(new (mmap(nullptr, sizeof(Value), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0)) Value(0)) {}
  ~SharedCounter() { munmap(value_, sizeof(Value)); }

  /// `open` gives a handle for each step.
  template <class Open>
  void Count(Open open) {
    for (int i = 0; i < kSteps; ++i) Step(open());
  }
  int Total() const { return *value_; }

 private:
  using Value = std::atomic<int>;

  void Step(NamedMutexHandle mutex) {
    if (!LockNamedMutex(mutex)) return;
    const int before = *value_;
    sched_yield();
    *value_ = before + 1;
    UnlockNamedMutex(mutex);
  }

  Value* value_;
};

template <class Work>
void InAnotherProcess(
    Work work, const std::function<void()>& meanwhile = [] {}) {
  const pid_t child = fork();
  if (child == 0) {
    work();
    _exit(0);
  }
  meanwhile();
  int status = -1;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  EXPECT_EQ(status, 0);
}

TEST(NamedMutex, ExcludesProcessesAndThreadsWithHandlesOfTheirOwnAndWithASharedOne) {
  const OleString name = NameOf("C:\\папка/trace.log");
  SharedCounter counter;
  const auto countAnew = [&] { counter.Count([&] { return OpenMutex(name); }); };
  InAnotherProcess(countAnew, [&] {
    const OpenMutex shared(name);
    std::thread first([&] { counter.Count([&] { return NamedMutexHandle(shared); }); });
    std::thread second([&] { counter.Count([&] { return NamedMutexHandle(shared); }); });
    countAnew();
    first.join();
    second.join();
  });
  EXPECT_EQ(counter.Total(), 4 * SharedCounter::kSteps);
}

TEST(NamedMutex, IsFreeAfterItsOwnerDiedAndMayBeLockedAgainByItsThread) {
  const OleString name = NameOf("abandoned");
  InAnotherProcess([&] {
    if (!LockNamedMutex(OpenNamedMutex(name.c_str()))) _exit(1);
  });
  const OpenMutex mutex(name);
  for (int twice = 0; twice < 2; ++twice) ASSERT_TRUE(LockNamedMutex(mutex));
  UnlockNamedMutex(mutex);
  SharedCounter counter;
  std::thread other([&] { counter.Count([&] { return OpenMutex(name); }); });
  EXPECT_EQ(counter.Total(), 0);
  UnlockNamedMutex(mutex);
  other.join();
  EXPECT_EQ(counter.Total(), SharedCounter::kSteps);
}

/// Were two of them one mutex, the second lock would wait for ever.
TEST(NamedMutex, NamesAreComparedWhole) {
  const std::string manyCharacters(400, 'x');
  const std::pair<std::string, std::string> kDifferent[] = {
      {"a/b", "a\\b"}, {"a", "A"}, {"%41", "A"}, {"трасса", "трассы"}, {manyCharacters + "1", manyCharacters + "2"}, {"", " "}};
  for (const auto& [left, right] : kDifferent) {
    const OpenMutex one(NameOf(left));
    const OpenMutex other(NameOf(right));
    for (const NamedMutexHandle mutex : {NamedMutexHandle(one), NamedMutexHandle(other)})
      ASSERT_TRUE(LockNamedMutex(mutex)) << left;
    for (const NamedMutexHandle mutex : {NamedMutexHandle(one), NamedMutexHandle(other)}) UnlockNamedMutex(mutex);
  }
  EXPECT_EQ(OpenNamedMutex(nullptr), kNoMutex);
  EXPECT_FALSE(LockNamedMutex(kNoMutex));
}

}  // namespace
}  // namespace ostrel::platform
