#pragma once

#include <atomic>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <vector>

#include "powertrain/calculatedparameter.h"
#include "powertrain/standardparameters.h"

namespace obd {

/// The voltage that the adapter measures.
class VELMARA_EXPORT BatteryVoltage : public CalculatedParameter {
 public:
  BatteryVoltage();

  UpdateStatus update(const std::shared_ptr<IObdProxy>& proxy) override;
  std::vector<std::shared_ptr<SensorValue>> values(const IEcu& ecu, UnitSystem system) override;
  /// Volt; 0 until it was read.
  float voltage() const { return m_voltage; }

 private:
  std::atomic<float> m_voltage{0.0F};
};

/// Engine power, estimated from the vehicle's acceleration over the last second.
class VELMARA_EXPORT EnginePower : public CalculatedParameter {
 public:
  EnginePower();

  /// Kilograms. To be set before the first update, since control units that are known keep theirs.
  void setVehicleWeight(unsigned int weight);
  /// Kilowatts or horsepower.
  float power(const IEcu& ecu, UnitSystem system) const;

  UpdateStatus update(const std::shared_ptr<IObdProxy>& proxy) override;
  std::vector<std::shared_ptr<SensorValue>> values(const IEcu& ecu, UnitSystem system) override;

 private:
  struct EnginePowerData {
    explicit EnginePowerData(float vehicleWeight) : weight(vehicleWeight) {}
    void feed(std::uint32_t time, float speed);

    float weight;          // kilograms
    SampledSignal speed;   // meters per second
    RecentValues samples;  // kilowatts
  };

  static float convert(float value, UnitSystem system);

  VehicleSpeed m_speed{ObdMode::Mode01, 0};
  mutable std::mutex m_mutex;  // guards what follows
  std::map<unsigned int, EnginePowerData> m_data;
  unsigned int m_vehicleWeight = 1500;
};

/// Torque, from engine power and engine speed.
class VELMARA_EXPORT Torque : public CalculatedParameter {
 public:
  Torque();

  /// As with `EnginePower`.
  void setVehicleWeight(unsigned int weight) { m_power.setVehicleWeight(weight); }
  /// Newton meters in either unit system.
  float torque(const IEcu& ecu, UnitSystem system) const;

  UpdateStatus update(const std::shared_ptr<IObdProxy>& proxy) override;
  std::vector<std::shared_ptr<SensorValue>> values(const IEcu& ecu, UnitSystem system) override;

 private:
  struct TorqueData {
    void feedPower(std::uint32_t time, float value);

    SampledSignal power;
    SampledSignal rpm;
    float torque = 0;
  };

  EnginePower m_power;
  EngineRpm m_rpm{ObdMode::Mode01, 0};
  mutable std::mutex m_mutex;  // guards what follows
  std::map<unsigned int, TorqueData> m_data;
};

/// Manifold pressure above that of the air outside, over the last half second. Negative at idle.
class VELMARA_EXPORT BoostPressure : public CalculatedParameter {
 public:
  BoostPressure();

  /// Whether the control unit tells its manifold pressure.
  static bool isValid(const IEcu& ecu);
  /// Kilopascal or pounds per square inch.
  float pressure(const IEcu& ecu, UnitSystem system) const;

  UpdateStatus update(const std::shared_ptr<IObdProxy>& proxy) override;
  std::vector<std::shared_ptr<SensorValue>> values(const IEcu& ecu, UnitSystem system) override;

 private:
  struct BoostPressureData {
    void feed(std::uint32_t at, float value);

    float barometric = 101.325F;  // kilopascal
    TimedValue manifold;
    RecentValues samples;
  };

  static float convert(float value, UnitSystem system);

  ManifoldPressure m_manifold{ObdMode::Mode01, 0};
  BarometricPressure m_barometric{ObdMode::Mode01, 0};
  std::uint32_t m_lastBarometricUpdate = 0;  // touched by the worker only
  mutable std::mutex m_mutex;                // guards what follows
  std::map<unsigned int, BoostPressureData> m_data;
};

}  // namespace obd
