#include "platform/named_mutex.h"

#include <algorithm>
#include <string>

namespace ostrel::platform {

NamedMutexHandle OpenNamedMutex(const OLECHAR* name) {
  if (name == nullptr) return kNoMutex;
  // A backslash would name a session of the system. File names, which these names are made of, hold no '|'.
  std::wstring systemName = name;
  std::ranges::replace(systemName, L'\\', L'|');
  const HANDLE mutex = ::CreateMutexW(nullptr, FALSE, systemName.c_str());
  return mutex != nullptr ? mutex : kNoMutex;
}

bool LockNamedMutex(NamedMutexHandle mutex) {
  if (mutex == kNoMutex) return false;
  const DWORD outcome = ::WaitForSingleObject(mutex, INFINITE);
  return outcome == WAIT_OBJECT_0 || outcome == WAIT_ABANDONED;
}

void UnlockNamedMutex(NamedMutexHandle mutex) {
  if (mutex != kNoMutex) ::ReleaseMutex(mutex);
}

void CloseNamedMutex(NamedMutexHandle mutex) {
  if (mutex != kNoMutex) ::CloseHandle(mutex);
}

}  // namespace ostrel::platform
