#include "Protocol/acquisition/WriteCommands.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "Protocol/acquisition/RequestBuilder.h"
#include "Protocol/link/Frame.h"
#include "Protocol/model/Bcd.h"
#include "Protocol/model/TagSet.h"

namespace ostrel {
namespace {

constexpr std::uint8_t kWriteCode = 0x03;

struct WriteRow {
  TagSet tags{};
  std::uint8_t parameter = 0;
  WriteDecision (*data)(const WriteRow&, const WriteSubject&, WriteCommand&) = nullptr;
  std::uint8_t kind = 0;   // first data byte of the load-control parameter
  double lowest = 0;       // a value that is not at least this ...
  double belowLowest = 0;  // ... is sent as this, one that is not a number too
  double highest = 0;
};

void Add(WriteCommand& command, std::uint32_t byte) { command.bytes[command.length++] = static_cast<std::uint8_t>(byte); }

void Add32(WriteCommand& command, std::uint32_t number) {
  for (int shift = 24; shift >= 0; shift -= 8) Add(command, number >> shift);
}

void AddBcd(WriteCommand& command, int value) { Add(command, ToBcd(value)); }

/// Toward zero. Commands take the low bits of this, so 256 for a one-byte parameter is 0 and -1 is 0xFF. What does not fit
/// 64 bits, and what is not a number, counts as 0.
std::int64_t Truncated(double value) {
  constexpr double kTwoTo63 = 9223372036854775808.0;
  return value > -kTwoTo63 && value < kTwoTo63 ? static_cast<std::int64_t>(value) : 0;
}

/// What the client wrote as a signed byte.
std::int8_t WrittenByte(const WriteSubject& subject) {
  return static_cast<std::int8_t>(Truncated(double{subject.written.fltVal}));
}

double Limited(const WriteRow& row, double value) {
  if (!(value >= row.lowest)) return row.belowLowest;
  return std::min(value, row.highest);
}

void AddKindAndSelector(const WriteRow& row, const WriteSubject& subject, WriteCommand& command) {
  std::uint8_t selector = 0;
  LimitSelector(subject.tagNumber, selector);
  Add(command, row.kind);
  Add(command, selector);
}

void AddTimeOfDay(const CalendarTime& time, WriteCommand& command) {
  AddBcd(command, time.GetSecond());
  AddBcd(command, time.GetMinute());
  AddBcd(command, time.GetHour());
}

/// Meters count from Monday as 1 to Sunday as 7.
int MeterWeekday(const CalendarTime& time) {
  const int fromSunday = time.GetDayOfWeek();
  return fromSunday == 1 ? 7 : fromSunday - 1;
}

// --- data of the commands

WriteDecision Word(const WriteRow&, const WriteSubject& subject, WriteCommand& command) {
  const auto number = static_cast<std::uint16_t>(Truncated(double{subject.written.fltVal}));
  Add(command, number >> 8);
  Add(command, number);
  return WriteDecision::Send;
}

WriteDecision Byte(const WriteRow&, const WriteSubject& subject, WriteCommand& command) {
  Add(command, static_cast<std::uint8_t>(WrittenByte(subject)));
  return WriteDecision::Send;
}

WriteDecision TimeOfDay(const WriteRow&, const WriteSubject& subject, WriteCommand& command) {
  if (WrittenByte(subject) == 0) return WriteDecision::LeavePending;
  AddTimeOfDay(subject.now, command);
  return WriteDecision::Send;
}

/// Whatever was written.
WriteDecision DateAndTime(const WriteRow&, const WriteSubject& subject, WriteCommand& command) {
  AddTimeOfDay(subject.now, command);
  AddBcd(command, MeterWeekday(subject.now));
  AddBcd(command, subject.now.GetDay());
  AddBcd(command, subject.now.GetMonth());
  AddBcd(command, std::max(subject.now.GetYear() - 2000, 0));
  Add(command, subject.timeSetByte);
  return WriteDecision::Send;
}

/// 1 inhibits the change between summer and winter time, 0 allows it.
WriteDecision TransitionInhibit(const WriteRow&, const WriteSubject& subject, WriteCommand& command) {
  Add(command, WrittenByte(subject) >= 1 ? 1 : 0);
  return WriteDecision::Send;
}

/// The same parameter: 4 inhibits the recovery of an interrupted indication, 5 allows it.
WriteDecision IndicationRecovery(const WriteRow&, const WriteSubject& subject, WriteCommand& command) {
  const std::int8_t written = WrittenByte(subject);
  const std::uint32_t allowedOrNone = written == 0 ? 5 : 0;
  Add(command, written >= 1 ? 4 : allowedOrNone);
  return WriteDecision::Send;
}

/// Load on for 1 and off for 0; the meter has it the other way round.
WriteDecision LoadControl(const WriteRow&, const WriteSubject& subject, WriteCommand& command) {
  if (subject.written.bVal > 1) return WriteDecision::Drop;
  Add(command, subject.written.bVal == 0 ? 0x01 : 0x00);
  return WriteDecision::Send;
}

WriteDecision EstimatedInterval(const WriteRow& row, const WriteSubject& subject, WriteCommand& command) {
  Add(command, row.kind);
  Add32(command, 0);
  Add(command, static_cast<std::uint32_t>(Limited(row, subject.written.bVal)));
  return WriteDecision::Send;
}

/// In impulses, by way of a float: meters were always given that rounding. Of a limit that is negative or past 32 bits the
/// low 32 bits go out; one that is no finite number is no limit, and nothing is sent.
WriteDecision EnergyLimit(const WriteRow& row, const WriteSubject& subject, WriteCommand& command) {
  const double written = subject.written.fltVal;
  const double impulses = subject.meterConstant * (written + written);
  if (!(std::fabs(impulses) <= double{std::numeric_limits<float>::max()})) return WriteDecision::Drop;
  AddKindAndSelector(row, subject, command);
  Add32(command, static_cast<std::uint32_t>(Truncated(double{static_cast<float>(impulses)})));
  return WriteDecision::Send;
}

/// In tenths, rounded.
WriteDecision PowerLimit(const WriteRow& row, const WriteSubject& subject, WriteCommand& command) {
  const double limit = Limited(row, double{subject.written.fltVal});
  AddKindAndSelector(row, subject, command);
  Add32(command, static_cast<std::uint32_t>(limit * 10 + 0.5));
  return WriteDecision::Send;
}

// --- the table

constexpr WriteRow kWrites[] = {
    {.tags = {{{6, 6}}}, .parameter = 0x1B, .data = Word},           // voltage coefficient
    {.tags = {{{7, 7}}}, .parameter = 0x1C, .data = Word},           // current coefficient
    {.tags = {{{97, 97}}}, .parameter = 0x0D, .data = TimeOfDay},    // time correction
    {.tags = {{{98, 98}}}, .parameter = 0x0C, .data = DateAndTime},  // time setup
    {.tags = {{{99, 99}}}, .parameter = 0x07, .data = Byte},         // indication period
    {.tags = {{{100, 100}}}, .parameter = 0x18, .data = TransitionInhibit},
    {.tags = {{{185, 185}}}, .parameter = 0x18, .data = IndicationRecovery},
    {.tags = {{{212, 212}}}, .parameter = 0x2F, .data = LoadControl},
    {.tags = {{{213, 213}}},
     .parameter = 0x2F,
     .data = EstimatedInterval,
     .kind = 0x07,
     .lowest = 1,
     .belowLowest = 1,
     .highest = 25},
    {.tags = {{{214, 218}, {223, 242}}}, .parameter = 0x2F, .data = EnergyLimit, .kind = 0x04},
    {.tags = {{{219, 222}}},
     .parameter = 0x2F,
     .data = PowerLimit,
     .kind = 0x08,
     .lowest = 0.1,
     .belowLowest = 1.0,
     .highest = 6553.5},
};
static_assert(EachTagOnce(kWrites));

}  // namespace

WriteDecision BuildWriteCommand(const WriteSubject& subject, WriteCommand& command) {
  const WriteRow* const row = FindRow<kWrites>(subject.tagNumber);
  if (row == nullptr) return WriteDecision::Drop;
  command.length = 0;
  Add(command, subject.address);
  Add(command, kWriteCode);
  Add(command, row->parameter);
  const WriteDecision decision = row->data(*row, subject, command);
  if (decision != WriteDecision::Send) return decision;
  command.length += 2;
  AppendCrc(command.bytes.data(), static_cast<std::int32_t>(command.length));
  return decision;
}

}  // namespace ostrel
