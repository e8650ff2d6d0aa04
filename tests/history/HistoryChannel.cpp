#include "tests/history/HistoryChannel.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>

namespace ostrel::test {

FILETIME TimeAt(std::string_view text) {
  SYSTEMTIME f{};
  FILETIME time{};
  std::sscanf(std::string(text).c_str(), "%hu-%hu-%hu %hu:%hu:%hu.%hu", &f.wYear, &f.wMonth, &f.wDay, &f.wHour, &f.wMinute,
              &f.wSecond, &f.wMilliseconds);
  EXPECT_TRUE(platform::FieldsToFileTime(f, time)) << text;
  return time;
}

std::string TimeText(const FILETIME& time) {
  SYSTEMTIME f{};
  EXPECT_TRUE(platform::FileTimeToFields(time, f));
  char text[64];
  std::snprintf(text, sizeof text, "%04d-%02d-%02d %02d:%02d:%02d", f.wYear, f.wMonth, f.wDay, f.wHour, f.wMinute, f.wSecond);
  return text + (f.wMilliseconds == 0 ? "" : "." + std::to_string(f.wMilliseconds));
}

HistoryChannel::HistoryChannel(std::uint32_t meterType, const std::string& more, const LineOptions& options)
    : SimulatedChannel(options),
      type(meterType),
      device(AddMeter(1, meterType, {.simulated = "searchpolls=0:installed=2026-11-22T00:00:00:at=2026-11-22T20:00:00" + more})) {
  Entry().InfoRead = 1;
  Entry().MeterConstant = 5000;
  Protocol().Running = 1;
}

HistoryChannel::~HistoryChannel() { Protocol().Running = 0; }

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
  const HistoryItem item{
      .hostWord0_ = 0, .DeviceIndex = device, .hostWord8_ = 0, .MeterType = type, .TagId = tagId, .Tariff = tariff};
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
  Texts found;
  for (const std::string& text : Line().RequestTexts()) {
    if (text.substr(3).starts_with(start)) found.push_back(text.substr(3));
  }
  Line().ClearRecords();
  return found;
}

Texts Clocks(const Listing& listing) {
  Texts clocks;
  for (auto time = listing.times.rbegin(); time != listing.times.rend(); ++time) clocks.push_back(time->substr(11, 5));
  return clocks;
}

}  // namespace ostrel::test
