#pragma once

#include <vector>

#include "link/iconnection.h"

namespace obd {

/// What holds for every exchange with an ELM327-class adapter: a request ends in a carriage return, what lies
/// in the queue before it is stale, and a reply is cleared of line ends, NUL characters, ">" and "?".
class ElmTransport {
 public:
  ElmTransport() = delete;

  enum Result : int { Done = 0, Failed = 1, LinkDown = 2 };

  /// Drops one stale message and writes `bytes` and a carriage return. `Done` or `Failed`.
  static int send(IConnection& connection, const std::vector<unsigned char>& bytes);

  /// Takes the next reply. `Done` also for a time-out of 0 with nothing there; `Failed` for a time-out.
  static int receive(IConnection& connection, std::vector<unsigned char>& bytes, unsigned int timeout);
};

}  // namespace obd
