#include "Protocol/module/CoFactory.h"

#include <new>

#include "Protocol/module/ModuleCounts.h"
#include "Protocol/object/CProtocol.h"

namespace ostrel {
namespace {

/// A protocol object that keeps the module loaded while it lives.
class CountedProtocol final : public CProtocol {
 public:
  CountedProtocol() { ++Counts().objects; }

 private:
  ~CountedProtocol() override { --Counts().objects; }
};

}  // namespace

ModuleCounts& Counts() {
  static ModuleCounts counts;
  return counts;
}

CoFactory::CoFactory() { ++Counts().factories; }

CoFactory::~CoFactory() { --Counts().factories; }

HRESULT STDMETHODCALLTYPE CoFactory::QueryInterface(REFIID iid, void** object) {
  if (object == nullptr) return E_POINTER;
  *object = nullptr;
  if (!platform::SameGuid(iid, IID_IUnknown) && !platform::SameGuid(iid, IID_IClassFactory)) return E_NOINTERFACE;
  *object = static_cast<IClassFactory*>(this);
  AddRef();
  return S_OK;
}

ULONG STDMETHODCALLTYPE CoFactory::AddRef() { return ++references_; }

ULONG STDMETHODCALLTYPE CoFactory::Release() {
  const std::uint32_t left = --references_;
  if (left == 0) delete this;
  return left;
}

HRESULT STDMETHODCALLTYPE CoFactory::CreateInstance(IUnknown* outer, REFIID iid, void** object) {
  if (object == nullptr) return E_POINTER;
  *object = nullptr;
  if (outer != nullptr) return CLASS_E_NOAGGREGATION;
  auto* const protocol = new (std::nothrow) CountedProtocol;
  if (protocol == nullptr) return E_OUTOFMEMORY;
  // Held for the length of the query, so that a refused interface ends the object.
  protocol->AddRef();
  const HRESULT result = protocol->QueryInterface(iid, object);
  protocol->Release();
  return result;
}

HRESULT STDMETHODCALLTYPE CoFactory::LockServer(BOOL lock) {
  Counts().locks += lock ? 1 : -1;
  return S_OK;
}

}  // namespace ostrel
