// A channel with one simulated meter whose clock stands, and the history operations of a host.
//
// Unless a test says otherwise it is 20:00 on 2026-11-22, and the meter came into service at that day's midnight. It has records
// of half hours: the header of hour h lies at 24 h, its records behind it.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "platform/variant.h"
#include "tests/support/SimulatedChannel.h"

namespace ostrel::test {

using Texts = std::vector<std::string>;

/// As for UtcMs.
[[nodiscard]] FILETIME TimeAt(std::string_view text);
/// "2026-11-22 10:07:30.250", the milliseconds only when there are some.
[[nodiscard]] std::string TimeText(const FILETIME& time);

/// A+ of the first profile.
inline constexpr std::uint32_t kMain = 40108;
/// Readings of a day's begin, behind the profiles.
inline constexpr std::uint32_t kFirstReading = 40120;
inline constexpr std::uint32_t kGood = 0x000400C0;
inline constexpr std::uint32_t kBad = 0x00040000;
inline constexpr std::uint8_t kUntouched = 0xA5;
inline constexpr std::uint32_t kUntouchedWord = 0xA5A5A5A5;
/// An archive's answer behind the address: A+, A-, R+, R- of 2, 4, 6 and 8 kWh in half impulses of 5000 per kWh.
inline constexpr const char* kEnergies = "00 00 4E 20 00 00 9C 40 00 00 EA 60 00 01 38 80";

[[nodiscard]] HistoryItem ItemOf(std::uint32_t tag, std::uint32_t device = 0, std::uint8_t tariff = 0, std::uint32_t type = 1);
/// The operation by itself, with an interval of its own.
std::uint32_t ListTimes(IProtocol& protocol, std::uint32_t tag, std::uint32_t device, std::string_view start,
                        std::string_view end, TimestampList& list, std::uint32_t type = 1);

struct Listing {
  std::uint32_t result = 0;
  std::uint32_t count = 0;
  std::uint32_t period = 0;
  std::string start;  // as written back
  std::string end;
  Texts times;
};

struct Reading {
  std::uint32_t result = 0;
  HistoryValue value{};
};

class HistoryChannel : public OneMeterChannel {
 public:
  /// With the meter's information read and its constant known to be 5000.
  explicit HistoryChannel(std::uint32_t meterType, const std::string& more = "", const LineOptions& options = {.retries = 1});

  [[nodiscard]] Listing List(std::uint32_t tagId, std::string_view start, std::string_view end);
  /// Reads into a value that holds `kUntouched` in every byte.
  [[nodiscard]] Reading Read(std::uint32_t tagId, std::string_view time, std::uint8_t tariff = 1);
  [[nodiscard]] std::uint32_t Check(std::uint32_t tagId, std::string_view time);

  /// To every request that begins so: silence, or these bytes behind the address.
  void Silence(const std::string& request) { Line().ReplyAlways("01 " + request, ""); }
  void Answer(const std::string& request, const std::string& bytes) { Line().ReplyAlways("01 " + request, "01 " + bytes); }
  /// What the meter's clock shows: "2026-11-22 20:15:30".
  void ShowClock(const std::string& time);
  /// The requests since the last call that begin so, without the address.
  Texts Take(std::string_view start = "");

  std::uint32_t type;
};

[[nodiscard]] inline bool IsProfile(std::uint32_t tag) { return tag >= kMain && tag < kFirstReading; }

}  // namespace ostrel::test
