#include "dispatch/queryruns.h"

#include <algorithm>
#include <cstdint>
#include <utility>

#include <hostos/time.h>
#include <tavrix/tracelog.h>

#include "dispatch/dispatcher.h"

namespace obd {

using hostos::CTime;
using tavrix::LogStream;

namespace {

constexpr const char* Source = "src\\query";
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

std::shared_ptr<QueryRun> QueryRuns::begin() {
  if (m_current) {
    return nullptr;
  }
  m_current = m_spare ? std::move(m_spare) : std::make_shared<QueryRun>(weak_from_this());
  m_current->m_clearFirst = m_atWork;
  if (!m_atWork) {
    subject().clear();
  }
  m_underWay.push_back(m_current);
  return m_current;
}

bool QueryRuns::queue(const std::shared_ptr<QueryRun>& run) {
  if (Dispatcher::getInstance().update(run)) {
    return true;
  }
  const std::lock_guard guard(m_mutex);
  std::erase(m_underWay, run);
  if (m_current == run) {
    m_current.reset();
  }
  return false;
}

void QueryRuns::forget() {
  m_current.reset();
  m_underWay.clear();
  m_spare.reset();
}

void QueryRuns::update(QueryRun& run, const std::shared_ptr<IObdProxy>& proxy) {
  {
    const std::lock_guard guard(m_mutex);
    if (m_current.get() != &run) {
      return;
    }
    if (run.m_clearFirst) {
      subject().clear();
    }
    if (!proxy) {
      return;
    }
    m_atWork = true;
  }
  updateAtPace(subject(), proxy, [this](bool success) {
    const std::lock_guard guard(m_mutex);
    m_atWork = false;
    m_success = success;
  });
}

void QueryRuns::notify(QueryRun& run) {
  std::unique_lock lock(m_mutex);
  const bool isCurrent = m_current.get() == &run;
  retire(run);
  if (isCurrent) {
    m_current.reset();
    const bool success = m_success;
    tell(std::move(lock), success);
    return;
  }
  const bool begunAnew = m_current != nullptr;
  lock.unlock();
  tellCalledOff(begunAnew);
}

// Entries leave the queues in order, so those of older runs, if they have not come by now, were dropped.
void QueryRuns::retire(const QueryRun& run) {
  const auto found = std::ranges::find_if(m_underWay, [&](const auto& other) { return other.get() == &run; });
  if (found != m_underWay.end()) {
    m_spare = *found;
    m_underWay.erase(m_underWay.begin(), found + 1);
  }
}

}  // namespace obd
