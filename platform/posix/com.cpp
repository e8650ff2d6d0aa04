#include "platform/com.h"

#include <algorithm>
#include <cstdlib>

namespace ostrel::platform {

void* TaskAlloc(std::size_t bytes) { return std::malloc(std::max<std::size_t>(bytes, 1)); }

void TaskFree(void* memory) { std::free(memory); }

}  // namespace ostrel::platform
