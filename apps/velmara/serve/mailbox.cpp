#include "serve/mailbox.h"

#include <algorithm>
#include <utility>

namespace velmara {

using State = Mailbox::Answer::State;

Mailbox::Mailbox(std::function<void()> ring) : m_ring(std::move(ring)) {}

Mailbox::Answer Mailbox::call(Job job, const Patience& patience) {
  const auto entry = std::make_shared<Entry>();
  entry->job = std::move(job);
  std::unique_lock lock(m_mutex);
  if (m_closed) {
    return {State::Closed, {}, {}};
  }
  m_entries.push_back(entry);
  lock.unlock();
  m_ring();
  lock.lock();
  const auto hasBegun = [&] { return m_closed || entry->state != Entry::State::Waiting; };
  if (!m_changed.wait_for(lock, patience.start, hasBegun)) {
    m_entries.erase(std::find(m_entries.begin(), m_entries.end(), entry));
    return {State::Busy, {}, {}};
  }
  const auto isOver = [&] { return m_closed || entry->state == Entry::State::Over; };
  if (!m_changed.wait_for(lock, patience.end, isOver)) {
    return {State::Busy, {}, {}};
  }
  return entry->state == Entry::State::Over ? std::move(entry->answer) : Answer{State::Closed, {}, {}};
}

void Mailbox::close() {
  {
    const std::lock_guard guard(m_mutex);
    m_closed = true;
    m_entries.clear();
  }
  m_changed.notify_all();
}

bool Mailbox::isEmpty() const {
  const std::lock_guard guard(m_mutex);
  return m_entries.empty();
}

bool Mailbox::runNext() {
  std::shared_ptr<Entry> entry;
  {
    const std::lock_guard guard(m_mutex);
    if (m_entries.empty()) {
      return false;
    }
    entry = m_entries.front();
    m_entries.pop_front();
    entry->state = Entry::State::Running;
  }
  m_changed.notify_all();
  Answer answer;
  try {
    answer.result = entry->job();
  } catch (const Failure& failure) {
    answer.state = State::Failed;
    answer.failure = failure;
  }
  {
    const std::lock_guard guard(m_mutex);
    entry->answer = std::move(answer);
    entry->state = Entry::State::Over;
  }
  m_changed.notify_all();
  return true;
}

}  // namespace velmara
