// The host's tag: one value of one meter as OPC clients see it. The plug-in writes value, timestamp and quality under
// the host's tag lock and asks InUse before it serves the tag.
#pragma once

#include <cstddef>
#include <cstdint>

#include "host/server/Export.h"
#include "platform/layout.h"
#include "platform/variant.h"

namespace ostrel {

OSTREL_PACK_TAG_HOST_PART
/// In the 32-bit build 40 bytes: table 0, VARIANT 6, FILETIME 22, quality 30. The value and the timestamp are not aligned
/// there; read a FILETIME by its halves.
class TAVRINDASERVER_API COPCTag {
 public:
  COPCTag();
  COPCTag(const COPCTag&) = delete;
  COPCTag& operator=(const COPCTag&) = delete;

  /// Slot 0, in the place of a destructor, so that the table has three entries under every compiler: ends the tag in the
  /// module that made it. Bit 0 of `flags` asks for its memory to be freed as well.
  virtual void Destroy(std::uint32_t flags);
  virtual void AddRef();
  virtual void Release();

  /// Non-zero while a client uses the tag.
  [[nodiscard]] int InUse() const;
  /// A client begins or ends its use.
  void Use();
  void Unuse();

  std::uint16_t HostWord;  // the host's own
  VARIANT Value;
  FILETIME Timestamp;     // UTC
  std::uint16_t Quality;  // OPC DA quality word
  std::uint16_t Word32;   // 1 in a tag of the plug-in's class
  std::uint16_t References;
  mutable std::uint32_t UseCount;  // touched by several threads, atomically

 protected:
  ~COPCTag();
};
OSTREL_PACK_END

}  // namespace ostrel
