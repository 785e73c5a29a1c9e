#pragma once

#include <cstdint>
#include <memory>
#include <utility>

#include <hostos/time.h>

#include "core/iquery.h"
#include "dispatch/idispatchable.h"

namespace velmara {

/// One query of the client's own. A service asks all tests of a kind at once, of which no more than 63 fit
/// into the library's queue and the rest is dropped; so they are asked one by one instead.
class Question : public obd::IDispatchable {
 public:
  explicit Question(std::shared_ptr<obd::IQuery> query) : m_query(std::move(query)) {}

  /// For the event loop's thread. The query may be looked at once this is so.
  bool isAnswered() const { return m_answered; }
  /// Whether the query delivered data.
  bool hasSucceeded() const { return m_success; }

  // No more than one query in 30 ms, as the services have it.
  void update(const std::shared_ptr<obd::IObdProxy>& proxy) override {
    constexpr std::uint32_t ShortestQuery = 30;
    const std::uint32_t start = hostos::CTime::milliseconds();
    m_success = proxy && m_query->update(proxy) == obd::IQuery::Updated;
    const std::uint32_t elapsed = hostos::CTime::milliseconds() - start;
    if (m_success && elapsed < ShortestQuery) {
      hostos::CTime::msleep(ShortestQuery - elapsed);
    }
  }

  void notify() override { m_answered = true; }

 private:
  const std::shared_ptr<obd::IQuery> m_query;
  bool m_success = false;  // handed over by the queue
  bool m_answered = false;
};

}  // namespace velmara
