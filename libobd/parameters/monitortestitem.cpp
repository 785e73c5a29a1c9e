#include "parameters/monitortestitem.h"

#include <cstddef>

namespace obd {

namespace {

constexpr unsigned char MinimumBit = 0x80;  // of the component byte

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

}  // namespace

std::string CanMonitorTestItem::description() const {
  return testText(CanTestTexts, tid());
}

int CanMonitorTestItem::result() const {
  if (number() == 0.0F && m_minimum == 0.0F && m_maximum == 0.0F) {
    return NoResult;
  }
  return m_minimum > number() || number() > m_maximum ? Failed : Passed;
}

std::string MonitorTestItem::describe(unsigned char tid) {
  return testText(SaeTestTexts, tid);
}

bool MonitorTestItem::isMinimum() const {
  return (m_component & MinimumBit) != 0;
}

int MonitorTestItem::result() const {
  const bool failed = isMinimum() ? m_limit > number() : number() > m_limit;
  return failed ? Failed : Passed;
}

}  // namespace obd
