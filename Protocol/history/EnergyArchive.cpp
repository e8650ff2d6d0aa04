#include "Protocol/history/EnergyArchive.h"

#include "Protocol/history/HistoryClasses.h"
#include "Protocol/model/CalendarTime.h"

namespace ostrel {
namespace {

/// Where a value lies: how far behind the row's first archive, and its place in the archive.
struct Position {
  EnergySelection selection = EnergySelection::Selected;
  std::uint8_t archive = 0;
  std::uint8_t place = 0;
};

constexpr std::uint8_t kMonthOfLastYear = 13;
/// These keep the month that began a year ago beside the running one, under a code of its own.
constexpr TypeSet kTypesWithMonth13 = Types(6, 7, 8, 11);
constexpr TypeSet kTypesWithDayArchive = Types(1, 8);

std::uint8_t MonthCode(const EnergyQuestion& question, int year, int month) {
  const bool yearAgo = year + 1 == question.clock.wYear && month == question.clock.wMonth;
  if (yearAgo && Contains(kTypesWithMonth13, question.meterType)) return kMonthOfLastYear;
  return static_cast<std::uint8_t>(month);
}

/// The meter keeps the last one only, so the asked time does not matter.
Position OnlyOne(const EnergyQuestion&) { return {}; }

/// The value of a day is stamped at the start of the next one. A day is 86,400 seconds here too, as in the record times.
Position DayBefore(const EnergyQuestion& question) {
  const SYSTEMTIME& asked = question.asked;
  const auto day = CalendarTime::Make(asked.wYear, asked.wMonth, asked.wDay, 0, 0, 0);
  SYSTEMTIME before{};
  if (!day || !(*day - TimeSpan(1, 0, 0, 0)).ToFields(before)) return {.selection = EnergySelection::Failed};
  return {.place = static_cast<std::uint8_t>(before.wDay)};
}

/// The value of a month is stamped at the start of the next one.
Position MonthBefore(const EnergyQuestion& question) {
  const bool january = question.asked.wMonth == 1;
  const int year = question.asked.wYear - (january ? 1 : 0);
  const int month = january ? 12 : question.asked.wMonth - 1;
  return {.archive = static_cast<std::uint8_t>(MonthCode(question, year, month) & 0x0F)};
}

/// Two arrays, today and yesterday, and every other day counts as yesterday, although type 1 lists a month of days.
Position TodayOrYesterday(const EnergyQuestion& question) {
  const SYSTEMTIME& asked = question.asked;
  const SYSTEMTIME& clock = question.clock;
  const bool today = asked.wYear == clock.wYear && asked.wMonth == clock.wMonth && asked.wDay == clock.wDay;
  return {.archive = static_cast<std::uint8_t>(today ? 0 : 1)};
}

Position StartOfMonth(const EnergyQuestion& question) {
  return {.place = MonthCode(question, question.asked.wYear, question.asked.wMonth)};
}

Position ThisOrLastYear(const EnergyQuestion& question) {
  if (question.asked.wYear == question.clock.wYear) return {.archive = 0};
  if (question.asked.wYear + 1 == question.clock.wYear) return {.archive = 1};
  return {.selection = EnergySelection::NoArchive};
}

/// Short: 05 archive tariff. Long: 0A archive place tariff 0F 00, where 0F asks for all four energies.
enum class RequestForm : std::uint8_t { Short, Long };

struct ArchiveRow {
  std::uint32_t historyClass;
  TypeSet types;
  RequestForm form;
  std::uint8_t archive;
  Position (*locate)(const EnergyQuestion&);
};

using enum RequestForm;
constexpr ArchiveRow kArchives[] = {
    {.historyClass = kHistoryDay, .types = kAllTypes & ~kTypesWithDayArchive, .form = Short, .archive = 0x50, .locate = OnlyOne},
    {.historyClass = kHistoryDay, .types = kTypesWithDayArchive, .form = Long, .archive = 0x06, .locate = DayBefore},
    {.historyClass = kHistoryMonth, .types = kAllTypes, .form = Short, .archive = 0x30, .locate = MonthBefore},
    {.historyClass = kHistoryYear, .types = kAllTypes, .form = Short, .archive = 0x20, .locate = OnlyOne},
    {.historyClass = kHistoryCumulativeDay, .types = kAllTypes, .form = Long, .archive = 0x84, .locate = TodayOrYesterday},
    {.historyClass = kHistoryCumulativeMonth, .types = kAllTypes, .form = Long, .archive = 0x83, .locate = StartOfMonth},
    {.historyClass = kHistoryCumulativeYear, .types = kAllTypes, .form = Long, .archive = 0x81, .locate = ThisOrLastYear},
};

const ArchiveRow* FindArchive(const EnergyQuestion& question) {
  for (const ArchiveRow& row : kArchives) {
    if (row.historyClass == question.historyClass && Contains(row.types, question.meterType)) return &row;
  }
  return nullptr;
}

constexpr std::uint32_t kTagsOfClass = 36;
constexpr std::uint32_t kTagsOfEnergy = 9;  // eight tariffs and the sum
constexpr std::uint32_t kFirstCumulative = 40120;

/// A+, A-, R+, R- as 0 to 3. Every class holds 36 tags; the profiles' tags lie between interval and cumulative classes.
constexpr std::uint32_t EnergyOf(std::uint32_t tagId) {
  const std::uint32_t first = tagId < kFirstCumulative ? kFirstHdaId : kFirstCumulative;
  return (tagId - first) % kTagsOfClass / kTagsOfEnergy;
}
static_assert(EnergyOf(40000) == 0 && EnergyOf(40035) == 3 && EnergyOf(40036) == 0 && EnergyOf(40107) == 3);
static_assert(EnergyOf(40120) == 0 && EnergyOf(40155) == 3 && EnergyOf(40165) == 1 && EnergyOf(40227) == 3);

/// Signed, most significant byte first.
std::int32_t RawEnergy(std::span<const std::uint8_t, kEnergyAnswer> answer, std::uint32_t energy) {
  std::uint32_t raw = 0;
  for (const std::uint8_t byte : answer.subspan(1 + 4 * energy, 4)) raw = raw << 8 | byte;
  return static_cast<std::int32_t>(raw);
}

}  // namespace

EnergySelection BuildEnergyRequest(const EnergyQuestion& question, EnergyRequest& request) {
  const ArchiveRow* const row = FindArchive(question);
  if (row == nullptr) return EnergySelection::NoArchive;
  const Position position = row->locate(question);
  const auto archive = static_cast<std::uint8_t>(row->archive + position.archive);
  if (row->form == Short) {
    request = {.bytes = {0x05, archive, question.tariff}, .length = 3};
  } else {
    request = {.bytes = {0x0A, archive, position.place, question.tariff, 0x0F, 0x00}, .length = 6};
  }
  return position.selection;
}

std::optional<double> DecodeEnergy(std::span<const std::uint8_t, kEnergyAnswer> answer, std::uint32_t tagId,
                                   std::uint32_t meterConstant, const TransformCoefficients& coefficients) {
  const std::uint32_t perUnit = meterConstant * 2;
  if (perUnit == 0) return std::nullopt;
  const double raw = RawEnergy(answer, EnergyOf(tagId));
  return raw / perUnit * coefficients.K1 * coefficients.K2;
}

}  // namespace ostrel
