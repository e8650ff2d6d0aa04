#include "Protocol/module/ModuleCounts.h"
#include "platform/windows/com_types.h"

extern "C" BOOL WINAPI DllMain(HINSTANCE, DWORD reason, LPVOID) {
  if (reason == DLL_PROCESS_ATTACH) ostrel::Counts().Clear();
  return TRUE;
}
