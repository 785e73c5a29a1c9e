#include "parameters/monitortestitemparser.h"

#include <cstddef>

#include <tavrix/tracelog.h>

#include "core/bigendian.h"
#include "parameters/unitscalingfactory.h"

namespace obd {

namespace {

using tavrix::LogStream;

constexpr const char* CanSource = "src\\monitortestitemparsercan";

// The scaled word at `position`.
float scaledAt(const IUnitScaling& scaling, const std::vector<unsigned char>& bytes, std::size_t position) {
  return scaling.scale(static_cast<unsigned short>(word(&bytes.at(position + 1) - 1)));
}

}  // namespace

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

}  // namespace obd
