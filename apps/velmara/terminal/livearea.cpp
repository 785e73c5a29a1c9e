#include "terminal/livearea.h"

#include <algorithm>

#include <fmt/format.h>

#include "velmara/client/texts.h"

namespace velmara {

void LiveArea::draw(std::vector<std::string> lines, std::size_t headings) {
  const std::size_t room = std::max<std::size_t>(m_out.height(), 4) - 1;
  if (lines.size() > room) {
    const std::size_t left = lines.size() - room + 1;
    lines.resize(room - 1);
    lines.push_back(fmt::format("... and {} more: name the ones to see, or enlarge the window", left));
  }
  if (m_drawn != 0) {
    m_out << fmt::format("\x1b[{}A\r", m_drawn);
  }
  const std::size_t width = m_out.width();
  for (std::size_t i = 0; i < lines.size(); ++i) {
    const std::string line = cutToWidth(lines[i], width);
    m_out << (i < headings ? m_out.heading(line) : line) << "\x1b[K\n";
  }
  m_out << "\x1b[J";
  m_out.flush();
  m_drawn = lines.size();
}

}  // namespace velmara
