#include "platform/module.h"

#include <dlfcn.h>

#include <filesystem>
#include <system_error>

namespace ostrel::platform {

std::string ProgramPath() {
  std::error_code ignored;
  return std::filesystem::read_symlink("/proc/self/exe", ignored).string();
}

std::string OwnModulePath() {
  Dl_info place = {};
  if (::dladdr(reinterpret_cast<const void*>(&OwnModulePath), &place) == 0 || place.dli_fname == nullptr) return {};
  std::error_code ignored;
  return std::filesystem::canonical(place.dli_fname, ignored).string();
}

std::string ModuleFileName(const std::string& name) { return "lib" + name + ".so"; }

LoadedModule::~LoadedModule() {
  if (handle_ != nullptr) ::dlclose(handle_);
}

LoadedModule LoadedModule::Load(const std::string& path, std::string& error) {
  LoadedModule module;
  module.handle_ = ::dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
  if (module.handle_ == nullptr) error = ::dlerror();
  return module;
}

void* LoadedModule::Symbol(const char* name) const { return handle_ != nullptr ? ::dlsym(handle_, name) : nullptr; }

}  // namespace ostrel::platform
