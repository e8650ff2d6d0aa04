// What is this system's own: named mutexes between processes and threads, the file behind the registry, files without an end.
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <functional>
#include <thread>

#include "platform/named_mutex.h"
#include "platform/posix/registry_file.h"
#include "platform/registry.h"
#include "platform/shared_file.h"
#include "platform/text.h"
#include "tests/module/RegistryForTest.h"

namespace ostrel::platform {
namespace {

OleString NameOf(const std::string& text) { return Utf8ToOle(std::to_string(getpid()) + text); }

struct OpenMutex {
  explicit OpenMutex(const OleString& name) : handle(OpenNamedMutex(name.c_str())) {}
  ~OpenMutex() { CloseNamedMutex(handle); }
  OpenMutex(const OpenMutex&) = delete;
  OpenMutex& operator=(const OpenMutex&) = delete;

  const NamedMutexHandle handle;
};

constexpr int kSteps = 2000;

/// A counter that processes share. Its steps are lost as soon as two of them interleave.
std::atomic<int>& NewSharedCounter() {
  return *new (mmap(nullptr, sizeof(std::atomic<int>), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0))
      std::atomic<int>(0);
}

void Step(std::atomic<int>& counter, NamedMutexHandle mutex) {
  if (!LockNamedMutex(mutex)) return;
  const int before = counter;
  sched_yield();
  counter = before + 1;
  UnlockNamedMutex(mutex);
}

void InAnotherProcess(const std::function<void()>& work, const std::function<void()>& meanwhile) {
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
  std::atomic<int>& counter = NewSharedCounter();
  const auto countAnew = [&] {
    for (int i = 0; i < kSteps; ++i) Step(counter, OpenMutex(name).handle);
  };
  InAnotherProcess(countAnew, [&] {
    const OpenMutex shared(name);
    const auto countWithIt = [&] {
      for (int i = 0; i < kSteps; ++i) Step(counter, shared.handle);
    };
    const std::jthread first(countWithIt);
    const std::jthread second(countWithIt);
    countAnew();
  });
  EXPECT_EQ(counter, 4 * kSteps);
}

TEST(NamedMutex, IsFreeAfterItsOwnerDiedAndMayBeLockedAgainByItsThread) {
  const OleString name = NameOf("abandoned");
  InAnotherProcess([&] { _exit(LockNamedMutex(OpenNamedMutex(name.c_str())) ? 0 : 1); }, [] {});
  const OpenMutex mutex(name);
  for (int twice = 0; twice < 2; ++twice) ASSERT_TRUE(LockNamedMutex(mutex.handle));
  UnlockNamedMutex(mutex.handle);
  std::atomic<int> counter = 0;
  std::atomic<bool> stands = false;
  std::thread other([&] {
    const OpenMutex own(name);
    stands = true;
    Step(counter, own.handle);
  });
  while (!stands) std::this_thread::yield();
  EXPECT_EQ(counter, 0);
  UnlockNamedMutex(mutex.handle);
  other.join();
  EXPECT_EQ(counter, 1);
}

/// Were two of them one mutex, the second lock would wait for ever.
TEST(NamedMutex, NamesAreComparedWhole) {
  const std::string manyCharacters(400, 'x');
  const std::pair<std::string, std::string> kDifferent[] = {
      {"a/b", "a\\b"}, {"a", "A"}, {"%41", "A"}, {"трасса", "трассы"}, {manyCharacters + "1", manyCharacters + "2"}, {"", " "}};
  for (const auto& [left, right] : kDifferent) {
    const OpenMutex one(NameOf(left));
    const OpenMutex other(NameOf(right));
    for (const OpenMutex* mutex : {&one, &other}) ASSERT_TRUE(LockNamedMutex(mutex->handle)) << left;
    for (const OpenMutex* mutex : {&one, &other}) UnlockNamedMutex(mutex->handle);
  }
  EXPECT_EQ(OpenNamedMutex(nullptr), kNoMutex);
  EXPECT_FALSE(LockNamedMutex(kNoMutex));
}

TEST(RegistryFile, PeopleMayWriteInItAndWhatIsNotSoundIsNotWrittenOver) {
  const test::RegistryForTest registry;
  ASSERT_TRUE(CreateRegistryKey("Key"));
  test::WriteBytes(registry.File(), "# mine\n\n[A\\B]\n=default\nname=a = b\n");
  EXPECT_EQ("default", RegistryText("A\\B", ""));
  EXPECT_EQ("a = b", RegistryText("A\\B", "name"));
  const std::string spoiled = "[Key]\nno sign of equality\n";
  test::WriteBytes(registry.File(), spoiled);
  EXPECT_FALSE(SetRegistryText("Key", "name", "text"));
  EXPECT_FALSE(RegistryKeyExists("Key"));
  EXPECT_EQ(spoiled, test::ReadBytes(registry.File()));
}

TEST(RegistryFile, WritersDoNotLoseEachOthersKeys) {
  const test::RegistryForTest registry;
  std::vector<std::jthread> writers;
  for (char name = 'A'; name < 'E'; ++name) {
    writers.emplace_back([name] {
      for (char key = '0'; key <= '9'; ++key) EXPECT_TRUE(CreateRegistryKey({name, '\\', key}));
    });
  }
  writers.clear();
  for (char name = 'A'; name < 'E'; ++name) EXPECT_EQ(10u, RegistrySubkeys({name}).size()) << name;
}

TEST(RegistryFile, StandsWhereTheEnvironmentSays) {
  const test::RegistryForTest registry;
  EXPECT_EQ(registry.File(), RegistryFile().string());
  test::SetVariable("OSTREL_REGISTRY", "");
  test::SetVariable("XDG_CONFIG_HOME", "/somewhere");
  EXPECT_EQ("/somewhere/ostrel/registry", RegistryFile().string());
  test::SetVariable("XDG_CONFIG_HOME", "");
  test::SetVariable("HOME", "/home/a");
  EXPECT_EQ("/home/a/.config/ostrel/registry", RegistryFile().string());
}

TEST(SharedFile, SizesPassFourGigabytes) {
  const test::TemporaryFolder folder;
  const FileHandle file = OpenSharedFile(folder.File("log").c_str());
  std::filesystem::resize_file(folder.File("log"), 5'000'000'000);
  EXPECT_EQ(SharedFileSize(file), 5'000'000'000);
  CloseSharedFile(file);
}

TEST(SharedFile, AFullDeviceIsTold) {
  const FileHandle full = OpenSharedFile("/dev/full");
  ASSERT_NE(full, kNoFile);
  EXPECT_FALSE(AppendToSharedFile(full, "x"));
  CloseSharedFile(full);
}

}  // namespace
}  // namespace ostrel::platform
