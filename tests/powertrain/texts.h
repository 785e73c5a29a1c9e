#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "../core/fakevehicle.h"
#include "powertrain/parameterfactory.h"

inline std::shared_ptr<obd::PowertrainParameter> make(int pid) {
  return obd::ParameterFactory().createParameter(obd::ParameterIdentifier(pid).id());
}

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
