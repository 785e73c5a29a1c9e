#pragma once

#include <chrono>
#include <cstdint>

#include <hostos/time.h>

namespace velmara {

/// Measures up to seven weeks by the library's clock.
class Stopwatch {
 public:
  void restart() { m_start = hostos::CTime::milliseconds(); }
  std::chrono::milliseconds elapsed() const {
    return std::chrono::milliseconds(static_cast<std::uint32_t>(hostos::CTime::milliseconds() - m_start));
  }

 private:
  std::uint32_t m_start = hostos::CTime::milliseconds();
};

}  // namespace velmara
