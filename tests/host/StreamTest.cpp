// The streams: the serial device on a real pseudo-terminal, TCP against a socket of our own.
#include <dlfcn.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <termios.h>
#include <unistd.h>

#include <asio/ip/tcp.hpp>
#include <asio/read.hpp>
#include <asio/write.hpp>
#include <memory>

#include "host/ports/Devices.h"
#include "host/ports/SerialStream.h"
#include "platform/pseudo_terminal.h"
#include "tests/support/Hex.h"
#include "tests/support/TemporaryFolder.h"

namespace {

termios lastSettings = {};

}  // namespace

/// In the place of the system's: a pseudo-terminal forgets its parity.
extern "C" int tcsetattr(int descriptor, int when, const termios* settings) noexcept {
  static const auto systems = reinterpret_cast<int (*)(int, int, const termios*)>(dlsym(RTLD_NEXT, "tcsetattr"));
  lastSettings = *settings;
  return systems(descriptor, when, settings);
}

namespace ostrel::host {
namespace {

using asio::ip::tcp;
using test::Bytes;

std::unique_ptr<ByteStream> Open(const std::string& path) {
  std::string error;
  auto stream = OpenSerial(path, error);
  EXPECT_NE(nullptr, stream) << error;
  return stream;
}

Bytes ReceiveAll(ByteStream& stream, std::size_t size) {
  Bytes bytes(size);
  std::size_t count = 0;
  while (count < size) {
    const std::size_t more = stream.Receive(bytes.data() + count, size - count, 1000);
    if (more == 0) break;
    count += more;
  }
  bytes.resize(count);
  return bytes;
}

// A terminal would swallow or change these: interrupt, end of file, flow control, line ends, backspace, parity marks.
const Bytes kAwkwardBytes = {0x03, 0x04, 0x0A, 0x0D, 0x11, 0x13, 0x1A, 0x7F, 0x00, 0xFF, 0xFF, 0x80};

class SerialStreamTest : public testing::Test {
 protected:
  SerialStreamTest() {
    std::string error;
    EXPECT_TRUE(terminal_.Open(path_, error)) << error;
  }

