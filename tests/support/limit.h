#pragma once

#include <atomic>

/// Sets a limit of the platform for as long as it lives.
class Limit {
 public:
  Limit(std::atomic<int>& limit, int value) : m_limit(limit), m_old(limit.exchange(value)) {}
  Limit(const Limit&) = delete;
  Limit& operator=(const Limit&) = delete;
  ~Limit() { m_limit = m_old; }

 private:
  std::atomic<int>& m_limit;
  const int m_old;
};
