#include <gtest/gtest.h>
#include <windows.h>

#include "platform/text.h"

namespace ostrel::platform {
namespace {

TEST(SystemPath, IsInTheSystemsCodePageOrNotAtAll) {
  if (::GetACP() != 1251) GTEST_SKIP() << "tested by the run of a system in Russian";
  EXPECT_EQ("C:\\\xE6\xF3\xF0\xED\xE0\xEB.log", Utf8ToSystemPath("C:\\журнал.log"));
  EXPECT_EQ(std::nullopt, Utf8ToSystemPath("C:\\日誌.log"));
  EXPECT_EQ(std::nullopt, Utf8ToSystemPath("C:\\naïve.log")) << "no letter stands for another";
}

}  // namespace
}  // namespace ostrel::platform
