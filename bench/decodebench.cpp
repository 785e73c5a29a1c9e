// Decode of a reply into a value, and of the value into text.

#include <memory>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>

#include "powertrain/parameterfactory.h"

namespace {

/// A control unit that only has an identity and the standard scalings.
class PlainEcu : public obd::IEcu {
 public:
  unsigned int id() const override { return 0x7E8; }
  bool detectFreezeFrameConfiguration(unsigned char /*frame*/) override { return false; }
  void resetFreezeFrameConfiguration() override {}
  std::vector<unsigned char> supportedIds(obd::ObdMode /*mode*/, unsigned char /*frame*/) const override {
    return {};
  }
  bool isSupported(obd::OxygenSensorLocation /*location*/, unsigned char /*tid*/) const override {
    return false;
  }
  bool isSupported(obd::ObdMode /*mode*/, unsigned char /*id*/, unsigned char /*frame*/) const override {
    return false;
  }
  std::vector<unsigned char> supportedTids(obd::OxygenSensorLocation /*location*/) const override {
    return {};
  }
  obd::ObdProtocol protocol() const override { return obd::ObdProtocol::Iso15765Can11Bit; }
  std::string protocolDescription() const override { return {}; }
  obd::ObdStandard standard() const override { return obd::ObdStandard::Unknown; }
  std::string standardDescription() const override { return {}; }
  std::string name() const override { return {}; }
  std::string description() const override { return {}; }
  obd::OxygenSensorBank oxygenSensorBanks() const override { return obd::OxygenSensorBank::TwoBanks; }
  std::vector<obd::OxygenSensorLocation> oxygenSensorLocations() const override { return {}; }
  unsigned int equivalenceRatioMax() const override { return 2; }
  unsigned int oxygenSensorVoltageMax() const override { return 8; }
  unsigned int oxygenSensorCurrentMax() const override { return 128; }
  unsigned int intakeManifoldAbsolutePressureMax() const override { return 255; }
  float airFlowRateMax() const override { return 655.35F; }
  obd::IgnitionType ignitionType() const override { return obd::IgnitionType::SparkIgnition; }
};

void decodeParameter(benchmark::State& state, int identifier, const std::vector<unsigned char>& reply) {
  const std::shared_ptr<obd::IEcu> ecu = std::make_shared<PlainEcu>();
  const auto parameter = obd::ParameterFactory().createParameter(obd::ParameterIdentifier(identifier).id());
  for (auto _ : state) {
    if (!parameter->setResponseData(ecu, reply)) {
      state.SkipWithError("the reply was refused");
      break;
    }
    auto values = parameter->values(*ecu, obd::UnitSystem::Metric);
    benchmark::DoNotOptimize(values);
  }
}

void decodeEngineSpeed(benchmark::State& state) {
  decodeParameter(state, 0x0C, {0x41, 0x0C, 0x1A, 0xF8});
}
BENCHMARK(decodeEngineSpeed);

void decodeWideRangeOxygenSensor(benchmark::State& state) {
  decodeParameter(state, 0x24, {0x41, 0x24, 0x80, 0x00, 0x40, 0x00});
}
BENCHMARK(decodeWideRangeOxygenSensor);

void valueToText(benchmark::State& state) {
  const std::shared_ptr<obd::IEcu> ecu = std::make_shared<PlainEcu>();
  const auto parameter = obd::ParameterFactory().createParameter(obd::ParameterIdentifier(0x10).id());
  parameter->setResponseData(ecu, {0x41, 0x10, 0x1A, 0xF8});
  const auto values = parameter->values(*ecu, obd::UnitSystem::Metric);
  for (auto _ : state) {
    benchmark::DoNotOptimize(values.at(0)->textualValue());
  }
}
BENCHMARK(valueToText);

}  // namespace
