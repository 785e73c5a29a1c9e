#include "parameters/ecuname.h"

#include <array>
#include <stdexcept>
#include <string_view>

#include <tavrix/tracelog.h>

#include "parameters/calibrationitems.h"

namespace obd {

namespace {

constexpr std::size_t Frames = 5;
constexpr std::size_t AcronymLength = 4;
constexpr std::size_t NameLength = 15;
constexpr std::size_t FullLength = AcronymLength + 1 + NameLength;
constexpr unsigned char Delimiter = '-';

struct ModuleText {
  std::string_view acronym;
  const char* text;
};

constexpr ModuleText ModuleTexts[] = {
    {"ABS", "Anti-Lock Brake System (ABS) Control Module"},
    {"AFC", "Alternative Fuel Control Module"},
    {"AHC", "Auxiliary Heater Control Module"},
    {"APC", "Air Pump Control Module"},
    {"AWD", "All Wheel Drive Control Module"},
    {"BCC", "Battery Charger Control Module"},
    {"BEC", "Battery Energy Control Module"},
    {"BSC", "Brake System Control Module"},
    {"CHC", "Chassis Control Module"},
    {"CRC", "Cruise Control Module"},
    {"CTC", "Coolant Temperature Control Module"},
    {"DCD", "DC/DC Converter Control Module"},
    {"DMC", "Drive Motor Control Module"},
    {"EAC", "Electric A/C Compressor Control Module"},
    {"EAM", "Exhaust Aftertreatment Control Module"},
    {"EBB", "Electronic Brake Boost Control Module"},
    {"ECC", "Emissions Critical Control Module"},
    {"ECM", "Engine Control Module"},
    {"FAC", "Fuel Additive Control Module"},
    {"FIC", "Fuel Injector Control Module"},
    {"FPC", "Fuel Pump Control Module"},
    {"4WD", "Four-Wheel Drive Clutch Control Module"},
    {"GPC", "Glow Plug Control Module"},
    {"GSM", "Gear Shift Control Module"},
    {"HVA", "HVAC Control Module"},
    {"HPC", "Hybrid Powertrain Control Module"},
    {"IPC", "Instrument Panel Cluster (IPC) Control Module"},
    {"PCM", "Powertrain Control Module"},
    {"RDC", "Reductant Control Module"},
    {"SGC", "Starter / Generator Control Module"},
    {"TAC", "Throttle Actuator Control Module"},
    {"TCC", "Transfer Case Control Module"},
    {"TCM", "Transmission Control Module"},
};

}  // namespace

EcuName::EcuName() : VehicleInformation(0x0A, "parameters\\ecuname") {}

std::string EcuName::ecuDescription(const IEcu& ecu) const {
  const std::string acronym = ecuAcronym(ecu);
  for (const ModuleText& module : ModuleTexts) {
    if (acronym.find(module.acronym) != std::string::npos) {
      return module.text;
    }
  }
  return {};
}

bool EcuName::fromCan(unsigned int ecuId, const std::vector<unsigned char>& reply) {
  if (reply.size() < DataPosition + FullLength) {
    return refuseByteCount(source(), 2, reply.size());
  }
  store(ecuId, reply.data() + DataPosition);
  return true;
}

bool EcuName::fromFrames(unsigned int ecuId, const std::vector<unsigned char>& reply) {
  const auto frames = findFramesOfItems(reply, Frames, 2);
  if (!frames) {
    return false;
  }
  std::array<unsigned char, FullLength> buffer{};
  for (std::size_t i = 0; i < Frames; ++i) {
    if (!frames->place(i, 1, buffer)) {
      throw std::out_of_range("sequence number of a control unit name");
    }
  }
  store(ecuId, buffer.data());
  return true;
}

// Takes the 20 bytes of acronym, delimiter and name.
void EcuName::store(unsigned int ecuId, const unsigned char* text) {
  if (text[AcronymLength] != Delimiter) {
    tavrix::debugStream << "No delimeter found!";
  }
  records().set(ecuId,
                {withoutZeros(text, AcronymLength), withoutZeros(text + AcronymLength + 1, NameLength)});
}

}  // namespace obd
