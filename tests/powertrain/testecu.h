#pragma once

#include <memory>
#include <set>
#include <string>

#include "../core/fakevehicle.h"
#include "powertrain/powertrainparameter.h"

/// A control unit whose limits and supported PIDs a test can set.
class TestEcu : public fake::Ecu {
 public:
  explicit TestEcu(unsigned int id = 0x7E8, std::set<unsigned char> pids = {})
      : fake::Ecu(id), supported(std::move(pids)) {}

  using fake::Ecu::isSupported;
  bool isSupported(obd::ObdMode mode, unsigned char id, unsigned char /*frame*/) const override {
    return mode == obd::ObdMode::Mode01 && supported.count(id) != 0;
  }
  obd::OxygenSensorBank oxygenSensorBanks() const override { return banks; }
  unsigned int equivalenceRatioMax() const override { return ratioMax; }
  unsigned int oxygenSensorVoltageMax() const override { return voltageMax; }
  unsigned int oxygenSensorCurrentMax() const override { return currentMax; }
  unsigned int intakeManifoldAbsolutePressureMax() const override { return pressureMax; }
  float airFlowRateMax() const override { return airFlowMax; }

  std::set<unsigned char> supported;
  obd::OxygenSensorBank banks = obd::OxygenSensorBank::TwoBanks;
  unsigned int ratioMax = 2;
  unsigned int voltageMax = 8;
  unsigned int currentMax = 128;
  unsigned int pressureMax = 255;
  float airFlowMax = 655.35F;
};

/// The texts of all values of a control unit, "30.2|60.8"; "none" without a value.
inline std::string texts(obd::PowertrainParameter& parameter, const obd::IEcu& ecu,
                         obd::UnitSystem system = obd::UnitSystem::Metric) {
  std::string result;
  const auto values = parameter.values(ecu, system);
  for (const auto& value : values) {
    result += (value == values.front() ? "" : "|") + value->textualValue();
  }
  return values.empty() ? "none" : result;
}

/// Hands a parameter the reply of a control unit as hexadecimal text, header included.
inline bool reply(obd::PowertrainParameter& parameter, const std::shared_ptr<obd::IEcu>& ecu,
                  const std::string& hex) {
  return parameter.setResponseData(ecu, fake::bytes(hex));
}
