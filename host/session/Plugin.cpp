#include "host/session/Plugin.h"

#include <fmt/format.h>

#include <utility>

#include "host/server/PlugInList.h"
#include "host/session/Failure.h"

namespace ostrel::host {
namespace {

using GetClassObject = HRESULT(STDMETHODCALLTYPE*)(REFCLSID classId, REFIID iid, void** object);

std::string FolderOf(const std::string& path) { return path.substr(0, path.find_last_of("/\\") + 1); }

// Where the plug-in lies as seen from the program: in a zip, in a build, where a package installs it.
constexpr const char* kModuleFolders[] = {"", "../lib/", "../lib/ostrel/"};

platform::LoadedModule LoadDefault(std::string& path, std::string& error) {
  const std::string folder = FolderOf(platform::ProgramPath());
  for (const char* const each : kModuleFolders) {
    path = folder + each + platform::ModuleFileName("OstrelProtocol");
    if (platform::LoadedModule found = platform::LoadedModule::Load(path, error)) return found;
  }
  return {};
}

platform::LoadedModule LoadModule(std::string& path) {
  std::string error;
  platform::LoadedModule module = path.empty() ? LoadDefault(path, error) : platform::LoadedModule::Load(path, error);
  if (!module) throw Failure(kExitUsage, path + ": " + error);
  return module;
}

}  // namespace

Plugin Plugin::LoadRegistered(const std::string& module) {
  auto thread = std::make_unique<platform::ComThread>();
  IClassFactory* factory = nullptr;
  const HRESULT result = platform::ClassFactoryOf(CLSID_Protocol, &factory);
  if (FAILED(result)) {
    throw Failure(kExitUsage,
                  fmt::format("the registered plug-in {} cannot be loaded ({:#010x}); register it anew or give --module", module,
                              static_cast<std::uint32_t>(result)));
  }
  Plugin plugin((ComPointer<IClassFactory>(factory)));
  plugin.thread_ = std::move(thread);
  return plugin;
}

Plugin Plugin::Load(const std::string& path) {
  if (path.empty()) {
    if (const auto listed = FindPlugIn(CLSID_Protocol)) return LoadRegistered(listed->Module);
  }
  std::string file = path;
  platform::LoadedModule module = LoadModule(file);
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

std::shared_ptr<const std::vector<TagDefinition>> Plugin::TagsOf(IProtocol& protocol, std::uint32_t meterType) const {
  auto& tags = tags_[meterType];
  if (!tags) tags = std::make_shared<const std::vector<TagDefinition>>(ReadTagDefinitions(protocol, meterType, kBranchDa));
  return tags;
}

std::string RegisterPlugin(const std::string& path, bool enter) {
  std::string file = path;
  const platform::LoadedModule module = LoadModule(file);
  const char* const name = enter ? "DllRegisterServer" : "DllUnregisterServer";
  const auto operation = reinterpret_cast<HRESULT(STDMETHODCALLTYPE*)()>(module.Symbol(name));
  if (operation == nullptr) throw Failure(kExitUsage, fmt::format("{}: has no {}", file, name));
  const HRESULT result = operation();
  if (FAILED(result)) {
    throw Failure(kExitUsage, fmt::format("{}: {} failed ({:#010x})", file, name, static_cast<std::uint32_t>(result)));
  }
  return file;
}

}  // namespace ostrel::host
