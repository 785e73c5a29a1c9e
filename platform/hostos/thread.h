#pragma once

#include <memory>
#include <string>

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

  /// Starts `entry(argument)`. False if the system gives no thread, or this one runs already. A thread that
  /// is over may be run again.
  bool run(Entry entry, void* argument);

  /// Waits for the end of the thread. Returns at once if it has not been run, is over, or is the caller.
  /// Several threads may join at the same time.
  void join();

 private:
  struct State;

  std::string m_name;
  std::shared_ptr<State> m_state;  // shared with the thread, which may outlive this object
};

}  // namespace hostos
