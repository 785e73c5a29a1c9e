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

/// Monitors `first` to `last`. In the text "#" stands for the number of a monitor among them, from 1; "@" and
/// "#" stand for bank and sensor where there are four sensors a bank.
struct MonitorRow {
  unsigned char first;
  unsigned char last;
  const char* text;
};

constexpr MonitorRow Monitors[] = {
    {0x01, 0x10, "Exhaust Gas Sensor Monitor Bank @ - Sensor #"},
    {0x11, 0x12, "Exhaust Gas Sensor Monitor Bank # - Sensor 5"},
    {0x21, 0x24, "Catalyst Monitor Bank #"},
    {0x31, 0x34, "EGR Monitor Bank #"},
    {0x35, 0x38, "VVT Monitor Bank #"},
    {0x39, 0x39, "EVAP Monitor (Cap Off / 0.150”)"},
    {0x3A, 0x3A, "EVAP Monitor (0.090“)"},
    {0x3B, 0x3B, "EVAP Monitor (0.040”)"},
    {0x3C, 0x3C, "EVAP Monitor (0.020“)"},
    {0x3D, 0x3D, "Purge Flow Monitor"},
    {0x41, 0x50, "Exhaust Gas Sensor Heater Monitor Bank @ - Sensor #"},
    {0x51, 0x52, "Exhaust Gas Sensor Heater Monitor Bank # - Sensor 5"},
    {0x61, 0x64, "Heated Catalyst Monitor Bank #"},
    {0x71, 0x74, "Secondary Air Monitor #"},
    {0x81, 0x84, "Fuel System Monitor Bank #"},
    {0x85, 0x86, "Boost Pressure Control Monitor Bank #"},
    {0x90, 0x91, "NOx Adsorber Monitor Bank #"},
    {0x98, 0x99, "NOx/SCR Catalyst Monitor Bank #"},
    {0xA1, 0xA1, "Misfire Monitor General Data"},
    {0xA2, 0xB1, "Misfire Cylinder # Data"},
    {0xB2, 0xB3, "PM Filter Monitor Bank #"},
};

std::string monitorText(const MonitorRow& row, unsigned char mid) {
  constexpr int SensorsOfABank = 4;
  std::string text = row.text;
  int number = mid - row.first;
  const auto replace = [&text](char mark, int by) {
    if (const std::size_t at = text.find(mark); at != std::string::npos) {
      text.replace(at, 1, std::to_string(by));
    }
  };
  if (text.find('@') != std::string::npos) {
    replace('@', number / SensorsOfABank + 1);
    number %= SensorsOfABank;
  }
  replace('#', number + 1);
  return text;
}

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
  if (m_mid % 0x20 == 0) {
    const int last = m_mid == LastStandardMonitor ? 0xFF : m_mid + 0x20;
    return "OBD Monitor IDs supported (" + OidToString(static_cast<unsigned char>(m_mid + 1)) + " - " +
           OidToString(static_cast<unsigned char>(last)) + ")";
  }
  const auto* const row = std::ranges::find_if(
      Monitors, [this](const MonitorRow& r) { return r.first <= m_mid && m_mid <= r.last; });
  return row == std::end(Monitors) ? "ISO/SAE reserved" : monitorText(*row, m_mid);
}

std::string MonitorTestResult::descriptionSae(unsigned char component) {
  return "Manufacturer specified component " + OidToString(component);
}

}  // namespace obd
