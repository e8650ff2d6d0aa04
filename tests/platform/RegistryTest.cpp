// Keys and texts of the registry, and identifiers as text.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "platform/guid_text.h"
#include "platform/registry.h"
#include "tests/module/RegistryForTest.h"

namespace ostrel::platform {
namespace {

/// Keys below one of the tests' own, so that on Windows nothing else is touched.
class Registry : public testing::Test {
 protected:
  ~Registry() override { DeleteRegistryTree("Ostrel.Test"); }

  test::RegistryForTest registry_;
};

TEST_F(Registry, KeepsSpellingIgnoresCaseAndDeletesSubtreesWithoutNeighbours) {
  EXPECT_FALSE(RegistryText("Ostrel.Test", ""));
  EXPECT_TRUE(DeleteRegistryTree("Ostrel.Test"));
  ASSERT_TRUE(SetRegistryText("Ostrel.Test\\Mixed", "Name", "text"));
  ASSERT_TRUE(SetRegistryText("ostrel.TEST\\MIXED", "nAME", "other"));
  EXPECT_EQ("other", RegistryText("OSTREL.test\\mixed", "NAME"));
  EXPECT_FALSE(RegistryText("OSTREL.test\\mixed", "none"));
  EXPECT_THAT(RegistrySubkeys("Ostrel.Test"), testing::ElementsAre("Mixed"));
  for (const char* key : {"Ostrel.Test\\A\\B\\C", "Ostrel.Test\\A\\D", "Ostrel.Test\\A-B", "Ostrel.Test\\AA"}) {
    ASSERT_TRUE(CreateRegistryKey(key)) << key;
  }
  ASSERT_TRUE(DeleteRegistryTree("Ostrel.Test\\a"));
  EXPECT_THAT(RegistrySubkeys("Ostrel.Test"), testing::UnorderedElementsAre("A-B", "AA", "Mixed"));
}

TEST_F(Registry, TextsComeBackAsTheyWere) {
  for (const char* text : {"", R"(C:\Программы\it's 100% = "x"\)", "two\nlines", "[not a key]", "=\\n\\\\"}) {
    ASSERT_TRUE(SetRegistryText("Ostrel.Test", "", text));
    EXPECT_EQ(text, RegistryText("Ostrel.Test", ""));
  }
}

TEST(GuidText, BothWays) {
  constexpr GUID kGuid = {0x09590E5C, 0x2B82, 0x4C8C, {0xA6, 0xCD, 0x17, 0x56, 0xBA, 0x3A, 0x8D, 0x0F}};
  EXPECT_EQ("{09590E5C-2B82-4C8C-A6CD-1756BA3A8D0F}", GuidToText(kGuid));
  const auto read = GuidFromText("{09590e5c-2b82-4C8c-a6CD-1756BA3a8d0f}");
  EXPECT_TRUE(read && SameGuid(*read, kGuid));
  for (const char* text : {"", "09590E5C-2B82-4C8C-A6CD-1756BA3A8D0F", "{09590E5C-2B82-4C8C-A6CD-1756BA3A8D0F",
                           "{09590E5C-2B82-4C8C-A6CD-1756BA3A8D0G}", "{09590E5C+2B82-4C8C-A6CD-1756BA3A8D0F}"}) {
    EXPECT_FALSE(GuidFromText(text)) << text;
  }
}

}  // namespace
}  // namespace ostrel::platform
