// ostrel-host exchange: one raw frame through the plug-in, with the check appended.
#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <optional>

#include "host/program/Commands.h"
#include "host/program/Frame.h"
#include "host/session/Session.h"
#include "host/show/JsonLines.h"
#include "host/show/Output.h"
#include "host/show/WriteLog.h"

namespace ostrel::host {
namespace {

constexpr std::size_t kAnswerRoom = 300;

Config ConfigFor(const ExchangeOptions& options) {
  Config config = ReadConfig(options.common.config);
  std::vector<std::string> ports;
  for (ChannelConfig& channel : config.channels) {
    ports.push_back(channel.port);
    const bool wanted = options.channel.empty() ? config.channels.size() == 1 : channel.port == options.channel;
    if (!wanted) continue;
    ChannelConfig only = channel;
    config.channels = {only};
    return config;
  }
  throw Failure(kExitUsage, fmt::format("give --channel with one of {}", fmt::join(ports, ", ")));
}

/// Requests that only ask: test, open the channel, clock, energies, log records and parameters, archives and profiles by
/// address. Whatever else a meter may know is taken for a command.
bool IsKnownRead(const std::vector<std::uint8_t>& frame) {
  constexpr std::array<std::uint8_t, 8> kReadCodes = {0x00, 0x01, 0x04, 0x05, 0x06, 0x08, 0x09, 0x0A};
  return frame.size() >= 2 && std::find(kReadCodes.begin(), kReadCodes.end(), frame[1]) != kReadCodes.end();
}

/// Holds the line for one exchange.
class ExchangeGuard {
 public:
  explicit ExchangeGuard(IProtocol& protocol) : protocol_(protocol) { protocol_.LockExchange(); }
  ~ExchangeGuard() { protocol_.UnlockExchange(); }
  ExchangeGuard(const ExchangeGuard&) = delete;
  ExchangeGuard& operator=(const ExchangeGuard&) = delete;

 private:
  IProtocol& protocol_;
};

// Reads on as long as something comes and the check is not right, as an answer may arrive in pieces.
std::vector<std::uint8_t> Exchange(IProtocol& protocol, const std::vector<std::uint8_t>& frame) {
  const ExchangeGuard guard(protocol);
  std::array<std::uint8_t, kAnswerRoom> answer{};
  std::uint32_t received = 0;
  while (received < answer.size()) {
    std::uint32_t count = static_cast<std::uint32_t>(answer.size()) - received;
    if (protocol.TransmitAndRecieve(frame.data(), static_cast<std::uint32_t>(frame.size()), answer.data(), &count, received) == 0)
      break;
    received += count;
    if (HasRightCheck({answer.data(), received})) break;
  }
  return {answer.begin(), answer.begin() + received};
}

}  // namespace

ExitCode CommandExchange(const ExchangeOptions& options) {
  std::vector<std::uint8_t> frame = ParseHex(options.hex);
  const bool changes = !IsKnownRead(frame);
  if (changes && !options.allowWrites) {
    throw Failure(kExitUsage, "this request may change the meter, so it is not sent without --allow-writes");
  }
  const std::uint16_t check = platform::Crc16(frame);
  frame.push_back(static_cast<std::uint8_t>(check & 0xFFU));
  frame.push_back(static_cast<std::uint8_t>(check >> 8U));
  const Config config = ConfigFor(options);
  const Plugin plugin = Plugin::Load(options.common.module);
  const std::optional<WriteLog> log = changes ? std::optional<WriteLog>(config.writeLog) : std::nullopt;
  Session session(plugin, config, Session::Clocks::LeaveAlone);
  Channel& channel = *session.Channels().front();
  const std::vector<std::uint8_t> answer = Exchange(channel.Protocol(), frame);
  const std::string& port = channel.Config().port;
  if (log) log->AddFrame(port, HexText(frame), HexText(answer));
  const std::string problem = session.Services().PortProblem(port);
  if (!problem.empty()) throw Failure(kExitPort, port + ": " + problem);
  const bool right = HasRightCheck(answer);
  if (options.common.json) {
    Print(ExchangeJson(port, HexText(frame), HexText(answer), right) + '\n');
  } else {
    Print(fmt::format("sent      {}\nreceived  {}\n", HexText(frame), HexText(answer)));
  }
  if (answer.empty()) Complain(port + ": no answer");
  if (!answer.empty() && !right) Complain(port + ": the answer's check is wrong");
  return right ? kExitDone : kExitUnanswered;
}

}  // namespace ostrel::host
