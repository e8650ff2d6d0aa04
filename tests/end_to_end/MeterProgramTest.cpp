// ostrel-meter as its users start it: over a real pseudo-terminal and over TCP.
#include <arpa/inet.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <termios.h>
#include <unistd.h>

#include <filesystem>

#include "tests/end_to_end/Programs.h"
#include "tests/support/Hex.h"
#include "tests/support/TableFile.h"

namespace ostrel::test {
namespace {

namespace fs = std::filesystem;

constexpr int kPatienceMs = 10000;

/// The answer's first bytes, or what came before the other side ended or was quiet for long.
std::string Talk(int descriptor, const Bytes& request, std::size_t answerBytes) {
  EXPECT_EQ(write(descriptor, request.data(), request.size()), static_cast<ssize_t>(request.size()));
  Bytes answer(answerBytes);
  std::size_t got = 0;
  pollfd waiting{.fd = descriptor, .events = POLLIN, .revents = 0};
  while (got < answerBytes && poll(&waiting, 1, kPatienceMs) > 0) {
    const ssize_t count = read(descriptor, answer.data() + got, answerBytes - got);
    if (count <= 0) break;
    got += static_cast<std::size_t>(count);
  }
  close(descriptor);
  return ToHex(std::span(answer).first(got));
}

class MeterProgram : public testing::Test {
 protected:
  /// What stands behind "ready" once the meters are.
  std::string Start(std::vector<std::string> arguments, const std::string& line) {
    arguments.insert(arguments.begin(), {"--line", line});
    program_ = std::make_unique<Background>("ostrel-meter", arguments, folder_.File("out"));
    EXPECT_TRUE(program_->WaitFor("\n")) << program_->Errors();
    return program_->Output();
  }
  int Open() const { return Open(path_); }
  static int Open(const std::string& path) {
    const int terminal = open(path.c_str(), O_RDWR | O_NOCTTY);
    EXPECT_GE(terminal, 0);
    return terminal;
  }
  int End(int signal) {
    program_->Signal(signal);
    return program_->Wait(10);
  }

  const TemporaryFolder folder_;
  const std::string path_ = folder_.File("line");
  std::unique_ptr<Background> program_;
};

TEST_F(MeterProgram, AnswersOverAPseudoTerminalThatUsersOpenAndClose) {
  fs::create_symlink("/dev/pts/99999", path_);  // left by one that was killed
  const std::string other = folder_.File("other");
  Start({"--line", "pty:" + other, "--seed", "1", "12:1", "13:8", "14:12"}, "pty:" + path_);
  ASSERT_TRUE(program_->WaitFor("ready " + path_ + "\nready " + other + "\n")) << program_->Output();
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(Talk(Open(), Frame("0C 00"), 4), ToHex(Frame("0C 00")));
    EXPECT_EQ(Talk(Open(), Frame("0D 01 30 30 30 30 30 30"), 4), ToHex(Frame("0D 00")));
    EXPECT_EQ(Talk(Open(), Frame("0D 08 05"), 5), ToHex(Frame("0D 00 0D")));
  }
  EXPECT_EQ(Talk(Open(other), Frame("0D 08 05"), 4), ToHex(Frame("0D 05"))) << "a meter of its own";
  EXPECT_EQ(End(SIGTERM), 0);
  EXPECT_FALSE(fs::exists(fs::symlink_status(path_)));
}

TEST_F(MeterProgram, GivesATerminalFreeThatItsUserHadToHimselfAlone) {
  Start({"12:1"}, "pty:" + path_);
  const int terminal = Open();
  ASSERT_EQ(ioctl(terminal, TIOCEXCL), 0);
  int exclusive = 1;
  for (int i = 0; i < 1000 && exclusive != 0; ++i) {
    usleep(10000);
    ASSERT_EQ(ioctl(terminal, TIOCGEXCL, &exclusive), 0);
  }
  close(terminal);
  EXPECT_EQ(exclusive, 0);
}

TEST_F(MeterProgram, ComesBackAfterAFailureOfItsPort) {
  WriteBytes(folder_.File("faults.toml"), "seed = 3\n[[fault]]\nkind = \"port-failure\"\nevery = 2\nms = 30\n");
  Start({"--faults", folder_.File("faults.toml"), "12:1"}, "pty:" + path_);
  EXPECT_EQ(Talk(Open(), Frame("0C 00"), 4), ToHex(Frame("0C 00")));
  EXPECT_EQ(Talk(Open(), Frame("0C 00"), 4), "") << "the terminal hangs up";
  for (int i = 0; i < 1000 && !fs::exists(path_); ++i) usleep(10000);
  EXPECT_EQ(Talk(Open(), Frame("0C 00"), 4), ToHex(Frame("0C 00")));
  EXPECT_EQ(End(SIGINT), 0);
}

TEST_F(MeterProgram, ServesOneTcpClientAfterTheOther) {
  const std::string ready = Start({"12:1"}, "tcp:0");
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(static_cast<std::uint16_t>(std::stoi(ready.substr(6))));
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  for (int i = 0; i < 2; ++i) {
    const int client = socket(AF_INET, SOCK_STREAM, 0);
    ASSERT_EQ(connect(client, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    EXPECT_EQ(Talk(client, Frame("0C 08 05"), 4), ToHex(Frame("0C 05")));
  }
}

TEST_F(MeterProgram, SaysWhatIsWrongAndHow) {
  const std::string plain = folder_.File("plain");
  WriteBytes(plain, "not a link");
  const auto inFolder = [&](std::string text) {
    const std::size_t at = text.find("FOLDER/");
    return at == std::string::npos ? text : text.replace(at, 7, folder_.File(""));
  };
  for (const TableRow& row : ReadTable("end_to_end/meter_mistakes.tsv", 5)) {
    WriteBytes(folder_.File("plan"), WithLineEnds(row[2]));
    std::vector<std::string> arguments = {"--faults", folder_.File("plan")};
    if (!row[0].empty()) arguments.insert(arguments.end(), {"--line", inFolder(row[0])});
    if (!row[1].empty()) {
      for (const std::string& meter : Split(row[1], ' ')) arguments.push_back(meter);
    }
    Background program("ostrel-meter", arguments, folder_.File("out"));
    EXPECT_EQ(program.Wait(10), std::stoi(row[3])) << row[4];
    EXPECT_NE(program.Errors().find(inFolder(row[4])), std::string::npos) << program.Errors();
  }
  EXPECT_EQ(ReadBytes(plain), "not a link");
}

}  // namespace
}  // namespace ostrel::test
