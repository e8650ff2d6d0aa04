// What is this system's own: where its modules lie, and a device that is always full.
#include <gtest/gtest.h>

#include <filesystem>
#include <utility>

#include "platform/module.h"
#include "platform/shared_file.h"
#include "tests/support/TemporaryFolder.h"

namespace ostrel::platform {
namespace {

TEST(Module, LoadsByPathAndFindsSymbols) {
  std::string error;
  LoadedModule module = LoadedModule::Load("libm.so.6", error);
  EXPECT_EQ(module.Symbol("no such symbol"), nullptr);
  const LoadedModule moved = std::move(module);
  EXPECT_NE(moved.Symbol("cos"), nullptr);
  EXPECT_EQ(module.Symbol("cos"), nullptr);
  EXPECT_FALSE(LoadedModule::Load("/nowhere/libabsent.so", error));
  EXPECT_NE(error.find("/nowhere/libabsent.so"), std::string::npos) << error;
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
