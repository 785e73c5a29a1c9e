#include "powertrain/engineperformance.h"

#include <hostos/time.h>
#include <tavrix/tracelog.h>

#include "powertrain/unitconversion.h"

namespace obd {

using hostos::CTime;
using tavrix::LogStream;

namespace {

constexpr const char* Source = "powertrain\\enginepower";

constexpr std::uint32_t PowerSpan = 1001;  // milliseconds from which a sample is too old
constexpr std::uint32_t BoostSpan = 501;
constexpr std::uint32_t BarometricPeriod = 5000;  // the air outside changes slowly

using Ecus = std::vector<std::shared_ptr<IEcu>>;

}  // namespace

BatteryVoltage::BatteryVoltage()
    : CalculatedParameter(ParameterIdentifier::BatteryVoltage, "Battery voltage", MeasurementUnit::Volt,
                          24.0F, MeasurementUnit::Volt, 24.0F) {}

IQuery::UpdateStatus BatteryVoltage::update(const std::shared_ptr<IObdProxy>& proxy) {
  const float voltage = proxy->batteryVoltage();
  if (!(voltage > 0.0F)) {
    return NoData;
  }
  m_voltage = voltage;
  return Updated;
}

std::vector<std::shared_ptr<SensorValue>> BatteryVoltage::values(const IEcu& /*ecu*/, UnitSystem /*system*/) {
  return single(voltage(), 1);
}

EnginePower::EnginePower()
    : CalculatedParameter(ParameterIdentifier::EnginePower, "Engine power", MeasurementUnit::PowerMetric,
                          1000.0F, MeasurementUnit::PowerImperial, 1300.0F) {}

void EnginePower::setVehicleWeight(unsigned int weight) {
  const std::lock_guard guard(m_mutex);
  m_vehicleWeight = weight;
  if (!m_data.empty()) {
    LogStream(Source, __LINE__, 2) << "DEVELOPER ERROR: vehicle weight set too late";
  }
}

IQuery::UpdateStatus EnginePower::update(const std::shared_ptr<IObdProxy>& proxy) {
  const Ecus ecus = proxy->ecus();
  {
    const std::lock_guard guard(m_mutex);
    for (const auto& ecu : ecus) {
      m_data.try_emplace(ecu->id(), static_cast<float>(m_vehicleWeight));
    }
  }
  const UpdateStatus status = m_speed.update(proxy);
  if (status != Updated) {
    return status;
  }
  const std::uint32_t time = CTime::milliseconds();
  const std::lock_guard guard(m_mutex);
  for (const auto& ecu : ecus) {
    m_data.at(ecu->id()).feed(time, m_speed.value(*ecu));
  }
  return Updated;
}

void EnginePower::EnginePowerData::feed(std::uint32_t time, float kilometersPerHour) {
  const std::uint32_t now = CTime::milliseconds();
  speed.feed(time, kilometersPerHour * 0.2777778F);
  const float v = speed.current.value;
  const float u = speed.previous.value;
  const float dt = speed.interval() / 1000.0F;
  // Constant speed and braking say nothing about power.
  if (speed.previous.time != 0 && v - u > 0.0F && dt > 0.0F) {
    const float acceleration = (v - u) / dt;
    const float byForce = weight * v * acceleration;
    const float byEnergy = weight * 0.5F * (v * v - u * u) / dt;
    // Half the density of air, drag coefficient, area factor.
    const float drag = v * v * v * 0.6121F * 0.3F * 0.79F;
    samples.append(now, ((byEnergy + byForce) * 0.5F + drag) * 0.001F);
  }
  samples.dropOlder(now, PowerSpan);
}

float EnginePower::power(const IEcu& ecu, UnitSystem system) const {
  const std::lock_guard guard(m_mutex);
  const auto found = m_data.find(ecu.id());
  return found == m_data.end() ? 0.0F : convert(found->second.samples.mean(), system);
}

float EnginePower::convert(float value, UnitSystem system) {
  return system == UnitSystem::Imperial ? value * 1.3410221F : value;
}

std::vector<std::shared_ptr<SensorValue>> EnginePower::values(const IEcu& ecu, UnitSystem system) {
  return single(power(ecu, system), 0);
}

Torque::Torque()
    : CalculatedParameter(ParameterIdentifier::Torque, "Engine torque", MeasurementUnit::NewtonMeter, 2000.0F,
                          MeasurementUnit::NewtonMeter, 2000.0F) {}

IQuery::UpdateStatus Torque::update(const std::shared_ptr<IObdProxy>& proxy) {
  const Ecus ecus = proxy->ecus();
  {
    const std::lock_guard guard(m_mutex);
    for (const auto& ecu : ecus) {
      m_data.try_emplace(ecu->id());
    }
  }
  UpdateStatus status = Updated;
  if (m_rpm.update(proxy) == Updated) {
    const std::uint32_t time = CTime::milliseconds();
    const std::lock_guard guard(m_mutex);
    for (const auto& ecu : ecus) {
      m_data[ecu->id()].rpm.feed(time, static_cast<float>(m_rpm.engineRpm(*ecu)));
    }
  } else {
    status = NoData;
  }
  if (m_power.update(proxy) == Updated) {
    const std::uint32_t time = CTime::milliseconds();
    const std::lock_guard guard(m_mutex);
    for (const auto& ecu : ecus) {
      m_data[ecu->id()].feedPower(time, m_power.power(*ecu, UnitSystem::Metric));
    }
  } else {
    status = NoData;
  }
  return status;
}

void Torque::TorqueData::feedPower(std::uint32_t time, float value) {
  power.feed(time, value);
  if (!(power.interval() > 0.0F)) {
    return;
  }
  const float speed = rpm.current.value;
  if (!(speed > 0.0F)) {
    torque = 0.0F;
    return;
  }
  torque = power.at(rpm.current.time) * 1000.0F / (speed / 60.0F * 6.2831855F);
}

float Torque::torque(const IEcu& ecu, UnitSystem /*system*/) const {
  const std::lock_guard guard(m_mutex);
  const auto found = m_data.find(ecu.id());
  return found == m_data.end() ? 0.0F : found->second.torque;
}

std::vector<std::shared_ptr<SensorValue>> Torque::values(const IEcu& ecu, UnitSystem system) {
  return single(torque(ecu, system), 0);
}

BoostPressure::BoostPressure()
    : CalculatedParameter(ParameterIdentifier::BoostPressure, "Boost pressure", MeasurementUnit::Kilopascal,
                          255.0F, MeasurementUnit::PoundsPerSquareInch, 36.98461F) {}

bool BoostPressure::isValid(const IEcu& ecu) {
  return ecu.isSupported(ObdMode::Mode01, ManifoldPressure::Pid, 0);
}

IQuery::UpdateStatus BoostPressure::update(const std::shared_ptr<IObdProxy>& proxy) {
  const Ecus ecus = proxy->ecus();
  bool barometer = false;
  {
    const std::lock_guard guard(m_mutex);
    for (const auto& ecu : ecus) {
      m_data.try_emplace(ecu->id());
      barometer = barometer || ecu->isSupported(ObdMode::Mode01, BarometricPressure::Pid, 0);
    }
  }
  const std::uint32_t now = CTime::milliseconds();
  if (barometer && now - m_lastBarometricUpdate > BarometricPeriod) {
    m_lastBarometricUpdate = now;
    if (m_barometric.update(proxy) == Updated) {
      const std::lock_guard guard(m_mutex);
      for (const auto& ecu : ecus) {
        m_data[ecu->id()].barometric = m_barometric.value(*ecu);
      }
    }
  }
  const UpdateStatus status = m_manifold.update(proxy);
  if (status != Updated) {
    return status;
  }
  const std::uint32_t time = CTime::milliseconds();
  const std::lock_guard guard(m_mutex);
  for (const auto& ecu : ecus) {
    m_data[ecu->id()].feed(time, m_manifold.value(*ecu));
  }
  return Updated;
}

void BoostPressure::BoostPressureData::feed(std::uint32_t at, float value) {
  manifold = {at, value};
  const std::uint32_t now = CTime::milliseconds();
  samples.append(now, manifold.value - barometric);
  samples.dropOlder(now, BoostSpan);
}

float BoostPressure::pressure(const IEcu& ecu, UnitSystem system) const {
  const std::lock_guard guard(m_mutex);
  const auto found = m_data.find(ecu.id());
  return found == m_data.end() ? 0.0F : convert(found->second.samples.mean(), system);
}

float BoostPressure::convert(float value, UnitSystem system) {
  return system == UnitSystem::Imperial ? toPsi(value) : value;
}

std::vector<std::shared_ptr<SensorValue>> BoostPressure::values(const IEcu& ecu, UnitSystem system) {
  return single(pressure(ecu, system), 1);
}

}  // namespace obd
