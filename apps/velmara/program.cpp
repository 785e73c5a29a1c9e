#include "program.h"

#include <fmt/format.h>

#include "velmara/client/failure.h"

namespace velmara {

UnitSystem parseUnitSystem(const std::string& text) {
  if (text == "metric") {
    return UnitSystem::Metric;
  }
  if (text == "imperial") {
    return UnitSystem::Imperial;
  }
  throw Failure(Failure::Kind::Unusable, fmt::format("\"{}\" is not a unit system.", text),
                "It is metric or imperial.");
}

Program::Program() : settings(std::make_shared<SettingsStore>(SettingsStore::defaultFile())) {}

void Program::begin() {
  notes.setQuiet(options.quiet);
  out.setColor(!options.noColor);
  if (!settings->complaint().empty()) {
    notes.warn("velmara: " + settings->complaint());
  }
  if (!options.unit.empty()) {
    settings->overrideValue(UnitSetting, static_cast<int>(parseUnitSystem(options.unit)));
  }
}

}  // namespace velmara
