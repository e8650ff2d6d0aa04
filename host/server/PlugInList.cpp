#include "host/server/PlugInList.h"

#include <algorithm>

#include "platform/guid_text.h"
#include "platform/registry.h"

namespace ostrel {
namespace {

constexpr char kPlugIns[] = R"(CLSID\{DAD6156E-FBCC-4532-AFB5-D4AB2326FB02}\Plugins)";
constexpr char kClassValue[] = "CLSID_PlaginProtocol";

std::optional<PlugIn> ReadEntry(const std::string& key) {
  const auto text = platform::RegistryText(std::string(kPlugIns) + '\\' + key, kClassValue);
  const auto classId = text ? platform::GuidFromText(*text) : std::nullopt;
  if (!classId) return std::nullopt;
  const auto module = platform::RegistryText("CLSID\\" + *text + "\\InprocServer32", "");
  return module ? std::optional(PlugIn{.ClassId = *classId, .Module = *module}) : std::nullopt;
}

}  // namespace

std::vector<PlugIn> ListedPlugIns() {
  std::vector<PlugIn> plugIns;
  for (const std::string& key : platform::RegistrySubkeys(kPlugIns)) {
    if (const auto plugIn = ReadEntry(key)) plugIns.push_back(*plugIn);
  }
  return plugIns;
}

std::optional<PlugIn> FindPlugIn(const GUID& classId) {
  const std::vector<PlugIn> plugIns = ListedPlugIns();
  const auto found = std::ranges::find_if(plugIns, [&](const PlugIn& each) { return platform::SameGuid(each.ClassId, classId); });
  return found != plugIns.end() ? std::optional(*found) : std::nullopt;
}

}  // namespace ostrel
