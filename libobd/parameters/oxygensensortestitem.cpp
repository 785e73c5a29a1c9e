#include "parameters/oxygensensortestitem.h"

#include "parameters/monitortestitem.h"
#include "parameters/unitscalingfactory.h"

namespace obd {

OxygenSensorTestItem::OxygenSensorTestItem(unsigned char tid, OxygenSensorLocation location,
                                           unsigned char value, unsigned char minimum, unsigned char maximum)
    : m_tid(tid), m_location(location), m_result(minimum <= value && value <= maximum ? Passed : Failed) {
  const std::shared_ptr<IUnitScaling> scaling = UnitScalingFactory::createForTid(tid);
  const auto text = [&scaling](unsigned char raw) { return scaling->toString(scaling->scale(raw)); };
  m_minLimit = text(minimum);
  m_maxLimit = text(maximum);
  m_value = text(value);
  m_unit = scaling->unit();
}

std::string OxygenSensorTestItem::description() const {
  return MonitorTestItem::describe(m_tid);
}

}  // namespace obd
