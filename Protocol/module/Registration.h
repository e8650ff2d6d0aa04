// Registration of the module: its place in the host's list of plug-ins, and its class by the registry script.
#pragma once

#include "platform/com.h"

namespace ostrel {

/// The plug-in list is kept on a best-effort basis; only the script decides the result: S_OK or kSelfRegistrationFailed.
[[nodiscard]] HRESULT RegisterModule();
/// A module that is not registered is no failure.
[[nodiscard]] HRESULT UnregisterModule();

}  // namespace ostrel
