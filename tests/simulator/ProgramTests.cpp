// ostrel-meter as its users start it: over a real pseudo-terminal and over TCP.
#include <arpa/inet.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include <filesystem>
#include <string>
#include <vector>

#include "platform/module.h"
#include "tests/support/Hex.h"
#include "tests/support/TemporaryFolder.h"

namespace ostrel::test {
namespace {

namespace fs = std::filesystem;

constexpr int kPatienceMs = 10000;

/// Bytes from a descriptor until `enough` says so, the other side ends, or nothing comes for long.
template <typename Enough>
std::string ReadUntil(int descriptor, Enough enough) {
  std::string text;
  char buffer[512];
  while (!enough(text)) {
    pollfd waiting{.fd = descriptor, .events = POLLIN, .revents = 0};
    if (poll(&waiting, 1, kPatienceMs) <= 0) break;
    const ssize_t count = read(descriptor, buffer, sizeof buffer);
    if (count <= 0) break;
    text.append(buffer, static_cast<std::size_t>(count));
  }
  return text;
}

class Program {
 public:
  explicit Program(std::vector<std::string> arguments) {
    const fs::path program = fs::path(platform::ProgramPath()).parent_path() / "ostrel-meter";
    int out[2];
    int err[2];
    EXPECT_EQ(pipe(out), 0);
    EXPECT_EQ(pipe(err), 0);
    arguments.insert(arguments.begin(), program.string());
    process_ = fork();
    if (process_ == 0) {
      dup2(out[1], STDOUT_FILENO);
      dup2(err[1], STDERR_FILENO);
      std::vector<char*> texts;
      for (std::string& argument : arguments) texts.push_back(argument.data());
      texts.push_back(nullptr);
      execv(texts[0], texts.data());
      _exit(127);
    }
    close(out[1]);
    close(err[1]);
    output_ = out[0];
    errors_ = err[0];
  }
  ~Program() {
    if (process_ > 0) Stop(SIGKILL);
    close(output_);
    close(errors_);
  }
  Program(const Program&) = delete;
  Program& operator=(const Program&) = delete;

  std::string FirstLine() {
    const std::string text = ReadUntil(output_, [](const std::string& so_far) { return so_far.ends_with('\n'); });
    return text.substr(0, text.find('\n'));
  }
  std::string Errors() {
    return ReadUntil(errors_, [](const std::string&) { return false; });
  }
  /// Exit code, or -1 when a signal ended it.
  int Wait() {
    int status = 0;
    waitpid(process_, &status, 0);
    process_ = -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }
  int Stop(int signal) {
    kill(process_, signal);
    return Wait();
  }

