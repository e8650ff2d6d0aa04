#include "host/session/Catalogue.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstring>

#include "host/session/ComPointer.h"
#include "host/session/Failure.h"
#include "host/session/NearNames.h"
#include "platform/text.h"
#include "platform/variant.h"

namespace ostrel::host {
namespace {

template <class Interface>
ComPointer<Interface> Face(IProtocol& protocol, REFIID iid) {
  void* face = nullptr;
  if (FAILED(protocol.QueryInterface(iid, &face))) throw Failure(kExitUsage, "the plug-in does not describe itself");
  return ComPointer<Interface>(static_cast<Interface*>(face));
}

std::string Utf8(const char* text, std::size_t size) { return platform::Cp1251ToUtf8({text, strnlen(text, size)}); }

TagDefinition ReadDefinition(IBrowser& browser, std::uint32_t id, std::uint32_t index, std::uint32_t branch) {
  TagDefinition tag;
  tag.id = id;
  browser.GetTagDescriptor(index, branch, 0, tag.descriptor.data());
  char text[kNameBuffer] = {};
  // Descriptions go by index alone, so a history tag would get another tag's.
  if (branch == kBranchDa && browser.GetTagDescription(index, 0, text) != 0) tag.description = Utf8(text, sizeof text);
  return tag;
}

}  // namespace

std::string DataTypeText(std::uint32_t type) {
  constexpr std::pair<std::uint32_t, const char*> kNames[] = {{VT_R4, "float"},   {VT_R8, "double"}, {VT_BSTR, "text"},
                                                              {VT_BOOL, "truth"}, {VT_I1, "i8"},     {VT_UI1, "u8"}};
  for (const auto& [number, name] : kNames) {
    if (number == type) return name;
  }
  return fmt::format("{}", type);
}

std::vector<MeterType> ReadMeterTypes(IProtocol& protocol) {
  const auto enumeration = Face<IEnumTypes>(protocol, IID_IEnumTypes);
  std::vector<MeterType> types;
  enumeration->Reset();
  MeterTypeRecord record = {};
  while (enumeration->Next(&record) == S_OK) {
    types.push_back({.id = record.TypeId,
                     .name = Utf8(record.TypeName, sizeof record.TypeName),
                     .display = Utf8(record.DisplayName, sizeof record.DisplayName)});
  }
  return types;
}

std::vector<TagDefinition> ReadTagDefinitions(IProtocol& protocol, std::uint32_t meterType, std::uint32_t branch) {
  const auto browser = Face<IBrowser>(protocol, IID_IBrowser);
  const std::uint32_t first = browser->GetFirstTagId(branch);
  std::vector<TagDefinition> tags;
  char name[kNameBuffer] = {};
  // An empty name is an id that the type does not have; 0 ends the branch.
  for (std::uint32_t id = first; browser->GetTagName(id, meterType, branch, name, 0) != 0; ++id) {
    if (name[0] == '\0') continue;
    tags.push_back(ReadDefinition(*browser, id, id - first, branch));
    tags.back().name = Utf8(name, sizeof name);
  }
  return tags;
}

const MeterType& FindMeterType(const std::vector<MeterType>& types, const std::variant<std::uint32_t, std::string>& wanted) {
  std::vector<std::string> displays;
  std::vector<std::uint32_t> ids;
  for (const MeterType& type : types) {
    if (std::holds_alternative<std::uint32_t>(wanted) ? type.id == std::get<std::uint32_t>(wanted)
                                                      : Lowered(type.display) == Lowered(std::get<std::string>(wanted))) {
      return type;
    }
    displays.push_back(type.display);
    ids.push_back(type.id);
  }
  if (const auto* const id = std::get_if<std::uint32_t>(&wanted)) {
    throw Failure(kExitUsage, fmt::format("there is no meter type {}; there are {}", *id, fmt::join(ids, ", ")));
  }
  const std::string& name = std::get<std::string>(wanted);
  // Some names stand for two types.
  const auto isNamed = [&name](const MeterType& type) { return Lowered(type.name) == Lowered(name); };
  if (std::count_if(types.begin(), types.end(), isNamed) == 1) return *std::find_if(types.begin(), types.end(), isNamed);
  throw Failure(kExitUsage, "there is no meter type \"" + name + "\"" + DidYouMean(name, displays));
}

}  // namespace ostrel::host
