#include <memory>
#include <string>

#include "Protocol/module/Registrar.h"
#include "platform/windows/own_module.h"

namespace ostrel {

/// The component registrar's own order of operations. Not in the unnamed namespace: the optimiser knows all classes of that,
/// finds none that implements it, and calls address 0.
struct IRegistrar : IUnknown {
  virtual HRESULT STDMETHODCALLTYPE AddReplacement(LPCOLESTR key, LPCOLESTR item) = 0;
  virtual HRESULT STDMETHODCALLTYPE ClearReplacements() = 0;
  virtual HRESULT STDMETHODCALLTYPE ResourceRegisterSz(LPCOLESTR file, LPCOLESTR id, LPCOLESTR type) = 0;
  virtual HRESULT STDMETHODCALLTYPE ResourceUnregisterSz(LPCOLESTR file, LPCOLESTR id, LPCOLESTR type) = 0;
  virtual HRESULT STDMETHODCALLTYPE FileRegister(LPCOLESTR file) = 0;
  virtual HRESULT STDMETHODCALLTYPE FileUnregister(LPCOLESTR file) = 0;
  virtual HRESULT STDMETHODCALLTYPE StringRegister(LPCOLESTR data) = 0;
  virtual HRESULT STDMETHODCALLTYPE StringUnregister(LPCOLESTR data) = 0;
  virtual HRESULT STDMETHODCALLTYPE ResourceRegister(LPCOLESTR file, UINT id, LPCOLESTR type) = 0;
  virtual HRESULT STDMETHODCALLTYPE ResourceUnregister(LPCOLESTR file, UINT id, LPCOLESTR type) = 0;

 protected:
  ~IRegistrar() = default;
};

namespace {

constexpr GUID kRegistrarClass = {0x44EC053A, 0x400F, 0x11D0, {0x9D, 0xCD, 0x00, 0xA0, 0xC9, 0x03, 0x91, 0xD3}};
constexpr GUID kRegistrarInterface = {0x44EC053B, 0x400F, 0x11D0, {0x9D, 0xCD, 0x00, 0xA0, 0xC9, 0x03, 0x91, 0xD3}};
constexpr UINT kScriptId = 102;
constexpr wchar_t kScriptType[] = L"REGISTRY";
/// The registrar takes no longer path.
constexpr DWORD kLongestPath = 259;

using RegistrarPointer = std::unique_ptr<IRegistrar, decltype([](IRegistrar* registrar) { registrar->Release(); })>;

RegistrarPointer CreateRegistrar() {
  void* registrar = nullptr;
  const HRESULT result = ::CoCreateInstance(kRegistrarClass, nullptr, CLSCTX_INPROC_SERVER, kRegistrarInterface, &registrar);
  return RegistrarPointer(SUCCEEDED(result) ? static_cast<IRegistrar*>(registrar) : nullptr);
}

HRESULT RunScript(IRegistrar& registrar, ScriptAction action) {
  wchar_t path[kLongestPath + 1];
  const DWORD length = ::GetModuleFileNameW(platform::OwnModule(), path, static_cast<DWORD>(std::size(path)));
  if (length == 0 || length > kLongestPath) return E_FAIL;
  // In the script the path stands in single quotes, which a quote in the path would end.
  std::wstring quoted;
  for (const wchar_t* character = path; *character != L'\0'; ++character) {
    quoted.append(*character == L'\'' ? 2 : 1, *character);
  }
  if (const HRESULT result = registrar.AddReplacement(L"Module", quoted.c_str()); FAILED(result)) return result;
  return action == ScriptAction::Register ? registrar.ResourceRegister(path, kScriptId, kScriptType)
                                          : registrar.ResourceUnregister(path, kScriptId, kScriptType);
}

}  // namespace

HRESULT RunRegistryScript(ScriptAction action) {
  const RegistrarPointer registrar = CreateRegistrar();
  return registrar != nullptr && SUCCEEDED(RunScript(*registrar, action)) ? S_OK : kSelfRegistrationFailed;
}

}  // namespace ostrel
