#pragma once

#include <functional>
#include <utility>

#include <hostos/thread.h>

/// Runs a function on a thread of the platform layer, which a virtual clock knows of. Joins it at its end.
class Runner {
 public:
  explicit Runner(std::function<void()> work, const char* name = "Runner")
      : m_work(std::move(work)), m_thread(name) {
    const auto entry = [](void* self) -> void* {
      static_cast<Runner*>(self)->m_work();
      return nullptr;
    };
    m_thread.run(entry, this);
  }
  Runner(const Runner&) = delete;
  Runner& operator=(const Runner&) = delete;
  ~Runner() { join(); }
  void join() { m_thread.join(); }
  hostos::CThread& thread() { return m_thread; }

 private:
  std::function<void()> m_work;
  hostos::CThread m_thread;
};
