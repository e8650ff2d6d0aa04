// Objects of registered classes. On Windows the system creates them; elsewhere the class's module is found in the registry,
// loaded, and asked for its factory in the same way.
#pragma once

#include "platform/com.h"

namespace ostrel::platform {

/// While it lives the calling thread is an apartment of its own: objects made on it are called directly, by any thread.
class ComThread {
 public:
  ComThread();
  ComThread(const ComThread&) = delete;
  ComThread& operator=(const ComThread&) = delete;
  ~ComThread();

 private:
  bool entered_ = false;
};

/// The factory of a registered class, with a reference for the caller, or null and the reason. The module that serves the class
/// stays loaded, on Windows as long as the calling thread's ComThread.
[[nodiscard]] HRESULT ClassFactoryOf(const GUID& classId, IClassFactory** factory);

}  // namespace ostrel::platform
