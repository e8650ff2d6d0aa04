// The host's tag: who uses it, who owns it, and its text.
#include <gtest/gtest.h>

#include "Protocol/model/CDeviceTag.h"
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

// Under the address sanitizer a second free or a leak fails these.
TEST(COPCTag, TextIsFreedOnceWithTheTag) {
  auto* const tag = new COPCTag;
  tag->Value.vt = VT_BSTR;
  tag->Value.bstrVal = platform::AllocString(u"текст", 5);
  tag->Destroy(1);
}

TEST(COPCTag, LastReleaseEndsTheTag) {
  auto* const tag = new COPCTag;
  tag->AddRef();
  tag->Release();
  EXPECT_EQ(1U, tag->References);
  tag->Release();
}

TEST(COPCTag, DerivedTagIsDestroyedThroughItsBase) {
  auto* const tag = new CDeviceTag;
  tag->Value.vt = VT_BSTR;
  tag->Value.bstrVal = platform::AllocString(u"1", 1);
  tag->FirstText = platform::AllocString(u"2", 1);
  static_cast<COPCTag*>(tag)->Destroy(1);
}

}  // namespace
}  // namespace ostrel
