#include "host/program/TraceCopy.h"

#include <algorithm>
#include <charconv>
#include <optional>

#include "host/ports/FrameCheck.h"
#include "host/session/Failure.h"

namespace ostrel::host {
namespace {

constexpr std::uint8_t kOpenChannel = 0x01;
constexpr std::uint8_t kWrite = 0x03;
constexpr std::uint8_t kReads[] = {0x00, 0x04, 0x05, 0x06, 0x08, 0x09, 0x0A};
// Parameters that the plug-in writes; another one, in a frame that somebody sent by hand, may be a new password.
constexpr std::uint8_t kWritten[] = {0x07, 0x0C, 0x0D, 0x18, 0x1B, 0x1C, 0x28, 0x2F};
constexpr std::size_t kStatusAnswer = 4;
constexpr std::size_t kHead = 2;  // address and code
constexpr std::size_t kPassword = 6;

template <std::size_t Size>
bool IsOneOf(std::uint8_t byte, const std::uint8_t (&list)[Size]) {
  return std::find(std::begin(list), std::end(list), byte) != std::end(list);
}

// Nothing when it is not " 0C 01 ..." to its end.
std::optional<std::vector<std::uint8_t>> HexBytes(std::string_view text) {
  constexpr std::size_t kStep = 3;
  if (text.ends_with('\r')) text.remove_suffix(1);
  std::vector<std::uint8_t> bytes;
  for (; !text.empty(); text.remove_prefix(kStep)) {
    std::uint8_t byte = 0;
    if (text.size() < kStep || text[0] != ' ') return std::nullopt;
    if (std::from_chars(&text[1], &text[1] + 2, byte, 16).ptr != &text[1] + 2) return std::nullopt;
    bytes.push_back(byte);
  }
  return bytes;
}

// What follows the marker up to its '>', and the place behind that.
std::size_t BytesBehind(const std::string& line, std::string_view marker) {
  const std::size_t at = line.find(marker);
  const std::size_t end = at == std::string::npos ? at : line.find('>', at);
  return end == std::string::npos ? end : end + 1;
}

std::string Masked(const std::string& line, std::size_t from, std::size_t openBytes) {
  std::string text = line;
  std::size_t digits = 0;
  for (std::size_t i = from; i < text.size(); ++i) {
    if (text[i] == ' ' || text[i] == '\r') continue;
    if (digits++ / 2 >= openBytes) text[i] = '*';
  }
  return text;
}

}  // namespace

// How many bytes of a request may be shown.
std::size_t TraceCopy::OpenBytesOfWrite(const std::string& thread, const Bytes& frame) {
  const std::uint8_t code = frame.size() > kHead ? frame[1] : kOpenChannel;
  const bool open = IsOneOf(code, kReads) || (code == kWrite && IsOneOf(frame[2], kWritten));
  asked_[thread] = {.secret = !open, .address = frame.empty() ? std::uint8_t{0} : frame[0]};
  if (open) return frame.size();
  if (code == kOpenChannel && frame.size() >= kHead + kPassword) {
    secrets_.emplace(frame.begin() + kHead, frame.begin() + kHead + kPassword);
  }
  return kHead;
}

// An adapter may repeat the request, so that only the plain answer of the meter that was asked is shown after a secret one.
std::size_t TraceCopy::OpenBytesOfRead(const std::string& thread, const Bytes& bytes) const {
  const auto found = asked_.find(thread);
  const Asked asked = found == asked_.end() ? Asked{} : found->second;
  const bool plain = bytes.size() == kStatusAnswer && HasRightCheck(bytes) && bytes[0] == asked.address;
  if (asked.secret && !plain) return 0;
  const bool holdsSecret = std::any_of(secrets_.begin(), secrets_.end(), [&bytes](const Bytes& secret) {
    return std::search(bytes.begin(), bytes.end(), secret.begin(), secret.end()) != bytes.end();
  });
  return holdsSecret ? 0 : bytes.size();
}

std::string TraceCopy::Line(const std::string& line) {
  const std::string thread = line.substr(0, line.find('['));
  const std::size_t written = BytesBehind(line, "] Write<");
  const std::size_t read = written == std::string::npos ? BytesBehind(line, "] Read<") : std::string::npos;
  const std::size_t from = std::min(written, read);
  if (from == std::string::npos) return line;
  const auto bytes = HexBytes(std::string_view(line).substr(from));
  // A line that was torn is shown without its bytes.
  if (!bytes) return Masked(line, from, 0);
  return Masked(line, from, written != std::string::npos ? OpenBytesOfWrite(thread, *bytes) : OpenBytesOfRead(thread, *bytes));
}

}  // namespace ostrel::host
