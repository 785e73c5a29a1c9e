#include <hostos/thread.h>
#include <hostos/time.h>

#include <pthread.h>

#include <atomic>
#include <system_error>
#include <thread>

#include "threadobserver.h"

namespace hostos {

namespace {
constexpr std::uint32_t Forever = 0xFFFFFFFF;
constexpr std::size_t NameLength = 15;

std::atomic<ThreadObserver*> observerInUse{nullptr};
}  // namespace

ThreadObserver* threadObserver() {
  return observerInUse.load(std::memory_order_acquire);
}

void setThreadObserver(ThreadObserver* observer) {
  observerInUse.store(observer, std::memory_order_release);
}

struct CThread::State {
  std::mutex mutex;
  std::condition_variable begins;  // not of the clock: who makes a thread is busy until it has begun
  WaitCondition ends;
  std::thread handle;
  std::thread::id id;
  unsigned int generation = 0;
  bool begun = false;
  bool running = false;

  void work(const std::string& name, Entry entry, void* argument) {
    pthread_setname_np(pthread_self(), name.substr(0, NameLength).c_str());
    ThreadObserver* const observer = threadObserver();
    if (observer != nullptr) {
      observer->threadBegins();
    }
    {
      const std::lock_guard guard(mutex);
      id = std::this_thread::get_id();
      begun = true;
      begins.notify_all();
    }
    entry(argument);
    {
      // Joiners are busy from here on for a clock that counts.
      const std::lock_guard guard(mutex);
      id = {};
      running = false;
      ends.notifyAll();
    }
    if (observer != nullptr && observer == threadObserver()) {
      observer->threadEnds();
    }
  }
};

CThread::CThread(const char* name) : m_name(name), m_state(std::make_shared<State>()) {}

CThread::~CThread() {
  {
    const std::lock_guard guard(m_state->mutex);
    if (m_state->id == std::this_thread::get_id()) {
      m_state->handle.detach();
      return;
    }
  }
  join();
}

bool CThread::run(Entry entry, void* argument) {
  State& state = *m_state;
  std::unique_lock lock(state.mutex);
  if (state.running) {
    return false;
  }
  if (state.handle.joinable()) {
    state.handle.join();
  }
  state.begun = false;
  state.running = true;
  try {
    state.handle = std::thread(
        [state = m_state, name = m_name, entry, argument] { state->work(name, entry, argument); });
  } catch (const std::system_error&) {
    state.running = false;
    return false;
  }
  ++state.generation;
  state.begins.wait(lock, [&state] { return state.begun; });
  return true;
}

void CThread::join() {
  State& state = *m_state;
  std::unique_lock lock(state.mutex);
  if (state.id == std::this_thread::get_id()) {
    return;
  }
  const unsigned int generation = state.generation;
  while (state.running && state.generation == generation) {
    state.ends.wait(lock, Forever);
  }
  // What is left of the thread takes no lock of ours, so this is short.
  if (!state.running && state.handle.joinable()) {
    state.handle.join();
  }
}

}  // namespace hostos
