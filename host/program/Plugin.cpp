#include "host/program/Plugin.h"

#include <utility>

#include "host/program/Failure.h"

namespace ostrel::host {
namespace {

using GetClassObject = HRESULT(STDMETHODCALLTYPE*)(REFCLSID classId, REFIID iid, void** object);

std::string FolderOf(const std::string& path) { return path.substr(0, path.find_last_of("/\\") + 1); }

// Beside the program, or in the folder lib next to the program's.
platform::LoadedModule LoadDefault(std::string& path, std::string& error) {
  const std::string folder = FolderOf(platform::ProgramPath());
  const std::string name = platform::ModuleFileName("OstrelProtocol");
  path = folder + name;
  platform::LoadedModule beside = platform::LoadedModule::Load(path, error);
  if (beside) return beside;
  path = folder + "../lib/" + name;
  return platform::LoadedModule::Load(path, error);
}

}  // namespace

Plugin Plugin::Load(const std::string& path) {
  std::string file = path;
  std::string error;
  platform::LoadedModule module = path.empty() ? LoadDefault(file, error) : platform::LoadedModule::Load(file, error);
  if (!module) throw Failure(kExitUsage, file + ": " + error);
  const auto getClassObject = reinterpret_cast<GetClassObject>(module.Symbol("DllGetClassObject"));
  if (getClassObject == nullptr) throw Failure(kExitUsage, file + ": has no DllGetClassObject");
  void* factory = nullptr;
  if (FAILED(getClassObject(CLSID_Protocol, IID_IClassFactory, &factory))) {
    throw Failure(kExitUsage, file + ": does not serve the plug-in's class");
  }
  Plugin plugin(ComPointer<IClassFactory>(static_cast<IClassFactory*>(factory)));
  plugin.module_ = std::move(module);
  return plugin;
}

Plugin::Plugin(ComPointer<IClassFactory> factory) : factory_(std::move(factory)) {}

ComPointer<IProtocol> Plugin::CreateProtocol() const {
  void* protocol = nullptr;
  const HRESULT result = factory_->CreateInstance(nullptr, IID_IProtocol, &protocol);
  if (FAILED(result)) throw Failure(kExitUsage, "the plug-in cannot make a protocol object");
  return ComPointer<IProtocol>(static_cast<IProtocol*>(protocol));
}

}  // namespace ostrel::host
