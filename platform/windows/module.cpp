#include "platform/module.h"

#include "platform/text.h"
#include "platform/windows/own_module.h"

namespace ostrel::platform {
namespace {

/// Longer paths do not exist on this system.
constexpr DWORD kLongestPath = 32'768;

std::string SystemMessage(DWORD code) {
  wchar_t text[512];
  constexpr DWORD kFlags = FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS;
  DWORD length = ::FormatMessageW(kFlags, nullptr, code, 0, text, static_cast<DWORD>(std::size(text)), nullptr);
  while (length > 0 && text[length - 1] <= L' ') --length;
  return length > 0 ? OleToUtf8({text, length}) : "error " + std::to_string(code);
}

/// The neighbours of a module are found only when it is loaded by its full path.
std::wstring FullPath(const std::wstring& path) {
  std::wstring full(kLongestPath, L'\0');
  full.resize(::GetFullPathNameW(path.c_str(), kLongestPath, full.data(), nullptr));
  return full;
}

std::string PathOf(HMODULE module) {
  std::wstring path(kLongestPath, L'\0');
  path.resize(::GetModuleFileNameW(module, path.data(), kLongestPath));
  return OleToUtf8(path);
}

}  // namespace

HMODULE OwnModule() {
  constexpr DWORD kFlags = GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT;
  HMODULE module = nullptr;
  return ::GetModuleHandleExW(kFlags, reinterpret_cast<LPCWSTR>(&OwnModule), &module) ? module : nullptr;
}

std::string ProgramPath() { return PathOf(nullptr); }

std::string OwnModulePath() { return PathOf(OwnModule()); }

std::string ModuleFileName(const std::string& name) { return name + ".dll"; }

LoadedModule::~LoadedModule() {
  if (handle_ != nullptr) ::FreeLibrary(static_cast<HMODULE>(handle_));
}

LoadedModule LoadedModule::Load(const std::string& path, std::string& error) {
  LoadedModule module;
  module.handle_ = ::LoadLibraryExW(FullPath(Utf8ToOle(path)).c_str(), nullptr, LOAD_WITH_ALTERED_SEARCH_PATH);
  if (module.handle_ == nullptr) error = path + ": " + SystemMessage(::GetLastError());
  return module;
}

void* LoadedModule::Symbol(const char* name) const {
  return handle_ != nullptr ? reinterpret_cast<void*>(::GetProcAddress(static_cast<HMODULE>(handle_), name)) : nullptr;
}

}  // namespace ostrel::platform
