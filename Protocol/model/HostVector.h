// The growable array of the records that cross the module boundary: 24 bytes, no alignment above 4, storage from the COM
// task allocator, so that host and plug-in may come from different compilers.
#pragma once

#include <cstdint>
#include <new>
#include <utility>

#include "platform/com.h"
#include "platform/layout.h"

namespace ostrel {

#pragma pack(push, 4)
/// Elements may be misaligned for their own type by 4 bytes at most, as the record that holds them is. Copies are deep in
/// the elements; pointers in it are shared. Append and copy give up silently only by `false`: nothing throws.
template <class Element>
class HostVector {
 public:
  HostVector() = default;
  HostVector(const HostVector& other) { Assign(other); }
  HostVector(HostVector&& other) noexcept { Swap(other); }
  HostVector& operator=(const HostVector& other) {
    if (this != &other) {
      HostVector copy(other);
      Swap(copy);
    }
    return *this;
  }
  HostVector& operator=(HostVector&& other) noexcept {
    if (this != &other) {
      Clear();
      Swap(other);
    }
    return *this;
  }
  ~HostVector() { Clear(); }

  [[nodiscard]] std::uint32_t Size() const { return size_; }
  [[nodiscard]] bool Empty() const { return size_ == 0; }
  [[nodiscard]] Element* begin() { return data_; }
  [[nodiscard]] Element* end() { return data_ + size_; }
  [[nodiscard]] const Element* begin() const { return data_; }
  [[nodiscard]] const Element* end() const { return data_ + size_; }
  [[nodiscard]] Element& operator[](std::uint32_t index) { return *(begin() + index); }
  [[nodiscard]] const Element& operator[](std::uint32_t index) const { return *(begin() + index); }

  /// False when memory is short; the array is then unchanged. The element may be one of the array's own.
  bool Append(Element element) {
    if (size_ == capacity_ && !Grow()) return false;
    new (static_cast<void*>(begin() + size_)) Element(std::move(element));
    ++size_;
    return true;
  }

  /// Later elements move one place forward by assignment.
  void RemoveAt(std::uint32_t index) {
    Element* elements = data_;
    for (std::uint32_t i = index + 1; i < size_; ++i) elements[i - 1] = std::move(elements[i]);
    elements[size_ - 1].~Element();
    --size_;
  }

  void Clear() {
    Element* elements = data_;
    for (std::uint32_t i = 0; i < size_; ++i) elements[i].~Element();
    platform::TaskFree(elements);
    data_ = nullptr;
    size_ = 0;
    capacity_ = 0;
  }

 private:
  void Swap(HostVector& other) noexcept {
    Element* const data = data_;
    const std::uint32_t size = size_;
    const std::uint32_t capacity = capacity_;
    data_ = other.data_;
    size_ = other.size_;
    capacity_ = other.capacity_;
    other.data_ = data;
    other.size_ = size;
    other.capacity_ = capacity;
  }

  void Assign(const HostVector& other) {
    for (const Element& element : other) {
      if (!Append(element)) return;
    }
  }

  bool Grow() {
    const std::uint32_t capacity = capacity_ == 0 ? 4 : capacity_ * 2;
    auto* const grown = static_cast<Element*>(platform::TaskAlloc(sizeof(Element) * static_cast<std::size_t>(capacity)));
    if (grown == nullptr) return false;
    Element* const old = data_;
    for (std::uint32_t i = 0; i < size_; ++i) {
      new (static_cast<void*>(grown + i)) Element(std::move(old[i]));
      old[i].~Element();
    }
    platform::TaskFree(old);
    data_ = grown;
    capacity_ = capacity;
    return true;
  }

  Element* data_ = nullptr;
  std::uint32_t size_ = 0;
  std::uint32_t capacity_ = 0;
  std::uint8_t fill_[24 - sizeof(void*) - 8] = {};
};
#pragma pack(pop)

static_assert(sizeof(HostVector<void*>) == 24 && alignof(HostVector<void*>) == 4);

}  // namespace ostrel
