#include "program.h"

#include <fmt/format.h>

#include "terminal/terminalmode.h"
#include "velmara/client/failure.h"
#include "velmara/client/texts.h"
#include "velmara/client/tracewriter.h"

namespace velmara {

namespace {

std::shared_ptr<TraceWriter> makeTrace(const std::string& file) {
  try {
    return file.empty() ? nullptr : std::make_shared<TraceWriter>(file);
  } catch (const Failure& failure) {
    throw Failure(failure.kind(), failure.what(),
                  failure.kind() == Failure::Kind::FileExists ? "Choose another name, or remove it." : "");
  }
}

}  // namespace

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

std::optional<RememberedLink> rememberedLink(SettingsStore& settings) {
  RememberedLink link;
  if (settings.value(LinkSetting, link.text)) {
    return link;
  }
  link.isLast = true;
  return settings.value(LastLinkSetting, link.text) ? std::optional(link) : std::nullopt;
}

Program::Program() : settings(std::make_shared<SettingsStore>(SettingsStore::defaultFile())) {}

void Program::begin() {
  notes.setQuiet(options.quiet);
  out.setColor(!options.noColor);
  TerminalMode::setColored(out.color());
  if (!settings->complaint().empty()) {
    notes.warn("velmara: " + settings->complaint());
  }
  if (!options.unit.empty()) {
    settings->overrideValue(UnitSetting, static_cast<int>(parseUnitSystem(options.unit)));
  }
  trace = makeTrace(options.traceFile);
}

void Program::endTrace() {
  if (trace && !trace->failure().empty()) {
    logIsCut = true;
    notes.warn("velmara: The trace is not whole. " + printable(trace->failure()));
  }
}

}  // namespace velmara
