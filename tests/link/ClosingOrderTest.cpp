// What closes an exchange comes in an order of its own for each operation: the message is written when the log asks the
// clock, and at that moment the meter's link flag and the line's lock tell what has been done before.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Protocol/link/AccessChannel.h"
#include "Protocol/link/ExchangeEngine.h"
#include "tests/support/TestChannel.h"

namespace ostrel::test {
namespace {

using ::testing::ElementsAre;

class LockCounter final : public CProtocol {
 public:
  std::uint32_t STDMETHODCALLTYPE LockExchange() override {
    ++depth;
    return CProtocol::LockExchange();
  }
  std::uint32_t STDMETHODCALLTYPE UnlockExchange() override {
    --depth;
    return CProtocol::UnlockExchange();
  }
  std::uint32_t STDMETHODCALLTYPE TransmitAndRecieve(const std::uint8_t*, std::uint32_t, std::uint8_t*, std::uint32_t* count,
                                                     std::uint32_t) override {
    ++exchanges;
    *count = 0;
    return 0;
  }
  int depth = 0;
  int exchanges = 0;
};

class MessageClock final : public platform::Clock {
 public:
  MessageClock(TestChannel& channel, LockCounter& protocol) : channel_(channel), protocol_(protocol) {
    platform::ReplaceClock(this);
  }
  ~MessageClock() { platform::ReplaceClock(&channel_.Clock()); }

  std::uint32_t TickCount() override { return channel_.Clock().TickCount(); }
  void Sleep(std::uint32_t milliseconds) override { channel_.Clock().Sleep(milliseconds); }
  std::int64_t UtcMilliseconds() override {
    const std::string link = protocol_.Device(0)->LinkDown != 0 ? "link down" : "link unknown";
    messages.push_back(link + (protocol_.depth > 0 ? ", locked" : ", free"));
    return channel_.Clock().UtcMilliseconds();
  }
  std::vector<std::string> messages;

 private:
  TestChannel& channel_;
  LockCounter& protocol_;
};

struct Scene {
  LockCounter* protocol = new LockCounter;
  TestChannel channel{{.retries = 2}, protocol};
  const std::uint32_t meter = channel.AddMeter(12, 1);
  MessageClock clock{channel, *protocol};
};

TEST(ClosingOrder, ATransactionFreesTheLineBeforeItsMessage) {
  Scene scene;
  scene.protocol->Running = 1;
  std::uint8_t answer[19];
  const Bytes request = Frame("0C 05 00 00");
  EXPECT_EQ(0U, ExecuteRequest(*scene.protocol, 0, request.data(), 6, answer, sizeof answer));
  EXPECT_THAT(scene.clock.messages, ElementsAre("link down, free"));
  EXPECT_EQ(2, scene.protocol->exchanges) << "the exchange goes through the object's own table";
}

TEST(ClosingOrder, AChannelOpeningReportsBeforeItsLinkState) {
  Scene scene;
  scene.protocol->LockExchange();
  EXPECT_EQ(0U, OpenChannel(*scene.protocol, 0, AccessLevel::Level1));
  scene.protocol->UnlockExchange();
  EXPECT_THAT(scene.clock.messages, ElementsAre("link unknown, locked"));
  EXPECT_EQ(1U, scene.channel.Entry(0).LinkDown);
}

}  // namespace
}  // namespace ostrel::test
