// Polls engine speed, vehicle speed and coolant temperature for some seconds and prints what they were.

#include <cstdio>
#include <cstdlib>
#include <exception>
#include <map>

#include <services/isensorservice.h>

#include "frontend.h"

namespace {

// Values come here by `FrontEnd::runUntil`, on the thread that called it.
class Recorder : public obd::ISensorServiceObserver {
 public:
  void onSensorUpdated(bool success, const std::shared_ptr<obd::ParameterDescriptor>& parameter,
                       const std::vector<std::shared_ptr<obd::SensorValueDataModel>>& values) override {
    if (!success) {
      return;
    }
    for (const auto& sensor : parameter->sensors()) {
      m_names[sensor->uid()] = sensor->description();
    }
    for (const auto& value : values) {
      m_latest.insert_or_assign(value->uid, *value);  // its statistics reach back to the first reading
      ++m_readings;
    }
  }

  int print() const {
    std::printf("%-30s %8s %8s %8s %8s\n", "", "now", "minimum", "maximum", "average");
    for (const auto& [uid, value] : m_latest) {
      std::printf("%-30s %8s %8s %8s %8s\n", m_names.at(uid).c_str(), value.value.c_str(),
                  value.minimum.c_str(), value.maximum.c_str(), value.average.c_str());
    }
    std::printf("%d readings\n", m_readings);
    return m_readings == 0 ? 1 : 0;
  }

 private:
  std::map<int, std::string> m_names;
  std::map<int, obd::SensorValueDataModel> m_latest;
  int m_readings = 0;
};

}  // namespace

int main(int argc, char** argv) try {
  if (argc < 2) {
    std::fprintf(stderr, "Usage: %s HOST:PORT [SECONDS]\n", argv[0]);
    return 1;
  }
  const std::chrono::seconds duration(argc > 2 ? std::atoi(argv[2]) : 10);
  FrontEnd frontEnd;
  frontEnd.connect(argv[1]);

  Recorder recorder;
  const auto sensors = obd::SensorServiceBuilder::createSensorService();
  sensors->attach(&recorder);
  sensors->refresh({obd::ParameterIdentifier::EngineRpm, obd::ParameterIdentifier::VehicleSpeed,
                    obd::ParameterIdentifier::EngineCoolantTemperature});
  frontEnd.runUntil([&frontEnd] { return frontEnd.lost(); }, duration);
  sensors->reset();  // ends the polling
  sensors->detach(&recorder);
  return recorder.print();
} catch (const std::exception& error) {
  std::fprintf(stderr, "%s\n", error.what());
  return 1;
}
