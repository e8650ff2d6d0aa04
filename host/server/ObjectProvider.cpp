#include "host/server/ObjectProvider.h"

#include <new>
#include <utility>

#include "host/ports/PortObject.h"

namespace ostrel::host {

ObjectProvider::ObjectProvider(std::shared_ptr<PortDirectory> directory) : directory_(std::move(directory)) {}

HRESULT ObjectProvider::QueryInterface(REFIID iid, void** object) {
  if (object == nullptr) return E_POINTER;
  *object = nullptr;
  if (!platform::SameGuid(iid, IID_IUnknown)) return E_NOINTERFACE;
  *object = static_cast<IObjectProvider*>(this);
  AddRef();
  return S_OK;
}

ULONG ObjectProvider::AddRef() { return ++references_; }

ULONG ObjectProvider::Release() { return --references_; }

HRESULT ObjectProvider::CreatePortObject(std::uint32_t kind, REFIID iid, std::uint32_t* cookie, void** object) {
  if (cookie == nullptr || object == nullptr) return E_POINTER;
  *cookie = 0;
  *object = nullptr;
  if (kind != kSerialPortKind) return E_INVALIDARG;
  auto* const port = new (std::nothrow) PortObject(directory_);
  if (port == nullptr) return E_OUTOFMEMORY;
  const HRESULT result = port->QueryInterface(iid, object);
  port->Release();
  if (FAILED(result)) return result;
  const std::lock_guard lock(mutex_);
  *cookie = ++lastCookie_;
  cookies_.insert(*cookie);
  return S_OK;
}

HRESULT ObjectProvider::ReleasePortObject(std::uint32_t cookie) {
  const std::lock_guard lock(mutex_);
  return cookies_.erase(cookie) != 0 ? S_OK : S_FALSE;
}

std::size_t ObjectProvider::OutstandingCookies() const {
  const std::lock_guard lock(mutex_);
  return cookies_.size();
}

}  // namespace ostrel::host
