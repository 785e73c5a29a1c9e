#include <algorithm>
#include <cctype>
#include <charconv>
#include <cmath>
#include <functional>
#include <optional>

#include <fmt/format.h>

#include "commands/command.h"
#include "programsession.h"
#include "services/iobdvelmara.h"
#include "terminal/table.h"
#include "velmara/client/link.h"
#include "velmara/client/texts.h"

namespace velmara {

namespace {

// One setting. `set` gives false for a text that it cannot use.
struct Setting {
  const char* name;
  const char* unit;
  const char* description;
  const char* values;             // in words
  std::vector<const char*> keys;  // what goes when the default comes back
  std::function<std::string(Program&, obd::IVelmaraSettings&)> get;
  std::function<bool(Program&, obd::IVelmaraSettings&, const std::string&)> set;
};

template <typename T>
std::optional<T> number(const std::string& text, T lowest, T highest) {
  T value{};
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (error != std::errc() || end != text.data() + text.size() || !(value >= lowest && value <= highest)) {
    return std::nullopt;
  }
  return value;
}

// The library keeps hundredths and cuts off the rest, also where a float lies a hair below what was meant:
// 1.05 would come back as 1.04.
float forLibrary(float value) {
  return std::round(value * 100.0F) / 100.0F + 0.001F;
}

int forLibrary(int value) {
  return value;
}

// A setting that is a number in the library.
template <typename T>
Setting numeric(const char* name, const char* unit, const char* description, const char* values,
                const char* key, T lowest, T highest, T (obd::IVelmaraSettings::*get)(),
                void (obd::IVelmaraSettings::*set)(T)) {
  return {name,
          unit,
          description,
          values,
          {key},
          [get](Program&, obd::IVelmaraSettings& settings) { return fmt::format("{}", (settings.*get)()); },
          [=](Program&, obd::IVelmaraSettings& settings, const std::string& text) {
            const std::optional<T> value = number(text, lowest, highest);
            if (value) {
              (settings.*set)(forLibrary(*value));
            }
            return value.has_value();
          }};
}

std::string getFuel(Program& /*program*/, obd::IVelmaraSettings& settings) {
  if (!settings.fuelTypeOverride()) {
    return "auto";
  }
  return settings.ignitionType() == obd::IgnitionType::CompressionIgnition ? "diesel" : "petrol";
}

bool setFuel(Program& /*program*/, obd::IVelmaraSettings& settings, const std::string& text) {
  if (text != "auto" && text != "petrol" && text != "diesel") {
    return false;
  }
  settings.setFuelTypeOverride(text != "auto");
  if (text != "auto") {
    settings.setIgnitionType(text == "diesel" ? obd::IgnitionType::CompressionIgnition
                                              : obd::IgnitionType::SparkIgnition);
  }
  return true;
}

std::vector<Setting> makeSettings() {
  using Library = obd::IVelmaraSettings;
  return {
      {"link",
       "",
       "Where the adapter is, unless --link says so",
       "a link as --link takes it",
       {LinkSetting},
       [](Program& program, Library&) {
         std::string link = "none";
         program.settings->value(LinkSetting, link);
         return link;
       },
       [](Program& program, Library&, const std::string& text) {
         program.settings->setValue(LinkSetting, parseLink(text).text());
         return true;
       }},
      {"last-link",
       "",
       "Where the last adapter named with --link was; used without any link",
       "a link as --link takes it",
       {LastLinkSetting},
       [](Program& program, Library&) {
         std::string link = "none";
         program.settings->value(LastLinkSetting, link);
         return link;
       },
       [](Program& program, Library&, const std::string& text) {
         program.settings->setValue(LastLinkSetting, parseLink(text).text());
         return true;
       }},
      {"unit",
       "",
       "Units of the values, unless --unit says so",
       "metric or imperial",
       {UnitSetting},
       [](Program&, Library& library) {
         return std::string(library.unitSystem() == obd::UnitSystem::Imperial ? "imperial" : "metric");
       },
       [](Program&, Library& library, const std::string& text) {
         library.setUnitSystem(parseUnitSystem(text) == UnitSystem::Imperial ? obd::UnitSystem::Imperial
                                                                             : obd::UnitSystem::Metric);
         return true;
       }},
      {"fast",
       "",
       "Read live values in groups, as with sensors --fast",
       "yes or no",
       {FastSetting},
       [](Program& program, Library&) {
         int fast = 0;
         return std::string(program.settings->value(FastSetting, fast) && fast != 0 ? "yes" : "no");
       },
       [](Program& program, Library&, const std::string& text) {
         if (text != "yes" && text != "no") {
           return false;
         }
         program.settings->setValue(FastSetting, text == "yes" ? 1 : 0);
         return true;
       }},
      numeric<int>("weight", "kg", "Weight of the vehicle, for power and torque", "1 to 100000",
                   "common/vehicleweight", 1, 100000, &Library::vehicleWeight, &Library::setVehicleWeight),
      numeric<float>("displacement", "L", "Displacement of the engine, for the consumption", "0.05 to 100",
                     "common/enginedisplacement", 0.05F, 100.0F, &Library::engineDisplacement,
                     &Library::setEngineDisplacement),
      numeric<int>("efficiency", "%", "Volumetric efficiency of the engine, for the consumption", "1 to 100",
                   "common/volumetricefficiency", 1, 100, &Library::volumetricEfficiency,
                   &Library::setVolumetricEfficiency),
      numeric<float>("correction", "", "Factor on the consumption, for a figure that fits your fuel bills",
                     "0.01 to 100", "common/fuelcorrectionfactor", 0.01F, 100.0F,
                     &Library::fuelCorrectionFactor, &Library::setFuelCorrectionFactor),
      {"fuel",
       "",
       "Kind of engine, for the consumption",
       "auto, petrol or diesel",
       {"common/fueltypeoverride", "common/ignitiontype"},
       getFuel,
       setFuel}};
}

class SettingsCommand : public Command {
 public:
  std::string name() const override { return "settings"; }
  std::string summary() const override { return "Show or change what velmara remembers"; }
  std::string examples() const override {
    return "  velmara settings                            all settings\n"
           "  velmara settings weight 1420                for power and torque\n"
           "  velmara settings link serial:/dev/ttyUSB0   the adapter of every day\n"
           "  velmara settings link default               back to the last adapter named with --link\n"
           "  velmara settings last-link default          forget that, too: back to the simulated vehicle\n";
  }
  bool needsVehicle() const override { return false; }

