#include "parameters/oxygensensortest.h"

#include <cstddef>

#include <tavrix/tracelog.h>

#include "parameters/monitortestresult.h"
#include "parameters/unitscalingfactory.h"

namespace obd {

namespace {

using tavrix::LogStream;

constexpr const char* Source = "parameters\\oxygensensortestresult";
constexpr unsigned char Service = 0x05;
constexpr unsigned char ReplyBit = 0x40;
constexpr std::size_t ValuePosition = 3;  // behind the signature; then minimum and maximum
constexpr std::size_t ConstantSize = ValuePosition + 1;
constexpr std::size_t FullSize = ValuePosition + 3;
constexpr unsigned char LastConstantTid = 4;

}  // namespace

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

std::shared_ptr<OxygenSensorTestItem> OxygenSensorTestResult::getResult(
    const std::shared_ptr<IEcu>& ecu) const {
  const auto found = m_results.find(ecu->id());
  if (found == m_results.end()) {
    LogStream(Source, __LINE__, 2) << "invalid ECU id " << ecu->id();
    return nullptr;
  }
  return found->second;
}

void OxygenSensorTestResult::clear() {
  m_results.clear();
}

void OxygenSensorTestResult::getRequestData(std::vector<unsigned char>& data) const {
  data.assign({Service, m_tid, sensorByte(m_location)});
}

void OxygenSensorTestResult::getSignature(std::vector<unsigned char>& data) const {
  data.assign({static_cast<unsigned char>(Service + ReplyBit), m_tid, sensorByte(m_location)});
}

bool OxygenSensorTestResult::fromBytes(const std::shared_ptr<IEcu>& ecu,
                                       const std::vector<unsigned char>& data) {
  if (data.size() < ConstantSize) {
    LogStream(Source, __LINE__, 3) << "Invalid number of data bytes: " << data.size();
    return false;
  }
  unsigned char minimum = 0x00;
  unsigned char maximum = 0xFF;
  const bool isConstant = m_tid >= 1 && m_tid <= LastConstantTid;
  if (!isConstant) {
    if (data.size() < FullSize) {
      LogStream(Source, __LINE__, 3) << "TID " << static_cast<int>(m_tid)
                                     << ": invalid number of data bytes: " << data.size();
      return false;
    }
    minimum = data[ValuePosition + 1];
    maximum = data[ValuePosition + 2];
  }
  m_results.insert_or_assign(ecu->id(), std::make_shared<OxygenSensorTestItem>(
                                            m_tid, m_location, data[ValuePosition], minimum, maximum));
  return true;
}

}  // namespace obd
