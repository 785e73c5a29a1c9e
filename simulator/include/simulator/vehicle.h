#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace simulator {

class VehicleData;

/// A simulated vehicle: the control units on one diagnostic bus and what each answers. Its engine values move
/// over time, its codes can be cleared. Several adapters may share one; all operations are thread safe.
class Vehicle {
 public:
  /// Loads a built-in vehicle by its name ("petrol-can11", "odd/lists"), or a file by its path. Throws
  /// std::runtime_error with a sentence that says what is wrong, for a malformed file as "file:line: what".
  static std::shared_ptr<Vehicle> load(const std::string& nameOrPath);

  /// Reads the text of a vehicle file; `origin` stands for the file in messages. Throws like `load`.
  static std::shared_ptr<Vehicle> parse(std::string_view text, const std::string& origin);

  explicit Vehicle(std::unique_ptr<VehicleData> data);
  Vehicle(const Vehicle&) = delete;
  Vehicle& operator=(const Vehicle&) = delete;
  ~Vehicle();

  /// The name told in the file, for people.
  const std::string& name() const;
  /// The link protocol as an ELM327 numbers it, 1 to 9.
  int protocol() const;
  /// How many control units there are, 1 to 8.
  std::size_t unitCount() const;
  /// Battery voltage as the adapter measures it.
  double batteryVoltage() const;

  /// Stops the drive at a moment, in milliseconds since its start; nothing lets it run on from there. A new
  /// vehicle drives from the moment it was loaded.
  void holdDrive(std::optional<std::uint32_t> milliseconds);

  /// Switches the ignition: with it off no unit answers. On at first.
  void setIgnition(bool on);

  /// For the adapter.
  VehicleData& data() { return *m_data; }

 private:
  std::unique_ptr<VehicleData> m_data;
};

/// Names of the built-in vehicles, in alphabetical order, without the odd ones.
std::vector<std::string> vehicleNames();

/// Names of the built-in vehicles that break rules, each in its own way ("odd/lists"), in alphabetical order.
std::vector<std::string> oddVehicleNames();

}  // namespace simulator
