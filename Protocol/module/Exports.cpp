// The module's entry points. No exception leaves them.
#include "Protocol/model/Guarded.h"
#include "Protocol/module/CoFactory.h"
#include "Protocol/module/ModuleCounts.h"
#include "Protocol/module/Registrar.h"
#include "Protocol/module/Registration.h"
#include "Protocol/object/Interfaces.h"
#include "platform/export.h"

#if defined(_WIN32)
#define OSTREL_ENTRY extern "C" HRESULT __stdcall
#else
#define OSTREL_ENTRY extern "C" OSTREL_EXPORT HRESULT
#endif

OSTREL_ENTRY DllGetClassObject(REFCLSID classId, REFIID iid, void** object) {
  if (object == nullptr) return E_POINTER;
  *object = nullptr;
  if (!ostrel::platform::SameGuid(classId, ostrel::CLSID_Protocol)) return CLASS_E_CLASSNOTAVAILABLE;
  return ostrel::Guarded(E_OUTOFMEMORY, [&] { return ostrel::GiveFace(new ostrel::CoFactory, iid, object); });
}

OSTREL_ENTRY DllCanUnloadNow() {
  const ostrel::ModuleCounts& counts = ostrel::Counts();
  return counts.locks == 0 && counts.factories == 0 && counts.objects == 0 ? S_OK : S_FALSE;
}

OSTREL_ENTRY DllRegisterServer() { return ostrel::Guarded(ostrel::kSelfRegistrationFailed, ostrel::RegisterModule); }

OSTREL_ENTRY DllUnregisterServer() { return ostrel::Guarded(ostrel::kSelfRegistrationFailed, ostrel::UnregisterModule); }
