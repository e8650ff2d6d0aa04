// Record layouts that the host fixes are those of its 32-bit build. There every offset is checked; in 64-bit builds
// the records that hold only numbers keep their bytes, and objects with pointers lie naturally.
#pragma once

#include <cstddef>
#include <cstdint>

namespace ostrel::platform {

/// True in the build whose byte layouts the host was written for.
inline constexpr bool kHostLayout = sizeof(void*) == 4;

}  // namespace ostrel::platform

#if defined(__i386__)
/// The host's part of a tag is packed to two bytes and the plug-in's part to eight; only the 32-bit build needs saying so.
#define OSTREL_PACK_TAG_HOST_PART _Pragma("pack(push, 2)")
#else
#define OSTREL_PACK_TAG_HOST_PART _Pragma("pack(push)")
#endif
#define OSTREL_PACK_END _Pragma("pack(pop)")
