#pragma once

#include <atomic>

namespace bench {

/// How often memory was asked for with `new`, by any thread.
extern std::atomic<unsigned long> allocations;

}  // namespace bench
