// By itself in its file: only modules with a string table link it.
#include "platform/resources.h"

#include <algorithm>
#include <cstring>

#include "platform/posix/string_table.h"
#include "platform/text.h"

namespace ostrel::platform {

bool LoadModuleString(std::uint32_t id, char* buffer, std::size_t size) {
  if (id > UINT16_MAX || size == 0) return false;
  const auto table = CompiledStringTable();
  const auto found = std::ranges::lower_bound(table, id, {}, &StringTableEntry::id);
  if (found == table.end() || found->id != id || found->text.empty()) return false;
  const std::string text = Utf8ToCp1251(found->text);
  const std::size_t length = std::min(text.size(), size - 1);
  std::memcpy(buffer, text.data(), length);
  buffer[length] = '\0';
  return true;
}

}  // namespace ostrel::platform
