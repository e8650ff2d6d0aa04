#include "host/server/COPCTag.h"

#include <atomic>
#include <new>

namespace ostrel {
namespace {

std::atomic_ref<std::uint32_t> Uses(std::uint32_t* count) { return std::atomic_ref<std::uint32_t>(*count); }
std::atomic_ref<std::uint16_t> Owners(std::uint16_t* count) { return std::atomic_ref<std::uint16_t>(*count); }

}  // namespace

COPCTag::COPCTag() : HostWord(0), Value{}, Timestamp{}, Quality(0), Word32(0), References(1), UseCount(0) {}

COPCTag::~COPCTag() {
  if (Value.vt != VT_BSTR) return;
  platform::FreeString(Value.bstrVal);
  Value.bstrVal = nullptr;
  Value.vt = VT_EMPTY;
}

void COPCTag::Destroy(std::uint32_t flags) {
  this->COPCTag::~COPCTag();
  if ((flags & 1U) != 0) ::operator delete(this);
}

void COPCTag::AddRef() { Owners(&References).fetch_add(1); }

// A tag that was handed over belongs to the plug-in, which ends it by Destroy; only one that never was can end here.
void COPCTag::Release() {
  if (Owners(&References).fetch_sub(1) == 1) Destroy(1);
}

int COPCTag::InUse() const { return Uses(&UseCount).load() != 0 ? 1 : 0; }

void COPCTag::Use() { Uses(&UseCount).fetch_add(1); }

void COPCTag::Unuse() {
  auto uses = Uses(&UseCount);
  std::uint32_t count = uses.load();
  while (count != 0 && !uses.compare_exchange_weak(count, count - 1)) {
  }
}

}  // namespace ostrel
