// What the same bytes cost a program that does nothing else: a write, a poll and a read for each exchange; and what a library of
// the same trade makes of its own bytes.
//
//   bench_peers replay DEVICE FRAMES ROUNDS QUIET_US   requests of a file, each with the length of its answer, over a device,
//   with
//                                             the quiet that the protocol asks for behind an answer
//   bench_peers modbus ROUNDS                 libmodbus and a bare loop in turns, with a peer of this program's own
//
// Prints "NAME EXCHANGES CPU_MICROSECONDS" for each.
#include <fcntl.h>
#include <modbus.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <functional>
#include <sstream>
#include <string>
#include <vector>

namespace {

using Bytes = std::vector<std::uint8_t>;

constexpr int kPatienceMs = 2000;
constexpr int kRegisters = 10;
constexpr std::size_t kModbusRequest = 8;
constexpr std::size_t kModbusAnswer = 5 + 2 * kRegisters;

struct Exchange {
  Bytes request;
  std::size_t answerBytes;
};

[[noreturn]] void Fail(const char* what) {
  std::perror(what);
  std::exit(1);
}

void SetRaw(int terminal) {
  termios settings{};
  tcgetattr(terminal, &settings);
  cfmakeraw(&settings);
  settings.c_cc[VMIN] = 0;
  settings.c_cc[VTIME] = 0;
  tcsetattr(terminal, TCSANOW, &settings);
}

void Ask(int line, const Exchange& exchange) {
  std::uint8_t buffer[512];
  if (write(line, exchange.request.data(), exchange.request.size()) < 0) Fail("write");
  for (std::size_t got = 0; got < exchange.answerBytes;) {
    pollfd waited{.fd = line, .events = POLLIN, .revents = 0};
    if (poll(&waited, 1, kPatienceMs) <= 0) Fail("no answer");
    const ssize_t count = read(line, buffer, sizeof buffer);
    if (count <= 0) Fail("read");
    got += static_cast<std::size_t>(count);
  }
}

double CpuMicroseconds() {
  rusage used{};
  getrusage(RUSAGE_SELF, &used);
  const auto whole = static_cast<double>(used.ru_utime.tv_sec + used.ru_stime.tv_sec);
  return whole * 1e6 + static_cast<double>(used.ru_utime.tv_usec + used.ru_stime.tv_usec);
}

double CpuOf(const std::function<void()>& work) {
  const double before = CpuMicroseconds();
  work();
  return CpuMicroseconds() - before;
}

std::vector<Exchange> ReadFrames(const char* path) {
  std::vector<Exchange> exchanges;
  std::ifstream file(path);
  for (std::string text; std::getline(file, text);) {
    std::istringstream line(text);
    Exchange& exchange = exchanges.emplace_back();
    line >> exchange.answerBytes >> std::hex;
    for (unsigned byte = 0; line >> byte;) exchange.request.push_back(static_cast<std::uint8_t>(byte));
  }
  return exchanges;
}

/// Until the line has been quiet for so long; what comes meanwhile is nobody's.
void KeepQuiet(int line, int microseconds) {
  pollfd waited{.fd = line, .events = POLLIN, .revents = 0};
  const timespec quiet{.tv_sec = 0, .tv_nsec = microseconds * 1000L};
  if (ppoll(&waited, 1, &quiet, nullptr) != 0) Fail("a byte that nobody asked for");
}

int Replay(const char* device, const char* frames, int rounds, int quietUs) {
  const int line = open(device, O_RDWR | O_NOCTTY);
  if (line < 0) Fail(device);
  SetRaw(line);
  const std::vector<Exchange> exchanges = ReadFrames(frames);
  prctl(PR_SET_TIMERSLACK, 1UL);
  const double cpu = CpuOf([&] {
    for (int round = 0; round < rounds; ++round) {
      for (const Exchange& exchange : exchanges) {
        Ask(line, exchange);
        if (quietUs != 0) KeepQuiet(line, quietUs);
      }
    }
  });
  std::printf("bare %zu %.0f\n", exchanges.size() * static_cast<std::size_t>(rounds), cpu);
  return 0;
}

/// Answers every request with the same registers until its end of the line is closed.
[[noreturn]] void AnswerModbus(int line) {
  Bytes answer = {1, 3, 2 * kRegisters};
  answer.resize(kModbusAnswer - 2);
  std::uint32_t check = 0xFFFF;
  for (const std::uint8_t byte : answer) {
    check ^= byte;
    for (int bit = 0; bit < 8; ++bit) check = (check & 1U) != 0 ? (check >> 1U) ^ 0xA001U : check >> 1U;
  }
  answer.push_back(static_cast<std::uint8_t>(check));
  answer.push_back(static_cast<std::uint8_t>(check >> 8U));
  std::uint8_t request[64];
  for (std::size_t got = 0;;) {
    const ssize_t count = read(line, request, sizeof request);
    if (count <= 0) _exit(0);
    got += static_cast<std::size_t>(count);
    if (got < kModbusRequest) continue;
    got = 0;
    if (write(line, answer.data(), answer.size()) < 0) _exit(0);
  }
}

double CpuOfModbus(modbus_t* client, int rounds) {
  return CpuOf([&] {
    std::uint16_t registers[kRegisters];
    for (int round = 0; round < rounds; ++round) {
      if (modbus_read_registers(client, 0, kRegisters, registers) != kRegisters) Fail("modbus");
    }
  });
}

int Modbus(int rounds) {
  const int controller = posix_openpt(O_RDWR | O_NOCTTY);
  if (controller < 0 || grantpt(controller) != 0 || unlockpt(controller) != 0) Fail("pseudo-terminal");
  const std::string name = ptsname(controller);
  const int terminal = open(name.c_str(), O_RDWR | O_NOCTTY);
  SetRaw(terminal);
  const pid_t peer = fork();
  if (peer == 0) AnswerModbus(controller);
  modbus_t* const client = modbus_new_rtu(name.c_str(), 115200, 'N', 8, 1);
  modbus_set_slave(client, 1);
  if (modbus_connect(client) != 0) Fail("connect");
  const Exchange same{.request = {1, 3, 0, 0, 0, kRegisters, 0xC5, 0xCD}, .answerBytes = kModbusAnswer};
  const double library = CpuOfModbus(client, rounds);
  const double bare = CpuOf([&] {
    for (int round = 0; round < rounds; ++round) Ask(terminal, same);
  });
  modbus_close(client);
  modbus_free(client);
  kill(peer, SIGTERM);
  waitpid(peer, nullptr, 0);
  std::printf("libmodbus %d %.0f\nlibmodbus_bare %d %.0f\n", rounds, library, rounds, bare);
  return 0;
}

}  // namespace

int main(int count, char** arguments) {
  const std::string what = count > 1 ? arguments[1] : "";
  if (what == "replay" && count == 6) return Replay(arguments[2], arguments[3], std::atoi(arguments[4]), std::atoi(arguments[5]));
  if (what == "modbus" && count == 3) return Modbus(std::atoi(arguments[2]));
  std::fprintf(stderr, "usage: bench_peers replay DEVICE FRAMES ROUNDS QUIET_US | modbus ROUNDS\n");
  return 2;
}
