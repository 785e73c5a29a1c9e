#include "parameters/monitortestresult.h"

#include <algorithm>
#include <cstddef>
#include <iterator>
#include <utility>

#include <tavrix/tracelog.h>

namespace obd {

namespace {

using tavrix::LogStream;

constexpr std::size_t CanItemSize = 9;  // monitor identifier and one test
constexpr unsigned char ComponentMask = 0x7F;
constexpr unsigned char LastStandardMonitor = 0xE0;

struct IdText {
  unsigned char id;
  const char* text;
};

constexpr IdText MonitorTexts[] = {
    {0x00, "OBD Monitor IDs supported ($01 - $20)"},
    {0x01, "Exhaust Gas Sensor Monitor Bank 1 - Sensor 1"},
    {0x02, "Exhaust Gas Sensor Monitor Bank 1 - Sensor 2"},
    {0x03, "Exhaust Gas Sensor Monitor Bank 1 - Sensor 3"},
    {0x04, "Exhaust Gas Sensor Monitor Bank 1 - Sensor 4"},
    {0x05, "Exhaust Gas Sensor Monitor Bank 2 - Sensor 1"},
    {0x06, "Exhaust Gas Sensor Monitor Bank 2 - Sensor 2"},
    {0x07, "Exhaust Gas Sensor Monitor Bank 2 - Sensor 3"},
    {0x08, "Exhaust Gas Sensor Monitor Bank 2 - Sensor 4"},
    {0x09, "Exhaust Gas Sensor Monitor Bank 3 - Sensor 1"},
    {0x0A, "Exhaust Gas Sensor Monitor Bank 3 - Sensor 2"},
    {0x0B, "Exhaust Gas Sensor Monitor Bank 3 - Sensor 3"},
    {0x0C, "Exhaust Gas Sensor Monitor Bank 3 - Sensor 4"},
    {0x0D, "Exhaust Gas Sensor Monitor Bank 4 - Sensor 1"},
    {0x0E, "Exhaust Gas Sensor Monitor Bank 4 - Sensor 2"},
    {0x0F, "Exhaust Gas Sensor Monitor Bank 4 - Sensor 3"},
    {0x10, "Exhaust Gas Sensor Monitor Bank 4 - Sensor 4"},
    {0x11, "Exhaust Gas Sensor Monitor Bank 1 - Sensor 5"},
    {0x12, "Exhaust Gas Sensor Monitor Bank 2 - Sensor 5"},
    {0x20, "OBD Monitor IDs supported ($21 - $40)"},
    {0x21, "Catalyst Monitor Bank 1"},
    {0x22, "Catalyst Monitor Bank 2"},
    {0x23, "Catalyst Monitor Bank 3"},
    {0x24, "Catalyst Monitor Bank 4"},
    {0x31, "EGR Monitor Bank 1"},
    {0x32, "EGR Monitor Bank 2"},
    {0x33, "EGR Monitor Bank 3"},
    {0x34, "EGR Monitor Bank 4"},
    {0x35, "VVT Monitor Bank 1"},
    {0x36, "VVT Monitor Bank 2"},
    {0x37, "VVT Monitor Bank 3"},
    {0x38, "VVT Monitor Bank 4"},
    {0x39, "EVAP Monitor (Cap Off / 0.150”)"},
    {0x3A, "EVAP Monitor (0.090“)"},
    {0x3B, "EVAP Monitor (0.040”)"},
    {0x3C, "EVAP Monitor (0.020“)"},
    {0x3D, "Purge Flow Monitor"},
    {0x40, "OBD Monitor IDs supported ($41 - $60)"},
    {0x41, "Exhaust Gas Sensor Heater Monitor Bank 1 - Sensor 1"},
    {0x42, "Exhaust Gas Sensor Heater Monitor Bank 1 - Sensor 2"},
    {0x43, "Exhaust Gas Sensor Heater Monitor Bank 1 - Sensor 3"},
    {0x44, "Exhaust Gas Sensor Heater Monitor Bank 1 - Sensor 4"},
    {0x45, "Exhaust Gas Sensor Heater Monitor Bank 2 - Sensor 1"},
    {0x46, "Exhaust Gas Sensor Heater Monitor Bank 2 - Sensor 2"},
    {0x47, "Exhaust Gas Sensor Heater Monitor Bank 2 - Sensor 3"},
    {0x48, "Exhaust Gas Sensor Heater Monitor Bank 2 - Sensor 4"},
    {0x49, "Exhaust Gas Sensor Heater Monitor Bank 3 - Sensor 1"},
    {0x4A, "Exhaust Gas Sensor Heater Monitor Bank 3 - Sensor 2"},
    {0x4B, "Exhaust Gas Sensor Heater Monitor Bank 3 - Sensor 3"},
    {0x4C, "Exhaust Gas Sensor Heater Monitor Bank 3 - Sensor 4"},
    {0x4D, "Exhaust Gas Sensor Heater Monitor Bank 4 - Sensor 1"},
    {0x4E, "Exhaust Gas Sensor Heater Monitor Bank 4 - Sensor 2"},
    {0x4F, "Exhaust Gas Sensor Heater Monitor Bank 4 - Sensor 3"},
    {0x50, "Exhaust Gas Sensor Heater Monitor Bank 4 - Sensor 4"},
    {0x51, "Exhaust Gas Sensor Heater Monitor Bank 1 - Sensor 5"},
    {0x52, "Exhaust Gas Sensor Heater Monitor Bank 2 - Sensor 5"},
    {0x60, "OBD Monitor IDs supported ($61 - $80)"},
    {0x61, "Heated Catalyst Monitor Bank 1"},
    {0x62, "Heated Catalyst Monitor Bank 2"},
    {0x63, "Heated Catalyst Monitor Bank 3"},
    {0x64, "Heated Catalyst Monitor Bank 4"},
    {0x71, "Secondary Air Monitor 1"},
    {0x72, "Secondary Air Monitor 2"},
    {0x73, "Secondary Air Monitor 3"},
    {0x74, "Secondary Air Monitor 4"},
    {0x80, "OBD Monitor IDs supported ($81 - $A0)"},
    {0x81, "Fuel System Monitor Bank 1"},
    {0x82, "Fuel System Monitor Bank 2"},
    {0x83, "Fuel System Monitor Bank 3"},
    {0x84, "Fuel System Monitor Bank 4"},
    {0x85, "Boost Pressure Control Monitor Bank 1"},
    {0x86, "Boost Pressure Control Monitor Bank 2"},
    {0x90, "NOx Adsorber Monitor Bank 1"},
    {0x91, "NOx Adsorber Monitor Bank 2"},
    {0x98, "NOx/SCR Catalyst Monitor Bank 1"},
    {0x99, "NOx/SCR Catalyst Monitor Bank 2"},
    {0xA0, "OBD Monitor IDs supported ($A1 - $C0)"},
    {0xA1, "Misfire Monitor General Data"},
    {0xA2, "Misfire Cylinder 1 Data"},
    {0xA3, "Misfire Cylinder 2 Data"},
    {0xA4, "Misfire Cylinder 3 Data"},
    {0xA5, "Misfire Cylinder 4 Data"},
    {0xA6, "Misfire Cylinder 5 Data"},
    {0xA7, "Misfire Cylinder 6 Data"},
    {0xA8, "Misfire Cylinder 7 Data"},
    {0xA9, "Misfire Cylinder 8 Data"},
    {0xAA, "Misfire Cylinder 9 Data"},
    {0xAB, "Misfire Cylinder 10 Data"},
    {0xAC, "Misfire Cylinder 11 Data"},
    {0xAD, "Misfire Cylinder 12 Data"},
    {0xAE, "Misfire Cylinder 13 Data"},
    {0xAF, "Misfire Cylinder 14 Data"},
    {0xB0, "Misfire Cylinder 15 Data"},
    {0xB1, "Misfire Cylinder 16 Data"},
    {0xB2, "PM Filter Monitor Bank 1"},
    {0xB3, "PM Filter Monitor Bank 2"},
    {0xC0, "OBD Monitor IDs supported ($C1 - $E0)"},
    {0xE0, "OBD Monitor IDs supported ($E1 - $FF)"},
};

}  // namespace

std::string OidToString(unsigned char oid) {
  constexpr const char* Digits = "0123456789ABCDEF";
  return {'$', Digits[oid >> 4], Digits[oid & 0x0F]};
}

bool MonitorTestResult::fromCan(unsigned int ecuId, const std::vector<unsigned char>& reply) {
  if (reply.size() % CanItemSize != 1) {
    return refuseByteCount(source(), 3, reply.size());
  }
  bool valid = true;
  const auto item = std::make_shared<ObdMonitorTestItem>(m_mid, descriptionCan());
  for (auto bytes = reply.begin() + 1; bytes != reply.end(); bytes += CanItemSize) {
    if (*bytes != m_mid) {
      LogStream(source(), __LINE__, 3)
          << "Invalid MID: " << static_cast<int>(*bytes) << " vs " << static_cast<int>(m_mid);
      valid = false;
      break;
    }
    item->addParser(std::make_shared<MonitorTestItemParserCan>(
        std::vector<unsigned char>(bytes + 1, bytes + CanItemSize)));
  }
  // What came before a wrong monitor is kept.
  records().set(ecuId, {item});
  return valid;
}

bool MonitorTestResult::fromFrames(unsigned int ecuId, const std::vector<unsigned char>& reply) {
  const auto frames = findFrames(reply, 3);
  if (!frames) {
    return false;
  }
  std::vector<std::shared_ptr<ObdMonitorTestItem>> items;
  for (std::size_t i = 0; i < frames->count(); ++i) {
    const unsigned char* frame = (*frames)[i];
    const auto component = static_cast<unsigned char>(frame[2] & ComponentMask);
    auto item = std::make_shared<ObdMonitorTestItem>(component, descriptionSae(component));
    item->addParser(std::make_shared<MonitorTestItemParserNonCan>(
        std::vector<unsigned char>(frame + 1, frame + SaeFrames::FrameSize)));
    items.push_back(std::move(item));
  }
  records().set(ecuId, std::move(items));
  return true;
}

std::string MonitorTestResult::descriptionCan() const {
  if (m_mid > LastStandardMonitor) {
    return "Vehicle manufacturer defined monitor " + OidToString(m_mid);
  }
  const auto* const row = std::ranges::find(MonitorTexts, m_mid, &IdText::id);
  return row == std::end(MonitorTexts) ? "ISO/SAE reserved" : row->text;
}

std::string MonitorTestResult::descriptionSae(unsigned char component) {
  return "Manufacturer specified component " + OidToString(component);
}

}  // namespace obd
