#include "support/allocations.h"

#include <cstddef>
#include <cstdlib>
#include <new>
#include <utility>

thread_local int allocations = 0;
thread_local bool nextAllocationFails = false;

#ifndef VELMARA_SANITIZED  // the sanitizers bring their own
void* operator new(std::size_t size) {
  ++allocations;
  void* const memory = std::exchange(nextAllocationFails, false) ? nullptr : std::malloc(size);
  if (memory != nullptr) {
    return memory;
  }
  throw std::bad_alloc();
}
void operator delete(void* memory) noexcept {
  std::free(memory);
}
void operator delete(void* memory, std::size_t /*size*/) noexcept {
  std::free(memory);
}
#endif
