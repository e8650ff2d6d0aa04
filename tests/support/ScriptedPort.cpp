// The three interfaces of a scripted line, as the plug-in calls them.
#include <gtest/gtest.h>

#include "tests/support/ScriptedLine.h"

namespace ostrel::test {
namespace {

using Guard = std::lock_guard<std::mutex>;

}  // namespace

// --- IObjectProvider

HRESULT ScriptedLine::QueryInterface(REFIID iid, void** object) {
  *object = platform::SameGuid(iid, IID_IUnknown) ? this : nullptr;
  return *object != nullptr ? S_OK : E_NOINTERFACE;
}

HRESULT ScriptedLine::CreatePortObject(std::uint32_t kind, REFIID iid, std::uint32_t* cookie, void** object) {
  const Guard guard(mutex_);
  Record("CreatePortObject " + std::to_string(kind));
  *object = nullptr;
  if (noPort_) return E_FAIL;
  EXPECT_TRUE(platform::SameGuid(iid, IID_IPortObject));
  *cookie = ++lastCookie_;
  cookies_.push_back(lastCookie_);
  ++portReferences_;
  *object = static_cast<IPortObject*>(&port_);
  return S_OK;
}

HRESULT ScriptedLine::ReleasePortObject(std::uint32_t cookie) {
  const Guard guard(mutex_);
  // A host's release cannot fail, not for want of memory either.
  if (keepRecords_) Record("ReleasePortObject " + std::to_string(cookie));
  EXPECT_EQ(1U, std::erase(cookies_, cookie)) << "cookie given back twice or never handed out: " << cookie;
  return S_OK;
}

// --- IPortObject

HRESULT ScriptedLine::Port::QueryInterface(REFIID iid, void** object) {
  const Guard guard(line_.mutex_);
  *object = nullptr;
  line_.Record("QueryIo");
  if (line_.noIo_ || !platform::SameGuid(iid, IID_IPortIo)) return E_NOINTERFACE;
  ++line_.ioReferences_;
  *object = static_cast<IPortIo*>(&line_.io_);
  return S_OK;
}

ULONG ScriptedLine::Port::AddRef() {
  const Guard guard(line_.mutex_);
  return static_cast<ULONG>(++line_.portReferences_);
}

ULONG ScriptedLine::Port::Release() {
  const Guard guard(line_.mutex_);
  line_.Record("ReleasePort");
  return static_cast<ULONG>(--line_.portReferences_);
}

HRESULT ScriptedLine::Port::Open(const char* deviceName) {
  const Guard guard(line_.mutex_);
  line_.Record(std::string("Open ") + deviceName);
  if (SUCCEEDED(line_.open_)) line_.input_.clear();
  return line_.open_;
}

HRESULT ScriptedLine::Port::SetMode(const char* mode) {
  const Guard guard(line_.mutex_);
  line_.Record(std::string("SetMode ") + mode);
  return S_OK;
}

HRESULT ScriptedLine::Port::SetBuffers(std::uint32_t input, std::uint32_t output) {
  const Guard guard(line_.mutex_);
  line_.Record("SetBuffers " + std::to_string(input) + " " + std::to_string(output));
  return S_OK;
}

// --- IPortIo

HRESULT ScriptedLine::Io::QueryInterface(REFIID, void** object) {
  *object = nullptr;
  return E_NOINTERFACE;
}

ULONG ScriptedLine::Io::AddRef() {
  const Guard guard(line_.mutex_);
  return static_cast<ULONG>(++line_.ioReferences_);
}

ULONG ScriptedLine::Io::Release() {
  const Guard guard(line_.mutex_);
  line_.Record("ReleaseIo");
  return static_cast<ULONG>(--line_.ioReferences_);
}

HRESULT ScriptedLine::Io::Write(const std::uint8_t* bytes, std::uint32_t* length) {
  if (bytes == nullptr && length == nullptr) return line_.Drain();
  return line_.Send({bytes, *length});
}

HRESULT ScriptedLine::Io::Read(std::uint8_t* buffer, std::uint32_t* length) {
  if (buffer == nullptr && length == nullptr) return line_.Purge();
  return line_.Receive(buffer, length);
}

HRESULT ScriptedLine::Io::SetTimeouts(std::uint32_t answer, std::uint32_t quiet) {
  const Guard guard(line_.mutex_);
  line_.Record("SetTimeouts " + std::to_string(answer) + " " + std::to_string(quiet));
  line_.answerTimeout_ = answer;
  return S_OK;
}

std::uint32_t ScriptedLine::Io::GetState() {
  const Guard guard(line_.mutex_);
  line_.Record("GetState");
  return line_.state_;
}

}  // namespace ostrel::test
