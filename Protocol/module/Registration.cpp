#include "Protocol/module/Registration.h"

#include <string>

#include "Protocol/module/Registrar.h"
#include "Protocol/object/Interfaces.h"
#include "platform/guid_text.h"
#include "platform/registry.h"

namespace ostrel {
namespace {

/// Under the host's own class. The key keeps this spelling; hosts read the class id from its value.
constexpr char kPlugInKey[] = R"(CLSID\{DAD6156E-FBCC-4532-AFB5-D4AB2326FB02}\Plugins\{09590E5C-2B82-4c8c-A6CD-1756BA3A8DFF})";
constexpr char kClassValue[] = "CLSID_PlaginProtocol";

}  // namespace

HRESULT RegisterModule() {
  platform::SetRegistryText(kPlugInKey, kClassValue, platform::GuidToText(CLSID_Protocol));
  return RunRegistryScript(ScriptAction::Register);
}

HRESULT UnregisterModule() {
  platform::DeleteRegistryTree(kPlugInKey);
  return RunRegistryScript(ScriptAction::Unregister);
}

}  // namespace ostrel
