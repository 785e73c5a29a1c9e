#include "parameters/performancetracking.h"

#include <cstddef>

#include <tavrix/tracelog.h>

#include "core/bigendian.h"

namespace obd {

namespace {

using tavrix::LogStream;

constexpr std::size_t SmallestCan = 35;  // 16 counters
constexpr std::size_t CounterSize = 2;
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

// Takes one counter. One that reads 0 is not there.
void addCounter(PerformanceCounters& counters, std::size_t index, const unsigned char* bytes) {
  if (const unsigned int value = word(bytes); value != 0) {
    counters.emplace_hint(counters.end(), static_cast<std::int32_t>(index), value);
  }
}

}  // namespace

std::string PerformanceTracking::textOf(std::int32_t counter) const {
  const auto index = static_cast<std::size_t>(counter);
  return index < m_texts.size() ? m_texts[index] : "NA";
}

unsigned int PerformanceTracking::valueOf(const IEcu& ecu, std::int32_t counter) const {
  const auto counters = recordOf(ecu);
  if (!counters) {
    return 0;
  }
  const auto found = counters->find(counter);
  if (found == counters->end()) {
    LogStream(source(), __LINE__, 2) << "Invalid counter: " << counter;
    return 0;
  }
  return found->second;
}

std::vector<std::int32_t> PerformanceTracking::countersOf(const IEcu& ecu) const {
  std::vector<std::int32_t> numbers;
  if (const auto counters = recordOf(ecu)) {
    for (const auto& [number, value] : *counters) {
      numbers.push_back(number);
    }
  }
  return numbers;
}

bool PerformanceTracking::fromBytes(const std::shared_ptr<IEcu>& ecu,
                                    const std::vector<unsigned char>& data) {
  records().eraseFirst();
  return VehicleInformation::fromBytes(ecu, data);
}

bool PerformanceTracking::fromCan(unsigned int ecuId, const std::vector<unsigned char>& reply) {
  if (reply.size() < SmallestCan) {
    return refuseByteCount(source(), 2, reply.size());
  }
  const auto counters = std::make_shared<PerformanceCounters>();
  const std::size_t count = reply[CountPosition];
  for (std::size_t index = 0; index < count; ++index) {
    const std::size_t position = DataPosition + CounterSize * index;
    if (position + CounterSize > reply.size()) {
      refuseByteCount(source(), 2, reply.size());
      break;
    }
    addCounter(*counters, index, reply.data() + position);
  }
  records().set(ecuId, counters);
  return true;
}

bool PerformanceTracking::fromFrames(unsigned int ecuId, const std::vector<unsigned char>& reply) {
  const auto frames = findFrames(reply, 2);
  if (!frames) {
    return false;
  }
  const auto counters = std::make_shared<PerformanceCounters>();
  for (std::size_t frame = 0; frame < frames->count(); ++frame) {
    // Place alone counts; sequence numbers are not read.
    const unsigned char* bytes = (*frames)[frame] + DataPosition;
    addCounter(*counters, CountersPerFrame * frame, bytes);
    addCounter(*counters, CountersPerFrame * frame + 1, bytes + CounterSize);
  }
  records().set(ecuId, counters);
  return true;
}

PerformanceTrackingSpark::PerformanceTrackingSpark()
    : PerformanceTrackingOf(0x08, "parameters\\performancetrackingspark", SparkTexts) {}

PerformanceTrackingCompression::PerformanceTrackingCompression()
    : PerformanceTrackingOf(0x0B, "parameters\\performancetrackingcompression", CompressionTexts) {}

}  // namespace obd
