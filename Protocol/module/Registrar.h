// What runs the module's registry script: the system's component registrar on Windows, elsewhere a reader of our own.
#pragma once

#include "platform/com.h"

namespace ostrel {

/// The one way registration fails.
inline constexpr HRESULT kSelfRegistrationFailed = static_cast<HRESULT>(0x80040201);

enum class ScriptAction { Register, Unregister };

/// S_OK or kSelfRegistrationFailed.
[[nodiscard]] HRESULT RunRegistryScript(ScriptAction action);

}  // namespace ostrel