  void declare(Options& options) override {
    options.value("NAME", m_name, "", "The setting");
    options.value("VALUE", m_value, "", "Its new value, or \"default\"");
  }

  ExitCode run(Program& program) override {
    ProgramSession session(program);
    obd::IVelmaraSettings& library = *session.facade().settings();
    const std::vector<Setting> settings = makeSettings();
    if (m_name.empty()) {
      Table table({{"Setting"}, {"Value", true}, {"Unit"}, {"What it is"}});
      for (const Setting& setting : settings) {
        table.add(
            {setting.name, printable(setting.get(program, library)), setting.unit, setting.description});
      }
      table.print(program.out);
      program.out.flush();
      return ExitCode::Ok;
    }
    const auto found = std::find_if(settings.begin(), settings.end(),
                                    [this](const Setting& setting) { return m_name == setting.name; });
    if (found == settings.end()) {
      throw Failure(Failure::Kind::Unusable, fmt::format("There is no setting \"{}\".", m_name),
                    "velmara settings shows all.");
    }
    if (m_value.empty()) {
      program.out.line(printable(found->get(program, library)));
      program.out.flush();
    } else if (m_value == "default") {
      for (const char* const key : found->keys) {
        program.settings->remove(key);
      }
    } else if (!found->set(program, library, m_value)) {
      throw Failure(Failure::Kind::Unusable,
                    fmt::format("\"{}\" cannot be the setting \"{}\".", m_value, m_name),
                    fmt::format("It takes {}.", found->values));
    }
    return ExitCode::Ok;
  }

 private:
  std::string m_name;
  std::string m_value;
};

}  // namespace

std::unique_ptr<Command> makeSettingsCommand() {
  return std::make_unique<SettingsCommand>();
}

}  // namespace velmara
