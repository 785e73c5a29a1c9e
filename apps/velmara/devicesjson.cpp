#include "devicesjson.h"

namespace velmara {

Json toJson(const std::vector<SerialPort>& ports) {
  Json list = Json::array();
  for (const SerialPort& port : ports) {
    list.push_back({{"link", port.link},
                    {"name", port.name},
                    {"accessible", port.problem.empty()},
                    {"problem", port.problem.empty() ? Json() : Json(port.problem)},
                    {"joinGroup", port.group.empty() ? Json() : Json(port.group)}});
  }
  return list;
}

Json toJson(const std::vector<BluetoothDevice>& devices) {
  Json list = Json::array();
  for (const BluetoothDevice& device : devices) {
    list.push_back({{"link", device.link}, {"name", device.name}, {"address", device.address}});
  }
  return list;
}

Json toJson(const std::vector<LowEnergyDevice>& devices) {
  Json list = Json::array();
  for (const LowEnergyDevice& device : devices) {
    list.push_back({{"link", device.link},
                    {"name", device.name},
                    {"address", device.address},
                    {"signal", device.signal == 0 ? Json() : Json(device.signal)},
                    {"serialService", device.isSerial}});
  }
  return list;
}

}  // namespace velmara
