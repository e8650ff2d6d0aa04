#include "host/session/TagQuestion.h"

#include <algorithm>
#include <iterator>

#include "Protocol/model/TagCatalogue.h"

namespace ostrel::host {
namespace {

constexpr const char* kPassport = "passport";
constexpr const char* kEnergies = "energies by tariff";
constexpr const char* kInstant = "powers, voltages, currents";
constexpr const char* kLog = "event log";
constexpr const char* kPeriods = "energies of days, months, years";
constexpr const char* kLimits = "load control and limits";
constexpr const char* kOther = "parameters";

constexpr const char* kEnergyFormula = "number / (2 x meter constant) x voltage coefficient x current coefficient";
constexpr const char* kPowerFormula =
    "22 bits / 1000 x voltage coefficient x current coefficient x power scale of the variant, signed by a bit";
constexpr const char* kHundredth = "22 bits / 100";

struct Row {
  std::uint32_t first;  // tag numbers
  std::uint32_t last;
  const char* family;
  std::size_t answerBytes;
  const char* bytes;
  const char* formula;
};

// Answers of no fixed length as meters send them.
constexpr Row kRows[] = {
    {0, 0, kPassport, 10, "1-4", "number of eight digits"},
    {1, 1, kPassport, 10, "5-7", "day, month, year, two digits each"},
    {2, 2, kPassport, 5, "2", "number"},
    {3, 3, kPassport, 6, "1-3", "three numbers"},
    {4, 4, kPassport, 6, "1-3", "meter constant of the variant that these bytes name"},
    {5, 5, kPassport, 6, "2", "bit 6: -40 or -20"},
    {6, 6, kPassport, 13, "1-2", "number"},
    {7, 7, kPassport, 13, "3-4", "number"},
    {8, 8, kPassport, 13, "1-4", "product of the two numbers"},
    {9, 17, kEnergies, 19, "1-4", kEnergyFormula},
    {18, 26, kEnergies, 19, "5-8", kEnergyFormula},
    {27, 35, kEnergies, 19, "9-12", kEnergyFormula},
    {36, 44, kEnergies, 19, "13-16", kEnergyFormula},
    {45, 45, kEnergies, 19, "1-4", kEnergyFormula},
    {46, 46, kEnergies, 19, "5-8", kEnergyFormula},
    {47, 47, kEnergies, 19, "9-12", kEnergyFormula},
    {48, 48, kEnergies, 19, "13-16", kEnergyFormula},
    {49, 93, kInstant, 6, "1-3", kHundredth},
    {94, 94, kPassport, 6, "3", "low four bits"},
    {95, 95, kOther, 5, "2", "bit 0"},
    {96, 96, kPassport, 19, "1-16", "text"},
    {103, 182, kLog, 17, "1-7 or 8-14", "seconds, minutes, hours, weekday, day, month, year, two digits each"},
    {183, 183, kPassport, 6, "1-3", "name of the variant"},
    {184, 184, kOther, 5, "2", "bit 2"},
    {186, 191, kPeriods, 19, "1-4", kEnergyFormula},
    {192, 197, kPeriods, 19, "5-8", kEnergyFormula},
    {198, 203, kPeriods, 19, "9-12", kEnergyFormula},
    {204, 209, kPeriods, 19, "13-16", kEnergyFormula},
    {210, 210, kOther, 4, "1", "0 is true"},
    {212, 213, kLimits, 5, "2", "number"},
    {214, 218, kLimits, 7, "1-4", "number / (2 x meter constant)"},
    {219, 222, kLimits, 5, "1-2", "number / 10"},
    {223, 242, kLimits, 7, "1-4", "number / (2 x meter constant)"},
    {243, 243, kOther, 5, "2", "number with a sign"},
};

// Seven quantities a phase: P, Q, S, coefficient, angle, voltage, current; then the same of the sum up to the angle.
constexpr std::uint32_t kFirstPhase = 49;
constexpr std::uint32_t kLastSum = 74;
constexpr const char* kQuantities[] = {kPowerFormula,
                                       kPowerFormula,
                                       "22 bits / 1000 x voltage coefficient x current coefficient x power scale of the variant",
                                       kHundredth,
                                       "",
                                       "22 bits / 100 x voltage coefficient",
                                       "22 bits / 10000 x current coefficient"};
constexpr std::uint32_t kCurrentMonth[] = {188, 194, 200, 206};

bool IsMonth(std::uint32_t number) {
  return std::any_of(std::begin(kCurrentMonth), std::end(kCurrentMonth),
                     [number](std::uint32_t current) { return number == current || number == current + 1; });
}

constexpr std::uint8_t kInstantCode = 0x08;
constexpr std::uint8_t kInstantParameter = 0x11;

std::uint8_t Byte(std::uint32_t value) { return static_cast<std::uint8_t>(value); }

// Of a limit: what the catalogue's selector stands beside.
std::uint8_t LimitSelectorOf(std::uint32_t number) {
  if (number >= 223) return Byte((number - 223) / 5 * 0x10 + ((number - 223) % 5 + 1) % 5);
  if (number >= 219) return Byte(number - 219);
  return number >= 214 ? Byte((number - 214 + 1) % 5) : 0;
}

bool IsInstant(std::uint32_t number) { return number >= 49 && number <= 93; }

}  // namespace

TagQuestion QuestionOf(const TagDefinition& tag) {
  const std::uint32_t number = tag.id - kFirstDaId;
  const auto* const row = std::find_if(std::begin(kRows), std::end(kRows),
                                       [number](const Row& each) { return each.first <= number && number <= each.last; });
  const std::uint32_t length = tag.descriptor[kColumnRequestLength];
  if (row == std::end(kRows) || length == 0) return {};
  TagQuestion question{.family = row->family,
                       .requestBytes = length,
                       .answerBytes = row->answerBytes,
                       .needsClock = IsMonth(number),
                       .shares = number < kTagFirstLimit || number > kTagLastLimit,
                       .bytes = row->bytes,
                       .formula = row->formula};
  if (number >= kFirstPhase && number <= kLastSum)
    question.formula = kQuantities[(number - kFirstPhase) % std::size(kQuantities)];
  return question;
}

bool IsRequestOf(const TagDefinition& tag, const std::vector<std::uint8_t>& request) {
  const std::uint32_t number = tag.id - kFirstDaId;
  const auto column = [&tag](DescriptorColumn each) { return Byte(tag.descriptor[each]); };
  if (QuestionOf(tag).requestBytes == 0 || request.size() != column(kColumnRequestLength)) return false;
  if (IsInstant(number)) {
    const auto selector =
        Byte((column(kColumnCode) & 0x0F) << 4 | (column(kColumnParam) & 3) << 2 | (column(kColumnSubParam) & 3));
    return request[1] == kInstantCode && request[2] == kInstantParameter && request[3] == selector;
  }
  if (request[1] != column(kColumnCode)) return false;
  const bool freeParameter = IsMonth(number) || (number >= kTagFirstLog && number <= kTagLastLog);
  const auto parameter = number >= 9 && number <= 44 ? Byte(0) : column(kColumnParam);
  if (request.size() >= 5 && !freeParameter && request[2] != parameter) return false;
  if (request.size() >= 6 && request[3] != column(kColumnSubParam)) return false;
  return request.size() < 7 || request[4] == LimitSelectorOf(number);
}

}  // namespace ostrel::host
