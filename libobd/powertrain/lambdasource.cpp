#include "powertrain/lambdasource.h"

#include <tavrix/tracelog.h>

namespace obd {

using tavrix::debugStream;

std::unique_ptr<LambdaSource> LambdaSource::create(const IEcu& ecu) {
  constexpr struct {
    ParameterIdentifier::Id pid;
    const char* text;
  } Sources[] = {
      {ParameterIdentifier::CommandedFar, "Using Commanded FA ratio as lambda source"},
      {ParameterIdentifier::OxygenSensorErvSensor1, "Using O2S ER-V as lambda source"},
      {ParameterIdentifier::OxygenSensor1Erc, "Using O2S ER-C as lambda source"},
  };
  for (const auto& [pid, text] : Sources) {
    if (ecu.isSupported(ObdMode::Mode01, ParameterIdentifier(pid).toOid(), 0)) {
      debugStream << text;
      return std::unique_ptr<LambdaSource>(new LambdaSource(pid));
    }
  }
  debugStream << "No lambda source available";
  return nullptr;
}

}  // namespace obd
