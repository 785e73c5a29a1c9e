#include "dispatch/fetcher.h"

#include <mutex>
#include <optional>
#include <utility>

#include <hostos/time.h>
#include <tavrix/tracelog.h>

#include "dispatch/dispatcher.h"
#include "dispatch/queryruns.h"

namespace obd {

using hostos::CTime;
using tavrix::debugStream;
using tavrix::LogStream;

namespace {

constexpr const char* Source = "src\\fetcher";

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
    m_outcome = success;
    m_ready.notifyAll();
  }

  void notify() override {}

  bool wait(std::uint32_t limit) {
    std::unique_lock lock(m_mutex);
    const std::uint32_t start = CTime::milliseconds();
    while (!m_outcome) {
      const std::uint32_t waited = CTime::milliseconds() - start;
      if (waited >= limit) {
        LogStream(Source, __LINE__, 2) << "Future not ready";
        m_cancelled = true;
        return false;
      }
      m_ready.wait(lock, limit - waited);
    }
    return *m_outcome;
  }

 private:
  bool cancelled() {
    const std::lock_guard guard(m_mutex);
    return m_cancelled;
  }

  const std::shared_ptr<IQuery> m_subject;
  std::mutex m_mutex;
  hostos::WaitCondition m_ready;
  std::optional<bool> m_outcome;
  bool m_cancelled = false;
};

}  // namespace

bool fetchWithin(const std::shared_ptr<IQuery>& subject, std::uint32_t limit) {
  const auto task = std::make_shared<FetchTask>(subject);
  debugStream << "Start fetch";
  return Dispatcher::getInstance().update(task) && task->wait(limit);
}

}  // namespace obd
