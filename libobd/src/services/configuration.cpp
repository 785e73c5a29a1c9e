#include "services/configuration.h"

namespace obd {

void Configuration::baudrates(std::vector<int>& out) {
  out = {9600, 19200, 38400, 57600, 115200};
}

void Configuration::lowBaudrates(std::vector<int>& out) {
  out = {9600, 19200, 38400, 57600};
}

void Configuration::protocols(std::vector<ConnectionProtocol>& out) {
  constexpr int Last = static_cast<int>(VehicleProtocol::Iso15765Can29Bit250);
  for (int protocol = 0; protocol <= Last; ++protocol) {
    out.emplace_back(static_cast<VehicleProtocol>(protocol));
  }
}

void Configuration::buses(std::vector<int>& out) {
  out.insert(out.end(), {0, 1, 2});
}

}  // namespace obd
