#include "dispatch/updatequeue.h"

#include <gtest/gtest.h>

#include <array>
#include <memory>
#include <thread>
#include <vector>

#include "dispatch/fakes.h"

namespace {

using obd::UpdateQueue;

struct Entry : obd::IDispatchable {
  Entry(std::size_t itsWriter, int itsNumber) : writer(itsWriter), number(itsNumber) {}
  void update(const std::shared_ptr<obd::IObdProxy>& /*proxy*/) override {}
  void notify() override {}

  const std::size_t writer;
  const int number;
  int popped = 0;  // the reader's
};

TEST(UpdateQueue, RefusesThe64thEntryAndKeepsTheOthersInOrder) {
  CapturedLog log;
  UpdateQueue queue;
  std::vector<std::shared_ptr<Entry>> entries;
  for (int i = 0; i < 64; ++i) {
    entries.push_back(std::make_shared<Entry>(0, i));
  }
  // Several rounds from different places of the ring.
  for (const int first : {0, 5, 62}) {
    for (int i = 0; i < first; ++i) {
      ASSERT_TRUE(queue.push(entries[0]));
      ASSERT_EQ(queue.pop(), entries[0]);
    }
    for (std::size_t i = 0; i < 63; ++i) {
      ASSERT_TRUE(queue.push(entries[i])) << i;
    }
    EXPECT_FALSE(queue.push(entries[63]));
    for (std::size_t i = 0; i < 63; ++i) {
      ASSERT_EQ(queue.pop(), entries[i]);
    }
    EXPECT_EQ(queue.pop(), nullptr);
  }
  EXPECT_EQ(log.count("src\\updatequeue 3 Update queue full"), 3);
}

TEST(UpdateQueue, KeepsNothingAliveAndTellsADeadEntryFromAnEmptyQueue) {
  UpdateQueue queue;
  auto dead = std::make_shared<Entry>(0, 1);
  const auto alive = std::make_shared<Entry>(0, 2);
  queue.push(dead);
  queue.push(alive);
  const std::weak_ptr<Entry> gone = dead;
  dead.reset();
  EXPECT_TRUE(gone.expired());
  std::weak_ptr<obd::IDispatchable> item;
  EXPECT_TRUE(queue.take(item));
  EXPECT_EQ(item.lock(), nullptr);
  EXPECT_EQ(queue.pop(), alive);
  EXPECT_FALSE(queue.take(item));
}

TEST(UpdateQueue, LosesAndDoublesNothingWithSeveralWriters) {
  constexpr std::size_t Writers = 4;
  constexpr int PerWriter = 3000;
  UpdateQueue queue;
  std::vector<std::vector<std::shared_ptr<Entry>>> entries(Writers);
  for (std::size_t writer = 0; writer < Writers; ++writer) {
    for (int i = 0; i < PerWriter; ++i) {
      entries[writer].push_back(std::make_shared<Entry>(writer, i));
    }
  }
  CapturedLog log;  // "full" is expected here, many times
  std::vector<std::thread> threads;
  for (std::size_t writer = 0; writer < Writers; ++writer) {
    threads.emplace_back([&, writer] {
      for (const auto& entry : entries[writer]) {
        while (!queue.push(entry)) {
          std::this_thread::yield();
        }
      }
    });
  }
  std::array<int, Writers> next{};
  for (std::size_t seen = 0; seen < Writers * PerWriter;) {
    const auto entry = std::static_pointer_cast<Entry>(queue.pop());
    if (!entry) {
      std::this_thread::yield();
      continue;
    }
    ++seen;
    EXPECT_EQ(entry->number, next[entry->writer]++);  // in order, so each exactly once
    EXPECT_EQ(++entry->popped, 1);
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
  EXPECT_EQ(queue.pop(), nullptr);
}

}  // namespace
