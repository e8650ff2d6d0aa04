// The port object that the plug-in gets from its provider: one object with two faces, opened by the port's name.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "Protocol/link/PortInterfaces.h"
#include "host/ports/PortDirectory.h"
#include "host/ports/PortLine.h"

namespace ostrel::host {

/// Made with one reference; the last Release closes the device. Used by one thread at a time, as the plug-in's exchange lock
/// sees to. A line that has failed takes requests and brings nothing, so that the caller comes to ask GetState.
class PortObject final : public IPortObject, public IPortIo {
 public:
  explicit PortObject(std::shared_ptr<PortDirectory> directory);
  PortObject(const PortObject&) = delete;
  PortObject& operator=(const PortObject&) = delete;

  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** object) override;
  ULONG STDMETHODCALLTYPE AddRef() override;
  ULONG STDMETHODCALLTYPE Release() override;

  HRESULT STDMETHODCALLTYPE Open(const char* deviceName) override;
  HRESULT STDMETHODCALLTYPE ReservedSlot4() override;
  HRESULT STDMETHODCALLTYPE SetMode(const char* mode) override;
  HRESULT STDMETHODCALLTYPE SetBuffers(std::uint32_t input, std::uint32_t output) override;

  HRESULT STDMETHODCALLTYPE Write(const std::uint8_t* bytes, std::uint32_t* length) override;
  HRESULT STDMETHODCALLTYPE Read(std::uint8_t* buffer, std::uint32_t* length) override;
  HRESULT STDMETHODCALLTYPE SetTimeouts(std::uint32_t answer, std::uint32_t quiet) override;
  HRESULT STDMETHODCALLTYPE ReservedSlot6() override;
  std::uint32_t STDMETHODCALLTYPE GetState() override;

 private:
  ~PortObject() = default;
  HRESULT OpenStream(const std::string& name);

  std::atomic<std::uint32_t> references_{1};
  std::shared_ptr<PortDirectory> directory_;
  std::string name_;
  ExchangeObserver observer_;
  std::optional<PortLine> line_;
  std::vector<std::uint8_t> request_;
};

}  // namespace ostrel::host
