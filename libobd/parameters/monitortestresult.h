#pragma once

#include <memory>
#include <string>
#include <vector>

#include "core/record.h"
#include "parameters/obdmonitortestitem.h"

namespace obd {

/// Service 06: the tests of one on-board monitor (SAE J1979, ISO 15031-5). On CAN the identifier is that of a
/// monitor, and a reply carries all its tests in nine bytes each; before CAN it is that of a test, and a
/// reply carries a frame per component.
class VELMARA_EXPORT MonitorTestResult : public Record<std::vector<std::shared_ptr<ObdMonitorTestItem>>> {
 public:
  explicit MonitorTestResult(unsigned char mid)
      : Record(Request(ObdMode::Mode06, {mid}), "parameters\\monitortestresult"), m_mid(mid) {}

  /// One item on CAN, one per frame before it. Empty, with a line in the log, for a unit that did not answer.
  std::vector<std::shared_ptr<ObdMonitorTestItem>> getItems(const IEcu& ecu) const { return recordOf(ecu); }

 protected:
  bool fromCan(unsigned int ecuId, const std::vector<unsigned char>& reply) override;
  bool fromFrames(unsigned int ecuId, const std::vector<unsigned char>& reply) override;

 private:
  std::string descriptionCan() const;
  static std::string descriptionSae(unsigned char component);

  unsigned char m_mid;
};

/// An identifier as the standards write it, "$0A".
VELMARA_EXPORT std::string OidToString(unsigned char oid);

}  // namespace obd
