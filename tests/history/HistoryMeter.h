// A meter with archives for the history tests: a clock, coefficients, energies and three load profiles in a memory whose
// hour blocks stand where a test puts them.
#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "platform/variant.h"
#include "tests/support/Hex.h"
#include "tests/support/TestChannel.h"

namespace ostrel::test {

using Texts = std::vector<std::string>;

/// "2026-11-22 10:07:30.250"; minutes, seconds and milliseconds may be left out.
[[nodiscard]] SYSTEMTIME FieldsAt(std::string_view text);
[[nodiscard]] FILETIME TimeAt(std::string_view text);
/// "2026-11-22 10:07:30.250", the milliseconds only when there are some.
[[nodiscard]] std::string TimeText(const FILETIME& time);

class HistoryMeter {
 public:
  explicit HistoryMeter(std::uint8_t meterAddress = 1) : address(meterAddress) {}

  /// The block of an hour ("2026-11-22 10") at an address of the memory.
  void AddHour(std::string_view hour, std::uint16_t header);
  /// Every hour between two has a block, one behind the other from address 0.
  void AddHours(std::string_view first, std::string_view last);
  [[nodiscard]] Bytes Answer(std::span<const std::uint8_t> request);

  std::uint8_t address;
  std::string clock = "2026-11-22 20:00:00";
  Bytes coefficients = Hex("00 01 00 01");
  std::array<std::uint8_t, 3> periods = {30, 30, 30};
  /// A+, A-, R+, R- of every energy archive.
  Bytes energies = Hex("00 00 4E 20 00 00 9C 40 00 00 EA 60 00 01 38 80");
  /// Eight bytes at an address, in place of the four words address / 8 and the next three.
  std::map<std::uint16_t, Bytes> records;
  int searchPolls = 0;             // polls answered with "still running" before each result
  std::uint8_t missingStatus = 2;  // of an hour that has no block
  /// Requests that begin so are not answered.
  std::string silentTo;

 private:
  [[nodiscard]] Bytes Payload(std::span<const std::uint8_t> request);
  [[nodiscard]] Bytes Parameter(std::span<const std::uint8_t> request);
  [[nodiscard]] Bytes SearchResult();
  [[nodiscard]] Bytes Record(std::uint16_t at) const;

  std::map<std::string, std::uint16_t> hours_;
  std::string searched_;
  int pollsLeft_ = 0;
};

/// A channel with one such meter, its information read and its constant known.
class HistoryChannel {
 public:
  explicit HistoryChannel(std::uint32_t type, const ChannelOptions& options = {.retries = 1});

  struct Listing {
    std::uint32_t result = 0;
    std::uint32_t count = 0;
    std::uint32_t period = 0;
    std::string start;  // as written back
    std::string end;
    Texts times;
  };
  [[nodiscard]] Listing List(std::uint32_t tagId, std::string_view start, std::string_view end);

  struct Reading {
    std::uint32_t result = 0;
    HistoryValue value{};
  };
  /// Reads into a value that holds `kUntouched` in every byte.
  [[nodiscard]] Reading Read(std::uint32_t tagId, std::string_view time, std::uint8_t tariff = 1);
  [[nodiscard]] std::uint32_t Check(std::uint32_t tagId, std::string_view time);

  [[nodiscard]] CProtocol& Protocol() { return channel.Protocol(); }
  [[nodiscard]] DeviceEntry& Entry() { return channel.Entry(device); }
  /// The requests since the last call, as text without checks.
  Texts TakeRequests();

  HistoryMeter meter;
  TestChannel channel;
  std::uint32_t type;
  std::uint32_t device;
};

/// The times of a listing as "10:30", oldest first.
[[nodiscard]] Texts Clocks(const HistoryChannel::Listing& listing);
/// Requests that begin so; hour searches and record reads among them.
[[nodiscard]] Texts Only(const Texts& requests, std::string_view start);
[[nodiscard]] inline Texts Searches(const Texts& requests) { return Only(requests, "01 03"); }
[[nodiscard]] inline Texts Records(const Texts& requests) { return Only(requests, "01 06"); }

/// A+ of the first profile.
inline constexpr std::uint32_t kMain = 40108;
inline constexpr std::uint32_t kGood = 0x000400C0;
inline constexpr std::uint32_t kBad = 0x00040000;
inline constexpr std::uint8_t kUntouched = 0xA5;
inline constexpr std::uint32_t kUntouchedWord = 0xA5A5A5A5;

}  // namespace ostrel::test
