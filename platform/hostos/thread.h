#pragma once

#include <atomic>
#include <mutex>
#include <string>
#include <thread>

#include <tavrix/export.h>

namespace hostos {

/// A named thread. The name shows in debuggers, cut to what the system holds (15 characters on Linux).
class VELMARA_EXPORT CThread {
 public:
  /// What a thread runs; the result is ignored.
  using Entry = void* (*)(void*);

  explicit CThread(const char* name);
  CThread(const CThread&) = delete;
  CThread& operator=(const CThread&) = delete;
  /// Joins a thread that still runs, unless it is the calling one.
  ~CThread();

  /// Starts `entry(argument)`. False if the system gives no thread, or this one runs already.
  bool run(Entry entry, void* argument);

  /// Waits for the end of the thread. Returns at once if it has not been run, is over, or is the caller.
  /// Several threads may join at the same time.
  void join();

 private:
  std::string m_name;
  std::mutex m_mutex;
  std::thread m_thread;
};

}  // namespace hostos
