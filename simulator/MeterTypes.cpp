#include "simulator/MeterTypes.h"

#include <algorithm>

namespace ostrel::sim {
namespace {

constexpr MeterType kTypes[] = {
    {.id = 0, .defaultVariant = {0x00, 0x00, 0x01}, .exports = true, .tariffs = 8, .profileCells = 8192},
    {.id = 1,
     .defaultVariant = {0x01, 0x40, 0x13},
     .exports = true,
     .tariffs = 8,
     .keepsDays = true,
     .profiles = 2,
     .profileCells = 8192},
    {.id = 2, .defaultVariant = {0x04, 0x40, 0x22}, .singlePhase = true, .tariffs = 4, .profileCells = 4096},
    {.id = 3, .defaultVariant = {0x00, 0x00, 0x31}, .exports = true, .tariffs = 4, .profiles = 2, .profileCells = 4096},
    {.id = 6,
     .defaultVariant = {0x00, 0x40, 0x64},
     .exports = true,
     .tariffs = 4,
     .keepsMonthYearAgo = true,
     .profiles = 2,
     .profileCells = 8192},
    {.id = 7,
     .defaultVariant = {0x04, 0x40, 0x72},
     .exports = true,
     .tariffs = 4,
     .keepsMonthYearAgo = true,
     .profiles = 2,
     .profileCells = 8192},
    {.id = 8,
     .defaultVariant = {0x00, 0x40, 0x83},
     .exports = true,
     .tariffs = 8,
     .keepsDays = true,
     .keepsMonthYearAgo = true,
     .profiles = 3,
     .profileCells = 8192},
    {.id = 11,
     .defaultVariant = {0x00, 0x40, 0xB5},
     .exports = true,
     .tariffs = 4,
     .keepsMonthYearAgo = true,
     .profiles = 2,
     .profileCells = 8192},
    {.id = 12, .defaultVariant = {0x04, 0x40, 0xC1}, .singlePhase = true, .tariffs = 4, .profileCells = 8192},
};

/// `voltage` and `current` are the two low bit pairs of the first variant byte, `flag` a mark elsewhere in the bytes.
struct VariantRow {
  int code, flag, voltage, current;
  std::string_view name;
  std::uint32_t powerScale, constant;
};

constexpr VariantRow kVariants[] = {
    {0, 0, 0, 0, "СЭТ-4ТМ.02/СЭТ-1М.01", 1, 5000},
    {0, 0, 0, 1, "СЭТ-4ТМ.02/СЭТ-1М.01", 1, 25000},
    {0, 0, 1, 0, "СЭТ-4ТМ.02/СЭТ-1М.01", 2, 1250},
    {0, 0, 1, 1, "СЭТ-4ТМ.02/СЭТ-1М.01", 1, 6250},
    {1, 0, 0, 1, "СЭТ-4ТМ.03", 1, 5000},
    {1, 0, 1, 1, "СЭТ-4ТМ.03", 2, 1250},
    {2, 0, 1, 0, "СЭБ-1ТМ.01", 10, 500},
    {12, 0, 1, 0, "СЭБ-1ТМ.02М", 10, 500},
    {3, 0, 0, 0, "ПСЧ-4ТМ.05", 1, 5000},
    {3, 0, 0, 1, "ПСЧ-4ТМ.05", 1, 25000},
    {3, 0, 1, 0, "ПСЧ-4ТМ.05", 2, 1250},
    {3, 0, 1, 1, "ПСЧ-4ТМ.05", 1, 6250},
    {4, 0, 0, 0, "СЭО-1.15", 1, 1250},
    {5, 0, 1, 0, "ПСЧ-3ТМ.05", 20, 250},
    {6, 0, 0, 0, "ПСЧ-4ТМ.05М", 1, 5000},
    {6, 0, 0, 1, "ПСЧ-4ТМ.05М", 1, 25000},
    {6, 0, 1, 0, "ПСЧ-4ТМ.05М", 2, 1250},
    {6, 0, 1, 1, "ПСЧ-4ТМ.05М", 1, 6250},
    {7, 0, 1, 0, "ПСЧ-3ТМ.05М", 20, 250},
    {11, 0, 0, 0, "ПСЧ-4ТМ.05МК", 1, 5000},
    {11, 0, 0, 1, "ПСЧ-4ТМ.05МК", 1, 25000},
    {11, 0, 1, 0, "ПСЧ-4ТМ.05МК", 2, 1250},
    {11, 0, 1, 1, "ПСЧ-4ТМ.05МК", 1, 6250},
    {11, 1, 1, 0, "ПСЧ-4ТМ.05МК", 20, 250},
    {8, 0, 0, 0, "СЭТ-4ТМ.03М", 1, 5000},
    {8, 0, 0, 1, "СЭТ-4ТМ.03М", 1, 25000},
    {8, 0, 1, 0, "СЭТ-4ТМ.03М", 2, 1250},
    {8, 0, 1, 1, "СЭТ-4ТМ.03М", 1, 6250},
    {8, 1, 0, 0, "СЭТ-4ТМ.02М", 1, 5000},
    {8, 1, 0, 1, "СЭТ-4ТМ.02М", 1, 25000},
    {8, 1, 1, 0, "СЭТ-4ТМ.02М", 2, 1250},
    {8, 1, 1, 1, "СЭТ-4ТМ.02М", 1, 6250},
};

int FlagOf(const std::array<std::uint8_t, 3>& bytes) {
  const int code = bytes[2] >> 4;
  if (code == 8) return bytes[2] >> 3 & 1;
  if (code == 11) return (bytes[1] & 0x0F) == 5 ? 1 : 0;
  return 0;
}

struct IdRange {
  std::uint32_t first, last;
};

constexpr IdRange kAllTags[] = {{0, 243}};
constexpr IdRange kTags2[] = {{0, 5},   {9, 12},  {17, 17},  {45, 45},   {49, 51},  {53, 55},
                              {75, 76}, {87, 87}, {95, 191}, {210, 222}, {243, 243}};
constexpr IdRange kTags367[] = {{0, 12}, {17, 21}, {26, 30}, {35, 39}, {44, 78}, {87, 87}, {95, 100}, {102, 211}, {243, 243}};
constexpr IdRange kTags11[] = {{0, 12}, {17, 21}, {26, 30}, {35, 39}, {44, 78}, {87, 87}, {95, 100}, {102, 213}, {223, 243}};
constexpr IdRange kTags12[] = {{0, 5},   {9, 12},  {17, 17}, {27, 30},  {35, 39},   {44, 45},  {47, 51},
                               {53, 55}, {75, 76}, {87, 87}, {95, 191}, {198, 218}, {243, 243}};

std::span<const IdRange> TagsOf(std::uint32_t type) {
  switch (type) {
    case 0:
    case 1:
    case 8:
      return kAllTags;
    case 2:
      return kTags2;
    case 3:
    case 6:
    case 7:
      return kTags367;
    case 11:
      return kTags11;
    case 12:
      return kTags12;
    default:
      return {};
  }
}

}  // namespace

const MeterType* FindMeterType(std::uint32_t id) {
  const auto* found = std::ranges::find(kTypes, id, &MeterType::id);
  return found == std::end(kTypes) ? nullptr : found;
}

std::span<const MeterType> AllMeterTypes() { return kTypes; }

MeterVariant DescribeVariant(const std::array<std::uint8_t, 3>& bytes) {
  const auto* found = std::ranges::find_if(kVariants, [&](const VariantRow& row) {
    return row.code == bytes[2] >> 4 && row.flag == FlagOf(bytes) && row.voltage == (bytes[0] >> 2 & 3) &&
           row.current == (bytes[0] & 3);
  });
  if (found == std::end(kVariants)) return {.bytes = bytes, .name = {}};
  return {.bytes = bytes, .name = found->name, .powerScale = found->powerScale, .constant = found->constant};
}

std::optional<std::array<std::uint8_t, 3>> VariantWithConstant(const MeterType& type, std::uint32_t constant) {
  for (const VariantRow& row : kVariants) {
    if (row.code != static_cast<int>(type.id) || row.constant != constant) continue;
    std::array<std::uint8_t, 3> bytes = type.defaultVariant;
    bytes[0] = static_cast<std::uint8_t>(row.voltage << 2 | row.current);
    if (row.code == 11 && row.flag == 1) bytes[1] = static_cast<std::uint8_t>((bytes[1] & 0xF0) | 5);
    return bytes;
  }
  return std::nullopt;
}

bool TypeHasTag(std::uint32_t type, std::uint32_t tagNumber) {
  return std::ranges::any_of(TagsOf(type), [&](IdRange range) { return tagNumber >= range.first && tagNumber <= range.last; });
}

}  // namespace ostrel::sim
