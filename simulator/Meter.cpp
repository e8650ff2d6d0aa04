#include "simulator/Meter.h"

#include <algorithm>

#include "simulator/Bytes.h"
#include "simulator/MeterReads.h"
#include "simulator/MeterWrites.h"

namespace ostrel::sim {
namespace {

constexpr std::uint8_t kTest = 0x00;
constexpr std::uint8_t kOpenChannel = 0x01;
constexpr std::uint8_t kWrite = 0x03;
constexpr std::uint8_t kParameter = 0x08;
constexpr std::size_t kPasswordBytes = 6;

std::vector<std::uint8_t> StatusReply(Status status) { return {static_cast<std::uint8_t>(status)}; }

/// Passwords shorter than six characters are filled up with zeros.
bool PasswordFits(std::span<const std::uint8_t> sent, const std::string& password) {
  for (std::size_t i = 0; i < kPasswordBytes; ++i) {
    const std::uint8_t wanted = i < password.size() ? static_cast<std::uint8_t>(password[i]) : 0;
    if (sent[i] != wanted) return false;
  }
  return true;
}

bool StartsSearch(std::span<const std::uint8_t> parameters) { return !parameters.empty() && parameters[0] == 0x28; }

bool AsksForResult(std::span<const std::uint8_t> parameters) {
  return parameters.size() == 2 && parameters[0] == 0x18 && parameters[1] == 0;
}

}  // namespace

Meter::Meter(const MeterSpec& spec, std::uint64_t seed)
    : spec_(spec), model_(spec, seed), settings_(InitialSettings(spec)), clock_(spec) {}

MeterView Meter::View(std::int64_t utcMs) { return {spec_, model_, settings_, clock_.Wall(), clock_.Now(utcMs)}; }

std::vector<std::uint8_t> Meter::Answer(std::span<const std::uint8_t> request, std::int64_t utcMs) {
  if (spec_.silent || request.size() < 4 || request[0] != spec_.address || !CheckFits(request)) return {};
  if (!model_.HasPower(clock_.Now(utcMs))) return {};
  const Reply reply = ReplyTo(request[1], request.subspan(2, request.size() - 4), utcMs);
  std::vector<std::uint8_t> answer{request[0]};
  answer.insert(answer.end(), reply.begin(), reply.end());
  AppendCheck(answer);
  return answer;
}

Meter::Reply Meter::ReplyTo(std::uint8_t code, std::span<const std::uint8_t> parameters, std::int64_t utcMs) {
  if (code == kTest) return StatusReply(parameters.empty() ? Status::Done : Status::Unknown);
  if (code == kOpenChannel) return StatusReply(OpenChannel(parameters, utcMs));
  if (utcMs - last_request_ms_ > std::int64_t{1000} * spec_.channelTimeoutSeconds) open_level_ = 0;
  if (open_level_ == 0) return StatusReply(Status::ChannelClosed);
  last_request_ms_ = utcMs;
  if (const auto hesitation = Hesitation()) return StatusReply(*hesitation);
  Reply reply = Serve(code, parameters, utcMs);
  if (spec_.closesAfterEach) open_level_ = 0;
  return reply;
}

Meter::Reply Meter::Serve(std::uint8_t code, std::span<const std::uint8_t> parameters, std::int64_t utcMs) {
  if (IsUnknown(code, parameters)) return StatusReply(Status::Unknown);
  if (code == kWrite && StartsSearch(parameters)) return StatusReply(search_.Start(View(utcMs), parameters.subspan(1)));
  if (code == kParameter && AsksForResult(parameters)) return search_.Result();
  if (code == kWrite) return StatusReply(Write(parameters, utcMs));
  auto data = ReadData(View(utcMs), code, parameters);
  return data ? std::move(*data) : StatusReply(Status::Unknown);
}

Status Meter::OpenChannel(std::span<const std::uint8_t> password, std::int64_t utcMs) {
  if (password.size() != kPasswordBytes) return Status::Unknown;
  int level = 0;
  if (PasswordFits(password, spec_.password1)) level = 1;
  if (!spec_.password2.empty() && PasswordFits(password, spec_.password2)) level = 2;
  const bool open = utcMs - last_request_ms_ <= std::int64_t{1000} * spec_.channelTimeoutSeconds;
  if (spec_.keepsLevel && level == 2 && open && open_level_ == 1) return Status::LowLevel;
  if (level == 0) return Status::LowLevel;
  open_level_ = level;
  last_request_ms_ = utcMs;
  return Status::Done;
}

Status Meter::Write(std::span<const std::uint8_t> parameters, std::int64_t utcMs) {
  const int needed = spec_.password2.empty() ? 1 : 2;
  if (open_level_ < needed) return Status::LowLevel;
  return WriteParameter({model_.Type(), settings_, clock_, utcMs}, parameters);
}

bool Meter::IsUnknown(std::uint8_t code, std::span<const std::uint8_t> parameters) const {
  const auto& unknown = spec_.unknown;
  if (unknown.empty() || unknown[0] != code || unknown.size() - 1 > parameters.size()) return false;
  return std::equal(unknown.begin() + 1, unknown.end(), parameters.begin());
}

std::optional<Status> Meter::Hesitation() {
  ++requests_;
  if (spec_.refuseEvery != 0 && requests_ % spec_.refuseEvery == 0) return Status::Refused;
  if (spec_.busyEvery != 0 && requests_ % spec_.busyEvery == 0) return Status::Busy;
  return std::nullopt;
}

}  // namespace ostrel::sim
