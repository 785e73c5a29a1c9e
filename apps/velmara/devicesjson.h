#pragma once

#include <vector>

#include "report/json.h"
#include "velmara/client/devices.h"

namespace velmara {

Json toJson(const std::vector<SerialPort>& ports);
Json toJson(const std::vector<BluetoothDevice>& devices);
Json toJson(const std::vector<LowEnergyDevice>& devices);

}  // namespace velmara
