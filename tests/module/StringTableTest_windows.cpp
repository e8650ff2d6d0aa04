// Texts come in code page 1251 whatever the system speaks. The script that runs the tests says which code page it has set
// up, so that no run passes under another one than it means.
#include <cstdlib>

#include "tests/module/BuiltModule.h"

namespace ostrel::test {
namespace {

class StringTable : public BuiltModule {
 protected:
  static std::uint32_t Describe(void* browser, std::uint32_t index, char* text) {
    return CallSlot<std::uint32_t, std::uint32_t, std::uint32_t, char*>(browser, 7, index, 0, text);
  }
};

TEST_F(StringTable, SpeaksCodePage1251UnderAnySystem) {
  const char* const codePage = std::getenv("OSTREL_EXPECTED_CODE_PAGE");
  ASSERT_NE(nullptr, codePage) << "OSTREL_EXPECTED_CODE_PAGE is not set";
  ASSERT_EQ(codePage, std::to_string(::GetACP()));
  void* const protocol = NewProtocol();
  void* const browser = Face(protocol, IID_IBrowser);
  char text[260] = {};
  EXPECT_EQ(1u, Describe(browser, 211, text));
  EXPECT_STREQ("\xCE\xE1\xEC\xE5\xED", text);  // Обмен
  EXPECT_EQ(0u, Describe(browser, 65536 + 211, text)) << "ids have 16 bits in the table, and are not cut to them";
  EXPECT_STREQ("", text);
  CallSlot<ULONG>(browser, 2);
  CallSlot<ULONG>(protocol, 2);
}

}  // namespace
}  // namespace ostrel::test
