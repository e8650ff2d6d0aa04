#include "platform/serial_device.h"

#include <windows.h>

#include "platform/text.h"

namespace ostrel::platform {

// The system tells no more than whether a port of this name is there.
SerialDevice LookAtSerialDevice(const std::string& device) {
  SerialDevice seen;
  wchar_t target[1024] = {};
  std::wstring name = Utf8ToOle(device);
  if (name.starts_with(LR"(\\.\)")) name.erase(0, 4);
  seen.exists = QueryDosDeviceW(name.c_str(), target, 1024) != 0;
  return seen;
}

}  // namespace ostrel::platform
