#include "platform/variant.h"

namespace ostrel::platform {

BSTR AllocString(const OLECHAR* text, std::size_t length) {
  if (length > UINT32_MAX / sizeof(OLECHAR)) return nullptr;
  return ::SysAllocStringLen(text, static_cast<UINT>(length));
}

void FreeString(BSTR text) { ::SysFreeString(text); }

std::size_t StringLength(BSTR text) { return ::SysStringLen(text); }

}  // namespace ostrel::platform
