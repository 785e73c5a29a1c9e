#include <hostos/bluetooth.h>
#include <hostos/busfactory.h>

namespace hostos {

namespace {

// For builds without D-Bus.
class NoSearch : public IDeviceSearch {
 public:
  void setListener(IBluetoothListener* /*listener*/) override {}
  bool start() override { return false; }
  void stop() override {}
  void cancel() override {}
};

class NoStack : public IBluetoothStack {
 public:
  IDeviceSearch* createDeviceSearch() override { return new NoSearch; }
  IDeviceSearch* createLeSearch() override { return new NoSearch; }
  std::string lastError() const override { return "This program was built without Bluetooth search."; }
};

}  // namespace

std::shared_ptr<IBluetoothStack> bluetoothStack() {
  return std::make_shared<NoStack>();
}

std::shared_ptr<IMessageBus> BusFactory::createBleBus(const std::string& /*address*/,
                                                      const std::string& /*service*/) {
  return nullptr;
}

}  // namespace hostos
