// Hands out port objects and takes their cookies back.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <set>

#include "Protocol/link/PortInterfaces.h"
#include "host/ports/PortDirectory.h"

namespace ostrel::host {

/// Lives as long as its owner, the host services: references are counted but do not end it. A port object is kept alive by the
/// plug-in's references alone; the cookie only says that it is still out.
class ObjectProvider final : public IObjectProvider {
 public:
  explicit ObjectProvider(std::shared_ptr<PortDirectory> directory);
  ObjectProvider(const ObjectProvider&) = delete;
  ObjectProvider& operator=(const ObjectProvider&) = delete;

  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** object) override;
  ULONG STDMETHODCALLTYPE AddRef() override;
  ULONG STDMETHODCALLTYPE Release() override;
  HRESULT STDMETHODCALLTYPE CreatePortObject(std::uint32_t kind, REFIID iid, std::uint32_t* cookie, void** object) override;
  HRESULT STDMETHODCALLTYPE ReleasePortObject(std::uint32_t cookie) override;

  /// Cookies that have not come back.
  [[nodiscard]] std::size_t OutstandingCookies() const;

 private:
  std::shared_ptr<PortDirectory> directory_;
  std::atomic<std::uint32_t> references_{1};
  mutable std::mutex mutex_;
  std::set<std::uint32_t> cookies_;
  std::uint32_t lastCookie_ = 0;
};

}  // namespace ostrel::host
