// The module's string table.
#pragma once

#include <cstddef>
#include <cstdint>

namespace ostrel::platform {

/// Loads the module's string `id` as code page 1251 text into `buffer`, cut to `size` - 1 bytes and terminated. False when
/// there is none; the buffer is then left alone. Ids above 65535 are never found, as the Windows table holds 16 bits.
[[nodiscard]] bool LoadModuleString(std::uint32_t id, char* buffer, std::size_t size);

}  // namespace ostrel::platform
