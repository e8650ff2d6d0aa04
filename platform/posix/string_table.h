// What the build makes of the resource script: the strings in ascending order of their ids, UTF-8.
#pragma once

#include <cstdint>
#include <span>
#include <string_view>

namespace ostrel::platform {

struct StringTableEntry {
  std::uint32_t id;
  std::string_view text;
};

/// Defined by the generated source of the module that this is linked into.
[[nodiscard]] std::span<const StringTableEntry> CompiledStringTable();

}  // namespace ostrel::platform
