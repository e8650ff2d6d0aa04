#include "Protocol/module/Registrar.h"
#include "Protocol/module/RegistryScript.h"
#include "platform/module.h"

namespace ostrel {

HRESULT RunRegistryScript(ScriptAction action) {
  const auto script = RegistryScript::Parse(kModuleScript);
  const std::string path = platform::OwnModulePath();
  if (!script || path.empty()) return kSelfRegistrationFailed;
  const bool done = action == ScriptAction::Register ? script->Register({{"MODULE", path}}) : script->Unregister();
  return done ? S_OK : kSelfRegistrationFailed;
}

}  // namespace ostrel
