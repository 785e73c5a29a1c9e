// Settings: whatever a store holds, the library reads values that are in range, and what it writes it reads
// again.

#include <unistd.h>

#include <cmath>
#include <filesystem>
#include <fstream>
#include <map>

#include "link/isettings.h"
#include "services/velmarasettings.h"
#include "settingsstore.h"
#include "target.h"
#include "velmara/client/failure.h"

namespace {

// Makes up what it is asked for, once for each key.
class Invented : public obd::ISettings {
 public:
  explicit Invented(fuzz::Input& input) : m_input(input) {}

  void setValue(const std::string& key, int value) override { m_numbers[key] = {true, value}; }
  void setValue(const std::string& key, const std::string& value) override { m_texts[key] = {true, value}; }
  bool value(const std::string& key, int& value) override {
    const auto [entry, isNew] = m_numbers.try_emplace(key);
    if (isNew) {
      entry->second.first = m_input.byte() % 4 != 0;
      entry->second.second = m_input.byte() % 2 != 0 ? m_input.number() : m_input.byte() - 8;
    }
    value = entry->second.first ? entry->second.second : value;
    return entry->second.first;
  }
  bool value(const std::string& key, std::string& value) override {
    const auto [entry, isNew] = m_texts.try_emplace(key);
    if (isNew) {
      entry->second.first = m_input.byte() % 4 != 0;
      entry->second.second = m_input.text(m_input.byte());
    }
    value = entry->second.first ? entry->second.second : value;
    return entry->second.first;
  }

 private:
  fuzz::Input& m_input;
  std::map<std::string, std::pair<bool, int>> m_numbers;
  std::map<std::string, std::pair<bool, std::string>> m_texts;
};

void readAndWrite(const std::shared_ptr<obd::ISettings>& store, fuzz::Input& input) {
  obd::VelmaraSettings settings(store);
  const auto system = static_cast<int>(settings.unitSystem());
  fuzz::require(system == 0 || system == 1, "the unit system is one of two");
  const auto ignition = static_cast<int>(settings.ignitionType());
  settings.setIgnitionType(settings.ignitionType());
  fuzz::require(static_cast<int>(settings.ignitionType()) == ignition, "the ignition type is kept");
  settings.setLanguage(settings.language());
  settings.setFuelTypeOverride(settings.fuelTypeOverride());
  fuzz::require(std::isfinite(settings.fuelCorrectionFactor()), "the factor is a number");
  settings.setFuelCorrectionFactor(static_cast<float>(input.number()) / 64.0F);
  settings.setEngineDisplacement(static_cast<float>(input.number()) * 64.0F);
  fuzz::require(std::isfinite(settings.engineDisplacement()), "the displacement is a number");
  settings.setVolumetricEfficiency(settings.volumetricEfficiency());
  settings.setVehicleWeight(settings.vehicleWeight());

  obd::IConnectionOptions& options = *settings.connectionOptions();
  options.load();
  fuzz::require(options.bus() <= 2, "the bus is one of three");
  const obd::BluetoothDescriptor device = options.bluetoothDescriptor();
  options.addBluetoothDevice(device);
  std::vector<obd::BluetoothDescriptor> devices;
  options.bluetoothDevices(devices);
  options.save();
  const auto protocol = options.protocol();
  options.load();
  fuzz::require(options.protocol() == protocol, "the protocol is kept");
}

}  // namespace

FUZZ_TARGET(settings) {
  const bool file = input.byte() % 2 != 0;
  if (!file) {
    readAndWrite(std::make_shared<Invented>(input), input);
    return;
  }
  const auto path =
      std::filesystem::temp_directory_path() / ("velmara-fuzz-" + std::to_string(getpid())) / "settings.json";
  std::filesystem::create_directories(path.parent_path());
  {
    std::ofstream out(path, std::ios::binary);
    out << input.text(input.left());
  }
  const auto store = std::make_shared<velmara::SettingsStore>(path);
  readAndWrite(store, input);
  try {
    store->sync();
    velmara::SettingsStore again(path);
    fuzz::require(again.complaint().empty(), "what was written can be read");
    int first = 0;
    int second = 0;
    fuzz::require(
        store->value("connection/bus", first) == again.value("connection/bus", second) && first == second,
        "a written number is read again");
  } catch (const velmara::Failure&) {
    // The file cannot be written.
  }
  std::filesystem::remove_all(path.parent_path());
}
