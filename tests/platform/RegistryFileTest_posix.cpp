// The file behind the registry: what is done with one that is not sound, and with several writers.
#include <gtest/gtest.h>

#include <thread>
#include <vector>

#include "platform/posix/registry_file.h"
#include "platform/registry.h"
#include "tests/module/RegistryForTest.h"

namespace ostrel::platform {
namespace {

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

}  // namespace
}  // namespace ostrel::platform
