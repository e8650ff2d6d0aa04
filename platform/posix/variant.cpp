// A BSTR here is what it is on Windows: its length in bytes as 32 bits, then the text, then a zero character.
#include "platform/variant.h"

namespace ostrel::platform {
namespace {

using Prefix = std::uint32_t;
constexpr std::size_t kMaxLength = (UINT32_MAX - sizeof(Prefix) - sizeof(OLECHAR)) / sizeof(OLECHAR);

std::byte* Start(BSTR text) { return reinterpret_cast<std::byte*>(text) - sizeof(Prefix); }

}  // namespace

BSTR AllocString(const OLECHAR* text, std::size_t length) {
  if (length > kMaxLength) return nullptr;
  const auto bytes = static_cast<Prefix>(length * sizeof(OLECHAR));
  auto* const start = static_cast<std::byte*>(TaskAlloc(sizeof(Prefix) + bytes + sizeof(OLECHAR)));
  if (start == nullptr) return nullptr;
  std::memcpy(start, &bytes, sizeof(Prefix));
  std::memset(start + sizeof(Prefix), 0, bytes + sizeof(OLECHAR));
  if (text != nullptr) std::memcpy(start + sizeof(Prefix), text, bytes);
  return reinterpret_cast<BSTR>(start + sizeof(Prefix));
}

void FreeString(BSTR text) {
  if (text != nullptr) TaskFree(Start(text));
}

std::size_t StringLength(BSTR text) {
  if (text == nullptr) return 0;
  Prefix bytes = 0;
  std::memcpy(&bytes, Start(text), sizeof(Prefix));
  return bytes / sizeof(OLECHAR);
}

}  // namespace ostrel::platform
