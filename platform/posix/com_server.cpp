#include "platform/com_server.h"

#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "platform/guid_text.h"
#include "platform/module.h"
#include "platform/registry.h"

namespace ostrel::platform {
namespace {

constexpr auto kClassNotRegistered = static_cast<HRESULT>(0x80040154);

using GetClassObject = HRESULT(STDMETHODCALLTYPE*)(REFCLSID classId, REFIID iid, void** object);

/// A module that serves objects is never unloaded: nobody here knows when the last one has gone.
void KeepForEver(LoadedModule module) {
  static std::mutex mutex;
  static auto& kept = *new std::vector<LoadedModule>;
  const std::lock_guard<std::mutex> guard(mutex);
  kept.push_back(std::move(module));
}

}  // namespace

ComThread::ComThread() = default;

ComThread::~ComThread() = default;

HRESULT ClassFactoryOf(const GUID& classId, IClassFactory** factory) {
  *factory = nullptr;
  const auto path = RegistryText("CLSID\\" + GuidToText(classId) + "\\InprocServer32", "");
  if (!path) return kClassNotRegistered;
  std::string error;
  LoadedModule module = LoadedModule::Load(*path, error);
  const auto entry = reinterpret_cast<GetClassObject>(module.Symbol("DllGetClassObject"));
  void* object = nullptr;
  const HRESULT result = entry != nullptr ? entry(classId, IID_IClassFactory, &object) : kClassNotRegistered;
  if (SUCCEEDED(result)) KeepForEver(std::move(module));
  *factory = static_cast<IClassFactory*>(object);
  return result;
}

}  // namespace ostrel::platform
