#include <simulator/vehicle.h>

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <system_error>
#include <utility>

#include "builtinvehicles.h"
#include "vehicledata.h"

namespace simulator {

namespace {

// Odd vehicles have a folder of their own.
std::vector<std::string> namesOf(bool odd) {
  std::vector<std::string> names;
  for (const BuiltinVehicle& vehicle : builtinVehicles()) {
    if (vehicle.name.starts_with("odd/") == odd) {
      names.emplace_back(vehicle.name);
    }
  }
  return names;
}

}  // namespace

Vehicle::Vehicle(std::unique_ptr<VehicleData> data) : m_data(std::move(data)) {
  m_data->begin();
}
Vehicle::~Vehicle() = default;

std::shared_ptr<Vehicle> Vehicle::parse(std::string_view text, const std::string& origin) {
  return std::make_shared<Vehicle>(parseVehicle(text, origin));
}

std::shared_ptr<Vehicle> Vehicle::load(const std::string& nameOrPath) {
  for (const BuiltinVehicle& vehicle : builtinVehicles()) {
    if (vehicle.name == nameOrPath) {
      return parse(vehicle.text, nameOrPath + ".vehicle");
    }
  }
  // A device may have no end, and a folder has no text.
  constexpr std::uintmax_t LargestFile = 1U << 24U;
  std::error_code ignored;
  if (std::filesystem::exists(nameOrPath, ignored) &&
      (!std::filesystem::is_regular_file(nameOrPath, ignored) ||
       std::filesystem::file_size(nameOrPath, ignored) > LargestFile)) {
    throw std::runtime_error(nameOrPath + " is no file of text.");
  }
  std::ifstream file(nameOrPath, std::ios::binary);
  std::string text;
  if (file) {
    text.assign(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
  }
  if (!file || file.bad()) {
    std::string names;
    for (const std::string& name : vehicleNames()) {
      names.append(names.empty() ? "" : ", ").append(name);
    }
    throw std::runtime_error("There is no vehicle and no readable file \"" + nameOrPath +
                             "\"; built-in vehicles are " + names + ".");
  }
  return parse(text, nameOrPath);
}

const std::string& Vehicle::name() const {
  return m_data->name;
}
int Vehicle::protocol() const {
  return m_data->protocol;
}
std::size_t Vehicle::unitCount() const {
  return m_data->units.size();
}
double Vehicle::batteryVoltage() const {
  return m_data->batteryVoltage();
}
void Vehicle::holdDrive(std::optional<std::uint32_t> milliseconds) {
  m_data->holdDrive(milliseconds);
}
void Vehicle::setIgnition(bool on) {
  m_data->setIgnition(on);
}

std::vector<std::string> vehicleNames() {
  return namesOf(false);
}

std::vector<std::string> oddVehicleNames() {
  return namesOf(true);
}

}  // namespace simulator
