#include "dispatch/allocations.h"

#include <cstddef>
#include <cstdlib>
#include <new>

thread_local int allocations = 0;

#ifndef VELMARA_SANITIZED  // the sanitizers bring their own
void* operator new(std::size_t size) {
  ++allocations;
  if (void* const memory = std::malloc(size)) {
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
