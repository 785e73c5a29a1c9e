#include "devices.h"

#include <string>
#include <thread>
#include <vector>

#include "values.h"
#include "velmara/client/devices.h"
#include "waiting.h"

namespace velmara::python {

namespace py = pybind11;

namespace {

struct Found {
  std::vector<BluetoothDevice> classic;
  std::vector<LowEnergyDevice> lowEnergy;
  std::string error;
};

Found searchBluetooth(std::chrono::steady_clock::duration time) {
  const auto end = std::chrono::steady_clock::now() + time;
  const Released released;
  BluetoothFinder finder;
  if (finder.start()) {
    while (!finder.isDone() && std::chrono::steady_clock::now() < end) {
      std::this_thread::sleep_for(SignalTime);
      hearSignals();
    }
    finder.stop();
  }
  return {finder.devices(), finder.lowEnergyDevices(), finder.error()};
}

template <typename Device>
void append(py::list& list, const std::vector<Device>& devices) {
  for (const Device& device : devices) {
    list.append(toPython(device));
  }
}

}  // namespace

py::list findDevices(bool bluetooth, double seconds) {
  const auto time = durationOf(seconds);
  py::list list;
  append(list, findSerialPorts());
  if (bluetooth) {
    const Found found = searchBluetooth(time);
    append(list, found.classic);
    append(list, found.lowEnergy);
    if (!found.error.empty()) {
      append(list, std::vector{SerialPort{"", "Bluetooth", found.error, ""}});
    }
  }
  return list;
}

}  // namespace velmara::python
