#include <gtest/gtest.h>

#include "tests/simulator/OneMeter.h"

namespace ostrel::test {
namespace {

constexpr std::string_view kOpenLevel2 = "01 73 65 63 72 65 74";  // "secret"
constexpr std::string_view kSetKu = "03 1B 00 64";

TEST(AccessChannel, ServesOnlyAfterTheRightPassword) {
  OneMeter one("1:1");
  EXPECT_EQ(one.Ask("00"), "00");
  EXPECT_EQ(one.Ask("08 05"), "05");
  EXPECT_EQ(one.Ask("01 31 31 31 31 31 31"), "03");
  EXPECT_EQ(one.Ask("08 05"), "05");
  EXPECT_EQ(one.Ask("01 30 30 30 30 30"), "01");
  one.Open();
  EXPECT_EQ(one.Ask("08 05"), "00 01");
  EXPECT_EQ(one.Ask("01 31 31 31 31 31 31"), "03");
  EXPECT_EQ(one.Ask("08 05"), "00 01") << "a wrong password leaves an open channel as it is";
}

TEST(AccessChannel, FillsShortPasswordsWithZeros) {
  OneMeter one("1:1:password1=ab");
  EXPECT_EQ(one.Ask("01 61 62 00 00 00 01"), "03");
  EXPECT_EQ(one.Ask("01 61 62 00 00 00 00"), "00");
}

TEST(AccessChannel, ClosesAfterAPauseWithoutRequests) {
  OneMeter one("1:1");
  one.Open();
  one.now += 240000;
  EXPECT_EQ(one.Ask("08 05"), "00 01");
  one.now += 240000;
  EXPECT_EQ(one.Ask("08 05"), "00 01") << "each request starts the pause afresh";
  one.now += 240001;
  EXPECT_EQ(one.Ask("08 05"), "05");
  one.now -= 240001;
  EXPECT_EQ(one.Ask("08 05"), "05");
}

TEST(AccessChannel, ClosesAfterEachRequestWhenToldSo) {
  OneMeter one("1:1:closed=each");
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(one.Ask("08 05"), "05");
    one.Open();
    EXPECT_EQ(one.Ask("08 05"), "00 01");
  }
}

TEST(AccessChannel, WritesNeedTheSecondLevelWhereThereIsOne) {
  OneMeter one("1:1:password2=secret");
  one.Open();
  EXPECT_EQ(one.Ask(kSetKu), "03");
  EXPECT_EQ(one.Ask("08 02").substr(0, 5), "00 01");
  EXPECT_EQ(one.Ask(kOpenLevel2), "00");
  EXPECT_EQ(one.Ask(kSetKu), "00");
  EXPECT_EQ(one.Ask("08 02").substr(0, 5), "00 64");
  one.Open();
  EXPECT_EQ(one.Ask(kSetKu), "03") << "an opening at level 1 gives level 2 up";
  OneMeter without("1:1");
  without.Open();
  EXPECT_EQ(without.Ask(kSetKu), "00");
  EXPECT_EQ(without.Ask("01 00 00 00 00 00 00"), "03") << "no second level, no empty password";
}

TEST(AccessChannel, BusyAndRefusedComeEveryNthTime) {
  OneMeter busy("1:1:busy=3:refuse=4");
  busy.Open();
  std::string answers;
  for (int i = 0; i < 8; ++i) answers += busy.Ask("08 05") + ",";
  EXPECT_EQ(answers, "00 01,00 01,06,0F,00 01,06,00 01,0F,");
}

}  // namespace
}  // namespace ostrel::test
