// The module itself: where its file lies, and loading another one.
#pragma once

#include <string>

namespace ostrel::platform {

/// Path of the running program's file, UTF-8.
[[nodiscard]] std::string ProgramPath();

/// Full path of the module or program that the calling code was linked into, UTF-8; empty when it cannot be told.
[[nodiscard]] std::string OwnModulePath();

/// File name of a module by its plain name: libNAME.so, NAME.dll.
[[nodiscard]] std::string ModuleFileName(const std::string& name);

class LoadedModule {
 public:
  LoadedModule() = default;
  ~LoadedModule();
  LoadedModule(LoadedModule&& other) noexcept;
  LoadedModule& operator=(LoadedModule&& other) noexcept;

  /// Loads a module by its UTF-8 path. On failure `error` says why and the result is empty.
  [[nodiscard]] static LoadedModule Load(const std::string& path, std::string& error);

  [[nodiscard]] explicit operator bool() const { return handle_ != nullptr; }
  /// Address of an exported symbol, or null.
  [[nodiscard]] void* Symbol(const char* name) const;

 private:
  void* handle_ = nullptr;
};

}  // namespace ostrel::platform
