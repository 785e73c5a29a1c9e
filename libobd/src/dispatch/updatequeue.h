#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>

#include "dispatch/idispatchable.h"

namespace obd {

/// A ring of 63 weak pointers without a lock. Any number of threads may push and pop at the same time. What a
/// thread wrote before `push` is seen by the thread that gets the entry from `pop`.
///
/// Each slot carries a sequence number that says whose turn it is: the position `p` of the next push into it,
/// or `p + 1` while it is filled. An entry that a writer has claimed but not finished counts as not there
/// yet.
class UpdateQueue {
 public:
  static constexpr std::size_t Capacity = 63;

  UpdateQueue();
  UpdateQueue(const UpdateQueue&) = delete;
  UpdateQueue& operator=(const UpdateQueue&) = delete;

  /// False if the queue is full; the entry is dropped then, which is logged.
  bool push(std::weak_ptr<IDispatchable> item);

  /// Takes the oldest entry, dead or alive. False if there is none.
  bool take(std::weak_ptr<IDispatchable>& item);

  /// Takes the oldest entry. Null if there is none, and as well if its object has died.
  std::shared_ptr<IDispatchable> pop();

 private:
  struct Slot {
    std::atomic<std::uint64_t> sequence;
    std::weak_ptr<IDispatchable> item;
  };

  std::array<Slot, Capacity> m_slots;
  alignas(64) std::atomic<std::uint64_t> m_write{0};
  alignas(64) std::atomic<std::uint64_t> m_read{0};
};

}  // namespace obd
