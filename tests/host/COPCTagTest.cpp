// The host's tag: who uses it.
#include <gtest/gtest.h>

#include "host/server/COPCTag.h"

namespace ostrel {
namespace {

TEST(COPCTag, UsesAreCountedAndNeverBelowNone) {
  auto* const tag = new COPCTag;
  EXPECT_EQ(VT_EMPTY, tag->Value.vt);
  EXPECT_EQ(0, tag->InUse());
  tag->Unuse();
  EXPECT_EQ(0, tag->InUse());
  tag->Use();
  tag->Use();
  tag->Unuse();
  EXPECT_NE(0, tag->InUse());
  tag->Unuse();
  EXPECT_EQ(0, tag->InUse());
  tag->Destroy(1);
}

}  // namespace
}  // namespace ostrel
