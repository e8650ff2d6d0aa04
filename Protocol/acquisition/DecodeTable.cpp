// Byte numbers count from the address byte, so data begin at 1. Values are computed in double, from left to right, and
// become a float once at the end. Divisions by a meter constant of 0 are meant: an unknown variant shows infinity, not a
// plausible number.
#include "Protocol/acquisition/DecodeTable.h"

#include <cstdio>
#include <cstring>

#include "Protocol/model/TagSet.h"
#include "Protocol/model/VariantMap.h"

namespace ostrel {
namespace {

constexpr std::size_t kLongestLocation = 16;
constexpr char kYes[] = "\xE4\xE0";     // "да"
constexpr char kNo[] = "\xED\xE5\xF2";  // "нет"

/// Factors of the meter that a value is multiplied by.
enum Factors : std::uint8_t { kUnscaled = 0, kVf = 1, kKi = 2, kS = 4, kPrimary = kVf | kKi, kPower = kVf | kKi | kS };

struct DecodeRow {
  TagSet tags{};
  DecodedValue (*read)(const DecodeRow&, const AnswerView&) = nullptr;
  std::uint8_t at = 1;     // first byte
  std::uint8_t width = 1;  // bytes, high one first
  std::uint8_t mask = 0;   // sign or flag, in the first byte
  double divisor = 1;
  std::uint8_t times = kUnscaled;
};

std::uint32_t BigEndian(const AnswerView& answer, std::uint32_t at, std::uint32_t width) {
  std::uint32_t number = 0;
  for (std::uint32_t i = 0; i < width; ++i) number = number << 8 | answer.bytes[at + i];
  return number;
}

double Scaled(double value, std::uint8_t times, const MeterScale& scale) {
  if ((times & kVf) != 0) value *= scale.voltageFactor;
  if ((times & kKi) != 0) value *= scale.currentFactor;
  if ((times & kS) != 0) value *= scale.powerScale;
  return value;
}

template <class... Numbers>
std::string Formatted(const char* format, Numbers... numbers) {
  char text[32];
  std::snprintf(text, sizeof text, format, numbers...);
  return text;
}

// --- numbers

DecodedValue Number(const DecodeRow& row, const AnswerView& answer) {
  return static_cast<float>(Scaled(BigEndian(answer, row.at, row.width) / row.divisor, row.times, answer.scale));
}

/// Impulses to kWh or kvarh; a full period of the metering output is two impulses.
DecodedValue Energy(const DecodeRow& row, const AnswerView& answer) {
  const double impulses = BigEndian(answer, row.at, 4);
  const double perUnit = 2.0 * answer.scale.constant;
  return static_cast<float>(Scaled(impulses / perUnit, row.times, answer.scale));
}

/// 22 bits; the two bits above them are the directions of active and reactive power, for every quantity.
DecodedValue Instantaneous(const DecodeRow& row, const AnswerView& answer) {
  const std::uint32_t number = BigEndian(answer, 1, 3) & 0x3FFFFF;
  const double value = Scaled(number / row.divisor, row.times, answer.scale);
  const bool negative = (answer.bytes[1] & row.mask) != 0;
  return static_cast<float>(negative ? -value : value);
}

DecodedValue TemperatureRange(const DecodeRow& row, const AnswerView& answer) {
  return (answer.bytes[row.at] & row.mask) != 0 ? -40.0F : -20.0F;
}

DecodedValue MaskedNumber(const DecodeRow& row, const AnswerView& answer) {
  return static_cast<float>(answer.bytes[row.at] & row.mask);
}

DecodedValue StatusIsOk(const DecodeRow& row, const AnswerView& answer) { return answer.bytes[row.at] == 0; }

DecodedValue UnsignedByte(const DecodeRow& row, const AnswerView& answer) { return answer.bytes[row.at]; }

DecodedValue SignedByte(const DecodeRow& row, const AnswerView& answer) { return static_cast<std::int8_t>(answer.bytes[row.at]); }

// --- texts

DecodedValue SerialNumber(const DecodeRow& row, const AnswerView& answer) {
  return Formatted("N %08d", static_cast<std::int32_t>(BigEndian(answer, row.at, 4)));
}

DecodedValue BcdDate(const DecodeRow& row, const AnswerView& answer) {
  const std::uint8_t* const date = answer.bytes + row.at;
  return Formatted("%02x/%02x/%02x", unsigned{date[0]}, unsigned{date[1]}, unsigned{date[2]});
}

DecodedValue Version(const DecodeRow& row, const AnswerView& answer) {
  const std::uint8_t* const parts = answer.bytes + row.at;
  return Formatted("%x.%x.%x", unsigned{parts[0]}, unsigned{parts[1]}, unsigned{parts[2]});
}

DecodedValue YesOrNo(const DecodeRow& row, const AnswerView& answer) {
  return std::string((answer.bytes[row.at] & row.mask) != 0 ? kYes : kNo);
}

DecodedValue Location(const DecodeRow& row, const AnswerView& answer) {
  const char* const text = reinterpret_cast<const char*>(answer.bytes + row.at);
  const void* const end = std::memchr(text, 0, kLongestLocation);
  return std::string(text, end == nullptr ? kLongestLocation : static_cast<std::size_t>(static_cast<const char*>(end) - text));
}

DecodedValue CoefficientProduct(const DecodeRow& row, const AnswerView& answer) {
  const double first = BigEndian(answer, row.at, 2);
  const double second = BigEndian(answer, row.at + 2U, 2);
  return static_cast<float>(first * second);
}

// --- the meter's variant; a meter whose variant nobody knows has an empty name and a constant of 0

DecodedValue MeterConstant(const DecodeRow&, const AnswerView& answer) { return static_cast<float>(answer.variant->Constant); }

DecodedValue MeterType(const DecodeRow&, const AnswerView& answer) { return answer.variant->Name; }

// --- the table

constexpr DecodeRow kDecoders[] = {
    {.tags = {{{0, 0}}}, .read = SerialNumber},
    {.tags = {{{1, 1}}}, .read = BcdDate, .at = 5},
    {.tags = {{{2, 2}}}, .read = Number, .at = 2},
    {.tags = {{{3, 3}}}, .read = Version},
    {.tags = {{{4, 4}}}, .read = MeterConstant},
    {.tags = {{{5, 5}}}, .read = TemperatureRange, .at = 2, .mask = 0x40},
    {.tags = {{{6, 6}}}, .read = Number, .at = 1, .width = 2},
    {.tags = {{{7, 7}}}, .read = Number, .at = 3, .width = 2},
    {.tags = {{{8, 8}}}, .read = CoefficientProduct},
    // Energies: A+, A-, R+, R- by tariff, by the current tariff, by day, month and year
    {.tags = {{{9, 17}, {45, 45}, {186, 191}}}, .read = Energy, .at = 1, .times = kPrimary},
    {.tags = {{{18, 26}, {46, 46}, {192, 197}}}, .read = Energy, .at = 5, .times = kPrimary},
    {.tags = {{{27, 35}, {47, 47}, {198, 203}}}, .read = Energy, .at = 9, .times = kPrimary},
    {.tags = {{{36, 44}, {48, 48}, {204, 209}}}, .read = Energy, .at = 13, .times = kPrimary},
    // P, Q, S, voltage, current, power coefficient of three phases and their sum
    {.tags = {{{49, 49}, {56, 56}, {63, 63}, {70, 70}}}, .read = Instantaneous, .mask = 0x80, .divisor = 1000, .times = kPower},
    {.tags = {{{50, 50}, {57, 57}, {64, 64}, {71, 71}}}, .read = Instantaneous, .mask = 0x40, .divisor = 1000, .times = kPower},
    {.tags = {{{51, 51}, {58, 58}, {65, 65}, {72, 72}}}, .read = Instantaneous, .divisor = 1000, .times = kPower},
    {.tags = {{{54, 54}, {61, 61}, {68, 68}}}, .read = Instantaneous, .divisor = 100, .times = kVf},
    {.tags = {{{55, 55}, {62, 62}, {69, 69}}}, .read = Instantaneous, .divisor = 10000, .times = kKi},
    {.tags = {{{52, 52}, {59, 59}, {66, 66}}}, .read = Instantaneous, .divisor = 100},
    // power coefficient and angle of the sum, frequency, averaged values, interfacial voltages, distortion
    {.tags = {{{73, 93}}}, .read = Instantaneous, .divisor = 100},
    {.tags = {{{94, 94}}}, .read = MaskedNumber, .at = 3, .mask = 0x0F},
    {.tags = {{{95, 95}}}, .read = YesOrNo, .at = 2, .mask = 0x01},
    {.tags = {{{96, 96}}}, .read = Location},
    {.tags = {{{183, 183}}}, .read = MeterType},
    {.tags = {{{184, 184}}}, .read = YesOrNo, .at = 2, .mask = 0x04},
    {.tags = {{{210, 210}}}, .read = StatusIsOk},
    {.tags = {{{212, 213}}}, .read = UnsignedByte, .at = 2},
    {.tags = {{{214, 218}, {223, 242}}}, .read = Energy, .at = 1},
    {.tags = {{{219, 222}}}, .read = Number, .at = 1, .width = 2, .divisor = 10},
    {.tags = {{{243, 243}}}, .read = SignedByte, .at = 2},
};
static_assert(EachTagOnce(kDecoders));

}  // namespace

std::optional<DecodedValue> DecodeAnswer(const AnswerView& answer, std::uint32_t tagNumber) {
  const DecodeRow* const row = FindRow<kDecoders>(tagNumber);
  if (row == nullptr) return std::nullopt;
  return row->read(*row, answer);
}

}  // namespace ostrel
