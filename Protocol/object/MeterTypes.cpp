// The list of meter types and its enumeration. The cursor is the object's: all callers share it.
#include "Protocol/object/MeterTypes.h"

#include <algorithm>
#include <cstring>
#include <string>
#include <string_view>

#include "platform/text.h"

namespace ostrel {
namespace {

struct MeterTypeRow {
  std::uint32_t typeId;
  std::string_view typeName;
  std::string_view displayName;  // UTF-8
};

/// Two type names occur twice; id and display name tell them apart.
constexpr std::array<MeterTypeRow, kMeterTypeCount> kMeterTypes = {{
    {.typeId = 0, .typeName = "SET4TM02", .displayName = "СЭТ-4ТМ.02"},
    {.typeId = 1, .typeName = "SET4TM03", .displayName = "СЭТ-4ТМ.03"},
    {.typeId = 2, .typeName = "SEB1TM02", .displayName = "СЭБ-1ТМ.02"},
    {.typeId = 3, .typeName = "PSCH4TM05", .displayName = "ПСЧ-4ТМ.05"},
    {.typeId = 6, .typeName = "PSCH4TMM05", .displayName = "ПСЧ-4ТМ.05М"},
    {.typeId = 7, .typeName = "PSCH3TMM05", .displayName = "ПСЧ-3ТМ.05М"},
    {.typeId = 8, .typeName = "SET4TMM02M03", .displayName = "СЭТ-4ТМ.02М,03М"},
    {.typeId = 11, .typeName = "PSCH4TMM05", .displayName = "ПСЧ-4ТМ.05МК"},
    {.typeId = 12, .typeName = "SEB1TM02", .displayName = "СЭБ-1ТМ.02М"},
}};

static_assert(std::ranges::all_of(kMeterTypes, [](const MeterTypeRow& row) {
  return row.typeName.size() < sizeof(MeterTypeRecord::TypeName) && row.displayName.size() < sizeof(MeterTypeRecord::DisplayName);
}));

std::array<std::string, kMeterTypeCount> DisplayNames() {
  std::array<std::string, kMeterTypeCount> names;
  std::ranges::transform(kMeterTypes, names.begin(),
                         [](const MeterTypeRow& row) { return platform::Utf8ToCp1251(row.displayName); });
  return names;
}

/// The text and its terminator; what lies behind them in the field stays as the caller left it.
void CopyName(char* field, const char* name) { std::memcpy(field, name, std::strlen(name) + 1); }

}  // namespace

std::array<MeterTypeEntry, kMeterTypeCount> MakeMeterTypes() {
  static const std::array<std::string, kMeterTypeCount> displayNames = DisplayNames();
  std::array<MeterTypeEntry, kMeterTypeCount> entries{};
  for (std::size_t i = 0; i < entries.size(); ++i) {
    entries[i] = {
        .DisplayName = displayNames[i].c_str(), .TypeName = kMeterTypes[i].typeName.data(), .TypeId = kMeterTypes[i].typeId};
  }
  return entries;
}

HRESULT STDMETHODCALLTYPE CProtocol::GetCount(std::uint32_t* count) {
  if (count == nullptr) return S_FALSE;
  *count = MeterTypeCount;
  return S_OK;
}

HRESULT STDMETHODCALLTYPE CProtocol::Next(MeterTypeRecord* record) {
  if (EnumCursor >= MeterTypeCount || record == nullptr) return S_FALSE;
  const MeterTypeEntry& type = MeterTypes[EnumCursor];
  record->ClassId = CLSID_Protocol;
  CopyName(record->DisplayName, type.DisplayName);
  CopyName(record->TypeName, type.TypeName);
  record->TypeId = type.TypeId;
  ++EnumCursor;
  return S_OK;
}

HRESULT STDMETHODCALLTYPE CProtocol::Reset() {
  EnumCursor = 0;
  return S_OK;
}

}  // namespace ostrel
