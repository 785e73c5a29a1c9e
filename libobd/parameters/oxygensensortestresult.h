#pragma once

#include <memory>
#include <vector>

#include "core/record.h"
#include "parameters/oxygensensortestitem.h"

namespace obd {

/// Service 05: one test of one oxygen sensor (SAE J1979; not on CAN). Tests 1 to 4 are constants without
/// limits, which counts as the limits 0x00 and 0xFF.
class VELMARA_EXPORT OxygenSensorTestResult : public Record<std::shared_ptr<OxygenSensorTestItem>> {
 public:
  OxygenSensorTestResult(unsigned char tid, OxygenSensorLocation location)
      : Record(Request(ObdMode::Mode05, {tid, sensorByte(location)}), "parameters\\oxygensensortestresult"),
        m_tid(tid),
        m_location(location) {}

  /// Null, with a line in the log, for a unit that did not answer.
  std::shared_ptr<OxygenSensorTestItem> getResult(const std::shared_ptr<IEcu>& ecu) const {
    return recordOf(*ecu);
  }

 protected:
  bool fromCan(unsigned int ecuId, const std::vector<unsigned char>& reply) override;

 private:
  unsigned char m_tid;
  OxygenSensorLocation m_location;
};

}  // namespace obd
