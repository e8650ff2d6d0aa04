// The meters' variants as their documents list them: impulses per kWh follow from nominal voltage (code A) and current (code B).
#include "Protocol/model/VariantMap.h"

#include <string_view>

#include "platform/text.h"

namespace ostrel {
namespace {

struct VariantRow {
  VariantKey key;         // type code, extra flag, code A, code B
  std::string_view name;  // UTF-8
  std::int32_t powerScale;
  std::int32_t constant;
};

constexpr VariantRow kVariants[] = {
    {{0, 0, 0, 0}, "СЭТ-4ТМ.02/СЭТ-1М.01", 1, 5000},
    {{0, 0, 0, 1}, "СЭТ-4ТМ.02/СЭТ-1М.01", 1, 25000},
    {{0, 0, 1, 0}, "СЭТ-4ТМ.02/СЭТ-1М.01", 2, 1250},
    {{0, 0, 1, 1}, "СЭТ-4ТМ.02/СЭТ-1М.01", 1, 6250},
    {{1, 0, 0, 1}, "СЭТ-4ТМ.03", 1, 5000},
    {{1, 0, 1, 1}, "СЭТ-4ТМ.03", 2, 1250},
    {{2, 0, 1, 0}, "СЭБ-1ТМ.01", 10, 500},
    {{2, 0, 1, 0}, "СЭБ-1ТМ.02", 10, 500},  // cannot be told from the row above, which counts
    {{12, 0, 1, 0}, "СЭБ-1ТМ.02М", 10, 500},
    {{3, 0, 0, 0}, "ПСЧ-4ТМ.05", 1, 5000},
    {{3, 0, 0, 1}, "ПСЧ-4ТМ.05", 1, 25000},
    {{3, 0, 1, 0}, "ПСЧ-4ТМ.05", 2, 1250},
    {{3, 0, 1, 1}, "ПСЧ-4ТМ.05", 1, 6250},
    {{4, 0, 0, 0}, "СЭО-1.15", 1, 1250},
    {{5, 0, 1, 0}, "ПСЧ-3ТМ.05", 20, 250},
    {{6, 0, 0, 0}, "ПСЧ-4ТМ.05М", 1, 5000},
    {{6, 0, 0, 1}, "ПСЧ-4ТМ.05М", 1, 25000},
    {{6, 0, 1, 0}, "ПСЧ-4ТМ.05М", 2, 1250},
    {{6, 0, 1, 1}, "ПСЧ-4ТМ.05М", 1, 6250},
    {{7, 0, 1, 0}, "ПСЧ-3ТМ.05М", 20, 250},
    {{11, 0, 0, 0}, "ПСЧ-4ТМ.05МК", 1, 5000},
    {{11, 0, 0, 1}, "ПСЧ-4ТМ.05МК", 1, 25000},
    {{11, 0, 1, 0}, "ПСЧ-4ТМ.05МК", 2, 1250},
    {{11, 0, 1, 1}, "ПСЧ-4ТМ.05МК", 1, 6250},
    {{11, 1, 1, 0}, "ПСЧ-4ТМ.05МК", 20, 250},
    {{8, 1, 0, 0}, "СЭТ-4ТМ.02М", 1, 5000},
    {{8, 1, 0, 1}, "СЭТ-4ТМ.02М", 1, 25000},
    {{8, 1, 1, 0}, "СЭТ-4ТМ.02М", 2, 1250},
    {{8, 1, 1, 1}, "СЭТ-4ТМ.02М", 1, 6250},
    {{8, 0, 0, 0}, "СЭТ-4ТМ.03М", 1, 5000},
    {{8, 0, 0, 1}, "СЭТ-4ТМ.03М", 1, 25000},
    {{8, 0, 1, 0}, "СЭТ-4ТМ.03М", 2, 1250},
    {{8, 0, 1, 1}, "СЭТ-4ТМ.03М", 1, 6250},
};
static_assert(std::size(kVariants) == 33);

/// What else than type and codes tells variants apart: the model bit of type 8, the execution of type 11.
std::uint32_t ExtraFlag(std::uint32_t typeCode, const std::uint8_t (&bytes)[3]) {
  if (typeCode == 8) return (bytes[2] >> 3) & 1U;
  if (typeCode == 11) return (bytes[1] & 0x0F) == 5 ? 1 : 0;
  return 0;
}

}  // namespace

VariantKey MakeVariantKey(const std::uint8_t (&bytes)[3]) {
  const std::uint32_t typeCode = bytes[2] >> 4;
  return {.TypeCode = typeCode, .ExtraFlag = ExtraFlag(typeCode, bytes), .CodeA = (bytes[0] >> 2) & 3U, .CodeB = bytes[0] & 3U};
}

std::map<VariantKey, VariantInfo> MakeVariantMap() {
  std::map<VariantKey, VariantInfo> variants;
  for (const VariantRow& row : kVariants) {
    variants.try_emplace(row.key, VariantInfo{platform::Utf8ToCp1251(row.name), row.powerScale, row.constant});
  }
  return variants;
}

}  // namespace ostrel
