#include "dispatch/updatequeue.h"

#include <utility>

#include <tavrix/tracelog.h>

namespace obd {

using tavrix::LogStream;

namespace {
constexpr const char* Source = "src\\updatequeue";
}

UpdateQueue::UpdateQueue() {
  for (std::size_t i = 0; i < Capacity; ++i) {
    m_slots[i].sequence.store(i, std::memory_order_relaxed);
  }
}

bool UpdateQueue::push(std::weak_ptr<IDispatchable> item) {
  std::uint64_t position = m_write.load(std::memory_order_relaxed);
  for (;;) {
    Slot& slot = m_slots[position % Capacity];
    const std::uint64_t sequence = slot.sequence.load(std::memory_order_acquire);
    if (sequence == position) {
      if (m_write.compare_exchange_weak(position, position + 1, std::memory_order_relaxed)) {
        slot.item = std::move(item);
        slot.sequence.store(position + 1, std::memory_order_release);
        return true;
      }
    } else if (sequence < position) {
      LogStream(Source, __LINE__, 3) << "Update queue full";
      return false;
    } else {
      position = m_write.load(std::memory_order_relaxed);
    }
  }
}

bool UpdateQueue::take(std::weak_ptr<IDispatchable>& item) {
  std::uint64_t position = m_read.load(std::memory_order_relaxed);
  for (;;) {
    Slot& slot = m_slots[position % Capacity];
    const std::uint64_t sequence = slot.sequence.load(std::memory_order_acquire);
    if (sequence == position + 1) {
      if (m_read.compare_exchange_weak(position, position + 1, std::memory_order_relaxed)) {
        item = std::move(slot.item);
        slot.sequence.store(position + Capacity, std::memory_order_release);
        return true;
      }
    } else if (sequence <= position) {
      return false;
    } else {
      position = m_read.load(std::memory_order_relaxed);
    }
  }
}

std::shared_ptr<IDispatchable> UpdateQueue::pop() {
  std::weak_ptr<IDispatchable> item;
  return take(item) ? item.lock() : nullptr;
}

}  // namespace obd
