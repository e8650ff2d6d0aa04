// The serial device on a real pseudo-terminal.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <termios.h>
#include <unistd.h>

#include <filesystem>
#include <memory>

#include "host/ports/Devices.h"
#include "host/ports/SerialStream.h"
#include "tests/support/Hex.h"
#include "tests/support/TemporaryFolder.h"

namespace ostrel::host {
namespace {

using test::Bytes;

class PseudoTerminal {
 public:
  PseudoTerminal() : master_(posix_openpt(O_RDWR | O_NOCTTY)) {
    EXPECT_EQ(0, grantpt(master_));
    EXPECT_EQ(0, unlockpt(master_));
    char name[128] = {};
    EXPECT_EQ(0, ptsname_r(master_, name, sizeof name));
    path_ = name;
  }
  PseudoTerminal(const PseudoTerminal&) = delete;
  PseudoTerminal& operator=(const PseudoTerminal&) = delete;
  ~PseudoTerminal() { Close(); }

  void Close() {
    if (master_ >= 0) close(master_);
    master_ = -1;
  }
  [[nodiscard]] const std::string& Path() const { return path_; }
  void Write(const Bytes& bytes) const {
    EXPECT_EQ(static_cast<ssize_t>(bytes.size()), write(master_, bytes.data(), bytes.size()));
  }
  [[nodiscard]] Bytes Read(std::size_t size) const {
    Bytes bytes(size);
    bytes.resize(static_cast<std::size_t>(std::max<ssize_t>(0, read(master_, bytes.data(), size))));
    return bytes;
  }
  [[nodiscard]] termios Settings() const {
    termios settings = {};
    EXPECT_EQ(0, tcgetattr(master_, &settings));
    return settings;
  }

 private:
  int master_;
  std::string path_;
};

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

TEST(SerialStream, EveryByteGoesThroughUnchanged) {
  PseudoTerminal terminal;
  const auto stream = Open(terminal.Path());
  ASSERT_TRUE(stream->SetMode({.baud = 4800, .parity = Parity::Even}));
  EXPECT_TRUE(stream->Send(kAwkwardBytes.data(), kAwkwardBytes.size()));
  EXPECT_EQ(kAwkwardBytes, terminal.Read(64));
  terminal.Write(kAwkwardBytes);
  EXPECT_EQ(kAwkwardBytes, ReceiveAll(*stream, kAwkwardBytes.size()));
  EXPECT_FALSE(stream->Failed());
}

TEST(SerialStream, SpeedIsSet) {
  PseudoTerminal terminal;
  const auto stream = Open(terminal.Path());
  for (const auto& [baud, code] : {std::pair(300U, B300), std::pair(9600U, B9600), std::pair(115200U, B115200)}) {
    EXPECT_TRUE(stream->SetMode({.baud = baud}));
    EXPECT_EQ(code, cfgetospeed(std::make_unique<termios>(terminal.Settings()).get())) << baud;
  }
  EXPECT_FALSE(stream->SetMode({.baud = 12345}));
}

TEST(SerialStream, NothingComesWithinTheWait) {
  PseudoTerminal terminal;
  const auto stream = Open(terminal.Path());
  std::uint8_t byte = 0;
  EXPECT_EQ(0U, stream->Receive(&byte, 1, 0));
  EXPECT_EQ(0U, stream->Receive(&byte, 1, 5));
  EXPECT_FALSE(stream->Failed());
}

TEST(SerialStream, IsTakenAlone) {
  PseudoTerminal terminal;
  std::string error;
  {
    const auto stream = Open(terminal.Path());
    EXPECT_EQ(nullptr, OpenSerial(terminal.Path(), error));
    EXPECT_NE("", error);
  }
  EXPECT_NE(nullptr, OpenSerial(terminal.Path(), error)) << "free again after it was closed";
}

TEST(SerialStream, WhatIsNoSerialLineIsSaid) {
  test::TemporaryFolder folder;
  test::WriteBytes(folder.File("file"), "text");
  std::string error;
  EXPECT_EQ(nullptr, OpenSerial(folder.File("file"), error));
  EXPECT_EQ(folder.File("file") + ": not a serial line", error);
  EXPECT_EQ(nullptr, OpenSerial(folder.File("none"), error));
  EXPECT_EQ(folder.File("none") + ": No such file or directory", error);
}

TEST(SerialStream, VanishedDeviceFailsAndANewOneBehindTheSameNameWorks) {
  test::TemporaryFolder folder;
  const std::string link = folder.File("line");
  auto first = std::make_unique<PseudoTerminal>();
  std::filesystem::create_symlink(first->Path(), link);
  auto stream = Open(link);
  first->Write({1, 2});
  first.reset();
  // What had arrived may still be read; then the line has failed, at once and for good.
  std::uint8_t byte = 0;
  for (int i = 0; i < 3 && !stream->Failed(); ++i) (void)stream->Receive(&byte, 1, 1000);
  EXPECT_TRUE(stream->Failed());
  EXPECT_FALSE(stream->Send(&byte, 1));
  stream.reset();

  PseudoTerminal second;
  std::filesystem::remove(link);
  std::filesystem::create_symlink(second.Path(), link);
  stream = Open(link);
  second.Write({3, 4});
  EXPECT_EQ((Bytes{3, 4}), ReceiveAll(*stream, 2));
}

TEST(SerialStream, DeviceThatTakesNothingCannotHoldTheSender) {
  PseudoTerminal terminal;
  const int stopper = open(terminal.Path().c_str(), O_RDWR | O_NOCTTY);
  const auto stream = Open(terminal.Path());
  ASSERT_EQ(0, tcflow(stopper, TCOOFF));
  EXPECT_FALSE(stream->Send(kAwkwardBytes.data(), kAwkwardBytes.size()));
  EXPECT_TRUE(stream->Failed());
  tcflow(stopper, TCOON);
  close(stopper);
}

struct DeviceCase {
  const char* text;
  const char* problem;
};

TEST(Devices, TextsAreChecked) {
  constexpr const char* kTcp = "must be tcp:HOST:PORT with a port number from 1 to 65535";
  const DeviceCase cases[] = {
      {"/dev/ttyUSB0", ""},      {"simulated", ""},       {"tcp:gateway:4001", ""},
      {"tcp:[::1]:4001", ""},    {"", "is empty"},        {"tcp:gateway", kTcp},
      {"tcp::4001", kTcp},       {"tcp:gateway:0", kTcp}, {"tcp:gateway:65536", kTcp},
      {"tcp:gateway:40x", kTcp},
  };
  for (const DeviceCase& row : cases) EXPECT_EQ(row.problem, CheckDeviceText(row.text)) << row.text;
}

}  // namespace
}  // namespace ostrel::host
