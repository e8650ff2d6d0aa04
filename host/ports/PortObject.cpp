#include "host/ports/PortObject.h"

#include <exception>
#include <string_view>
#include <utility>

namespace ostrel::host {
namespace {

constexpr std::string_view kDevicePrefix = R"(\\.\)";
constexpr std::uint32_t kPortOpen = 1;

std::string PortName(std::string_view deviceName) {
  return std::string(deviceName.starts_with(kDevicePrefix) ? deviceName.substr(kDevicePrefix.size()) : deviceName);
}

}  // namespace

PortObject::PortObject(std::shared_ptr<PortDirectory> directory) : directory_(std::move(directory)) {}

HRESULT PortObject::QueryInterface(REFIID iid, void** object) {
  if (object == nullptr) return E_POINTER;
  *object = nullptr;
  if (platform::SameGuid(iid, IID_IUnknown) || platform::SameGuid(iid, IID_IPortObject)) {
    *object = static_cast<IPortObject*>(this);
  } else if (platform::SameGuid(iid, IID_IPortIo)) {
    *object = static_cast<IPortIo*>(this);
  } else {
    return E_NOINTERFACE;
  }
  AddRef();
  return S_OK;
}

ULONG PortObject::AddRef() { return ++references_; }

ULONG PortObject::Release() {
  const std::uint32_t left = --references_;
  if (left == 0) delete this;
  return left;
}

HRESULT PortObject::OpenStream(const std::string& name) {
  const std::optional<PortEntry> entry = directory_->Find(name);
  std::string problem = "no device is set for this port";
  std::unique_ptr<ByteStream> stream;
  if (entry) stream = entry->open(problem);
  if (stream == nullptr) {
    directory_->SetProblem(name, problem);
    return E_FAIL;
  }
  directory_->SetProblem(name, "");
  name_ = name;
  observer_ = entry->observer;
  line_.emplace(std::move(stream), entry->line, entry->owed);
  return S_OK;
}

// Libraries behind a device may throw; nothing of it reaches the plug-in.
HRESULT PortObject::Open(const char* deviceName) {
  if (deviceName == nullptr) return E_POINTER;
  const std::string name = PortName(deviceName);
  line_.reset();
  try {
    return OpenStream(name);
  } catch (const std::exception& failure) {
    directory_->SetProblem(name, failure.what());
    return E_FAIL;
  }
}

HRESULT PortObject::ReservedSlot4() { return S_OK; }

HRESULT PortObject::SetMode(const char* mode) {
  if (mode == nullptr || !line_) return E_FAIL;
  const std::optional<LineMode> parsed = ParseLineMode(mode);
  if (parsed && line_->SetMode(*parsed)) return S_OK;
  directory_->SetProblem(name_, std::string("the device does not take the mode ") + mode);
  return E_INVALIDARG;
}

HRESULT PortObject::SetBuffers(std::uint32_t, std::uint32_t) { return S_OK; }

HRESULT PortObject::Write(const std::uint8_t* bytes, std::uint32_t* length) {
  if (!line_) return E_FAIL;
  // What a read waits for is counted from the moment when everything has left, so there is nothing to drain.
  if (bytes == nullptr && length == nullptr) return S_OK;
  if (bytes == nullptr || length == nullptr) return E_POINTER;
  request_.assign(bytes, bytes + *length);
  if (line_->Send(bytes, *length)) return S_OK;
  *length = 0;
  return line_->Failed() ? S_OK : E_FAIL;
}

HRESULT PortObject::Read(std::uint8_t* buffer, std::uint32_t* length) {
  if (!line_) return E_FAIL;
  if (buffer == nullptr && length == nullptr) return line_->Purge() ? S_OK : E_FAIL;
  if (buffer == nullptr || length == nullptr) return E_POINTER;
  const PortLine::Received received = line_->Receive(buffer, *length);
  *length = static_cast<std::uint32_t>(received.count);
  if (observer_) observer_(request_, std::span(buffer, received.count));
  return received.echoRight ? S_OK : E_FAIL;
}

HRESULT PortObject::SetTimeouts(std::uint32_t answer, std::uint32_t quiet) {
  if (!line_) return E_FAIL;
  line_->SetTimeouts(answer, quiet);
  return S_OK;
}

HRESULT PortObject::ReservedSlot6() { return S_OK; }

std::uint32_t PortObject::GetState() { return line_ && !line_->Failed() ? kPortOpen : kPortFailed; }

}  // namespace ostrel::host