 private:
  pid_t process_ = -1;
  int output_ = -1;
  int errors_ = -1;
};

std::string Talk(int descriptor, const Bytes& request, std::size_t answerBytes) {
  EXPECT_EQ(write(descriptor, request.data(), request.size()), static_cast<ssize_t>(request.size()));
  const std::string answer = ReadUntil(descriptor, [=](const std::string& so_far) { return so_far.size() >= answerBytes; });
  return ToHex(Bytes(answer.begin(), answer.end()));
}

std::string TalkThrough(const std::string& path, const Bytes& request, std::size_t answerBytes) {
  const int terminal = open(path.c_str(), O_RDWR | O_NOCTTY);
  EXPECT_GE(terminal, 0) << path;
  const std::string answer = Talk(terminal, request, answerBytes);
  close(terminal);
  return answer;
}

TEST(MeterProgram, AnswersOverAPseudoTerminalThatUsersOpenAndClose) {
  const TemporaryFolder folder;
  const std::string path = folder.File("line");
  fs::create_symlink("/dev/pts/99999", path);  // left by one that was killed
  const std::string other = folder.File("other");
  Program program({"--line", "pty:" + path, "--line", "pty:" + other, "--seed", "1", "12:1", "13:8", "14:12"});
  ASSERT_EQ(program.FirstLine(), "ready " + path);
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(TalkThrough(path, Frame("0C 00"), 4), ToHex(Frame("0C 00")));
    EXPECT_EQ(TalkThrough(path, Frame("0D 01 30 30 30 30 30 30"), 4), ToHex(Frame("0D 00")));
    EXPECT_EQ(TalkThrough(path, Frame("0D 08 05"), 5), ToHex(Frame("0D 00 0D")));
  }
  EXPECT_EQ(TalkThrough(other, Frame("0D 08 05"), 4), ToHex(Frame("0D 05"))) << "a meter of its own";
  EXPECT_EQ(program.Stop(SIGTERM), 0);
  EXPECT_FALSE(fs::exists(fs::symlink_status(path)));
}

TEST(MeterProgram, GivesATerminalFreeThatItsUserHadToHimselfAlone) {
  const TemporaryFolder folder;
  const std::string path = folder.File("line");
  Program program({"--line", "pty:" + path, "12:1"});
  ASSERT_EQ(program.FirstLine(), "ready " + path);
  const int terminal = open(path.c_str(), O_RDWR | O_NOCTTY);
  ASSERT_EQ(ioctl(terminal, TIOCEXCL), 0);
  int exclusive = 1;
  for (int i = 0; i < 1000 && exclusive != 0; ++i) {
    usleep(10000);
    ASSERT_EQ(ioctl(terminal, TIOCGEXCL, &exclusive), 0);
  }
  close(terminal);
  EXPECT_EQ(exclusive, 0);
}

TEST(MeterProgram, ComesBackAfterAFailureOfItsPort) {
  const TemporaryFolder folder;
  const std::string path = folder.File("line");
  WriteBytes(folder.File("faults.toml"), "seed = 3\n[[fault]]\nkind = \"port-failure\"\nevery = 2\nms = 30\n");
  Program program({"--line", "pty:" + path, "--faults", folder.File("faults.toml"), "12:1"});
  ASSERT_EQ(program.FirstLine(), "ready " + path);
  EXPECT_EQ(TalkThrough(path, Frame("0C 00"), 4), ToHex(Frame("0C 00")));
  EXPECT_EQ(TalkThrough(path, Frame("0C 00"), 4), "") << "the terminal hangs up";
  for (int i = 0; i < 1000 && !fs::exists(path); ++i) usleep(10000);
  EXPECT_EQ(TalkThrough(path, Frame("0C 00"), 4), ToHex(Frame("0C 00")));
  EXPECT_EQ(program.Stop(SIGINT), 0);
}

TEST(MeterProgram, ServesOneTcpClientAfterTheOther) {
  Program program({"--line", "tcp:0", "12:1"});
  const std::string ready = program.FirstLine();
  ASSERT_TRUE(ready.starts_with("ready ")) << ready;
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(static_cast<std::uint16_t>(std::stoi(ready.substr(6))));
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  for (int i = 0; i < 2; ++i) {
    const int client = socket(AF_INET, SOCK_STREAM, 0);
    ASSERT_EQ(connect(client, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    EXPECT_EQ(Talk(client, Frame("0C 00"), 4), ToHex(Frame("0C 00")));
    EXPECT_EQ(Talk(client, Frame("0C 08 05"), 4), ToHex(Frame("0C 05")));
    close(client);
  }
  EXPECT_EQ(program.Stop(SIGTERM), 0);
}

TEST(MeterProgram, SaysWhatIsWrongAndHow) {
  const TemporaryFolder folder;
  const std::string plain = folder.File("plain");
  WriteBytes(plain, "not a link");
  const auto faults = [&](std::string_view name, std::string_view text) {
    WriteBytes(folder.File(name), text);
    return folder.File(name);
  };
  const struct {
    std::vector<std::string> arguments;
    int code;
    std::string_view message;
  } rows[] = {
      {{"12:1"}, 2, "--line"},
      {{"--line", "pty:x"}, 2, "METER"},
      {{"--line", "usb:x", "12:1"}, 2, "--line: \"usb:x\" is not pty:PATH, tcp:PORT or serial:DEVICE"},
      {{"--line", "tcp:70000", "12:1"}, 2, "\"70000\" is no port number"},
      {{"--line", "pty:x", "12:1", "12:8"}, 2, "12:8: address: another meter has it"},
      {{"--line", "pty:x", "12:1:ku=0"}, 2, "12:1:ku=0: ku: \"0\" is not 1..65535"},
      {{"--line", "pty:x", "--faults", folder.File("none"), "12:1"}, 2, "none"},
      {{"--line", "pty:x", "--faults", faults("a.toml", "\n[[fault]]\nkind = \"slow\"\n"), "12:1"},
       2,
       "a.toml:3: kind is no kind of fault"},
      {{"--line", "pty:x", "--faults", faults("b.toml", "seed = 1\n[[fault]]\nevery = 2\n"), "12:1"},
       2,
       "b.toml:2: kind is missing"},
      {{"--line", "pty:x", "--faults", faults("c.toml", "[[fault]]\nkind = \"late\"\nms = -1\n"), "12:1"},
       2,
       "c.toml:3: ms is not a number from 0 to"},
      {{"--line", "pty:x", "--faults", faults("d.toml", "sead = 1\n"), "12:1"}, 2, "d.toml:1: sead is not known here"},
      {{"--line", "pty:" + plain, "12:1"}, 4, plain},
      {{"--line", "pty:" + folder.File("no/such/folder"), "12:1"}, 4, "no/such/folder"},
      {{"--line", "serial:" + folder.File("no-device"), "12:1"}, 4, "no-device"},
  };
  for (const auto& row : rows) {
    Program program(row.arguments);
    const std::string message = program.Errors();
    EXPECT_EQ(program.Wait(), row.code) << message;
    EXPECT_NE(message.find(row.message), std::string::npos) << message;
  }
  EXPECT_EQ(ReadBytes(plain), "not a link");
}

}  // namespace
}  // namespace ostrel::test
