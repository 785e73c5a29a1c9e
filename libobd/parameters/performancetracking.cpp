#include "parameters/performancetracking.h"

#include <cstddef>
#include <utility>

#include <tavrix/tracelog.h>

namespace obd {

namespace {

using tavrix::LogStream;

constexpr std::size_t CountPosition = 2;    // on CAN
constexpr std::size_t CounterPosition = 3;  // behind signature and count or sequence number
constexpr std::size_t SmallestCan = 35;     // 16 counters
constexpr std::size_t SaeFrameSize = 7;
constexpr std::size_t CountersPerFrame = 2;

constexpr const char* SparkTexts[] = {
    "OBD Monitoring Conditions Encountered Counts",
    "Ignition Cycle Counter",
    "Catalyst Monitor Completion Counts Bank 1",
    "Catalyst Monitor Conditions Encountered Counts Bank 1",
    "Catalyst Monitor Completion Counts Bank 2",
    "Catalyst Monitor Conditions Encountered Counts Bank 2",
    "O2 Sensor Monitor Completion Counts Bank 1",
    "O2 Sensor Monitor Conditions Encountered Counts Bank 1",
    "O2 Sensor Monitor Completion Counts Bank 2",
    "O2 Sensor Monitor Conditions Encountered Counts Bank 2",
    "EGR and/or VVT Monitor Completion Condition Counts",
    "EGR and/or VVT Monitor Conditions Encountered Counts",
    "AIR Monitor Completion Condition Counts (Secondary Air)",
    "AIR Monitor Conditions Encountered Counts (Secondary Air)",
    "EVAP Monitor Completion Condition Counts",
    "EVAP Monitor Conditions Encountered Counts",
    "Secondary O2 Sensor Monitor Completion Counts Bank 1",
    "Secondary O2 Sensor Monitor Conditions Encountered Counts Bank 1",
    "Secondary O2 Sensor Monitor Completion Counts Bank 2",
    "Secondary O2 Sensor Monitor Conditions Encountered Counts Bank 2",
};

// "SRC" as front ends know it.
constexpr const char* CompressionTexts[] = {
    "OBD Monitoring Conditions Encountered Counts",
    "Ignition Cycle Counter",
    "NMHC Catalyst Monitor Completion Condition Counts",
    "NMHC Catalyst Monitor Conditions Encountered Counts",
    "NOx/SRC Catalyst Monitor Completion Condition Counts",
    "NOx/SRC Catalyst Monitor Conditions Encountered Counts",
    "NOx Adsorber Monitor Completion Conditions Counts",
    "NOx Adsorber Monitor Conditions Encountered Counts",
    "PM Filter Monitor Completion Condition Counts",
    "PM Filter Monitor Conditions Encountered Counts",
    "Exhaust Gas Sensor Monitor Completion Condition Counts",
    "Exhaust Gas Sensor Monitor Conditions Encountered Counts",
    "EGR and/or VVT Monitor Completion Condition Counts",
    "EGR and/or VVT Monitor Conditions Encountered Counts",
    "Boost Pressure Monitor Completion Condition Counts",
    "Boost Pressure Monitor Conditions Encountered Counts",
    "Fuel Monitor Completion Condition Counts",
    "Fuel Monitor Conditions Encountered Counts",
};

/// Takes one counter, high byte first. One that reads 0 is not there.
void addCounter(std::map<std::int32_t, unsigned int>& counters, std::size_t index,
                const unsigned char* bytes) {
  const unsigned int value = static_cast<unsigned int>(bytes[0]) << 8U | bytes[1];
  if (value != 0) {
    counters.emplace_hint(counters.end(), static_cast<std::int32_t>(index), value);
  }
}

}  // namespace

std::string PerformanceTracking::textOf(std::int32_t counter) const {
  const auto index = static_cast<std::size_t>(counter);
  return index < m_texts.size() ? m_texts[index] : "NA";
}

unsigned int PerformanceTracking::valueOf(const IEcu& ecu, std::int32_t counter) const {
  const auto unit = m_counters.find(ecu.id());
  if (unit == m_counters.end()) {
    LogStream(m_source, __LINE__, 2) << "invalid ECU id " << ecu.id();
    return 0;
  }
  const auto found = unit->second.find(counter);
  if (found == unit->second.end()) {
    LogStream(m_source, __LINE__, 2) << "Invalid counter: " << counter;
    return 0;
  }
  return found->second;
}

std::vector<std::int32_t> PerformanceTracking::countersOf(const IEcu& ecu) const {
  const auto unit = m_counters.find(ecu.id());
  if (unit == m_counters.end()) {
    LogStream(m_source, __LINE__, 2) << "invalid ECU id " << ecu.id();
    return {};
  }
  std::vector<std::int32_t> counters;
  counters.reserve(unit->second.size());
  for (const auto& [counter, value] : unit->second) {
    counters.push_back(counter);
  }
  return counters;
}

bool PerformanceTracking::fromBytes(const std::shared_ptr<IEcu>& ecu,
                                    const std::vector<unsigned char>& data) {
  if (!m_counters.empty()) {
    m_counters.erase(m_counters.begin());
  }
  return isCan(ecu->protocol()) ? fromCanSystem(ecu->id(), data) : fromSaeSystem(ecu->id(), data);
}

bool PerformanceTracking::fromCanSystem(unsigned int id, const std::vector<unsigned char>& payload) {
  if (payload.size() < SmallestCan) {
    LogStream(m_source, __LINE__, 2) << "Invalid number of data bytes: " << payload.size();
    return false;
  }
  Counters counters;
  const std::size_t count = payload[CountPosition];
  for (std::size_t index = 0; index < count; ++index) {
    const std::size_t position = CounterPosition + 2 * index;
    if (position + 2 > payload.size()) {
      LogStream(m_source, __LINE__, 2) << "Invalid number of data bytes: " << payload.size();
      break;
    }
    addCounter(counters, index, payload.data() + position);
  }
  m_counters.insert_or_assign(id, std::move(counters));
  return true;
}

bool PerformanceTracking::fromSaeSystem(unsigned int id, const std::vector<unsigned char>& payload) {
  if (payload.size() < SaeFrameSize) {
    LogStream(m_source, __LINE__, 2) << "Invalid number of data bytes: " << payload.size();
    return false;
  }
  const int checksum = findSaeChecksumLength(payload);
  if (checksum < 0) {
    LogStream(m_source, __LINE__, 2) << "Invalid data received";
    return false;
  }
  const std::size_t frameSize = SaeFrameSize + static_cast<std::size_t>(checksum);
  const std::size_t frames = payload.size() / frameSize;
  Counters counters;
  for (std::size_t frame = 0; frame < frames; ++frame) {
    // Place alone counts; sequence numbers are not read.
    const unsigned char* bytes = payload.data() + frame * frameSize + CounterPosition;
    addCounter(counters, CountersPerFrame * frame, bytes);
    addCounter(counters, CountersPerFrame * frame + 1, bytes + 2);
  }
  m_counters.insert_or_assign(id, std::move(counters));
  return true;
}

PerformanceTrackingSpark::PerformanceTrackingSpark()
    : PerformanceTrackingOf(0x08, "parameters\\performancetrackingspark", SparkTexts) {}

PerformanceTrackingCompression::PerformanceTrackingCompression()
    : PerformanceTrackingOf(0x0B, "parameters\\performancetrackingcompression", CompressionTexts) {}

}  // namespace obd
