#include "dispatch/query.h"

#include <hostos/time.h>
#include <tavrix/tracelog.h>

#include "dispatch/callback.h"
#include "dispatch/fetcher.h"

namespace obd {

using hostos::CTime;
using tavrix::debugStream;
using tavrix::LogStream;

namespace {

constexpr const char* Source = "src\\query";
constexpr const char* FetchSource = "src\\fetcher";
constexpr std::uint32_t ShortestQuery = 30;  // ms

// What a vehicle sends can make a query throw; that must cost no more than this run.
bool delivers(IQuery& subject, const std::shared_ptr<IObdProxy>& proxy) {
  try {
    return subject.update(proxy) == IQuery::Updated;
  } catch (...) {
    LogStream(Source, __LINE__, 3) << "Query threw an exception";
    return false;
  }
}

// One query that somebody waits for.
class FetchTask : public IDispatchable {
 public:
  explicit FetchTask(std::shared_ptr<IQuery> subject) : m_subject(std::move(subject)) {}

  void update(const std::shared_ptr<IObdProxy>& proxy) override {
    bool success = false;
    if (proxy && !cancelled()) {
      success = updateAtPace(*m_subject, proxy);
    }
    debugStream << "Fetch done with " << (success ? "success" : "failure");
    const std::lock_guard guard(m_mutex);
    m_done = true;
    m_success = success;
    m_ready.notifyAll();
  }

  void notify() override {}

  bool wait(std::uint32_t limit) {
    std::unique_lock lock(m_mutex);
    const std::uint32_t start = CTime::milliseconds();
    while (!m_done) {
      const std::uint32_t waited = CTime::milliseconds() - start;
      if (waited >= limit) {
        LogStream(FetchSource, __LINE__, 2) << "Future not ready";
        m_cancelled = true;
        return false;
      }
      m_ready.wait(lock, limit - waited);
    }
    return m_success;
  }

 private:
  bool cancelled() {
    const std::lock_guard guard(m_mutex);
    return m_cancelled;
  }

  const std::shared_ptr<IQuery> m_subject;
  std::mutex m_mutex;
  hostos::WaitCondition m_ready;
  bool m_done = false;
  bool m_success = false;
  bool m_cancelled = false;
};

}  // namespace

bool updateAtPace(IQuery& subject, const std::shared_ptr<IObdProxy>& proxy,
                  const std::function<void(bool success)>& onReturn) {
  const std::uint32_t start = CTime::milliseconds();
  const bool success = delivers(subject, proxy);
  const std::uint32_t elapsed = CTime::milliseconds() - start;
  if (onReturn) {
    onReturn(success);
  }
  if (success && elapsed < ShortestQuery) {
    CTime::msleep(ShortestQuery - elapsed);
  }
  return success;
}

bool DispatchableQuery::begin(Done done) {
  const std::lock_guard guard(m_mutex);
  if (m_pending || m_released) {
    return false;
  }
  m_pending = true;
  m_done.swap(done);  // the old one goes after the lock
  if (m_running) {
    m_clearWanted = true;
  } else {
    m_subject->clear();
  }
  m_reading = false;
  m_cancelled = false;
  return true;
}

void DispatchableQuery::abandon() {
  const std::lock_guard guard(m_mutex);
  m_pending = false;
}

void DispatchableQuery::cancel() {
  Done done;
  const std::lock_guard guard(m_mutex);
  m_cancelled = true;
  m_done.swap(done);
  m_pending = false;
}

void DispatchableQuery::release() {
  Done done;
  const std::lock_guard guard(m_mutex);
  m_released = true;
  m_done.swap(done);
}

void DispatchableQuery::update(const std::shared_ptr<IObdProxy>& proxy) {
  {
    const std::lock_guard guard(m_mutex);
    if (m_running) {
      return;
    }
    if (m_clearWanted) {
      m_clearWanted = false;
      m_subject->clear();
    }
    if (!proxy || m_cancelled || m_reading) {
      return;
    }
    m_running = true;
  }
  updateAtPace(*m_subject, proxy, [this](bool success) {
    const std::lock_guard guard(m_mutex);
    m_running = false;
    m_success = success;
  });
}

void DispatchableQuery::notify() {
  Done done;
  bool success = false;
  {
    const std::lock_guard guard(m_mutex);
    if (m_released || m_cancelled || m_running || m_clearWanted) {
      return;  // in the last two cases a newer entry is still to come, and it will tell
    }
    done = m_done;
    success = m_success;
    m_pending = false;
    m_reading = true;
  }
  if (done) {
    done(success);
    done = nullptr;
  }
  const std::lock_guard guard(m_mutex);
  m_reading = false;
}

bool fetchWithin(const std::shared_ptr<IQuery>& subject, std::uint32_t limit) {
  const auto task = std::make_shared<FetchTask>(subject);
  debugStream << "Start fetch";
  return Dispatcher::getInstance().update(task) && task->wait(limit);
}

void Callback::schedule(std::function<void()> function) {
  {
    const std::lock_guard guard(m_mutex);
    m_function.swap(function);
  }
  Dispatcher::getInstance().scheduleUiTask(weak_from_this());
}

void Callback::notify() {
  std::function<void()> function;
  {
    const std::lock_guard guard(m_mutex);
    function = m_function;
  }
  if (function) {
    function();
  }
}

}  // namespace obd
