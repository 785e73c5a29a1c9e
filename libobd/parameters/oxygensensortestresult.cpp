#include "parameters/oxygensensortestresult.h"

#include <tavrix/tracelog.h>

namespace obd {

namespace {

constexpr std::size_t ValuePosition = 3;  // behind the signature; then minimum and maximum
constexpr std::size_t ConstantSize = ValuePosition + 1;
constexpr std::size_t FullSize = ValuePosition + 3;
constexpr unsigned char LastConstantTid = 4;

}  // namespace

bool OxygenSensorTestResult::fromCan(unsigned int ecuId, const std::vector<unsigned char>& reply) {
  if (reply.size() < ConstantSize) {
    return refuseByteCount(source(), 3, reply.size());
  }
  unsigned char minimum = 0x00;
  unsigned char maximum = 0xFF;
  const bool isConstant = m_tid >= 1 && m_tid <= LastConstantTid;
  if (!isConstant) {
    if (reply.size() < FullSize) {
      tavrix::LogStream(source(), __LINE__, 3)
          << "TID " << static_cast<int>(m_tid) << ": invalid number of data bytes: " << reply.size();
      return false;
    }
    minimum = reply[ValuePosition + 1];
    maximum = reply[ValuePosition + 2];
  }
  records().set(ecuId, std::make_shared<OxygenSensorTestItem>(m_tid, m_location, reply[ValuePosition],
                                                              minimum, maximum));
  return true;
}

}  // namespace obd
