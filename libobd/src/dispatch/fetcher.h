#pragma once

#include <cstdint>
#include <memory>

#include "core/iquery.h"

namespace obd {

/// Queues `subject` and waits for its run, at most `limit` milliseconds, time in the queue included. True if
/// it delivered data. After a time-out the worker may still be busy with `subject`: leave it alone then.
bool fetchWithin(const std::shared_ptr<IQuery>& subject, std::uint32_t limit);

/// Runs a query through the dispatcher and waits for it. True if it delivered data. For any thread but the
/// worker's, whom it would wait for.
template <typename T>
bool fetch(const std::shared_ptr<T>& subject) {
  constexpr std::uint32_t Passage = 50;  // for the way through the queue
  return fetchWithin(subject, subject->timeout() + Passage);
}

}  // namespace obd