  const test::TemporaryFolder folder_;
  const std::string path_ = folder_.File("line");
  platform::PseudoTerminal terminal_;
};

TEST_F(SerialStreamTest, EveryByteGoesThroughUnchanged) {
  const auto stream = Open(path_);
  ASSERT_TRUE(stream->SetMode({.baud = 4800, .parity = Parity::Even}));
  EXPECT_TRUE(stream->Send(kAwkwardBytes.data(), kAwkwardBytes.size()));
  Bytes received(64);
  received.resize(terminal_.Read(received, std::chrono::seconds(10)));
  EXPECT_EQ(kAwkwardBytes, received);
  terminal_.Write(kAwkwardBytes);
  EXPECT_EQ(kAwkwardBytes, ReceiveAll(*stream, kAwkwardBytes.size()));
  std::uint8_t byte = 0;
  for (const std::uint32_t wait : {0U, 5U}) EXPECT_EQ(0U, stream->Receive(&byte, 1, wait));
  EXPECT_FALSE(stream->Failed());
}

TEST_F(SerialStreamTest, SpeedAndParityAreSet) {
  const struct {
    LineMode mode;
    speed_t speed;
    tcflag_t parity;
  } rows[] = {{{300, Parity::None}, B300, 0},
              {{9600, Parity::Even}, B9600, PARENB},
              {{9600, Parity::Odd}, B9600, PARENB | PARODD},
              {{9600, Parity::Mark}, B9600, PARENB | PARODD | CMSPAR},
              {{115200, Parity::Space}, B115200, PARENB | CMSPAR}};
  const auto stream = Open(path_);
  for (const auto& row : rows) {
    EXPECT_TRUE(stream->SetMode(row.mode));
    EXPECT_EQ(row.speed, cfgetospeed(&lastSettings)) << row.mode.baud;
    EXPECT_EQ(row.speed, cfgetispeed(&lastSettings)) << row.mode.baud;
    EXPECT_EQ(row.parity | CS8 | CREAD | CLOCAL, lastSettings.c_cflag & ~static_cast<tcflag_t>(CBAUD | HUPCL)) << row.mode.baud;
  }
  EXPECT_FALSE(stream->SetMode({.baud = 12345}));
}

TEST_F(SerialStreamTest, SaysWhatCannotBeOpened) {
  test::WriteBytes(folder_.File("file"), "text");
  const auto problem = [](const std::string& path) {
    std::string error;
    return OpenSerial(path, error) == nullptr ? error : "opened";
  };
  EXPECT_EQ(folder_.File("file") + ": not a serial line", problem(folder_.File("file")));
  EXPECT_EQ(folder_.File("none") + ": No such file or directory", problem(folder_.File("none")));
  {
    const auto stream = Open(path_);
    EXPECT_NE("opened", problem(path_)) << "taken alone";
  }
  EXPECT_EQ("opened", problem(path_)) << "free again";
}

TEST_F(SerialStreamTest, VanishedDeviceFailsAndANewOneBehindTheSameNameWorks) {
  auto stream = Open(path_);
  terminal_.Write(Bytes{1, 2});
  terminal_.Close();
  // What had arrived may still be read; then the line has failed, at once and for good.
  std::uint8_t byte = 0;
  for (int i = 0; i < 3 && !stream->Failed(); ++i) (void)stream->Receive(&byte, 1, 1000);
  EXPECT_TRUE(stream->Failed());
  EXPECT_FALSE(stream->Send(&byte, 1));
  stream.reset();
  std::string error;
  ASSERT_TRUE(terminal_.Open(path_, error)) << error;
  stream = Open(path_);
  terminal_.Write(Bytes{3, 4});
  EXPECT_EQ((Bytes{3, 4}), ReceiveAll(*stream, 2));
}

TEST_F(SerialStreamTest, DeviceThatTakesNothingCannotHoldTheSender) {
  const int stopper = open(path_.c_str(), O_RDWR | O_NOCTTY);
  const auto stream = Open(path_);
  ASSERT_EQ(0, tcflow(stopper, TCOOFF));
  EXPECT_FALSE(stream->Send(kAwkwardBytes.data(), kAwkwardBytes.size()));
  EXPECT_TRUE(stream->Failed());
  tcflow(stopper, TCOON);
  close(stopper);
}

TEST(TcpStream, TakesBytesBothWaysUntilTheOtherEndCloses) {
  asio::io_context context;
  tcp::acceptor acceptor{context, tcp::endpoint(asio::ip::address_v4::loopback(), 0)};
  const std::string device = "tcp:127.0.0.1:" + std::to_string(acceptor.local_endpoint().port());
  std::string error;
  const auto stream = DeviceOpener(device)(error);
  ASSERT_NE(nullptr, stream) << error;
  tcp::socket peer = acceptor.accept();
  const Bytes sent = {1, 2, 3};
  EXPECT_TRUE(stream->Send(sent.data(), sent.size()));
  Bytes received(3);
  asio::read(peer, asio::buffer(received));
  EXPECT_EQ(sent, received);

  Bytes buffer(8);
  EXPECT_EQ(0U, stream->Receive(buffer.data(), buffer.size(), 5));
  asio::write(peer, asio::buffer(sent));
  EXPECT_EQ(3U, stream->Receive(buffer.data(), buffer.size(), 1000));
  asio::write(peer, asio::buffer(sent));
  EXPECT_EQ(3U, stream->Receive(buffer.data(), buffer.size(), 1000)) << "a wait that was given up takes no bytes along";
  EXPECT_FALSE(stream->Failed());

  peer.close();
  EXPECT_EQ(0U, stream->Receive(buffer.data(), buffer.size(), 1000));
  EXPECT_TRUE(stream->Failed());
  EXPECT_FALSE(stream->Send(sent.data(), sent.size()));

  acceptor.close();
  EXPECT_EQ(nullptr, DeviceOpener(device)(error));
  EXPECT_EQ(device + ": Connection refused", error);
}

}  // namespace
}  // namespace ostrel::host
