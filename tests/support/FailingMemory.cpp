#include "tests/support/FailingMemory.h"

#include <atomic>
#include <cstdlib>
#include <new>

#include "platform/com.h"

namespace ostrel::test {
namespace {

std::atomic<bool> watching{false};
std::atomic<std::int64_t> counted{0};
std::atomic<std::int64_t> failing{0};
std::atomic<std::int64_t> living{0};

/// Null when it is this one's turn to fail.
void* Allocate(std::size_t bytes) {
  if (watching && SparedMemory::depth == 0 && ++counted == failing) return nullptr;
  void* const memory = std::malloc(bytes == 0 ? 1 : bytes);
  if (memory != nullptr) ++living;
  return memory;
}

void Free(void* memory) {
  if (memory != nullptr) --living;
  std::free(memory);
}

}  // namespace

FailingMemory::FailingMemory(std::int64_t nth) {
  counted = 0;
  failing = nth;
  watching = true;
}

FailingMemory::~FailingMemory() { watching = false; }

std::int64_t FailingMemory::Count() { return counted; }

std::int64_t FailingMemory::Living() { return living; }

}  // namespace ostrel::test

// In the place of the library's, and of platform/*/com.cpp.

void* operator new(std::size_t bytes, const std::nothrow_t&) noexcept { return ostrel::test::Allocate(bytes); }

void* operator new(std::size_t bytes) {
  if (void* const memory = ostrel::test::Allocate(bytes)) return memory;
  throw std::bad_alloc();
}

void* operator new[](std::size_t bytes, const std::nothrow_t&) noexcept { return ostrel::test::Allocate(bytes); }
void* operator new[](std::size_t bytes) { return operator new(bytes); }
void operator delete(void* memory) noexcept { ostrel::test::Free(memory); }
void operator delete(void* memory, std::size_t) noexcept { ostrel::test::Free(memory); }
void operator delete[](void* memory) noexcept { ostrel::test::Free(memory); }
void operator delete[](void* memory, std::size_t) noexcept { ostrel::test::Free(memory); }

namespace ostrel::platform {

void* TaskAlloc(std::size_t bytes) { return test::Allocate(bytes); }
void TaskFree(void* memory) { test::Free(memory); }

}  // namespace ostrel::platform
