#include "tests/history/HistoryMeter.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstring>

namespace ostrel::test {
namespace {

std::uint8_t Bcd(int value) { return static_cast<std::uint8_t>(value / 10 * 16 + value % 10); }

/// Hour, day, month, year of a search as text.
std::string HourKey(std::span<const std::uint8_t> bcd) { return ToHex(bcd.first(4)); }

std::string HourKey(const SYSTEMTIME& hour) {
  const Bytes bcd = {Bcd(hour.wHour), Bcd(hour.wDay), Bcd(hour.wMonth), Bcd(hour.wYear - 2000)};
  return HourKey(bcd);
}

std::uint16_t Word(std::span<const std::uint8_t> bytes) { return static_cast<std::uint16_t>(bytes[0] * 256 + bytes[1]); }

Bytes ClockPayload(const SYSTEMTIME& now) {
  return {Bcd(now.wSecond), Bcd(now.wMinute), Bcd(now.wHour), 0x03, Bcd(now.wDay), Bcd(now.wMonth), Bcd(now.wYear - 2000), 0x00};
}

}  // namespace

SYSTEMTIME FieldsAt(std::string_view text) {
  int year = 0, month = 0, day = 0, hour = 0, minute = 0, second = 0, milliseconds = 0;
  const std::string whole(text);
  std::sscanf(whole.c_str(), "%d-%d-%d %d:%d:%d.%d", &year, &month, &day, &hour, &minute, &second, &milliseconds);
  const auto word = [](int value) { return static_cast<WORD>(value); };
  return {word(year), word(month), 0, word(day), word(hour), word(minute), word(second), word(milliseconds)};
}

FILETIME TimeAt(std::string_view text) {
  FILETIME time{};
  EXPECT_TRUE(platform::FieldsToFileTime(FieldsAt(text), time)) << text;
  return time;
}

std::string TimeText(const FILETIME& time) {
  SYSTEMTIME f{};
  EXPECT_TRUE(platform::FileTimeToFields(time, f));
  char text[64];
  std::snprintf(text, sizeof text, "%04d-%02d-%02d %02d:%02d:%02d", f.wYear, f.wMonth, f.wDay, f.wHour, f.wMinute, f.wSecond);
  std::string whole = text;
  if (f.wMilliseconds != 0) whole += "." + std::to_string(f.wMilliseconds);
  return whole;
}

// --- HistoryMeter

void HistoryMeter::AddHour(std::string_view hour, std::uint16_t header) { hours_[HourKey(FieldsAt(hour))] = header; }

void HistoryMeter::AddHours(std::string_view first, std::string_view last) {
  const auto ticks = [](const FILETIME& time) {
    return static_cast<std::uint64_t>(time.dwHighDateTime) << 32 | time.dwLowDateTime;
  };
  constexpr std::uint64_t kHour = 36'000'000'000;
  const auto block = static_cast<std::uint16_t>(8 + 60 / periods[0] * 8);
  std::uint16_t header = 0;
  for (std::uint64_t at = ticks(TimeAt(first)); at <= ticks(TimeAt(last)); at += kHour) {
    AddHour(TimeText({static_cast<DWORD>(at), static_cast<DWORD>(at >> 32)}), header);
    header = static_cast<std::uint16_t>(header + block);
  }
}

Bytes HistoryMeter::Answer(std::span<const std::uint8_t> request) {
  const std::string text = ToHex(request);
  if (request[0] != address || (!silentTo.empty() && text.starts_with(silentTo))) return {};
  Bytes answer = Payload(request);
  answer.insert(answer.begin(), address);
  return WithCheck(answer);
}

Bytes HistoryMeter::Payload(std::span<const std::uint8_t> request) {
  switch (request[1]) {
    case 0x03:
      searched_ = HourKey(request.subspan(6));
      pollsLeft_ = searchPolls;
      return {0x00};
    case 0x04:
      return ClockPayload(FieldsAt(clock));
    case 0x05:
    case 0x0A:
      return energies;
    case 0x06:
      return Record(Word(request.subspan(3)));
    case 0x08:
      return Parameter(request);
    default:
      return {0x00};
  }
}

Bytes HistoryMeter::Parameter(std::span<const std::uint8_t> request) {
  switch (request[2]) {
    case 0x02: {
      Bytes answer = coefficients;
      answer.resize(10);
      return answer;
    }
    case 0x06:
      return {0x00, periods[request.size() == 5 ? 0 : request[3]]};
    case 0x12:
      return Hex("01 40 13");
    case 0x18:
      return SearchResult();
    default:
      return Bytes(2, 0);
  }
}

Bytes HistoryMeter::SearchResult() {
  if (pollsLeft_-- > 0) return Hex("01 00 00 00 00");
  const auto found = hours_.find(searched_);
  if (found == hours_.end()) return {missingStatus, 0x00, 0x00, 0x12, 0x34};
  return {0x00, 0x00, 0x00, static_cast<std::uint8_t>(found->second >> 8), static_cast<std::uint8_t>(found->second)};
}

Bytes HistoryMeter::Record(std::uint16_t at) const {
  if (const auto found = records.find(at); found != records.end()) return found->second;
  Bytes bytes;
  for (int i = 0; i < 4; ++i) {
    const int word = at / 8 + i;
    bytes.push_back(static_cast<std::uint8_t>(word >> 8));
    bytes.push_back(static_cast<std::uint8_t>(word));
  }
  return bytes;
}

// --- HistoryChannel

HistoryChannel::HistoryChannel(std::uint32_t meterType, const ChannelOptions& options)
    : channel(options), type(meterType), device(channel.AddMeter(1, meterType)) {
  Entry().InfoRead = 1;
  Entry().MeterConstant = 5000;
  channel.Line().OnRequest([this](auto request) { return meter.Answer(request); });
}

HistoryChannel::Listing HistoryChannel::List(std::uint32_t tagId, std::string_view start, std::string_view end) {
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

HistoryChannel::Reading HistoryChannel::Read(std::uint32_t tagId, std::string_view time, std::uint8_t tariff) {
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

Texts HistoryChannel::TakeRequests() {
  Texts texts = channel.Line().RequestTexts();
  channel.Line().ClearRecords();
  return texts;
}

// --- lists of texts

Texts Clocks(const HistoryChannel::Listing& listing) {
  Texts clocks;
  for (auto time = listing.times.rbegin(); time != listing.times.rend(); ++time) clocks.push_back(time->substr(11, 5));
  return clocks;
}

Texts Only(const Texts& requests, std::string_view start) {
  Texts found;
  std::ranges::copy_if(requests, std::back_inserter(found), [&](const std::string& text) { return text.starts_with(start); });
  return found;
}

}  // namespace ostrel::test
