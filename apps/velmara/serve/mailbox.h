#pragma once

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <utility>

#include "report/json.h"
#include "velmara/client/failure.h"

namespace velmara {

/// Work for the one thread that drives the car, from any other. What waits for it too long is called off
/// before it begins: nobody clears codes for somebody who has left.
class Mailbox {
 public:
  using Job = std::function<Json()>;

  struct Answer {
    enum class State { Done, Failed, Busy, Closed };
    State state = State::Done;
    Json result{};
    std::optional<Failure> failure{};  ///< where it failed
  };
  struct Patience {
    std::chrono::milliseconds start{20000};
    std::chrono::milliseconds end{240000};
  };

  /// `ring` wakes the driving thread; it may come from any.
  explicit Mailbox(std::function<void()> ring);

  /// Has a job done and waits for it. Not on the driving thread.
  Answer call(Job job, const Patience& patience);
  Answer call(Job job) { return call(std::move(job), Patience()); }
  /// Answers all that wait by Closed, and all to come.
  void close();

  // On the driving thread:
  bool isEmpty() const;
  /// Does the next job, if there is one. A `Failure` is its answer; other exceptions pass through, and
  /// whoever waits for it is answered by `close`.
  bool runNext();

 private:
  struct Entry {
    enum class State { Waiting, Running, Over };
    Job job;
    State state = State::Waiting;
    Answer answer;
  };

  const std::function<void()> m_ring;
  mutable std::mutex m_mutex;
  std::condition_variable m_changed;
  std::deque<std::shared_ptr<Entry>> m_entries;
  bool m_closed = false;
};

}  // namespace velmara
