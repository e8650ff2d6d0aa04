// The look-up in the compiled table of texts. On Windows they are resources, which the module's own tests read.
#include <gtest/gtest.h>

#include "platform/posix/string_table.h"
#include "platform/resources.h"

namespace ostrel::platform {

/// This program's own table, in the place of the generated one.
std::span<const StringTableEntry> CompiledStringTable() {
  static constexpr StringTableEntry kTable[] = {{3, "three"}, {300, "Нет ответа"}, {301, ""}, {65535, "last"}, {65836, "beyond"}};
  return kTable;
}

namespace {

TEST(StringTable, GivesCodePage1251TextCutToTheBuffer) {
  char buffer[16] = "untouched";
  for (const std::uint32_t absent : {0u, 4u, 301u, 65534u, 65836u, 300u + 65536u}) {
    EXPECT_FALSE(LoadModuleString(absent, buffer, sizeof buffer)) << absent;
    EXPECT_STREQ(buffer, "untouched");
  }
  ASSERT_TRUE(LoadModuleString(300, buffer, sizeof buffer));
  EXPECT_STREQ(buffer, "\xCD\xE5\xF2 \xEE\xF2\xE2\xE5\xF2\xE0");
  ASSERT_TRUE(LoadModuleString(300, buffer, 6));
  EXPECT_STREQ(buffer, "\xCD\xE5\xF2 \xEE");
  ASSERT_TRUE(LoadModuleString(65535, buffer, sizeof buffer));
  EXPECT_STREQ(buffer, "last");
  EXPECT_FALSE(LoadModuleString(300, buffer, 0));
}

}  // namespace
}  // namespace ostrel::platform
