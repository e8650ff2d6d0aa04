#include "host/session/MeterFrames.h"

#include "host/ports/FrameCheck.h"
#include "platform/clock.h"
#include "platform/crc16.h"
#include "platform/text.h"

namespace ostrel::host {
namespace {

constexpr std::size_t kShortestFrame = 4;

int Digits(std::uint8_t bcd) { return (bcd >> 4) * 10 + (bcd & 0x0F); }

// Days since some day, by the civil calendar.
std::int64_t DayNumber(int year, int month, int day) {
  const int shifted = month <= 2 ? year - 1 : year;
  const int monthFromMarch = (month + 9) % 12;
  return std::int64_t{365} * shifted + shifted / 4 - shifted / 100 + shifted / 400 + (153 * monthFromMarch + 2) / 5 + day;
}

std::int64_t Seconds(int year, int month, int day, int hour, int minute, int second) {
  return ((DayNumber(year, month, day) * 24 + hour) * 60 + minute) * 60 + second;
}

}  // namespace

std::vector<std::uint8_t> OpeningRequest(std::uint8_t address, const std::string& password) {
  std::string text = platform::Utf8ToCp1251(password);
  text.resize(kPasswordBytes);
  std::vector<std::uint8_t> request = {address, 0x01};
  request.insert(request.end(), text.begin(), text.end());
  return request;
}

std::int64_t ClockOffset(std::span<const std::uint8_t> answer) {
  const SYSTEMTIME now = platform::LocalTime();
  return Seconds(2000 + Digits(answer[7]), Digits(answer[6]), Digits(answer[5]), Digits(answer[3]), Digits(answer[2]),
                 Digits(answer[1])) -
         Seconds(now.wYear, now.wMonth, now.wDay, now.wHour, now.wMinute, now.wSecond);
}

std::vector<std::uint8_t> WithCheck(std::span<const std::uint8_t> frame) {
  std::vector<std::uint8_t> whole(frame.begin(), frame.end());
  const std::uint16_t check = platform::Crc16(frame);
  whole.push_back(static_cast<std::uint8_t>(check & 0xFFU));
  whole.push_back(static_cast<std::uint8_t>(check >> 8U));
  return whole;
}

std::span<const std::uint8_t> FrameOf(std::span<const std::uint8_t> bytes, std::uint8_t address) {
  for (std::size_t from = 0; from + kShortestFrame <= bytes.size(); ++from) {
    if (bytes[from] != address) continue;
    // The longest, so that data that look like the end of a frame are not taken for it.
    for (std::size_t end = bytes.size(); end >= from + kShortestFrame; --end) {
      const std::span<const std::uint8_t> frame = bytes.subspan(from, end - from);
      if (HasRightCheck(frame)) return frame;
    }
  }
  return {};
}

}  // namespace ostrel::host
