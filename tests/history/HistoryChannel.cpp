#include "tests/history/HistoryChannel.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>

namespace ostrel::test {

FILETIME TimeAt(std::string_view text) {
  constexpr std::int64_t kFrom1601 = 11'644'473'600'000;
  const auto ticks = static_cast<std::uint64_t>((UtcMs(text) + kFrom1601) * 10'000);
  return {static_cast<std::uint32_t>(ticks), static_cast<std::uint32_t>(ticks >> 32)};
}

std::string TimeText(const FILETIME& time) {
  SYSTEMTIME f{};
  EXPECT_TRUE(platform::FileTimeToFields(time, f));
  char text[64];
  std::snprintf(text, sizeof text, "%04d-%02d-%02d %02d:%02d:%02d.%03d", f.wYear, f.wMonth, f.wDay, f.wHour, f.wMinute, f.wSecond,
                f.wMilliseconds);
  return std::string(text, f.wMilliseconds == 0 ? 19 : 23);
}

HistoryItem ItemOf(std::uint32_t tag, std::uint32_t device, std::uint8_t tariff, std::uint32_t type) {
  return {.hostWord0_ = 0, .DeviceIndex = device, .hostWord8_ = 0, .MeterType = type, .TagId = tag, .Tariff = tariff};
}

std::uint32_t ListTimes(IProtocol& protocol, std::uint32_t tag, std::uint32_t device, std::string_view start,
                        std::string_view end, TimestampList& list, std::uint32_t type) {
  FILETIME first = TimeAt(start);
  FILETIME last = TimeAt(end);
  return protocol.GetHistoryTimestamps(type, tag, device, &first, &last, &list);
}

HistoryChannel::HistoryChannel(std::uint32_t meterType, const std::string& more, const LineOptions& options)
    : OneMeterChannel(options, {.simulated = "searchpolls=0:installed=2026-11-22T00:00:00:at=2026-11-22T20:00:00" + more}, 1,
                      meterType),
      type(meterType) {
  Entry().InfoRead = 1;
  Entry().MeterConstant = 5000;
}

Listing HistoryChannel::List(std::uint32_t tagId, std::string_view start, std::string_view end) {
  FILETIME first = TimeAt(start);
  FILETIME last = TimeAt(end);
  TimestampList list{};
  Listing listing;
  listing.result = Protocol().GetHistoryTimestamps(type, tagId, device, &first, &last, &list);
  listing.count = list.Count;
  listing.period = list.Period;
  listing.start = TimeText(first);
  listing.end = TimeText(last);
  for (const FILETIME& time : list.Times) listing.times.push_back(TimeText(time));
  return listing;
}

Reading HistoryChannel::Read(std::uint32_t tagId, std::string_view time, std::uint8_t tariff) {
  const HistoryItem item = ItemOf(tagId, device, tariff, type);
  Reading reading;
  std::memset(static_cast<void*>(&reading.value), kUntouched, sizeof reading.value);
  const FILETIME asked = TimeAt(time);
  reading.result = Protocol().ReadHistoryValue(type, &item, &asked, &reading.value);
  return reading;
}

std::uint32_t HistoryChannel::Check(std::uint32_t tagId, std::string_view time) {
  FILETIME asked = TimeAt(time);
  return Protocol().CheckHistoryTimestamp(type, tagId, device, &asked);
}

void HistoryChannel::ShowClock(const std::string& time) {
  const auto two = [&](std::size_t at) { return time.substr(at, 2) + " "; };  // digits are BCD as they stand
  Answer("04 00", two(17) + two(14) + two(11) + "03 " + two(8) + two(5) + two(2) + "00");
}

Texts HistoryChannel::Take(std::string_view start) {
  Texts texts = OneMeterChannel::Take("01 " + std::string(start));
  for (std::string& text : texts) text.erase(0, 3);
  return texts;
}

}  // namespace ostrel::test
