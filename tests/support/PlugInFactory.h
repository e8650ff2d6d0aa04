// The plug-in's factory as a host gets it from the module, for objects in the test's own process.
#pragma once

#include "Protocol/object/CProtocol.h"
#include "platform/com.h"

namespace ostrel::test {

/// Lives as long as its owner, however often it is released.
class PlugInFactory final : public IClassFactory {
 public:
  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID, void**) override { return E_NOINTERFACE; }
  ULONG STDMETHODCALLTYPE AddRef() override { return 2; }
  ULONG STDMETHODCALLTYPE Release() override { return 1; }
  HRESULT STDMETHODCALLTYPE CreateInstance(IUnknown*, REFIID iid, void** object) override {
    return (new CProtocol)->QueryInterface(iid, object);
  }
  HRESULT STDMETHODCALLTYPE LockServer(BOOL) override { return S_OK; }
};

}  // namespace ostrel::test
