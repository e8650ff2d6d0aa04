#include <gtest/gtest.h>

#include <utility>

#include "platform/module.h"
#include "platform/thread.h"

namespace ostrel::platform {
namespace {

std::uint32_t NoteOwnId(void* argument) {
  *static_cast<std::uint32_t*>(argument) = CurrentThreadId();
  return 0;
}

TEST(Thread, RunsWithTheIdentifierThatStartGave) {
  std::uint32_t id = 0;
  std::uint32_t seenInside = 0;
  const ThreadHandle thread = StartThread(NoteOwnId, &seenInside, id);
  ASSERT_NE(thread, nullptr);
  JoinThread(thread);
  EXPECT_NE(id, 0u);
  EXPECT_NE(id, CurrentThreadId());
  EXPECT_EQ(seenInside, id);
  JoinThread(nullptr);
}

TEST(Module, LoadsByPathAndFindsSymbols) {
  std::string error;
  LoadedModule module = LoadedModule::Load("libm.so.6", error);
  ASSERT_TRUE(module) << error;
  EXPECT_NE(module.Symbol("cos"), nullptr);
  EXPECT_EQ(module.Symbol("no such symbol"), nullptr);
  LoadedModule moved = std::move(module);
  EXPECT_TRUE(moved);
  EXPECT_FALSE(module);
  EXPECT_EQ(module.Symbol("cos"), nullptr);
}

TEST(Module, AFailedLoadSaysWhichFile) {
  std::string error;
  EXPECT_FALSE(LoadedModule::Load("/nowhere/libabsent.so", error));
  EXPECT_NE(error.find("/nowhere/libabsent.so"), std::string::npos) << error;
}

TEST(Module, ProgramAndModuleNames) {
  EXPECT_NE(ProgramPath().find("platform_tests"), std::string::npos) << ProgramPath();
  EXPECT_EQ(ModuleFileName("OstrelProtocol"), "libOstrelProtocol.so");
}

}  // namespace
}  // namespace ostrel::platform
