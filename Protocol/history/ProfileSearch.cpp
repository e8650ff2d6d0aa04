#include "Protocol/history/ProfileSearch.h"

#include <array>

#include "Protocol/link/Frame.h"
#include "Protocol/meter/Meters.h"
#include "Protocol/model/Bcd.h"
#include "Protocol/model/CalendarTime.h"
#include "platform/clock.h"

namespace ostrel {
namespace {

constexpr int kFirstYear = 2000;
constexpr int kLastYear = 2099;
constexpr std::uint16_t kNoHeader = 0xFFFF;

enum SearchStatus : std::uint8_t { kSearchFound = 0, kSearchRuns = 1, kSearchNoSuchHour = 2 };

using SearchStarted = std::array<std::uint8_t, 4>;
using SearchResult = std::array<std::uint8_t, 8>;

std::uint8_t StatusOf(const SearchResult& result) { return result[1] & 0x0F; }

/// A meter that was busy has not begun this search, and would tell the result of the one before: another hour's place.
bool StartSearch(Meters& meters, const MeterRef& meter, const HourQuery& query, std::uint16_t startAddress) {
  const SYSTEMTIME& hour = query.hour;
  const std::array<std::uint8_t, 11> body = {0x03,
                                             0x28,
                                             query.profile,
                                             static_cast<std::uint8_t>(startAddress >> 8),
                                             static_cast<std::uint8_t>(startAddress),
                                             ToBcd(hour.wHour),
                                             ToBcd(hour.wDay),
                                             ToBcd(hour.wMonth),
                                             ToBcd(hour.wYear - kFirstYear),
                                             query.flag,
                                             query.period};
  for (int attempt = 0; attempt < kMaxSearchPolls; ++attempt) {
    if (attempt != 0) platform::Sleep(kSearchPollPauseMs);
    SearchStarted started{};
    if (!AskMeter(meters, meter, body, started)) return false;
    if (started[1] != kStatusBusy) return started[1] == kStatusOk;
  }
  return false;
}

bool AwaitResult(Meters& meters, const MeterRef& meter, SearchResult& result) {
  constexpr std::array<std::uint8_t, 3> kBody = {0x08, 0x18, 0x00};
  for (int poll = 0; poll < kMaxSearchPolls; ++poll) {
    if (poll != 0) platform::Sleep(kSearchPollPauseMs);
    if (!AskMeter(meters, meter, kBody, result)) return false;
    if (StatusOf(result) != kSearchRuns) return true;
  }
  return false;
}

HourSearch Keep(Meters& meters, const MeterRef& meter, std::uint16_t address, HourSearch search, std::uint16_t& header) {
  const platform::CriticalSectionGuard guard(meters.ProfileDataLock);
  DeviceEntry* const entry = FindMeter(meters, meter);
  if (entry == nullptr) return HourSearch::Failed;
  entry->ProfileHeaderAddress = address;
  header = address;
  return search;
}

}  // namespace

HourSearch FindHourHeader(Meters& meters, const MeterRef& meter, const HourQuery& query, std::uint16_t& header) {
  // A meter's year has two digits. Another century's would wrap onto one of its own and bring that year's records.
  if (query.hour.wYear < kFirstYear || query.hour.wYear > kLastYear) return HourSearch::Missing;
  SearchResult result{};
  if (!StartSearch(meters, meter, query, header) || !AwaitResult(meters, meter, result)) return HourSearch::Failed;
  switch (StatusOf(result)) {
    case kSearchFound:
      return Keep(meters, meter, static_cast<std::uint16_t>(result[4] << 8 | result[5]), HourSearch::Found, header);
    case kSearchNoSuchHour:
      return Keep(meters, meter, kNoHeader, HourSearch::Missing, header);
    default:
      return HourSearch::Missing;
  }
}

}  // namespace ostrel
