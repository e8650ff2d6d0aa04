// Holds one reference to a COM object.
#pragma once

#include <utility>

#include "platform/com.h"

namespace ostrel::host {

template <class Interface>
class ComPointer {
 public:
  ComPointer() = default;
  /// Takes over the reference that comes with the pointer.
  explicit ComPointer(Interface* taken) : object_(taken) {}
  ComPointer(ComPointer&& other) noexcept : object_(std::exchange(other.object_, nullptr)) {}
  ComPointer& operator=(ComPointer&& other) noexcept {
    std::swap(object_, other.object_);
    return *this;
  }
  ~ComPointer() {
    if (object_ != nullptr) object_->Release();
  }

  [[nodiscard]] Interface* Get() const { return object_; }
  Interface* operator->() const { return object_; }
  Interface& operator*() const { return *object_; }
  [[nodiscard]] explicit operator bool() const { return object_ != nullptr; }

  /// Another face of the same object; empty when it has none.
  template <class Other>
  [[nodiscard]] ComPointer<Other> Query(REFIID iid) const {
    void* face = nullptr;
    if (FAILED(object_->QueryInterface(iid, &face))) return {};
    return ComPointer<Other>(static_cast<Other*>(face));
  }

 private:
  Interface* object_ = nullptr;
};

}  // namespace ostrel::host
