#include "platform/com_server.h"

#include <string>

#include "platform/guid_text.h"
#include "platform/module.h"
#include "platform/registry.h"

namespace ostrel::platform {
namespace {

constexpr auto kClassNotRegistered = static_cast<HRESULT>(0x80040154);

using GetClassObject = HRESULT(STDMETHODCALLTYPE*)(REFCLSID classId, REFIID iid, void** object);

}  // namespace

ComThread::ComThread() = default;

ComThread::~ComThread() = default;

HRESULT ClassFactoryOf(const GUID& classId, IClassFactory** factory) {
  *factory = nullptr;
  const auto path = RegistryText("CLSID\\" + GuidToText(classId) + "\\InprocServer32", "");
  if (!path) return kClassNotRegistered;
  std::string error;
  auto* const module = new LoadedModule(LoadedModule::Load(*path, error));
  const auto entry = reinterpret_cast<GetClassObject>(module->Symbol("DllGetClassObject"));
  void* object = nullptr;
  const HRESULT result = entry != nullptr ? entry(classId, IID_IClassFactory, &object) : kClassNotRegistered;
  // A module that serves objects is never unloaded: nobody here knows when the last one has gone.
  if (FAILED(result)) delete module;
  *factory = static_cast<IClassFactory*>(object);
  return result;
}

}  // namespace ostrel::platform
