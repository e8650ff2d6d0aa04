// Port objects and their provider through the interfaces that the plug-in calls.
#include <gtest/gtest.h>

#include <memory>

#include "host/server/ObjectProvider.h"
#include "host/session/ComPointer.h"
#include "tests/host/FakeStream.h"
#include "tests/support/TableFile.h"

namespace ostrel::host {
namespace {

class PortObjectTest : public testing::Test {
 protected:
  PortObjectTest() {
    const auto open = [this](std::string& error) -> std::unique_ptr<ByteStream> {
      error = "unplugged";
      if (unplugged) return nullptr;
      line.failed = false;
      return std::make_unique<FakeStream>(line);
    };
    const auto observer = [this](auto request, auto answer) {
      observed.emplace_back(Bytes(request.begin(), request.end()), Bytes(answer.begin(), answer.end()));
    };
    directory->Set("COM7", {.open = open, .line = {.lateGuardMs = 0}, .observer = observer});
  }

  ComPointer<IPortObject> Create(std::uint32_t& cookie) {
    void* object = nullptr;
    EXPECT_EQ(S_OK, provider.CreatePortObject(kSerialPortKind, IID_IPortObject, &cookie, &object));
    return ComPointer<IPortObject>(static_cast<IPortObject*>(object));
  }
  void Open() {
    port = Create(cookie_);
    io = port.Query<IPortIo>(IID_IPortIo);
    ASSERT_EQ(S_OK, port->Open(R"(\\.\COM7)"));
  }
  /// How many bytes went.
  std::uint32_t Write(Bytes request) {
    auto length = static_cast<std::uint32_t>(request.size());
    EXPECT_EQ(S_OK, io->Write(request.data(), &length));
    return length;
  }
  Bytes Read() {
    Bytes answer(300);
    std::uint32_t length = 300;
    EXPECT_EQ(S_OK, io->Read(answer.data(), &length));
    answer.resize(length);
    return answer;
  }

  ClockInPlace time;
  FakeLine line{.clock = time};
  bool unplugged = false;
  std::vector<std::pair<Bytes, Bytes>> observed;
  std::shared_ptr<PortDirectory> directory = std::make_shared<PortDirectory>();
  ObjectProvider provider{directory};
  ComPointer<IPortObject> port;
  ComPointer<IPortIo> io;

 private:
  std::uint32_t cookie_ = 0;
};

TEST_F(PortObjectTest, ProviderCountsCookiesAndReferences) {
  std::uint32_t cookie = 0;
  {
    const auto mine = Create(cookie);
    EXPECT_NE(0U, cookie);
    EXPECT_EQ(1U, provider.OutstandingCookies());
    mine->AddRef();
    EXPECT_EQ(1U, mine->Release()) << "the caller's is the only reference";
    EXPECT_EQ(mine.Get(), mine.Query<IPortIo>(IID_IPortIo).Query<IPortObject>(IID_IPortObject).Get());
    EXPECT_FALSE(mine.Query<IUnknown>(IID_IClassFactory));
  }
  EXPECT_EQ(S_OK, provider.ReleasePortObject(cookie));
  EXPECT_EQ(0U, provider.OutstandingCookies());
  EXPECT_GE(provider.ReleasePortObject(cookie), 0) << "a cookie given back twice does nothing";
  EXPECT_GE(provider.ReleasePortObject(4711), 0);
  for (const auto& [kind, face] : {std::pair{11U, &IID_IPortObject}, {kSerialPortKind, &IID_IClassFactory}}) {
    void* object = &cookie;
    EXPECT_LT(provider.CreatePortObject(kind, *face, &cookie, &object), 0);
    EXPECT_EQ(nullptr, object);
    EXPECT_EQ(0U, cookie);
    EXPECT_EQ(0U, provider.OutstandingCookies());
  }
}

TEST_F(PortObjectTest, ExchangesAndReportsThem) {
  Open();
  EXPECT_EQ(S_OK, port->SetBuffers(2000, 2000));
  EXPECT_EQ(S_OK, io->SetTimeouts(300, 20));
  EXPECT_NE(kPortFailed, io->GetState());
  line.Arrive(0, {0xEE});
  line.onSend = [this](const Bytes&) { line.Arrive(30, {0x0C, 0x00, 0x01, 0x02}); };
  EXPECT_EQ(S_OK, io->Read(nullptr, nullptr));
  EXPECT_EQ(S_OK, io->Write(nullptr, nullptr));
  const Bytes request = {0x0C, 0x00, 0xF4, 0x00};
  EXPECT_EQ(4U, Write(request));
  const Bytes answer = Read();
  EXPECT_EQ((Bytes{0x0C, 0x00, 0x01, 0x02}), answer) << "stale input is gone";
  EXPECT_EQ((std::vector{std::pair(request, answer)}), observed);
}

TEST_F(PortObjectTest, SetsTheLineAsTheModeStringSays) {
  Open();
  for (const test::TableRow& row : test::ReadTable("host/line_modes.tsv", 2)) {
    line.modes.clear();
    EXPECT_EQ(row[1] != "-", port->SetMode(row[0].c_str()) == S_OK) << row[0];
    if (row[1] == "-") continue;
    const LineMode mode = line.modes.at(0);
    EXPECT_EQ(row[1], std::to_string(mode.baud) + " " + "NEOMS"[static_cast<std::size_t>(mode.parity)]);
  }
}

TEST_F(PortObjectTest, VanishedDeviceIsStateFourAndComesBack) {
  Open();
  line.failed = true;
  // Results below zero would keep the plug-in from asking for the state.
  EXPECT_EQ(S_OK, io->Read(nullptr, nullptr));
  EXPECT_EQ(S_OK, io->Write(nullptr, nullptr));
  EXPECT_EQ(0U, Write({1, 2}));
  EXPECT_EQ(Bytes(), Read());
  EXPECT_EQ(0, time.Elapsed()) << "nothing is waited for on a dead line";
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
  Open();
  line.takesMode = false;
  EXPECT_LT(port->SetMode("baud=9600 data=8 parity=M stop=1"), 0);
  EXPECT_NE("", directory->Problem("COM7"));
  std::uint32_t length = 2;
  (void)io->Write(Bytes{1, 2}.data(), &length);
  EXPECT_TRUE(line.sent.empty());
  EXPECT_EQ(kPortFailed, io->GetState());
}

TEST_F(PortObjectTest, UnknownUnopenedAndThrowingDevicesFail) {
  directory->Set("COM9", {.open = [](std::string&) -> std::unique_ptr<ByteStream> { throw std::runtime_error("no sockets"); },
                          .line = {},
                          .observer = {}});
  std::uint32_t cookie = 0;
  const auto other = Create(cookie);
  const auto state = other.Query<IPortIo>(IID_IPortIo);
  EXPECT_LT(state->Read(nullptr, nullptr), 0);
  EXPECT_EQ(kPortFailed, state->GetState());
  EXPECT_LT(other->Open(R"(\\.\COM8)"), 0);
  EXPECT_NE("", directory->Problem("COM8"));
  EXPECT_LT(other->Open(R"(\\.\COM9)"), 0);
  EXPECT_EQ("no sockets", directory->Problem("COM9"));
}

}  // namespace
}  // namespace ostrel::host
