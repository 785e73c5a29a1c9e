#include <hostos/thread.h>
#include <hostos/time.h>

#include <pthread.h>

#include <system_error>
#include <thread>

namespace hostos {

namespace {
constexpr std::uint32_t Forever = 0xFFFFFFFF;
constexpr std::size_t NameLength = 15;

// While a thread is being made.
class Starting {
 public:
  Starting() { m_clock.startingBegins(); }
  Starting(const Starting&) = delete;
  Starting& operator=(const Starting&) = delete;
  ~Starting() { m_clock.startingEnds(); }

 private:
  IClock& m_clock = CTime::clock();
};
}  // namespace

struct CThread::State {
  std::mutex mutex;
  std::condition_variable begins;  // not of the clock, which stands still meanwhile
  WaitCondition ends;
  std::thread handle;
  std::thread::id id;
  unsigned int generation = 0;
  bool begun = false;
  bool running = false;

  void work(const std::string& name, Entry entry, void* argument) {
    pthread_setname_np(pthread_self(), name.substr(0, NameLength).c_str());
    CTime::clock().threadBegins();
    {
      const std::lock_guard guard(mutex);
      id = std::this_thread::get_id();
      begun = true;
      begins.notify_all();
    }
    entry(argument);
    {
      // Joiners are woken through the clock, so that a clock in tests counts them as busy from here on.
      const std::lock_guard guard(mutex);
      id = {};
      running = false;
      ends.notifyAll();
    }
    CTime::clock().threadEnds();
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
  const Starting starting;
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
