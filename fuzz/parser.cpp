// What an adapter answers to a request, on every link protocol.

#include "link/messageparser.h"
#include "target.h"

FUZZ_TARGET(parser) {
  const auto protocol = static_cast<obd::ObdProtocol>(input.below(6));
  const std::vector<unsigned char> message = input.rest();
  obd::ResponseMap responses;
  try {
    const bool parsed = obd::MessageParser::parseResponseMessage(protocol, message, responses);
    fuzz::require(parsed == !responses.empty(), "a parsed message has replies");
  } catch (const std::exception&) {
    // Logged and thrown on: the transport catches it.
  }
  for (const auto& [id, data] : responses) {
    fuzz::require(data.size() <= std::max<std::size_t>(4095, message.size() / 2), "a reply has a limit");
  }
}
