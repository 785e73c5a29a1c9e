#include "velmara/client/statistics.h"

#include <optional>

#include <fmt/format.h>

#include "velmara/client/texts.h"

namespace velmara {

void Statistics::add(const std::string& text) {
  const std::optional<double> number = finiteNumber(text);
  if (!number) {
    return;
  }
  ++m_count;
  m_average += (*number - m_average) / static_cast<double>(m_count);
  const std::size_t point = text.find('.');
  m_decimals = point == std::string::npos ? 0 : text.size() - point - 1;
  if (m_count == 1 || *number < m_lowest) {
    m_lowest = *number;
    m_minimum = text;
  }
  if (m_count == 1 || *number > m_highest) {
    m_highest = *number;
    m_maximum = text;
  }
}

std::string Statistics::average() const {
  return m_count == 0 ? std::string() : fmt::format("{:.{}f}", m_average, m_decimals);
}

}  // namespace velmara
