#include "dispatch/updatequeue.h"

#include <gtest/gtest.h>

#include <array>
#include <thread>
#include <vector>

namespace {

using obd::UpdateQueue;

struct Entry : obd::IDispatchable {
  void update(const std::shared_ptr<obd::IObdProxy>& /*proxy*/) override {}
  void notify() override {}
  std::size_t number = 0;
};

TEST(UpdateQueue, LosesAndDoublesNothingWithSeveralWriters) {
  constexpr std::size_t Writers = 4;
  constexpr std::size_t PerWriter = 3000;
  UpdateQueue queue;
  std::vector<std::shared_ptr<Entry>> entries;
  while (entries.size() < Writers * PerWriter) {
    entries.push_back(std::make_shared<Entry>());
    entries.back()->number = entries.size() - 1;
  }
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
