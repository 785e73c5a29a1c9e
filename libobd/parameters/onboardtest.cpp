#include "parameters/onboardtest.h"

#include <algorithm>
#include <cstddef>
#include <iterator>
#include <optional>

#include <tavrix/tracelog.h>

namespace obd {

namespace {

using tavrix::LogStream;

constexpr const char* Source = "parameters\\onboardtest";
constexpr unsigned char Service = 0x08;
constexpr unsigned char ReplyBit = 0x40;
constexpr std::size_t SignatureSize = 2;
constexpr std::size_t SaeFrameSize = 7;
constexpr std::size_t StatusPosition = 2;

struct Routine {
  int tid;
  const char* description;
  const char* instructions;
};

constexpr Routine Routines[] = {
    {1, "Evaporative system leak test",
     "This service enables the conditions required to conduct an evaporative system leak test, but does not "
     "actually run the test. The vehicle manufacturer is responsible to determine the criteria to "
     "automatically stop the test."},
    {2, "Particulate Filter Regeneration",
     "This service requests the vehicle to initiate a PF regeneration. The vehicle manufacturer is "
     "responsible to determine the criteria to enable, start and stop the test."},
    {3, "Inducement System Reinitialization",
     "This service requests the vehicle to initiate a reinitialize the inducement system. The vehicle "
     "manufacturer is responsible to determine the criteria to enable, start and stop the test."},
};

constexpr Routine OtherRoutine = {0, "NA", ""};

const Routine& routine(int tid) {
  const auto* const found = std::ranges::find(Routines, tid, &Routine::tid);
  return found == std::end(Routines) ? OtherRoutine : *found;
}

}  // namespace

OnBoardTest::TestResult OnBoardTest::result(const IEcu& ecu) const {
  if (const std::optional<TestResult> known = m_results.find(ecu.id())) {
    return *known;
  }
  if (nack() != 0) {
    return Refused;
  }
  LogStream(Source, __LINE__, 2) << "invalid ECU id " << ecu.id();
  return Unknown;
}

IQuery::UpdateStatus OnBoardTest::update(const std::shared_ptr<IObdProxy>& proxy) {
  m_latestNack = 0;
  return ObdParameter::update(proxy);
}

bool OnBoardTest::setResponseData(const std::shared_ptr<IEcu>& ecu, const std::vector<unsigned char>& data) {
  const bool accepted = ObdParameter::setResponseData(ecu, data);
  m_latestNack = ObdParameter::nack();
  return accepted;
}

void OnBoardTest::getRequestData(std::vector<unsigned char>& data) const {
  data.assign({Service, m_tid});
  if (!isCan(m_protocol) && m_protocol != ObdProtocol::Unknown) {
    data.resize(SaeFrameSize, 0x00);
  }
}

void OnBoardTest::getSignature(std::vector<unsigned char>& data) const {
  data.assign({static_cast<unsigned char>(Service + ReplyBit), m_tid});
}

bool OnBoardTest::fromBytes(const std::shared_ptr<IEcu>& ecu, const std::vector<unsigned char>& data) {
  return isCan(ecu->protocol()) ? parseFromCanBus(ecu->id(), data) : parseFromNonCanBus(ecu->id(), data);
}

bool OnBoardTest::parseFromCanBus(unsigned int id, const std::vector<unsigned char>& payload) {
  if (payload.size() < SignatureSize) {
    return false;
  }
  m_results.set(id, Accepted);
  return true;
}

bool OnBoardTest::parseFromNonCanBus(unsigned int id, const std::vector<unsigned char>& payload) {
  if (payload.size() < SaeFrameSize) {
    m_results.set(id, TooShort);
    return false;
  }
  m_results.set(id, payload[StatusPosition] == 0 ? Accepted : Refused);
  return true;
}

std::string TestRoutineDataModel::description() const {
  return routine(m_tid).description;
}

std::string TestRoutineDataModel::instructions() const {
  return routine(m_tid).instructions;
}

std::string TestRoutineDataModel::nackReason() const {
  return NackToString(m_nack);
}

}  // namespace obd
