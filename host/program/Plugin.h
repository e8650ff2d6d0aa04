// The plug-in as a host finds it: a module with one exported factory, which makes an object per channel.
#pragma once

#include <string>

#include "Protocol/object/Interfaces.h"
#include "host/program/ComPointer.h"
#include "platform/module.h"

namespace ostrel::host {

class Plugin {
 public:
  /// Loads the module; an empty path is the one that lies beside the program or in ../lib. Throws Failure (usage).
  static Plugin Load(const std::string& path);
  /// Of a factory that is there already; takes its reference over.
  explicit Plugin(ComPointer<IClassFactory> factory);

  /// A new object for one channel. Throws Failure.
  [[nodiscard]] ComPointer<IProtocol> CreateProtocol() const;

 private:
  platform::LoadedModule module_;  // outlives the factory and every object
  ComPointer<IClassFactory> factory_;
};

}  // namespace ostrel::host
