#include "bluetooth.h"

#include <chrono>
#include <condition_variable>
#include <map>
#include <memory>
#include <mutex>
#include <utility>

#include <hostos/bluetooth.h>

#include "link/bluetoothsearch.h"
#include "values.h"
#include "velmara/client/link.h"
#include "waiting.h"

namespace velmara::python {

namespace py = pybind11;

namespace {

// What a search finds, on a thread of its own.
class Finder : public obd::IBluetoothObserver {
 public:
  struct Device {
    std::string link;
    std::string name;
  };

  void onSearchStarted() override {}
  void onDeviceFound(const std::string& name, const std::string& address, int channel) override {
    const std::lock_guard lock(mutex);
    devices[address] = {Link{Link::Kind::Bluetooth, address, channel}.text(), name};
  }
  void onSearchDone() override {
    const std::lock_guard lock(mutex);
    done = true;
    changed.notify_all();
  }

  std::mutex mutex;
  std::condition_variable changed;
  std::map<std::string, Device> devices;  // by address
  bool done = false;
};

}  // namespace

py::tuple findBluetooth(double seconds) {
  using Clock = std::chrono::steady_clock;
  const auto end =
      Clock::now() + std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(seconds));
  Finder finder;
  std::shared_ptr<hostos::IBluetoothStack> stack;
  std::unique_ptr<obd::BluetoothSearch> search;
  bool started = false;
  {
    const py::gil_scoped_release released;
    stack = hostos::bluetoothStack();
    search = std::make_unique<obd::BluetoothSearch>(stack.get());
    search->attachObserver(&finder);
    started = search->startScan();
  }
  const auto stop = [&] {
    const py::gil_scoped_release released;
    search->stopScan();
    search->detachObserver(&finder);
    search.reset();
  };
  try {
    if (started) {
      waitUntil(finder.mutex, finder.changed, [&] { return finder.done || Clock::now() >= end; });
    }
  } catch (...) {
    stop();
    throw;
  }
  stop();
  py::list devices;
  for (const auto& [address, device] : finder.devices) {
    devices.append(py::make_tuple(textOf(device.link), textOf(device.name), textOf(address)));
  }
  return py::make_tuple(devices, textOf(stack->lastError()));
}

}  // namespace velmara::python
