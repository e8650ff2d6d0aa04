// The plug-in as a host finds it: a module with one exported factory, which makes an object per channel.
#pragma once

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "Protocol/object/Interfaces.h"
#include "host/session/Catalogue.h"
#include "host/session/ComPointer.h"
#include "platform/com_server.h"
#include "platform/module.h"

namespace ostrel::host {

class Plugin {
 public:
  /// Loads the module. Without a path it is the one that the host's plug-in list names, or, when nothing is registered, the one
  /// that lies beside the program or in ../lib. Throws Failure (usage).
  static Plugin Load(const std::string& path);
  /// Of a factory that is there already; takes its reference over.
  explicit Plugin(ComPointer<IClassFactory> factory);

  /// A new object for one channel. Throws Failure.
  [[nodiscard]] ComPointer<IProtocol> CreateProtocol() const;

  /// Current-data tags of a meter type, asked of the plug-in once and shared by all its meters. From one thread at a time.
  [[nodiscard]] std::shared_ptr<const std::vector<TagDefinition>> TagsOf(IProtocol& protocol, std::uint32_t meterType) const;

 private:
  static Plugin LoadRegistered(const std::string& module);

  std::unique_ptr<platform::ComThread> thread_;  // a registered class is served on this thread's apartment
  platform::LoadedModule module_;                // outlives the factory and every object
  ComPointer<IClassFactory> factory_;
  mutable std::map<std::uint32_t, std::shared_ptr<const std::vector<TagDefinition>>> tags_;
};

/// Enters the plug-in in the registry and in the host's list, or takes it out. An empty path is the module that lies beside the
/// program or in ../lib. Gives the module's path; throws Failure (usage).
std::string RegisterPlugin(const std::string& path, bool enter);

}  // namespace ostrel::host
