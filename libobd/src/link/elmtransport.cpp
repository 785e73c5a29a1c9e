#include "link/elmtransport.h"

#include <algorithm>
#include <limits>
#include <string_view>

#include <tavrix/tracelog.h>

namespace obd {

using tavrix::debugStream;
using tavrix::LogStream;

namespace {
constexpr const char* Source = "src\\elmtransport";
constexpr unsigned int LongestTimeout = std::numeric_limits<int>::max();
}  // namespace

int ElmTransport::send(IConnection& connection, const std::vector<unsigned char>& bytes) {
  std::vector<unsigned char> stale;
  connection.read(stale, 0);
  if (!stale.empty()) {
    debugStream << "Payload data discarded: "
                << std::string_view(reinterpret_cast<const char*>(stale.data()), stale.size());
  }
  std::vector<unsigned char> line;
  line.reserve(bytes.size() + 1);
  line.assign(bytes.begin(), bytes.end());
  line.push_back('\r');
  if (connection.write(line) != 0) {
    LogStream(Source, __LINE__, 3) << "Failed to send data";
    return Failed;
  }
  return Done;
}

int ElmTransport::receive(IConnection& connection, std::vector<unsigned char>& bytes, unsigned int timeout) {
  switch (connection.read(bytes, static_cast<int>(std::min(timeout, LongestTimeout)))) {
    case ConnectionMessage:
      std::erase_if(bytes, [](unsigned char byte) {
        return byte == '\0' || byte == '\n' || byte == '\r' || byte == '>' || byte == '?';
      });
      return Done;
    case ConnectionTimeout:
      if (timeout == 0) {
        return Done;
      }
      debugStream << "Connection timeout: " << timeout << " ms";
      return Failed;
    case ConnectionClosed:
      LogStream(Source, __LINE__, 2) << "Failed to receive data";
      return LinkDown;
    default:
      return Done;
  }
}

}  // namespace obd
