#include "fibers.h"

#include <cxxabi.h>
#include <ucontext.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstring>
#include <limits>
#include <utility>

#include <hostos/thread.h>

#include "target.h"

#if defined(__SANITIZE_ADDRESS__)
#define FUZZ_ASAN
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define FUZZ_ASAN
#endif
#endif
#ifdef FUZZ_ASAN
#include <sanitizer/common_interface_defs.h>
#endif

namespace fuzz {

namespace {

constexpr std::uint64_t Never = std::numeric_limits<std::uint64_t>::max();
constexpr std::uint32_t Forever = std::numeric_limits<std::uint32_t>::max();
constexpr std::size_t StackSize = std::size_t{256} << 10U;

using Stack = std::unique_ptr<std::array<std::byte, StackSize>>;

Fibers* fibersInUse = nullptr;

// Stacks outlive fibers: lives begin and end too often to ask for new ones.
std::vector<Stack>& freeStacks() {
  static std::vector<Stack> stacks;
  return stacks;
}

Stack takeStack() {
  std::vector<Stack>& stacks = freeStacks();
  if (stacks.empty()) {
    return std::make_unique_for_overwrite<Stack::element_type>();
  }
  Stack stack = std::move(stacks.back());
  stacks.pop_back();
  return stack;
}

// What the language's runtime keeps for each thread: the exceptions that are being handled. A fiber may wait
// in a handler.
struct Exceptions {
  void* caught = nullptr;
  unsigned int uncaught = 0;

  void save() { std::memcpy(this, abi::__cxa_get_globals(), sizeof(*this)); }
  void restore() const { std::memcpy(static_cast<void*>(abi::__cxa_get_globals()), this, sizeof(*this)); }
};

}  // namespace

struct Fibers::Fiber {
  unsigned int number = 0;
  std::function<void()> work;
  Stack stack;  // none for the first
  ucontext_t context{};
  Exceptions exceptions;
  const void* condition = nullptr;
  std::uint64_t deadline = 0;
  bool notified = false;
  // Of the address sanitizer, which has to know on which stack it is.
  const void* bottom = nullptr;
  std::size_t size = 0;
  void* shadow = nullptr;
};

Fibers::Fibers() : m_current(m_fibers.emplace_back(std::make_unique<Fiber>()).get()) {
  fibersInUse = this;
  hostos::CTime::setClock(this);
}

Fibers::~Fibers() {
  require(m_fibers.size() == 1, "all threads have ended");
  hostos::CTime::setClock(nullptr);
  fibersInUse = nullptr;
}

Fibers& Fibers::inUse() {
  require(fibersInUse != nullptr, "threads are started and waited for in a life");
  return *fibersInUse;
}

unsigned int Fibers::start(std::function<void()> work) {
  auto fiber = std::make_unique<Fiber>();
  fiber->number = ++m_started;
  fiber->work = std::move(work);
  fiber->stack = takeStack();
  fiber->bottom = fiber->stack->data();
  fiber->size = StackSize;
  getcontext(&fiber->context);
  fiber->context.uc_stack.ss_sp = fiber->stack->data();
  fiber->context.uc_stack.ss_size = StackSize;
  makecontext(&fiber->context, &Fibers::enter, 0);
  m_ready.push_back(fiber.get());
  m_fibers.push_back(std::move(fiber));
  return m_started;
}

unsigned int Fibers::current() const {
  return m_current->number;
}

void Fibers::msleep(std::uint32_t milliseconds) {
  suspend(nullptr, milliseconds);
}

bool Fibers::wait(std::condition_variable& condition, std::unique_lock<std::mutex>& lock,
                  std::uint32_t milliseconds) {
  lock.unlock();
  const bool notified = suspend(&condition, milliseconds);
  lock.lock();
  return notified;
}

void Fibers::notify(std::condition_variable& condition, bool all) {
  for (auto at = m_waiting.begin(); at != m_waiting.end();) {
    if ((*at)->condition != &condition) {
      ++at;
      continue;
    }
    (*at)->notified = true;
    m_ready.push_back(*at);
    at = m_waiting.erase(at);
    if (!all) {
      break;
    }
  }
}

// Until notified or until the time is over; true if notified. Without any time the others have their turn.
bool Fibers::suspend(const void* condition, std::uint32_t milliseconds) {
  Fiber& fiber = *m_current;
  fiber.condition = condition;
  fiber.deadline = milliseconds == Forever ? Never : m_now + milliseconds;
  fiber.notified = false;
  if (milliseconds == 0) {
    m_ready.push_back(&fiber);
  } else {
    m_waiting.push_back(&fiber);
  }
  changeOver();
  return fiber.notified;
}

void Fibers::changeOver() {
  if (m_ready.empty()) {
    const auto next = std::ranges::min_element(m_waiting, {}, &Fiber::deadline);
    require(next != m_waiting.end() && (*next)->deadline != Never, "somebody can go on");
    m_now = std::max(m_now, (*next)->deadline);
    m_ready.push_back(*next);
    m_waiting.erase(next);
  }
  Fiber* const from = m_current;
  m_current = m_ready.front();
  m_ready.pop_front();
  if (m_current == from) {
    return;
  }
  from->exceptions.save();
#ifdef FUZZ_ASAN
  __sanitizer_start_switch_fiber(from == m_over ? nullptr : &from->shadow, m_current->bottom,
                                 m_current->size);
#endif
  swapcontext(&from->context, &m_current->context);
  arrive();
}

// On the stack of the fiber that runs from here on.
void Fibers::arrive() {
#ifdef FUZZ_ASAN
  const void* bottom = nullptr;
  std::size_t size = 0;
  __sanitizer_finish_switch_fiber(m_current->shadow, &bottom, &size);
  if (Fiber& first = *m_fibers.front(); first.bottom == nullptr) {
    first.bottom = bottom;  // which it can only have come from
    first.size = size;
  }
#endif
  m_current->exceptions.restore();
  if (m_over != nullptr) {
    freeStacks().push_back(std::move(m_over->stack));
    std::erase_if(m_fibers, [this](const auto& fiber) { return fiber.get() == m_over; });
    m_over = nullptr;
  }
}

void Fibers::enter() {
  Fibers& fibers = inUse();
  fibers.arrive();
  fibers.m_current->work();
  fibers.m_current->work = nullptr;
  fibers.m_over = fibers.m_current;
  fibers.changeOver();
}

}  // namespace fuzz

namespace hostos {

struct CThread::State {
  std::mutex mutex;
  WaitCondition ends;
  unsigned int fiber = 0;
  bool running = false;
};

CThread::CThread(const char* name) : m_name(name), m_state(std::make_shared<State>()) {}

CThread::~CThread() {
  join();
}

bool CThread::run(Entry entry, void* argument) {
  if (m_state->running) {
    return false;
  }
  m_state->running = true;
  m_state->fiber = fuzz::Fibers::inUse().start([state = m_state, entry, argument] {
    entry(argument);
    state->running = false;
    state->ends.notifyAll();
  });
  return true;
}

void CThread::join() {
  State& state = *m_state;
  if (!state.running || state.fiber == fuzz::Fibers::inUse().current()) {
    return;
  }
  const unsigned int fiber = state.fiber;
  std::unique_lock lock(state.mutex);
  while (state.running && state.fiber == fiber) {
    state.ends.wait(lock, 0xFFFFFFFF);
  }
}

}  // namespace hostos
