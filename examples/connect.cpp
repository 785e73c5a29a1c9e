// Connects to a vehicle and prints the engine speed.

#include <cstdio>
#include <exception>

#include <powertrain/parameteridentifier.h>
#include <services/isensorservice.h>

#include "frontend.h"

int main(int argc, char** argv) try {
  if (argc != 2) {
    std::fprintf(stderr, "Usage: %s HOST:PORT\n", argv[0]);
    return 1;
  }
  FrontEnd frontEnd;
  frontEnd.connect(argv[1]);
  const auto sensors = obd::SensorServiceBuilder::createSensorService();
  for (const auto& sensor : sensors->readSensors(obd::ParameterIdentifier::EngineRpm)) {
    if (sensor->value) {
      std::printf("%s: %s rpm\n", sensor->description.c_str(), sensor->value->value.c_str());
      return 0;
    }
  }
  std::fprintf(stderr, "The vehicle does not tell its engine speed.\n");
  return 1;
} catch (const std::exception& error) {
  std::fprintf(stderr, "%s\n", error.what());
  return 1;
}
