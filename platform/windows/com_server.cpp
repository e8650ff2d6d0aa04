#include "platform/com_server.h"

namespace ostrel::platform {

ComThread::ComThread() : entered_(SUCCEEDED(::CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED))) {}

ComThread::~ComThread() {
  if (entered_) ::CoUninitialize();
}

HRESULT ClassFactoryOf(const GUID& classId, IClassFactory** factory) {
  *factory = nullptr;
  return ::CoGetClassObject(classId, CLSCTX_INPROC_SERVER, nullptr, IID_IClassFactory, reinterpret_cast<void**>(factory));
}

}  // namespace ostrel::platform
