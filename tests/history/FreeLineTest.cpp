// What history does without the line: questions that no meter is needed for, and the message of a request that failed.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <future>

#include "tests/history/HistoryChannel.h"

namespace ostrel::test {
namespace {

using ::testing::ElementsAre;

/// Notes how many lines the event log has each time that the line is let go of.
class NotingProtocol final : public CProtocol {
 public:
  std::uint32_t STDMETHODCALLTYPE LockExchange() override {
    ++depth_;
    return CProtocol::LockExchange();
  }
  std::uint32_t STDMETHODCALLTYPE UnlockExchange() override {
    if (--depth_ == 0 && channel != nullptr) lines.push_back(channel->LogLines().size());
    return CProtocol::UnlockExchange();
  }

  SimulatedChannel* channel = nullptr;
  std::vector<std::size_t> lines;

 private:
  int depth_ = 0;
};

TEST(FreeLine, WhatNeedsNoMeterDoesNotWaitForTheLine) {
  HistoryChannel history(1);
  ASSERT_EQ(1U, history.List(kMain, "2026-11-22 10:30", "2026-11-22 11:00").count);
  history.Protocol().LockExchange();
  auto asked = std::async(std::launch::async, [&history] {
    std::uint32_t period = 0;
    EXPECT_EQ(kGood, history.Read(kMain, "2026-11-22 10:30").value.Quality);
    EXPECT_EQ(2, history.Protocol().GetHistoryInterval(40000, 0, &period));
    history.Entry().ExchangeOn = 0;
    EXPECT_EQ(0U, history.List(kMain, "2026-11-22 10:30", "2026-11-22 11:00").result);
    EXPECT_EQ(0U, history.Check(40000, "2026-11-22"));
  });
  EXPECT_EQ(std::future_status::ready, asked.wait_for(std::chrono::seconds(20)));
  history.Protocol().UnlockExchange();
}

TEST(FreeLine, AFailureIsWrittenWhenTheLineIsFree) {
  auto* const protocol = new NotingProtocol;
  HistoryChannel history(1, "", {.retries = 1, .protocol = protocol});
  history.Silence("");
  protocol->channel = &history;
  EXPECT_EQ(0U, history.List(kMain, "2026-11-22", "2026-11-23").result);
  EXPECT_EQ(0U, history.Read(40000, "2026-11-22").result);
  EXPECT_THAT(protocol->lines, ElementsAre(0U, 1U)) << "each message follows its own request's line";
  protocol->channel = nullptr;
}

}  // namespace
}  // namespace ostrel::test
