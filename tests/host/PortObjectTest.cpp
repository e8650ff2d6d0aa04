// Port objects and their provider through the interfaces that the plug-in calls.
#include <gtest/gtest.h>

#include <memory>

#include "host/server/ObjectProvider.h"
#include "host/session/ComPointer.h"
#include "tests/host/FakeStream.h"

namespace ostrel::host {
namespace {

class PortObjectTest : public testing::Test {
 protected:
  PortObjectTest() {
    directory->Set("COM7", {.open = [this](std::string& error) -> std::unique_ptr<ByteStream> {
                              ++opened;
                              error = "unplugged";
                              if (unplugged) return nullptr;
                              line.failed = false;
                              return std::make_unique<FakeStream>(line);
                            },
                            .line = {.lateGuardMs = 0},
                            .observer =
                                [this](auto request, auto answer) {
                                  observed.emplace_back(Bytes(request.begin(), request.end()),
                                                        Bytes(answer.begin(), answer.end()));
                                }});
  }

  ComPointer<IPortObject> Create(std::uint32_t& cookie) {
    void* object = nullptr;
    EXPECT_EQ(S_OK, provider.CreatePortObject(kSerialPortKind, IID_IPortObject, &cookie, &object));
    return ComPointer<IPortObject>(static_cast<IPortObject*>(object));
  }

