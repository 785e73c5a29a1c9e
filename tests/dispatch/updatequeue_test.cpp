#include "dispatch/updatequeue.h"

#include <gtest/gtest.h>

#include <array>
#include <memory>
#include <thread>
#include <vector>

namespace {

using obd::UpdateQueue;

struct Entry : obd::IDispatchable {
  void update(const std::shared_ptr<obd::IObdProxy>& /*proxy*/) override {}
  void notify() override {}
  std::size_t number = 0;
};

std::vector<std::shared_ptr<Entry>> makeEntries(std::size_t count) {
  std::vector<std::shared_ptr<Entry>> entries(count);
  for (std::size_t i = 0; i < count; ++i) {
    entries[i] = std::make_shared<Entry>();
    entries[i]->number = i;
  }
  return entries;
}

TEST(UpdateQueue, LosesAndDoublesNothingWithSeveralWriters) {
  constexpr std::size_t Writers = 4;
  constexpr std::size_t PerWriter = 3000;
  UpdateQueue queue;
  const auto entries = makeEntries(Writers * PerWriter);
  std::vector<std::thread> threads;
  for (std::size_t writer = 0; writer < Writers; ++writer) {
    threads.emplace_back([&, writer] {
      for (std::size_t i = 0; i < PerWriter; ++i) {
        while (!queue.push(entries[writer * PerWriter + i])) {
          std::this_thread::yield();
        }
      }
    });
  }
  std::array<std::size_t, Writers> next{};
  for (std::size_t seen = 0; seen < entries.size();) {
    if (const auto entry = std::static_pointer_cast<Entry>(queue.pop())) {
      // In order, so each exactly once.
      EXPECT_EQ(entry->number % PerWriter, next[entry->number / PerWriter]++);
      ++seen;
    } else {
      std::this_thread::yield();
    }
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
  EXPECT_EQ(queue.pop(), nullptr);
}

}  // namespace
