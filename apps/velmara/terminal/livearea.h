#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "terminal/output.h"

namespace velmara {

/// Lines that are drawn in the same place again and again. For a terminal. What does not fit is left out, and
/// the last line says so.
class LiveArea {
 public:
  explicit LiveArea(Output& out) : m_out(out) {}
  /// The first `headings` lines are printed as such.
  void draw(std::vector<std::string> lines, std::size_t headings);

 private:
  Output& m_out;
  std::size_t m_drawn = 0;
};

}  // namespace velmara
