#include "parameters/monitortestresult.h"

#include <algorithm>
#include <cstddef>
#include <iterator>
#include <utility>

#include <tavrix/tracelog.h>

#include "parameters/unitscalingfactory.h"

namespace obd {

namespace {

using tavrix::LogStream;

constexpr const char* Source = "parameters\\monitortestresult";
constexpr const char* CanSource = "src\\monitortestitemparsercan";
constexpr unsigned char Service = 0x06;
constexpr unsigned char ReplyBit = 0x40;
constexpr std::size_t CanItemSize = 9;  // monitor identifier and one test
constexpr std::size_t SaeFrameSize = 7;

constexpr unsigned char MinimumBit = 0x80;  // of the component byte
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

// The first tests are the same on all protocols.
constexpr const char* TestTexts[] = {
    "Rich to lean sensor threshold voltage (constant)",
    "Lean to rich sensor threshold voltage (constant)",
    "Low sensor voltage for switch time calculation (constant)",
    "High sensor voltage for switch time calculation (constant)",
    "Rich to lean sensor switch time (calculated)",
    "Lean to rich sensor switch time (calculated)",
    "Minimum sensor voltage for test cycle (calculated)",
    "Maximum sensor voltage for test cycle (calculated)",
    "Time between sensor transitions (calculated)",
    "Sensor period (calculated)",
};
constexpr unsigned char LastCommonTest = 0x0A;

/// Tests `first` to `last` share a text.
struct RangeText {
  unsigned char first;
  unsigned char last;
  const char* text;
};

constexpr RangeText CanTestTexts[] = {
    {0x00, 0x00, "ISO/SAE reserved"},
    {0x0B, 0x0B,
     "Exponential Weighted Moving Average misfire counts for previous driving cycles (calculated)"},
    {0x0C, 0x0C, "Misfire counts for last/current driving cycles (calculated)"},
    {0x80, 0xFE, "Manufacturer Defined Test"},
    {0xFF, 0xFF, "ISO/SAE reserved"},
};

constexpr RangeText SaeTestTexts[] = {
    {0x0B, 0x0C, "Not applicable"},
    {0x0D, 0x1F, "ISO/SAE reserved"},
    {0x21, 0xFE, "Manufacturer Defined Test"},
    {0xFF, 0xFF, "ISO/SAE reserved"},
};

template <std::size_t Size>
std::string testText(const RangeText (&ranges)[Size], unsigned char tid) {
  if (tid >= 1 && tid <= LastCommonTest) {
    return TestTexts[tid - 1];
  }
  for (const RangeText& range : ranges) {
    if (range.first <= tid && tid <= range.last) {
      return range.text;
    }
  }
  return "NA";
}

/// The scaled number at `position`, high byte first.
float scaledAt(const IUnitScaling& scaling, const std::vector<unsigned char>& bytes, std::size_t position) {
  return scaling.scale(static_cast<unsigned short>(bytes.at(position) << 8 | bytes.at(position + 1)));
}

}  // namespace

std::string OidToString(unsigned char oid) {
  constexpr const char* Digits = "0123456789ABCDEF";
  return {'$', Digits[oid >> 4], Digits[oid & 0x0F]};
}

CanMonitorTestItem::CanMonitorTestItem(const std::shared_ptr<IUnitScaling>& scaling, unsigned char tid,
                                       float value, float minimum, float maximum)
    : m_scaling(scaling), m_tid(tid), m_value(value), m_minimum(minimum), m_maximum(maximum) {}

std::string CanMonitorTestItem::description() const {
  return testText(CanTestTexts, m_tid);
}

int CanMonitorTestItem::result() const {
  if (m_value == 0.0F && m_minimum == 0.0F && m_maximum == 0.0F) {
    return NoResult;
  }
  return m_minimum > m_value || m_value > m_maximum ? Failed : Passed;
}

MonitorTestItem::MonitorTestItem(const std::shared_ptr<IUnitScaling>& scaling, unsigned char tid,
                                 unsigned char component, float value, float limit)
    : m_scaling(scaling), m_tid(tid), m_component(component), m_value(value), m_limit(limit) {}

std::string MonitorTestItem::describe(unsigned char tid) {
  return testText(SaeTestTexts, tid);
}

bool MonitorTestItem::isMinimum() const {
  return (m_component & MinimumBit) != 0;
}

std::string MonitorTestItem::minLimit() const {
  return isMinimum() ? m_scaling->toString(m_limit) : std::string();
}

std::string MonitorTestItem::maxLimit() const {
  return isMinimum() ? std::string() : m_scaling->toString(m_limit);
}

int MonitorTestItem::result() const {
  const bool failed = isMinimum() ? m_limit > m_value : m_value > m_limit;
  return failed ? Failed : Passed;
}

std::shared_ptr<IMonitorTestItem> MonitorTestItemParserCan::parse(UnitSystem system) const {
  const unsigned char scalingId = m_bytes.at(1);
  const std::shared_ptr<IUnitScaling> scaling = UnitScalingFactory::create(scalingId, system);
  if (!scaling) {
    LogStream(CanSource, __LINE__, 2)
        << "Failed to create unit scaler for scale ID: " << static_cast<int>(scalingId);
    return nullptr;
  }
  return std::make_shared<CanMonitorTestItem>(scaling, m_bytes.at(0), scaledAt(*scaling, m_bytes, 2),
                                              scaledAt(*scaling, m_bytes, 4), scaledAt(*scaling, m_bytes, 6));
}

std::shared_ptr<IMonitorTestItem> MonitorTestItemParserNonCan::parse(UnitSystem /*system*/) const {
  const unsigned char tid = m_bytes.at(0);
  const std::shared_ptr<IUnitScaling> scaling = UnitScalingFactory::createForTid(tid);
  return std::make_shared<MonitorTestItem>(scaling, tid, m_bytes.at(1), scaledAt(*scaling, m_bytes, 2),
                                           scaledAt(*scaling, m_bytes, 4));
}

std::vector<std::shared_ptr<IMonitorTestItem>> ObdMonitorTestItem::items(UnitSystem system) const {
  std::vector<std::shared_ptr<IMonitorTestItem>> items;
  items.reserve(m_parsers.size());
  for (const std::shared_ptr<IMonitorTestItemParser>& parser : m_parsers) {
    if (std::shared_ptr<IMonitorTestItem> item = parser->parse(system)) {
      items.push_back(std::move(item));
    }
  }
  return items;
}

std::vector<std::shared_ptr<ObdMonitorTestItem>> MonitorTestResult::getItems(const IEcu& ecu) const {
  const auto found = m_items.find(ecu.id());
  if (found == m_items.end()) {
    LogStream(Source, __LINE__, 2) << "invalid ECU id " << ecu.id();
    return {};
  }
  return found->second;
}

void MonitorTestResult::clear() {
  m_items.clear();
}

void MonitorTestResult::getRequestData(std::vector<unsigned char>& data) const {
  data.assign({Service, m_mid});
}

void MonitorTestResult::getSignature(std::vector<unsigned char>& data) const {
  data.assign({static_cast<unsigned char>(Service + ReplyBit), m_mid});
}

bool MonitorTestResult::fromBytes(const std::shared_ptr<IEcu>& ecu, const std::vector<unsigned char>& data) {
  return isCan(ecu->protocol()) ? parseFromCanBus(ecu->id(), data) : parseFromNonCanBus(ecu->id(), data);
}

bool MonitorTestResult::parseFromCanBus(unsigned int id, const std::vector<unsigned char>& payload) {
  if (payload.size() % CanItemSize != 1) {
    LogStream(Source, __LINE__, 3) << "Invalid number of data bytes: " << payload.size();
    return false;
  }
  bool valid = true;
  const auto item = std::make_shared<ObdMonitorTestItem>(m_mid, descriptionCan());
  for (auto bytes = payload.begin() + 1; bytes != payload.end(); bytes += CanItemSize) {
    if (*bytes != m_mid) {
      LogStream(Source, __LINE__, 3) << "Invalid MID: " << static_cast<int>(*bytes) << " vs "
                                     << static_cast<int>(m_mid);
      valid = false;
      break;
    }
    item->addParser(std::make_shared<MonitorTestItemParserCan>(
        std::vector<unsigned char>(bytes + 1, bytes + CanItemSize)));
  }
  // What came before a wrong monitor is kept.
  m_items.insert_or_assign(id, std::vector{item});
  return valid;
}

bool MonitorTestResult::parseFromNonCanBus(unsigned int id, const std::vector<unsigned char>& payload) {
  if (payload.size() < SaeFrameSize) {
    LogStream(Source, __LINE__, 3) << "Invalid number of data bytes: " << payload.size();
    return false;
  }
  const int checksum = findSaeChecksumLength(payload);
  if (checksum < 0) {
    LogStream(Source, __LINE__, 2) << "Invalid data received";
    return false;
  }
  const std::size_t frameSize = SaeFrameSize + static_cast<std::size_t>(checksum);
  std::vector<std::shared_ptr<ObdMonitorTestItem>> items;
  items.reserve(payload.size() / frameSize);
  for (std::size_t frame = 0; frame + frameSize <= payload.size(); frame += frameSize) {
    const auto bytes = payload.begin() + static_cast<std::ptrdiff_t>(frame) + 1;
    const auto component = static_cast<unsigned char>(bytes[1] & ComponentMask);
    auto item = std::make_shared<ObdMonitorTestItem>(component, descriptionSae(component));
    item->addParser(std::make_shared<MonitorTestItemParserNonCan>(
        std::vector<unsigned char>(bytes, bytes + SaeFrameSize - 1)));
    items.push_back(std::move(item));
  }
  m_items.insert_or_assign(id, std::move(items));
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