  ClockInPlace time;
  FakeLine line{.clock = time.clock};
  bool unplugged = false;
  int opened = 0;
  std::vector<std::pair<Bytes, Bytes>> observed;
  std::shared_ptr<PortDirectory> directory = std::make_shared<PortDirectory>();
  ObjectProvider provider{directory};
};

TEST_F(PortObjectTest, ProviderCountsCookiesAndReferences) {
  std::uint32_t cookie = 0;
  {
    const auto port = Create(cookie);
    EXPECT_NE(0U, cookie);
    EXPECT_EQ(1U, provider.OutstandingCookies());
    port->AddRef();
    EXPECT_EQ(1U, port->Release()) << "the caller's is the only reference";
    const auto io = port.Query<IPortIo>(IID_IPortIo);
    ASSERT_TRUE(io);
    const auto back = io.Query<IPortObject>(IID_IPortObject);
    EXPECT_EQ(port.Get(), back.Get());
    EXPECT_FALSE(port.Query<IUnknown>(IID_IClassFactory));
  }
  EXPECT_EQ(S_OK, provider.ReleasePortObject(cookie));
  EXPECT_EQ(0U, provider.OutstandingCookies());
  EXPECT_GE(provider.ReleasePortObject(cookie), 0) << "a cookie given back twice does nothing";
  EXPECT_GE(provider.ReleasePortObject(4711), 0);
}

TEST_F(PortObjectTest, ProviderGivesNothingForAnotherKindOrFace) {
  std::uint32_t cookie = 5;
  void* object = &cookie;
  EXPECT_LT(provider.CreatePortObject(11, IID_IPortObject, &cookie, &object), 0);
  EXPECT_EQ(nullptr, object);
  EXPECT_LT(provider.CreatePortObject(kSerialPortKind, IID_IClassFactory, &cookie, &object), 0);
  EXPECT_EQ(nullptr, object);
  EXPECT_EQ(0U, cookie);
  EXPECT_EQ(0U, provider.OutstandingCookies());
}

TEST_F(PortObjectTest, ExchangesAndReportsThem) {
  std::uint32_t cookie = 0;
  const auto port = Create(cookie);
  const auto io = port.Query<IPortIo>(IID_IPortIo);
  ASSERT_EQ(S_OK, port->Open(R"(\\.\COM7)"));
  EXPECT_EQ(S_OK, port->SetMode("baud=2400 data=8 parity=E stop=1"));
  EXPECT_EQ(2400U, line.modes.back().baud);
  EXPECT_EQ(Parity::Even, line.modes.back().parity);
  EXPECT_EQ(S_OK, port->SetBuffers(2000, 2000));
  EXPECT_EQ(S_OK, io->SetTimeouts(300, 20));
  EXPECT_NE(kPortFailed, io->GetState());

  line.Arrive(0, {0xEE});
  line.onSend = [this](const Bytes&) { line.Arrive(30, {0x0C, 0x00, 0x01, 0x02}); };
  EXPECT_EQ(S_OK, io->Read(nullptr, nullptr));
  EXPECT_EQ(S_OK, io->Write(nullptr, nullptr));
  const Bytes request = {0x0C, 0x00, 0xF4, 0x00};
  std::uint32_t length = 4;
  EXPECT_EQ(S_OK, io->Write(request.data(), &length));
  EXPECT_EQ(4U, length);
  Bytes answer(300);
  length = 300;
  EXPECT_EQ(S_OK, io->Read(answer.data(), &length));
  answer.resize(length);
  EXPECT_EQ((Bytes{0x0C, 0x00, 0x01, 0x02}), answer) << "stale input is gone";
  ASSERT_EQ(1U, observed.size());
  EXPECT_EQ(request, observed[0].first);
  EXPECT_EQ(answer, observed[0].second);
}

TEST_F(PortObjectTest, VanishedDeviceIsStateFourAndComesBack) {
  std::uint32_t cookie = 0;
  const auto port = Create(cookie);
  const auto io = port.Query<IPortIo>(IID_IPortIo);
  ASSERT_EQ(S_OK, port->Open(R"(\\.\COM7)"));
  line.failed = true;
  // Results below zero would keep the plug-in from asking for the state.
  EXPECT_EQ(S_OK, io->Read(nullptr, nullptr));
  EXPECT_EQ(S_OK, io->Write(nullptr, nullptr));
  const Bytes request = {1, 2};
  std::uint32_t length = 2;
  EXPECT_EQ(S_OK, io->Write(request.data(), &length));
  EXPECT_EQ(0U, length);
  std::uint8_t answer[4] = {};
  length = 4;
  EXPECT_EQ(S_OK, io->Read(answer, &length));
  EXPECT_EQ(0U, length);
  EXPECT_EQ(0, time.clock.Elapsed()) << "nothing is waited for on a dead line";
  EXPECT_EQ(kPortFailed, io->GetState());

  unplugged = true;
  EXPECT_LT(port->Open(R"(\\.\COM7)"), 0);
  EXPECT_EQ("unplugged", directory->Problem("COM7"));
  EXPECT_EQ(kPortFailed, io->GetState());
  unplugged = false;
  EXPECT_EQ(S_OK, port->Open(R"(\\.\COM7)"));
  EXPECT_EQ("", directory->Problem("COM7"));
  EXPECT_NE(kPortFailed, io->GetState());
}

TEST_F(PortObjectTest, RefusedModeSendsNothing) {
  std::uint32_t cookie = 0;
  const auto port = Create(cookie);
  const auto io = port.Query<IPortIo>(IID_IPortIo);
  ASSERT_EQ(S_OK, port->Open(R"(\\.\COM7)"));
  line.takesMode = false;
  EXPECT_LT(port->SetMode("baud=9600 data=8 parity=M stop=1"), 0);
  EXPECT_NE("", directory->Problem("COM7"));
  const Bytes request = {1, 2};
  std::uint32_t length = 2;
  (void)io->Write(request.data(), &length);
  EXPECT_TRUE(line.sent.empty());
  EXPECT_EQ(kPortFailed, io->GetState());
}

TEST_F(PortObjectTest, UnknownPortAndUseBeforeOpenFail) {
  std::uint32_t cookie = 0;
  const auto port = Create(cookie);
  const auto io = port.Query<IPortIo>(IID_IPortIo);
  EXPECT_LT(io->Read(nullptr, nullptr), 0);
  EXPECT_EQ(kPortFailed, io->GetState());
  EXPECT_LT(port->Open(R"(\\.\COM8)"), 0);
  EXPECT_NE("", directory->Problem("COM8"));
  EXPECT_EQ(0, opened);
}

TEST_F(PortObjectTest, ThrowingDeviceIsAFailedOpen) {
  directory->Set("COM9", {.open = [](std::string&) -> std::unique_ptr<ByteStream> { throw std::runtime_error("no sockets"); },
                          .line = {},
                          .observer = {}});
  std::uint32_t cookie = 0;
  const auto port = Create(cookie);
  EXPECT_LT(port->Open(R"(\\.\COM9)"), 0);
  EXPECT_EQ("no sockets", directory->Problem("COM9"));
}

}  // namespace
}  // namespace ostrel::host
