#include "platform/com.h"

namespace ostrel::platform {

void* TaskAlloc(std::size_t bytes) { return ::CoTaskMemAlloc(bytes); }

void TaskFree(void* memory) { ::CoTaskMemFree(memory); }

}  // namespace ostrel::platform
