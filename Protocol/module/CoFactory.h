// The class factory: makes one protocol object per serial channel.
#pragma once

#include <atomic>
#include <cstdint>

#include "platform/com.h"

namespace ostrel {

/// The face of a new object. It is held for the length of the query, so that a refused interface ends it.
template <class Object>
HRESULT GiveFace(Object* object, REFIID iid, void** face) {
  object->AddRef();
  const HRESULT result = object->QueryInterface(iid, face);
  object->Release();
  return result;
}

class CoFactory final : public IClassFactory {
 public:
  CoFactory();
  CoFactory(const CoFactory&) = delete;
  CoFactory& operator=(const CoFactory&) = delete;

  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** object) override;
  ULONG STDMETHODCALLTYPE AddRef() override;
  /// Ends the factory at 0.
  ULONG STDMETHODCALLTYPE Release() override;
  /// CLASS_E_NOAGGREGATION with an outer object, E_OUTOFMEMORY when there is no memory for one.
  HRESULT STDMETHODCALLTYPE CreateInstance(IUnknown* outer, REFIID iid, void** object) override;
  HRESULT STDMETHODCALLTYPE LockServer(BOOL lock) override;

  ~CoFactory();

 private:
  std::atomic<std::uint32_t> references_{0};
};

}  // namespace ostrel
