#include "platform/module.h"

#include <utility>

namespace ostrel::platform {

LoadedModule::LoadedModule(LoadedModule&& other) noexcept : handle_(std::exchange(other.handle_, nullptr)) {}

LoadedModule& LoadedModule::operator=(LoadedModule&& other) noexcept {
  LoadedModule taken(std::move(other));
  std::swap(handle_, taken.handle_);
  return *this;
}

}  // namespace ostrel::platform
