// Decode of a reply into a value, and of the value into text.

#include <memory>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>

#include "core/fakevehicle.h"
#include "powertrain/parameterfactory.h"

namespace {

void decodeParameter(benchmark::State& state, int identifier, const std::vector<unsigned char>& reply) {
  const std::shared_ptr<obd::IEcu> ecu = std::make_shared<fake::Ecu>(0x7E8);
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
  const std::shared_ptr<obd::IEcu> ecu = std::make_shared<fake::Ecu>(0x7E8);
  const auto parameter = obd::ParameterFactory().createParameter(obd::ParameterIdentifier(0x10).id());
  parameter->setResponseData(ecu, {0x41, 0x10, 0x1A, 0xF8});
  const auto values = parameter->values(*ecu, obd::UnitSystem::Metric);
  for (auto _ : state) {
    benchmark::DoNotOptimize(values.at(0)->textualValue());
  }
}
BENCHMARK(valueToText);

}  // namespace
