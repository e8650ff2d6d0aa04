#include <gtest/gtest.h>

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

}  // namespace
}  // namespace ostrel::platform
