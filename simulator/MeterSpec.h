// One simulated meter as a person writes it: `address:type[:key=value...]`, for example
// `12:1:ku=100:ki=20:busy=7`.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "simulator/MeterCalendar.h"

namespace ostrel::sim {

/// Where a frozen meter stands when its description names no time: a working day in the cold season.
inline constexpr MeterTime kUsualFrozenTime = 1795168800;  // 2026-11-20 10:00:00

struct MeterSpec {
  std::uint32_t address = 1;
  std::uint32_t type = 1;
  std::string password1 = "000000";
  std::string password2;  // empty: the meter has no second level
  std::optional<std::uint32_t> serial;
  std::string location;  // UTF-8; empty: made from the address
  std::optional<std::array<std::uint8_t, 3>> variant;
  std::uint16_t ku = 1;
  std::uint16_t ki = 1;
  std::int32_t offsetSeconds = 0;  // the meter's clock is ahead by this at its first request
  std::int32_t driftPpm = 0;       // and gains this from then on
  std::uint32_t channelTimeoutSeconds = 240;
  bool keepsLevel = false;            // while its channel is open at level 1 it refuses the password of level 2
  bool closesAfterEach = false;       // closes its channel after each request that it served
  std::uint32_t busyEvery = 0;        // answers every Nth request with "busy"; 0 never
  std::uint32_t refuseEvery = 0;      // and every Nth with a refusal
  std::vector<std::uint8_t> unknown;  // requests that begin with these bytes (from the code on) are not known to it
  bool silent = false;
  std::uint32_t logEvents = 20;        // events kept per log, at most 20
  std::optional<MeterTime> frozenAt;   // clock and model stand still at this time
  bool summerTime = false;             // the clock changes between winter and summer by itself
  std::optional<MeterTime> installed;  // put into service, as its clock shows it
  std::vector<Period> powerCuts;       // as its clock shows them, in any order
  std::array<std::uint8_t, 3> profileMinutes{30, 3, 60};
  std::optional<MeterTime> recording;   // the profiles begin with this hour, when their memory was set up; else with the meter
  std::vector<MeterTime> emptyRecords;  // the record of every profile whose interval holds such a time is blank
  std::uint32_t searchPolls = 1;        // how often a search for a profile hour answers that it still runs
  std::optional<std::uint64_t> seed;    // in place of the one that all meters of a line get
};

/// False with `error` naming the key (or "address", "type") when the text is no meter; `spec` is then half filled.
[[nodiscard]] bool ParseMeterSpec(std::string_view text, MeterSpec& spec, std::string& error);

/// All keys, two lines each: what it does (with what holds without it), and what its value may be.
[[nodiscard]] std::string DescribeMeterKeys();

}  // namespace ostrel::sim
