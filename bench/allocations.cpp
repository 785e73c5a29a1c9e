#include "allocations.h"

#include <cstddef>
#include <cstdlib>
#include <new>

std::atomic<unsigned long> bench::allocations{0};

void* operator new(std::size_t size) {
  bench::allocations.fetch_add(1, std::memory_order_relaxed);
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
