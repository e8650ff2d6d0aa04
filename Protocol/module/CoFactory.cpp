#include "Protocol/module/CoFactory.h"

#include "Protocol/model/Guarded.h"
#include "Protocol/module/ModuleCounts.h"
#include "Protocol/object/CProtocol.h"

namespace ostrel {
namespace {

class CountedObject {
 public:
  CountedObject() { ++Counts().objects; }
  CountedObject(const CountedObject&) = delete;
  CountedObject& operator=(const CountedObject&) = delete;
  ~CountedObject() { --Counts().objects; }
};

/// A protocol object that keeps the module loaded while it lives. The count is the first base, so that it falls last: the
/// object's end waits for its poll thread, which runs in this module.
class CountedProtocol final : private CountedObject, public CProtocol {};

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
  return Guarded(E_OUTOFMEMORY, [&] { return GiveFace(new CountedProtocol, iid, object); });
}

HRESULT STDMETHODCALLTYPE CoFactory::LockServer(BOOL lock) {
  Counts().locks += lock ? 1 : -1;
  return S_OK;
}

}  // namespace ostrel
