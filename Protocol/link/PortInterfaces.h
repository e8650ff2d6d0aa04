// The host's port component as the plug-in calls it. Slots matter, names do not: the unnamed slots are held by
// reserved entries.
#pragma once

#include <cstdint>

#include "platform/com.h"

namespace ostrel {

inline constexpr GUID IID_IPortObject = {0x6EEB7D7E, 0x9DF9, 0x11D5, {0x89, 0x99, 0x00, 0xE0, 0x29, 0x3C, 0xC7, 0xF3}};
inline constexpr GUID IID_IPortIo = {0x6EEB7D7B, 0x9DF9, 0x11D5, {0x89, 0x99, 0x00, 0xE0, 0x29, 0x3C, 0xC7, 0xF3}};

/// The kind of port object that the plug-in asks its provider for.
inline constexpr std::uint32_t kSerialPortKind = 10;
/// GetState of a port whose line has failed; the plug-in then closes it and opens it again with the next request.
inline constexpr std::uint32_t kPortFailed = 4;

/// Bytes in and out. Negative results are failures.
struct IPortIo : IUnknown {
  /// Sends `*length` bytes and leaves there how many were sent. Without bytes and length: waits for output to drain.
  virtual HRESULT STDMETHODCALLTYPE Write(const std::uint8_t* bytes, std::uint32_t* length) = 0;
  /// Receives at most `*length` bytes and leaves there how many came. Without buffer and length: throws stale input away.
  /// A wanted count of 0 with a buffer brings 0 at once. Returns when the wanted count is there, when the line has been
  /// quiet for the second time-out after at least one byte, or when the first time-out passed without any.
  virtual HRESULT STDMETHODCALLTYPE Read(std::uint8_t* buffer, std::uint32_t* length) = 0;
  /// First time-out: wait for an answer to begin. Second: the quiet that ends one. Both ms.
  virtual HRESULT STDMETHODCALLTYPE SetTimeouts(std::uint32_t answer, std::uint32_t quiet) = 0;
  virtual HRESULT STDMETHODCALLTYPE ReservedSlot6() = 0;
  virtual std::uint32_t STDMETHODCALLTYPE GetState() = 0;

 protected:
  ~IPortIo() = default;
};

struct IPortObject : IUnknown {
  /// Opens the device \\.\NAME.
  virtual HRESULT STDMETHODCALLTYPE Open(const char* deviceName) = 0;
  virtual HRESULT STDMETHODCALLTYPE ReservedSlot4() = 0;
  /// "baud=9600 data=8 parity=N stop=1"; parity=NONE is no parity.
  virtual HRESULT STDMETHODCALLTYPE SetMode(const char* mode) = 0;
  virtual HRESULT STDMETHODCALLTYPE SetBuffers(std::uint32_t input, std::uint32_t output) = 0;

 protected:
  ~IPortObject() = default;
};

struct IObjectProvider : IUnknown {
  /// A new port object with one reference, and the cookie by which it is given back. Leaves null when there is none.
  virtual HRESULT STDMETHODCALLTYPE CreatePortObject(std::uint32_t kind, REFIID iid, std::uint32_t* cookie, void** object) = 0;
  /// An unknown cookie does nothing.
  virtual HRESULT STDMETHODCALLTYPE ReleasePortObject(std::uint32_t cookie) = 0;

 protected:
  ~IObjectProvider() = default;
};

}  // namespace ostrel
