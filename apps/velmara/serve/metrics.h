#pragma once

#include <cstddef>
#include <string>

#include "serve/board.h"

namespace velmara {

/// What the server itself counts.
struct ServerCounts {
  std::size_t requests = 0;
  std::size_t refused = 0;  ///< requests that were answered by an error
  std::size_t viewers = 0;
  std::size_t connections = 0;
  std::size_t turnedAway = 0;
};

/// The latest values, the health of the link and the server's own counts, in the text format of Prometheus.
std::string metricsText(const Board& board, const ServerCounts& counts);

}  // namespace velmara
